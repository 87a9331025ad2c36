// Clean-up of texts, and fragments of plain and marked-up ones.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "fragments_model.h"
#include "test_locale.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cwctype>
#include <string>
#include <string_view>

namespace {

using brimtest::brim;
using brimtest::modelEndTags;
using brimtest::modelFragment;
using brimtest::modelLineFeeds;
using brimtest::plain;
using brimtest::RandomTexts;

std::wstring textFragment(std::wstring_view text, std::size_t n) {
    return plain(BaseStringUtil::GetTextFragment(brim(text), n));
}
std::wstring looseFragment(std::wstring_view text, std::size_t n) {
    return plain(BaseStringUtil::GetNonWellFormedTextFragment(brim(text), n));
}
std::wstring htmlFragment(std::wstring_view text, std::size_t n) {
    return plain(BaseStringUtil::GetHTMLFragment(brim(text), n));
}
std::wstring oneLine(std::wstring_view text) {
    BrimString given = brim(text);
    BaseStringUtil::MakeOneLineString(given);
    return plain(given);
}
std::wstring withCarriageReturns(std::wstring_view text) {
    return plain(BaseStringUtil::LineFeedConversion(brim(text)));
}

std::wstring repeated(std::wstring_view unit, std::size_t times) {
    std::wstring text;
    for (std::size_t i = 0; i < times; ++i) {
        text += unit;
    }
    return text;
}

// ---- LineFeedConversion, MakeOneLineString ----------------------------------------------------------------

TEST(LineFeedConversion, PutsACarriageReturnBeforeLoneLineFeeds) {
    EXPECT_EQ(withCarriageReturns(L"a\nb\r\nc"), L"a\r\nb\r\nc");
    EXPECT_EQ(withCarriageReturns(L"\n"), L"\r\n");
    EXPECT_EQ(withCarriageReturns(L"\n\n"), L"\r\n\r\n");
    EXPECT_EQ(withCarriageReturns(L"\r\r\n\n\r"), L"\r\r\n\r\n\r");
    EXPECT_EQ(withCarriageReturns(L"abc\r\n"), L"abc\r\n");
    EXPECT_EQ(withCarriageReturns(L""), L"");
    EXPECT_EQ(withCarriageReturns(std::wstring_view(L"\0\n", 2)), std::wstring(L"\0\r\n", 3));
}

TEST(LineFeedConversion, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7901;
    RandomTexts random(kSeed);
    for (int i = 0; i < 5000; ++i) {
        const std::wstring text = random.text(L"\r\nab", 12);
        ASSERT_EQ(withCarriageReturns(text), modelLineFeeds(text)) << "seed " << kSeed;
    }
}

TEST(MakeOneLineString, MakesEachRunOfBreaksAndTabsOneBlank) {
    EXPECT_EQ(oneLine(L"a\r\n\tb\nc"), L"a b c");
    EXPECT_EQ(oneLine(L"\n a  b \r\n"), L"a  b") << "other blanks stay inside, and go at the ends";
    EXPECT_EQ(oneLine(L"a \n b"), L"a   b");
    EXPECT_EQ(oneLine(L"a\v\fb\u0085\u2028\u2029c"), L"a b c");
    EXPECT_EQ(oneLine(L"\n\t"), L"");
    EXPECT_EQ(oneLine(L""), L"");
    EXPECT_EQ(oneLine(L"abc"), L"abc");
}

// ---- RemoveNonPrintableChars, RemovePunctuationChars ------------------------------------------------------

TEST(RemoveCharacters, DropsWhatTheCLibraryNames) {
    for (const char* const name : {"C", "C.utf8"}) {
        const brimtest::ScopedLocale locale(name);
        ASSERT_TRUE(locale.isSet());
        for (wchar_t c = 0; c < 0x11000; ++c) {
            const std::wstring text = {L'a', c, L'a'};
            const bool isPrinted = std::iswprint(static_cast<std::wint_t>(c)) != 0;
            const bool isPunctuation = std::iswpunct(static_cast<std::wint_t>(c)) != 0;
            ASSERT_EQ(plain(BaseStringUtil::RemoveNonPrintableChars(brim(text))), isPrinted ? text : L"aa")
                << static_cast<long>(c) << " in " << name;
            ASSERT_EQ(plain(BaseStringUtil::RemovePunctuationChars(brim(text))), isPunctuation ? L"aa" : text)
                << static_cast<long>(c) << " in " << name;
        }
    }
}

TEST(RemoveCharacters, WorksOnWholeTexts) {
    EXPECT_EQ(plain(BaseStringUtil::RemoveNonPrintableChars(BrimString(L"\x01"
                                                                       L"a b\t\nc\x7F"))),
              L"a bc");
    EXPECT_EQ(plain(BaseStringUtil::RemovePunctuationChars(BrimString(L"It's: a (test)!"))), L"Its a test");
    EXPECT_TRUE(BaseStringUtil::RemoveNonPrintableChars(BrimString()).empty());
    EXPECT_TRUE(BaseStringUtil::RemovePunctuationChars(BrimString(L"...")).empty());
}

TEST(RemoveCharacters, ASurrogatePairCountsAsItsCharacter) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    ASSERT_NE(std::iswprint(0x1F600), 0);
    ASSERT_NE(std::iswpunct(0x1F600), 0);
    ASSERT_NE(std::iswalpha(0x10400), 0);
    const std::wstring text = L"a\xD83D\xDE00\xD801\xDC00"; // an emoji and a letter
    EXPECT_EQ(plain(BaseStringUtil::RemoveNonPrintableChars(brim(text))), text);
    EXPECT_EQ(plain(BaseStringUtil::RemovePunctuationChars(brim(text))), L"a\xD801\xDC00");
    EXPECT_EQ(plain(BaseStringUtil::RemoveNonPrintableChars(brim(L"a\xD83Dz\xDE00"))), L"az")
        << "halves are none";
}

