// BaseStringUtil: numbers and booleans to text and back.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <langinfo.h>
#include <limits>
#include <string_view>
#include <xmmintrin.h>

namespace {

using String = BaseStringUtil::String;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPBaseStringUtilNumbers.cpp";
constexpr int kTrueWordLine = 26;
constexpr int kFalseWordLine = 27;

constexpr const wchar_t* kTrueWords[] = {
    BaseStringUtil::S_TRUE_FIRST_CAP, BaseStringUtil::_S_YES,
    BaseStringUtil::S_ON_FIRST_CAP,   BaseStringUtil::S_ONE,
    BaseStringUtil::S_PLUS,           BaseStringUtil::S_OKAY,
    BaseStringUtil::S_ONE_POINT_ZERO,
};
constexpr const wchar_t* kFalseWords[] = {
    BaseStringUtil::S_FALSE_FIRST_CAP, BaseStringUtil::_S_NO,
    BaseStringUtil::S_OFF_FIRST_CAP,   BaseStringUtil::S_ZERO,
    BaseStringUtil::S_MINUS,           BaseStringUtil::S_ZERO_POINT_ZERO,
};

// ---- To text ----------------------------------------------------------------------------------------------

constexpr char kTwoDigits[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

String decimal(bool negative, unsigned long magnitude) {
    wchar_t digits[24];
    wchar_t* const end = std::end(digits);
    wchar_t* p = end;
    while (magnitude >= 100) {
        const char* const pair = kTwoDigits + 2 * (magnitude % 100);
        magnitude /= 100;
        *--p = pair[1];
        *--p = pair[0];
    }
    if (magnitude >= 10) {
        *--p = kTwoDigits[2 * magnitude + 1];
    }
    *--p = magnitude >= 10 ? kTwoDigits[2 * magnitude] : static_cast<wchar_t>(L'0' + magnitude);
    if (negative) {
        *--p = L'-';
    }
    return String(p, static_cast<std::size_t>(end - p));
}

String decimalOf(long value) {
    const auto bits = static_cast<unsigned long>(value);
    return decimal(value < 0, value < 0 ? 0UL - bits : bits);
}

bool isPlainRadix(const char* radix) { return radix[0] == '.' && radix[1] == '\0'; }

// The C library's formatting and scanning follow the rounding mode, the standard library's know only the
// usual one.
bool roundsToNearest() { return _MM_GET_ROUNDING_MODE() == _MM_ROUND_NEAREST; }

constexpr std::size_t kDoubleRoom = 255;

// "%.15G": std::to_chars gives the same digits; the locale gives the decimal point.
std::size_t formatDouble(double value, wchar_t (&buffer)[kDoubleRoom]) {
    if (!roundsToNearest()) {
        return static_cast<std::size_t>(std::swprintf(buffer, kDoubleRoom, L"%.15G", value));
    }
    char narrow[64];
    const char* const end =
        std::to_chars(narrow, std::end(narrow), value, std::chars_format::general, 15).ptr;
    const char* const radix = ::nl_langinfo(RADIXCHAR);
    wchar_t* out = buffer;
    for (const char* p = narrow; p != end; ++p) {
        if (*p == '.' && !isPlainRadix(radix)) {
            std::mbstate_t state{};
            wchar_t wide = L'.';
            std::mbrtowc(&wide, radix, std::strlen(radix), &state);
            *out++ = wide;
        } else {
            *out++ = *p >= 'a' && *p <= 'z' ? static_cast<wchar_t>(*p - 'a' + 'A') : static_cast<wchar_t>(*p);
        }
    }
    return static_cast<std::size_t>(out - buffer);
}

// ---- From text --------------------------------------------------------------------------------------------

bool isDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }
bool isAsciiBlank(wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); }

const wchar_t* skipAsciiBlanks(const wchar_t* p) {
    while (isAsciiBlank(*p)) {
        ++p;
    }
    return p;
}

