// Naive searches for sub-strings and character sets, and their comparison with the library's.
#pragma once

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cwctype>
#include <set>
#include <string>
#include <string_view>

namespace brimtest {

inline std::size_t firstMatch(std::wstring_view text, std::wstring_view pattern, std::size_t start) {
    for (std::size_t at = start; !pattern.empty() && at < text.size(); ++at) {
        if (text.substr(at, pattern.size()) == pattern) {
            return at;
        }
    }
    return text.size();
}

inline std::size_t lastMatch(std::wstring_view text, std::wstring_view pattern, std::size_t pos) {
    std::size_t found = text.size();
    for (std::size_t at = 0; !pattern.empty() && at < text.size(); ++at) {
        if (text.substr(at, pattern.size()) == pattern &&
            (pos >= text.size() || at + pattern.size() - 1 <= pos)) {
            found = at;
        }
    }
    return found;
}

inline std::size_t firstOf(std::wstring_view text, const std::set<wchar_t>& set, std::size_t start,
                           bool wanted) {
    for (std::size_t at = start; at < text.size(); ++at) {
        if ((set.count(text[at]) != 0) == wanted) {
            return at;
        }
    }
    return text.size();
}

inline std::size_t lastOf(std::wstring_view text, const std::set<wchar_t>& set, std::size_t start) {
    std::size_t found = text.size();
    for (std::size_t at = 0; at < text.size() && at <= start; ++at) {
        found = set.count(text[at]) != 0 ? at : found;
    }
    return found;
}

inline std::wstring raised(std::wstring text) {
    for (wchar_t& c : text) {
        c = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
    }
    return text;
}

// Every start that tells something, and the last index of all.
inline void compareSearches(const std::wstring& text, const std::wstring& pattern) {
    const BrimString t = brim(text);
    const BrimString p = brim(pattern);
    const auto compareAt = [&](std::size_t start) {
        ASSERT_EQ(BaseStringUtil::ForwardPatternMatch(t, p, start), firstMatch(text, pattern, start))
            << start << " in " << ::testing::PrintToString(text) << ", " << ::testing::PrintToString(pattern);
        ASSERT_EQ(BaseStringUtil::ReversePatternMatch(t, p, start), lastMatch(text, pattern, start))
            << start << " in " << ::testing::PrintToString(text) << ", " << ::testing::PrintToString(pattern);
        ASSERT_EQ(BaseStringUtil::CaseInsensitiveFind(t, p, start),
                  firstMatch(raised(text), raised(pattern), start))
            << start << " in " << ::testing::PrintToString(text) << ", " << ::testing::PrintToString(pattern);
    };
    const std::size_t step = 1 + text.size() / 12;
    for (std::size_t start = 0; start <= text.size() + 1 && !::testing::Test::HasFailure(); start += step) {
        compareAt(start);
    }
    compareAt(static_cast<std::size_t>(-1));
}

} // namespace brimtest
