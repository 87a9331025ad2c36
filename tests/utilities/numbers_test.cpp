// Numbers to text and back, next to the C library's own formatting and scanning in several locales.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "kernels/decimal.h"
#include "numbers_model.h"
#include "test_locale.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <bit>
#include <cfenv>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace {

using brimtest::brim;
using brimtest::expectQuotedReadAsByTheCLibrary;
using brimtest::expectReadAsByTheCLibrary;
using brimtest::expectWrittenAsByTheCLibrary;
using brimtest::formatted;
using brimtest::plain;
using brimtest::RandomTexts;
using brimtest::scanned;

// ---- Inputs -----------------------------------------------------------------------------------------------

// Between bars.
constexpr std::wstring_view kNastyNumbers =
    L"| |\t\n\v\f\r 42|42| 42xyz|+42|-42|- 42|--42|+-42|-+42|++42|+|-|.|-.|+.|e|e5|.e5|1e|1e+|1e-|"
    L"1e5|1E5|1e+5|1E-5|1.5e3x|1e5.5|1e5e5|1.2.3|1..2|1-2|1+2|.5|5.|-.5|+.5|+5.|0|-0|+0|-0.0|"
    L"00012|0x10|0X1F|0x|0x1p4|0x.8p-1|0x1.8|010|0b11|1,5|1,5.0|1.000,5|1,000.5|1 000|1'000|12 |"
    L" 12|1.5 |1e5\t|inf|INF|-inf|infinity|infinite|nan|NaN|-nan|nan(1)|nan(|nanx|i|n|2147483647|"
    L"2147483648|-2147483648|-2147483649|4294967295|4294967296|4294967297|70000|65535|65536|32767|"
    L"32768|-32769|999999999|1000000000|-999999999|9999999999|999999999999999999|"
    L"1000000000000000000|9223372036854775807|9223372036854775808|-9223372036854775808|"
    L"-9223372036854775809|18446744073709551615|18446744073709551616|99999999999999999999999999|"
    L"-99999999999999999999999999|0000000000000000000000000000000007|1e308|1.7976931348623157e308|"
    L"1.7976931348623159e308|1e309|-1e309|1e-307|2.2250738585072014e-308|2.2250738585072011e-308|"
    L"4.9e-324|5e-324|2.4e-324|1e-400|1e99999999999|1e-99999999999|0e99999999999|3.4028235e38|"
    L"3.4028236e38|1e39|1.17549435e-38|1.4e-45|7e-46|1e-46|0.1|0.30000000000000004|1.1754943e-38|"
    L"16777217|9007199254740993|0.500000029802322387695312499999999999|8.41e+21|"
    L"123456789012345678901234567890.123456789|"
    L"1.00000000000000000000000000000000000000000000000000001|"
    L"0.0000000000000000000000000000000000000000000000000000000001|abc|%d|\u00A042|\u200342|"
    L"\u0664\u0662|\uFF14|4\u0664|\U0001F600|1\u066B5|\u22125|1d|2.0d|1f";

std::vector<std::wstring> nastyNumbers() {
    std::vector<std::wstring> texts(1);
    for (const wchar_t c : kNastyNumbers) {
        if (c == L'|') {
            texts.emplace_back();
        } else {
            texts.back() += c;
        }
    }
    return texts;
}

