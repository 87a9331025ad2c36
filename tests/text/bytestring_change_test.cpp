// sup::ByteString: appending, clear, reserve and sub-strings.
#include "Utility/Generic/Portable/SUPBString.h"

#include "bytestring_test_support.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <vector>

namespace {

using namespace brimtest;

// ---- Appending --------------------------------------------------------------------------------------------

template <class T>
class ByteStringAppend : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringAppend, CharacterTypes, CharacterTypeNames);

// Every way to append "xyz" or, where only one character can be appended, "x".
template <class T>
struct AppendRow {
    const char* name;
    std::basic_string<T> added;
    std::function<sup::ByteString<T>&(sup::ByteString<T>&)> append;
};

template <class T>
std::vector<AppendRow<T>> appendRows() {
    using TypeParam = T;
    using B = sup::ByteString<T>;
    const T* const text = TEXT("xyz");
    const auto x = CHARACTER('x');
    const auto full = FULL_TEXT("xyz");
    const auto one = FULL_TEXT("x");
    return {
        {"byte string", full, [=](B& b) -> B& { return b.append(B(text)); }},
        {"text", full, [=](B& b) -> B& { return b.append(text); }},
        {"text and count", full, [](B& b) -> B& { return b.append(TEXT("xyz?"), 3); }},
        {"range", full, [=](B& b) -> B& { return b.append(text, text + 3); }},
        {"character", one, [=](B& b) -> B& { return b.append(x); }},
        {"copies", FULL_TEXT("xxx"), [=](B& b) -> B& { return b.append(3, x); }},
        {"+= byte string", full, [=](B& b) -> B& { return b += B(text); }},
        {"+= text", full, [=](B& b) -> B& { return b += text; }},
        {"+= character", one, [=](B& b) -> B& { return b += x; }},
        {"push_back", one, [=](B& b) -> B& { return b.push_back(x), b; }},
    };
}

TYPED_TEST(ByteStringAppend, ToANonEmptyStringMakesABlockOfExactlyTheNewLength) {
    using B = sup::ByteString<TypeParam>;
    for (const auto& row : appendRows<TypeParam>()) {
        SCOPED_TRACE(row.name);
        B b(TEXT("hello"));
        const B other(b);
        AllocationLog log;
        EXPECT_EQ(&row.append(b), &b);
        EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("hello") + row.added));
        EXPECT_TRUE(isBlockOf(other, FULL_TEXT("hello"), 1, 5));
        EXPECT_EQ(byteStringBlocks(log), 2U); // the new block, and one for what is appended
    }
}

TYPED_TEST(ByteStringAppend, NeverWorksInPlace) {
    using B = sup::ByteString<TypeParam>;
    for (const auto& row : appendRows<TypeParam>()) {
        SCOPED_TRACE(row.name);
        B b(TEXT("hello"));
        b.reserve(100);
        AllocationLog log;
        row.append(b);
        EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("hello") + row.added));
        EXPECT_EQ(byteStringBlocks(log), 2U);
        EXPECT_EQ(log.releases().size(), 2U);
    }
}

TYPED_TEST(ByteStringAppend, ToAnEmptyStringHandsOverTheAppendedBlock) {
    using B = sup::ByteString<TypeParam>;
    for (const auto& row : appendRows<TypeParam>()) {
        SCOPED_TRACE(row.name);
        B null;
        B empty = emptyWithBlock<TypeParam>();
        for (B* const b : {&null, &empty}) {
            AllocationLog log;
            EXPECT_EQ(&row.append(*b), b);
            EXPECT_TRUE(isFreshBlockOf(*b, row.added));
            EXPECT_TRUE(askedForByteBlock(log, row.added.size(), 1));
        }
    }
}

TYPED_TEST(ByteStringAppend, AByteStringToAnEmptyOneIsShared) {
    using B = sup::ByteString<TypeParam>;
    const B a(TEXT("hello"));
    B null;
    B empty = emptyWithBlock<TypeParam>();
    B cleared(TEXT("old"));
    cleared.clear();
    for (B* const b : {&null, &empty, &cleared}) {
        AllocationLog log;
        b->append(a);
        EXPECT_TRUE(shareOneBlock(a, *b));
        EXPECT_FALSE(a.isUnique());
        EXPECT_FALSE(b->isUnique());
        EXPECT_TRUE(log.requests().empty());
        *b += TEXT("!");
        EXPECT_TRUE(isFreshBlockOf(*b, FULL_TEXT("hello!")));
        EXPECT_TRUE(isBlockOf(a, FULL_TEXT("hello"), 1, 5));
    }
}

TYPED_TEST(ByteStringAppend, NothingChangesNothing) {
    using B = sup::ByteString<TypeParam>;
    const TypeParam* const null = nullptr;
    const TypeParam* const text = TEXT("abc");
    const B empty = emptyWithBlock<TypeParam>();
    B b(TEXT("hello"));
    B reserved(TEXT("hello"));
    reserved.reserve(9);
    B nothing;
    B cleared = emptyWithBlock<TypeParam>();
    for (B* const s : {&b, &reserved, &nothing, &cleared}) {
        const auto* const block = s->diagnosticGetSharedRepresentation();
        AllocationLog log;
        s->append(B());
        s->append(empty);
        s->append(null);
        s->append(null, 0);
        s->append(null, null);
        s->append(TEXT(""));
        s->append(text, 0);
        s->append(text, text);
        s->append(0, CHARACTER('x'));
        *s += B();
        *s += TEXT("");
        EXPECT_EQ(s->diagnosticGetSharedRepresentation(), block);
        EXPECT_TRUE(log.empty());
    }
}

