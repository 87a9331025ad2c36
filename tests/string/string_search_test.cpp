// sup::String: searching, comparing, sub-strings, and calls with a literal 0.
#include "Utility/Generic/Portable/SUPString.h"

#include "kernel_levels.h"
#include "string_test_support.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <cwchar>
#include <random>
#include <string>

namespace {

using namespace brimtest;

template <class T>
class StringFind : public StringTestOf<T> {
protected:
    // Sends one search through all its forms; `expected` is npos when nothing is to be found.
    static void expectFound(const sup::String<T>& s, T c, std::size_t pos, std::size_t expected) {
        const std::size_t orLength = expected == sup::String<T>::npos ? s.length() : expected;
        EXPECT_EQ(s.find(c, pos), orLength);
        EXPECT_EQ(s.find(c, pos, sup::String<T>::kReturnStringLenIfNotFound), orLength);
        EXPECT_EQ(s.find(c, pos, sup::String<T>::kReturnNPosIfFail), expected);
        if (pos == 0) {
            EXPECT_EQ(s.find(c), orLength);
            EXPECT_EQ(s.find(c, sup::String<T>::kReturnStringLenIfNotFound), orLength);
            EXPECT_EQ(s.find(c, sup::String<T>::kReturnNPosIfFail), expected);
        }
    }
    static void expectFound(const sup::String<T>& s, const T* text, std::size_t pos, std::size_t expected) {
        const std::size_t orLength = expected == sup::String<T>::npos ? s.length() : expected;
        EXPECT_EQ(s.find(text, pos), orLength);
        EXPECT_EQ(s.find(text, pos, sup::String<T>::kReturnStringLenIfNotFound), orLength);
        EXPECT_EQ(s.find(text, pos, sup::String<T>::kReturnNPosIfFail), expected);
        if (pos == 0) {
            EXPECT_EQ(s.find(text), orLength);
            EXPECT_EQ(s.find(text, sup::String<T>::kReturnStringLenIfNotFound), orLength);
            EXPECT_EQ(s.find(text, sup::String<T>::kReturnNPosIfFail), expected);
        }
    }
};
TYPED_TEST_SUITE(StringFind, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringFind, PlainFindReturnsTheLengthWhenNothingIsFound) {
    const sup::String<TypeParam> s(TEXT("hello"));
    EXPECT_EQ(s.find(CHARACTER('x')), 5U);
    EXPECT_EQ(s.find(CHARACTER('x'), 2), 5U);
    EXPECT_EQ(s.find(TEXT("xy")), 5U);
    EXPECT_EQ(s.find(TEXT("xy"), 2), 5U);
}

TYPED_TEST(StringFind, TagsChooseTheResultWhenNothingIsFound) {
    using S = sup::String<TypeParam>;
    const S s(TEXT("hello"));
    const typename S::ReturnNPosIfNotFound orNPos = S::kReturnNPosIfFail;
    const typename S::ReturnStringLenIfNotFound orLength = S::kReturnStringLenIfNotFound;
    EXPECT_EQ(s.find(CHARACTER('x'), orNPos), S::npos);
    EXPECT_EQ(s.find(CHARACTER('x'), 0, orNPos), S::npos);
    EXPECT_EQ(s.find(TEXT("x"), orNPos), S::npos);
    EXPECT_EQ(s.find(TEXT("x"), 0, orNPos), S::npos);
    EXPECT_EQ(s.find(CHARACTER('x'), orLength), 5U);
    EXPECT_EQ(s.find(TEXT("x"), 0, orLength), 5U);
    EXPECT_EQ(s.find(CHARACTER('l'), orNPos), 2U);
    EXPECT_EQ(s.find(TEXT("l"), orLength), 2U);
}

TYPED_TEST(StringFind, NothingIsFoundInAnEmptyString) {
    using S = sup::String<TypeParam>;
    const S null;
    S cleared(TEXT("abc"));
    cleared.clear();
    for (const S* const s : {&null, static_cast<const S*>(&cleared)}) {
        for (const std::size_t pos : {std::size_t{0}, std::size_t{1}, S::npos}) {
            this->expectFound(*s, CHARACTER('a'), pos, S::npos);
            this->expectFound(*s, CHARACTER(0), pos, S::npos);
            this->expectFound(*s, TEXT("a"), pos, S::npos);
            this->expectFound(*s, TEXT(""), pos, S::npos);
        }
        EXPECT_EQ(s->rfind(CHARACTER('a')), S::npos);
        EXPECT_EQ(s->rfind(CHARACTER(0)), S::npos);
    }
}

TYPED_TEST(StringFind, NothingIsFoundAtOrBeyondTheEnd) {
    using S = sup::String<TypeParam>;
    const S s(TEXT("hello"));
    for (const std::size_t pos : {std::size_t{5}, std::size_t{6}, std::size_t{1000}, S::npos}) {
        this->expectFound(s, CHARACTER('h'), pos, S::npos);
        this->expectFound(s, CHARACTER(0), pos, S::npos);
        this->expectFound(s, TEXT("h"), pos, S::npos);
        this->expectFound(s, TEXT(""), pos, S::npos);
    }
}

// Lengths astride the width of any block-wise scan; the character stands everywhere in turn, and once behind
// the end, where it must not be seen.
TYPED_TEST(StringFind, CharacterAtEveryPlaceOfEveryLength) {
    using S = sup::String<TypeParam>;
    for (std::size_t length = 1; length <= 70; ++length) {
        const S without(length, CHARACTER('a'));
        for (std::size_t pos = 0; pos <= length; ++pos) {
            this->expectFound(without, CHARACTER('x'), pos, S::npos);
        }
        EXPECT_EQ(without.rfind(CHARACTER('x')), S::npos);
        for (std::size_t place = 0; place < length; ++place) {
            S s(without);
            s.mutable_begin()[place] = CHARACTER('x');
            this->expectFound(s, CHARACTER('x'), 0, place);
            this->expectFound(s, CHARACTER('x'), place, place);
            this->expectFound(s, CHARACTER('x'), place + 1, S::npos);
            EXPECT_EQ(s.rfind(CHARACTER('x')), place);
            if (place != 0) {
                s.mutable_begin()[place / 2] = CHARACTER('x');
                this->expectFound(s, CHARACTER('x'), 0, place / 2);
                this->expectFound(s, CHARACTER('x'), place / 2 + 1, place / 2 == place ? S::npos : place);
                EXPECT_EQ(s.rfind(CHARACTER('x')), place);
            }
        }
        S cut(length + 4, CHARACTER('x'));
        cut.replace(0, length, length, CHARACTER('a'));
        cut.erase(length);
        this->expectFound(cut, CHARACTER('x'), 0, S::npos);
        EXPECT_EQ(cut.rfind(CHARACTER('x')), S::npos);
    }
}

TYPED_TEST(StringFind, CharactersAreFoundBehindZeros) {
    using S = sup::String<TypeParam>;
    const S s(FULL_TEXT("ab\0cd\0a").data(), 7);
    this->expectFound(s, CHARACTER('d'), 0, 4);
    this->expectFound(s, CHARACTER('a'), 1, 6);
    this->expectFound(s, CHARACTER(0), 0, 2);
    this->expectFound(s, CHARACTER(0), 3, 5);
    EXPECT_EQ(s.rfind(CHARACTER('a')), 6U);
    EXPECT_EQ(s.rfind(CHARACTER(0)), 5U);
}

TYPED_TEST(StringFind, TerminatingZeroIsNotFound) {
    using S = sup::String<TypeParam>;
    const S s(TEXT("hello"));
    this->expectFound(s, CHARACTER(0), 0, S::npos);
    EXPECT_EQ(s.rfind(CHARACTER(0)), S::npos);
}

TYPED_TEST(StringFind, CharactersWithTheHighestBitSet) {
    using S = sup::String<TypeParam>;
    const auto high = static_cast<TypeParam>(-1);
    S s(TEXT("abc"));
    s.push_back(high);
    s.push_back(CHARACTER('d'));
    this->expectFound(s, high, 0, 3);
    EXPECT_EQ(s.rfind(high), 3U);
}

TYPED_TEST(StringFind, Texts) {
    using S = sup::String<TypeParam>;
    const S s(TEXT("abcabcd"));
    this->expectFound(s, TEXT("abc"), 0, 0);
    this->expectFound(s, TEXT("abc"), 1, 3);
    this->expectFound(s, TEXT("abcd"), 0, 3);
    this->expectFound(s, TEXT("d"), 6, 6);
    this->expectFound(s, TEXT("cd"), 6, S::npos);
    this->expectFound(s, TEXT("abcde"), 0, S::npos);
    this->expectFound(s, TEXT("abcabcd"), 0, 0);
    this->expectFound(s, TEXT("abcabcde"), 0, S::npos);
    this->expectFound(s, s.c_str(), 0, 0);
    this->expectFound(s, s.c_str() + 4, 0, 4);
}

TYPED_TEST(StringFind, EmptyAndNullTextsAreFoundWhereTheSearchStarts) {
    using S = sup::String<TypeParam>;
    const S s(TEXT("abc"));
    const TypeParam* const null = nullptr;
    for (const std::size_t pos : {0U, 1U, 2U}) {
        this->expectFound(s, TEXT(""), pos, pos);
        this->expectFound(s, null, pos, pos);
    }
    this->expectFound(s, null, 3, S::npos);
}

TYPED_TEST(StringFind, TextIsFoundOnlyBeforeTheNextZero) {
    using S = sup::String<TypeParam>;
    const S s(FULL_TEXT("ab\0cd\0ab").data(), 8);
    this->expectFound(s, TEXT("ab"), 0, 0);
    this->expectFound(s, TEXT("cd"), 0, S::npos);
    this->expectFound(s, TEXT("ab"), 1, S::npos);
    this->expectFound(s, TEXT("cd"), 2, S::npos);
    this->expectFound(s, TEXT("cd"), 3, 3);
    this->expectFound(s, TEXT("ab"), 3, S::npos);
    this->expectFound(s, TEXT("b"), 7, 7);
}

const wchar_t* findByTheCLibrary(const wchar_t* text, const wchar_t* pattern) {
    return std::wcsstr(text, pattern);
}
const char* findByTheCLibrary(const char* text, const char* pattern) { return std::strstr(text, pattern); }

TYPED_TEST(StringFind, RandomTextsAreFoundAsByTheCLibrary) {
    using S = sup::String<TypeParam>;
    constexpr unsigned kSeed = 64;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    atEachLevel([this] {
        std::mt19937 random(kSeed);
        const auto randomText = [&random](std::size_t n, unsigned int zeros) {
            S text;
            for (std::size_t i = 0; i < n; ++i) {
                text.push_back(zeros != 0 && random() % zeros == 0
                                   ? TypeParam()
                                   : static_cast<TypeParam>('a' + (random() % 8 == 0) + (random() % 9 == 0)));
            }
            return text;
        };
        for (int round = 0; round < 4000; ++round) {
            // Up to 64 characters have a way of their own, and so have more than a few hundred.
            const S text = randomText(random() % (round % 8 == 0 ? 1500 : 130), round % 3 == 0 ? 40 : 0);
            const S pattern = randomText(1 + random() % (round % 5 == 0 ? 40 : 5), 0);
            const std::size_t pos = text.empty() ? 0 : random() % text.length();
            const TypeParam* const found = findByTheCLibrary(text.c_str() + pos, pattern.c_str());
            this->expectFound(text, pattern.c_str(), pos,
                              found == nullptr ? S::npos : static_cast<std::size_t>(found - text.c_str()));
        }
    });
}

TYPED_TEST(StringFind, RfindFindsTheLast) {
    using S = sup::String<TypeParam>;
    const S s(TEXT("abcabc"));
    EXPECT_EQ(s.rfind(CHARACTER('a')), 3U);
    EXPECT_EQ(s.rfind(CHARACTER('c')), 5U);
    EXPECT_EQ(s.rfind(CHARACTER('x')), S::npos);
    EXPECT_EQ(S(CHARACTER('x')).rfind(CHARACTER('x')), 0U);
}

// ---- Comparing --------------------------------------------------------------------------------------------

template <class T>
class StringCompare : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringCompare, CharacterTypes, CharacterTypeNames);

