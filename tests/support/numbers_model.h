// Numbers to text and back by the C library, and the library next to it.
#pragma once

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <string>

namespace brimtest {

template <class... Arguments>
inline std::wstring formatted(const wchar_t* format, Arguments... arguments) {
    wchar_t buffer[255];
    const int length = std::swprintf(buffer, std::size(buffer), format, arguments...);
    return length < 0 ? L"(failed)" : std::wstring(buffer, static_cast<std::size_t>(length));
}

inline std::wstring withSuffix(double value, bool doubleSuffix) {
    const std::wstring text = formatted(L"%.15G", value);
    if (text.find(L'.') != std::wstring::npos) {
        return text + (doubleSuffix ? L"d" : L"");
    }
    if (text.find(L'E') != std::wstring::npos) {
        return text;
    }
    return text + (doubleSuffix ? L".0d" : L".0");
}

template <class Value>
Value scanned(const std::wstring& text, const wchar_t* format) {
    Value value = 0;
    std::swscanf(text.c_str(), format, &value);
    return value;
}

// Equal to the bit, but that every NaN is like another of its sign.
template <class Float>
inline bool sameFloat(Float a, Float b) {
    return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}

inline void expectReadAsByTheCLibrary(const std::wstring& text) {
    SCOPED_TRACE(::testing::PrintToString(text));
    const BrimString given = brim(text);
    EXPECT_EQ(BaseStringUtil::Int16From(given), static_cast<short>(scanned<int>(text, L" %d")));
    EXPECT_EQ(BaseStringUtil::IntFrom(given), static_cast<int>(scanned<long>(text, L" %ld")));
    EXPECT_EQ(BaseStringUtil::UIntFrom(given),
              static_cast<unsigned int>(scanned<unsigned long>(text, L" %lu")));
    const double wide = BaseStringUtil::FloatFrom(given);
    EXPECT_TRUE(sameFloat(wide, scanned<double>(text, L" %lf"))) << wide;
    const float narrow = BaseStringUtil::Float32From(given);
    EXPECT_TRUE(sameFloat(narrow, scanned<float>(text, L" %f"))) << narrow;
    wchar_t* end = nullptr;
    std::wcstol(text.c_str(), &end, 10);
    EXPECT_EQ(BaseStringUtil::IsInteger(given), *end == L'\0');
    std::wcstod(text.c_str(), &end);
    EXPECT_EQ(BaseStringUtil::IsFloat(given), *end == L'\0');
}

inline void expectWrittenAsByTheCLibrary(double value) {
    SCOPED_TRACE(value);
    EXPECT_EQ(plain(BaseStringUtil::ShortStringFrom(value)), formatted(L"%.15G", value));
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(value, false)), withSuffix(value, false));
    EXPECT_EQ(plain(BaseStringUtil::StringFrom(value, true)), withSuffix(value, true));
}

// For ASCII texts that are short enough.
inline void expectQuotedReadAsByTheCLibrary(const std::wstring& text) {
    const std::size_t first = text.find_first_not_of(L" '\"");
    const std::size_t last = text.find_last_not_of(L" '\"");
    std::string bare;
    for (std::size_t at = first; first != std::wstring::npos && at <= last; ++at) {
        bare += static_cast<char>(text[at]);
    }
    SCOPED_TRACE(bare);
    unsigned int value = 0;
    std::sscanf(bare.c_str(), "%u", &value);
    EXPECT_EQ(BaseStringUtil::StringToUint32(brim(text)), value);
    EXPECT_EQ(BaseStringUtil::StringToInteger(brim(text)),
              static_cast<int>(std::strtol(bare.c_str(), nullptr, 10)));
}

} // namespace brimtest
