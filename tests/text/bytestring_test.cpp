// sup::ByteString: its blocks, construction, width, assignment, moves, access, widening and conversion.
#include "Utility/Generic/Portable/SUPBString.h"

#include "bytestring_test_support.h"

#include "guarded_buffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace brimtest;

// ---- Types and layout -------------------------------------------------------------------------------------

template <class T>
class ByteStringLayout : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringLayout, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringLayout, StringIsOnePointer) {
    using B = sup::ByteString<TypeParam>;
    EXPECT_EQ(sizeof(B), sizeof(void*));
    EXPECT_TRUE((std::is_base_of<memalloc::MemAllocNewdel, B>::value));
}

TYPED_TEST(ByteStringLayout, NestedTypes) {
    using B = sup::ByteString<TypeParam>;
    EXPECT_TRUE((std::is_same<typename B::size_type, std::size_t>::value));
    EXPECT_TRUE((std::is_same<typename B::char_type, TypeParam>::value));
    EXPECT_TRUE((std::is_same<typename B::value_type, TypeParam>::value));
    EXPECT_EQ(B::npos, std::numeric_limits<std::size_t>::max());
    const typename B::ReturnStringLenIfNotFound tag = B::kReturnStringLenIfNotFound;
    EXPECT_EQ(B(TEXT("ab")).find(CHARACTER('x'), tag), 2U);
}

TYPED_TEST(ByteStringLayout, BlockIsAHeaderOf28BytesThenTheCharactersAndAZero) {
    const sup::ByteString<TypeParam> b(TEXT("abc"));
    const auto* const block = b.diagnosticGetSharedRepresentation();
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE((std::is_base_of<memalloc::MemAllocNewdel, std::decay_t<decltype(*block)>>::value));
    const auto address = [](const void* p) { return reinterpret_cast<std::uintptr_t>(p); };
    EXPECT_EQ(address(&block->m_refCount), address(block));
    EXPECT_EQ(sizeof(block->m_refCount), 4U);
    EXPECT_EQ(address(&block->m_nCapacity), address(block) + 4);
    EXPECT_EQ(sizeof(block->m_nCapacity), 4U);
    EXPECT_EQ(address(&block->m_nBytesPerChar), address(block) + 8);
    EXPECT_EQ(sizeof(block->m_nBytesPerChar), 1U);
    EXPECT_EQ(address(&block->m_nLength), address(block) + 12);
    EXPECT_EQ(sizeof(block->m_nLength), 4U);
    EXPECT_EQ(address(block->m_pStart), address(block) + 28);
    EXPECT_EQ(std::memcmp(block->m_pStart, "abc", 4), 0);
}

// The size does not change between request and release, whatever happens to the string meanwhile.
TYPED_TEST(ByteStringLayout, BlockSizesOfBothWidths) {
    using B = sup::ByteString<TypeParam>;
    for (const unsigned int width : {1U, static_cast<unsigned int>(sizeof(TypeParam))}) {
        for (std::size_t n = 0; n <= 130; ++n) {
            AllocationLog log;
            {
                B b(n, width);
                const B shared(b);
                b.clear();
            }
            EXPECT_TRUE(askedForByteBlock(log, n, width)) << n;
            ASSERT_EQ(log.releases().size(), 1U);
            EXPECT_EQ(log.releases()[0].block, log.requests()[0].block);
            EXPECT_EQ(log.releases()[0].size, byteBlockSize(n, width)) << n;
        }
    }
}

struct SizeRow {
    std::size_t capacity;
    unsigned int width;
    std::size_t size;
};

TEST(ByteStringBlocks, SizesOfTheTable) {
    static constexpr SizeRow kRows[] = {{0, 1, 32}, {1, 1, 33}, {3, 1, 35},  {100, 1, 132},
                                        {0, 4, 35}, {1, 4, 39}, {10, 4, 75}, {100, 4, 435}};
    for (const SizeRow& row : kRows) {
        AllocationLog log;
        { const sup::ByteString<wchar_t> b(row.capacity, row.width); }
        ASSERT_EQ(byteStringBlocks(log), 1U);
        EXPECT_EQ(log.requests()[0].size, row.size) << row.capacity;
        ASSERT_EQ(log.releases().size(), 1U);
        EXPECT_EQ(log.releases()[0].size, row.size) << row.capacity;
    }
}

TYPED_TEST(ByteStringLayout, FreshBlockHasCountOneLengthZeroAndAZeroCharacter) {
    using Data = sup::string_details::ByteStringData<TypeParam>;
    for (const unsigned int width : {1U, static_cast<unsigned int>(sizeof(TypeParam))}) {
        for (const std::size_t n : {0U, 1U, 7U, 100U}) {
            AllocationLog log;
            Data* const block = Data::allocateData(n, width);
            EXPECT_EQ(block->m_refCount.get(), 1);
            EXPECT_TRUE(block->isUnique());
            EXPECT_EQ(block->m_nCapacity, n);
            EXPECT_EQ(block->m_nLength, 0U);
            EXPECT_EQ(block->m_nBytesPerChar, width);
            EXPECT_EQ(std::memcmp(block->m_pStart, "\0\0\0", width), 0);
            block->ref();
            EXPECT_EQ(block->m_refCount.get(), 2);
            EXPECT_FALSE(block->isUnique());
            block->deref();
            EXPECT_TRUE(log.releases().empty());
            block->deref();
            ASSERT_EQ(log.releases().size(), 1U);
            EXPECT_EQ(log.releases()[0].size, byteBlockSize(n, width));
        }
    }
}

