// BaseStringUtil: splitting, joining, replacing and patterns.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "CaseFolding.h"
#include "CharacterSet.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "kernels/search.h"
#include "kernels/wildcard.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <cwctype>

namespace {

using String = BaseStringUtil::String;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPBaseStringUtilTokens.cpp";
constexpr int kEmptyLikePatternLine = 26;

// Whether an occurrence at `hit` begins and ends where a word may.
bool standsAlone(const String& text, std::size_t hit, std::size_t length) {
    const std::size_t after = hit + length;
    return (hit == 0 || BaseStringUtil::IsWordSeparator(text[hit - 1])) &&
           (after == text.length() || BaseStringUtil::IsWordSeparator(text[after]));
}

// The occurrences of a pattern in a text, from left to right.
class Occurrences {
public:
    Occurrences(const String& text, const String& pattern)
        : m_text(text), m_pattern(pattern), m_borders(pattern.begin(), pattern.length()) {}

    // The first one at or after `pos`; the length of the text when there is none.
    std::size_t findFrom(std::size_t pos) {
        return m_last = BaseStringUtil::ForwardPatternMatch(m_text, m_pattern, pos);
    }

    // The first one after the last, which it may overlap. It builds on what of the pattern the last one's end
    // has matched already: comparing from the next place on would be quadratic in texts that repeat
    // themselves.
    std::size_t findNext() {
        const std::size_t m = m_pattern.length();
        m_borders.make();
        std::size_t matched = m_borders.afterMatch();
        for (std::size_t i = m_last + m; i < m_text.length(); ++i) {
            if (matched == 0) {
                return findFrom(i);
            }
            matched = m_borders.next(matched, m_text[i]);
            if (matched == m) {
                return m_last = i + 1 - m;
            }
        }
        return m_last = m_text.length();
    }

private:
    const String& m_text;
    const String& m_pattern;
    sup::kernels::Borders m_borders;
    std::size_t m_last = 0;
};

// The text with each counted occurrence of `from` replaced. Occurrences are looked for in `searched`, which
// is `text` or a form of it with the same places.
template <class Counts>
String replaced(const String& text, const String& searched, const String& from, const String& to, bool& any,
                Counts counts) {
    String result;
    std::size_t copied = 0;
    any = false;
    Occurrences occurrences(searched, from);
    for (std::size_t hit = occurrences.findFrom(0); hit != text.length();) {
        if (!counts(hit)) {
            hit = occurrences.findNext();
            continue;
        }
        result.append(text.begin() + copied, hit - copied);
        result.append(to);
        copied = hit + from.length();
        any = true;
        hit = occurrences.findFrom(copied);
    }
    if (!any) {
        return text;
    }
    result.append(text.begin() + copied, text.length() - copied);
    return result;
}

// Calls token(first, length) for each token to keep, and delimiter(c) for each delimiter, in order.
template <class Token, class Delimiter>
void split(const String& text, const sup::CharacterSet& delimiters, bool keepEmptyTokens, Token token,
           Delimiter delimiter) {
    const wchar_t* const first = text.begin();
    const std::size_t n = text.length();
    sup::SetPlaces places(delimiters, first, n);
    std::size_t from = 0;
    for (std::size_t at = places.next(); at != n; at = places.next()) {
        if (at != from || keepEmptyTokens) {
            token(first + from, at - from);
        }
        delimiter(first[at]);
        from = at + 1;
    }
    if (from != n) {
        token(first + from, n - from);
    }
}

// A star-free stretch of a wildcard pattern.
struct Segment {
    const wchar_t* first;
    const wchar_t* last;
    std::size_t length() const { return static_cast<std::size_t>(last - first); }
    bool fitsAt(const wchar_t* text) const { return sup::kernels::segmentFits(text, first, length()); }
};

} // namespace

void BaseStringUtil::Tokenize(const String& text, const String& delimiters, BrimStringVector& out,
                              bool returnDelimiters, bool keepEmptyTokens) {
    if (text.empty() || delimiters.empty()) {
        return;
    }
    const String held(text); // an element of `out`, perhaps
    const sup::CharacterSet isDelimiter(delimiters.begin(), delimiters.end());
    out.clear();
    const sup::CharacterSet::Counts counts = isDelimiter.count(held.begin(), held.length());
    out.reserve((keepEmptyTokens ? counts.members + 1 : counts.runsOfOthers) +
                (returnDelimiters ? counts.members : 0));
    split(
        held, isDelimiter, keepEmptyTokens,
        [&](const wchar_t* first, std::size_t n) { out.emplace_back(first, n); },
        [&](wchar_t c) {
            if (returnDelimiters) {
                out.emplace_back(c);
            }
        });
}

void BaseStringUtil::TokenizeWithEscapeExt(const String& text, wchar_t delimiter, wchar_t escape,
                                           bool keepEscape, BrimStringVector& out) {
    if (text.empty()) {
        return;
    }
    const String held(text);
    out.clear();
    String token;
    bool escaped = false;
    for (const wchar_t c : held) {
        if (escaped) {
            if (keepEscape && c != delimiter) {
                token.push_back(escape);
            }
            token.push_back(c);
            escaped = false;
        } else if (c == escape) {
            escaped = true;
        } else if (c == delimiter) {
            out.push_back(std::move(token));
            token = String();
        } else {
            token.push_back(c);
        }
    }
    if (!token.empty()) {
        out.push_back(std::move(token));
    }
}