// A number in ASCII that fits into 64 bits needs no scanner: false for anything else.
bool readInteger(const wchar_t* text, long& value) {
    constexpr std::ptrdiff_t kMostDigits = 19; // none of as many overflows the unsigned magnitude
    const wchar_t* p = skipAsciiBlanks(text);
    const bool negative = *p == L'-';
    if (*p == L'-' || *p == L'+') {
        ++p;
    }
    const wchar_t* const digits = p;
    unsigned long magnitude = 0;
    for (; isDigit(*p) && p - digits < kMostDigits; ++p) {
        magnitude = magnitude * 10 + static_cast<unsigned long>(*p - L'0');
    }
    if (p == digits || isDigit(*p) ||
        magnitude > static_cast<unsigned long>(std::numeric_limits<long>::max())) {
        return false;
    }
    value = negative ? -static_cast<long>(magnitude) : static_cast<long>(magnitude);
    return true;
}

// The same for a plain decimal number that ends the text, or that a blank follows; so "0x", "nan(1)" and the
// like are left to the scanner, and every number when the locale's decimal point is not ".".
template <class Float>
bool readShortFloat(const wchar_t* text, Float& value) {
    if (!isPlainRadix(::nl_langinfo(RADIXCHAR)) || !roundsToNearest()) {
        return false;
    }
    const wchar_t* p = skipAsciiBlanks(text);
    if (*p == L'+') { // std::from_chars takes no plus sign
        ++p;
        if (*p == L'-') {
            return false;
        }
    }
    char narrow[48];
    char* end = narrow;
    for (; isDigit(*p) || *p == L'.' || *p == L'e' || *p == L'E' || *p == L'-' || *p == L'+'; ++p) {
        if (end == std::end(narrow)) {
            return false;
        }
        *end++ = static_cast<char>(*p);
    }
    if (*p != L'\0' && !isAsciiBlank(*p)) {
        return false;
    }
    const std::from_chars_result result = std::from_chars(narrow, end, value);
    return result.ec == std::errc() && result.ptr == end;
}

template <class Float>
Float floatFrom(const String& text, const wchar_t* format) {
    Float value = 0;
    if (!readShortFloat(text.c_str(), value)) {
        value = 0;
        std::swscanf(text.c_str(), format, &value);
    }
    return value;
}

// Strips blanks and quotes from both ends, and converts what is left to narrow text.
constexpr std::size_t kNarrowNumber = 512;
void unquote(const String& text, char (&narrow)[kNarrowNumber]) {
    const auto isStripped = [](wchar_t c) { return c == L' ' || c == L'"' || c == L'\''; };
    const wchar_t* const first = std::find_if_not(text.begin(), text.end(), isStripped);
    const wchar_t* last = text.end();
    while (last != first && isStripped(last[-1])) {
        --last;
    }
    BaseStringUtil::StringToStdString(String(first, last), narrow, kNarrowNumber,
                                      SystemUtility::GetMultiByteCodePage());
}

wchar_t initialOf(const wchar_t* word) { return BaseStringUtil::ToLowerCase(String(word, 1)).front(); }

bool contains(const String& set, wchar_t c) { return set.find(c, String::kReturnNPosIfFail) != String::npos; }

} // namespace

String BaseStringUtil::StringFrom(unsigned long long value) { return decimal(false, value); }
String BaseStringUtil::StringFrom(long long value) { return decimalOf(value); }
String BaseStringUtil::StringFrom(unsigned long value) { return decimal(false, value); }
String BaseStringUtil::StringFrom(long value) { return decimalOf(value); }
String BaseStringUtil::StringFrom(unsigned int value) { return decimal(false, value); }
String BaseStringUtil::StringFrom(int value) { return decimalOf(value); }
String BaseStringUtil::StringFrom(short value) { return decimalOf(value); }
String BaseStringUtil::StringFrom(unsigned short value) { return decimal(false, value); }
String BaseStringUtil::StringFrom(unsigned char value) { return decimal(false, value); }

String BaseStringUtil::ShortStringFrom(double value) {
    wchar_t buffer[kDoubleRoom];
    return String(buffer, formatDouble(value, buffer));
}

String BaseStringUtil::StringFrom(double value, bool doubleSuffix) {
    wchar_t buffer[kDoubleRoom];
    wchar_t* end = buffer + formatDouble(value, buffer);
    const bool hasPoint = std::find(buffer, end, L'.') != end;
    if (!hasPoint && std::find(buffer, end, L'E') != end) {
        return String(buffer, end);
    }
    if (!hasPoint) {
        *end++ = L'.';
        *end++ = L'0';
    }
    if (doubleSuffix) {
        *end++ = L'd';
    }
    return String(buffer, end);
}