TYPED_TEST(ByteStringLayout, BlockAppendsCopiesOfACharacterInItsWidth) {
    using Data = sup::string_details::ByteStringData<TypeParam>;
    for (const unsigned int width : {1U, static_cast<unsigned int>(sizeof(TypeParam))}) {
        Data* const block = Data::allocateData(5, width);
        block->append(2, CHARACTER('a'));
        block->append(std::size_t{0}, CHARACTER('x'));
        block->append(3, CHARACTER('\xE9'));
        EXPECT_EQ(block->m_nLength, 5U);
        EXPECT_EQ(block->m_nCapacity, 5U);
        std::string stored;
        for (const char c : {'a', 'a', '\xE9', '\xE9', '\xE9', '\0'}) {
            // The character sign-extends on its way through a wide constant, as CHARACTER() does.
            const TypeParam wide = static_cast<TypeParam>(c);
            stored.append(reinterpret_cast<const char*>(&wide), width);
        }
        EXPECT_EQ(std::memcmp(block->m_pStart, stored.data(), stored.size()), 0);
        block->deref();
    }
}

TEST(ByteStringBlocks, NarrowBlockTakesTheLowByteOfAWideCharacter) {
    using Data = sup::string_details::ByteStringData<wchar_t>;
    Data* const block = Data::allocateData(5, 1);
    block->append(2, wchar_t{0x141});
    const wchar_t text[] = {0x20AC, -1, L'z'};
    block->append(text, 3);
    EXPECT_EQ(block->m_nLength, 5U);
    EXPECT_EQ(std::memcmp(block->m_pStart, "\x41\x41\xAC\xFFz", 6), 0);
    block->deref();
}

// ---- Construction -----------------------------------------------------------------------------------------

template <class T>
class ByteStringConstruction : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringConstruction, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringConstruction, DefaultIsNullAndAllocatesNothing) {
    AllocationLog log;
    const sup::ByteString<TypeParam> b;
    EXPECT_TRUE(isNull(b));
    EXPECT_EQ(b.length(), 0U);
    EXPECT_EQ(b.size(), 0U);
    EXPECT_EQ(b.capacity(), 0U);
    EXPECT_TRUE(b.empty());
    EXPECT_FALSE(b.isUnique());
    EXPECT_EQ(b.begin(), b.end());
    EXPECT_EQ(b.rbegin(), b.rend());
    EXPECT_EQ(b.getBytesPerChar(), 1U);
    EXPECT_EQ(b.getCharArray(), nullptr);
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(ByteStringConstruction, FromText) {
    AllocationLog log;
    const sup::ByteString<TypeParam> b(TEXT("hello"));
    EXPECT_TRUE(isBlockOf(b, FULL_TEXT("hello"), 1, 5));
    EXPECT_EQ(b.size(), 5U);
    EXPECT_FALSE(b.empty());
    EXPECT_TRUE(askedForByteBlock(log, 5, 1));
}

TYPED_TEST(ByteStringConstruction, FromTextConvertsImplicitly) {
    const sup::ByteString<TypeParam> b = TEXT("hello");
    EXPECT_EQ(show(b), "hello");
}

TYPED_TEST(ByteStringConstruction, EmptyTextsGiveNull) {
    using B = sup::ByteString<TypeParam>;
    const TypeParam* const null = nullptr;
    const TypeParam* const text = TEXT("abc");
    AllocationLog log;
    EXPECT_TRUE(isNull(B(TEXT(""))));
    EXPECT_TRUE(isNull(B(null)));
    EXPECT_TRUE(isNull(B(text, 0)));
    EXPECT_TRUE(isNull(B(null, 0)));
    EXPECT_TRUE(isNull(B(text + 1, text + 1)));
    EXPECT_TRUE(isNull(B(null, null)));
    EXPECT_TRUE(isNull(B(0, CHARACTER('x'))));
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(ByteStringConstruction, FromTextAndCountKeepsZeros) {
    const sup::ByteString<TypeParam> b(TEXT("ab\0cd"), 4);
    EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("ab\0c")));
}

TYPED_TEST(ByteStringConstruction, FromRange) {
    const TypeParam* const text = TEXT("ab\0cd");
    EXPECT_TRUE(isFreshBlockOf(sup::ByteString<TypeParam>(text + 1, text + 4), FULL_TEXT("b\0c")));
    TypeParam writable[] = {CHARACTER('x'), CHARACTER('y')};
    EXPECT_TRUE(isFreshBlockOf(sup::ByteString<TypeParam>(writable, writable + 2), FULL_TEXT("xy")));
}

TYPED_TEST(ByteStringConstruction, CopiesOfACharacter) {
    using B = sup::ByteString<TypeParam>;
    AllocationLog log;
    EXPECT_TRUE(isFreshBlockOf(B(10, CHARACTER('x')), FULL_TEXT("xxxxxxxxxx")));
    EXPECT_TRUE(askedForByteBlock(log, 10, 1));
    EXPECT_TRUE(isFreshBlockOf(B(3, CHARACTER(0)), FULL_TEXT("\0\0\0")));
}