void BaseStringUtil::TokenizeWithEscape(const String& text, wchar_t delimiter, wchar_t escape,
                                        BrimStringVector& out) {
    TokenizeWithEscapeExt(text, delimiter, escape, false, out);
}

void BaseStringUtil::AppendToString(const BrimStringVector& parts, String& out, bool newlineSeparated) {
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (newlineSeparated && i != 0) {
            out.push_back(L'\n');
        }
        out.append(parts[i]);
    }
}

void BaseStringUtil::SplitStringBySize(const String& text, BrimStringVector& out, std::size_t size) {
    const String held(text);
    out.clear();
    const std::size_t step = size == 0 ? held.length() : size;
    for (std::size_t pos = 0; pos < held.length();) {
        const std::size_t n = std::min(step, held.length() - pos);
        out.push_back(held.substr(pos, n));
        pos += n;
    }
}

bool BaseStringUtil::ReplaceSubstring(String& text, const String& from, const String& to, bool caseSensitive,
                                      bool wholeWord) {
    if (caseSensitive ? IsMatch(from, to) : CaseInsensitiveCompare(from, to) == 0) {
        return false;
    }
    if (caseSensitive && !wholeWord) {
        String result = ReplacePatternInString(text, from, to);
        const bool changed = !IsMatch(result, text);
        text = std::move(result);
        return changed;
    }
    const bool anywhere = !wholeWord || IsSelfEnclosedWord(from);
    const auto counts = [&](std::size_t hit) { return anywhere || standsAlone(text, hit, from.length()); };
    bool any = false;
    String result = caseSensitive ? replaced(text, text, from, to, any, counts)
                                  : replaced(text, ToUpperCase(text), ToUpperCase(from), to, any, counts);
    text = std::move(result);
    return any;
}

String BaseStringUtil::ReplacePatternInString(const String& text, const String& from, const String& to) {
    bool any = false;
    return replaced(text, text, from, to, any, [](std::size_t) { return true; });
}

bool BaseStringUtil::IsWordSeparator(wchar_t c) {
    if (c > 0 && c < 0x80 && std::wcschr(L"!\"&'()*+,-./:;<=>?@[\\]^{|}~", c) != nullptr) {
        return true;
    }
    return std::iswspace(static_cast<std::wint_t>(c)) != 0;
}

bool BaseStringUtil::IsWordSeparator(const String& text, int pos) {
    return IsWordSeparator(text[static_cast<std::size_t>(pos)]);
}

bool BaseStringUtil::IsSelfEnclosedWord(const String& text) {
    static constexpr wchar_t kPairs[][2] = {{L'"', L'"'}, {L'\'', L'\''}, {L'(', L')'},
                                            {L'<', L'>'}, {L'[', L']'},   {L'{', L'}'}};
    return text.length() >= 2 &&
           std::any_of(std::begin(kPairs), std::end(kPairs), [&](const wchar_t(&pair)[2]) {
               return text.front() == pair[0] && text.back() == pair[1];
           });
}

bool BaseStringUtil::IsWildcardCaseInsensitiveMatch(const String& text, const String& pattern) {
    AutoBuffer<wchar_t, 513> folded;
    folded.growNoPreserve(text.length() + pattern.length());
    const sup::LowerCaseFold lower;
    const wchar_t* t = folded.data();
    wchar_t* const foldedPattern = lower.fold(text.begin(), text.length(), folded.data());
    const wchar_t* const tEnd = foldedPattern;
    const wchar_t* p = foldedPattern;
    const wchar_t* const pEnd = lower.fold(pattern.begin(), pattern.length(), foldedPattern);

    const auto rest = [&] { return static_cast<std::size_t>(tEnd - t); };
    const Segment head{p, std::find(p, pEnd, L'*')};
    if (head.last == pEnd) {
        return head.length() == rest() && head.fitsAt(t);
    }
    if (head.length() > rest() || !head.fitsAt(t)) {
        return false;
    }
    t += head.length();
    // Between two stars the first place that fits leaves most for what follows; what follows the last star
    // must fit at the end.
    for (p = head.last + 1;; ++p) {
        const Segment segment{p, std::find(p, pEnd, L'*')};
        if (segment.last == pEnd) {
            return segment.length() <= rest() && segment.fitsAt(tEnd - segment.length());
        }
        if (segment.length() != 0) {
            const std::size_t found = sup::kernels::findSegment(t, rest(), segment.first, segment.length());
            if (found == rest()) {
                return false;
            }
            t += found + segment.length();
        }
        p = segment.last;
    }
}

String BaseStringUtil::UnescapeLikePattern(const String& pattern) {
    BrimStringVector sv;
    TokenizeWithEscape(pattern, L'\0', L'\\', sv);
    if (sv.empty()) {
        BrimAssert::handleAssert(kThisFile, kEmptyLikePatternLine, L"sv.size() > 0");
        std::abort();
    }
    String result;
    AppendToString(sv, result, false);
    return result;
}
