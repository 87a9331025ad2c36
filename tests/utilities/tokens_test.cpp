// Splitting, joining, and the resolving of LIKE escapes.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "child_process.h"
#include "tokens_model.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

using brimtest::brim;
using brimtest::ChildResult;
using brimtest::marked;
using brimtest::modelEscapedTokens;
using brimtest::modelTokens;
using brimtest::plain;
using brimtest::RandomTexts;
using brimtest::runInChild;
using brimtest::Texts;
using brimtest::tokenized;
using brimtest::tokenizedWithEscape;

// ---- Tokenize ---------------------------------------------------------------------------------------------

TEST(Tokenize, DropsEmptyTokensUnlessToldToKeepThem) {
    EXPECT_EQ(tokenized(L"a,,b", L",", false, false), (Texts{L"a", L"b"}));
    EXPECT_EQ(tokenized(L"a,,b", L",", false, true), (Texts{L"a", L"", L"b"}));
    EXPECT_EQ(tokenized(L",a", L",", false, false), (Texts{L"a"}));
    EXPECT_EQ(tokenized(L",a", L",", false, true), (Texts{L"", L"a"}));
}

TEST(Tokenize, NeverKeepsATrailingEmptyToken) {
    EXPECT_EQ(tokenized(L"a,b,", L",", false, true), (Texts{L"a", L"b"}));
    EXPECT_EQ(tokenized(L",", L",", false, true), (Texts{L""})) << "the one before the delimiter";
    EXPECT_EQ(tokenized(L",", L",", false, false), Texts());
    EXPECT_EQ(tokenized(L"a,", L",", true, true), (Texts{L"a", L","}));
}

TEST(Tokenize, ReturnsEachDelimiterBehindItsToken) {
    EXPECT_EQ(tokenized(L"a,,b", L",", true, true), (Texts{L"a", L",", L"", L",", L"b"}));
    EXPECT_EQ(tokenized(L"a,;b", L",;", true, false), (Texts{L"a", L",", L";", L"b"}));
}

TEST(Tokenize, AnEmptyTextOrNoDelimiterLeavesTheVectorUntouched) {
    for (const bool flag : {false, true}) {
        EXPECT_EQ(tokenized(L"", L",", flag, flag), (Texts{L"before"}));
        EXPECT_EQ(tokenized(L"a,b", L"", flag, flag), (Texts{L"before"}));
        EXPECT_EQ(tokenized(L"", L"", flag, flag), (Texts{L"before"}));
    }
    BrimStringVector out = marked();
    BaseStringUtil::Tokenize(BrimString(), BrimString(), out, true, true);
    EXPECT_EQ(plain(out), plain(marked()));
}

TEST(Tokenize, ATextWithoutDelimitersIsOneToken) {
    EXPECT_EQ(tokenized(L"abc", L",;", true, true), (Texts{L"abc"}));
}

TEST(Tokenize, TheTextMayBeAnElementOfTheVector) {
    BrimStringVector out = {BrimString(L"x,y"), BrimString(L",")};
    BaseStringUtil::Tokenize(out[0], out[1], out, true, false);
    EXPECT_EQ(plain(out), (Texts{L"x", L",", L"y"}));
}

TEST(Tokenize, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7501;
    RandomTexts random(kSeed);
    const std::wstring_view alphabet(L"ab,;\0\u4E00\u2028", 7);
    for (int i = 0; i < 20000; ++i) {
        const std::wstring text = random.text(alphabet, 16);
        const std::wstring delimiters = random.text(alphabet, 3);
        for (int flags = 0; flags < 4; ++flags) {
            ASSERT_EQ(tokenized(text, delimiters, (flags & 1) != 0, (flags & 2) != 0),
                      modelTokens(text, delimiters, (flags & 1) != 0, (flags & 2) != 0))
                << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", "
                << ::testing::PrintToString(delimiters) << ", flags " << flags;
        }
    }
}