TYPED_TEST(ByteStringConstruction, OneCharacter) {
    using B = sup::ByteString<TypeParam>;
    EXPECT_TRUE(isFreshBlockOf(B(CHARACTER('x')), FULL_TEXT("x")));
    EXPECT_TRUE(isFreshBlockOf(B(CHARACTER(0)), FULL_TEXT("\0")));
    EXPECT_FALSE((std::is_convertible<TypeParam, B>::value));
}

TYPED_TEST(ByteStringConstruction, CapacityAndWidthMakeAnEmptyBlock) {
    using B = sup::ByteString<TypeParam>;
    const auto full = static_cast<unsigned int>(sizeof(TypeParam));
    for (const std::size_t capacity : {0U, 1U, 5U, 1000U}) {
        for (const unsigned int width : {1U, full}) {
            AllocationLog log;
            const B b(capacity, width);
            EXPECT_TRUE(isBlockOf(b, FULL_TEXT(""), width, capacity));
            EXPECT_TRUE(b.empty());
            EXPECT_TRUE(askedForByteBlock(log, capacity, width));
        }
    }
}

// Two numbers mean a capacity and a width, a number and a character mean copies of the character.
TYPED_TEST(ByteStringConstruction, TheTypeOfTheSecondArgumentTellsWidthFromCharacter) {
    using B = sup::ByteString<TypeParam>;
    const auto capacity32 = std::uint32_t{4};
    const auto width8 = std::uint8_t{1};
    EXPECT_TRUE(isBlockOf(B(4, 1), FULL_TEXT(""), 1, 4));
    EXPECT_TRUE(isBlockOf(B(0, 1), FULL_TEXT(""), 1, 0));
    EXPECT_TRUE(isBlockOf(B(4U, std::size_t{1}), FULL_TEXT(""), 1, 4));
    EXPECT_TRUE(isBlockOf(B(capacity32, width8), FULL_TEXT(""), 1, 4));
    EXPECT_TRUE(isBlockOf(B(std::size_t{4}, sizeof(TypeParam)), FULL_TEXT(""), sizeof(TypeParam), 4));
    EXPECT_TRUE(isFreshBlockOf(B(4, CHARACTER(1)), FULL_TEXT("\1\1\1\1")));
    EXPECT_TRUE(isFreshBlockOf(B(capacity32, CHARACTER(4)), FULL_TEXT("\4\4\4\4")));
    EXPECT_TRUE(isFreshBlockOf(B(TEXT("abcdef"), 4), FULL_TEXT("abcd")));
    EXPECT_TRUE(isFreshBlockOf(B(TEXT("abcdef"), 1), FULL_TEXT("a")));
    EXPECT_TRUE(isFreshBlockOf(B(B(TEXT("abcdef")), 4), FULL_TEXT("abcd")));
}

TYPED_TEST(ByteStringConstruction, CopySharesTheBlock) {
    const sup::ByteString<TypeParam> a(TEXT("hello"));
    AllocationLog log;
    const sup::ByteString<TypeParam> b(a); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_TRUE(shareOneBlock(a, b));
    EXPECT_EQ(b.getCharArray(), a.getCharArray());
    EXPECT_TRUE(isBlockOf(a, FULL_TEXT("hello"), 1, 5, 2));
    EXPECT_FALSE(b.isUnique());
    EXPECT_TRUE(log.empty());
}

TYPED_TEST(ByteStringConstruction, CopyOfNullIsNull) {
    const sup::ByteString<TypeParam> a;
    const sup::ByteString<TypeParam> b(a); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_TRUE(isNull(b));
}

TYPED_TEST(ByteStringConstruction, BlockIsFreedWithTheLastString) {
    using B = sup::ByteString<TypeParam>;
    AllocationLog log;
    {
        const B a(TEXT("hello"));
        {
            const B b(a); // NOLINT(performance-unnecessary-copy-initialization)
            const B c(b); // NOLINT(performance-unnecessary-copy-initialization)
            EXPECT_EQ(a.diagnosticGetSharedRepresentation()->m_refCount.get(), 3);
        }
        EXPECT_TRUE(log.releases().empty());
        EXPECT_TRUE(a.isUnique());
    }
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].block, log.requests()[0].block);
}

TYPED_TEST(ByteStringConstruction, FirstCharactersOfAStringAreCopied) {
    using B = sup::ByteString<TypeParam>;
    const auto text = FULL_TEXT("ab\0defghij");
    const B a = byteString(text);
    for (std::size_t n = 1; n < text.size(); ++n) {
        AllocationLog log;
        const B b(a, n);
        EXPECT_TRUE(isFreshBlockOf(b, text.substr(0, n)));
        EXPECT_TRUE(askedForByteBlock(log, n, 1));
    }
    EXPECT_TRUE(a.isUnique());
}

TYPED_TEST(ByteStringConstruction, AllCharactersOfAStringAreShared) {
    using B = sup::ByteString<TypeParam>;
    const B a(TEXT("hello"));
    for (const std::size_t n : {std::size_t{5}, std::size_t{6}, B::npos}) {
        AllocationLog log;
        const B b(a, n);
        EXPECT_TRUE(shareOneBlock(a, b));
        EXPECT_TRUE(log.empty());
    }
}