TYPED_TEST(ByteStringAppend, TheStringItself) {
    using B = sup::ByteString<TypeParam>;
    for (const bool full : {false, true}) {
        const auto text = FULL_TEXT("ab\0c\xE9");
        B b = full ? inFullWidth(text) : byteString(text);
        const unsigned int width = b.getBytesPerChar();
        b.append(b);
        EXPECT_TRUE(isBlockOf(b, text + text, width, 10));
        const B sharer(b);
        b += b;
        EXPECT_TRUE(isBlockOf(b, text + text + text + text, width, 20));
        EXPECT_TRUE(isBlockOf(sharer, text + text, width, 10));
        b.append(sharer);
        EXPECT_EQ(b.length(), 30U);
        b.push_back(b.front());
        EXPECT_EQ(b.back(), CHARACTER('a'));
    }
    B null;
    null.append(null);
    EXPECT_TRUE(isNull(null));
    B empty = emptyWithBlock<TypeParam>();
    empty.append(empty);
    EXPECT_TRUE(isBlockOf(empty, FULL_TEXT(""), 1, 5));
}

TYPED_TEST(ByteStringAppend, ZerosAreKept) {
    using B = sup::ByteString<TypeParam>;
    B b;
    b.append(TEXT("a\0b"), 3);
    b.push_back(CHARACTER(0));
    b.append(2, CHARACTER(0));
    b.append(B(TEXT("\0c"), 2));
    EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("a\0b\0\0\0\0c")));
}

TEST(ByteStringNarrow, AppendsOfItsOwnCharacters) {
    sup::ByteString<char> b("hello");
    b.append(b.getCharArray() + 1, 3);
    b += b.getCharArray() + 6;
    EXPECT_EQ(show(b), "helloellll");
}

class ByteStringAppendWidth : public WideByteStringTest {};

TEST_F(ByteStringAppendWidth, AWideCharacterWidensAllOldCharacters) {
    for (const wchar_t wide : {wchar_t{0x100}, wchar_t{0x20AC}, wchar_t{-1}}) {
        for (std::size_t n = 1; n <= 130; ++n) {
            Text text;
            for (std::size_t i = 0; i < n; ++i) {
                text += static_cast<wchar_t>((i * 7 + 0x41) % 256);
            }
            B b = byteString(text);
            const B other(b);
            b.push_back(wide);
            EXPECT_TRUE(isBlockOf(b, text + wide, 4, n + 1)) << n;
            b += L'z';
            EXPECT_TRUE(isBlockOf(b, text + wide + L'z', 4, n + 2)) << n;
            EXPECT_TRUE(isBlockOf(other, text, 1, n)) << n;
        }
    }
}

TEST_F(ByteStringAppendWidth, NewBlockHasTheLargerOfTheTwoWidths) {
    const Text narrow = L"ab\xFF";
    const Text wide = L"\x20ACz";
    struct Row {
        Text left;
        Text right;
        unsigned int width;
    };
    const Row rows[] = {{narrow, narrow, 1}, {narrow, wide, 4}, {wide, narrow, 4}, {wide, wide, 4}};
    for (const Row& row : rows) {
        B b = byteString(row.left);
        AllocationLog log;
        const B added = byteString(row.right);
        log.clear();
        b.append(added);
        EXPECT_TRUE(isBlockOf(b, row.left + row.right, row.width, row.left.size() + row.right.size()));
        EXPECT_TRUE(askedForByteBlock(log, row.left.size() + row.right.size(), row.width));
        EXPECT_TRUE(isFreshBlockOf(added, row.right));
    }
    // The widths of the blocks count, not the characters in them.
    B b = byteString(narrow);
    b.append(inFullWidth(narrow));
    EXPECT_TRUE(isBlockOf(b, narrow + narrow, 4, 6));
}

TEST_F(ByteStringAppendWidth, AnEmptyStringTakesTheWidthOfWhatIsAppended) {
    B b = emptyWithBlock<wchar_t>(4);
    b.append(L"abc");
    EXPECT_TRUE(isBlockOf(b, Text(L"abc"), 1, 3));
    B c = emptyWithBlock<wchar_t>(1);
    c.append(2, wchar_t{0x20AC});
    EXPECT_TRUE(isBlockOf(c, Text(2, wchar_t{0x20AC}), 4, 2));
}

// ---- clear and reserve ------------------------------------------------------------------------------------

