// Patterns with stars and question marks, next to a matcher by dynamic programming.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "test_locale.h"
#include "wide_texts.h"
#include "wildcard_model.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace {

using brimtest::brim;
using brimtest::modelWildcardMatch;
using brimtest::RandomTexts;

bool matches(std::wstring_view text, std::wstring_view pattern) {
    return BaseStringUtil::IsWildcardCaseInsensitiveMatch(brim(text), brim(pattern));
}

std::wstring repeated(std::wstring_view unit, std::size_t times) {
    std::wstring text;
    for (std::size_t i = 0; i < times; ++i) {
        text += unit;
    }
    return text;
}

TEST(IsWildcardCaseInsensitiveMatch, MatchesTheWholeText) {
    const struct {
        const wchar_t* text;
        const wchar_t* pattern;
        bool expected;
    } rows[] = {
        {L"Report.TXT", L"*.txt", true},
        {L"Report.TXT", L"r?port*", true},
        {L"Report.TXT", L"*.doc", false},
        {L"Report.TXT", L"report.txt", true},
        {L"Report.TXT", L"report", false},
        {L"Report.TXT", L"eport.txt", false},
        {L"", L"", true},
        {L"a", L"", false},
        {L"", L"*", true},
        {L"", L"***", true},
        {L"", L"?", false},
        {L"", L"*?", false},
        {L"a", L"?", true},
        {L"a", L"??", false},
        {L"ab", L"?", false},
        {L"ab", L"*?*?*", true},
        {L"a", L"*?*?*", false},
        {L"abc", L"a*c", true},
        {L"ac", L"a**c", true},
        {L"abcabd", L"*ab?", true},
        {L"abab", L"ab*ab", true},
        {L"aba", L"ab*ba", false}, // the ends may not overlap
        {L"abXcdXef", L"*x?d*", true},
        {L"mississippi", L"*iss*ip*", true},
        {L"mississippi", L"*issi*issi*issi*", false},
        {L"a*b", L"a\\*b", false}, // there is no escape
        {L"a\\xb", L"a\\*b", true},
        {L"[a]", L"[a]", true},
        {L"a", L"[a]", false},
        {L"a?", L"a?", true},
        {L"*", L"?", true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(matches(row.text, row.pattern), row.expected) << row.text << " against " << row.pattern;
    }
    EXPECT_TRUE(BaseStringUtil::IsWildcardCaseInsensitiveMatch(BrimString(), BrimString()));
}

TEST(IsWildcardCaseInsensitiveMatch, ComparesSmallLetters) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    EXPECT_TRUE(matches(L"\u00C9t\u00E9", L"\u00E9*\u00C9"));
    EXPECT_TRUE(matches(L"\u03A3", L"\u03C3"));
    EXPECT_FALSE(matches(L"\u03C3", L"\u03C2")) << "two small letters of one capital";
}

TEST(IsWildcardCaseInsensitiveMatch, AQuestionMarkIsOneUnit) {
    EXPECT_TRUE(matches(L"\xD83D\xDE00", L"??"));
    EXPECT_FALSE(matches(L"\xD83D\xDE00", L"?"));
    EXPECT_TRUE(matches(std::wstring_view(L"\0", 1), L"?"));
    EXPECT_TRUE(matches(std::wstring_view(L"a\0b", 3), std::wstring_view(L"*\0B", 3)));
    EXPECT_FALSE(matches(std::wstring_view(L"a\0b", 3), L"a")) << "a zero does not end the text";
}

TEST(IsWildcardCaseInsensitiveMatch, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7701;
    RandomTexts random(kSeed);
    int matched = 0;
    for (int i = 0; i < 60000; ++i) {
        const std::wstring text = random.text(i % 2 == 0 ? L"ab" : L"aAbB", i % 40 == 0 ? 60 : 12);
        std::wstring pattern = random.text(i % 3 == 0 ? L"ab?*" : L"aB***?", 10);
        if (random.flip()) { // one that has a good chance: the text with parts covered
            pattern = text;
            for (std::size_t edits = random.below(5); edits != 0 && !pattern.empty(); --edits) {
                pattern.replace(random.below(pattern.size()), random.below(4), random.textOf(L"*?*", 1));
            }
        }
        const bool expected = modelWildcardMatch(text, pattern);
        matched += expected ? 1 : 0;
        ASSERT_EQ(matches(text, pattern), expected)
            << "seed " << kSeed << ": " << ::testing::PrintToString(text) << " against "
            << ::testing::PrintToString(pattern);
    }
    EXPECT_GT(matched, 5000) << "both answers are common";
    EXPECT_LT(matched, 55000);
}