const std::vector<double>& nastyDoubles() {
    static const std::vector<double> values = {0.0,
                                               -0.0,
                                               1.0,
                                               -1.0,
                                               2.0,
                                               2.5,
                                               3.0,
                                               0.1,
                                               1.0 / 3.0,
                                               2.0 / 3.0,
                                               100.0,
                                               1e14,
                                               1e15,
                                               999999999999999.0,
                                               9999999999999990.0,
                                               9999999999999995.0,
                                               1e16,
                                               123456789012345.0,
                                               1234567890123456.0,
                                               1e20,
                                               1.5e300,
                                               1e300,
                                               1e-4,
                                               1e-5,
                                               0.0001234,
                                               0.00001234,
                                               0.00009999999999999999,
                                               0.99999999999999994,
                                               9.9999999999999995,
                                               DBL_MAX,
                                               DBL_MIN,
                                               -DBL_MAX,
                                               4.9e-324,
                                               2.2250738585072009e-308,
                                               DBL_EPSILON,
                                               1e22,
                                               1e23,
                                               4.35,
                                               0.045,
                                               5e-324,
                                               std::numeric_limits<double>::infinity(),
                                               -std::numeric_limits<double>::infinity(),
                                               std::numeric_limits<double>::quiet_NaN(),
                                               -std::numeric_limits<double>::quiet_NaN()};
    return values;
}

void compareDoublesWithTheCLibrary() {
    for (const double value : nastyDoubles()) {
        expectWrittenAsByTheCLibrary(value);
    }
    constexpr std::uint64_t kSeed = 7001;
    RandomTexts random(kSeed);
    for (int i = 0; i < 20000 && !::testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE(::testing::Message() << "seed " << kSeed << ", round " << i);
        expectWrittenAsByTheCLibrary(std::bit_cast<double>(random.bits()));
        // Near ties of the fifteenth digit, and few digits.
        expectWrittenAsByTheCLibrary(static_cast<double>(random.below(100000)) /
                                     std::pow(10.0, static_cast<double>(random.below(12))));
        expectWrittenAsByTheCLibrary(static_cast<double>(random.bits() >> random.below(64)));
    }
}

// Those that are written without an exponent, as far as that goes, and rounded in every way.
void compareUsualDoublesWithTheCLibrary() {
    constexpr std::uint64_t kSeed = 7005;
    RandomTexts random(kSeed);
    for (int exponent = -6; exponent <= 17; ++exponent) {
        const double power = std::pow(10.0, exponent);
        for (const double value :
             {power, std::nextafter(power, 0.0), std::nextafter(power, 1e300), 9.5 * power,
              power - power * 1e-15, power - power * 5e-16, power - power * 4e-16}) {
            expectWrittenAsByTheCLibrary(value);
            expectWrittenAsByTheCLibrary(-value);
        }
        for (int i = 0; i < 1500 && !::testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE(::testing::Message()
                         << "seed " << kSeed << ", exponent " << exponent << ", round " << i);
            const auto digits = static_cast<double>(random.bits() >> 11) * 0x1p-53;
            expectWrittenAsByTheCLibrary(digits * power);
            // Integers and a half, a quarter ...: many are exactly between two texts.
            expectWrittenAsByTheCLibrary(
                std::ldexp(static_cast<double>(random.bits() >> (11 + random.below(40))),
                           -static_cast<int>(random.below(60))));
        }
    }
}

void compareScanningWithTheCLibrary() {
    for (const std::wstring& text : nastyNumbers()) {
        expectReadAsByTheCLibrary(text);
        expectReadAsByTheCLibrary(L" \n" + text + L" ");
    }
    constexpr std::uint64_t kSeed = 7002;
    RandomTexts random(kSeed);
    for (int i = 0; i < 20000 && !::testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE(::testing::Message() << "seed " << kSeed << ", round " << i);
        expectReadAsByTheCLibrary(random.text(L"0123456789", 24));
        expectReadAsByTheCLibrary(random.text(L"01979.+-eE x,", 12));
        expectReadAsByTheCLibrary(random.text(L"0123456789.", 60));
        expectReadAsByTheCLibrary(random.text(L"-+ ", 2) + random.text(L"0123456789", 20) + L'.' +
                                  random.text(L"0123456789", 20) + L'e' + random.text(L"-+", 1) +
                                  random.text(L"0123456789", 3) + random.text(L" xd", 1));
        expectReadAsByTheCLibrary(random.text(L"naNiItTyYfF()_1", 9));
    }
}

