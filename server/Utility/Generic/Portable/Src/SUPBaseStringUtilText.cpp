// BaseStringUtil: clean-up of text, and fragments of plain and marked-up text.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "kernels/search.h"
#include "kernels/utf8.h"

#include <algorithm>
#include <cwctype>
#include <iterator>
#include <map>
#include <string_view>

namespace {

using String = BaseStringUtil::String;
using View = std::wstring_view;

bool isBlank(wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; }

bool isPairAt(View text, std::size_t i) {
    return i + 1 < text.size() && sup::kernels::isHighSurrogate(static_cast<char32_t>(text[i])) &&
           sup::kernels::isLowSurrogate(static_cast<char32_t>(text[i + 1]));
}

// The characters of `text` that `keep` accepts; it is asked for the character of a pair once.
template <class Keep>
String filtered(const String& text, Keep keep) {
    const View view(text.begin(), text.length());
    String out;
    out.reserve(text.length());
    for (std::size_t i = 0; i < view.size();) {
        const std::size_t units = isPairAt(view, i) ? 2 : 1;
        auto c = static_cast<char32_t>(view[i]);
        if (units == 2) {
            c = ((c - sup::kernels::kFirstHighSurrogate) << 10) +
                (static_cast<char32_t>(view[i + 1]) - sup::kernels::kFirstLowSurrogate) +
                sup::kernels::kFirstSupplementary;
        }
        if (keep(static_cast<std::wint_t>(c))) {
            out.append(view.data() + i, units);
        }
        i += units;
    }
    return out;
}

bool isLineBreakOrTab(wchar_t c) {
    return (c >= L'\t' && c <= L'\r') || c == 0x85 || c == 0x2028 || c == 0x2029;
}

// ---- Marked-up text ---------------------------------------------------------------------------------------

// One piece of marked-up text: a tag or comment, which does not count, or one character.
struct Piece {
    std::size_t length;
    bool isMarkup;
};

constexpr std::size_t kLongestReference = 12; // "&" to ";"

// Reads marked-up text from left to right. Each end of a tag or comment is looked for once: one that is still
// ahead is kept.
class PieceReader {
public:
    explicit PieceReader(View text) : m_text(text) {}

    // The piece at `i`, which never goes back.
    Piece at(std::size_t i) {
        const View rest = m_text.substr(i);
        if (rest[0] == L'<') {
            constexpr View kCommentEnd = L"-->";
            const bool isComment = rest.substr(0, 4) == L"<!--";
            const std::size_t end =
                isComment ? next(m_commentEnd, kCommentEnd, i + 4) : next(m_tagEnd, L">", i + 1);
            if (end != View::npos) {
                return {end - i + (isComment ? kCommentEnd.size() : 1), true};
            }
        }
        if (rest[0] == L'&') {
            const std::size_t end = rest.substr(0, kLongestReference).find_first_of(L"; \t\r\n<&", 1);
            if (end != View::npos && rest[end] == L';') {
                return {end + 1, false};
            }
        }
        return {isPairAt(m_text, i) ? std::size_t{2} : std::size_t{1}, false};
    }

private:
    // `known` is the last hit, 0 before the first search; npos stays.
    std::size_t next(std::size_t& known, View mark, std::size_t from) const {
        if (known < from) {
            known = m_text.find(mark, from);
        }
        return known;
    }