TEST(IsWildcardCaseInsensitiveMatch, LongPartsAreFoundBehindShorterOnes) {
    EXPECT_TRUE(matches(L"xxabcdefxabcdeg", L"*?abc?eg"));
    EXPECT_TRUE(matches(L"xxabcdefxabcdegyy", L"*b?d?g*y"));
    EXPECT_FALSE(matches(L"xxabcdefxabcdegyy", L"*b?d?h*y"));
    EXPECT_TRUE(matches(L"aab", L"*?ab*")) << "the found part needs room before it";
    EXPECT_FALSE(matches(L"ab", L"*?ab*"));
}

TEST(IsWildcardCaseInsensitiveMatch, GetsThroughHostilePatterns) {
    constexpr std::size_t kLength = 100000;
    const std::wstring text(kLength, L'a');
    EXPECT_FALSE(matches(text, repeated(L"*a", 50000) + L"*b"));
    EXPECT_TRUE(matches(text, repeated(L"*a", kLength) + L"*"));
    EXPECT_FALSE(matches(text, repeated(L"*a", kLength + 1)));
    EXPECT_FALSE(matches(text, repeated(L"a*", 1000) + L"b" + repeated(L"*a", 1000)));
    EXPECT_FALSE(matches(text, L"*" + std::wstring(kLength / 2, L'a') + L"b*"));
    EXPECT_TRUE(matches(text, std::wstring(kLength, L'*')));
    EXPECT_TRUE(matches(text, std::wstring(kLength, L'?')));
    EXPECT_FALSE(matches(text, std::wstring(kLength + 1, L'?')));
    EXPECT_TRUE(matches(text, repeated(L"*?", kLength)));
    EXPECT_FALSE(matches(text, repeated(L"*?", kLength + 1)));
    EXPECT_FALSE(matches(text, L"*" + repeated(L"a?", 2000) + L"b*"));
    EXPECT_FALSE(matches(text, L"*" + std::wstring(2000, L'a') + L"?b*"));
}

TEST(IsWildcardCaseInsensitiveMatch, GetsThroughLongSegmentsOfQuestionMarks) {
    constexpr std::size_t kLength = 100000;
    std::wstring text(kLength, L'a');
    EXPECT_FALSE(matches(text, L"*" + repeated(L"a?", kLength / 4) + L"b*"));
    EXPECT_FALSE(matches(text, L"*" + repeated(L"?a", kLength / 2) + L"b*"));
    EXPECT_TRUE(matches(text, L"*" + repeated(L"a?", kLength / 2) + L"*"));
    EXPECT_FALSE(matches(text, repeated(L"*aa?aa?b", 100) + L"*"));
    const std::wstring segment = L"*" + repeated(L"a?", kLength / 4) + L"b";
    text[kLength - 1] = L'b';
    EXPECT_TRUE(matches(text, segment));
    EXPECT_TRUE(matches(text, segment + L"*"));
    EXPECT_FALSE(matches(text, segment + L"?*"));
    // Many segments of which each is hard to find.
    std::wstring parts;
    std::wstring pattern = L"*";
    for (int i = 0; i < 100; ++i) {
        parts += std::wstring(900, L'a') + L"b" + static_cast<wchar_t>(L'c' + i % 10);
        pattern += repeated(L"a?", 100) + L"b" + static_cast<wchar_t>(L'c' + i % 10) + L"*";
    }
    EXPECT_TRUE(matches(parts, pattern));
    EXPECT_FALSE(matches(parts, pattern + L"z*"));
}

// Long enough to leave the quick way, short enough for the model.
TEST(IsWildcardCaseInsensitiveMatch, AgreesWithTheModelWhereSegmentsAreHardToFind) {
    constexpr std::uint64_t kSeed = 7702;
    RandomTexts random(kSeed);
    int matched = 0;
    for (int i = 0; i < 40; ++i) {
        const std::wstring_view alphabet = i % 2 == 0 ? L"aaaaaaab" : L"abcdefg";
        std::wstring text(3000 + random.below(2000), L'a');
        for (std::size_t k = 0; k < text.size(); k += 1 + random.below(i % 4 == 0 ? 400 : 30)) {
            text[k] = alphabet[random.below(alphabet.size())];
        }
        const std::size_t m = 20 + random.below(200);
        std::wstring segment = text.substr(text.size() - m - random.below(2000), m);
        for (std::size_t k = random.below(3); k < m; k += 1 + random.below(6)) {
            segment[k] = L'?';
        }
        if (random.flip()) {
            segment[random.below(m)] = random.flip() ? L'b' : L'x';
        }
        const std::wstring pattern = L"*" + segment + (random.flip() ? L"*" : L"*b*");
        const bool expected = modelWildcardMatch(text, pattern);
        matched += expected ? 1 : 0;
        ASSERT_EQ(matches(text, pattern), expected) << "seed " << kSeed << ", round " << i;
    }
    EXPECT_GT(matched, 5) << "both answers are common";
    EXPECT_LT(matched, 38);
}

} // namespace