int sign(int n) { return n < 0 ? -1 : (n > 0 ? 1 : 0); }

template <class T>
struct CompareRow {
    std::basic_string<T> a;
    std::basic_string<T> b;
    int order;  // of the texts before the first zero
    bool equal; // as a whole
};

TYPED_TEST(StringCompare, TextsOfTheTable) {
    using S = sup::String<TypeParam>;
    const CompareRow<TypeParam> rows[] = {
        {FULL_TEXT(""), FULL_TEXT(""), 0, true},
        {FULL_TEXT("a"), FULL_TEXT(""), 1, false},
        {FULL_TEXT("abc"), FULL_TEXT("abc"), 0, true},
        {FULL_TEXT("abc"), FULL_TEXT("abd"), -1, false},
        {FULL_TEXT("abc"), FULL_TEXT("ab"), 1, false},
        {FULL_TEXT("B"), FULL_TEXT("a"), -1, false},
        {FULL_TEXT("ab\0c"), FULL_TEXT("ab\0d"), 0, false},
        {FULL_TEXT("ab\0c"), FULL_TEXT("ab\0c"), 0, true},
        {FULL_TEXT("ab\0c"), FULL_TEXT("ab"), 0, false},
        {FULL_TEXT("\0"), FULL_TEXT(""), 0, false},
        {FULL_TEXT("ab\0c"), FULL_TEXT("abc"), -1, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(show(row.a) + " and " + show(row.b));
        const S a(row.a.data(), row.a.size());
        const S b(row.b.data(), row.b.size());
        EXPECT_EQ(sign(a.compare(b)), row.order);
        EXPECT_EQ(sign(b.compare(a)), -row.order);
        EXPECT_EQ(sign(a.compare(row.b.c_str())), row.order);
        EXPECT_EQ(sign(b.compare(row.a.c_str())), -row.order);
        EXPECT_EQ(S::equals(a, b), row.equal);
        EXPECT_EQ(S::equals(b, a), row.equal);
        EXPECT_EQ(a == b, row.equal);
        EXPECT_EQ(a != b, !row.equal);
        // As a text, b ends at its first zero.
        const bool equalsText = row.a == std::basic_string<TypeParam>(row.b.c_str());
        EXPECT_EQ(S::equals(a, row.b.c_str()), equalsText);
        EXPECT_EQ(S::equals(row.b.c_str(), a), equalsText);
        EXPECT_EQ(a == row.b.c_str(), equalsText);
        EXPECT_EQ(row.b.c_str() == a, equalsText);
        EXPECT_EQ(a != row.b.c_str(), !equalsText);
        EXPECT_EQ(row.b.c_str() != a, !equalsText);
    }
}

TYPED_TEST(StringCompare, DifferenceAtEveryPlace) {
    using S = sup::String<TypeParam>;
    for (std::size_t length = 1; length <= 40; ++length) {
        const S a(length, CHARACTER('m'));
        EXPECT_TRUE(S::equals(a, S(length, CHARACTER('m'))));
        for (std::size_t place = 0; place < length; ++place) {
            S b(a);
            b.replace(place, CHARACTER('n'));
            EXPECT_LT(a.compare(b), 0);
            EXPECT_FALSE(S::equals(a, b));
            EXPECT_FALSE(S::equals(a, b.c_str()));
        }
    }
}

TYPED_TEST(StringCompare, SharedStringsAreEqual) {
    using S = sup::String<TypeParam>;
    const S a(TEXT("abc"));
    const S b(a); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_TRUE(S::equals(a, b));
    EXPECT_TRUE(S::equals(a, a));
    EXPECT_EQ(a.compare(b), 0);
}

TYPED_TEST(StringCompare, EmptyStringsEqualEachOtherAndEmptyTexts) {
    using S = sup::String<TypeParam>;
    const TypeParam* const nullText = nullptr;
    const S null;
    S cleared(TEXT("abc"));
    cleared.clear();
    const S some(TEXT("abc"));
    EXPECT_TRUE(S::equals(null, cleared));
    EXPECT_TRUE(S::equals(cleared, null));
    for (const S* const s : {&null, static_cast<const S*>(&cleared)}) {
        EXPECT_TRUE(S::equals(*s, TEXT("")));
        EXPECT_TRUE(S::equals(TEXT(""), *s));
        EXPECT_TRUE(S::equals(*s, nullText));
        EXPECT_TRUE(S::equals(nullText, *s));
        EXPECT_FALSE(S::equals(*s, some));
        EXPECT_FALSE(S::equals(*s, TEXT("a")));
        EXPECT_EQ(s->compare(TEXT("")), 0);
        EXPECT_EQ(s->compare(nullText), 0);
        EXPECT_EQ(s->compare(S()), 0);
        EXPECT_LT(s->compare(some), 0);
        EXPECT_GT(some.compare(*s), 0);
    }
    EXPECT_GT(some.compare(nullText), 0);
    EXPECT_FALSE(S::equals(some, nullText));
}

// The order of char is that of unsigned char, as strcmp has it; the order of wchar_t is the type's own, as
// wcscmp has it.
TYPED_TEST(StringCompare, OrderOfCharactersWithTheHighestBitSet) {
    using S = sup::String<TypeParam>;
    const S high(static_cast<TypeParam>(-1));
    const S low(CHARACTER('a'));
    EXPECT_EQ(sign(high.compare(low)), sizeof(TypeParam) == 1 ? 1 : -1);
}

// ---- Sub-strings ------------------------------------------------------------------------------------------

template <class T>
class StringSubstr : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringSubstr, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringSubstr, EveryPart) {
    using S = sup::String<TypeParam>;
    const S s(FULL_TEXT("ab\0defghij").data(), 10);
    for (std::size_t pos = 0; pos < 10; ++pos) {
        EXPECT_EQ(show(s.substr(pos)), show(copyOf(s).substr(pos)));
        for (const std::size_t n :
             {std::size_t{0}, std::size_t{1}, std::size_t{3}, 10 - pos, 11 - pos, S::npos}) {
            AllocationLog log;
            const S part = s.substr(pos, n);
            EXPECT_EQ(show(part), show(copyOf(s).substr(pos, n))) << pos << " " << n;
            if (n == 0) {
                EXPECT_EQ(part.diagnosticGetSharedRepresentation(), nullptr);
                EXPECT_TRUE(askedForNothing(log));
            }
        }
    }
    EXPECT_EQ(show(s), "ab<0>defghij");
}

