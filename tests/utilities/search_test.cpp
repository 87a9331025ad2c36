// Searches for character sets and sub-strings, next to naive ones.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "guarded_buffer.h"
#include "kernel_levels.h"
#include "kernels/search.h"
#include "search_model.h"
#include "test_locale.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using brimtest::brim;
using brimtest::compareSearches;
using brimtest::firstOf;
using brimtest::lastOf;
using brimtest::RandomTexts;
using Reference = RefStringTemplate<wchar_t>;

constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

std::size_t forward(std::wstring_view text, std::wstring_view pattern, std::size_t start) {
    return BaseStringUtil::ForwardPatternMatch(brim(text), brim(pattern), start);
}
std::size_t reverse(std::wstring_view text, std::wstring_view pattern, std::size_t pos) {
    return BaseStringUtil::ReversePatternMatch(brim(text), brim(pattern), pos);
}

// ---- Sub-strings ------------------------------------------------------------------------------------------

TEST(ForwardPatternMatch, FindsTheFirstOccurrenceAtOrAfterTheStart) {
    EXPECT_EQ(forward(L"abcabd", L"abd", 0), 3U);
    EXPECT_EQ(forward(L"abcabd", L"abd", 3), 3U);
    EXPECT_EQ(forward(L"abcabd", L"abd", 4), 6U);
    EXPECT_EQ(forward(L"abcabd", L"abcabd", 0), 0U);
    EXPECT_EQ(forward(L"abcabd", L"abcabdx", 0), 6U);
    EXPECT_EQ(forward(L"abcabd", L"d", 5), 5U);
    EXPECT_EQ(forward(L"abcabd", L"d", kNowhere), 6U);
}

TEST(ForwardPatternMatch, NeverFindsAnEmptyPattern) {
    EXPECT_EQ(forward(L"abc", L"", 0), 3U);
    EXPECT_EQ(forward(L"", L"", 0), 0U);
    EXPECT_EQ(forward(L"", L"a", 0), 0U);
    EXPECT_EQ(BaseStringUtil::ForwardPatternMatch(BrimString(), BrimString(), 0), 0U);
    EXPECT_EQ(BaseStringUtil::ForwardPatternMatch(Reference(), Reference(L"a"), 0), 0U);
    EXPECT_EQ(BaseStringUtil::ForwardPatternMatch(Reference(L"abc"), Reference(), 0), 3U);
}

TEST(ForwardPatternMatch, ZerosAreCharacters) {
    const std::wstring_view text(L"a\0b\0c", 5);
    EXPECT_EQ(forward(text, std::wstring_view(L"\0c", 2), 0), 3U);
    EXPECT_EQ(forward(text, std::wstring_view(L"\0", 1), 2), 3U);
    EXPECT_EQ(reverse(text, std::wstring_view(L"\0b", 2), 4), 1U);
}

TEST(ReversePatternMatch, FindsTheLastOccurrenceThatEndsAtOrBeforeThePosition) {
    EXPECT_EQ(reverse(L"abcabc", L"abc", 5), 3U);
    EXPECT_EQ(reverse(L"abcabc", L"abc", 4), 0U);
    EXPECT_EQ(reverse(L"abcabc", L"abc", 2), 0U);
    EXPECT_EQ(reverse(L"abcabc", L"abc", 1), 6U);
    EXPECT_EQ(reverse(L"abcabc", L"abc", kNowhere), 3U);
    EXPECT_EQ(reverse(L"abcabc", L"abcabcx", 5), 6U) << "longer than the text";
    EXPECT_EQ(reverse(L"abcabc", L"a", 0), 0U);
}

TEST(ReversePatternMatch, AnEmptyTextGivesZeroAndAnEmptyPatternTheLength) {
    EXPECT_EQ(reverse(L"", L"a", 0), 0U);
    EXPECT_EQ(reverse(L"", L"", 3), 0U);
    EXPECT_EQ(BaseStringUtil::ReversePatternMatch(BrimString(), BrimString(L"a"), 0), 0U);
    EXPECT_EQ(reverse(L"abc", L"", 1), 3U);
}