TYPED_TEST(ByteStringConstruction, NoCharactersOfAStringAreNull) {
    using B = sup::ByteString<TypeParam>;
    EXPECT_TRUE(isNull(B(B(TEXT("hello")), 0)));
    EXPECT_TRUE(isNull(B(emptyWithBlock<TypeParam>(), 0)));
    EXPECT_TRUE(isNull(B(B(), 0)));
    EXPECT_TRUE(isNull(B(B(), 3)));
}

TYPED_TEST(ByteStringConstruction, NewGoesThroughTheGateway) {
    using B = sup::ByteString<TypeParam>;
    AllocationLog log;
    auto* const b = new B();
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_TRUE(log.releases().empty());
    delete b;
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].block, log.requests()[0].block);
}

// ---- The choice of the width ------------------------------------------------------------------------------

class ByteStringWidth : public WideByteStringTest {};

TEST_F(ByteStringWidth, EveryCharacterOfOneByteIsStoredInOne) {
    Text all;
    for (wchar_t c = 0; c <= 255; ++c) {
        EXPECT_TRUE(isBlockOf(B(c), Text(1, c), 1, 1)) << +c;
        EXPECT_TRUE(isBlockOf(B(3, c), Text(3, c), 1, 3)) << +c;
        all += c;
    }
    const B b = byteString(all);
    EXPECT_TRUE(isBlockOf(b, all, 1, 256));
    for (std::size_t i = 0; i < 256; ++i) {
        EXPECT_EQ(static_cast<unsigned char>(b.getCharArray()[i]), i);
    }
}

TEST_F(ByteStringWidth, CharactersBelow0AndAbove255TakeFourBytes) {
    static constexpr wchar_t kWide[] = {256,        257, 0x1FF, 0x20AC, 0xFF00, 0x10FFFF, 0x01000000,
                                        0x7FFFFFFF, -1,  -128,  -255,   -256,   -65536,   -0x7FFFFFFF - 1,
                                        0x01000041};
    for (const wchar_t c : kWide) {
        EXPECT_TRUE(isBlockOf(B(c), Text(1, c), 4, 1)) << +c;
        EXPECT_TRUE(isBlockOf(B(3, c), Text(3, c), 4, 3)) << +c;
        const Text text = std::wstring(L"ab") + c + L"cd";
        EXPECT_TRUE(isBlockOf(byteString(text), text, 4, 5)) << +c;
        EXPECT_TRUE(isBlockOf(B(text.c_str()), text, 4, 5)) << +c;
        EXPECT_TRUE(isBlockOf(B(text.data(), text.data() + 3), text.substr(0, 3), 4, 3)) << +c;
        EXPECT_TRUE(isBlockOf(B(text.data(), 2), Text(L"ab"), 1, 2)) << +c;
    }
}

TEST_F(ByteStringWidth, OneWideCharacterAnywhereMakesItWide) {
    for (std::size_t n = 1; n <= 130; ++n) {
        Text text(n, L'\xFF');
        for (std::size_t i = 0; i < n; ++i) {
            text[i] = i % 2 == 0 ? 0x100 : -1;
            EXPECT_TRUE(isBlockOf(byteString(text), text, 4, n)) << n << " " << i;
            text[i] = L'\xFF';
        }
    }
}

// Long texts are looked at in pieces; a wide character must show on either side of each seam.
TEST_F(ByteStringWidth, OneWideCharacterInALongTextMakesItWide) {
    for (const std::size_t n : {1000U, 1023U, 1024U, 1025U, 2047U, 2048U, 2049U, 5000U}) {
        Text text(n, L'x');
        EXPECT_TRUE(isBlockOf(byteString(text), text, 1, n)) << n;
        for (const std::size_t i : {0U, 511U, 512U, 1022U, 1023U, 1024U, 1025U, 2047U, 2048U, 4999U}) {
            if (i < n) {
                text[i] = 0x100;
                EXPECT_TRUE(isBlockOf(byteString(text), text, 4, n)) << n << " " << i;
                text[i] = L'x';
            }
        }
        text[n - 1] = 0x100;
        EXPECT_TRUE(isBlockOf(byteString(text), text, 4, n)) << n;
        EXPECT_TRUE(isBlockOf(B(text.data(), n - 1), text.substr(0, n - 1), 1, n - 1)) << n;
    }
}

// The part decides, not the string that it comes from.
TEST_F(ByteStringWidth, TheFirstCharactersOfAWideStringMayBeNarrow) {
    const Text text = L"abc\x20AC";
    const B wide = byteString(text);
    EXPECT_TRUE(isBlockOf(B(wide, 3), text.substr(0, 3), 1, 3));
    EXPECT_TRUE(isBlockOf(wide.substr(0, 3), text.substr(0, 3), 1, 3));
    EXPECT_TRUE(isBlockOf(wide.substr(2), text.substr(2), 4, 2));
}

TEST(ByteStringNarrow, AlwaysOneByteEach) {
    for (int c = 0; c <= 255; ++c) {
        const std::string text(3, static_cast<char>(c));
        EXPECT_TRUE(isBlockOf(byteString(text), text, 1, 3)) << c;
        EXPECT_TRUE(isBlockOf(sup::ByteString<char>(3, static_cast<char>(c)), text, 1, 3)) << c;
    }
}

