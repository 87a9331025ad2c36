// sup::String: its blocks, construction, assignment, moves, sharing and access; BrimStringVector.
#include "Utility/Generic/Portable/SUPString.h"

#include "string_test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace brimtest;

// ---- Types and layout -------------------------------------------------------------------------------------

template <class T>
class StringLayout : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringLayout, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringLayout, StringIsOnePointer) {
    using S = sup::String<TypeParam>;
    EXPECT_EQ(sizeof(S), sizeof(void*));
    EXPECT_TRUE((std::is_base_of<memalloc::MemAllocNewdel, S>::value));
}

TYPED_TEST(StringLayout, NestedTypes) {
    using S = sup::String<TypeParam>;
    EXPECT_TRUE((std::is_same<typename S::size_type, std::size_t>::value));
    EXPECT_TRUE((std::is_same<typename S::char_type, TypeParam>::value));
    EXPECT_TRUE((std::is_same<typename S::value_type, TypeParam>::value));
    EXPECT_TRUE((std::is_same<typename S::iterator, TypeParam*>::value));
    EXPECT_TRUE((std::is_same<typename S::const_iterator, const TypeParam*>::value));
    EXPECT_TRUE(
        (std::is_same<typename S::const_reverse_iterator, std::reverse_iterator<const TypeParam*>>::value));
    EXPECT_TRUE((std::is_same<typename S::allocator, BrimNodeAlloc>::value));
    EXPECT_TRUE((std::is_same<decltype(S().get_allocator()), BrimNodeAlloc>::value));
    EXPECT_TRUE((std::is_same<BrimString, sup::String<wchar_t>>::value));
    EXPECT_EQ(S::npos, std::numeric_limits<std::size_t>::max());
    EXPECT_EQ(typename S::totalCapacity(17).amount(), 17U);
}

TYPED_TEST(StringLayout, BlockIsAHeaderOf24BytesThenTheCharactersAndAZero) {
    const sup::String<TypeParam> s(TEXT("abc"));
    const auto* const block = s.diagnosticGetSharedRepresentation();
    ASSERT_NE(block, nullptr);
    const auto address = [](const void* p) { return reinterpret_cast<std::uintptr_t>(p); };
    EXPECT_EQ(address(&block->m_refCount), address(block));
    EXPECT_EQ(sizeof(block->m_refCount), 4U);
    EXPECT_EQ(address(&block->m_nCapacity), address(block) + 8);
    EXPECT_EQ(address(&block->m_pFinish), address(block) + 16);
    EXPECT_EQ(address(block->m_pStart), address(block) + 24);
    EXPECT_EQ(block->m_refCount.get(), 1);
    EXPECT_EQ(block->m_nCapacity, blockCapacity<TypeParam>(3));
    EXPECT_EQ(block->m_pFinish, block->m_pStart + 3);
    EXPECT_EQ(*block->m_pFinish, CHARACTER(0));
    EXPECT_EQ(s.c_str(), block->m_pStart);
}

struct BlockRow {
    std::size_t length;
    std::size_t size;
    std::size_t capacity;
};

template <class T>
std::vector<BlockRow> blockRows() {
    if (std::is_same<T, char>::value) {
        return {{1, 32, 7},   {2, 32, 7},   {6, 32, 7},   {7, 32, 7},   {8, 40, 15},
                {15, 40, 15}, {16, 48, 23}, {23, 48, 23}, {24, 56, 31}, {100, 128, 103}};
    }
    return {{1, 32, 1}, {2, 40, 3}, {3, 40, 3}, {4, 48, 5},
            {5, 48, 5}, {6, 56, 7}, {7, 56, 7}, {100, 432, 101}};
}

TYPED_TEST(StringLayout, BlockSizesAndCapacitiesOfTheTable) {
    for (const BlockRow& row : blockRows<TypeParam>()) {
        AllocationLog log;
        {
            const sup::String<TypeParam> s(row.length, CHARACTER('x'));
            EXPECT_EQ(s.capacity(), row.capacity) << row.length;
        }
        ASSERT_EQ(stringBlocks(log), 1U) << row.length;
        ASSERT_EQ(log.releases().size(), 1U) << row.length;
        EXPECT_EQ(log.requests()[0].size, row.size) << row.length;
        EXPECT_EQ(log.releases()[0].size, row.size) << row.length;
        EXPECT_EQ(log.releases()[0].block, log.requests()[0].block) << row.length;
    }
}

