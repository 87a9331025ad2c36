// Searches that look at backslashes, quotes and marks, next to naive ones.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "quotes_model.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using brimtest::brim;
using brimtest::closingMark;
using brimtest::plain;
using brimtest::quotedValue;
using brimtest::RandomTexts;
using brimtest::Ranges;
using brimtest::unescaped;
using brimtest::unquoted;

constexpr std::wstring_view kAlphabet = L"ab,()'\"\\";

// ---- FindFirstUnescaped -----------------------------------------------------------------------------------

TEST(FindFirstUnescaped, PassesWhatABackslashPrecedes) {
    const BrimString text(L",\\,a,");
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(text, L",", 0), 0U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(text, L",", 1), 4U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(text, L",", 2), 4U) << "the backslash is before the start";
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(text, L",", 5), 5U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(text, L",", 500), 5U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(text, L"x", 0), 5U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(BrimString(), L"x", 0), 0U);
}

TEST(FindFirstUnescaped, ADoubledBackslashEscapesToo) {
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(BrimString(L"a\\\\,b,"), L",", 0), 5U);
}

// Long texts are looked through by windows.
TEST(FindFirstUnescaped, FindsWhatFindDoesWhereNothingIsEscaped) {
    constexpr std::uint64_t kSeed = 7501;
    RandomTexts random(kSeed);
    for (int i = 0; i < 3000; ++i) {
        std::wstring text = random.text(i % 2 == 0 ? L"ab" : L"aaaaaaaaaaaaaaab", 3000);
        if (!text.empty() && random.flip()) {
            text[random.below(text.size())] = L'\0';
        }
        std::wstring what = random.text(L"ab", 4);
        if (random.flip()) {
            what = text.substr(random.below(text.size() + 1), random.below(40)).c_str();
        }
        const std::size_t start = random.below(text.size() + 2);
        const BrimString given = brim(text);
        ASSERT_EQ(BaseStringUtil::FindFirstUnescaped(given, what.c_str(), start),
                  given.find(what.c_str(), start))
            << "seed " << kSeed << ", round " << i;
    }
}

TEST(FindFirstUnescaped, AgreesWithTheModelWhereHitsOverlap) {
    constexpr std::uint64_t kSeed = 7502;
    RandomTexts random(kSeed);
    for (int i = 0; i < 3000; ++i) {
        const std::wstring text = random.text(L"\\\\\\a", 400);
        const std::wstring what = random.text(L"\\\\\\a", 7);
        const std::size_t start = random.below(text.size() + 2);
        const std::size_t expected =
            what.empty() && start >= text.size() ? text.size() : unescaped(text, what, start);
        ASSERT_EQ(BaseStringUtil::FindFirstUnescaped(brim(text), what.c_str(), start), expected)
            << "seed " << kSeed << ", round " << i;
    }
}

TEST(FindFirstUnescaped, GetsThroughRepetitiveTexts) {
    constexpr std::size_t kLength = 600000;
    const std::wstring letters(kLength, L'a');
    const std::wstring backslashes(kLength, L'\\');
    const std::wstring middle = letters.substr(0, kLength / 4) + L"b" + letters.substr(0, kLength / 4);
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(brim(letters), middle.c_str(), 0), kLength);
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(brim(backslashes), backslashes.c_str() + kLength / 2, 1),
              kLength);
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(brim(letters), middle.c_str(), 0, nullptr), kLength);
}

TEST(FindFirstUnescaped, HitsMayOverlap) {
    EXPECT_EQ(BaseStringUtil::FindFirstUnescaped(BrimString(L"\\aaa"), L"aa", 0), 2U);
}

TEST(FindFirstUnescaped, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7401;
    RandomTexts random(kSeed);
    for (int i = 0; i < 20000; ++i) {
        const std::wstring text = random.text(L"ab\\\\", 16);
        const std::wstring what = random.textOf(L"ab\\", 1 + random.below(3));
        const std::size_t start = random.below(text.size() + 2);
        ASSERT_EQ(BaseStringUtil::FindFirstUnescaped(brim(text), what.c_str(), start),
                  unescaped(text, what, start))
            << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", "
            << ::testing::PrintToString(what);
    }
}

// ---- FindFirstUnquoted ------------------------------------------------------------------------------------