String BaseStringUtil::StringFrom(bool value) { return value ? GetTrueWord(0) : GetFalseWord(0); }

short BaseStringUtil::Int16From(const String& text) {
    long value = 0;
    if (!readInteger(text.c_str(), value)) {
        int scanned = 0;
        std::swscanf(text.c_str(), L" %d", &scanned);
        value = scanned;
    }
    return static_cast<short>(value);
}

int BaseStringUtil::IntFrom(const String& text) {
    long value = 0;
    if (!readInteger(text.c_str(), value)) {
        value = 0;
        std::swscanf(text.c_str(), L" %ld", &value);
    }
    return static_cast<int>(value);
}

unsigned int BaseStringUtil::UIntFrom(const String& text) {
    long value = 0;
    if (readInteger(text.c_str(), value)) {
        return static_cast<unsigned int>(value);
    }
    unsigned long scanned = 0;
    std::swscanf(text.c_str(), L" %lu", &scanned);
    return static_cast<unsigned int>(scanned);
}

double BaseStringUtil::FloatFrom(const String& text) { return floatFrom<double>(text, L" %lf"); }

float BaseStringUtil::Float32From(const String& text) { return floatFrom<float>(text, L" %f"); }

bool BaseStringUtil::IsInteger(const String& text) {
    wchar_t* end = nullptr;
    std::wcstol(text.c_str(), &end, 10);
    return *end == L'\0';
}

bool BaseStringUtil::IsFloat(const String& text) {
    wchar_t* end = nullptr;
    std::wcstod(text.c_str(), &end);
    return *end == L'\0';
}

unsigned int BaseStringUtil::StringToUint32(const String& text) {
    char narrow[kNarrowNumber];
    unquote(text, narrow);
    unsigned int value = 0;
    std::sscanf(narrow, "%u", &value);
    return value;
}

int BaseStringUtil::StringToInteger(const String& text) {
    char narrow[kNarrowNumber];
    unquote(text, narrow);
    return static_cast<int>(std::strtol(narrow, nullptr, 10));
}

int BaseStringUtil::GetNumberOfTrueWords() { return static_cast<int>(std::size(kTrueWords)); }

int BaseStringUtil::GetNumberOfFalseWords() { return static_cast<int>(std::size(kFalseWords)); }

String BaseStringUtil::GetTrueWord(int index) {
    if (index < 0 || index >= GetNumberOfTrueWords()) {
        BrimAssert::handleLogicError(kThisFile, kTrueWordLine, String());
        std::abort();
    }
    return kTrueWords[index];
}

String BaseStringUtil::GetFalseWord(int index) {
    if (index < 0 || index >= GetNumberOfFalseWords()) {
        BrimAssert::handleLogicError(kThisFile, kFalseWordLine, String());
        std::abort();
    }
    return kFalseWords[index];
}

bool BaseStringUtil::BooleanFrom(const String& text, bool throwIfUnknown) {
    const String word = TrimBoth(text);
    if (word.empty()) {
        return false;
    }
    if (word.length() == 1) {
        String trueInitials;
        String falseInitials;
        String ambiguous;
        for (const wchar_t* const trueWord : kTrueWords) {
            trueInitials.append(initialOf(trueWord));
        }
        for (const wchar_t* const falseWord : kFalseWords) {
            const wchar_t initial = initialOf(falseWord);
            (contains(trueInitials, initial) ? ambiguous : falseInitials).append(initial);
        }
        const wchar_t c = ToLowerCase(word).front();
        if (contains(trueInitials, c) && !contains(ambiguous, c)) {
            return true;
        }
        if (contains(falseInitials, c)) {
            return false;
        }
    } else {
        const auto matches = [&](const wchar_t* known) { return CaseInsensitiveCompare(word, known) == 0; };
        if (std::any_of(std::begin(kTrueWords), std::end(kTrueWords), matches)) {
            return true;
        }
        if (std::any_of(std::begin(kFalseWords), std::end(kFalseWords), matches)) {
            return false;
        }
    }
    if (throwIfUnknown) {
        throw int{0};
    }
    return false;
}
