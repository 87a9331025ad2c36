// Trimming, padding, case, and comparison without regard to case, next to the C library's character
// functions.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "CaseFolding.h"
#include "case_model.h"
#include "child_process.h"
#include "guarded_buffer.h"
#include "kernel_levels.h"
#include "test_locale.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cwchar>
#include <cwctype>
#include <filesystem>
#include <future>
#include <locale.h>
#include <string>
#include <thread>
#include <vector>

namespace {

using brimtest::brim;
using brimtest::compareTrimming;
using brimtest::compareWithoutCase;
using brimtest::lower;
using brimtest::mappedText;
using brimtest::plain;
using brimtest::RandomTexts;
using brimtest::trimmed;
using brimtest::upper;

void compareEveryCharacterWithTheCLibrary() {
    std::wstring all;
    for (wchar_t c = 1; c < 0x11000; ++c) {
        all += c;
    }
    all += L"\U0001F600\U00010400\U0010FFFF";
    std::wstring buffer(all.size() + 1, L'#');
    BaseStringUtil::ToLowerCase(all.c_str(), buffer.data());
    EXPECT_TRUE(std::wstring(buffer.c_str()) == mappedText(all, lower));
    BaseStringUtil::ToUpperCase(all.c_str(), buffer.data());
    EXPECT_TRUE(std::wstring(buffer.c_str()) == mappedText(all, upper));
    EXPECT_TRUE(plain(BaseStringUtil::ToLowerCase(brim(all))) == mappedText(all, lower));
    EXPECT_TRUE(plain(BaseStringUtil::ToUpperCase(brim(all))) == mappedText(all, upper));
    for (const wchar_t c : all) {
        const std::wstring text = {c, L'x', c};
        ASSERT_EQ(plain(BaseStringUtil::TrimBoth(brim(text))), trimmed(text, true, true))
            << static_cast<long>(c);
    }
}

void compareAtRandom(std::uint64_t seed, std::wstring_view alphabet) {
    RandomTexts random(seed);
    for (int i = 0; i < 6000 && !::testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed << ", round " << i);
        const std::wstring a = random.text(alphabet, 8);
        std::wstring b =
            random.flip() ? random.text(alphabet, 8) : mappedText(a, random.flip() ? lower : upper);
        if (random.below(4) == 0 && !b.empty()) {
            b = b.substr(random.below(b.size()), random.below(b.size() + 1));
        }
        compareWithoutCase(a, b);
    }
}

constexpr std::wstring_view kLetters =
    L"aAbBiI\u0130\u0131\u00E9\u00C9\u00DF\u1E9E\u03C3\u03A3\u03C2\u01C5 z";

// ---- Trimming and padding ---------------------------------------------------------------------------------

TEST(Trim, RemovesBlanksFromTheAskedEnds) {
    const BrimString text(L" \t a b \r\n");
    EXPECT_EQ(plain(BaseStringUtil::TrimBoth(text)), L"a b");
    EXPECT_EQ(plain(BaseStringUtil::TrimTrailingBlanks(text)), L" \t a b");
    EXPECT_EQ(plain(BaseStringUtil::CleanLeadingBlanksInString(text)), L"a b \r\n");
    for (const wchar_t* const blank : {L"", L" ", L" \t\n\v\f\r "}) {
        EXPECT_EQ(plain(BaseStringUtil::TrimBoth(BrimString(blank))), L"");
        EXPECT_EQ(plain(BaseStringUtil::TrimTrailingBlanks(BrimString(blank))), L"");
        EXPECT_EQ(plain(BaseStringUtil::CleanLeadingBlanksInString(BrimString(blank))), L"");
    }
    EXPECT_TRUE(BaseStringUtil::TrimBoth(BrimString()).empty());
}

TEST(Trim, LeavesTheGivenStringAlone) {
    const BrimString text(L" a ");
    BaseStringUtil::TrimBoth(text);
    EXPECT_EQ(plain(text), L" a ");
    EXPECT_EQ(plain(BaseStringUtil::TrimBoth(brim(std::wstring(L"\0 \0", 3)))), std::wstring(L"\0 \0", 3))
        << "a zero is no blank";
}

TEST(Trim, AgreesWithTheModelOnRandomTexts) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    constexpr std::uint64_t kSeed = 7201;
    RandomTexts random(kSeed);
    for (int i = 0; i < 5000; ++i) {
        const std::wstring text = random.text(L"  \t\n\u2003\u00A0ab", 9);
        SCOPED_TRACE(::testing::Message() << "seed " << kSeed << ", round " << i);
        compareTrimming(text);
    }
}