// ---- Widening and narrowing at every length and alignment -------------------------------------------------

template <class T>
class ByteStringWidening : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringWidening, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringWidening, EveryLengthAndOffset) {
    using Text = std::basic_string<TypeParam>;
    constexpr unsigned int kSeed = 2201;
    SCOPED_TRACE(kSeed);
    std::mt19937 random(kSeed);
    const auto fence = CHARACTER(0x55);
    brimtest::GuardedBuffer<TypeParam> source(256);
    brimtest::GuardedBuffer<TypeParam> target(256);
    for (std::size_t n = 0; n <= 130; ++n) {
        for (std::size_t offset = 0; offset <= 15; ++offset) {
            for (const bool narrow : {true, false}) {
                const Text text = randomText<TypeParam>(random, n, narrow);
                // The text ends where the memory does, and once more lies `offset` characters into an array.
                TypeParam* const last = source.last(n);
                std::copy(text.begin(), text.end(), last);
                std::vector<TypeParam> array(offset + n);
                std::copy(text.begin(), text.end(), array.begin() + static_cast<std::ptrdiff_t>(offset));
                const sup::ByteString<TypeParam> b(last, n);
                const sup::ByteString<TypeParam> c(array.data() + offset, n);
                if (n == 0) {
                    EXPECT_TRUE(isNull(b));
                    EXPECT_TRUE(isNull(c));
                    continue;
                }
                ASSERT_TRUE(isFreshBlockOf(b, text)) << n << " " << offset;
                ASSERT_TRUE(isFreshBlockOf(c, text)) << n << " " << offset;
                TypeParam* const out = target.lastFenced(n + 1, fence);
                b.fill(out);
                ASSERT_EQ(show(Text(out, n)), show(text)) << n;
                ASSERT_EQ(out[n], CHARACTER(0)) << n;
                ASSERT_TRUE(target.fenceIsWhole(n + 1, fence)) << n;
                std::vector<TypeParam> filled(offset + n + 1, fence);
                c.fill(filled.data() + offset);
                ASSERT_EQ(show(Text(filled.data() + offset, n)), show(text)) << n << " " << offset;
                ASSERT_EQ(filled.back(), CHARACTER(0));
                ASSERT_TRUE(std::all_of(filled.begin(), filled.begin() + static_cast<std::ptrdiff_t>(offset),
                                        [=](TypeParam x) { return x == fence; }));
                ASSERT_EQ(show(b.toString()), show(text)) << n;
            }
        }
    }
}

// Every start in the block, every length, into wide blocks at every place.
TYPED_TEST(ByteStringWidening, PartsOfABlockAtEveryOffset) {
    using Text = std::basic_string<TypeParam>;
    constexpr unsigned int kSeed = 2202;
    SCOPED_TRACE(kSeed);
    std::mt19937 random(kSeed);
    const Text text = randomText<TypeParam>(random, 80);
    Text head = randomText<TypeParam>(random, 17);
    head[0] = static_cast<TypeParam>(0x1234);
    const auto narrow = byteString(text);
    const auto full = inFullWidth(text);
    for (std::size_t pos = 0; pos < text.size(); ++pos) {
        for (std::size_t n = 1; n <= text.size() - pos; ++n) {
            const Text part = text.substr(pos, n);
            const auto b = narrow.substr(pos, n);
            ASSERT_TRUE(isFreshBlockOf(b, part)) << pos << " " << n;
            ASSERT_TRUE(isFreshBlockOf(full.substr(pos, n), part)) << pos << " " << n;
            auto joined = byteString(head.substr(0, 1 + pos % head.size()));
            const Text whole = copyOf(joined) + part;
            joined.append(b);
            ASSERT_TRUE(isFreshBlockOf(joined, whole)) << pos << " " << n;
        }
    }
}

TYPED_TEST(ByteStringWidening, FillWritesThreeCharactersAndAZero) {
    TypeParam out[5] = {CHARACTER(9), CHARACTER(9), CHARACTER(9), CHARACTER(9), CHARACTER(9)};
    sup::ByteString<TypeParam>(TEXT("abc")).fill(out);
    EXPECT_EQ(show(out, out + 5), "abc<0><9>");
}

TYPED_TEST(ByteStringWidening, FillOfAnEmptyStringWithABlockWritesAZero) {
    for (const unsigned int width : {1U, static_cast<unsigned int>(sizeof(TypeParam))}) {
        TypeParam out[2] = {CHARACTER(9), CHARACTER(9)};
        emptyWithBlock<TypeParam>(width).fill(out);
        EXPECT_EQ(show(out, out + 2), "<0><9>");
    }
}

TYPED_TEST(ByteStringWidening, AutoArrayHoldsTheWidenedTextAndAZero) {
    using B = sup::ByteString<TypeParam>;
    const auto text = FULL_TEXT("ab\0c\xE9");
    const B strings[] = {byteString(text), inFullWidth(text), B(200, CHARACTER('y'))};
    for (const B& b : strings) {
        auto array = b.getAutoArray();
        EXPECT_TRUE((std::is_same<decltype(array), HeapedAutoBuffer<TypeParam>>::value));
        ASSERT_GT(array.capacity(), b.length());
        EXPECT_EQ(show(array.data(), array.data() + b.length()), show(b));
        EXPECT_EQ(array.data()[b.length()], CHARACTER(0));
        array.data()[0] = CHARACTER('z');
        EXPECT_NE(b.front(), CHARACTER('z'));
    }
}