TEST(Tokenize, GetsThroughAMillionCharacters) {
    std::wstring text;
    for (int i = 0; i < 500000; ++i) {
        text += L"a,";
    }
    std::wstring delimiters = L",";
    for (wchar_t c = 0x4E00; c < 0x9E00; ++c) {
        delimiters += c;
    }
    BrimStringVector out;
    BaseStringUtil::Tokenize(brim(text), brim(delimiters), out, true, true);
    EXPECT_EQ(out.size(), 1000000U);
    BaseStringUtil::Tokenize(brim(std::wstring(1000000, L'\u4E01')), brim(delimiters), out, false, true);
    EXPECT_EQ(out.size(), 1000000U);
    BaseStringUtil::Tokenize(brim(std::wstring(1000000, L'x')), brim(delimiters), out, false, true);
    ASSERT_EQ(out.size(), 1U);
    EXPECT_EQ(out[0].length(), 1000000U);
}

// ---- TokenizeWithEscape -----------------------------------------------------------------------------------

TEST(TokenizeWithEscape, AnEscapedDelimiterBelongsToItsToken) {
    BrimStringVector out = marked();
    BaseStringUtil::TokenizeWithEscape(BrimString(L"a\\,b,c"), L',', L'\\', out);
    EXPECT_EQ(plain(out), (Texts{L"a,b", L"c"}));
    BaseStringUtil::TokenizeWithEscape(BrimString(L"a\\\\,b\\c"), L',', L'\\', out);
    EXPECT_EQ(plain(out), (Texts{L"a\\", L"bc"}));
}

TEST(TokenizeWithEscape, KeepsTheEscapeBeforeOtherCharactersWhenAsked) {
    EXPECT_EQ(tokenizedWithEscape(L"a\\,b\\c\\\\", L',', L'\\', true), (Texts{L"a,b\\c\\\\"}));
    EXPECT_EQ(tokenizedWithEscape(L"a\\,b\\c\\\\", L',', L'\\', false), (Texts{L"a,bc\\"}));
}

TEST(TokenizeWithEscape, KeepsEmptyTokensButForATrailingOne) {
    EXPECT_EQ(tokenizedWithEscape(L",a,,b,", L',', L'\\', false), (Texts{L"", L"a", L"", L"b"}));
    EXPECT_EQ(tokenizedWithEscape(L",", L',', L'\\', false), (Texts{L""}));
}

TEST(TokenizeWithEscape, ALoneTrailingEscapeVanishes) {
    EXPECT_EQ(tokenizedWithEscape(L"a\\", L',', L'\\', true), (Texts{L"a"}));
    EXPECT_EQ(tokenizedWithEscape(L"a,\\", L',', L'\\', true), (Texts{L"a"}));
    EXPECT_EQ(tokenizedWithEscape(L"\\", L',', L'\\', true), Texts());
}

TEST(TokenizeWithEscape, AnEmptyTextLeavesTheVectorUntouched) {
    EXPECT_EQ(tokenizedWithEscape(L"", L',', L'\\', false), (Texts{L"before"}));
}

TEST(TokenizeWithEscape, AnEscapeThatIsTheDelimiterEscapes) {
    EXPECT_EQ(tokenizedWithEscape(L"a,,b,c", L',', L',', false), (Texts{L"a,bc"}));
}

TEST(TokenizeWithEscape, TheTextMayBeAnElementOfTheVector) {
    BrimStringVector out = {BrimString(L"x,y")};
    BaseStringUtil::TokenizeWithEscape(out[0], L',', L'\\', out);
    EXPECT_EQ(plain(out), (Texts{L"x", L"y"}));
}

TEST(TokenizeWithEscape, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7502;
    RandomTexts random(kSeed);
    const std::wstring_view alphabet(L"ab,\\\0", 5);
    for (int i = 0; i < 20000; ++i) {
        const std::wstring text = random.text(alphabet, 16);
        const wchar_t delimiter = alphabet[random.below(alphabet.size())];
        const wchar_t escape = alphabet[random.below(alphabet.size())];
        for (const bool keepEscape : {false, true}) {
            ASSERT_EQ(tokenizedWithEscape(text, delimiter, escape, keepEscape),
                      modelEscapedTokens(text, delimiter, escape, keepEscape))
                << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", "
                << static_cast<int>(delimiter) << ", " << static_cast<int>(escape) << ", " << keepEscape;
        }
    }
}

