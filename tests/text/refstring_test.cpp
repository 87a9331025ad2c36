#include "Utility/Generic/Portable/RefString.h"

#include "../string/string_test_support.h"
#include "guarded_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <limits>
#include <random>
#include <string>
#include <type_traits>

namespace {

using namespace brimtest;
using brimtest::GuardedBuffer;

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

int sign(int value) { return value < 0 ? -1 : value > 0 ? 1 : 0; }

int platformCompare(const wchar_t* a, const wchar_t* b, std::size_t n) { return std::wcsncmp(a, b, n); }
int platformCompare(const char* a, const char* b, std::size_t n) { return std::strncmp(a, b, n); }

// A copy of `text` that ends where reading must stop.
template <class T>
RefStringTemplate<T> guarded(GuardedBuffer<T>& buffer, const std::basic_string<T>& text) {
    T* const first = buffer.last(text.size());
    std::copy(text.begin(), text.end(), first);
    return RefStringTemplate<T>(first, text.size());
}

// Equal as far as the first zero.
template <class T>
bool countedEqual(const T* a, const T* b, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] != b[i]) {
            return false;
        }
        if (a[i] == T()) {
            return true;
        }
    }
    return true;
}

template <class T>
std::size_t findModel(const std::basic_string<T>& text, const std::basic_string<T>& pattern) {
    if (pattern.empty()) {
        return 0;
    }
    for (std::size_t i = 0; i + pattern.size() <= text.size(); ++i) {
        if (text[i] == pattern[0] &&
            countedEqual(text.data() + i + 1, pattern.data() + 1, pattern.size() - 1)) {
            return i;
        }
    }
    return kNone;
}

template <class T>
std::basic_string<T> randomText(std::mt19937& random, std::size_t length, const char* alphabet,
                                std::size_t letters) {
    std::basic_string<T> text;
    for (std::size_t i = 0; i < length; ++i) {
        text += static_cast<T>(alphabet[random() % letters]);
    }
    return text;
}

// Memory that nobody may read.
template <class T>
const T* unreadable(GuardedBuffer<T>& buffer) {
    return buffer.last(0);
}

template <class T>
class RefString : public BalancedTest {};
TYPED_TEST_SUITE(RefString, CharacterTypes, CharacterTypeNames);

// ---- Construction -----------------------------------------------------------------------------------------

TYPED_TEST(RefString, IsTwoPointersCopiedFreely) {
    using View = RefStringTemplate<TypeParam>;
    EXPECT_EQ(sizeof(View), 2 * sizeof(void*));
    EXPECT_TRUE(std::is_trivially_copyable<View>::value);
    EXPECT_TRUE((std::is_same<typename View::size_type, std::size_t>::value));
    EXPECT_TRUE((std::is_same<typename View::char_type, TypeParam>::value));
    EXPECT_EQ(View::npos, kNone);
    const TypeParam* const text = TEXT("abc");
    const View view(text, 3);
    const TypeParam* fields[2];
    std::memcpy(fields, &view, sizeof(fields));
    EXPECT_EQ(fields[0], text);
    EXPECT_EQ(fields[1], text + 3);
}

TYPED_TEST(RefString, DefaultViewIsOfNothing) {
    const RefStringTemplate<TypeParam> view;
    EXPECT_EQ(view.begin(), nullptr);
    EXPECT_EQ(view.end(), nullptr);
    EXPECT_TRUE(view.empty());
    EXPECT_EQ(view.length(), 0U);
    EXPECT_EQ(view.find(CHARACTER('a')), kNone);
    EXPECT_EQ(view.find(CHARACTER(0)), kNone);
    EXPECT_EQ(view.rfind(CHARACTER('a')), kNone);
    EXPECT_EQ(view.find(TEXT("a")), kNone);
    EXPECT_EQ(view.find(TEXT("")), 0U);
    EXPECT_EQ(view.compare(view), 0);
    EXPECT_TRUE(view.isEqual(view));
    EXPECT_TRUE(view.asString().empty());
}