template <class T>
class ByteStringCapacity : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringCapacity, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringCapacity, ClearKeepsAUniqueBlock) {
    using B = sup::ByteString<TypeParam>;
    for (const bool full : {false, true}) {
        B b = full ? inFullWidth(FULL_TEXT("hello")) : B(TEXT("hello"));
        const unsigned int width = b.getBytesPerChar();
        const auto* const block = b.diagnosticGetSharedRepresentation();
        AllocationLog log;
        b.clear();
        EXPECT_EQ(b.diagnosticGetSharedRepresentation(), block);
        EXPECT_TRUE(isBlockOf(b, FULL_TEXT(""), width, 5));
        b.clear();
        EXPECT_EQ(b.diagnosticGetSharedRepresentation(), block);
        EXPECT_TRUE(log.empty());
    }
}

TYPED_TEST(ByteStringCapacity, ClearLetsASharedBlockGo) {
    using B = sup::ByteString<TypeParam>;
    B b(TEXT("hello"));
    const B other(b);
    b.clear();
    EXPECT_TRUE(isNull(b));
    EXPECT_TRUE(isBlockOf(other, FULL_TEXT("hello"), 1, 5));
    b.clear();
    EXPECT_TRUE(isNull(b));
}

TYPED_TEST(ByteStringCapacity, ReserveMakesRoomInABlockOfTheSameWidth) {
    using B = sup::ByteString<TypeParam>;
    for (const bool full : {false, true}) {
        B b = full ? inFullWidth(FULL_TEXT("hello")) : B(TEXT("hello"));
        const unsigned int width = b.getBytesPerChar();
        AllocationLog log;
        b.reserve(5);
        b.reserve(3);
        b.reserve(0);
        EXPECT_TRUE(log.empty());
        b.reserve(6);
        EXPECT_TRUE(isBlockOf(b, FULL_TEXT("hello"), width, 6));
        EXPECT_TRUE(askedForByteBlock(log, 6, width));
        b.reserve(200);
        EXPECT_TRUE(isBlockOf(b, FULL_TEXT("hello"), width, 200));
        b.reserve(150);
        EXPECT_TRUE(isBlockOf(b, FULL_TEXT("hello"), width, 200));
    }
}

TYPED_TEST(ByteStringCapacity, ReserveOfASharedStringMakesItPrivate) {
    using B = sup::ByteString<TypeParam>;
    for (const std::size_t n : {0U, 3U, 5U, 9U}) {
        B b(TEXT("hello"));
        const B other(b);
        AllocationLog log;
        b.reserve(n);
        EXPECT_TRUE(isBlockOf(b, FULL_TEXT("hello"), 1, std::max<std::size_t>(5, n)));
        EXPECT_TRUE(isBlockOf(other, FULL_TEXT("hello"), 1, 5));
        EXPECT_TRUE(askedForByteBlock(log, std::max<std::size_t>(5, n), 1));
    }
}

TYPED_TEST(ByteStringCapacity, ReserveOfTheNullString) {
    using B = sup::ByteString<TypeParam>;
    B b;
    AllocationLog log;
    b.reserve(0);
    EXPECT_TRUE(isNull(b));
    EXPECT_TRUE(log.empty());
    b.reserve(7);
    EXPECT_TRUE(isBlockOf(b, FULL_TEXT(""), 1, 7));
    EXPECT_TRUE(askedForByteBlock(log, 7, 1));
}

// ---- Sub-strings ------------------------------------------------------------------------------------------

template <class T>
class ByteStringSubstr : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringSubstr, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringSubstr, EveryPositionAndLengthInBothWidths) {
    using B = sup::ByteString<TypeParam>;
    const auto text = FULL_TEXT("ab\0d\xE9xy");
    for (const B& b : {byteString(text), inFullWidth(text)}) {
        for (std::size_t pos = 0; pos <= text.size() + 2; ++pos) {
            for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{6},
                                        std::size_t{7}, std::size_t{8}, B::npos - 1, B::npos}) {
                const auto part = pos < text.size() ? text.substr(pos, n) : FULL_TEXT("");
                if (part.empty()) {
                    EXPECT_TRUE(isNull(b.substr(pos, n))) << pos << " " << n;
                } else {
                    EXPECT_TRUE(isFreshBlockOf(b.substr(pos, n), part)) << pos << " " << n;
                }
            }
            if (pos < text.size()) {
                EXPECT_TRUE(isFreshBlockOf(b.substr(pos), text.substr(pos))) << pos;
            } else {
                EXPECT_TRUE(isNull(b.substr(pos))) << pos;
            }
        }
        EXPECT_TRUE(isNull(b.substr(B::npos)));
        EXPECT_TRUE(isNull(b.substr(B::npos, B::npos)));
    }
}

TYPED_TEST(ByteStringSubstr, OfEmptyStringsIsNull) {
    using B = sup::ByteString<TypeParam>;
    AllocationLog log;
    EXPECT_TRUE(isNull(B().substr(0)));
    EXPECT_TRUE(isNull(B().substr(0, 1)));
    EXPECT_TRUE(isNull(B().substr(3, 1)));
    EXPECT_TRUE(log.empty());
    EXPECT_TRUE(isNull(emptyWithBlock<TypeParam>().substr(0)));
    EXPECT_TRUE(isNull(emptyWithBlock<TypeParam>().substr(0, 1)));
}

} // namespace