TYPED_TEST(StringLayout, EveryLengthIsRoundedUpToEightBytes) {
    for (std::size_t n = 1; n <= 200; ++n) {
        AllocationLog log;
        std::size_t capacity = 0;
        { capacity = alphabetString<TypeParam>(n).capacity(); }
        EXPECT_EQ(capacity, blockCapacity<TypeParam>(n)) << n;
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, n)) << n;
        ASSERT_EQ(log.releases().size(), 1U) << n;
        EXPECT_EQ(log.releases()[0].size, kHeaderSize + (capacity + 1) * sizeof(TypeParam)) << n;
    }
}

TYPED_TEST(StringLayout, FreshBlockHasCountOneAndLengthZero) {
    using Data = sup::string_details::StringData<TypeParam>;
    for (const std::size_t n : {0U, 1U, 7U, 8U, 100U}) {
        AllocationLog log;
        Data* const block = Data::allocateData(n);
        EXPECT_EQ(block->m_refCount.get(), 1);
        EXPECT_TRUE(block->isUnique());
        EXPECT_EQ(block->length(), 0U);
        EXPECT_EQ(block->m_pFinish, block->m_pStart);
        EXPECT_EQ(block->m_pStart[0], CHARACTER(0));
        EXPECT_EQ(block->m_nCapacity, blockCapacity<TypeParam>(n));
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, n));
        block->ref();
        EXPECT_EQ(block->m_refCount.get(), 2);
        EXPECT_FALSE(block->isUnique());
        block->deref();
        EXPECT_TRUE(log.releases().empty());
        block->deref();
        EXPECT_EQ(log.releases().size(), 1U);
    }
}

TYPED_TEST(StringLayout, CapacitiesWithoutABlockSizeAreNotRequested) {
    using Data = sup::string_details::StringData<TypeParam>;
    constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
    constexpr std::size_t kFirstWithout = (kMax - 31) / sizeof(TypeParam);
    for (const std::size_t n : {kFirstWithout, kFirstWithout + 1, kMax / sizeof(TypeParam), kMax - 7, kMax}) {
        AllocationLog log;
        EXPECT_THROW(Data::allocateData(n), std::bad_alloc) << n;
        EXPECT_TRUE(askedForNothing(log)) << n;
    }
    AllocationLog log;
    EXPECT_THROW(Data::allocateData(kFirstWithout - 1), std::bad_alloc);
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, kMax - 7);
}

// ---- Construction -----------------------------------------------------------------------------------------

template <class T>
class StringConstruction : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringConstruction, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringConstruction, DefaultIsNullAndAllocatesNothing) {
    AllocationLog log;
    const sup::String<TypeParam> s;
    EXPECT_EQ(s.length(), 0U);
    EXPECT_EQ(s.size(), 0U);
    EXPECT_EQ(s.capacity(), 0U);
    EXPECT_TRUE(s.empty());
    ASSERT_NE(s.c_str(), nullptr);
    EXPECT_EQ(*s.c_str(), CHARACTER(0));
    EXPECT_EQ(s.begin(), s.end());
    EXPECT_EQ(s.rbegin(), s.rend());
    EXPECT_EQ(s.at(0), CHARACTER(0));
    EXPECT_EQ(s[0], CHARACTER(0));
    EXPECT_EQ(s.front(), CHARACTER(0));
    EXPECT_FALSE(s.isUnique());
    EXPECT_EQ(s.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringConstruction, NullStringsReadTheSameEmptyText) {
    const sup::String<TypeParam> a;
    const sup::String<TypeParam> b;
    EXPECT_EQ(a.c_str(), b.c_str());
    EXPECT_EQ(a.data(), b.begin());
}

TYPED_TEST(StringConstruction, FromText) {
    AllocationLog log;
    const sup::String<TypeParam> s(TEXT("hello"));
    EXPECT_EQ(show(s), "hello");
    EXPECT_TRUE(s.isUnique());
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 5));
}

TYPED_TEST(StringConstruction, FromTextConvertsImplicitly) {
    const sup::String<TypeParam> s = TEXT("hello");
    EXPECT_EQ(show(s), "hello");
}

