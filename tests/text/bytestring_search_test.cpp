// sup::ByteString: searches, comparisons and the hash.
#include "Utility/Generic/Portable/SUPBString.h"

#include "bytestring_test_support.h"
#include "kernel_levels.h"
#include "test_locale.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <cwctype>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace brimtest;

template <class T>
std::size_t orLength(std::size_t found, const std::basic_string<T>& text) {
    return found == std::basic_string<T>::npos ? text.size() : found;
}

// ---- find -------------------------------------------------------------------------------------------------

template <class T>
class ByteStringFind : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringFind, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringFind, ReturnsTheLengthWhenNothingIsFound) {
    using B = sup::ByteString<TypeParam>;
    const auto tag = B::kReturnStringLenIfNotFound;
    const auto x = CHARACTER('x');
    for (const B& b : {B(TEXT("hello")), inFullWidth(FULL_TEXT("hello"))}) {
        EXPECT_EQ(b.find(x), 5U);
        EXPECT_EQ(b.find(x, tag), 5U);
        EXPECT_EQ(b.find(x, 2), 5U);
        EXPECT_EQ(b.find(x, 2, tag), 5U);
        EXPECT_EQ(b.find(TEXT("ox")), 5U);
        EXPECT_EQ(b.find(TEXT("ox"), tag), 5U);
        EXPECT_EQ(b.find(TEXT("ox"), 2), 5U);
        EXPECT_EQ(b.find(TEXT("ox"), 2, tag), 5U);
    }
}

TYPED_TEST(ByteStringFind, BothFormsFindTheSame) {
    using B = sup::ByteString<TypeParam>;
    const auto tag = B::kReturnStringLenIfNotFound;
    const auto l = CHARACTER('l');
    for (const B& b : {B(TEXT("hello")), inFullWidth(FULL_TEXT("hello"))}) {
        EXPECT_EQ(b.find(l), 2U);
        EXPECT_EQ(b.find(l, tag), 2U);
        EXPECT_EQ(b.find(l, 3), 3U);
        EXPECT_EQ(b.find(l, 3, tag), 3U);
        EXPECT_EQ(b.find(TEXT("lo")), 3U);
        EXPECT_EQ(b.find(TEXT("lo"), tag), 3U);
        EXPECT_EQ(b.find(TEXT("l"), 3), 3U);
        EXPECT_EQ(b.find(TEXT("l"), 3, tag), 3U);
    }
}

TYPED_TEST(ByteStringFind, EmptyStringsHoldNothing) {
    using B = sup::ByteString<TypeParam>;
    const auto tag = B::kReturnStringLenIfNotFound;
    for (const B& b : {B(), emptyWithBlock<TypeParam>()}) {
        for (const std::size_t pos : {std::size_t{0}, std::size_t{1}, B::npos}) {
            EXPECT_EQ(b.find(CHARACTER('x'), pos), 0U);
            EXPECT_EQ(b.find(CHARACTER(0), pos, tag), 0U);
            EXPECT_EQ(b.find(TEXT("x"), pos), 0U);
            EXPECT_EQ(b.find(TEXT(""), pos, tag), 0U);
        }
        EXPECT_EQ(b.find(CHARACTER(0)), 0U);
        EXPECT_EQ(b.find(TEXT("")), 0U);
    }
}

TYPED_TEST(ByteStringFind, PositionsAtOrBeyondTheEndFindNothing) {
    using B = sup::ByteString<TypeParam>;
    const B b(TEXT("hello"));
    for (const std::size_t pos : {std::size_t{5}, std::size_t{6}, B::npos}) {
        EXPECT_EQ(b.find(CHARACTER('o'), pos), 5U);
        EXPECT_EQ(b.find(CHARACTER(0), pos), 5U);
        EXPECT_EQ(b.find(TEXT("o"), pos), 5U);
        EXPECT_EQ(b.find(TEXT(""), pos), 5U);
    }
}