template <class Integer>
void compareIntegersWithTheCLibrary(const wchar_t* format) {
    constexpr std::uint64_t kSeed = 7003;
    RandomTexts random(kSeed);
    std::vector<Integer> values = {std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max()};
    for (int i = -130; i <= 130; ++i) {
        values.push_back(static_cast<Integer>(i));
    }
    for (Integer power = 1; power <= std::numeric_limits<Integer>::max() / 10;) {
        power = static_cast<Integer>(power * 10);
        for (int step = -1; step <= 1; ++step) {
            values.push_back(static_cast<Integer>(power + static_cast<Integer>(step)));
            values.push_back(static_cast<Integer>(0 - power - static_cast<Integer>(step)));
        }
    }
    for (int i = 0; i < 5000; ++i) {
        values.push_back(static_cast<Integer>(random.bits() >> random.below(64)));
    }
    for (const Integer value : values) {
        ASSERT_EQ(plain(BaseStringUtil::StringFrom(value)), formatted(format, value)) << "seed " << kSeed;
    }
}

void compareAllIntegersWithTheCLibrary() {
    compareIntegersWithTheCLibrary<unsigned long long>(L"%llu");
    compareIntegersWithTheCLibrary<long long>(L"%lld");
    compareIntegersWithTheCLibrary<unsigned long>(L"%lu");
    compareIntegersWithTheCLibrary<long>(L"%ld");
    compareIntegersWithTheCLibrary<unsigned int>(L"%u");
    compareIntegersWithTheCLibrary<int>(L"%d");
    compareIntegersWithTheCLibrary<short>(L"%d");
    compareIntegersWithTheCLibrary<unsigned short>(L"%d");
    compareIntegersWithTheCLibrary<unsigned char>(L"%d");
}

// ---- Numbers to text --------------------------------------------------------------------------------------

TEST(StringFrom, IntegersAreDecimalNumbers) {
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(static_cast<unsigned char>(200))), L"200");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(static_cast<short>(-5))), L"-5");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(static_cast<unsigned short>(65535))), L"65535");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(0)), L"0");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(INT_MIN)), L"-2147483648");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(UINT_MAX)), L"4294967295");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(LLONG_MIN)), L"-9223372036854775808");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(ULONG_MAX)), L"18446744073709551615");
}

TEST(StringFrom, IntegersAreAsByTheCLibrary) { compareAllIntegersWithTheCLibrary(); }

TEST(StringFrom, ADoubleThatLooksIntegralGetsAPointAndTheSuffix) {
    const struct {
        double value;
        const wchar_t* without;
        const wchar_t* with;
    } rows[] = {{0.1, L"0.1", L"0.1d"},
                {2.0, L"2.0", L"2.0d"},
                {2.5, L"2.5", L"2.5d"},
                {3.0, L"3.0", L"3.0d"},
                {-7.0, L"-7.0", L"-7.0d"},
                {-0.0, L"-0.0", L"-0.0d"},
                {999999999999999.0, L"999999999999999.0", L"999999999999999.0d"}};
    for (const auto& row : rows) {
        EXPECT_EQ(plain(BaseStringUtil::StringFrom(row.value, false)), row.without);
        EXPECT_EQ(plain(BaseStringUtil::StringFrom(row.value, true)), row.with);
    }
}

TEST(StringFrom, AnExponentWithoutAPointTakesNoSuffix) {
    for (const bool doubleSuffix : {false, true}) {
        EXPECT_EQ(plain(BaseStringUtil::StringFrom(1e20, doubleSuffix)), L"1E+20");
        EXPECT_EQ(plain(BaseStringUtil::StringFrom(1e-5, doubleSuffix)), L"1E-05");
    }
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(1.5e300, true)), L"1.5E+300d")
        << "the point is looked for first";
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(1.5e300, false)), L"1.5E+300");
}