TYPED_TEST(ByteStringWidening, AutoArrayOfAnEmptyStringHoldsAZero) {
    EXPECT_EQ(*sup::ByteString<TypeParam>().getAutoArray().data(), CHARACTER(0));
    EXPECT_EQ(*emptyWithBlock<TypeParam>().getAutoArray().data(), CHARACTER(0));
}

// ---- Assignment and moves ---------------------------------------------------------------------------------

template <class T>
class ByteStringAssignment : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringAssignment, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringAssignment, AStringIsShared) {
    using B = sup::ByteString<TypeParam>;
    const B a(TEXT("hello"));
    B b(TEXT("old"));
    B c;
    AllocationLog log;
    EXPECT_EQ(&(b = a), &b);
    EXPECT_EQ(&c.assign(a), &c);
    EXPECT_TRUE(shareOneBlock(a, b));
    EXPECT_TRUE(isBlockOf(c, FULL_TEXT("hello"), 1, 5, 3));
    EXPECT_TRUE(log.requests().empty());
    EXPECT_EQ(log.releases().size(), 1U);
}

TYPED_TEST(ByteStringAssignment, ANullStringMakesItNull) {
    using B = sup::ByteString<TypeParam>;
    B a(TEXT("hello"));
    const B other(a);
    a = B();
    EXPECT_TRUE(isNull(a));
    EXPECT_TRUE(other.isUnique());
    a.assign(other);
    const B null;
    a.assign(null);
    EXPECT_TRUE(isNull(a));
    a.assign(null);
    EXPECT_TRUE(isNull(a));
}

TYPED_TEST(ByteStringAssignment, ItselfAndItsSharersChangeNothing) {
    using B = sup::ByteString<TypeParam>;
    B a(TEXT("hello"));
    const B& alias = a;
    a = alias;
    EXPECT_TRUE(isBlockOf(a, FULL_TEXT("hello"), 1, 5, 1));
    const B b(a);
    a = b;
    a.assign(b, 5);
    a.assign(alias, B::npos);
    EXPECT_TRUE(isBlockOf(a, FULL_TEXT("hello"), 1, 5, 2));
    B null;
    const B& nullAlias = null;
    null = nullAlias;
    EXPECT_TRUE(isNull(null));
}

TYPED_TEST(ByteStringAssignment, TextsGiveANewBlock) {
    using B = sup::ByteString<TypeParam>;
    const TypeParam* const text = TEXT("ab\0cd");
    B b(TEXT("a longer old text"));
    const B old(b);
    EXPECT_EQ(&(b = text), &b);
    EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("ab")));
    EXPECT_EQ(&b.assign(TEXT("xyz")), &b);
    EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("xyz")));
    EXPECT_EQ(&b.assign(text, 4), &b);
    EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("ab\0c")));
    EXPECT_EQ(&b.assign(text + 1, text + 5), &b);
    EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("b\0cd")));
    TypeParam writable[] = {CHARACTER('x'), CHARACTER('y')};
    b.assign(writable, writable + 2);
    EXPECT_TRUE(isFreshBlockOf(b, FULL_TEXT("xy")));
    EXPECT_TRUE(isBlockOf(old, FULL_TEXT("a longer old text"), 1, 17));
}

TYPED_TEST(ByteStringAssignment, EmptyTextsMakeItNull) {
    using B = sup::ByteString<TypeParam>;
    const TypeParam* const null = nullptr;
    const TypeParam* const text = TEXT("abc");
    EXPECT_TRUE(isNull(B(text) = TEXT("")));
    EXPECT_TRUE(isNull(B(text) = null));
    EXPECT_TRUE(isNull(B(text).assign(null)));
    EXPECT_TRUE(isNull(B(text).assign(text, 0)));
    EXPECT_TRUE(isNull(B(text).assign(null, 0)));
    EXPECT_TRUE(isNull(B(text).assign(text, text)));
}

TYPED_TEST(ByteStringAssignment, FirstCharactersOfAString) {
    using B = sup::ByteString<TypeParam>;
    const auto text = FULL_TEXT("ab\0def");
    const B a = byteString(text);
    for (std::size_t n = 0; n <= text.size() + 1; ++n) {
        B b(TEXT("old"));
        EXPECT_EQ(&b.assign(a, n), &b);
        if (n == 0) {
            EXPECT_TRUE(isNull(b));
        } else if (n >= text.size()) {
            EXPECT_TRUE(shareOneBlock(a, b));
        } else {
            EXPECT_TRUE(isFreshBlockOf(b, text.substr(0, n)));
        }
    }
    B self = byteString(text);
    self.assign(self, 3);
    EXPECT_TRUE(isFreshBlockOf(self, text.substr(0, 3)));
    self.assign(self, 0);
    EXPECT_TRUE(isNull(self));
}

