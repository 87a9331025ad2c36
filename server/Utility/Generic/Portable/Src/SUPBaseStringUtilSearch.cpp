// BaseStringUtil: searches for character sets, sub-strings, and texts outside quotes.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "CharacterSet.h"
#include "kernels/search.h"

#include <algorithm>

namespace {

using String = BaseStringUtil::String;

constexpr wchar_t kBackslash = L'\\';
constexpr wchar_t kApostrophe = L'\'';

std::size_t findInSet(const String& text, const String& set, std::size_t start, bool wanted) {
    const sup::CharacterSet characters(set.begin(), set.end());
    for (std::size_t i = start; i < text.length(); ++i) {
        if (characters.contains(text[i]) == wanted) {
            return i;
        }
    }
    return text.length();
}

// Finds `what` outside quotes again and again, from places that lie outside quotes and never go back. Each of
// its three searches runs over the text once: a hit that is still ahead is kept.
class UnquotedSearch {
public:
    UnquotedSearch(const String& text, const wchar_t* what, std::size_t start)
        : m_text(text), m_what(what), m_hit(findFrom(start)), m_apostrophe(nextQuote(L"'", start)),
          m_quote(nextQuote(L"\"", start)), m_pos(start) {}

    // The first hit at or after `pos`.
    std::size_t next(std::size_t pos,
                     std::vector<std::pair<std::size_t, std::size_t>>* quotedRanges = nullptr) {
        m_pos = std::max(m_pos, pos);
        const std::size_t n = m_text.length();
        for (;;) {
            catchUp();
            if (m_hit >= n) {
                return n;
            }
            if (m_hit < m_apostrophe && m_hit < m_quote) {
                return m_hit;
            }
            const bool isApostrophe = m_apostrophe < m_quote;
            const std::size_t opening = isApostrophe ? m_apostrophe : m_quote;
            const std::size_t closing = nextQuote(isApostrophe ? L"'" : L"\"", opening + 1);
            if (closing >= n) {
                m_hit = n; // and so it stays
                return n;
            }
            if (quotedRanges != nullptr) {
                quotedRanges->emplace_back(opening, closing);
            }
            m_pos = closing + 1;
        }
    }

private:
    std::size_t findFrom(std::size_t pos) const { return m_text.find(m_what, pos); }
    std::size_t nextQuote(const wchar_t* quote, std::size_t pos) const {
        return BaseStringUtil::FindFirstUnescaped(m_text, quote, pos);
    }
    void catchUp() {
        if (m_hit < m_pos) {
            m_hit = findFrom(m_pos);
        }
        if (m_apostrophe < m_pos) {
            m_apostrophe = nextQuote(L"'", m_pos);
        }
        if (m_quote < m_pos) {
            m_quote = nextQuote(L"\"", m_pos);
        }
    }

    const String& m_text;
    const wchar_t* m_what;
    std::size_t m_hit;
    std::size_t m_apostrophe;
    std::size_t m_quote;
    std::size_t m_pos;
};

} // namespace

std::size_t BaseStringUtil::FindFirstOf(const String& text, const String& set, std::size_t start) {
    return findInSet(text, set, start, true);
}

std::size_t BaseStringUtil::FindFirstNotOf(const String& text, const String& set, std::size_t start) {
    return findInSet(text, set, start, false);
}

std::size_t BaseStringUtil::FindLastOf(const String& text, const String& set, std::size_t start) {
    const std::size_t n = text.length();
    const sup::CharacterSet characters(set.begin(), set.end());
    for (std::size_t i = start < n ? start + 1 : n; i != 0; --i) {
        if (characters.contains(text[i - 1])) {
            return i - 1;
        }
    }
    return n;
}

std::size_t BaseStringUtil::ForwardPatternMatch(const RefStringTemplate<wchar_t>& text,
                                                const RefStringTemplate<wchar_t>& pattern,
                                                std::size_t start) {
    const std::size_t n = text.length();
    const std::size_t m = pattern.length();
    if (m == 0 || start >= n || m > n - start) {
        return n;
    }
    return start + sup::kernels::findText(text.begin() + start, n - start, pattern.begin(), m);
}

std::size_t BaseStringUtil::ForwardPatternMatch(const String& text, const String& pattern,
                                                std::size_t start) {
    return ForwardPatternMatch(RefStringTemplate<wchar_t>(text), RefStringTemplate<wchar_t>(pattern), start);
}

std::size_t BaseStringUtil::ReversePatternMatch(const String& text, const String& pattern, std::size_t pos) {
    const std::size_t n = text.length();
    const std::size_t m = pattern.length();
    if (n == 0 || m == 0) {
        return n;
    }
    const std::size_t reach = std::min(pos, n - 1) + 1;
    const std::size_t found = sup::kernels::findLastText(text.begin(), reach, pattern.begin(), m);
    return found == reach ? n : found;
}

std::size_t BaseStringUtil::CaseInsensitiveFind(const String& text, const String& pattern,
                                                std::size_t start) {
    return ForwardPatternMatch(ToUpperCase(text), ToUpperCase(pattern), start);
}

std::size_t BaseStringUtil::FindFirstUnescaped(const String& text, const wchar_t* what, std::size_t start) {
    const std::size_t n = text.length();
    for (std::size_t hit = text.find(what, start); hit < n; hit = text.find(what, hit + 1)) {
        if (hit == 0 || text[hit - 1] != kBackslash) {
            return hit;
        }
    }
    return n;
}

std::size_t
BaseStringUtil::FindFirstUnquoted(const String& text, const wchar_t* what, std::size_t start,
                                  std::vector<std::pair<std::size_t, std::size_t>>* quotedRanges) {
    return UnquotedSearch(text, what, start).next(start, quotedRanges);
}

std::size_t BaseStringUtil::FindClosingMark(const String& text, std::size_t start, const wchar_t* open,
                                            const wchar_t* close) {
    const std::size_t n = text.length();
    UnquotedSearch closings(text, close, start);
    UnquotedSearch openings(text, open, start);
    std::ptrdiff_t depth = 0;
    for (std::size_t pos = start;;) {
        const std::size_t c = closings.next(pos);
        if (c == n) {
            return n;
        }
        const std::size_t o = openings.next(pos);
        if (c <= o) {
            if (++depth == 1) {
                return c;
            }
            pos = c + 1;
        } else {
            --depth;
            pos = o + 1;
        }
    }
}

std::size_t BaseStringUtil::FindClosingParenthesis(const String& text, std::size_t start) {
    return FindClosingMark(text, start, L"(", L")");
}

std::size_t BaseStringUtil::FindClosingBrace(const String& text, std::size_t start) {
    return FindClosingMark(text, start, L"{", L"}");
}

bool BaseStringUtil::GetQuotedString(const String& text, std::size_t start, String& out, std::size_t& end) {
    const String held(text); // `out` may be the same string
    const std::size_t n = held.length();
    out.clear();
    std::size_t i = start;
    while (i < n) {
        const std::size_t run = held.find(kApostrophe, i);
        out.append(held.begin() + i, run - i);
        std::size_t after = run;
        while (after < n && held[after] == kApostrophe) {
            ++after;
        }
        out.append((after - run) / 2, kApostrophe);
        i = after;
        if ((after - run) % 2 != 0) {
            end = after;
            return true;
        }
    }
    out.clear();
    end = i;
    return false;
}