TEST(CaseInsensitiveFind, ComparesTheCapitals) {
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveFind(BrimString(L"xAbC"), BrimString(L"aBc"), 0), 1U);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveFind(BrimString(L"xAbC"), BrimString(L"aBc"), 2), 4U);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveFind(BrimString(L"x"), BrimString(), 0), 1U);
    EXPECT_EQ(BaseStringUtil::CaseInsensitiveFind(BrimString(), BrimString(L"x"), 0), 0U);
}

TEST(PatternMatches, AgreeWithTheModelsOnRandomTexts) {
    const brimtest::ScopedLocale locale("C.utf8");
    BRIM_SKIP_WITHOUT(locale)
    constexpr std::uint64_t kSeed = 7301;
    RandomTexts random(kSeed);
    for (const std::wstring_view alphabet :
         {std::wstring_view(L"ab"), std::wstring_view(L"aAbB\u03C3\u03C2"),
          std::wstring_view(L"a\0\U0001F600", 3), std::wstring_view(L"abcdefgh")}) {
        for (int i = 0; i < 1500 && !HasFailure(); ++i) {
            SCOPED_TRACE(::testing::Message() << "seed " << kSeed << ", round " << i);
            const std::wstring text = random.text(alphabet, i % 10 == 0 ? 200 : 40);
            compareSearches(text, random.text(alphabet, 6));
            // One that occurs, and one that nearly does.
            const std::size_t from = random.below(text.size() + 1);
            std::wstring piece = text.substr(from, random.below(20));
            compareSearches(text, piece);
            if (!piece.empty()) {
                piece[random.below(piece.size())] = alphabet[0];
                compareSearches(text, piece);
            }
        }
    }
}

TEST(PatternMatches, ReadNothingOutsideTheTexts) {
    // Blocks of exactly the needed size, at every length around the steps of the search.
    for (std::size_t n = 1; n <= 40; ++n) {
        for (std::size_t m = 1; m <= n + 1; ++m) {
            const std::unique_ptr<wchar_t[]> text(new wchar_t[n]);
            const std::unique_ptr<wchar_t[]> pattern(new wchar_t[m]);
            for (std::size_t place = 0; place <= n; ++place) {
                std::fill(text.get(), text.get() + n, L'a');
                std::fill(pattern.get(), pattern.get() + m, L'a');
                pattern[m - 1] = L'b';
                if (place < n) {
                    text[place] = L'b';
                }
                const std::size_t expected = place < n && place + 1 >= m ? place + 1 - m : n;
                ASSERT_EQ(BaseStringUtil::ForwardPatternMatch(Reference(text.get(), n),
                                                              Reference(pattern.get(), m), 0),
                          expected)
                    << n << ", " << m << ", " << place;
            }
        }
    }
}

TEST(PatternMatches, GetThroughRepetitiveTexts) {
    constexpr std::size_t kLength = 600000;
    const std::wstring text(kLength, L'a');
    std::wstring twice = text;
    for (const std::size_t m : {std::size_t{2}, std::size_t{100}, std::size_t{10000}, kLength / 2, kLength}) {
        const std::wstring run(m - 1, L'a');
        const std::wstring middle = std::wstring(m / 2, L'a') + L"b" + std::wstring(m - m / 2 - 1, L'a');
        for (const std::wstring& pattern : {run + L"b", L"b" + run, middle}) {
            ASSERT_EQ(forward(text, pattern, 0), kLength) << m;
            ASSERT_EQ(reverse(text, pattern, kNowhere), kLength) << m;
        }
        ASSERT_EQ(forward(text, run + L"a", 0), 0U);
        ASSERT_EQ(reverse(text, run + L"a", kNowhere), kLength - m);
        // And one that is there, at the far end of each search.
        twice[kLength - m + m / 2] = L'b';
        ASSERT_EQ(forward(twice, middle, 0), kLength - m) << m;
        twice[kLength - m + m / 2] = L'a';
        twice[m / 2] = L'b';
        ASSERT_EQ(reverse(twice, middle, kNowhere), 0U) << m;
        twice[m / 2] = L'a';
    }
}