TEST(TokenizeWithEscape, GetsThroughAMillionCharacters) {
    BrimStringVector out;
    BaseStringUtil::TokenizeWithEscape(BrimString(1000000, L','), L',', L'\\', out);
    EXPECT_EQ(out.size(), 1000000U);
    BaseStringUtil::TokenizeWithEscape(BrimString(1000000, L'\\'), L',', L'\\', out);
    ASSERT_EQ(out.size(), 1U);
    EXPECT_EQ(out[0].length(), 500000U);
}

// ---- AppendToString, SplitStringBySize --------------------------------------------------------------------

TEST(AppendToString, JoinsTheParts) {
    const BrimStringVector parts = {BrimString(L"a"), BrimString(), BrimString(L"b")};
    BrimString out(L"x");
    BaseStringUtil::AppendToString(parts, out, false);
    EXPECT_EQ(plain(out), L"xab");
    BaseStringUtil::AppendToString(parts, out, true);
    EXPECT_EQ(plain(out), L"xaba\n\nb") << "a line feed before each part but the first";
    BaseStringUtil::AppendToString(BrimStringVector(), out, true);
    EXPECT_EQ(plain(out), L"xaba\n\nb");
}

TEST(SplitStringBySize, GivesPiecesOfTheSizeAndAShorterLastOne) {
    const std::wstring text = L"abcdefgh";
    const auto split = [&](std::size_t size) {
        BrimStringVector out = marked();
        BaseStringUtil::SplitStringBySize(brim(text), out, size);
        return plain(out);
    };
    EXPECT_EQ(split(1), (Texts{L"a", L"b", L"c", L"d", L"e", L"f", L"g", L"h"}));
    EXPECT_EQ(split(3), (Texts{L"abc", L"def", L"gh"}));
    EXPECT_EQ(split(4), (Texts{L"abcd", L"efgh"}));
    EXPECT_EQ(split(8), (Texts{text}));
    EXPECT_EQ(split(9), (Texts{text}));
    EXPECT_EQ(split(static_cast<std::size_t>(-1)), (Texts{text}));
    EXPECT_EQ(split(0), (Texts{text})) << "the whole text";
}

TEST(SplitStringBySize, AnEmptyTextGivesNoPiece) {
    for (const std::size_t size : {0U, 1U, 5U}) {
        BrimStringVector out = marked();
        BaseStringUtil::SplitStringBySize(BrimString(), out, size);
        EXPECT_TRUE(out.empty());
    }
    BrimStringVector own = {BrimString(L"abc")};
    BaseStringUtil::SplitStringBySize(own[0], own, 2);
    EXPECT_EQ(plain(own), (Texts{L"ab", L"c"})) << "the text may be an element of the vector";
}

// ---- UnescapeLikePattern ----------------------------------------------------------------------------------

TEST(UnescapeLikePattern, ResolvesEscapes) {
    const auto unescaped = [](std::wstring_view text) {
        return plain(BaseStringUtil::UnescapeLikePattern(brim(text)));
    };
    EXPECT_EQ(unescaped(L"100\\%"), L"100%");
    EXPECT_EQ(unescaped(L"a\\_b\\\\c"), L"a_b\\c");
    EXPECT_EQ(unescaped(L"%_,"), L"%_,");
    EXPECT_EQ(unescaped(L"\\a\\"), L"a");
}

TEST(UnescapeLikePattern, APatternThatLeavesNothingFailsTheAssertion) {
    for (const wchar_t* const pattern : {L"", L"\\"}) {
        const ChildResult result =
            runInChild([&] { BaseStringUtil::UnescapeLikePattern(BrimString(pattern)); });
        EXPECT_EQ(result.signal(), SIGABRT) << result;
        const std::string expected = "Internal Assertion: Condition sv.size() > 0, file "
                                     "server/Utility/Generic/Portable/Src/SUPBaseStringUtil";
        EXPECT_EQ(result.output.substr(0, expected.size()), expected);
        EXPECT_EQ(result.output.find('\n'), result.output.size() - 1) << "one line: " << result;
    }
}

} // namespace