TEST(StringFrom, InfinitiesAndNansTakeTheSuffixToo) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(kInfinity, false)), L"INF.0");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(-kInfinity, true)), L"-INF.0d");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(kNan, false)), L"NAN.0");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(kNan, true)), L"NAN.0d");
    EXPECT_EQ(plain(BaseStringUtil::ShortStringFrom(kNan)), L"NAN");
}

TEST(ShortStringFrom, HasFifteenDigitsAtMost) {
    EXPECT_EQ(plain(BaseStringUtil::ShortStringFrom(1.0 / 3.0)), L"0.333333333333333");
    EXPECT_EQ(plain(BaseStringUtil::ShortStringFrom(2.0)), L"2");
    EXPECT_EQ(plain(BaseStringUtil::ShortStringFrom(1e15)), L"1E+15");
    EXPECT_EQ(plain(BaseStringUtil::ShortStringFrom(123456789.125)), L"123456789.125");
}

TEST(StringFrom, DoublesAreAsByTheCLibrary) { compareDoublesWithTheCLibrary(); }

TEST(StringFrom, DoublesWithoutAnExponentAreAsByTheCLibrary) { compareUsualDoublesWithTheCLibrary(); }

// ---- Text to numbers --------------------------------------------------------------------------------------

TEST(NumberFrom, ResultsAreCutToTheirWidth) {
    EXPECT_EQ(BaseStringUtil::IntFrom(BrimString(L"4294967297")), 1);
    EXPECT_EQ(BaseStringUtil::IntFrom(BrimString(L"2147483648")), INT_MIN);
    EXPECT_EQ(BaseStringUtil::Int16From(BrimString(L"70000")), 4464);
    EXPECT_EQ(BaseStringUtil::Int16From(BrimString(L"-32769")), 32767);
    EXPECT_EQ(BaseStringUtil::UIntFrom(BrimString(L"4294967297")), 1U);
    EXPECT_EQ(BaseStringUtil::UIntFrom(BrimString(L"-1")), UINT_MAX);
    EXPECT_EQ(BaseStringUtil::UIntFrom(BrimString(L"4294967295")), UINT_MAX);
}

TEST(NumberFrom, WhatIsBeyondTheScannerSaturatesBeforeTheCut) {
    EXPECT_EQ(BaseStringUtil::IntFrom(BrimString(L"99999999999999999999")), -1) << "the low half of 2^63 - 1";
    EXPECT_EQ(BaseStringUtil::IntFrom(BrimString(L"-99999999999999999999")), 0) << "the low half of -2^63";
    EXPECT_EQ(BaseStringUtil::UIntFrom(BrimString(L"99999999999999999999")), UINT_MAX);
    EXPECT_EQ(BaseStringUtil::FloatFrom(BrimString(L"1e999")), std::numeric_limits<double>::infinity());
    EXPECT_EQ(BaseStringUtil::Float32From(BrimString(L"1e39")), std::numeric_limits<float>::infinity());
}

TEST(NumberFrom, BlanksBeforeAndTextBehindTheNumberDoNotCount) {
    EXPECT_EQ(BaseStringUtil::IntFrom(BrimString(L" 42xyz")), 42);
    EXPECT_EQ(BaseStringUtil::IntFrom(BrimString(L"\t\n-42.9")), -42);
    EXPECT_EQ(BaseStringUtil::Int16From(BrimString(L"  7 8")), 7);
    EXPECT_EQ(BaseStringUtil::FloatFrom(BrimString(L"  2.5kg")), 2.5);
    EXPECT_EQ(BaseStringUtil::Float32From(BrimString(L"0.1f")), 0.1F);
}