TEST(PatternMatches, AgreeWithTheModelsWhereTextsRepeatThemselves) {
    // Long enough to leave the quick way of searching.
    constexpr std::uint64_t kSeed = 7302;
    RandomTexts random(kSeed);
    for (int i = 0; i < 60; ++i) {
        const std::wstring unit = random.textOf(L"ab", 1 + random.below(4));
        std::wstring text;
        while (text.size() < 20000) {
            text += unit;
        }
        for (std::size_t flaw = random.below(3); flaw != 0; --flaw) {
            text[random.below(text.size())] ^= 3; // a and b change places
        }
        std::wstring pattern = text.substr(random.below(2000), 50 + random.below(600));
        if (random.flip()) {
            pattern[1 + random.below(pattern.size() - 2)] ^= 3;
        }
        const std::size_t start = random.below(300);
        ASSERT_EQ(forward(text, pattern, start), std::min(text.find(pattern, start), text.size()))
            << "seed " << kSeed << ", round " << i;
        const std::size_t last = text.rfind(pattern, text.size() - start - pattern.size());
        ASSERT_EQ(reverse(text, pattern, text.size() - start - 1), std::min(last, text.size()))
            << "seed " << kSeed << ", round " << i;
    }
}

TEST(PatternMatches, AgreeWithTheModelsAtEveryLevel) {
    brimtest::atEachLevel([] {
        constexpr std::uint64_t kSeed = 7304;
        RandomTexts random(kSeed);
        constexpr std::size_t kRoom = 700;
        brimtest::GuardedBuffer<wchar_t> textRoom(kRoom);
        brimtest::GuardedBuffer<wchar_t> patternRoom(kRoom);
        for (int i = 0; i < 3000; ++i) {
            const std::wstring_view alphabet = i % 3 == 0 ? L"ab" : i % 3 == 1 ? L"aaaaaaab" : L"abcdefgh";
            const std::wstring text = random.text(alphabet, kRoom);
            const std::size_t m = 1 + random.below(i % 2 == 0 ? 6 : 200);
            std::wstring pattern = random.textOf(alphabet, m);
            if (random.flip() && text.size() > m) {
                pattern = text.substr(random.below(text.size() - m), m);
                pattern[random.below(m)] = alphabet[random.below(alphabet.size())];
            }
            const std::size_t n = text.size();
            const Reference t(std::copy(text.begin(), text.end(), textRoom.last(n)) - n, n);
            const Reference p(std::copy(pattern.begin(), pattern.end(), patternRoom.last(m)) - m, m);
            const std::size_t start = random.below(4) == 0 ? random.below(n + 1) : 0;
            ASSERT_EQ(BaseStringUtil::ForwardPatternMatch(t, p, start),
                      std::min(text.find(pattern, start), n))
                << "seed " << kSeed << ", round " << i;
            ASSERT_EQ(reverse(text, pattern, kNowhere), std::min(text.rfind(pattern), n))
                << "seed " << kSeed << ", round " << i;
        }
    });
}

TEST(PatternMatches, AgreeWithTheModelsOnShortTextsAtEveryLevel) {
    brimtest::atEachLevel([] {
        constexpr std::uint64_t kSeed = 7307;
        RandomTexts random(kSeed);
        brimtest::GuardedBuffer<wchar_t> textRoom(200);
        brimtest::GuardedBuffer<wchar_t> patternRoom(200);
        for (std::size_t n = 1; n <= 150; ++n) {
            for (int round = 0; round < 20; ++round) {
                const std::wstring text = random.textOf(round % 2 == 0 ? L"ab" : L"abcdefgh", n);
                const std::size_t m = 1 + random.below(std::min<std::size_t>(n, 20));
                std::wstring pattern = text.substr(random.below(n - m + 1), m);
                if (random.flip()) {
                    pattern[random.below(m)] = L'a';
                }
                const wchar_t* const t = std::copy(text.begin(), text.end(), textRoom.last(n)) - n;
                const wchar_t* const p = std::copy(pattern.begin(), pattern.end(), patternRoom.last(m)) - m;
                ASSERT_EQ(sup::kernels::findText(t, n, p, m), std::min(text.find(pattern), n))
                    << "seed " << kSeed << ": " << ::testing::PrintToString(text) << ", "
                    << ::testing::PrintToString(pattern);
            }
        }
    });
}