TYPED_TEST(StringSubstr, AtOrBeyondTheEndIsEmpty) {
    using S = sup::String<TypeParam>;
    const S s(TEXT("hello"));
    AllocationLog log;
    for (const std::size_t pos : {std::size_t{5}, std::size_t{9}, S::npos}) {
        EXPECT_EQ(s.substr(pos).diagnosticGetSharedRepresentation(), nullptr) << pos;
        EXPECT_EQ(s.substr(pos, 1).diagnosticGetSharedRepresentation(), nullptr) << pos;
        EXPECT_EQ(s.substr(pos, S::npos).diagnosticGetSharedRepresentation(), nullptr) << pos;
    }
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringSubstr, OfAnEmptyStringIsEmpty) {
    using S = sup::String<TypeParam>;
    EXPECT_EQ(show(S().substr(0)), "");
    EXPECT_EQ(show(S().substr(0, 5)), "");
    EXPECT_EQ(show(S().substr(3, S::npos)), "");
}

TYPED_TEST(StringSubstr, Range) {
    using S = sup::String<TypeParam>;
    const S s(TEXT("hello"));
    EXPECT_EQ(show(s.substr(s.begin() + 1, s.begin() + 4)), "ell");
    EXPECT_EQ(show(s.substr(s.begin(), s.begin())), "");
    EXPECT_EQ(show(s.substr(s.begin(), s.end())), "hello");
}