TEST(FindFirstUnquoted, SkipsQuotedStretches) {
    const BrimString text(L"a,'x,y',z");
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(text, L",", 0, nullptr), 1U);
    Ranges ranges = {{77, 78}};
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(text, L",", 2, &ranges), 7U);
    EXPECT_EQ(ranges, (Ranges{{77, 78}, {2, 6}})) << "appended";
}

TEST(FindFirstUnquoted, AnUnterminatedQuoteHidesTheRest) {
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(BrimString(L"a'x,y"), L",", 0, nullptr), 5U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(BrimString(L"a'x\\',y"), L",", 0, nullptr), 7U)
        << "an escaped quote closes nothing";
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(BrimString(L"a,'x"), L",", 0, nullptr), 1U);
}

TEST(FindFirstUnquoted, EachQuoteEndsWithItsOwnKind) {
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(BrimString(L"\"',\",x"), L",", 0, nullptr), 4U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(BrimString(L"'\",',x"), L",", 0, nullptr), 4U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(BrimString(L"\\',x"), L",", 0, nullptr), 2U)
        << "an escaped quote opens nothing";
}

TEST(FindFirstUnquoted, AQuoteIsNeverOutsideItself) {
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(BrimString(L"a'b'c"), L"'", 0, nullptr), 5U);
    EXPECT_EQ(BaseStringUtil::FindFirstUnquoted(BrimString(L"a\\'c"), L"'", 0, nullptr), 2U)
        << "an escaped one is";
}

TEST(FindFirstUnquoted, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7402;
    RandomTexts random(kSeed);
    const std::wstring whats[] = {L",", L"(", L"ab", L"'", L"\"", L",'", L"\\", L"'a"};
    for (int i = 0; i < 40000; ++i) {
        const std::wstring text = random.text(kAlphabet, 24);
        const std::wstring& what = whats[random.below(std::size(whats))];
        const std::size_t start = random.below(text.size() + 2);
        Ranges ranges;
        Ranges expectedRanges;
        const std::size_t expected = unquoted(text, what, start, &expectedRanges);
        ASSERT_EQ(BaseStringUtil::FindFirstUnquoted(brim(text), what.c_str(), start, &ranges), expected)
            << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", "
            << ::testing::PrintToString(what);
        ASSERT_EQ(ranges, expectedRanges) << "seed " << kSeed << ": " << ::testing::PrintToString(text);
        ASSERT_EQ(BaseStringUtil::FindFirstUnquoted(brim(text), what.c_str(), start, nullptr), expected);
    }
}

// ---- FindClosingMark --------------------------------------------------------------------------------------

TEST(FindClosingMark, FindsTheMarkThatClosesTheOneBeforeTheStart) {
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(BrimString(L"f(a(b)c)"), 2), 7U);
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(BrimString(L"f(a(b)c)"), 4), 5U);
    EXPECT_EQ(BaseStringUtil::FindClosingBrace(BrimString(L"{a{b}{c}}"), 1), 8U);
    EXPECT_EQ(BaseStringUtil::FindClosingBrace(BrimString(L"{a)"), 1), 3U) << "only its own kind";
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(BrimString(L"f(a(b)c"), 2), 7U) << "none";
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(BrimString(), 0), 0U);
    EXPECT_EQ(BaseStringUtil::FindClosingMark(BrimString(L"<<a<<b>>c>>d"), 2, L"<<", L">>"), 9U);
}

TEST(FindClosingMark, MarksInQuotesDoNotCount) {
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(BrimString(L"f(')',\"(\"))"), 2), 9U);
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(BrimString(L"f(a')"), 2), 5U)
        << "hidden by an open quote";
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(BrimString(L"f(\\')"), 2), 4U);
}

TEST(FindClosingMark, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7403;
    RandomTexts random(kSeed);
    const std::pair<std::wstring, std::wstring> marks[] = {
        {L"(", L")"},  {L"a", L"b"},   {L"ab", L"b"},  {L"a", L"a"},  {L"('", L")"}, {L"'", L")"},
        {L"(", L"\""}, {L"((", L"))"}, {L"(a", L"(b"}, {L",", L",)"}, {L"\\(", L")"}};
    for (int i = 0; i < 60000; ++i) {
        const std::wstring text = random.text(i % 2 == 0 ? kAlphabet : std::wstring_view(L"((a))b'"), 24);
        const auto& [open, close] = marks[random.below(std::size(marks))];
        const std::size_t start = random.below(text.size() + 2);
        ASSERT_EQ(BaseStringUtil::FindClosingMark(brim(text), start, open.c_str(), close.c_str()),
                  closingMark(text, start, open, close))
            << "seed " << kSeed << ": " << ::testing::PrintToString(text) << " from " << start << ", "
            << ::testing::PrintToString(open) << ::testing::PrintToString(close);
        ASSERT_EQ(BaseStringUtil::FindClosingParenthesis(brim(text), start),
                  closingMark(text, start, L"(", L")"));
    }
}

