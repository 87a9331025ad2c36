// Replacing, and the word tests that it uses, next to a naive replacer.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "replace_model.h"
#include "test_locale.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace {

using brimtest::brim;
using brimtest::encloses;
using brimtest::modelReplace;
using brimtest::plain;
using brimtest::RandomTexts;
using brimtest::Replaced;
using brimtest::separates;

bool replace(std::wstring& text, std::wstring_view from, std::wstring_view to, bool caseSensitive,
             bool wholeWord) {
    BrimString given = brim(text);
    const BrimString shared = given;
    const bool any = BaseStringUtil::ReplaceSubstring(given, brim(from), brim(to), caseSensitive, wholeWord);
    EXPECT_EQ(plain(shared), text) << "a copy made before";
    text = plain(given);
    return any;
}

// ---- Words ------------------------------------------------------------------------------------------------

TEST(IsWordSeparator, KnowsItsExactSet) {
    for (const char* const name : {"C", "C.utf8"}) {
        const brimtest::ScopedLocale locale(name);
        ASSERT_TRUE(locale.isSet());
        for (wchar_t c = 0; c < 0x3100; ++c) {
            ASSERT_EQ(BaseStringUtil::IsWordSeparator(c), separates(c))
                << static_cast<long>(c) << " in " << name;
        }
        for (const unsigned int c : {0x80000000U, 0x8000002EU, 0xFFFFFFFFU, 0x1F600U}) {
            ASSERT_FALSE(BaseStringUtil::IsWordSeparator(static_cast<wchar_t>(c))) << c;
        }
    }
    EXPECT_FALSE(BaseStringUtil::IsWordSeparator(L'_'));
    EXPECT_TRUE(BaseStringUtil::IsWordSeparator(L'-'));
    for (const wchar_t c : std::wstring(L"#$%_`aZ09")) {
        EXPECT_FALSE(BaseStringUtil::IsWordSeparator(c)) << static_cast<long>(c);
    }
    EXPECT_FALSE(BaseStringUtil::IsWordSeparator(L'\0'));
}

TEST(IsWordSeparator, LooksAtACharacterOfAText) {
    const BrimString text(L"a-b_");
    EXPECT_FALSE(BaseStringUtil::IsWordSeparator(text, 0));
    EXPECT_TRUE(BaseStringUtil::IsWordSeparator(text, 1));
    EXPECT_FALSE(BaseStringUtil::IsWordSeparator(text, 3));
}

TEST(IsSelfEnclosedWord, IsATextInOnePairOfMarks) {
    for (const wchar_t* const text : {L"\"a\"", L"''", L"(a)", L"<a b>", L"[]", L"{a}"}) {
        EXPECT_TRUE(BaseStringUtil::IsSelfEnclosedWord(BrimString(text))) << text;
    }
    for (const wchar_t* const text :
         {L"", L"(", L"'", L"\"", L")a(", L"(a]", L"a", L"aa", L"><", L"\"'", L"||", L" (a)"}) {
        EXPECT_FALSE(BaseStringUtil::IsSelfEnclosedWord(BrimString(text))) << text;
    }
    constexpr std::wstring_view kMarks = L"\"'()<>[]{}a|";
    for (const wchar_t first : kMarks) {
        for (const wchar_t last : kMarks) {
            const std::wstring text = {first, L'x', last};
            EXPECT_EQ(BaseStringUtil::IsSelfEnclosedWord(brim(text)), encloses(text)) << text;
        }
    }
}

// ---- ReplacePatternInString -------------------------------------------------------------------------------

TEST(ReplacePatternInString, ReplacesFromLeftToRightWithoutOverlap) {
    const auto replaced = [](const wchar_t* text, const wchar_t* from, const wchar_t* to) {
        return plain(
            BaseStringUtil::ReplacePatternInString(BrimString(text), BrimString(from), BrimString(to)));
    };
    EXPECT_EQ(replaced(L"aaa", L"aa", L"b"), L"ba");
    EXPECT_EQ(replaced(L"aaaa", L"aa", L"a"), L"aa") << "what was put in is not searched";
    EXPECT_EQ(replaced(L"ababa", L"aba", L""), L"ba");
    EXPECT_EQ(replaced(L"abc", L"", L"x"), L"abc") << "an empty pattern is never found";
    EXPECT_EQ(replaced(L"", L"a", L"x"), L"");
    EXPECT_EQ(replaced(L"abc", L"abc", L""), L"");
    EXPECT_EQ(replaced(L"aXa", L"x", L"y"), L"aXa") << "case counts";
    EXPECT_EQ(replaced(L"it's", L"'", L"''"), L"it''s");
}

// ---- ReplaceSubstring -------------------------------------------------------------------------------------

TEST(ReplaceSubstring, TellsWhetherAnythingWasReplaced) {
    std::wstring text = L"one two one";
    EXPECT_TRUE(replace(text, L"one", L"1", true, false));
    EXPECT_EQ(text, L"1 two 1");
    EXPECT_FALSE(replace(text, L"one", L"1", true, false));
    EXPECT_FALSE(replace(text, L"ONE", L"2", false, true));
    EXPECT_EQ(text, L"1 two 1");
    std::wstring empty;
    EXPECT_FALSE(replace(empty, L"a", L"b", false, true));
    EXPECT_FALSE(replace(empty, L"", L"b", true, false));
}