TEST(NumberFrom, TextThatBeginsWithNoNumberIsZero) {
    for (const wchar_t* const text : {L"", L"abc", L"-", L" ", L".", L"x1"}) {
        EXPECT_EQ(BaseStringUtil::Int16From(BrimString(text)), 0) << text;
        EXPECT_EQ(BaseStringUtil::IntFrom(BrimString(text)), 0) << text;
        EXPECT_EQ(BaseStringUtil::UIntFrom(BrimString(text)), 0U) << text;
        EXPECT_EQ(BaseStringUtil::FloatFrom(BrimString(text)), 0.0) << text;
        EXPECT_EQ(BaseStringUtil::Float32From(BrimString(text)), 0.0F) << text;
    }
    EXPECT_EQ(BaseStringUtil::IntFrom(BrimString()), 0);
}

TEST(NumberFrom, CharactersFarFromTheDigitsAreNone) {
    for (const std::uint32_t code : {0x80000000U, 0x80000030U, 0xFFFFFFFFU, 0x7FFFFFFFU, 0xFFFF0030U}) {
        const auto c = static_cast<wchar_t>(code);
        for (const std::wstring& text : {std::wstring(1, c), L"4" + std::wstring(1, c),
                                         L"4.5" + std::wstring(1, c), L"-" + std::wstring(1, c)}) {
            expectReadAsByTheCLibrary(text);
        }
    }
}

TEST(NumberFrom, TheFirstZeroEndsTheText) {
    EXPECT_EQ(BaseStringUtil::IntFrom(BrimString(L"12\0003", 4)), 12);
    EXPECT_EQ(BaseStringUtil::FloatFrom(BrimString(L"1.5\0006", 5)), 1.5);
    EXPECT_TRUE(BaseStringUtil::IsInteger(BrimString(L"12\0x", 4)));
}

TEST(NumberFrom, ReadsAsTheCLibraryAroundTheLimits) {
    for (const unsigned long limit : {1UL << 15, 1UL << 16, 1UL << 31, 1UL << 32, 1UL << 63, ~0UL}) {
        for (unsigned long offset = 0; offset < 5; ++offset) {
            const std::wstring digits = std::to_wstring(limit - 2 + offset);
            expectReadAsByTheCLibrary(digits);
            expectReadAsByTheCLibrary(L"-" + digits);
            expectReadAsByTheCLibrary(L" +00" + digits + L"x");
            expectReadAsByTheCLibrary(digits + L"0");
        }
    }
}

TEST(NumberFrom, ReadsAsTheCLibraryDoes) { compareScanningWithTheCLibrary(); }

// `digits` * 10^`power` by the C library.
void expectDecimalAsByTheCLibrary(unsigned long digits, int power) {
    const std::string text = std::to_string(digits) + "e" + std::to_string(power);
    const double expected = std::strtod(text.c_str(), nullptr);
    double value = -1;
    if (sup::kernels::decimalToDouble(digits, power, value)) {
        ASSERT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(expected)) << text;
    } else {
        ASSERT_FALSE(std::isnormal(expected) && expected > DBL_MIN) << text;
        ASSERT_EQ(value, -1) << text;
    }
}

TEST(DecimalToDouble, IsAsByTheCLibrary) {
    constexpr std::uint64_t kSeed = 7006;
    RandomTexts random(kSeed);
    for (int i = 0; i < 100000 && !HasFatalFailure(); ++i) {
        SCOPED_TRACE(::testing::Message() << "seed " << kSeed << ", round " << i);
        const std::uint64_t digits = random.bits() >> random.below(64);
        expectDecimalAsByTheCLibrary(digits, static_cast<int>(random.below(700)) - 360);
        expectDecimalAsByTheCLibrary(digits, static_cast<int>(random.below(60)) - 30);
    }
    for (int power = -360; power <= 320; ++power) {
        for (const unsigned long digits : {0UL, 1UL, 9UL, 1UL << 53, (1UL << 53) + 1, ~0UL, 1UL << 63}) {
            expectDecimalAsByTheCLibrary(digits, power);
        }
    }
}