// ---- GetTextFragment --------------------------------------------------------------------------------------

TEST(GetTextFragment, CutsAtTheEndOfAWord) {
    EXPECT_EQ(textFragment(L"hello brave world", 17), L"hello brave world");
    EXPECT_EQ(textFragment(L"hello brave world", 16), L"hello brave");
    EXPECT_EQ(textFragment(L"hello brave world", 12), L"hello brave");
    EXPECT_EQ(textFragment(L"hello brave world", 11), L"hello brave");
    EXPECT_EQ(textFragment(L"hello brave world", 10), L"hello");
    EXPECT_EQ(textFragment(L"hello brave world", 5), L"hello");
    EXPECT_EQ(textFragment(L"hello\tbrave", 8), L"hello");
    EXPECT_EQ(textFragment(L"hello  brave", 7), L"hello");
}

TEST(GetTextFragment, AWordThatIsTooLongIsCutInside) {
    EXPECT_EQ(textFragment(L"hello brave", 4), L"hell");
    EXPECT_EQ(textFragment(L"  hello", 4), L"  he");
    EXPECT_EQ(textFragment(L"hello", 0), L"");
    EXPECT_EQ(textFragment(L"     x", 3), L"");
}

TEST(GetTextFragment, ATextThatIsNotLongerStaysAsItIs) {
    EXPECT_EQ(textFragment(L"ab  ", 4), L"ab  ");
    EXPECT_EQ(textFragment(L"ab  ", static_cast<std::size_t>(-1)), L"ab  ");
    EXPECT_EQ(textFragment(L"", 0), L"");
}

TEST(GetTextFragment, NeverCutsASurrogatePair) {
    EXPECT_EQ(textFragment(L"ab\xD83D\xDE00z", 3), L"ab");
    EXPECT_EQ(textFragment(L"ab\xD83D\xDE00z", 4), L"ab\xD83D\xDE00");
    EXPECT_EQ(textFragment(L"\xD83D\xDE00z", 1), L"");
    EXPECT_EQ(textFragment(L"\xD83Dzz", 1), L"\xD83D") << "a lone half is a character";
}

TEST(GetTextFragment, MarkupIsText) {
    EXPECT_EQ(textFragment(L"<b>a b c", 6), L"<b>a b");
    EXPECT_EQ(textFragment(L"&amp; x", 3), L"&am");
}

// ---- GetNonWellFormedTextFragment, GetHTMLFragment --------------------------------------------------------

TEST(MarkedUpFragment, TagsAndCommentsNeitherCountNorAreCut) {
    const wchar_t* const text = L"<p class=\"x y\">Hello <b>brave</b> <!-- no > end -->world</p>";
    EXPECT_EQ(looseFragment(text, 17), text);
    EXPECT_EQ(looseFragment(text, 16), L"<p class=\"x y\">Hello <b>brave");
    EXPECT_EQ(looseFragment(text, 11), L"<p class=\"x y\">Hello <b>brave");
    EXPECT_EQ(looseFragment(text, 8), L"<p class=\"x y\">Hello");
    EXPECT_EQ(looseFragment(text, 3), L"<p class=\"x y\">Hel");
    EXPECT_EQ(looseFragment(text, 0), L"");
}