TEST(RightPadWithSpaces, FillsUpToExactlyTheWidth) {
    for (std::size_t length = 0; length < 20; ++length) {
        const std::wstring text(length, L'x');
        for (std::size_t width = 0; width < 40; ++width) {
            const std::wstring expected = text + std::wstring(width > length ? width - length : 0, L' ');
            ASSERT_EQ(plain(BaseStringUtil::RightPadWithSpaces(brim(text), width)), expected);
        }
    }
    EXPECT_EQ(BaseStringUtil::RightPadWithSpaces(BrimString(L"x"), 100000).length(), 100000U);
}

// ---- Case -------------------------------------------------------------------------------------------------

TEST(Case, NarrowTextsAreMappedByteByByte) {
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += static_cast<char>(c);
    }
    std::string expectedLower;
    std::string expectedUpper;
    for (const char c : all) {
        expectedLower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        expectedUpper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    std::string buffer(all.size() + 1, '#');
    BaseStringUtil::ToLowerCase(all.c_str(), buffer.data());
    EXPECT_EQ(std::string(buffer.c_str()), expectedLower);
    BaseStringUtil::ToUpperCase(all.c_str(), buffer.data());
    EXPECT_EQ(std::string(buffer.c_str()), expectedUpper);
    const sup::String<char> narrow(all.data(), all.size());
    EXPECT_STREQ(BaseStringUtil::ToLowerCase(narrow).c_str(), expectedLower.c_str());
    EXPECT_STREQ(BaseStringUtil::ToUpperCase(narrow).c_str(), expectedUpper.c_str());
    EXPECT_STREQ(narrow.c_str(), all.c_str()) << "the given string stays";
}

TEST(Case, ABufferMayBeItsOwnSource) {
    wchar_t wide[] = L"aBc";
    BaseStringUtil::ToUpperCase(wide, wide);
    EXPECT_STREQ(wide, L"ABC");
    char narrow[] = "aBc";
    BaseStringUtil::ToLowerCase(narrow, narrow);
    EXPECT_STREQ(narrow, "abc");
}

TEST(Case, StringsOfAnyLengthAreMapped) {
    for (const std::size_t length : {0U, 1U, 511U, 512U, 513U, 514U, 5000U}) {
        const std::wstring text(length, L'q');
        EXPECT_EQ(plain(BaseStringUtil::ToUpperCase(brim(text))), std::wstring(length, L'Q')) << length;
        EXPECT_EQ(plain(BaseStringUtil::ToLowerCase(brim(std::wstring(length, L'Q')))), text) << length;
        EXPECT_EQ(BaseStringUtil::ToUpperCase(sup::String<char>(length, 'q')),
                  sup::String<char>(length, 'Q'));
        EXPECT_EQ(BaseStringUtil::ToLowerCase(sup::String<char>(length, 'Q')),
                  sup::String<char>(length, 'q'));
    }
    EXPECT_TRUE(BaseStringUtil::ToLowerCase(BrimString()).empty());
}

TEST(Case, TheResultSharesNothingWithASharedString) {
    const BrimString a(L"aB");
    const BrimString b = a;
    EXPECT_EQ(plain(BaseStringUtil::ToUpperCase(b)), L"AB");
    EXPECT_EQ(plain(a), L"aB");
    EXPECT_EQ(plain(b), L"aB");
}

TEST(Case, EveryCharacterIsAsByTheCLibrary) {
    for (const char* const name : {"C", "C.utf8"}) {
        SCOPED_TRACE(name);
        const brimtest::ScopedLocale locale(name);
        ASSERT_TRUE(locale.isSet());
        compareEveryCharacterWithTheCLibrary();
    }
}

// ---- Comparison -------------------------------------------------------------------------------------------

TEST(Comparison, AgreesWithTheModels) {
    for (const char* const name : {"C", "C.utf8"}) {
        SCOPED_TRACE(name);
        const brimtest::ScopedLocale locale(name);
        ASSERT_TRUE(locale.isSet());
        compareAtRandom(7202, kLetters);
        compareAtRandom(7203, L"aAbB");
        compareAtRandom(7204, std::wstring_view(L"aA\0[_", 5));
        compareAtRandom(7205, L"Z[_z\xD800"
                              L"\uFFFF\U00010400\U00010428");
    }
}