TEST(DecimalToDouble, HalvesGoToTheEvenOne) {
    constexpr std::uint64_t kSeed = 7007;
    RandomTexts random(kSeed);
    for (int i = 0; i < 20000 && !HasFatalFailure(); ++i) {
        SCOPED_TRACE(::testing::Message() << "seed " << kSeed << ", round " << i);
        // One bit more than a double has, times powers of ten and of two.
        const std::uint64_t half = (1UL << 53 | random.bits() >> 11) * 2 + 1;
        const std::uint64_t shorter = half >> random.below(30) | 1;
        for (int power = -4; power <= 24; ++power) {
            expectDecimalAsByTheCLibrary(half, power);
            expectDecimalAsByTheCLibrary(shorter, power);
        }
        expectDecimalAsByTheCLibrary((half >> 20 | 1) * 10000, -4);
        expectDecimalAsByTheCLibrary(half << random.below(10), 0);
    }
}

TEST(IsNumber, IsTrueWhenTheTextIsReadToItsEnd) {
    EXPECT_TRUE(BaseStringUtil::IsInteger(BrimString())) << "the empty text is read at once";
    EXPECT_TRUE(BaseStringUtil::IsFloat(BrimString()));
    EXPECT_TRUE(BaseStringUtil::IsInteger(BrimString(L" -12")));
    EXPECT_FALSE(BaseStringUtil::IsInteger(BrimString(L"12 ")));
    EXPECT_FALSE(BaseStringUtil::IsInteger(BrimString(L"1e5")));
    EXPECT_TRUE(BaseStringUtil::IsFloat(BrimString(L"1e5")));
    EXPECT_FALSE(BaseStringUtil::IsFloat(BrimString(L"1e5 ")));
    EXPECT_FALSE(BaseStringUtil::IsFloat(BrimString(L"x")));
}

TEST(IsNumber, TakesWhatOverflows) {
    EXPECT_TRUE(BaseStringUtil::IsInteger(BrimString(L"99999999999999999999999")));
    EXPECT_TRUE(BaseStringUtil::IsFloat(BrimString(L"1e99999")));
}

// ---- Locales ----------------------------------------------------------------------------------------------

TEST(NumbersInUtf8, AreAsByTheCLibrary) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    compareAllIntegersWithTheCLibrary();
    compareDoublesWithTheCLibrary();
    compareScanningWithTheCLibrary();
}

TEST(NumbersWithADecimalComma, AreAsByTheCLibrary) {
    const brimtest::CompiledLocale locale("de_DE");
    BRIM_SKIP_WITHOUT(locale)
    EXPECT_EQ(plain(BaseStringUtil::ShortStringFrom(2.5)), L"2,5");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(2.5, true)), L"2,5.0d") << "only a point is looked for";
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(1.5e300, true)), L"1,5E+300");
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(1234567)), L"1234567");
    EXPECT_EQ(BaseStringUtil::FloatFrom(BrimString(L"2,5")), 2.5);
    EXPECT_EQ(BaseStringUtil::FloatFrom(BrimString(L"2.5")), 2.0);
    compareAllIntegersWithTheCLibrary();
    compareDoublesWithTheCLibrary();
    compareScanningWithTheCLibrary();
}

// ---- Rounding ---------------------------------------------------------------------------------------------

TEST(NumbersInOtherRoundingModes, AreAsByTheCLibrary) {
    for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        SCOPED_TRACE(mode);
        ASSERT_EQ(std::fesetround(mode), 0);
        for (const double value : {0.1, 2.0 / 3.0, -1e23, 123456789.0123456789, 5e-324}) {
            EXPECT_EQ(plain(BaseStringUtil::ShortStringFrom(value)), formatted(L"%.15G", value));
        }
        for (const wchar_t* const text : {L"0.1", L"-0.3", L"1e23", L"123456789.0123456789", L"1e-400"}) {
            EXPECT_EQ(BaseStringUtil::FloatFrom(BrimString(text)), scanned<double>(text, L" %lf")) << text;
            EXPECT_EQ(BaseStringUtil::Float32From(BrimString(text)), scanned<float>(text, L" %f")) << text;
        }
        std::fesetround(FE_TONEAREST);
    }
}