TYPED_TEST(RefString, TextIsViewedUpToItsZero) {
    const TypeParam* const text = TEXT("abc\0def");
    const RefStringTemplate<TypeParam> view(text);
    EXPECT_EQ(view.begin(), text);
    EXPECT_EQ(view.end(), text + 3);
    EXPECT_FALSE(view.empty());
    const RefStringTemplate<TypeParam> none(TEXT(""));
    EXPECT_TRUE(none.empty());
    EXPECT_NE(none.begin(), nullptr);
}

TYPED_TEST(RefString, PointersAreTakenUnchecked) {
    using View = RefStringTemplate<TypeParam>;
    GuardedBuffer<TypeParam> nowhere(1);
    const TypeParam* const p = unreadable(nowhere);
    const View counted(p, 7);
    EXPECT_EQ(counted.begin(), p);
    EXPECT_EQ(counted.end(), p + 7);
    EXPECT_EQ(counted.length(), 7U);
    const View range(p, p + 5);
    EXPECT_EQ(range.begin(), p);
    EXPECT_EQ(range.end(), p + 5);
    TypeParam writable[] = {CHARACTER('a'), CHARACTER(0), CHARACTER('b')};
    const View mixed(writable, writable + 3);
    EXPECT_EQ(mixed.length(), 3U);
    EXPECT_EQ(View(TEXT("abc"), 0).length(), 0U);
}

TYPED_TEST(RefString, StringIsViewedInPlace) {
    const sup::String<TypeParam> s(TEXT("ab\0cd"), 5);
    const RefStringTemplate<TypeParam> view(s);
    EXPECT_EQ(view.begin(), s.begin());
    EXPECT_EQ(view.length(), 5U);
}

TYPED_TEST(RefString, EmptyStringGivesAnEmptyViewOfTheSharedEmptyText) {
    const sup::String<TypeParam> s;
    const RefStringTemplate<TypeParam> view(s);
    EXPECT_EQ(view.begin(), s.c_str());
    EXPECT_EQ(view.begin(), (sup::String<TypeParam>().c_str()));
    EXPECT_EQ(view.length(), 0U);
    EXPECT_EQ(view.find(CHARACTER('a')), kNone);
    EXPECT_EQ(view.find(CHARACTER(0)), kNone);
    EXPECT_EQ(view.rfind(CHARACTER(0)), kNone);
    EXPECT_EQ(view.find(TEXT("a")), kNone);
}

TYPED_TEST(RefString, ViewOfAViewIsClampedOnBothSides) {
    using View = RefStringTemplate<TypeParam>;
    const View view(TEXT("abcdefgh"), 4);
    for (const std::size_t pos : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{3},
                                  std::size_t{4}, std::size_t{5}, std::size_t{10}, kNone - 1, kNone}) {
        for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{4},
                                    std::size_t{5}, std::size_t{100}, kNone - 3, kNone - 1, kNone}) {
            const std::size_t start = std::min<std::size_t>(pos, 4);
            const View part(view, pos, n);
            EXPECT_EQ(part.begin(), view.begin() + start) << pos << ", " << n;
            EXPECT_EQ(part.length(), std::min(n, 4 - start)) << pos << ", " << n;
        }
    }
    EXPECT_TRUE(View(view, 10, 5).empty());
    EXPECT_TRUE(View(view, 2, 5).isEqual(TEXT("cd")));
}

TYPED_TEST(RefString, FirstCharactersOfAViewAreClamped) {
    using View = RefStringTemplate<TypeParam>;
    const View view(TEXT("abcdefgh"), 4);
    for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{3}, std::size_t{4},
                                std::size_t{5}, std::size_t{100}, kNone}) {
        const View part(view, n);
        EXPECT_EQ(part.begin(), view.begin()) << n;
        EXPECT_EQ(part.length(), std::min<std::size_t>(n, 4)) << n;
    }
    EXPECT_TRUE(View(View(), 5).empty());
    EXPECT_EQ(View(View(), 3, 5).begin(), nullptr);
}