TEST(PatternMatches, FindSingleCharactersAtEveryPlaceAndLevel) {
    brimtest::atEachLevel([] {
        constexpr std::size_t kRoom = 800;
        brimtest::GuardedBuffer<wchar_t> room(kRoom);
        for (std::size_t n = 1; n <= kRoom; n += n < 480 ? 53 : 7) {
            wchar_t* const text = room.last(n);
            std::fill_n(text, n, L'-');
            ASSERT_EQ(sup::kernels::findText(text, n, L"x", 1), n);
            for (std::size_t place = n; place-- != 0;) {
                text[place] = L'x'; // and behind it too
                ASSERT_EQ(sup::kernels::findText(text, n, L"x", 1), place) << n;
            }
        }
    });
}

TEST(PatternMatches, GetThroughTextsThatDeceiveEveryProbe) {
    // Each word is the two before it together, the most repetitive of texts without a period.
    std::wstring text = L"b";
    std::wstring next = L"a";
    while (text.size() < 200000) {
        std::wstring both = next + text;
        text = std::move(next);
        next = std::move(both);
    }
    // Every "b" stands between two "a", and nowhere are there three of them: a pattern with another letter
    // instead of a "b" is not in the text.
    brimtest::atEachLevel([&] {
        for (const std::size_t m : {std::size_t{50}, std::size_t{5000}, std::size_t{60000}}) {
            for (const std::size_t near : {std::size_t{1}, m / 3, m / 2, m - 8}) {
                const std::size_t flaw = text.find(L'b', near);
                for (const wchar_t other : {L'a', L'c'}) {
                    std::wstring pattern = text.substr(0, m);
                    pattern[flaw] = other;
                    ASSERT_EQ(forward(text, pattern, 0), text.size()) << m << ", " << flaw;
                    ASSERT_EQ(reverse(text, pattern, kNowhere), text.size()) << m << ", " << flaw;
                    ASSERT_EQ(forward(text + pattern, pattern, 0), text.size()) << m << ", " << flaw;
                    ASSERT_EQ(reverse(pattern + text, pattern, kNowhere), 0U) << m << ", " << flaw;
                }
            }
        }
    });
    const std::wstring part = text.substr(0, 3000); // the models are slow here
    for (const std::size_t m : {std::size_t{20}, std::size_t{300}, std::size_t{1500}}) {
        for (const std::size_t flaw : {std::size_t{1}, m / 3, m / 2, m - 2}) {
            std::wstring pattern = part.substr(part.size() - m);
            pattern[flaw] = pattern[flaw] == L'a' ? L'b' : L'a';
            const std::size_t first = std::min(part.find(pattern), part.size());
            const std::size_t last = std::min(part.rfind(pattern), part.size());
            brimtest::atEachLevel([&] {
                ASSERT_EQ(forward(part, pattern, 0), first) << m << ", " << flaw;
                ASSERT_EQ(reverse(part, pattern, kNowhere), last) << m << ", " << flaw;
            });
        }
    }
}

TEST(PatternMatches, TheLinearWayAgreesWithTheModelOnAllShortTexts) {
    // Two letters that share an entry of the table of skips, and one of its own.
    constexpr wchar_t kLetters[] = {L'a', L'a' + 256, L'b'};
    constexpr std::size_t kLength = 7;
    std::vector<std::vector<std::wstring>> texts{{L""}};
    for (std::size_t n = 0; n < kLength; ++n) {
        texts.emplace_back();
        for (const std::wstring& shorter : texts[n]) {
            for (const wchar_t c : kLetters) {
                texts[n + 1].push_back(shorter + c);
            }
        }
    }
    for (std::size_t m = 1; m <= 5; ++m) {
        for (const std::wstring& pattern : texts[m]) {
            for (const std::wstring& text : texts[kLength]) {
                ASSERT_EQ(sup::kernels::findTextLinearly(text.data(), kLength, pattern.data(), m),
                          std::min(text.find(pattern), kLength))
                    << ::testing::PrintToString(text) << ", " << ::testing::PrintToString(pattern);
                ASSERT_EQ(sup::kernels::findLastTextLinearly(text.data(), kLength, pattern.data(), m),
                          std::min(text.rfind(pattern), kLength))
                    << ::testing::PrintToString(text) << ", " << ::testing::PrintToString(pattern);
            }
        }
    }
}