TYPED_TEST(ByteStringFind, AnEmptyTextIsFoundWhereTheSearchStarts) {
    using B = sup::ByteString<TypeParam>;
    const TypeParam* const null = nullptr;
    const B b(TEXT("hello"));
    for (std::size_t pos = 0; pos < 5; ++pos) {
        EXPECT_EQ(b.find(TEXT(""), pos), pos);
        EXPECT_EQ(b.find(null, pos), pos);
    }
    EXPECT_EQ(b.find(TEXT("")), 0U);
    EXPECT_EQ(b.find(null), 0U);
}

TYPED_TEST(ByteStringFind, ZerosInsideTheStringAreCharacters) {
    using B = sup::ByteString<TypeParam>;
    const auto text = FULL_TEXT("ab\0cd\0ef");
    for (const B& b : {byteString(text), inFullWidth(text)}) {
        EXPECT_EQ(b.find(CHARACTER(0)), 2U);
        EXPECT_EQ(b.find(CHARACTER(0), 3), 5U);
        EXPECT_EQ(b.find(CHARACTER(0), 6), 8U);
        EXPECT_EQ(b.find(CHARACTER('d')), 4U);
        EXPECT_EQ(b.find(TEXT("cd")), 3U);
        EXPECT_EQ(b.find(TEXT("ef"), 1), 6U);
    }
}

// A first character that fits, then one that does not; overlaps; the end of the text as part of a match.
TYPED_TEST(ByteStringFind, EverySmallTextAgainstTheStandardString) {
    using Text = std::basic_string<TypeParam>;
    std::vector<Text> texts = {Text()};
    for (std::size_t i = 0; texts[i].size() < 5; ++i) {
        texts.push_back(texts[i] + CHARACTER('a'));
        texts.push_back(texts[i] + CHARACTER('b'));
    }
    for (const Text& text : texts) {
        for (const auto& b : {byteString(text), inFullWidth(text)}) {
            for (const Text& part : texts) {
                for (std::size_t pos = 0; pos < text.size(); ++pos) {
                    ASSERT_EQ(b.find(part.c_str(), pos), orLength(text.find(part, pos), text))
                        << show(text) << " " << show(part) << " " << pos;
                }
            }
        }
    }
}

TYPED_TEST(ByteStringFind, EveryCharacterAtEveryPlace) {
    using Text = std::basic_string<TypeParam>;
    for (std::size_t n = 1; n <= 70; ++n) {
        for (std::size_t at = 0; at < n; ++at) {
            Text text(n, CHARACTER('a'));
            text[at] = static_cast<TypeParam>(0xE9);
            for (const auto& b : {byteString(text), inFullWidth(text)}) {
                for (const std::size_t pos : {std::size_t{0}, at, at + 1}) {
                    const std::size_t expected = pos <= at ? at : n;
                    ASSERT_EQ(b.find(static_cast<TypeParam>(0xE9), pos), expected) << n << " " << at;
                    const Text part = text.substr(at);
                    ASSERT_EQ(b.find(part.c_str(), pos), expected) << n << " " << at;
                }
            }
        }
    }
}

class ByteStringFindWide : public WideByteStringTest {};

// Their low bytes are in the string.
TEST_F(ByteStringFindWide, WideCharactersAreNotInANarrowBlock) {
    const B b(L"A\xE9\xFF");
    ASSERT_EQ(b.getBytesPerChar(), 1U);
    for (const wchar_t c : {wchar_t{0x141}, wchar_t{0x1E9}, wchar_t{-1}, wchar_t{-0x17}, wchar_t{0x10041}}) {
        const wchar_t text[] = {c, 0};
        const wchar_t behind[] = {L'A', c, 0};
        EXPECT_EQ(b.find(c), 3U) << +c;
        EXPECT_EQ(b.find(text), 3U) << +c;
        EXPECT_EQ(b.find(behind), 3U) << +c;
    }
}