TYPED_TEST(RefString, CopyAndAssignmentCopyThePointers) {
    using View = RefStringTemplate<TypeParam>;
    const View view(TEXT("abc"));
    const View copy(view);
    EXPECT_EQ(copy.begin(), view.begin());
    EXPECT_EQ(copy.end(), view.end());
    View assigned(TEXT("other"));
    EXPECT_EQ(&(assigned = view), &assigned);
    EXPECT_EQ(assigned.begin(), view.begin());
    EXPECT_EQ(assigned.end(), view.end());
}

// ---- Access -----------------------------------------------------------------------------------------------

TYPED_TEST(RefString, AccessGivesTheOwnersCharacters) {
    const TypeParam* const text = TEXT("abcdef");
    const RefStringTemplate<TypeParam> view(text + 1, 3);
    EXPECT_EQ(&view.front(), text + 1);
    EXPECT_EQ(&view.back(), text + 3);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(&view[i], text + 1 + i);
        EXPECT_EQ(&view.at(i), text + 1 + i);
    }
}

TYPED_TEST(RefString, AtIsNotChecked) {
    const TypeParam* const text = TEXT("abcdef");
    const RefStringTemplate<TypeParam> view(text, 3);
    EXPECT_EQ(view.at(4), CHARACTER('e'));
    EXPECT_EQ(&view.at(4), &view[4]);
}

TYPED_TEST(RefString, SubstrIsNotClamped) {
    using View = RefStringTemplate<TypeParam>;
    const TypeParam* const text = TEXT("abcdefgh");
    const View view(text, 4);
    const View inside = view.substr(1, 2);
    EXPECT_EQ(inside.begin(), text + 1);
    EXPECT_EQ(inside.end(), text + 3);
    const View beyond = view.substr(2, 5);
    EXPECT_EQ(beyond.begin(), text + 2);
    EXPECT_EQ(beyond.end(), text + 7);
    const View outside = view.substr(6, 1);
    EXPECT_EQ(outside.begin(), text + 6);
    EXPECT_EQ(outside.end(), text + 7);
}

TYPED_TEST(RefString, AsStringCopiesTheCharacters) {
    using View = RefStringTemplate<TypeParam>;
    const auto owner = FULL_TEXT("ab\0cdef");
    const View view(owner.data(), 5);
    const sup::String<TypeParam> s = view.asString();
    EXPECT_EQ(copyOf(s), FULL_TEXT("ab\0cd"));
    EXPECT_NE(s.begin(), view.begin());
    const sup::String<TypeParam> none = View(owner.data() + 3, std::size_t{0}).asString();
    EXPECT_EQ(none.diagnosticGetSharedRepresentation(), nullptr);
}

TYPED_TEST(RefString, OnlyAsStringAllocates) {
    using View = RefStringTemplate<TypeParam>;
    const sup::String<TypeParam> owner(TEXT("abcabd"));
    AllocationLog log;
    const View view(owner);
    View other(TEXT("abd"));
    EXPECT_EQ(view.find(other), 3U);
    EXPECT_EQ(view.find(owner), 0U);
    EXPECT_EQ(view.find(TEXT("bd")), 4U);
    EXPECT_LT(view.compare(other), 0);
    EXPECT_FALSE(view.isEqual(other));
    other = View(view, 1, 2);
    EXPECT_EQ(view.substr(1, 2).rfind(CHARACTER('c')), 1U);
    EXPECT_TRUE(log.empty());
    { EXPECT_EQ(copyOf(other.asString()), TEXT("bc")); }
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 2));
    EXPECT_EQ(log.releases().size(), 1U);
}

TYPED_TEST(RefString, AsStringWithoutMemoryThrows) {
    const RefStringTemplate<TypeParam> view(TEXT("abc"));
    const AllocationRefusal refusal(1);
    EXPECT_THROW(view.asString(), std::bad_alloc);
    EXPECT_TRUE(refusal.happened());
}

// ---- Searches for a character -----------------------------------------------------------------------------