TEST(PatternMatches, TheLinearWayAgreesWithTheModelOnPeriodicTexts) {
    constexpr std::uint64_t kSeed = 7306;
    RandomTexts random(kSeed);
    for (int i = 0; i < 20000; ++i) {
        const std::wstring unit = random.textOf(L"ab", 1 + random.below(7));
        std::wstring text;
        while (text.size() < 250) {
            text += unit;
        }
        for (std::size_t flaw = random.below(4); flaw != 0; --flaw) {
            text[random.below(text.size())] ^= 3; // a and b change places
        }
        std::wstring pattern = text.substr(random.below(150), 1 + random.below(90));
        if (random.flip()) {
            pattern[random.below(pattern.size())] ^= 3;
        }
        text.resize(random.below(text.size() + 1));
        const std::size_t n = text.size();
        ASSERT_EQ(sup::kernels::findTextLinearly(text.data(), n, pattern.data(), pattern.size()),
                  std::min(text.find(pattern), n))
            << "seed " << kSeed << ", round " << i;
        ASSERT_EQ(sup::kernels::findLastTextLinearly(text.data(), n, pattern.data(), pattern.size()),
                  std::min(text.rfind(pattern), n))
            << "seed " << kSeed << ", round " << i;
    }
}

TEST(PatternMatches, ARareFirstCharacterMayBecomeFrequent) {
    const std::wstring rare(3000, L'-');
    const std::wstring frequent(3000, L'x');
    const std::wstring pattern = L"xxxy";
    brimtest::atEachLevel([&] {
        EXPECT_EQ(forward(rare + frequent + rare, pattern, 0), 9000U);
        EXPECT_EQ(forward(rare + frequent + L"y" + rare, pattern, 0), 5997U);
        EXPECT_EQ(forward(rare + L"xxxy" + frequent, pattern, 0), 3000U);
        EXPECT_EQ(forward(rare + L"xxx", pattern, 0), 3003U);
    });
}

// ---- Character sets ---------------------------------------------------------------------------------------

// Characters that are alike when they are cut or pressed into a byte.
TEST(CharacterSets, AgreeWithTheModelsAtEveryLevelAndLength) {
    const std::wstring sets[] = {
        L";",
        L",;\t\n",
        L"\x01\x7F",
        L" !\"#$%&'()*+,-./:;<=>?@",
        L"0123456789abcdefghijklmnopqrstuvwxyz",
        std::wstring(L"\0,", 2),
        L"\xFE\xFF,",
        L"\u0100,\u042F\U0001F600",
        L",\x80",
    };
    const std::wstring others = std::wstring(L"ZY\0\xFF\x80\x81\u0101\u012C\u013B\u7FFF\u8000\uFFFF", 12) +
                                static_cast<wchar_t>(0x8000003BU) + static_cast<wchar_t>(0xFFFFFFFFU) +
                                static_cast<wchar_t>(0x1002C) + static_cast<wchar_t>(0x7FFFFFFF);
    brimtest::atEachLevel([&] {
        constexpr std::uint64_t kSeed = 7305;
        RandomTexts random(kSeed);
        for (const std::wstring& set : sets) {
            const std::set<wchar_t> model(set.begin(), set.end());
            const BrimString given = brim(set);
            for (std::size_t n = 0; n <= 100; ++n) {
                std::wstring text = random.textOf(others, n);
                std::wstring members = random.textOf(set, n);
                for (std::size_t place = 0; place < n; place += 1 + random.below(7)) {
                    std::wstring with(text);
                    with[place] = set[random.below(set.size())];
                    ASSERT_EQ(BaseStringUtil::FindFirstOf(brim(with), given, 0),
                              firstOf(with, model, 0, true))
                        << "seed " << kSeed << ", " << ::testing::PrintToString(with);
                    ASSERT_EQ(BaseStringUtil::FindLastOf(brim(with), given, n), lastOf(with, model, n))
                        << "seed " << kSeed << ", " << ::testing::PrintToString(with);
                    std::wstring without(members);
                    without[place] = text[place];
                    ASSERT_EQ(BaseStringUtil::FindFirstNotOf(brim(without), given, 0),
                              firstOf(without, model, 0, false))
                        << "seed " << kSeed << ", " << ::testing::PrintToString(without);
                }
                ASSERT_EQ(BaseStringUtil::FindFirstOf(brim(text), given, 0), firstOf(text, model, 0, true));
                ASSERT_EQ(BaseStringUtil::FindFirstNotOf(brim(members), given, 0), n);
            }
        }
    });
}

