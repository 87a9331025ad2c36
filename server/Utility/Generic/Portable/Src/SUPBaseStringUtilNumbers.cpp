// BaseStringUtil: numbers and booleans to text and back.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "NumberDigits.h"
#include "UnfilledString.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Wraps.h"
#include "kernels/decimal.h"
#include "kernels/kernels.h"

#include <algorithm>
#include <charconv>
#include <cmath>
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

String decimal(bool negative, unsigned long magnitude) {
    const std::size_t length = sup::countOfDecimalDigits(magnitude) + (negative ? 1U : 0U);
    sup::UnfilledString text(length);
    wchar_t* const first = text.begin();
    *first = L'-';
    sup::writeDecimalBefore(first + length, magnitude);
    return text.take(length);
}

String decimalOf(long value) { return decimal(value < 0, sup::magnitudeOf(value)); }

bool isPlainRadix(const char* radix) { return radix[0] == '.' && radix[1] == '\0'; }

// The C library's formatting and scanning follow the rounding mode, the standard library's know only the
// usual one.
bool roundsToNearest() { return _MM_GET_ROUNDING_MODE() == _MM_ROUND_NEAREST; }

// The current locale's.
wchar_t decimalPoint() {
    const char* const radix = ::nl_langinfo(RADIXCHAR);
    wchar_t wide = L'.';
    if (!isPlainRadix(radix)) {
        std::mbstate_t state{};
        std::mbrtowc(&wide, radix, std::strlen(radix), &state);
    }
    return wide;
}

constexpr std::size_t kDoubleRoom = 255;

__extension__ using Wide = unsigned __int128;

// The bits of a double: (-1)^negative * mantissa * 2^exponent.
constexpr int kMantissaBits = 52;
constexpr int kExponentBias = 1023;
struct DoubleParts {
    bool negative;
    unsigned long mantissa;
    int exponent;
};
// Of a normal one.
DoubleParts partsOf(double value) {
    unsigned long bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    constexpr unsigned long kHidden = 1UL << kMantissaBits;
    const auto biased = static_cast<int>(bits >> kMantissaBits & 0x7FF);
    return {bits >> 63 != 0, (bits & (kHidden - 1)) | kHidden, biased - kExponentBias - kMantissaBits};
}

// value * 10^power, rounded to an integer, halves to even ones; exact. The value is 2^-75 to 2^52.
unsigned long scaled(const DoubleParts& parts, unsigned int power) {
    const Wide product = Wide{parts.mantissa} * sup::powerOfTen(power);
    const Wide unit = Wide{1} << -parts.exponent;
    const Wide fraction = product & (unit - 1);
    const auto whole = static_cast<unsigned long>(product >> -parts.exponent);
    const bool isUp = fraction > unit / 2 || (fraction == unit / 2 && whole % 2 != 0);
    return whole + (isUp ? 1 : 0);
}

// Drops zeros from the end of a fraction that is not 0; `count` is the number of its digits.
void dropZeros(unsigned long& fraction, unsigned int& count) {
    for (const unsigned int zeros : {8U, 4U, 2U, 1U}) {
        if (fraction % sup::powerOfTen(zeros) == 0) {
            fraction /= sup::powerOfTen(zeros);
            count -= zeros;
        }
    }
}

// "%.15G" of numbers that need no exponent, by exact integers; 0 for others.
std::size_t formatUsual(double value, wchar_t (&buffer)[kDoubleRoom]) {
    const double magnitude = std::fabs(value);
    if (!(magnitude >= 0.0001 && magnitude < 999999999999999.0)) {
        return 0;
    }
    // Fifteen digits: behind the point there are as many more as zeros come first, and as many less as
    // stand before it. No double lies between a power of ten below 1 and the constant for it.
    constexpr unsigned int kDigits = 15;
    unsigned int behind = kDigits;
    if (magnitude < 1) {
        behind += (magnitude < 0.1 ? 1U : 0U) + (magnitude < 0.01 ? 1U : 0U) + (magnitude < 0.001 ? 1U : 0U);
    } else {
        behind -= static_cast<unsigned int>(sup::countOfDecimalDigits(static_cast<unsigned long>(magnitude)));
    }
    const DoubleParts parts = partsOf(value);
    const unsigned long digits = scaled(parts, behind);
    const unsigned long whole = digits / sup::powerOfTen(behind);
    unsigned long fraction = digits % sup::powerOfTen(behind);

    wchar_t* out = buffer;
    *out = L'-';
    out += parts.negative ? 1 : 0;
    const std::size_t before = sup::countOfDecimalDigits(whole);
    sup::writeDigitsBefore(out += before, before, whole);
    if (fraction != 0) {
        dropZeros(fraction, behind);
        *out++ = decimalPoint();
        sup::writeDigitsBefore(out += behind, behind, fraction);
    }
    return static_cast<std::size_t>(out - buffer);
}