TYPED_TEST(RefString, CharacterIsFoundAtEveryPlaceOfEveryLength) {
    GuardedBuffer<TypeParam> buffer(140);
    for (std::size_t length = 0; length <= 130; ++length) {
        const auto view = guarded(buffer, std::basic_string<TypeParam>(length, CHARACTER('.')));
        // What is looked for lies in front of the view too.
        TypeParam* const first = buffer.last(length);
        first[-1] = CHARACTER('x');
        ASSERT_EQ(view.find(CHARACTER('x')), kNone) << length;
        ASSERT_EQ(view.rfind(CHARACTER('x')), kNone) << length;
        for (std::size_t at = 0; at < length; ++at) {
            first[at] = CHARACTER('x');
            ASSERT_EQ(view.find(CHARACTER('x')), at) << length;
            ASSERT_EQ(view.rfind(CHARACTER('x')), at) << length;
            first[at] = CHARACTER('.');
        }
    }
}

TYPED_TEST(RefString, FirstAndLastOfManyCharactersAreFound) {
    std::mt19937 random(2401);
    GuardedBuffer<TypeParam> buffer(64);
    for (int round = 0; round < 3000; ++round) {
        const auto text = randomText<TypeParam>(random, random() % 40, "abcdefg\0", 8);
        const auto view = guarded(buffer, text);
        for (const char c : {'a', 'g', '\0', 'x'}) {
            ASSERT_EQ(view.find(CHARACTER(c)), text.find(CHARACTER(c))) << "round " << round;
            ASSERT_EQ(view.rfind(CHARACTER(c)), text.rfind(CHARACTER(c))) << "round " << round;
        }
    }
}

TYPED_TEST(RefString, CharacterBehindTheViewIsNotFound) {
    const RefStringTemplate<TypeParam> view(TEXT("abcx"), 3);
    EXPECT_EQ(view.find(CHARACTER('x')), kNone);
    EXPECT_EQ(view.rfind(CHARACTER('x')), kNone);
}

TYPED_TEST(RefString, CharacterIsFoundBehindAZero) {
    const RefStringTemplate<TypeParam> view(TEXT("a\0bcb"), 5);
    EXPECT_EQ(view.find(CHARACTER('b')), 2U);
    EXPECT_EQ(view.rfind(CHARACTER('b')), 4U);
    EXPECT_EQ(view.find(CHARACTER(0)), 1U);
    EXPECT_EQ(view.rfind(CHARACTER(0)), 1U);
}

// ---- Searches for a text ----------------------------------------------------------------------------------

TYPED_TEST(RefString, TextsAreFoundByTheTable) {
    using View = RefStringTemplate<TypeParam>;
    using S = sup::String<TypeParam>;
    const struct {
        const TypeParam* text;
        const TypeParam* pattern;
        std::size_t found;
    } rows[] = {
        {TEXT(""), TEXT(""), 0},          {TEXT(""), TEXT("a"), kNone},
        {TEXT("abc"), TEXT(""), 0},       {TEXT("abc"), TEXT("a"), 0},
        {TEXT("abc"), TEXT("c"), 2},      {TEXT("abc"), TEXT("d"), kNone},
        {TEXT("abc"), TEXT("abc"), 0},    {TEXT("abc"), TEXT("abcd"), kNone},
        {TEXT("abc"), TEXT("bc"), 1},     {TEXT("abc"), TEXT("cd"), kNone},
        {TEXT("aaab"), TEXT("aab"), 1},   {TEXT("aaaa"), TEXT("aab"), kNone},
        {TEXT("abab"), TEXT("ab"), 0},    {TEXT("xabab"), TEXT("bab"), 2},
        {TEXT("abcabd"), TEXT("abd"), 3}, {TEXT("mississippi"), TEXT("issip"), 4},
    };
    for (const auto& row : rows) {
        const View view(row.text);
        EXPECT_EQ(view.find(row.pattern), row.found) << row.text << ", " << row.pattern;
        EXPECT_EQ(view.find(View(row.pattern)), row.found) << row.text << ", " << row.pattern;
        EXPECT_EQ(view.find(S(row.pattern)), row.found) << row.text << ", " << row.pattern;
    }
}

