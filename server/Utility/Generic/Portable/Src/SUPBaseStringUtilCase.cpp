// BaseStringUtil: trimming, padding, case, and comparison without regard to case.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "CaseFolding.h"
#include "LocaleCharacters.h"
#include "UnfilledString.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "kernels/search.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cwchar>
#include <cwctype>

namespace {

using String = BaseStringUtil::String;

// iswspace in the current locale.
class Blanks {
public:
    bool operator()(wchar_t c) const {
        const auto code = static_cast<std::uint32_t>(c);
        return m_characters != nullptr && code < sup::LocaleCharacters::kLowLimit
                   ? m_characters->isSpace(code)
                   : std::iswspace(code) != 0;
    }

private:
    const sup::LocaleCharacters* m_characters = sup::LocaleCharacters::current();
};

char narrowLower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
char narrowUpper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

String trimmed(const String& text, bool atStart, bool atEnd) {
    const wchar_t* first = text.begin();
    const wchar_t* last = text.end();
    const Blanks isBlank;
    while (atEnd && last != first && isBlank(last[-1])) {
        --last;
    }
    while (atStart && first != last && isBlank(*first)) {
        ++first;
    }
    const auto length = static_cast<std::size_t>(last - first);
    return length == text.length() ? text : String(first, length);
}

template <class Fold>
void foldText(const wchar_t* src, wchar_t* dst, const Fold& fold) {
    *fold.fold(src, src == nullptr ? 0 : std::wcslen(src), dst) = L'\0';
}

template <class Fold>
String foldedCopy(const String& text, const Fold& fold) {
    sup::UnfilledString result(text.length());
    return result.takeTo(fold.fold(text.begin(), text.length(), result.begin()));
}

void mapText(const char* src, char* dst, char (*map)(char)) {
    if (src != nullptr) {
        for (; *src != '\0'; ++src) {
            *dst++ = map(*src);
        }
    }
    *dst = '\0';
}

BaseStringUtil::NarrowString mappedCopy(const BaseStringUtil::NarrowString& text, char (*map)(char)) {
    BaseStringUtil::NarrowString result(text.begin(), text.length());
    char* const first = result.mutable_begin();
    if (first != nullptr) {
        std::transform(first, first + result.length(), first, map);
    }
    return result;
}

// A text with all its zeros.
struct Text {
    const wchar_t* first;
    std::size_t length;
};

Text textOf(const String& s) { return {s.begin(), s.length()}; }

// Two terminated texts. The second one's end is looked for no further than the order can depend on it.
struct TextPair {
    Text a;
    Text b;
};
TextPair terminated(const wchar_t* a, const wchar_t* b) {
    a = a == nullptr ? L"" : a;
    b = b == nullptr ? L"" : b;
    const std::size_t aLength = std::wcslen(a);
    return {{a, aLength}, {b, ::wcsnlen(b, aLength + 1)}};
}

enum class Order { less, equal, notLess };

// The order goes up to the first zero of each text, equality to their ends.
Order order(Text a, Text b) {
    const sup::LowerCaseFold lower;
    const std::size_t common = std::min(a.length, b.length);
    const std::size_t i = lower.firstDifference(a.first, b.first, common);
    if (i == a.length && i == b.length) {
        return Order::equal;
    }
    const auto endsAt = [i](Text text) { return i == text.length || text.first[i] == L'\0'; };
    // A zero before the difference ends both texts there.
    if (endsAt(b) || (i != 0 && std::wmemchr(a.first, L'\0', i) != nullptr)) {
        return Order::notLess;
    }
    if (endsAt(a)) {
        return Order::less;
    }
    const auto left = static_cast<std::uint32_t>(lower(a.first[i]));
    const auto right = static_cast<std::uint32_t>(lower(b.first[i]));
    return left < right ? Order::less : Order::notLess;
}

bool matches(Text a, Text b) {
    return a.length == b.length &&
           sup::LowerCaseFold().firstDifference(a.first, b.first, a.length) == a.length;
}

} // namespace