TYPED_TEST(StringConstruction, EmptyTextsGiveNull) {
    using S = sup::String<TypeParam>;
    const TypeParam* const null = nullptr;
    const TypeParam* const text = TEXT("abc");
    AllocationLog log;
    EXPECT_EQ(S(TEXT("")).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(null).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(text, 0).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(null, 0).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(text + 1, text + 1).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(null, null).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(0, CHARACTER('x')).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringConstruction, FromTextAndCountKeepsZeros) {
    const sup::String<TypeParam> s(TEXT("ab\0cd"), 4);
    EXPECT_EQ(show(s), "ab<0>c");
    EXPECT_EQ(s.length(), 4U);
}

TYPED_TEST(StringConstruction, FromRange) {
    const TypeParam* const text = TEXT("ab\0cd");
    const sup::String<TypeParam> s(text + 1, text + 4);
    EXPECT_EQ(show(s), "b<0>c");
    TypeParam writable[] = {CHARACTER('x'), CHARACTER('y')};
    EXPECT_EQ(show(sup::String<TypeParam>(writable, writable + 2)), "xy");
}

TYPED_TEST(StringConstruction, CopiesOfACharacter) {
    AllocationLog log;
    const sup::String<TypeParam> s(10, CHARACTER('x'));
    EXPECT_EQ(show(s), "xxxxxxxxxx");
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 10));
    EXPECT_EQ(show(sup::String<TypeParam>(3, CHARACTER(0))), "<0><0><0>");
}

TYPED_TEST(StringConstruction, OneCharacterHasTheSmallestBlock) {
    using S = sup::String<TypeParam>;
    AllocationLog log;
    const S s(CHARACTER('x'));
    EXPECT_EQ(show(s), "x");
    EXPECT_EQ(s.capacity(), sizeof(TypeParam) == 1 ? 7U : 1U);
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, 32U);
    EXPECT_EQ(show(S(CHARACTER(0))), "<0>");
    EXPECT_FALSE((std::is_convertible<TypeParam, S>::value));
}

TYPED_TEST(StringConstruction, CopySharesTheBlock) {
    const sup::String<TypeParam> a(TEXT("hello"));
    AllocationLog log;
    const sup::String<TypeParam> b(a); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(b.diagnosticGetSharedRepresentation(), a.diagnosticGetSharedRepresentation());
    EXPECT_EQ(b.c_str(), a.c_str());
    EXPECT_EQ(a.diagnosticGetSharedRepresentation()->m_refCount.get(), 2);
    EXPECT_FALSE(a.isUnique());
    EXPECT_FALSE(b.isUnique());
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringConstruction, CopyOfNullIsNull) {
    const sup::String<TypeParam> a;
    const sup::String<TypeParam> b(a); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(b.diagnosticGetSharedRepresentation(), nullptr);
}

TYPED_TEST(StringConstruction, BlockIsFreedWithTheLastString) {
    using S = sup::String<TypeParam>;
    AllocationLog log;
    {
        const S a(TEXT("hello"));
        {
            const S b(a); // NOLINT(performance-unnecessary-copy-initialization)
            const S c(b); // NOLINT(performance-unnecessary-copy-initialization)
            EXPECT_EQ(a.diagnosticGetSharedRepresentation()->m_refCount.get(), 3);
        }
        EXPECT_TRUE(log.releases().empty());
        EXPECT_TRUE(a.isUnique());
    }
    EXPECT_EQ(log.releases().size(), 1U);
}

TYPED_TEST(StringConstruction, FirstCharactersOfAStringAreCopied) {
    using S = sup::String<TypeParam>;
    const S a(FULL_TEXT("ab\0defghij").data(), 10);
    for (std::size_t n = 1; n < 10; ++n) {
        AllocationLog log;
        const S b(a, n);
        EXPECT_EQ(show(b), show(copyOf(a).substr(0, n)));
        EXPECT_NE(b.diagnosticGetSharedRepresentation(), a.diagnosticGetSharedRepresentation());
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, n));
    }
}

TYPED_TEST(StringConstruction, AllCharactersOfAStringAreShared) {
    using S = sup::String<TypeParam>;
    const S a(TEXT("hello"));
    for (const std::size_t n : {std::size_t{5}, std::size_t{6}, S::npos}) {
        AllocationLog log;
        const S b(a, n);
        EXPECT_EQ(b.diagnosticGetSharedRepresentation(), a.diagnosticGetSharedRepresentation());
        EXPECT_TRUE(askedForNothing(log));
    }
}