// ---- Numbers in quotes ------------------------------------------------------------------------------------

TEST(QuotedNumber, IsReadLikeTheBareOne) {
    for (const wchar_t* const text :
         {L"8080", L"'8080'", L"\"8080\"", L" '8080' ", L"''8080", L"\" '8080 \"'", L"8080x", L"'8080'x'",
          L"+8080", L"'\t8080'", L"8080.9", L"8080 42"}) {
        EXPECT_EQ(BaseStringUtil::StringToUint32(BrimString(text)), 8080U) << text;
        EXPECT_EQ(BaseStringUtil::StringToInteger(BrimString(text)), 8080) << text;
    }
    for (const wchar_t* const text : {L"", L"''", L" ", L"\"", L"' \"'", L"x", L"'x8080'", L"\t'8080'"}) {
        EXPECT_EQ(BaseStringUtil::StringToUint32(BrimString(text)), 0U) << text;
        EXPECT_EQ(BaseStringUtil::StringToInteger(BrimString(text)), 0) << text;
    }
    EXPECT_EQ(BaseStringUtil::StringToUint32(BrimString()), 0U);
    EXPECT_EQ(BaseStringUtil::StringToInteger(BrimString()), 0);
    EXPECT_EQ(BaseStringUtil::StringToInteger(BrimString(L"'-42'")), -42);
    EXPECT_EQ(BaseStringUtil::StringToInteger(BrimString(L"- 42")), 0);
}

TEST(QuotedNumber, IsCutTo32Bits) {
    static_assert(std::is_same_v<decltype(BaseStringUtil::StringToUint32(BrimString())), unsigned int>);
    static_assert(std::is_same_v<decltype(BaseStringUtil::StringToInteger(BrimString())), int>);
    EXPECT_EQ(BaseStringUtil::StringToUint32(BrimString(L"'4294967295'")), UINT_MAX);
    EXPECT_EQ(BaseStringUtil::StringToUint32(BrimString(L"4294967297")), 1U);
    EXPECT_EQ(BaseStringUtil::StringToUint32(BrimString(L"-1")), UINT_MAX);
    EXPECT_EQ(BaseStringUtil::StringToInteger(BrimString(L"4294967297")), 1);
    EXPECT_EQ(BaseStringUtil::StringToInteger(BrimString(L"99999999999999999999")), -1);
}

TEST(QuotedNumber, HasFiveHundredAndElevenBytesAtMost) {
    const std::wstring longest = std::wstring(510, L'0') + L"7";
    EXPECT_EQ(BaseStringUtil::StringToInteger(brim(L"'" + longest + L"'")), 7);
    EXPECT_EQ(BaseStringUtil::StringToUint32(brim(longest)), 7U);
    EXPECT_EQ(BaseStringUtil::StringToInteger(brim(L"0" + longest)), 0) << "does not fit, and so is empty";
    EXPECT_EQ(BaseStringUtil::StringToUint32(brim(L"0" + longest)), 0U);
}

TEST(QuotedNumber, ReadsAsTheCLibraryDoes) {
    constexpr std::uint64_t kSeed = 7004;
    RandomTexts random(kSeed);
    for (int i = 0; i < 20000 && !::testing::Test::HasFailure(); ++i) {
        const std::wstring text =
            random.text(L"' \"", 3) + random.text(L"0123456789+- \t'", 14) + random.text(L"' \"", 3);
        SCOPED_TRACE(::testing::Message() << "seed " << kSeed << ", round " << i);
        expectQuotedReadAsByTheCLibrary(text);
    }
}

} // namespace