TYPED_TEST(ByteStringAssignment, MovesTakeTheBlockAndLeaveNull) {
    using B = sup::ByteString<TypeParam>;
    B a(TEXT("hello"));
    const auto* const block = a.diagnosticGetSharedRepresentation();
    AllocationLog log;
    B b(std::move(a));
    EXPECT_TRUE(isNull(a)); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(b.diagnosticGetSharedRepresentation(), block);
    EXPECT_TRUE(isBlockOf(b, FULL_TEXT("hello"), 1, 5));
    a = std::move(b);
    EXPECT_TRUE(isNull(b)); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(a.diagnosticGetSharedRepresentation(), block);
    EXPECT_TRUE(log.empty());
    B c(TEXT("old"));
    log.clear();
    c = std::move(a);
    EXPECT_TRUE(isNull(a)); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(c.diagnosticGetSharedRepresentation(), block);
    EXPECT_TRUE(log.requests().empty());
    EXPECT_EQ(log.releases().size(), 1U);
    EXPECT_TRUE(std::is_nothrow_move_constructible<B>::value);
    EXPECT_TRUE(std::is_nothrow_move_assignable<B>::value);
    EXPECT_TRUE(std::is_nothrow_copy_constructible<B>::value);
    EXPECT_TRUE(std::is_nothrow_copy_assignable<B>::value);
}

TYPED_TEST(ByteStringAssignment, MoveToItselfKeepsTheText) {
    sup::ByteString<TypeParam> a(TEXT("hello"));
    auto& alias = a;
    a = std::move(alias);
    EXPECT_TRUE(isBlockOf(a, FULL_TEXT("hello"), 1, 5));
}

TYPED_TEST(ByteStringAssignment, SwapExchangesTheBlocks) {
    using B = sup::ByteString<TypeParam>;
    B a(TEXT("hello"));
    B b;
    const auto* const block = a.diagnosticGetSharedRepresentation();
    AllocationLog log;
    a.swap(b);
    EXPECT_TRUE(isNull(a));
    EXPECT_EQ(b.diagnosticGetSharedRepresentation(), block);
    b.swap(b);
    EXPECT_TRUE(isBlockOf(b, FULL_TEXT("hello"), 1, 5));
    EXPECT_TRUE(log.empty());
}

TEST(ByteStringNarrow, AssignmentFromItsOwnCharacters) {
    sup::ByteString<char> b("hello");
    b.assign(b.getCharArray() + 1, 3);
    EXPECT_EQ(show(b), "ell");
    b = b.getCharArray() + 1;
    EXPECT_EQ(show(b), "ll");
}

// ---- Access -----------------------------------------------------------------------------------------------

template <class T>
class ByteStringAccess : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringAccess, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringAccess, CharactersInBothWidths) {
    const auto text = FULL_TEXT("ab\0c\xE9");
    for (const auto& b : {byteString(text), inFullWidth(text)}) {
        for (std::size_t i = 0; i < text.size(); ++i) {
            EXPECT_EQ(b.at(i), text[i]);
            EXPECT_EQ(b[i], text[i]);
        }
        EXPECT_EQ(b.at(text.size()), CHARACTER(0));
        EXPECT_EQ(b.front(), CHARACTER('a'));
        EXPECT_EQ(b.back(), text.back());
        EXPECT_EQ(b.length(), 5U);
        EXPECT_EQ(b.size(), 5U);
        EXPECT_EQ(b.capacity(), 5U);
    }
}

TYPED_TEST(ByteStringAccess, CharArrayIsTheStorage) {
    const sup::ByteString<TypeParam> b(TEXT("abc"));
    EXPECT_EQ(b.getCharArray(), b.diagnosticGetSharedRepresentation()->m_pStart);
    EXPECT_STREQ(b.getCharArray(), "abc");
    const auto text = FULL_TEXT("abc");
    const auto full = inFullWidth(text);
    EXPECT_EQ(full.getBytesPerChar(), sizeof(TypeParam));
    EXPECT_EQ(std::memcmp(full.getCharArray(), text.c_str(), 4 * sizeof(TypeParam)), 0);
}

TYPED_TEST(ByteStringAccess, IteratorsReadEveryCharacterBothWays) {
    using Text = std::basic_string<TypeParam>;
    const Text text = FULL_TEXT("ab\0c\xE9");
    for (const auto& b : {byteString(text), inFullWidth(text)}) {
        EXPECT_EQ(Text(b.begin(), b.end()), text);
        EXPECT_EQ(Text(b.rbegin(), b.rend()), Text(text.rbegin(), text.rend()));
        Text read;
        for (const TypeParam c : b) {
            read += c;
        }
        EXPECT_EQ(read, text);
        EXPECT_EQ(*b.rbegin(), text.back());
    }
    const sup::ByteString<TypeParam> null(TEXT(""));
    EXPECT_EQ(Text(null.begin(), null.end()), Text());
    EXPECT_EQ(Text(null.rbegin(), null.rend()), Text());
}