TYPED_TEST(StringConstruction, NoCharactersOfAStringAreNull) {
    using S = sup::String<TypeParam>;
    const S a(TEXT("hello"));
    EXPECT_EQ(S(a, 0).diagnosticGetSharedRepresentation(), nullptr);
    S cleared(a.c_str());
    cleared.clear();
    EXPECT_EQ(S(cleared, 0).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(S(), 0).diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(S(S(), 3).diagnosticGetSharedRepresentation(), nullptr);
}

TYPED_TEST(StringConstruction, TotalCapacityAlwaysMakesABlock) {
    using S = sup::String<TypeParam>;
    using totalCapacity = typename S::totalCapacity;
    const S a(TEXT("hello"));
    const S null;
    for (const std::size_t amount : {0U, 1U, 4U, 5U, 6U, 7U, 8U, 100U}) {
        {
            AllocationLog log;
            const S b(a, totalCapacity(amount));
            EXPECT_EQ(show(b), "hello");
            EXPECT_TRUE(b.isUnique());
            EXPECT_EQ(b.capacity(), blockCapacity<TypeParam>(std::max<std::size_t>(5, amount)));
            EXPECT_TRUE(askedForOneBlock<TypeParam>(log, std::max<std::size_t>(5, amount)));
        }
        {
            AllocationLog log;
            const S b(a.begin() + 1, a.begin() + 4, totalCapacity(amount));
            EXPECT_EQ(show(b), "ell");
            EXPECT_TRUE(b.isUnique());
            EXPECT_TRUE(askedForOneBlock<TypeParam>(log, std::max<std::size_t>(3, amount)));
        }
        {
            AllocationLog log;
            const S b(null, totalCapacity(amount));
            EXPECT_EQ(show(b), "");
            EXPECT_TRUE(b.isUnique());
            EXPECT_EQ(b.capacity(), blockCapacity<TypeParam>(amount));
            EXPECT_TRUE(askedForOneBlock<TypeParam>(log, amount));
        }
        {
            AllocationLog log;
            const S b(a.end(), a.end(), totalCapacity(amount));
            EXPECT_EQ(show(b), "");
            EXPECT_TRUE(askedForOneBlock<TypeParam>(log, amount));
        }
    }
    EXPECT_TRUE(a.isUnique());
}

TYPED_TEST(StringConstruction, TextsTooLargeToExistAreBadAlloc) {
    using S = sup::String<TypeParam>;
    using totalCapacity = typename S::totalCapacity;
    const S a(TEXT("hello"));
    const auto copies = [](std::size_t n) { return S(n, CHARACTER('x')); };
    EXPECT_THROW(copies(S::npos), std::bad_alloc);
    EXPECT_THROW(copies(S::npos / sizeof(TypeParam)), std::bad_alloc);
    EXPECT_THROW(copies(S::npos / sizeof(TypeParam) / 2), std::bad_alloc);
    EXPECT_THROW(S(a, totalCapacity(S::npos)), std::bad_alloc);
    EXPECT_THROW(S(a.begin(), a.end(), totalCapacity(S::npos)), std::bad_alloc);
    EXPECT_EQ(show(a), "hello");
}

TYPED_TEST(StringConstruction, NewGoesThroughTheGateway) {
    using S = sup::String<TypeParam>;
    AllocationLog log;
    S* const plain = new S(TEXT("a"));
    ASSERT_EQ(log.requests().size(), 2U);
    EXPECT_EQ(log.requests()[0].size, sizeof(S) + 8);
    EXPECT_STREQ(log.requests()[0].file, "server/include/Utility/Generic/Portable/memallocnewdel.h");
    log.clear();
    S* const named = new ("site", 12) S;
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_STREQ(log.requests()[0].file, "site");
    EXPECT_EQ(log.requests()[0].line, 12);
    delete plain;
    delete named;
    EXPECT_EQ(log.releases().size(), 3U);
    alignas(S) unsigned char place[sizeof(S)];
    log.clear();
    S* const placed = new (place) S;
    EXPECT_EQ(static_cast<void*>(placed), static_cast<void*>(place));
    EXPECT_TRUE(askedForNothing(log));
    placed->~S();
}

// ---- Assignment -------------------------------------------------------------------------------------------

template <class T>
class StringAssignment : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringAssignment, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringAssignment, FromAStringSharesAndReleasesTheOldBlock) {
    using S = sup::String<TypeParam>;
    const S a(TEXT("hello"));
    S b(TEXT("world"));
    S c(TEXT("again"));
    AllocationLog log;
    b = a;
    EXPECT_EQ(&c.assign(a), &c);
    EXPECT_EQ(b.diagnosticGetSharedRepresentation(), a.diagnosticGetSharedRepresentation());
    EXPECT_EQ(c.diagnosticGetSharedRepresentation(), a.diagnosticGetSharedRepresentation());
    EXPECT_EQ(a.diagnosticGetSharedRepresentation()->m_refCount.get(), 3);
    EXPECT_TRUE(askedForNothing(log));
    EXPECT_EQ(log.releases().size(), 2U);
}