TYPED_TEST(StringSubstr, MayReplaceItsOwnString) {
    using S = sup::String<TypeParam>;
    S s(TEXT("hello"));
    s = s.substr(1, 3);
    EXPECT_EQ(show(s), "ell");
}

// ---- Overloads --------------------------------------------------------------------------------------------

// A literal 0 is a null pointer as well as a number and a character; these calls must mean the number.
template <class T>
class StringLiteralZero : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringLiteralZero, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringLiteralZero, IsACountOrAPosition) {
    using S = sup::String<TypeParam>;
    const TypeParam c = CHARACTER('x');
    const TypeParam* const text = TEXT("xyz");
    const S other(text);
    EXPECT_EQ(show(S(TEXT("abc"), 0)), "");
    EXPECT_EQ(show(S(other, 0)), "");
    EXPECT_EQ(show(S(0, c)), "");
    S s(TEXT("abc"));
    EXPECT_EQ(show(s.append(text, 0)), "abc");
    EXPECT_EQ(show(s.append(0, c)), "abc");
    EXPECT_EQ(show(s.prepend(0, c)), "abc");
    EXPECT_EQ(show(s.insert(0, 0, c)), "abc");
    EXPECT_EQ(show(s.insert(0, other)), "xyzabc");
    EXPECT_EQ(show(s.insert(0, text)), "xyzxyzabc");
    EXPECT_EQ(show(s.insert(0, text, text + 1)), "xxyzxyzabc");
    EXPECT_EQ(show(s.erase(0, 0)), "xxyzxyzabc");
    EXPECT_EQ(show(s.erase(0, 7)), "abc");
    EXPECT_EQ(show(s.replace(0, 2, 0, c)), "c");
    EXPECT_EQ(show(s.replace(0, 0, 1, c)), "xc");
    EXPECT_EQ(show(s.replace(0, 1, text, 0)), "c");
    EXPECT_EQ(show(s.replace(0, 0, text)), "xyzc");
    EXPECT_EQ(show(s.replace(0, 0, other)), "xyzxyzc");
    EXPECT_EQ(show(s.replace(0, 6, text, text)), "c");
    EXPECT_EQ(show(s.replace(0, c)), "x");
    EXPECT_EQ(show(s.replace(0, text)), "xyz");
    EXPECT_EQ(show(s.substr(0, 0)), "");
    EXPECT_EQ(show(s.substr(0)), "xyz");
    EXPECT_EQ(s.find(c, 0), 0U);
    EXPECT_EQ(s.find(text, 0), 0U);
    EXPECT_EQ(s.find(c, 0, S::kReturnNPosIfFail), 0U);
    EXPECT_EQ(s.at(0), c);
    EXPECT_EQ(s[0], c);
    EXPECT_EQ(show(s.assign(other, 0)), "");
    EXPECT_EQ(show(s.assign(text, 0)), "");
    s.resize(0);
    s.resize(0, c);
    s.reserve(0);
    EXPECT_EQ(show(s.erase(0)), "");
}

} // namespace