TYPED_TEST(RefString, SearchesReturnNposWhereTheStringReturnsItsLength) {
    const sup::String<TypeParam> s(TEXT("abc"));
    const RefStringTemplate<TypeParam> view(s);
    EXPECT_EQ(s.find(TEXT("x")), 3U);
    EXPECT_EQ(view.find(TEXT("x")), kNone);
    EXPECT_EQ(view.find(CHARACTER('x')), kNone);
    EXPECT_EQ(view.find(TEXT("xy")), kNone);
}

TYPED_TEST(RefString, TextThatReachesBeyondTheViewIsNotFound) {
    const RefStringTemplate<TypeParam> view(TEXT("abcdef"), 4);
    EXPECT_EQ(view.find(TEXT("cd")), 2U);
    EXPECT_EQ(view.find(TEXT("cde")), kNone);
    EXPECT_EQ(view.find(TEXT("e")), kNone);
}

TYPED_TEST(RefString, LongerPatternIsNotEvenRead) {
    GuardedBuffer<TypeParam> nowhere(1);
    const RefStringTemplate<TypeParam> view(TEXT("abc"));
    EXPECT_EQ(view.find(RefStringTemplate<TypeParam>(unreadable(nowhere), 4)), kNone);
    EXPECT_EQ(view.find(RefStringTemplate<TypeParam>(unreadable(nowhere), std::size_t{0})), 0U);
}

TYPED_TEST(RefString, SearchComparesUpToAZeroOnly) {
    using View = RefStringTemplate<TypeParam>;
    const View view(TEXT("ab\0cd"), 5);
    // The tail of the pattern is equal as far as its zero.
    EXPECT_EQ(view.find(View(TEXT("b\0zz"), 4)), 1U);
    EXPECT_EQ(view.find(View(TEXT("b\0zzz"), 5)), kNone); // no room for five behind index 0
    // The pattern's first character is searched for, a zero included.
    EXPECT_EQ(view.find(View(TEXT("\0c"), 2)), 2U);
    EXPECT_EQ(view.find(View(TEXT("\0z"), 2)), kNone);
    EXPECT_EQ(view.find(View(TEXT("d"), 1)), 4U);
    EXPECT_EQ(view.find(View(TEXT("cd"), 2)), 3U);
    // A text ends at its zero and is found behind one.
    EXPECT_EQ(view.find(TEXT("cd\0xx")), 3U);
}

TYPED_TEST(RefString, RandomSearchesAgreeWithAModelAndStayInsideTheView) {
    std::mt19937 random(2402);
    GuardedBuffer<TypeParam> textBuffer(64);
    GuardedBuffer<TypeParam> patternBuffer(64);
    for (int round = 0; round < 20000; ++round) {
        const std::size_t letters = 2 + random() % 2; // with and without zeros
        const auto text = randomText<TypeParam>(random, random() % 24, "ab\0", letters);
        const auto pattern = randomText<TypeParam>(random, random() % 6, "ab\0", letters);
        const auto view = guarded(textBuffer, text);
        const std::size_t expected = findModel(text, pattern);
        ASSERT_EQ(view.find(guarded(patternBuffer, pattern)), expected)
            << "round " << round << ": " << show(text) << ", " << show(pattern);
        ASSERT_EQ(view.find(sup::String<TypeParam>(pattern.data(), pattern.size())), expected)
            << "round " << round << ": " << show(text) << ", " << show(pattern);
        if (letters == 2) {
            ASSERT_EQ(view.find(pattern.c_str()), text.find(pattern)) << "round " << round;
        }
    }
}

// ---- Comparisons ------------------------------------------------------------------------------------------