TEST(Comparison, CharactersCompareUnsignedAndInLowerCase) {
    EXPECT_TRUE(BaseStringUtil::IsCaseInsensitiveLessThan(BrimString(L"_"), BrimString(L"A")))
        << "as _ and a";
    const std::wstring high(1, static_cast<wchar_t>(0x80000001U));
    EXPECT_TRUE(BaseStringUtil::IsNTSCaseInsensitiveLessThan(L"a", high.c_str()));
    EXPECT_FALSE(BaseStringUtil::IsNTSCaseInsensitiveLessThan(high.c_str(), L"a"));
}

TEST(Comparison, AProperPrefixIsLess) {
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveCompare(BrimString(L"AB"), BrimString(L"abc")), -1);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveCompare(BrimString(L"abc"), BrimString(L"AB")), 1);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveCompare(BrimString(L"ABC"), BrimString(L"abc")), 0);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveCompare(BrimString(), BrimString(L"a")), -1);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveCompare(BrimString(), BrimString(L"")), 0);
}

TEST(Comparison, TheOrderEndsAtAZeroAndTheMatchDoesNot) {
    const BrimString a(L"a\0x", 3);
    const BrimString b(L"A\0y", 3);
    EXPECT_FALSE(BaseStringUtil::IsCaseInsensitiveLessThan(a, b));
    EXPECT_FALSE(BaseStringUtil::IsCaseInsensitiveMatch(a, b));
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveCompare(a, b), 1);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveCompare(b, a), 1);
}

TEST(Comparison, NullTextsAreEmpty) {
    EXPECT_TRUE(BaseStringUtil::IsCaseInsensitiveMatch(BrimString(), BrimString()));
    EXPECT_TRUE(BaseStringUtil::IsNTSCaseInsensitiveMatch(nullptr, L""));
    EXPECT_FALSE(BaseStringUtil::IsNTSCaseInsensitiveMatch(L"a", nullptr));
    EXPECT_TRUE(BaseStringUtil::IsNTSCaseInsensitiveLessThan(nullptr, L"a"));
    EXPECT_EQ(BaseStringUtil::FileNameCompare(nullptr, nullptr), 0);
    EXPECT_FALSE(BaseStringUtil::CaseInsensitiveFindPattern(BrimString(), BrimString()));
}

TEST(FileNameCompare, TellsCasesApart) {
    EXPECT_NE(BaseStringUtil::FileNameCompare(L"File", L"file"), 0);
    EXPECT_EQ(BaseStringUtil::FileNameCompare(L"File", L"File"), 0);
}

TEST(CaseInsensitiveFindPattern, AnEmptyPatternOccursInEveryTextButTheEmptyOne) {
    EXPECT_TRUE(BaseStringUtil::CaseInsensitiveFindPattern(BrimString(L"x"), BrimString()));
    EXPECT_FALSE(BaseStringUtil::CaseInsensitiveFindPattern(BrimString(L""), BrimString(L"")));
    EXPECT_TRUE(BaseStringUtil::CaseInsensitiveFindPattern(BrimString(L"abCDe"), BrimString(L"BcD")));
    EXPECT_FALSE(BaseStringUtil::CaseInsensitiveFindPattern(BrimString(L"abc"), BrimString(L"abcd")));
}

TEST(CaseInsensitiveFindPattern, FoldsToSmallLettersWhereTheFindFoldsToCapitals) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    // Both small sigmas have one capital; towlower tells them apart.
    const BrimString sigma(L"\u03C3");
    const BrimString finalSigma(L"\u03C2");
    EXPECT_FALSE(BaseStringUtil::CaseInsensitiveFindPattern(sigma, finalSigma));
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveFind(sigma, finalSigma, 0), 0U);
}

// ---- Blocks of characters ---------------------------------------------------------------------------------

constexpr std::size_t kLongest = 70;

// The text at the end of what may be read.
const wchar_t* guarded(brimtest::GuardedBuffer<wchar_t>& buffer, const std::wstring& text) {
    return std::copy(text.begin(), text.end(), buffer.last(text.size())) - text.size();
}