TYPED_TEST(ByteStringAccess, IteratorsAreRandomAccess) {
    using B = sup::ByteString<TypeParam>;
    using Iterator = typename B::const_iterator;
    using Traits = std::iterator_traits<Iterator>;
    EXPECT_TRUE((std::is_same<typename Traits::iterator_category, std::random_access_iterator_tag>::value));
    EXPECT_TRUE((std::is_same<typename Traits::value_type, TypeParam>::value));
    const B b(TEXT("abcdef"));
    Iterator it = b.begin();
    EXPECT_EQ(b.end() - it, 6);
    EXPECT_EQ(*it++, CHARACTER('a'));
    EXPECT_EQ(*it, CHARACTER('b'));
    EXPECT_EQ(*++it, CHARACTER('c'));
    EXPECT_EQ(*it--, CHARACTER('c'));
    EXPECT_EQ(*it, CHARACTER('b'));
    EXPECT_EQ(*--it, CHARACTER('a'));
    EXPECT_EQ(*(it += 4), CHARACTER('e'));
    EXPECT_EQ(*(it -= 2), CHARACTER('c'));
    EXPECT_EQ(it[2], CHARACTER('e'));
    EXPECT_EQ(it[-1], CHARACTER('b'));
    EXPECT_EQ(*(it + 1), CHARACTER('d'));
    EXPECT_EQ(*(1 + it), CHARACTER('d'));
    EXPECT_EQ(*(it - 1), CHARACTER('b'));
    EXPECT_TRUE(b.begin() < it && it < b.end() && b.end() > it && it > b.begin());
    EXPECT_TRUE(it <= it && it >= it && it == it && !(it != it) && !(it < it));
    EXPECT_TRUE(b.begin() <= it && b.end() >= it && b.begin() != b.end() && b.begin() + 6 == b.end());
    EXPECT_EQ(std::find(b.begin(), b.end(), CHARACTER('d')) - b.begin(), 3);
    EXPECT_TRUE(std::binary_search(b.begin(), b.end(), CHARACTER('e')));
    EXPECT_EQ(Iterator(), Iterator());
}

// ---- String and ByteString --------------------------------------------------------------------------------

template <class T>
class ByteStringConversion : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringConversion, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringConversion, EveryWayAndBack) {
    using B = sup::ByteString<TypeParam>;
    using S = sup::String<TypeParam>;
    const std::basic_string<TypeParam> texts[] = {FULL_TEXT("a"), FULL_TEXT("ab\0c\xE9"),
                                                  FULL_TEXT("abc") + static_cast<TypeParam>(0x20AC) +
                                                      static_cast<TypeParam>(-1)};
    for (const auto& text : texts) {
        const S s(text.data(), text.size());
        EXPECT_TRUE(isFreshBlockOf(s.toByteString(), text));
        B b(TEXT("old"));
        EXPECT_EQ(&b.assign(s), &b);
        EXPECT_TRUE(isFreshBlockOf(b, text));
        B c;
        EXPECT_EQ(&(c = s), &c);
        EXPECT_TRUE(isFreshBlockOf(c, text));
        EXPECT_EQ(show(b.toString()), show(text));
        EXPECT_EQ(show(S(b)), show(text));
        S t(TEXT("old"));
        EXPECT_EQ(&t.assign(b), &t);
        EXPECT_EQ(show(t), show(text));
        S u;
        EXPECT_EQ(&(u = b), &u);
        EXPECT_EQ(show(u), show(text));
        EXPECT_TRUE(S::equals(s, b.toString()));
        EXPECT_TRUE(b.isUnique());
    }
    EXPECT_FALSE((std::is_convertible<B, S>::value));
}

TYPED_TEST(ByteStringConversion, EmptyStringsGiveNull) {
    using B = sup::ByteString<TypeParam>;
    using S = sup::String<TypeParam>;
    S cleared(TEXT("abc"));
    cleared.clear();
    AllocationLog log;
    EXPECT_TRUE(isNull(S().toByteString()));
    EXPECT_TRUE(isNull(cleared.toByteString()));
    EXPECT_TRUE(isNull(B().assign(cleared)));
    EXPECT_EQ(B().toString().diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(B()).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(log.empty());
    const B empty = emptyWithBlock<TypeParam>();
    EXPECT_EQ(empty.toString().diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(empty).diagnosticGetSharedRepresentation(), nullptr);
    B b(TEXT("old"));
    b = S();
    EXPECT_TRUE(isNull(b));
}

TYPED_TEST(ByteStringConversion, StringTakesTheCharactersInPlaceWhenTheyFit) {
    using B = sup::ByteString<TypeParam>;
    using S = sup::String<TypeParam>;
    S s = alphabetString<TypeParam>(10);
    const auto* const block = s.diagnosticGetSharedRepresentation();
    const std::size_t capacity = s.capacity();
    const B fitting(capacity, CHARACTER('x'));
    AllocationLog log;
    s.assign(fitting);
    EXPECT_EQ(s.diagnosticGetSharedRepresentation(), block);
    EXPECT_EQ(show(s), std::string(capacity, 'x'));
    s = B();
    EXPECT_EQ(s.diagnosticGetSharedRepresentation(), block);
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(s.capacity(), capacity);
    log.clear();
    const B tooLong(capacity + 1, CHARACTER('y'));
    log.clear();
    s.assign(tooLong);
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, capacity + 1));
    EXPECT_EQ(show(s), std::string(capacity + 1, 'y'));
}

TYPED_TEST(ByteStringConversion, SharersOfTheStringKeepTheirText) {
    using B = sup::ByteString<TypeParam>;
    using S = sup::String<TypeParam>;
    S s(TEXT("hello"));
    const S other(s);
    s = B(TEXT("xy"));
    EXPECT_EQ(show(s), "xy");
    EXPECT_EQ(show(other), "hello");
    S t(other);
    t = B();
    EXPECT_EQ(t.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(show(other), "hello");
    EXPECT_TRUE(other.isUnique());
}

} // namespace