TEST(MarkedUpFragment, AReferenceCountsAsOneCharacter) {
    EXPECT_EQ(looseFragment(L"&lt;&#x1F600;abcd", 4), L"&lt;&#x1F600;ab");
    EXPECT_EQ(looseFragment(L"a&b;c d", 3), L"a&b;c");
    EXPECT_EQ(looseFragment(L"a & b; cdefgh", 3), L"a &") << "no reference: a blank is inside";
}

TEST(MarkedUpFragment, AWordMayReachAcrossTags) {
    EXPECT_EQ(looseFragment(L"one t<b>w</b>o three", 5), L"one");
    EXPECT_EQ(looseFragment(L"one t<b>w</b>o three", 7), L"one t<b>w</b>o");
}

TEST(MarkedUpFragment, ATextThatFitsWithoutItsTagsStaysAsItIs) {
    EXPECT_EQ(looseFragment(L"<b>x</b> ", 5), L"<b>x</b> ") << "blanks at its end too";
    EXPECT_EQ(htmlFragment(L"<b>x</b> ", 2), L"<b>x</b> ");
}

TEST(MarkedUpFragment, AnUnclosedTagOrCommentIsText) {
    EXPECT_EQ(looseFragment(L"a <b c d", 4), L"a <b");
    EXPECT_EQ(looseFragment(L"<!-- <b>x</b> yz zy", 9), L"<!-- <b>x</b> yz")
        << "a tag behind it is none the less one";
    EXPECT_EQ(htmlFragment(L"<!-- <b>xyz zy", 8), L"<!-- <b>xyz</b>");
    EXPECT_EQ(htmlFragment(L"<!-- <b>xyz</b> z", 100), L"<!-- <b>xyz</b> z");
}

TEST(MarkedUpFragment, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7902;
    RandomTexts random(kSeed);
    const std::wstring_view pieces[] = {L"<b>",         L"</b>",
                                        L"<",           L">",
                                        L"<!--",        L"-->",
                                        L"a",           L"bc",
                                        L" ",           L"\n",
                                        L"&amp;",       L"&",
                                        L";",           L"\xD83D\xDE00",
                                        L"\xD83D",      L"\xDE00",
                                        L"<i x='y z'>", L"&longlonglong;",
                                        L"-",           L"!"};
    for (int i = 0; i < 20000; ++i) {
        std::wstring text;
        for (std::size_t count = random.below(14); count != 0; --count) {
            text += pieces[random.below(std::size(pieces))];
        }
        const std::size_t n = random.below(text.size() + 2);
        ASSERT_EQ(textFragment(text, n), modelFragment(text, n, false))
            << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", " << n;
        const std::wstring loose = looseFragment(text, n);
        ASSERT_EQ(loose, modelFragment(text, n, true))
            << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", " << n;
        ASSERT_EQ(htmlFragment(text, n), loose + modelEndTags(loose))
            << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", " << n;
    }
}

TEST(GetHTMLFragment, ClosesWhatIsOpenAtTheCut) {
    const wchar_t* const text = L"<div><p>Hello <b>brave</b> world</p></div>";
    EXPECT_EQ(htmlFragment(text, 17), text);
    EXPECT_EQ(htmlFragment(text, 12), L"<div><p>Hello <b>brave</b></p></div>");
    EXPECT_EQ(htmlFragment(text, 5), L"<div><p>Hello</p></div>");
    EXPECT_EQ(htmlFragment(text, 0), L"");
}

TEST(GetHTMLFragment, ElementsThatHoldNothingNeedNoEndTag) {
    EXPECT_EQ(htmlFragment(L"<p>a<br>b<img src=x>c<hr/>d efg", 6), L"<p>a<br>b<img src=x>c<hr/>d</p>");
    EXPECT_EQ(htmlFragment(L"<p>a<BR>b<x/>c<!doctype y><?z?> def", 5), L"<p>a<BR>b<x/>c</p>");
}

TEST(GetHTMLFragment, NamesMatchInAnyCase) {
    EXPECT_EQ(htmlFragment(L"<DIV><B>ab</b> cd", 2), L"<DIV><B>ab</b></div>");
}

TEST(GetHTMLFragment, AnEndTagClosesWhatIsOpenInside) {
    EXPECT_EQ(htmlFragment(L"<ul><li>a<li>b</ul>c def", 3), L"<ul><li>a<li>b</ul>c");
    EXPECT_EQ(htmlFragment(L"<p>a</b>b cde", 2), L"<p>a</b>b</p>")
        << "one without its element closes nothing";
    EXPECT_EQ(htmlFragment(L"</></p><>a bcd", 1), L"</></p><>a");
}