TYPED_TEST(StringAssignment, NothingHappensBetweenStringsThatShareABlock) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    const S b(a);
    a = b;
    a.assign(b);
    EXPECT_EQ(a.diagnosticGetSharedRepresentation()->m_refCount.get(), 2);
    EXPECT_EQ(a.diagnosticGetSharedRepresentation(), b.diagnosticGetSharedRepresentation());
}

TYPED_TEST(StringAssignment, SelfAssignmentKeepsTheText) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    const S& self = a;
    a = self;
    EXPECT_EQ(show(a), "hello");
    EXPECT_TRUE(a.isUnique());
    a.assign(self);
    a.assign(self, S::npos);
    a.assign(a.c_str());
    a = a.c_str();
    EXPECT_EQ(show(a), "hello");
    EXPECT_TRUE(a.isUnique());
    S null;
    const S& nullSelf = null;
    null = nullSelf;
    EXPECT_EQ(null.diagnosticGetSharedRepresentation(), nullptr);
}

TYPED_TEST(StringAssignment, FromNullReleasesTheBlock) {
    using S = sup::String<TypeParam>;
    const S null;
    S a(TEXT("hello"));
    AllocationLog log;
    a = null;
    EXPECT_EQ(a.diagnosticGetSharedRepresentation(), nullptr);
    EXPECT_EQ(log.releases().size(), 1U);
}

TYPED_TEST(StringAssignment, FromTextCountAndRange) {
    using S = sup::String<TypeParam>;
    const TypeParam* const text = TEXT("ab\0cd");
    S s;
    s = TEXT("hello");
    EXPECT_EQ(show(s), "hello");
    EXPECT_EQ(show(s.assign(TEXT("other text"))), "other text");
    EXPECT_EQ(show(s.assign(text, 4)), "ab<0>c");
    EXPECT_EQ(show(s.assign(text + 1, text + 5)), "b<0>cd");
    EXPECT_EQ(&s.assign(text, 1), &s);
}

TYPED_TEST(StringAssignment, TextOfASharedStringGetsANewBlock) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    const S b(a);
    AllocationLog log;
    a = TEXT("ab");
    EXPECT_EQ(show(a), "ab");
    EXPECT_EQ(show(b), "hello");
    EXPECT_TRUE(b.isUnique());
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 2));
}

TYPED_TEST(StringAssignment, TextThatFitsIsWrittenInPlace) {
    using S = sup::String<TypeParam>;
    S a = alphabetString<TypeParam>(20);
    const TypeParam* const before = a.c_str();
    AllocationLog log;
    a = TEXT("ab");
    EXPECT_EQ(show(a), "ab");
    a.assign(alphabet<TypeParam>(20).data(), 20);
    EXPECT_EQ(show(a), show(alphabet<TypeParam>(20)));
    EXPECT_EQ(a.c_str(), before);
    EXPECT_TRUE(askedForNothing(log));
    a.assign(alphabet<TypeParam>(40).data(), 40);
    EXPECT_EQ(show(a), show(alphabet<TypeParam>(40)));
    EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 40));
    EXPECT_EQ(log.releases().size(), 1U);
}