TEST(ReplaceSubstring, EqualPatternAndReplacementChangeNothing) {
    std::wstring text = L"Abc abc";
    for (const bool wholeWord : {false, true}) {
        EXPECT_FALSE(replace(text, L"abc", L"abc", true, wholeWord));
        EXPECT_FALSE(replace(text, L"abc", L"ABC", false, wholeWord)) << "they differ by case only";
        EXPECT_EQ(text, L"Abc abc");
    }
    EXPECT_TRUE(replace(text, L"abc", L"ABC", true, false));
    EXPECT_EQ(text, L"Abc ABC");
}

TEST(ReplaceSubstring, WholeWordsStandBetweenSeparatorsAndTheEnds) {
    std::wstring text = L"cat concat cat_1 (cat) cat";
    EXPECT_TRUE(replace(text, L"cat", L"dog", true, true));
    EXPECT_EQ(text, L"dog concat cat_1 (dog) dog");
    text = L"CAT-scan #cat";
    EXPECT_TRUE(replace(text, L"cat", L"dog", false, true));
    EXPECT_EQ(text, L"dog-scan #cat");
    text = L"aab aaa";
    EXPECT_TRUE(replace(text, L"aaa", L"x", true, true)) << "after hits that do not count";
    EXPECT_EQ(text, L"aab x");
}

TEST(ReplaceSubstring, ASelfEnclosedWordIsReplacedEverywhere) {
    std::wstring text = L"a[x]b [x] [X]c";
    EXPECT_TRUE(replace(text, L"[x]", L"y", true, true));
    EXPECT_EQ(text, L"ayb y [X]c");
    EXPECT_TRUE(replace(text, L"[x]", L"z", false, true));
    EXPECT_EQ(text, L"ayb y zc");
}

TEST(ReplaceSubstring, AnEmptyPatternNeverMatches) {
    std::wstring text = L"ab";
    for (int flags = 0; flags < 4; ++flags) {
        EXPECT_FALSE(replace(text, L"", L"x", (flags & 1) != 0, (flags & 2) != 0)) << flags;
        EXPECT_EQ(text, L"ab");
    }
}

TEST(ReplaceSubstring, TheArgumentsMayBeTheText) {
    BrimString text(L"ab");
    EXPECT_TRUE(BaseStringUtil::ReplaceSubstring(text, BrimString(L"b"), text, true, false));
    EXPECT_EQ(plain(text), L"aab");
    EXPECT_TRUE(BaseStringUtil::ReplaceSubstring(text, text, BrimString(L"c"), false, true));
    EXPECT_EQ(plain(text), L"c");
}

TEST(ReplaceSubstring, AgreesWithTheModelOnRandomTexts) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    constexpr std::uint64_t kSeed = 7601;
    RandomTexts random(kSeed);
    for (const std::wstring_view alphabet : {std::wstring_view(L"aA -"), std::wstring_view(L"ab()_"),
                                             std::wstring_view(L"x'\u03C3\u03C2\u03A3 ")}) {
        for (int i = 0; i < 8000 && !HasFailure(); ++i) {
            const std::wstring text = random.text(alphabet, 20);
            const std::wstring from = random.text(alphabet, 4);
            const std::wstring to = random.text(alphabet, 4);
            for (int flags = 0; flags < 4; ++flags) {
                const bool caseSensitive = (flags & 1) != 0;
                const bool wholeWord = (flags & 2) != 0;
                SCOPED_TRACE(::testing::Message()
                             << "seed " << kSeed << ", flags " << flags << ": "
                             << ::testing::PrintToString(text) << ", " << ::testing::PrintToString(from)
                             << ", " << ::testing::PrintToString(to));
                const Replaced expected = modelReplace(text, from, to, caseSensitive, wholeWord);
                std::wstring changed = text;
                EXPECT_EQ(replace(changed, from, to, caseSensitive, wholeWord), expected.any);
                EXPECT_EQ(changed, expected.text);
            }
        }
    }
}

TEST(ReplaceSubstring, GetsThroughAMillionHits) {
    constexpr std::size_t kHits = 1000000;
    for (int flags = 0; flags < 4; ++flags) {
        std::wstring text;
        for (std::size_t i = 0; i < kHits; ++i) {
            text += L"a ";
        }
        EXPECT_TRUE(replace(text, L"a", L"bc", (flags & 1) != 0, (flags & 2) != 0));
        ASSERT_EQ(text.size(), 3 * kHits);
        EXPECT_EQ(text.substr(text.size() - 6), L"bc bc ");
    }
}

TEST(ReplaceSubstring, GetsThroughHitsThatAreNoWords) {
    std::wstring text(3000000, L'a');
    const std::wstring before = text;
    const std::wstring from(1500000, L'a');
    EXPECT_FALSE(replace(text, from, L"b", true, true));
    EXPECT_FALSE(replace(text, from, L"b", false, true));
    EXPECT_TRUE(text == before);
}

} // namespace