TEST(FindClosingMark, GetsThroughDeepNesting) {
    constexpr std::size_t kDepth = 100000;
    const std::wstring nested = std::wstring(kDepth, L'(') + std::wstring(kDepth, L')');
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(brim(nested), 1), 2 * kDepth - 1);
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(brim(nested), 0), 2 * kDepth) << "one is missing";
    std::wstring quoted = L"(";
    std::wstring pairs = L"(";
    for (std::size_t i = 0; i < kDepth; ++i) {
        quoted += L"('\"))' \"')\")";
        pairs += L"() \\'";
    }
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(brim(quoted + L")"), 1), quoted.size());
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(brim(pairs + L")"), 1), pairs.size());
    EXPECT_EQ(BaseStringUtil::FindClosingParenthesis(brim(pairs + L"\""), 1), pairs.size() + 1);
}

// ---- GetQuotedString --------------------------------------------------------------------------------------

TEST(GetQuotedString, ReadsToTheClosingApostrophe) {
    BrimString out(L"before");
    std::size_t end = 99;
    EXPECT_TRUE(BaseStringUtil::GetQuotedString(BrimString(L"x='it''s' y"), 3, out, end));
    EXPECT_EQ(plain(out), L"it's");
    EXPECT_EQ(end, 9U);
    EXPECT_TRUE(BaseStringUtil::GetQuotedString(BrimString(L"''''' x"), 0, out, end));
    EXPECT_EQ(plain(out), L"''") << "two pairs and the end";
    EXPECT_EQ(end, 5U);
    EXPECT_TRUE(BaseStringUtil::GetQuotedString(BrimString(L"'"), 0, out, end));
    EXPECT_EQ(plain(out), L"");
    EXPECT_EQ(end, 1U);
}

TEST(GetQuotedString, WithoutAClosingApostropheThereIsNoValue) {
    for (const wchar_t* const text : {L"", L"abc", L"ab''", L"''", L"a''b''''"}) {
        BrimString out(L"before");
        std::size_t end = 99;
        EXPECT_FALSE(BaseStringUtil::GetQuotedString(BrimString(text), 0, out, end)) << text;
        EXPECT_TRUE(out.empty()) << text;
        EXPECT_EQ(end, std::wstring(text).size()) << text;
    }
}

TEST(GetQuotedString, TheValueMayReplaceItsText) {
    BrimString text(L"a''b'c");
    std::size_t end = 0;
    EXPECT_TRUE(BaseStringUtil::GetQuotedString(text, 0, text, end));
    EXPECT_EQ(plain(text), L"a'b");
}

TEST(GetQuotedString, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7404;
    RandomTexts random(kSeed);
    for (int i = 0; i < 20000; ++i) {
        const std::wstring text = random.text(std::wstring_view(L"a''\0\\", 5), 14);
        const std::size_t start = random.below(text.size() + 1);
        std::wstring expected;
        std::size_t expectedEnd = 0;
        const bool found = quotedValue(text, start, expected, expectedEnd);
        BrimString out(L"before");
        std::size_t end = 99;
        ASSERT_EQ(BaseStringUtil::GetQuotedString(brim(text), start, out, end), found)
            << "seed " << kSeed << ": " << ::testing::PrintToString(text);
        ASSERT_EQ(plain(out), expected) << "seed " << kSeed << ": " << ::testing::PrintToString(text);
        ASSERT_EQ(end, expectedEnd) << "seed " << kSeed << ": " << ::testing::PrintToString(text);
    }
}

TEST(GetQuotedString, GetsThroughAMillionApostrophes) {
    BrimString out;
    std::size_t end = 0;
    std::wstring text;
    for (int i = 0; i < 500000; ++i) {
        text += L"''a";
    }
    EXPECT_TRUE(BaseStringUtil::GetQuotedString(brim(text + L"'"), 0, out, end));
    EXPECT_EQ(out.length(), 1000000U);
    EXPECT_EQ(end, text.size() + 1);
}

} // namespace