TYPED_TEST(StringAssignment, EmptyTextEmptiesTheString) {
    using S = sup::String<TypeParam>;
    const TypeParam* const null = nullptr;
    const TypeParam* const text = TEXT("abc");
    const S some(text);
    const auto expectEmptied = [](const char* what, auto assign) {
        S unique(TEXT("hello"));
        S shared(TEXT("world"));
        const S other(shared);
        S nothing;
        AllocationLog log;
        assign(unique);
        assign(shared);
        assign(nothing);
        EXPECT_TRUE(unique.empty() && shared.empty() && nothing.empty()) << what;
        EXPECT_EQ(show(other), "world") << what;
        EXPECT_TRUE(askedForNothing(log)) << what;
    };
    expectEmptied("operator=", [&](S& s) { s = TEXT(""); });
    expectEmptied("operator= of null", [&](S& s) { s = null; });
    expectEmptied("text", [&](S& s) { s.assign(TEXT("")); });
    expectEmptied("null", [&](S& s) { s.assign(null); });
    expectEmptied("text and count", [&](S& s) { s.assign(text, 0); });
    expectEmptied("null and count", [&](S& s) { s.assign(null, 0); });
    expectEmptied("range", [&](S& s) { s.assign(text, text); });
    expectEmptied("string and count", [&](S& s) { s.assign(some, 0); });
}

TYPED_TEST(StringAssignment, FirstCharactersOfAString) {
    using S = sup::String<TypeParam>;
    const S source(FULL_TEXT("ab\0defghij").data(), 10);
    for (std::size_t n = 1; n <= 12; ++n) {
        S s(TEXT("old"));
        EXPECT_EQ(&s.assign(source, n), &s);
        EXPECT_EQ(show(s), show(copyOf(source).substr(0, n))) << n;
        EXPECT_EQ(s.diagnosticGetSharedRepresentation() == source.diagnosticGetSharedRepresentation(),
                  n >= 10)
            << n;
    }
}

TYPED_TEST(StringAssignment, FromPartsOfTheStringItself) {
    using S = sup::String<TypeParam>;
    for (const bool isShared : {false, true}) {
        for (std::size_t first = 0; first <= 10; ++first) {
            for (std::size_t last = first; last <= 10; ++last) {
                S a(alphabetString<TypeParam>(10));
                const S other = isShared ? a : S();
                const auto expected = alphabet<TypeParam>(10).substr(first, last - first);
                a.assign(a.begin() + first, a.begin() + last);
                EXPECT_EQ(show(a), show(expected)) << first << " " << last << " " << isShared;
                EXPECT_EQ(show(other), isShared ? "abcdefghij" : "");
            }
            S a(alphabetString<TypeParam>(10));
            const S other = isShared ? a : S();
            a.assign(a.c_str() + first);
            EXPECT_EQ(show(a), show(alphabet<TypeParam>(10).substr(first)));
            S b(alphabetString<TypeParam>(10));
            const S another = isShared ? b : S();
            b.assign(b, first);
            EXPECT_EQ(show(b), show(alphabet<TypeParam>(10).substr(0, first)));
        }
    }
}

TYPED_TEST(StringAssignment, SwapExchangesTheBlocks) {
    using S = sup::String<TypeParam>;
    for (const bool deep : {false, true}) {
        S a(TEXT("hello"));
        S b(TEXT("world"));
        S null;
        const auto swap = [deep](S& x, S& y) { deep ? x.deepSwap(y) : x.swap(y); };
        const auto* const blockA = a.diagnosticGetSharedRepresentation();
        const auto* const blockB = b.diagnosticGetSharedRepresentation();
        AllocationLog log;
        swap(a, b);
        EXPECT_EQ(a.diagnosticGetSharedRepresentation(), blockB);
        EXPECT_EQ(b.diagnosticGetSharedRepresentation(), blockA);
        EXPECT_TRUE(a.isUnique());
        EXPECT_TRUE(b.isUnique());
        swap(a, null);
        EXPECT_EQ(a.diagnosticGetSharedRepresentation(), nullptr);
        EXPECT_EQ(null.diagnosticGetSharedRepresentation(), blockB);
        swap(null, null); // NOLINT(readability-suspicious-call-argument)
        EXPECT_EQ(show(null), "world");
        EXPECT_TRUE(null.isUnique());
        S shared(b);
        swap(b, shared);
        EXPECT_EQ(blockA->m_refCount.get(), 2);
        EXPECT_TRUE(askedForNothing(log));
        EXPECT_TRUE(log.releases().empty());
    }
}

// ---- Moves ------------------------------------------------------------------------------------------------