void foldBlocks(std::uint64_t seed, std::wstring_view alphabet) {
    RandomTexts random(seed);
    brimtest::GuardedBuffer<wchar_t> source(kLongest);
    brimtest::GuardedBuffer<wchar_t> target(kLongest);
    const sup::LowerCaseFold lowerFold;
    const sup::UpperCaseFold upperFold;
    for (std::size_t n = 0; n <= kLongest; ++n) {
        for (int round = 0; round < 4; ++round) {
            const std::wstring text = random.textOf(alphabet, n);
            const wchar_t* const src = guarded(source, text);
            wchar_t* const dst = target.lastFenced(n, L'#');
            ASSERT_EQ(lowerFold.fold(src, n, dst), dst + n);
            ASSERT_EQ(std::wstring(dst, n), mappedText(text, lower)) << "seed " << seed;
            upperFold.fold(src, n, dst);
            ASSERT_EQ(std::wstring(dst, n), mappedText(text, upper)) << "seed " << seed;
            ASSERT_TRUE(target.fenceIsWhole(n, L'#'));
        }
    }
}

// Every place where two texts that are equal but for their case can differ.
void compareBlocks(std::uint64_t seed, std::wstring_view alphabet) {
    RandomTexts random(seed);
    brimtest::GuardedBuffer<wchar_t> left(kLongest);
    brimtest::GuardedBuffer<wchar_t> right(kLongest);
    const sup::LowerCaseFold fold;
    for (std::size_t n = 0; n <= kLongest; ++n) {
        const std::wstring text = mappedText(random.textOf(alphabet, n), lower);
        for (std::size_t place = 0; place <= n; ++place) {
            std::wstring other(text);
            for (wchar_t& c : other) {
                const wchar_t raised = upper(c);
                c = random.flip() && lower(raised) == c ? raised : c;
            }
            if (place < n) {
                other[place] ^= random.flip() ? 1 : 0x20;
            }
            const bool differs = place < n && lower(text[place]) != lower(other[place]);
            ASSERT_EQ(fold.firstDifference(guarded(left, text), guarded(right, other), n),
                      differs ? place : n)
                << "seed " << seed << ": " << ::testing::PrintToString(text) << " and "
                << ::testing::PrintToString(other);
        }
    }
}

constexpr std::wstring_view kBordersOfAscii = L"@AZ[`az{\x7F\x80\x1A\x21iI";
constexpr std::wstring_view kManyScripts = L"aBcXyZ \u0416\u0436\u03A3\u00C9\u1E9E\u24B6\u2C00\uFF21\u4E00"
                                           L"\U00010400\xD83D";

TEST(CaseBlocks, AreAsByTheCLibraryAtEveryLength) {
    for (const char* const name : {"C", "C.utf8"}) {
        SCOPED_TRACE(name);
        const brimtest::ScopedLocale locale(name);
        ASSERT_TRUE(locale.isSet());
        brimtest::atEachLevel([] {
            foldBlocks(7211, kBordersOfAscii);
            foldBlocks(7212, kManyScripts);
            compareBlocks(7213, kBordersOfAscii);
            compareBlocks(7214, kManyScripts);
        });
    }
}

// ---- Changes of the locale --------------------------------------------------------------------------------

const std::wstring kMixed = L"iI\u0131\u0130\u00C9\u00E9\u0416\u0436xyzXYZ";

bool isAsByTheCLibrary() {
    return plain(BaseStringUtil::ToLowerCase(brim(kMixed))) == mappedText(kMixed, lower) &&
           plain(BaseStringUtil::ToUpperCase(brim(kMixed))) == mappedText(kMixed, upper) &&
           BaseStringUtil::IsCaseInsensitiveMatch(brim(L"\u00C9I"), brim(L"\u00E9i")) ==
               (mappedText(L"\u00C9I", lower) == mappedText(L"\u00E9i", lower));
}

TEST(CaseAndLocale, FollowsEveryChange) {
    for (int round = 0; round < 3; ++round) {
        for (const char* const name : {"C", "C.utf8"}) {
            const brimtest::ScopedLocale locale(name);
            ASSERT_TRUE(locale.isSet());
            EXPECT_TRUE(isAsByTheCLibrary()) << name;
        }
    }
}