TYPED_TEST(RefString, ShorterOfTwoTextsWithTheSameBeginningIsLess) {
    using View = RefStringTemplate<TypeParam>;
    EXPECT_EQ(View(TEXT("abc")).compare(TEXT("abcd")), -1);
    EXPECT_EQ(View(TEXT("abcd")).compare(TEXT("abc")), 1);
    EXPECT_EQ(View(TEXT("abc")).compare(TEXT("abc")), 0);
    EXPECT_EQ(View().compare(TEXT("")), 0);
    EXPECT_EQ(View().compare(TEXT("a")), -1);
    EXPECT_EQ(View(TEXT("a")).compare(View()), 1);
    EXPECT_EQ(View(TEXT("abcdef"), 3).compare(View(TEXT("abcxyz"), 3)), 0);
}

TYPED_TEST(RefString, CharactersDecideBeforeLengths) {
    using View = RefStringTemplate<TypeParam>;
    EXPECT_LT(View(TEXT("abc")).compare(TEXT("abd")), 0);
    EXPECT_GT(View(TEXT("abd")).compare(TEXT("abc")), 0);
    EXPECT_GT(View(TEXT("b")).compare(TEXT("abc")), 0);
    EXPECT_LT(View(TEXT("abc")).compare(TEXT("b")), 0);
    const TypeParam high[] = {static_cast<TypeParam>(0xE9)};
    EXPECT_GT(View(high, 1).compare(TEXT("z")), 0) << "as unsigned characters";
}

TYPED_TEST(RefString, EqualityNeedsTheSameLength) {
    using View = RefStringTemplate<TypeParam>;
    EXPECT_TRUE(View(TEXT("abc")).isEqual(TEXT("abc")));
    EXPECT_FALSE(View(TEXT("abc")).isEqual(TEXT("abd")));
    EXPECT_FALSE(View(TEXT("abc")).isEqual(TEXT("abcd")));
    EXPECT_FALSE(View(TEXT("abcd")).isEqual(TEXT("abc")));
    EXPECT_TRUE(View(TEXT("abcd"), 3).isEqual(View(TEXT("abcx"), 3)));
    EXPECT_TRUE(View().isEqual(TEXT("")));
    GuardedBuffer<TypeParam> nowhere(1);
    EXPECT_FALSE(View(TEXT("abc")).isEqual(View(unreadable(nowhere), 4))) << "lengths first";
}

TYPED_TEST(RefString, ComparisonsStopAtAZero) {
    using View = RefStringTemplate<TypeParam>;
    const View a(TEXT("ab\0cd"), 5);
    const View b(TEXT("ab\0xy"), 5);
    EXPECT_EQ(a.compare(b), 0);
    EXPECT_TRUE(a.isEqual(b));
    // Lengths still count.
    const View longer(TEXT("ab\0aaa"), 6);
    EXPECT_EQ(a.compare(longer), -1);
    EXPECT_EQ(longer.compare(a), 1);
    EXPECT_FALSE(a.isEqual(longer));
    EXPECT_EQ(a.compare(View(TEXT("ab"), 2)), 1);
    EXPECT_LT(a.compare(View(TEXT("abc"), 3)), 0) << "a zero is less than any letter";
}

TYPED_TEST(RefString, RandomComparisonsAgreeWithThePlatform) {
    std::mt19937 random(2403);
    GuardedBuffer<TypeParam> aBuffer(64);
    GuardedBuffer<TypeParam> bBuffer(64);
    for (int round = 0; round < 20000; ++round) {
        const auto a = randomText<TypeParam>(random, random() % 5, "a\xE9\0", 3);
        const auto b = randomText<TypeParam>(random, random() % 5, "a\xE9\0", 3);
        int expected = sign(platformCompare(a.data(), b.data(), std::min(a.size(), b.size())));
        const bool equal = a.size() == b.size() && expected == 0;
        if (expected == 0 && a.size() != b.size()) {
            expected = a.size() < b.size() ? -1 : 1;
        }
        const auto aView = guarded(aBuffer, a);
        const auto bView = guarded(bBuffer, b);
        ASSERT_EQ(sign(aView.compare(bView)), expected)
            << "round " << round << ": " << show(a) << ", " << show(b);
        ASSERT_EQ(aView.isEqual(bView), equal) << "round " << round << ": " << show(a) << ", " << show(b);
    }
}

} // namespace