template <class T>
class StringMove : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringMove, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringMove, NoneThrows) {
    using S = sup::String<TypeParam>;
    EXPECT_TRUE(std::is_nothrow_default_constructible<S>::value);
    EXPECT_TRUE(std::is_nothrow_copy_constructible<S>::value);
    EXPECT_TRUE(std::is_nothrow_copy_assignable<S>::value);
    EXPECT_TRUE(std::is_nothrow_move_constructible<S>::value);
    EXPECT_TRUE(std::is_nothrow_move_assignable<S>::value);
    EXPECT_TRUE(std::is_nothrow_destructible<S>::value);
    EXPECT_TRUE(std::is_nothrow_swappable<S>::value);
}

TYPED_TEST(StringMove, LeavesNullBehind) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    const auto* const block = a.diagnosticGetSharedRepresentation();
    AllocationLog log;
    S b(std::move(a));
    EXPECT_EQ(a.diagnosticGetSharedRepresentation(), nullptr); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(b.diagnosticGetSharedRepresentation(), block);
    EXPECT_TRUE(b.isUnique());
    EXPECT_TRUE(log.releases().empty());
    S c(TEXT("world"));
    log.clear();
    c = std::move(b);
    EXPECT_EQ(b.diagnosticGetSharedRepresentation(), nullptr); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(c.diagnosticGetSharedRepresentation(), block);
    EXPECT_TRUE(c.isUnique());
    EXPECT_TRUE(askedForNothing(log));
    EXPECT_EQ(log.releases().size(), 1U);
    c = S();
    EXPECT_EQ(c.diagnosticGetSharedRepresentation(), nullptr);
}

TYPED_TEST(StringMove, BetweenStringsThatShareABlock) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    S b(a);
    b = std::move(a);
    EXPECT_EQ(a.diagnosticGetSharedRepresentation(), nullptr); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(show(b), "hello");
    EXPECT_TRUE(b.isUnique());
}

TYPED_TEST(StringMove, SelfMoveKeepsTheText) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    S& self = a;
    a = std::move(self);
    EXPECT_EQ(show(a), "hello");
    EXPECT_TRUE(a.isUnique());
}

TYPED_TEST(StringMove, MovedFromStringIsUsable) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    const S b(std::move(a));
    a.append(TEXT("again")); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(show(a), "again");
    EXPECT_EQ(show(b), "hello");
}

// ---- Access -----------------------------------------------------------------------------------------------

template <class T>
class StringAccess : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringAccess, CharacterTypes, CharacterTypeNames);

TYPED_TEST(StringAccess, ReadsCharacters) {
    const sup::String<TypeParam> s(FULL_TEXT("ab\0d").data(), 4);
    EXPECT_EQ(s.data(), s.c_str());
    EXPECT_EQ(s.length(), 4U);
    EXPECT_EQ(s.size(), 4U);
    EXPECT_FALSE(s.empty());
    EXPECT_EQ(s.begin(), s.c_str());
    EXPECT_EQ(s.end(), s.c_str() + 4);
    EXPECT_EQ(*s.end(), CHARACTER(0));
    EXPECT_EQ(s.front(), CHARACTER('a'));
    EXPECT_EQ(s.back(), CHARACTER('d'));
    EXPECT_EQ(s.at(1), CHARACTER('b'));
    EXPECT_EQ(s.at(4), CHARACTER(0));
    EXPECT_EQ(s[3], CHARACTER('d'));
    const std::basic_string<TypeParam> reversed(s.rbegin(), s.rend());
    EXPECT_EQ(show(reversed), "d<0>ba");
}

TYPED_TEST(StringAccess, CapacityOfASharedStringIsItsLength) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    a.reserve(50);
    EXPECT_EQ(a.capacity(), blockCapacity<TypeParam>(50));
    S b(a);
    EXPECT_EQ(a.capacity(), 5U);
    EXPECT_EQ(b.capacity(), 5U);
    b.append(TEXT("!"));
    EXPECT_EQ(b.capacity(), blockCapacity<TypeParam>(6));
    EXPECT_EQ(a.capacity(), blockCapacity<TypeParam>(50));
}

TYPED_TEST(StringAccess, CopyOfAClearedStringSharesTheEmptyBlock) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    a.clear();
    EXPECT_TRUE(a.isUnique());
    EXPECT_EQ(a.capacity(), blockCapacity<TypeParam>(5));
    const S b(a);
    EXPECT_EQ(b.diagnosticGetSharedRepresentation(), a.diagnosticGetSharedRepresentation());
    EXPECT_EQ(a.capacity(), 0U);
    EXPECT_FALSE(b.isUnique());
    EXPECT_EQ(show(b), "");
}