TEST(CharacterSets, SearchFromTheStart) {
    const BrimString text(L"hello, world");
    const BrimString set(L"ol,");
    EXPECT_EQ(BaseStringUtil::FindFirstOf(text, set, 0), 2U);
    EXPECT_EQ(BaseStringUtil::FindFirstOf(text, set, 4), 4U);
    EXPECT_EQ(BaseStringUtil::FindFirstOf(text, set, 11), 12U);
    EXPECT_EQ(BaseStringUtil::FindFirstNotOf(text, set, 2), 6U);
    EXPECT_EQ(BaseStringUtil::FindFirstNotOf(BrimString(L"lll"), set, 0), 3U);
    EXPECT_EQ(BaseStringUtil::FindLastOf(text, set, 11), 10U);
    EXPECT_EQ(BaseStringUtil::FindLastOf(text, set, 5), 5U) << "the start itself counts";
    EXPECT_EQ(BaseStringUtil::FindLastOf(text, set, 1), 12U);
    EXPECT_EQ(BaseStringUtil::FindLastOf(text, set, kNowhere), 10U) << "from the last character";
}

TEST(CharacterSets, AnEmptySetHoldsNothing) {
    const BrimString text(L"abc");
    EXPECT_EQ(BaseStringUtil::FindFirstOf(text, BrimString(), 0), 3U);
    EXPECT_EQ(BaseStringUtil::FindFirstNotOf(text, BrimString(), 1), 1U);
    EXPECT_EQ(BaseStringUtil::FindLastOf(text, BrimString(), 2), 3U);
    EXPECT_EQ(BaseStringUtil::FindFirstOf(BrimString(), text, 0), 0U);
    EXPECT_EQ(BaseStringUtil::FindFirstNotOf(BrimString(), text, 0), 0U);
    EXPECT_EQ(BaseStringUtil::FindLastOf(BrimString(), text, 0), 0U);
}

TEST(CharacterSets, AgreeWithTheModelsOnRandomTexts) {
    constexpr std::uint64_t kSeed = 7303;
    RandomTexts random(kSeed);
    const std::wstring alphabet = std::wstring(L"\0ab\xFF\u0100\u0101\uFFFF\U0001F600", 8) +
                                  static_cast<wchar_t>(0x80000000U) + static_cast<wchar_t>(0xFFFFFFFFU);
    for (int i = 0; i < 5000 && !HasFailure(); ++i) {
        const std::wstring text = random.text(alphabet, 24);
        const std::wstring set = random.text(alphabet, i % 50 == 0 ? 100 : 4);
        const std::set<wchar_t> model(set.begin(), set.end());
        for (const std::size_t start : {random.below(text.size() + 2), std::size_t{0}, kNowhere}) {
            SCOPED_TRACE(::testing::Message() << "seed " << kSeed << ", round " << i << ", start " << start);
            EXPECT_EQ(BaseStringUtil::FindFirstOf(brim(text), brim(set), start),
                      firstOf(text, model, start, true));
            EXPECT_EQ(BaseStringUtil::FindFirstNotOf(brim(text), brim(set), start),
                      firstOf(text, model, start, false));
            EXPECT_EQ(BaseStringUtil::FindLastOf(brim(text), brim(set), start), lastOf(text, model, start));
        }
    }
}

} // namespace