TEST(CaseAndLocale, FollowsTheLocaleOfTheThread) {
    const brimtest::ScopedLocale locale("C");
    const locale_t utf8 = ::newlocale(LC_ALL_MASK, "C.utf8", locale_t());
    ASSERT_NE(utf8, locale_t());
    const locale_t previous = ::uselocale(utf8);
    EXPECT_EQ(plain(BaseStringUtil::ToLowerCase(BrimString(L"\u0416"))), L"\u0436");
    ::uselocale(previous);
    EXPECT_EQ(plain(BaseStringUtil::ToLowerCase(BrimString(L"\u0416"))), L"\u0416");
    ::freelocale(utf8);
}

TEST(CaseAndLocale, AThreadSeesTheChangeThatAnotherMade) {
    const brimtest::ScopedLocale before("C");
    std::promise<void> isReady;
    std::promise<void> isChanged;
    std::wstring first;
    std::wstring second;
    std::thread other([&] {
        first = plain(BaseStringUtil::ToLowerCase(BrimString(L"\u0416")));
        isReady.set_value();
        isChanged.get_future().wait();
        second = plain(BaseStringUtil::ToLowerCase(BrimString(L"\u0416")));
    });
    isReady.get_future().wait();
    {
        const brimtest::ScopedLocale after("C.utf8");
        isChanged.set_value();
        other.join();
    }
    EXPECT_EQ(first, L"\u0416");
    EXPECT_EQ(second, L"\u0436");
}

TEST(CaseAndLocale, ThreadsMayFillTheTablesTogether) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            std::wstring text;
            for (wchar_t c = 0x2400; c < 0x4000; c += 0x10) {
                text += c;
            }
            EXPECT_EQ(plain(BaseStringUtil::ToUpperCase(brim(text))), mappedText(text, upper));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Locales come and go at the addresses of others, and there are more of them than have tables.
TEST(CaseAndLocale, ManyLocalesAreAllAsByTheCLibrary) {
    const brimtest::CompiledLocale turkish("tr_TR");
    BRIM_SKIP_WITHOUT(turkish)
    const std::filesystem::path compiled = std::getenv("LOCPATH");
    const std::filesystem::path plainUtf8 = "/usr/lib/locale/C.utf8";
    if (!std::filesystem::exists(plainUtf8)) {
        GTEST_SKIP() << "the locale C.utf8 is elsewhere";
    }
    std::vector<std::string> names;
    for (int i = 0; i < 12; ++i) {
        names.push_back("copy" + std::to_string(i) + ".UTF-8");
        std::filesystem::copy(i % 2 == 0 ? compiled / "tr_TR.UTF-8" : plainUtf8, compiled / names.back(),
                              std::filesystem::copy_options::recursive);
    }
    const brimtest::ChildResult child = brimtest::runInChild([&] {
        for (const std::string& name : names) {
            const locale_t made = ::newlocale(LC_ALL_MASK, name.c_str(), locale_t());
            if (made == locale_t()) {
                ::_exit(2);
            }
            ::uselocale(made);
            if (!isAsByTheCLibrary()) {
                ::_exit(1);
            }
            ::uselocale(LC_GLOBAL_LOCALE);
            ::freelocale(made);
        }
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
}

// ---- A locale where I is not the capital of i -------------------------------------------------------------

TEST(TurkishCase, IsAsByTheCLibrary) {
    const brimtest::CompiledLocale locale("tr_TR");
    BRIM_SKIP_WITHOUT(locale)
    ASSERT_NE(lower(L'I'), L'i');
    EXPECT_EQ(plain(BaseStringUtil::ToLowerCase(BrimString(L"TIx"))), L"t\u0131x");
    EXPECT_EQ(plain(BaseStringUtil::ToUpperCase(BrimString(L"tix"))), L"T\u0130X");
    EXPECT_FALSE(BaseStringUtil::IsCaseInsensitiveMatch(BrimString(L"FILE"), BrimString(L"file")));
    EXPECT_TRUE(
        BaseStringUtil::IsWildcardCaseInsensitiveMatch(BrimString(L"ISI"), BrimString(L"\u0131*\u0131")));
    EXPECT_FALSE(BaseStringUtil::IsWildcardCaseInsensitiveMatch(BrimString(L"ISI"), BrimString(L"i*i")));
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveFind(BrimString(L"xI"), BrimString(L"i"), 0), 2U);
    compareEveryCharacterWithTheCLibrary();
    compareAtRandom(7206, kLetters);
    brimtest::atEachLevel([] {
        foldBlocks(7215, kBordersOfAscii);
        foldBlocks(7217, kLetters);
        compareBlocks(7216, kLetters);
    });
}

} // namespace