TEST_F(ByteStringFindWide, WideCharactersAreFoundInAWideBlock) {
    const B b(L"A\x141\x1E9\xE9");
    ASSERT_EQ(b.getBytesPerChar(), 4U);
    EXPECT_EQ(b.find(wchar_t{0x141}), 1U);
    EXPECT_EQ(b.find(wchar_t{0xE9}), 3U);
    EXPECT_EQ(b.find(L"\x1E9\xE9"), 2U);
    EXPECT_EQ(b.find(wchar_t{-0x17}), 4U);
}

// ---- compare and equals -----------------------------------------------------------------------------------

template <class T>
class ByteStringCompare : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringCompare, CharacterTypes, CharacterTypeNames);

int sign(int value) { return value < 0 ? -1 : value > 0 ? 1 : 0; }

// -1, 0 or 1: wide characters are signed numbers, as wcscmp has them, narrow ones unsigned.
template <class T>
int modelCompare(const std::basic_string<T>& a, const std::basic_string<T>& b) {
    const auto number = [](T c) -> std::int64_t {
        return sizeof(T) == 1 ? static_cast<std::int64_t>(static_cast<unsigned char>(c)) : c;
    };
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
        if (a[i] != b[i]) {
            return number(a[i]) < number(b[i]) ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

TYPED_TEST(ByteStringCompare, NullAndEmptyAreEqualOneWayOnly) {
    using B = sup::ByteString<TypeParam>;
    const B null;
    const B empty = emptyWithBlock<TypeParam>();
    const B text(TEXT("a"));
    EXPECT_EQ(null.compare(null), 0);
    EXPECT_EQ(null.compare(B()), 0);
    EXPECT_EQ(null.compare(empty), 0);
    EXPECT_EQ(empty.compare(null), 1);
    EXPECT_EQ(empty.compare(empty), 0);
    EXPECT_EQ(null.compare(text), -1);
    EXPECT_EQ(text.compare(null), 1);
    EXPECT_LT(empty.compare(text), 0);
    EXPECT_GT(text.compare(empty), 0);
    EXPECT_TRUE(B::equals(null, empty));
    EXPECT_TRUE(B::equals(empty, null));
    EXPECT_FALSE(B::equals(null, text));
    EXPECT_FALSE(B::equals(empty, text));
}

TYPED_TEST(ByteStringCompare, CharactersThenLengths) {
    using B = sup::ByteString<TypeParam>;
    EXPECT_EQ(B(TEXT("abc")).compare(B(TEXT("abc"))), 0);
    EXPECT_LT(B(TEXT("abc")).compare(B(TEXT("abd"))), 0);
    EXPECT_GT(B(TEXT("abd")).compare(B(TEXT("abcz"))), 0);
    EXPECT_LT(B(TEXT("abc")).compare(B(TEXT("abcd"))), 0);
    EXPECT_GT(B(TEXT("abcd")).compare(B(TEXT("abc"))), 0);
    EXPECT_LT(B(TEXT("ABC")).compare(B(TEXT("abc"))), 0);
    // Characters above 127 are above those below, stored in a byte or not.
    EXPECT_GT(B(TEXT("\xE9")).compare(B(TEXT("z"))), 0);
    EXPECT_LT(B(TEXT("z")).compare(B(TEXT("\xE9"))), 0);
    // A zero is a character like any other.
    EXPECT_LT(byteString(FULL_TEXT("a\0b")).compare(byteString(FULL_TEXT("a\0c"))), 0);
    EXPECT_GT(byteString(FULL_TEXT("a\0")).compare(byteString(FULL_TEXT("a"))), 0);
}

TYPED_TEST(ByteStringCompare, RandomTextsInAllWidths) {
    using B = sup::ByteString<TypeParam>;
    constexpr unsigned int kSeed = 2203;
    SCOPED_TRACE(kSeed);
    std::mt19937 random(kSeed);
    for (int round = 0; round < 4000; ++round) {
        const auto left = randomText<TypeParam>(random, random() % 40, random() % 2 == 0);
        auto right = left;
        const auto changes = random() % 3;
        for (unsigned int i = 0; i < changes && !right.empty(); ++i) {
            right[random() % right.size()] = randomText<TypeParam>(random, 1, random() % 2 == 0)[0];
        }
        right.resize(right.size() - (random() % 4 == 0 && !right.empty() ? 1 : 0));
        const B lefts[] = {byteString(left), inFullWidth(left)};
        const B rights[] = {byteString(right), inFullWidth(right)};
        for (const B& a : lefts) {
            for (const B& b : rights) {
                if (!left.empty() || a.diagnosticGetSharedRepresentation() == nullptr ||
                    b.diagnosticGetSharedRepresentation() != nullptr) {
                    ASSERT_EQ(sign(a.compare(b)), modelCompare(left, right))
                        << show(left) << " " << show(right);
                }
                ASSERT_EQ(B::equals(a, b), left == right) << show(left) << " " << show(right);
                ASSERT_EQ(a == b, left == right);
                ASSERT_EQ(a != b, left != right);
                ASSERT_TRUE(left != right || a.hash() == b.hash());
            }
        }
    }
}

TYPED_TEST(ByteStringCompare, EqualsWithText) {
    using B = sup::ByteString<TypeParam>;
    const TypeParam* const null = nullptr;
    for (const B& b : {B(TEXT("hello")), inFullWidth(FULL_TEXT("hello"))}) {
        EXPECT_TRUE(B::equals(b, TEXT("hello")));
        EXPECT_TRUE(B::equals(TEXT("hello"), b));
        for (const TypeParam* const text :
             {TEXT("hellO"), TEXT("Hello"), TEXT("hell"), TEXT("hello!"), TEXT(""), TEXT("ohell"), null}) {
            EXPECT_FALSE(B::equals(b, text));
            EXPECT_FALSE(B::equals(text, b));
        }
    }
    for (const B& b : {B(), emptyWithBlock<TypeParam>()}) {
        EXPECT_TRUE(B::equals(b, TEXT("")));
        EXPECT_TRUE(B::equals(TEXT(""), b));
        EXPECT_TRUE(B::equals(b, null));
        EXPECT_FALSE(B::equals(b, TEXT("a")));
        EXPECT_FALSE(B::equals(TEXT("a"), b));
    }
    EXPECT_FALSE(B::equals(byteString(FULL_TEXT("a\0b")), TEXT("a")));
    EXPECT_FALSE(B::equals(byteString(FULL_TEXT("a\0")), TEXT("a")));
}

class ByteStringCompareWide : public WideByteStringTest {};

TEST_F(ByteStringCompareWide, NegativeCharactersAreBelowAllOthers) {
    const B negative(wchar_t{-1});
    EXPECT_LT(negative.compare(B(L"a")), 0);
    EXPECT_GT(B(L"a").compare(negative), 0);
    EXPECT_LT(negative.compare(B(L"\x20AC")), 0);
    EXPECT_GT(B(L"\xFF").compare(negative), 0);
}

TEST_F(ByteStringCompareWide, CharactersOfEqualLowBytesDiffer) {
    EXPECT_GT(B(wchar_t{0x141}).compare(B(L"A")), 0);
    EXPECT_FALSE(B::equals(B(wchar_t{0x141}), B(L"A")));
    EXPECT_FALSE(B::equals(B(L"A"), L"\x141"));
    EXPECT_FALSE(B::equals(B(wchar_t{-1}), B(L"\xFF")));
    EXPECT_FALSE(B::equals(B(L"\xFF"), std::wstring(1, wchar_t{-1}).c_str()));
}

// ---- compareToIgnoreCase ----------------------------------------------------------------------------------

class CharacterLocale {
public:
    explicit CharacterLocale(const char* name) : m_old(std::setlocale(LC_CTYPE, nullptr)) {
        m_isSet = std::setlocale(LC_CTYPE, name) != nullptr;
    }
    ~CharacterLocale() { std::setlocale(LC_CTYPE, m_old.c_str()); }
    CharacterLocale(const CharacterLocale&) = delete;
    CharacterLocale& operator=(const CharacterLocale&) = delete;
    bool isSet() const { return m_isSet; }

private:
    std::string m_old;
    bool m_isSet = false;
};

constexpr const char* kLocales[] = {"C", "C.UTF-8"};

std::uint32_t lowered(wchar_t c) {
    return static_cast<std::uint32_t>(std::towlower(static_cast<std::wint_t>(c)));
}
std::uint32_t lowered(char c) {
    return static_cast<unsigned char>(std::tolower(static_cast<unsigned char>(c)));
}

template <class T>
int modelCompareIgnoreCase(const std::basic_string<T>& a, const std::basic_string<T>& b) {
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
        if (lowered(a[i]) != lowered(b[i])) {
            return lowered(a[i]) < lowered(b[i]) ? -1 : 1;
        }
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

template <class T>
class ByteStringIgnoreCase : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringIgnoreCase, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringIgnoreCase, CaseDoesNotCountLengthsDo) {
    using B = sup::ByteString<TypeParam>;
    EXPECT_EQ(B(TEXT("Hello")).compareToIgnoreCase(B(TEXT("hELLO"))), 0);
    EXPECT_LT(B(TEXT("HELLO")).compareToIgnoreCase(B(TEXT("hello!"))), 0);
    EXPECT_GT(B(TEXT("hello!")).compareToIgnoreCase(B(TEXT("HELLO"))), 0);
    EXPECT_LT(B(TEXT("A")).compareToIgnoreCase(B(TEXT("b"))), 0);
    EXPECT_GT(B(TEXT("B")).compareToIgnoreCase(B(TEXT("a"))), 0);
    // '_' lies between the upper and the lower letters: the lower ones are compared.
    EXPECT_GT(B(TEXT("A")).compareToIgnoreCase(B(TEXT("_"))), 0);
    EXPECT_NE(byteString(FULL_TEXT("a\0b")).compareToIgnoreCase(byteString(FULL_TEXT("A\0c"))), 0);
    EXPECT_EQ(byteString(FULL_TEXT("a\0b")).compareToIgnoreCase(byteString(FULL_TEXT("A\0B"))), 0);
}

TYPED_TEST(ByteStringIgnoreCase, NullAndEmptyAreComparedAsCompareDoes) {
    using B = sup::ByteString<TypeParam>;
    const B null;
    const B empty = emptyWithBlock<TypeParam>();
    const B text(TEXT("a"));
    EXPECT_EQ(null.compareToIgnoreCase(null), 0);
    EXPECT_EQ(null.compareToIgnoreCase(empty), 0);
    EXPECT_EQ(empty.compareToIgnoreCase(null), 1);
    EXPECT_EQ(empty.compareToIgnoreCase(empty), 0);
    EXPECT_EQ(null.compareToIgnoreCase(text), -1);
    EXPECT_EQ(text.compareToIgnoreCase(null), 1);
    EXPECT_LT(empty.compareToIgnoreCase(text), 0);
}

TYPED_TEST(ByteStringIgnoreCase, RandomTextsInAllWidthsAndLocales) {
    using B = sup::ByteString<TypeParam>;
    // Letters with their other case inside and outside of the range of a byte, and what is no letter.
    static constexpr std::int32_t kCharacters[] = {
        0,     'A',   'a',   'K',    'k',    'I',    'i',     'S',     's',      '_',    '[',       0xB5,
        0xC0,  0xC9,  0xD7,  0xDF,   0xE0,   0xE9,   0xF7,    0xFF,    0x100,    0x101,  0x130,     0x131,
        0x178, 0x17F, 0x39C, 0x3BC,  0x3A3,  0x3C3,  0x3C2,   0x410,   0x430,    0x1E9E, 0x212A,    0x212B,
        0x141, 0x161, -1,    -0x100, 0x2160, 0xFF21, 0x10400, 0x10428, 0x10FFFF, 0x1C4,  0x7FFFFFFF};
    constexpr unsigned int kSeed = 2204;
    for (const char* const name : kLocales) {
        const CharacterLocale locale(name);
        ASSERT_TRUE(locale.isSet()) << name;
        SCOPED_TRACE(name);
        SCOPED_TRACE(kSeed);
        std::mt19937 random(kSeed);
        const auto pick = [&] {
            return static_cast<TypeParam>(kCharacters[random() % std::size(kCharacters)]);
        };
        for (int round = 0; round < 3000; ++round) {
            std::basic_string<TypeParam> left;
            std::basic_string<TypeParam> right;
            for (std::size_t n = random() % 6; n > 0; --n) {
                const TypeParam c = pick();
                left += c;
                // Mostly the same letter in another case, so that the end is reached.
                const auto other = static_cast<TypeParam>(
                    sizeof(TypeParam) == 1 ? std::toupper(static_cast<unsigned char>(c))
                                           : static_cast<int>(std::towupper(static_cast<std::wint_t>(c))));
                right += random() % 4 == 0 ? pick() : other;
            }
            if (random() % 4 == 0) {
                right += pick();
            }
            const B lefts[] = {byteString(left), inFullWidth(left)};
            const B rights[] = {byteString(right), inFullWidth(right)};
            for (const B& a : lefts) {
                for (const B& b : rights) {
                    if (a.diagnosticGetSharedRepresentation() != nullptr &&
                        b.diagnosticGetSharedRepresentation() != nullptr) {
                        const int expected = modelCompareIgnoreCase(left, right);
                        ASSERT_EQ(sign(a.compareToIgnoreCase(b)), expected)
                            << show(left) << " " << show(right);
                        ASSERT_EQ(sign(b.compareToIgnoreCase(a)), -expected)
                            << show(left) << " " << show(right);
                    }
                }
            }
        }
    }
}

class ByteStringIgnoreCaseWide : public WideByteStringTest {};

TEST_F(ByteStringIgnoreCaseWide, TheLocaleTellsWhatALetterIs) {
    struct Row {
        const wchar_t* a;
        const wchar_t* b;
    };
    // Both narrow; both wide; mixed, with a byte whose other case takes four.
    static constexpr Row kRows[] = {
        {L"\xC9t\xE9", L"\xE9T\xC9"}, {L"\x100\x178", L"\x101\xFF"}, {L"\xFF", L"\x178"}, {L"\x212A", L"k"}};
    for (const Row& row : kRows) {
        {
            const CharacterLocale locale("C");
            EXPECT_NE(B(row.a).compareToIgnoreCase(B(row.b)), 0) << row.a;
            EXPECT_NE(B(row.b).compareToIgnoreCase(B(row.a)), 0) << row.a;
        }
        {
            const CharacterLocale locale("C.UTF-8");
            ASSERT_TRUE(locale.isSet());
            EXPECT_EQ(B(row.a).compareToIgnoreCase(B(row.b)), 0) << row.a;
            EXPECT_EQ(B(row.b).compareToIgnoreCase(B(row.a)), 0) << row.a;
        }
    }
}

TEST_F(ByteStringIgnoreCaseWide, CharactersAreUnsignedHere) {
    EXPECT_GT(B(wchar_t{-1}).compareToIgnoreCase(B(L"a")), 0);
    EXPECT_LT(B(L"a").compareToIgnoreCase(B(wchar_t{-1})), 0);
    EXPECT_GT(B(wchar_t{-1}).compareToIgnoreCase(B(L"\x20AC")), 0);
}

// Every pair of characters around the range of a byte, through the four comparisons that the string uses.
TEST(StringCompareIgnoreCase, EveryPairOfCharactersInEveryForm) {
    using namespace sup::string_details;
    constexpr wchar_t kEnd = 0x250;
    for (const char* const name : kLocales) {
        const CharacterLocale locale(name);
        ASSERT_TRUE(locale.isSet()) << name;
        for (wchar_t a = 0; a < kEnd; ++a) {
            for (wchar_t b = 0; b < kEnd; ++b) {
                const auto aByte = static_cast<unsigned char>(a);
                const auto bByte = static_cast<unsigned char>(b);
                const int expected = lowered(a) == lowered(b) ? 0 : lowered(a) < lowered(b) ? -1 : 1;
                ASSERT_EQ(sign(StringCompareI(&a, 1, &b, 1)), expected) << name << " " << +a << " " << +b;
                if (a < 256) {
                    ASSERT_EQ(sign(StringCompareI2(&aByte, 1, &b, 1)), expected)
                        << name << " " << +a << " " << +b;
                    ASSERT_EQ(sign(StringCompareI2(&b, 1, &aByte, 1)), -expected)
                        << name << " " << +a << " " << +b;
                }
                if (a < 256 && b < 256) {
                    ASSERT_EQ(sign(StringCompareI(&aByte, 1, &bByte, 1)), expected)
                        << name << " " << +a << " " << +b;
                    const char aNarrow = static_cast<char>(a);
                    const char bNarrow = static_cast<char>(b);
                    const int narrow =
                        modelCompareIgnoreCase(std::string(1, aNarrow), std::string(1, bNarrow));
                    ASSERT_EQ(sign(StringCompareI(&aNarrow, 1, &bNarrow, 1)), narrow)
                        << name << " " << +a << " " << +b;
                }
            }
        }
    }
}

// Texts of Latin letters that are equal but for case, for one place at most, or for their ends.
void expectOrderOfRandomTexts() {
    using namespace sup::string_details;
    constexpr unsigned kSeed = 256;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    std::mt19937 random(kSeed);
    const auto swapCase = [](wchar_t c) {
        const auto code = static_cast<std::wint_t>(c);
        const std::wint_t other = std::iswupper(code) != 0 ? std::towlower(code) : std::towupper(code);
        return other <= 0xFF ? static_cast<wchar_t>(other) : c;
    };
    for (int round = 0; round < 2000; ++round) {
        const std::size_t n = round % 4 == 0 ? 250 + random() % 300 : random() % 40;
        std::wstring a(n, L'\0');
        std::wstring b(n, L'\0');
        for (std::size_t i = 0; i < n; ++i) {
            a[i] = static_cast<wchar_t>(random() % 4 == 0 ? random() % 256 : 'A' + random() % 58);
            b[i] = random() % 2 == 0 ? swapCase(a[i]) : a[i];
        }
        if (n != 0 && round % 2 == 0) {
            b[random() % n] = static_cast<wchar_t>(random() % 256);
        }
        a.resize(n - (n == 0 ? 0 : random() % 2));
        const std::basic_string<unsigned char> aBytes(a.begin(), a.end());
        const std::basic_string<unsigned char> bBytes(b.begin(), b.end());
        const int expected = modelCompareIgnoreCase(a, b);
        ASSERT_EQ(sign(StringCompareI(a.data(), a.size(), b.data(), b.size())), expected);
        ASSERT_EQ(sign(StringCompareI(aBytes.data(), a.size(), bBytes.data(), b.size())), expected);
        ASSERT_EQ(sign(StringCompareI2(aBytes.data(), a.size(), b.data(), b.size())), expected);
        ASSERT_EQ(sign(StringCompareI2(a.data(), a.size(), bBytes.data(), b.size())), expected);
        const std::string aNarrow(a.begin(), a.end());
        const std::string bNarrow(b.begin(), b.end());
        ASSERT_EQ(sign(StringCompareI(aNarrow.data(), a.size(), bNarrow.data(), b.size())),
                  modelCompareIgnoreCase(aNarrow, bNarrow));
    }
}

TEST(StringCompareIgnoreCase, TextsOfAllLengthsFollowTheLocale) {
    for (const char* const name : kLocales) {
        const CharacterLocale locale(name);
        ASSERT_TRUE(locale.isSet()) << name;
        brimtest::atEachLevel([] { expectOrderOfRandomTexts(); });
    }
}

TEST(StringCompareIgnoreCase, TurkishDotsCount) {
    using namespace sup::string_details;
    EXPECT_EQ(StringCompareI(L"TITLE", 5, L"title", 5), 0);
    const brimtest::CompiledLocale locale("tr_TR");
    if (!locale.isSet()) {
        GTEST_SKIP() << "localedef makes no tr_TR here";
    }
    EXPECT_NE(StringCompareI(L"TITLE", 5, L"title", 5), 0);
    EXPECT_EQ(StringCompareI(L"TITLE", 5, L"t\u0131tle", 5), 0);
    expectOrderOfRandomTexts();
}

TEST(StringCompareIgnoreCase, ShorterIsLessAndNothingIsEqual) {
    using namespace sup::string_details;
    const wchar_t wide[] = L"aB";
    const unsigned char bytes[] = {'A', 'b'};
    EXPECT_EQ(StringCompareI(wide, 0, wide, 0), 0);
    EXPECT_EQ(StringCompareI2(wide, 2, bytes, 2), 0);
    EXPECT_EQ(StringCompareI2(bytes, 2, wide, 2), 0);
    EXPECT_LT(StringCompareI2(bytes, 1, wide, 2), 0);
    EXPECT_GT(StringCompareI2(bytes, 2, wide, 1), 0);
    EXPECT_LT(StringCompareI2(wide, 0, bytes, 1), 0);
    EXPECT_LT(StringCompareI("a", 1, "AB", 2), 0);
}

TEST(ToLowerCase, FollowsTheLocale) {
    using namespace sup::string_details;
    for (const char* const name : kLocales) {
        const CharacterLocale locale(name);
        ASSERT_TRUE(locale.isSet()) << name;
        for (int c = 0; c < 0x3000; ++c) {
            const auto expected = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
            ASSERT_EQ(ToLowerCase(static_cast<wchar_t>(c)), expected) << name << " " << c;
            if (c < 256) {
                ASSERT_EQ(ToLowerCase2(static_cast<unsigned char>(c)), expected) << name << " " << c;
                ASSERT_EQ(ToLowerCase(static_cast<char>(c)), static_cast<char>(std::tolower(c)))
                    << name << " " << c;
            }
        }
    }
    const CharacterLocale locale("C.UTF-8");
    EXPECT_EQ(ToLowerCase2(0xC9), 0xE9);
    EXPECT_EQ(ToLowerCase('Q'), 'q');
}

// ---- hash -------------------------------------------------------------------------------------------------

template <class T>
class ByteStringHash : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringHash, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringHash, OfNothingIsZero) {
    EXPECT_EQ(sup::ByteString<TypeParam>().hash(), 0U);
    EXPECT_EQ(emptyWithBlock<TypeParam>().hash(), 0U);
    EXPECT_EQ(emptyWithBlock<TypeParam>(sizeof(TypeParam)).hash(), 0U);
}

TYPED_TEST(ByteStringHash, OfOneAndOfTwoCharacters) {
    using B = sup::ByteString<TypeParam>;
    for (std::uint32_t a = 0; a < 256; ++a) {
        EXPECT_EQ(B(static_cast<TypeParam>(a)).hash(), a);
        const TypeParam two[] = {static_cast<TypeParam>(a), CHARACTER('b')};
        EXPECT_EQ(B(two, 2).hash(), a * 101 + 'b');
    }
}

TYPED_TEST(ByteStringHash, PlainFormulaInBothWidths) {
    constexpr unsigned int kSeed = 2205;
    SCOPED_TRACE(kSeed);
    std::mt19937 random(kSeed);
    for (std::size_t n = 0; n <= 130; ++n) {
        for (int round = 0; round < 20; ++round) {
            const auto text = randomText<TypeParam>(random, n, round % 2 == 0);
            ASSERT_EQ(byteString(text).hash(), hashOf(text)) << show(text);
            ASSERT_EQ(inFullWidth(text).hash(), hashOf(text)) << show(text);
        }
    }
}

TEST(ByteStringHashWide, OfAWideCharacterIsItsValue) {
    using B = sup::ByteString<wchar_t>;
    EXPECT_EQ(B(wchar_t{0x20AC}).hash(), 0x20ACU);
    EXPECT_EQ(B(wchar_t{-1}).hash(), 0xFFFFFFFFU);
    EXPECT_EQ(B(L"\x20AC\xE9").hash(), 0x20ACU * 101U + 0xE9U);
}

} // namespace