// "%.15G": std::to_chars gives the same digits; the locale gives the decimal point.
std::size_t formatDouble(double value, wchar_t (&buffer)[kDoubleRoom]) {
    if (!roundsToNearest()) {
        return static_cast<std::size_t>(std::swprintf(buffer, kDoubleRoom, L"%.15G", value));
    }
    if (const std::size_t length = formatUsual(value, buffer)) {
        return length;
    }
    char narrow[64];
    const char* const end =
        std::to_chars(narrow, std::end(narrow), value, std::chars_format::general, 15).ptr;
    wchar_t* out = buffer;
    for (const char* p = narrow; p != end; ++p) {
        if (*p == '.') {
            *out++ = decimalPoint();
        } else {
            *out++ = *p >= 'a' && *p <= 'z' ? static_cast<wchar_t>(*p - 'a' + 'A') : static_cast<wchar_t>(*p);
        }
    }
    return static_cast<std::size_t>(out - buffer);
}

// ---- From text --------------------------------------------------------------------------------------------

bool isAsciiBlank(wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); }

const wchar_t* skipAsciiBlanks(const wchar_t* p) {
    while (isAsciiBlank(*p)) {
        ++p;
    }
    return p;
}

// Above 9 for what is no digit.
BRIM_WRAPS unsigned int digitOf(wchar_t c) {
    return static_cast<unsigned int>(c) - static_cast<unsigned int>(L'0');
}

// Reads the digits at `p`; returns their end. No more than kMostDigits can be taken in without an overflow.
constexpr std::ptrdiff_t kMostDigits = 19;
BRIM_WRAPS const wchar_t* readDigits(const wchar_t* p, unsigned long& value) {
    // In pairs: each product waits for the one before.
    for (unsigned int first; (first = digitOf(*p)) < 10; p += 2) {
        const unsigned int second = digitOf(p[1]);
        if (second >= 10) {
            value = value * 10 + first;
            return p + 1;
        }
        value = value * 100 + (first * 10 + second);
    }
    return p;
}

// A number in ASCII that fits into 64 bits needs no scanner: false for anything else.
bool readInteger(const wchar_t* text, long& value) {
    const wchar_t* p = skipAsciiBlanks(text);
    const bool isNegative = *p == L'-';
    if (*p == L'-' || *p == L'+') {
        ++p;
    }
    unsigned long magnitude = 0;
    const std::ptrdiff_t count = readDigits(p, magnitude) - p;
    if (count == 0 || count > kMostDigits ||
        magnitude > static_cast<unsigned long>(std::numeric_limits<long>::max())) {
        return false;
    }
    value = isNegative ? -static_cast<long>(magnitude) : static_cast<long>(magnitude);
    return true;
}

bool endsNumber(wchar_t c) { return c == L'\0' || isAsciiBlank(c); }

// A number of no more digits than make an integer; `p` stands behind the sign.
bool readShort(const wchar_t* p, bool isNegative, double& value) {
    unsigned long digits = 0;
    const wchar_t* const whole = p;
    p = readDigits(p, digits);
    std::ptrdiff_t count = p - whole;
    std::ptrdiff_t power = 0;
    if (*p == L'.') {
        const wchar_t* const fraction = ++p;
        p = readDigits(p, digits);
        power = fraction - p;
        count -= power;
    }
    if (count == 0 || count > kMostDigits) {
        return false;
    }
    if (*p == L'e' || *p == L'E') {
        const bool isInverse = *++p == L'-';
        if (*p == L'-' || *p == L'+') {
            ++p;
        }
        const wchar_t* const first = p;
        unsigned long exponent = 0;
        p = readDigits(p, exponent);
        if (p == first || p - first > 4) {
            return false;
        }
        power += isInverse ? -static_cast<std::ptrdiff_t>(exponent) : static_cast<std::ptrdiff_t>(exponent);
    }
    double magnitude = 0;
    if (!endsNumber(*p) || !sup::kernels::decimalToDouble(digits, static_cast<int>(power), magnitude)) {
        return false;
    }
    value = isNegative ? -magnitude : magnitude;
    return true;
}
bool readShort(const wchar_t*, bool, float&) { return false; } // a double would be rounded twice

// Plain decimal numbers that end the text, or that a blank follows, need no scanner; so "0x", "nan(1)" and
// the like are left to it, and every number when the locale's decimal point is not ".".
template <class Float>
bool readFloat(const String& text, Float& value) {
    if (!isPlainRadix(::nl_langinfo(RADIXCHAR)) || !roundsToNearest()) {
        return false;
    }
    const wchar_t* p = skipAsciiBlanks(text.c_str());
    const bool isNegative = *p == L'-';
    if (*p == L'-' || *p == L'+') {
        ++p;
    }
    if (*p != L'.' && digitOf(*p) >= 10) { // "inf" and "nan"
        return false;
    }
    if (readShort(p, isNegative, value)) {
        return true;
    }
    char narrow[48];
    const std::size_t length = sup::kernels::kernels().narrowFitting(
        p, std::min(static_cast<std::size_t>(text.end() - p), sizeof(narrow)), narrow);
    const std::from_chars_result result = std::from_chars(narrow, narrow + length, value);
    if (result.ec != std::errc() || !endsNumber(p[result.ptr - narrow])) {
        return false;
    }
    value = isNegative ? -value : value;
    return true;
}

template <class Float>
Float floatFrom(const String& text, const wchar_t* format) {
    Float value = 0;
    if (!readFloat(text, value)) {
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
