// Trimming, case and comparison by the C library's character functions, and the library next to them.
#pragma once

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <cwctype>
#include <string>

namespace brimtest {

inline bool isSpace(wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; }
inline wchar_t lower(wchar_t c) { return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c))); }
inline wchar_t upper(wchar_t c) { return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c))); }

inline std::wstring mappedText(std::wstring text, wchar_t (*map)(wchar_t)) {
    std::transform(text.begin(), text.end(), text.begin(), map);
    return text;
}

inline std::wstring trimmed(std::wstring text, bool atStart, bool atEnd) {
    while (atStart && !text.empty() && isSpace(text.front())) {
        text.erase(0, 1);
    }
    while (atEnd && !text.empty() && isSpace(text.back())) {
        text.pop_back();
    }
    return text;
}

inline bool lessIgnoringCase(const std::wstring& a, const std::wstring& b) {
    for (std::size_t i = 0;; ++i) {
        const wchar_t left = a.c_str()[i];
        const wchar_t right = b.c_str()[i];
        if (left == 0 || right == 0) {
            return left == 0 && right != 0;
        }
        if (lower(left) != lower(right)) {
            return static_cast<std::uint32_t>(lower(left)) < static_cast<std::uint32_t>(lower(right));
        }
    }
}

inline void compareWithoutCase(const std::wstring& a, const std::wstring& b) {
    SCOPED_TRACE(::testing::PrintToString(a) + " and " + ::testing::PrintToString(b));
    const BrimString left = brim(a);
    const BrimString right = brim(b);
    const bool match = mappedText(a, lower) == mappedText(b, lower);
    EXPECT_EQ(BaseStringUtil::IsCaseInsensitiveMatch(left, right), match);
    EXPECT_EQ(BaseStringUtil::IsCaseInsensitiveLessThan(left, right), lessIgnoringCase(a, b));
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveCompare(left, right), lessIgnoringCase(a, b) ? -1
                                                                   : match                ? 0
                                                                                          : 1);
    const std::wstring aText = a.c_str();
    const std::wstring bText = b.c_str();
    EXPECT_EQ(BaseStringUtil::IsNTSCaseInsensitiveMatch(a.c_str(), b.c_str()),
              mappedText(aText, lower) == mappedText(bText, lower));
    EXPECT_EQ(BaseStringUtil::IsNTSCaseInsensitiveLessThan(a.c_str(), b.c_str()), lessIgnoringCase(a, b));
    EXPECT_EQ(sup::operator<(left, right), std::wcscmp(a.c_str(), b.c_str()) < 0);
    EXPECT_EQ(BaseStringUtil::FileNameCompare(a.c_str(), b.c_str()) < 0,
              std::wcscmp(a.c_str(), b.c_str()) < 0);
    EXPECT_EQ(BaseStringUtil::FileNameCompare(a.c_str(), b.c_str()) == 0, aText == bText);
    EXPECT_EQ(BaseStringUtil::IsMatch(left, right), a == b);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveFindPattern(left, right),
              !a.empty() && mappedText(a, lower).find(mappedText(b, lower)) != std::wstring::npos);
}

inline void compareTrimming(const std::wstring& text) {
    const BrimString given = brim(text);
    EXPECT_EQ(plain(BaseStringUtil::TrimBoth(given)), trimmed(text, true, true));
    EXPECT_EQ(plain(BaseStringUtil::TrimTrailingBlanks(given)), trimmed(text, false, true));
    EXPECT_EQ(plain(BaseStringUtil::CleanLeadingBlanksInString(given)), trimmed(text, true, false));
}

} // namespace brimtest