    View m_text;
    std::size_t m_tagEnd = 0;
    std::size_t m_commentEnd = 0;
};

// Where to cut `text` to `n` characters: the whole length when it is no longer, else the end of the last
// whole word, or of the n-th character when no word ends before.
std::size_t cutOf(View text, std::size_t n, bool isMarkedUp) {
    std::size_t visible = 0;
    std::size_t wordEnd = 0;     // after the last character of a word that a blank follows
    std::size_t lastVisible = 0; // after the last character
    bool inWord = false;
    PieceReader reader(text);
    for (std::size_t i = 0; i < text.size();) {
        const Piece piece =
            isMarkedUp ? reader.at(i) : Piece{isPairAt(text, i) ? std::size_t{2} : std::size_t{1}, false};
        if (!piece.isMarkup) {
            // Units count as characters do in every length here; what does not fit whole is left out.
            const std::size_t counted = text[i] == L'&' ? 1 : piece.length;
            if (isBlank(text[i]) && inWord) {
                wordEnd = lastVisible;
            }
            if (visible + counted > n) {
                return isBlank(text[i]) || wordEnd == 0 ? lastVisible : wordEnd;
            }
            inWord = !isBlank(text[i]);
            visible += counted;
            lastVisible = i + piece.length;
        }
        i += piece.length;
    }
    return text.size();
}

String fragment(const String& text, std::size_t n, bool isMarkedUp) {
    const std::size_t cut = cutOf(View(text.begin(), text.length()), n, isMarkedUp);
    return cut == text.length() ? text : BaseStringUtil::TrimTrailingBlanks(String(text, cut));
}

// The name of a start or end tag, "" for markup that is neither.
View tagName(View tag) {
    const std::size_t first = tag.size() > 1 && tag[1] == L'/' ? 2 : 1;
    std::size_t last = first;
    while (last < tag.size() && (std::iswalnum(static_cast<std::wint_t>(tag[last])) != 0 ||
                                 tag[last] == L'-' || tag[last] == L':')) {
        ++last;
    }
    return tag.substr(first, last - first);
}

// Elements that hold nothing and need no end tag (HTML Living Standard, void elements).
bool isVoidElement(const String& lowerName) {
    static constexpr const wchar_t* kNames[] = {L"area",  L"base",   L"br",    L"col",  L"embed",
                                                L"hr",    L"img",    L"input", L"link", L"meta",
                                                L"param", L"source", L"track", L"wbr"};
    return std::any_of(std::begin(kNames), std::end(kNames),
                       [&](const wchar_t* name) { return String::equals(lowerName, name); });
}

// The end tags of the elements that `text` leaves open, innermost first.
String endTagsOf(View text) {
    BrimStringVector open;
    std::map<String, std::size_t> openByName;
    PieceReader reader(text);
    for (std::size_t i = text.find(L'<'); i < text.size(); i = text.find(L'<', i)) {
        const Piece piece = reader.at(i);
        if (!piece.isMarkup) {
            ++i;
            continue;
        }
        const View tag = text.substr(i, piece.length);
        i += piece.length;
        const View view = tagName(tag);
        const String name = BaseStringUtil::ToLowerCase(String(view.data(), view.size()));
        if (name.empty() || isVoidElement(name)) {
            continue;
        }
        if (tag[1] != L'/') {
            if (tag[tag.size() - 2] != L'/') {
                open.push_back(name);
                ++openByName[name];
            }
            continue;
        }
        // An end tag closes its element and what is open inside; one without an element closes nothing.
        if (openByName[name] == 0) {
            continue;
        }
        bool isClosed = false;
        while (!isClosed) {
            isClosed = String::equals(open.back(), name);
            --openByName[open.back()];
            open.pop_back();
        }
    }
    String tags;
    for (auto name = open.rbegin(); name != open.rend(); ++name) {
        tags.append(L"</").append(*name).append(L'>');
    }
    return tags;
}

// As String::find, in linear time.
std::size_t findMark(const String& text, const wchar_t* mark, std::size_t pos) {
    const std::size_t n = text.length();
    return pos >= n ? n
                    : pos + sup::kernels::findTextBeforeZero(text.begin() + pos, n - pos, mark,
                                                             sup::string_details::textLength(mark));
}

} // namespace

String BaseStringUtil::LineFeedConversion(const String& text) {
    String out;
    const wchar_t* run = text.begin();
    for (const wchar_t* p = run; p != text.end(); ++p) {
        if (*p == L'\n' && (p == text.begin() || p[-1] != L'\r')) {
            out.append(run, p).append(L'\r');
            run = p;
        }
    }
    return out.empty() ? text : out.append(run, text.end());
}

void BaseStringUtil::MakeOneLineString(String& text) {
    String out;
    out.reserve(text.length());
    for (const wchar_t* p = text.begin(); p != text.end();) {
        if (isLineBreakOrTab(*p)) {
            p = std::find_if_not(p, text.end(), isLineBreakOrTab);
            out.push_back(L' ');
        } else {
            out.push_back(*p++);
        }
    }
    text = TrimBoth(out);
}

String BaseStringUtil::RemoveNonPrintableChars(const String& text) {
    return filtered(text, [](std::wint_t c) { return std::iswprint(c) != 0; });
}

String BaseStringUtil::RemovePunctuationChars(const String& text) {
    return filtered(text, [](std::wint_t c) { return std::iswpunct(c) == 0; });
}

String BaseStringUtil::GetTextFragment(const String& text, std::size_t n) {
    return n >= text.length() ? text : fragment(text, n, false);
}

String BaseStringUtil::GetNonWellFormedTextFragment(const String& text, std::size_t n) {
    return n >= text.length() ? text : fragment(text, n, true);
}

String BaseStringUtil::GetHTMLFragment(const String& text, std::size_t n) {
    String cut = GetNonWellFormedTextFragment(text, n);
    const String endTags = endTagsOf(View(cut.begin(), cut.length()));
    return cut.append(endTags);
}

bool BaseStringUtil::ExtractTextSegmentIntoString(const String& text, const wchar_t* open,
                                                  const wchar_t* close, String& out) {
    const String held(text); // `out` may be the same string
    out.clear();
    const std::size_t opening = findMark(held, open, 0);
    if (opening == held.length()) {
        return false;
    }
    const std::size_t first = opening + sup::string_details::textLength(open);
    const std::size_t last = findMark(held, close, first);
    if (last == held.length()) {
        return false;
    }
    out.assign(held.begin() + first, last - first);
    return true;
}
