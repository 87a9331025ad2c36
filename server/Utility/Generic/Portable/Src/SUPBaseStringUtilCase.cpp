// BaseStringUtil: trimming, padding, case, and comparison without regard to case.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "CaseFolding.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "kernels/search.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <cwchar>
#include <cwctype>

namespace {

using String = BaseStringUtil::String;

bool isBlank(wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; }

char narrowLower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
char narrowUpper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

String trimmed(const String& text, bool atStart, bool atEnd) {
    const wchar_t* first = text.begin();
    const wchar_t* last = text.end();
    while (atEnd && last != first && isBlank(last[-1])) {
        --last;
    }
    while (atStart && first != last && isBlank(*first)) {
        ++first;
    }
    const auto length = static_cast<std::size_t>(last - first);
    return length == text.length() ? text : String(first, length);
}

template <class T, class Map>
void mapText(const T* src, T* dst, Map map) {
    if (src == nullptr) {
        *dst = T();
        return;
    }
    for (; *src != T(); ++src) {
        *dst++ = map(*src);
    }
    *dst = T();
}

template <class T, class Map>
sup::String<T> mappedCopy(const sup::String<T>& text, Map map) {
    sup::String<T> result(text.begin(), text.length());
    T* const first = result.mutable_begin();
    if (first != nullptr) {
        std::transform(first, first + result.length(), first, map);
    }
    return result;
}

std::uint32_t ordinal(wchar_t c) { return static_cast<std::uint32_t>(c); }

bool isLess(const wchar_t* a, const wchar_t* b) {
    const sup::LowerCaseFold lower;
    for (;; ++a, ++b) {
        if (*a != *b) {
            const std::uint32_t left = ordinal(lower(*a));
            const std::uint32_t right = ordinal(lower(*b));
            // A text that ends is a prefix of the other, so less.
            if (*a == L'\0' || *b == L'\0') {
                return *a == L'\0';
            }
            if (left != right) {
                return left < right;
            }
        } else if (*a == L'\0') {
            return false;
        }
    }
}

const wchar_t* textOrEmpty(const wchar_t* text) { return text == nullptr ? L"" : text; }

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
    mapText(src, dst, sup::LowerCaseFold());
}

void BaseStringUtil::ToUpperCase(const wchar_t* src, wchar_t* dst) {
    mapText(src, dst, sup::UpperCaseFold());
}

void BaseStringUtil::ToLowerCase(const char* src, char* dst) { mapText(src, dst, narrowLower); }

void BaseStringUtil::ToUpperCase(const char* src, char* dst) { mapText(src, dst, narrowUpper); }

String BaseStringUtil::ToLowerCase(const String& text) { return mappedCopy(text, sup::LowerCaseFold()); }

String BaseStringUtil::ToUpperCase(const String& text) { return mappedCopy(text, sup::UpperCaseFold()); }

BaseStringUtil::NarrowString BaseStringUtil::ToLowerCase(const NarrowString& text) {
    return mappedCopy(text, narrowLower);
}

BaseStringUtil::NarrowString BaseStringUtil::ToUpperCase(const NarrowString& text) {
    return mappedCopy(text, narrowUpper);
}

bool BaseStringUtil::IsCaseInsensitiveMatch(const String& a, const String& b) {
    if (a.length() != b.length()) {
        return false;
    }
    return std::equal(a.begin(), a.end(), b.begin(),
                      [lower = sup::LowerCaseFold()](wchar_t left, wchar_t right) {
                          return left == right || lower(left) == lower(right);
                      });
}

bool BaseStringUtil::IsNTSCaseInsensitiveMatch(const wchar_t* a, const wchar_t* b) {
    const sup::LowerCaseFold lower;
    a = textOrEmpty(a);
    b = textOrEmpty(b);
    for (; *a == *b || lower(*a) == lower(*b); ++a, ++b) {
        if (*a == L'\0') {
            return true;
        }
    }
    return false;
}

bool BaseStringUtil::IsCaseInsensitiveLessThan(const String& a, const String& b) {
    return isLess(a.c_str(), b.c_str());
}

bool BaseStringUtil::IsNTSCaseInsensitiveLessThan(const wchar_t* a, const wchar_t* b) {
    return isLess(textOrEmpty(a), textOrEmpty(b));
}

int BaseStringUtil::CaseInsensitiveCompare(const String& a, const String& b) {
    if (IsCaseInsensitiveLessThan(a, b)) {
        return -1;
    }
    return IsCaseInsensitiveMatch(a, b) ? 0 : 1;
}

int BaseStringUtil::FileNameCompare(const wchar_t* a, const wchar_t* b) {
    return std::wcscmp(textOrEmpty(a), textOrEmpty(b));
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
    wchar_t* const foldedPattern =
        std::transform(text.begin(), text.end(), folded.data(), sup::LowerCaseFold());
    std::transform(pattern.begin(), pattern.end(), foldedPattern, sup::LowerCaseFold());
    return sup::kernels::findText(folded.data(), text.length(), foldedPattern, pattern.length()) !=
           text.length();
}

bool BaseStringUtil::IsMatch(const String& a, const String& b) { return String::equals(a, b); }

bool sup::operator<(const String<wchar_t>& a, const String<wchar_t>& b) { return a.compare(b) < 0; }
