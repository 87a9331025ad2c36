// BaseStringUtil: searches for character sets, sub-strings, and texts outside quotes.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "CaseFolding.h"
#include "CharacterSet.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "kernels/search.h"

#include <algorithm>
#include <cwchar>

namespace {

using String = BaseStringUtil::String;

constexpr wchar_t kBackslash = L'\\';
constexpr wchar_t kApostrophe = L'\'';

std::size_t findInSet(const String& text, const String& set, std::size_t start, bool wanted) {
    const sup::CharacterSet characters(set.begin(), set.end());
    return sup::SetPlaces(characters, text.begin(), text.length(), start, !wanted).next();
}

template <class Text>
std::size_t findFrom(const Text& text, const Text& pattern, std::size_t start) {
    const std::size_t n = text.length();
    const std::size_t m = pattern.length();
    if (m == 0 || start >= n || m > n - start) {
        return n;
    }
    return start + sup::kernels::findText(text.begin() + start, n - start, pattern.begin(), m);
}

// Finds a terminated text as String::find does, before the next zero, but in linear time.
class TerminatedPattern {
public:
    explicit TerminatedPattern(const wchar_t* what)
        : m_what(what == nullptr ? L"" : what), m_length(std::wcslen(m_what)), m_borders(m_what, m_length) {}

    std::size_t findFrom(const String& text, std::size_t pos) const {
        const std::size_t n = text.length();
        return pos >= n
                   ? n
                   : pos + sup::kernels::findTextBeforeZero(text.begin() + pos, n - pos, m_what, m_length);
    }

    // The first occurrence after the one at `hit`, which it may overlap.
    std::size_t findNext(const String& text, std::size_t hit) {
        const std::size_t n = text.length();
        if (m_length < 2) {
            return findFrom(text, hit + 1);
        }
        m_borders.make();
        std::size_t matched = m_borders.afterMatch();
        for (std::size_t i = hit + m_length; i < n && text[i] != L'\0'; ++i) {
            if (matched == 0) {
                return findFrom(text, i);
            }
            matched = m_borders.next(matched, text[i]);
            if (matched == m_length) {
                return i + 1 - m_length;
            }
        }
        return n;
    }

    // The first occurrence that no backslash precedes.
    std::size_t findUnescaped(const String& text, std::size_t pos) {
        std::size_t hit = findFrom(text, pos);
        while (hit < text.length() && hit != 0 && text[hit - 1] == kBackslash) {
            hit = findNext(text, hit);
        }
        return hit;
    }

private:
    const wchar_t* m_what;
    std::size_t m_length;
    sup::kernels::Borders m_borders;
};

// Finds `what` outside quotes again and again, from places that lie outside quotes and never go back. Each of
// its three searches runs over the text once: a hit that is still ahead is kept.
class UnquotedSearch {
public:
    UnquotedSearch(const String& text, const wchar_t* what, std::size_t start)
        : m_text(text), m_what(what), m_hit(m_what.findFrom(text, start)),
          m_apostrophe(nextQuote(L"'", start)), m_quote(nextQuote(L"\"", start)), m_pos(start) {}

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
    std::size_t nextQuote(const wchar_t* quote, std::size_t pos) const {
        return BaseStringUtil::FindFirstUnescaped(m_text, quote, pos);
    }
    void catchUp() {
        if (m_hit < m_pos) {
            m_hit = m_what.findFrom(m_text, m_pos);
        }
        if (m_apostrophe < m_pos) {
            m_apostrophe = nextQuote(L"'", m_pos);
        }
        if (m_quote < m_pos) {
            m_quote = nextQuote(L"\"", m_pos);
        }
    }

    const String& m_text;
    TerminatedPattern m_what;
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
    for (std::size_t end = start < n ? start + 1 : n; end != 0;) {
        const std::size_t count = std::min(end, sup::CharacterSet::kBlock);
        end -= count;
        if (const unsigned int places = characters.placesIn(text.begin() + end, count)) {
            return end + (31U - static_cast<unsigned int>(__builtin_clz(places)));
        }
    }
    return n;
}

std::size_t BaseStringUtil::ForwardPatternMatch(const RefStringTemplate<wchar_t>& text,
                                                const RefStringTemplate<wchar_t>& pattern,
                                                std::size_t start) {
    return findFrom(text, pattern, start);
}

std::size_t BaseStringUtil::ForwardPatternMatch(const String& text, const String& pattern,
                                                std::size_t start) {
    return findFrom(text, pattern, start);
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
    const std::size_t n = text.length();
    const std::size_t m = pattern.length();
    if (m == 0 || start >= n || m > n - start) {
        return n;
    }
    const std::size_t rest = n - start;
    AutoBuffer<wchar_t, 513> folded;
    folded.growNoPreserve(rest + m);
    const sup::UpperCaseFold upper;
    wchar_t* const foldedPattern = upper.fold(text.begin() + start, rest, folded.data());
    upper.fold(pattern.begin(), m, foldedPattern);
    return start + sup::kernels::findText(folded.data(), rest, foldedPattern, m);
}

std::size_t BaseStringUtil::FindFirstUnescaped(const String& text, const wchar_t* what, std::size_t start) {
    return TerminatedPattern(what).findUnescaped(text, start);
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