TYPED_TEST(StringAccess, MutablePointersOfAUniqueStringAreInPlace) {
    using S = sup::String<TypeParam>;
    S a(TEXT("hello"));
    AllocationLog log;
    TypeParam* const first = a.mutable_begin();
    EXPECT_EQ(first, a.c_str());
    EXPECT_EQ(a.mutable_end(), a.c_str() + 5);
    first[0] = CHARACTER('j');
    EXPECT_EQ(show(a), "jello");
    EXPECT_TRUE(askedForNothing(log));
}

TYPED_TEST(StringAccess, MutablePointersMakeASharedStringPrivate) {
    using S = sup::String<TypeParam>;
    for (const bool fromEnd : {false, true}) {
        S a(TEXT("hello"));
        const S b(a);
        AllocationLog log;
        TypeParam* const last = fromEnd ? a.mutable_end() - 1 : a.mutable_begin() + 4;
        *last = CHARACTER('p');
        EXPECT_EQ(show(a), "hellp");
        EXPECT_EQ(show(b), "hello");
        EXPECT_TRUE(a.isUnique());
        EXPECT_TRUE(b.isUnique());
        EXPECT_TRUE(askedForOneBlock<TypeParam>(log, 5));
    }
}

TYPED_TEST(StringAccess, MutablePointersOfNullAreNull) {
    sup::String<TypeParam> null;
    AllocationLog log;
    EXPECT_EQ(null.mutable_begin(), nullptr);
    EXPECT_EQ(null.mutable_end(), nullptr);
    EXPECT_TRUE(askedForNothing(log));
}

// ---- BrimStringVector -------------------------------------------------------------------------------------

TEST(BrimStringVector, DerivesFromTheVectorAndTheGatewayBase) {
    EXPECT_TRUE((std::is_base_of<std::vector<BrimString>, BrimStringVector>::value));
    EXPECT_TRUE((std::is_base_of<memalloc::MemAllocNewdel, BrimStringVector>::value));
    EXPECT_TRUE(std::has_virtual_destructor<BrimStringVector>::value);
    EXPECT_LE(sizeof(BrimStringVector), sizeof(std::vector<BrimString>) + sizeof(void*));
    EXPECT_TRUE(std::is_nothrow_move_constructible<BrimStringVector>::value);
}

TEST(BrimStringVector, NewGoesThroughTheGateway) {
    AllocationLog log;
    BrimStringVector* const vector = new BrimStringVector;
    ASSERT_EQ(log.requests().size(), 1U);
    EXPECT_EQ(log.requests()[0].size, sizeof(BrimStringVector) + 8);
    vector->push_back(L"one");
    vector->push_back(L"two");
    EXPECT_EQ(vector->size(), 2U);
    delete vector;
    EXPECT_EQ(log.releases().size(), log.requests().size());
}

class DerivedVector : public BrimStringVector {
public:
    explicit DerivedVector(const BrimString& held) : m_held(held) {}

private:
    BrimString m_held;
};

TEST(BrimStringVector, DestructorIsVirtual) {
    const BrimString held(L"held");
    BrimStringVector* const vector = new DerivedVector(held);
    EXPECT_EQ(held.diagnosticGetSharedRepresentation()->m_refCount.get(), 2);
    delete vector;
    EXPECT_TRUE(held.isUnique());
}

TEST(BrimStringVector, CopiesShareTheStrings) {
    BrimStringVector a(2, BrimString(L"text"));
    const BrimStringVector b(a); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(a[0].diagnosticGetSharedRepresentation(), b[1].diagnosticGetSharedRepresentation());
    a[0].append(L'!');
    EXPECT_EQ(show(a[0]), "text!");
    EXPECT_EQ(show(b[0]), "text");
    BrimStringVector c;
    c = a;
    EXPECT_EQ(show(c[0]), "text!");
    const BrimStringVector d(std::move(c));
    EXPECT_EQ(d.size(), 2U);
    const BrimStringVector e{L"x", L"y", L"z"};
    EXPECT_EQ(show(e[2]), "z");
}

} // namespace