String BaseStringUtil::TrimBoth(const String& text) { return trimmed(text, true, true); }

String BaseStringUtil::TrimTrailingBlanks(const String& text) { return trimmed(text, false, true); }

String BaseStringUtil::CleanLeadingBlanksInString(const String& text) { return trimmed(text, true, false); }

String BaseStringUtil::RightPadWithSpaces(const String& text, std::size_t width) {
    if (width <= text.length()) {
        return text;
    }
    String padded(text, String::totalCapacity(width));
    padded.append(width - text.length(), L' ');
    return padded;
}

void BaseStringUtil::ToLowerCase(const wchar_t* src, wchar_t* dst) {
    foldText(src, dst, sup::LowerCaseFold());
}

void BaseStringUtil::ToUpperCase(const wchar_t* src, wchar_t* dst) {
    foldText(src, dst, sup::UpperCaseFold());
}

void BaseStringUtil::ToLowerCase(const char* src, char* dst) { mapText(src, dst, narrowLower); }

void BaseStringUtil::ToUpperCase(const char* src, char* dst) { mapText(src, dst, narrowUpper); }

String BaseStringUtil::ToLowerCase(const String& text) { return foldedCopy(text, sup::LowerCaseFold()); }

String BaseStringUtil::ToUpperCase(const String& text) { return foldedCopy(text, sup::UpperCaseFold()); }

BaseStringUtil::NarrowString BaseStringUtil::ToLowerCase(const NarrowString& text) {
    return mappedCopy(text, narrowLower);
}

BaseStringUtil::NarrowString BaseStringUtil::ToUpperCase(const NarrowString& text) {
    return mappedCopy(text, narrowUpper);
}

bool BaseStringUtil::IsCaseInsensitiveMatch(const String& a, const String& b) {
    return matches(textOf(a), textOf(b));
}

bool BaseStringUtil::IsNTSCaseInsensitiveMatch(const wchar_t* a, const wchar_t* b) {
    const TextPair texts = terminated(a, b);
    return matches(texts.a, texts.b);
}

bool BaseStringUtil::IsCaseInsensitiveLessThan(const String& a, const String& b) {
    return order(textOf(a), textOf(b)) == Order::less;
}

bool BaseStringUtil::IsNTSCaseInsensitiveLessThan(const wchar_t* a, const wchar_t* b) {
    const TextPair texts = terminated(a, b);
    return order(texts.a, texts.b) == Order::less;
}

int BaseStringUtil::CaseInsensitiveCompare(const String& a, const String& b) {
    switch (order(textOf(a), textOf(b))) {
    case Order::less:
        return -1;
    case Order::equal:
        return 0;
    case Order::notLess:
        break;
    }
    return 1;
}

int BaseStringUtil::FileNameCompare(const wchar_t* a, const wchar_t* b) {
    return std::wcscmp(a == nullptr ? L"" : a, b == nullptr ? L"" : b);
}

bool BaseStringUtil::CaseInsensitiveFindPattern(const String& text, const String& pattern) {
    if (text.empty() || pattern.length() > text.length()) {
        return false;
    }
    if (pattern.empty()) {
        return true;
    }
    AutoBuffer<wchar_t, 513> folded;
    folded.growNoPreserve(text.length() + pattern.length());
    const sup::LowerCaseFold lower;
    wchar_t* const foldedPattern = lower.fold(text.begin(), text.length(), folded.data());
    lower.fold(pattern.begin(), pattern.length(), foldedPattern);
    return sup::kernels::findText(folded.data(), text.length(), foldedPattern, pattern.length()) !=
           text.length();
}

bool BaseStringUtil::IsMatch(const String& a, const String& b) { return String::equals(a, b); }

bool sup::operator<(const String<wchar_t>& a, const String<wchar_t>& b) { return a.compare(b) < 0; }