TEST(GetHTMLFragment, OpenElementsOfAWholeTextAreClosedToo) {
    EXPECT_EQ(htmlFragment(L"<i>a", 99), L"<i>a</i>");
    EXPECT_EQ(htmlFragment(L"", 99), L"");
}

TEST(GetHTMLFragment, TagsInsideCommentsAreNone) {
    EXPECT_EQ(htmlFragment(L"<p>a<!-- <b> -->b cde", 2), L"<p>a<!-- <b> -->b</p>");
}

TEST(GetHTMLFragment, GetsThroughHostileMarkup) {
    constexpr std::size_t kDepth = 100000;
    const std::wstring nested = repeated(L"<b>", kDepth) + L"x y";
    EXPECT_EQ(htmlFragment(nested, 1).size(), 7 * kDepth + 1);
    EXPECT_EQ(htmlFragment(nested + repeated(L"</b>", kDepth), 1).size(), 7 * kDepth + 1);
    const std::wstring closing = repeated(L"<i><b>", kDepth / 2) + repeated(L"</i>", kDepth / 2) + L"x";
    EXPECT_EQ(htmlFragment(closing, 1), closing);
    // Names of their own, and end tags without elements.
    std::wstring names;
    for (std::size_t i = 0; i < kDepth; ++i) {
        names += L"<a" + std::to_wstring(i) + L"></c" + std::to_wstring(i) + L'>';
    }
    EXPECT_GT(htmlFragment(names + L"x", 1).size(), names.size());
    // Beginnings that nothing ends.
    for (const std::wstring_view unit :
         {std::wstring_view(L"<"), std::wstring_view(L"<a"), std::wstring_view(L"<!--"),
          std::wstring_view(L"&"), std::wstring_view(L"<!-- -"), std::wstring_view(L"<a <!--")}) {
        const std::wstring text = repeated(unit, 2 * kDepth);
        EXPECT_TRUE(htmlFragment(text, text.size()) == text);
        EXPECT_EQ(htmlFragment(text, text.size() - 1).substr(0, unit.size()), unit);
    }
    // Beginnings of comments with one end of a tag behind them all.
    const std::wstring comments = repeated(L"<!--", 2 * kDepth) + L"<i>x y";
    EXPECT_EQ(htmlFragment(comments, 8 * kDepth + 1), repeated(L"<!--", 2 * kDepth) + L"<i>x</i>");
}

// ---- ExtractTextSegmentIntoString -------------------------------------------------------------------------

TEST(ExtractTextSegmentIntoString, TakesWhatIsBetweenTheMarks) {
    const auto extract = [](const wchar_t* text, const wchar_t* open, const wchar_t* close) {
        BrimString out(L"before");
        const bool found = BaseStringUtil::ExtractTextSegmentIntoString(BrimString(text), open, close, out);
        EXPECT_TRUE(found || out.empty()) << text;
        return found ? plain(out) : L"(none)";
    };
    EXPECT_EQ(extract(L"a <<b>> c", L"<<", L">>"), L"b");
    EXPECT_EQ(extract(L"(a)(b)", L"(", L")"), L"a") << "the first";
    EXPECT_EQ(extract(L")x(a)", L"(", L")"), L"a") << "an end before the beginning does not count";
    EXPECT_EQ(extract(L"()", L"(", L")"), L"");
    EXPECT_EQ(extract(L"((a))", L"(", L")"), L"(a") << "marks do not nest";
    EXPECT_EQ(extract(L"|a|b|", L"|", L"|"), L"a");
    EXPECT_EQ(extract(L"<<<x", L"<<", L"<"), L"") << "behind the whole mark";
    EXPECT_EQ(extract(L"(a", L"(", L")"), L"(none)");
    EXPECT_EQ(extract(L"a)", L"(", L")"), L"(none)");
    EXPECT_EQ(extract(L"(", L"(", L"("), L"(none)") << "one mark is not both";
    EXPECT_EQ(extract(L"", L"(", L")"), L"(none)");
    EXPECT_EQ(extract(L"a)", nullptr, L")"), L"a") << "a null mark is the empty one";
    EXPECT_EQ(extract(L"(a", L"(", nullptr), L"");
}

TEST(ExtractTextSegmentIntoString, TheResultMayReplaceItsText) {
    BrimString text(L"x[key]y");
    EXPECT_TRUE(BaseStringUtil::ExtractTextSegmentIntoString(text, L"[", L"]", text));
    EXPECT_EQ(plain(text), L"key");
    EXPECT_FALSE(BaseStringUtil::ExtractTextSegmentIntoString(text, L"[", L"]", text));
    EXPECT_TRUE(text.empty());
}

} // namespace
