#include "Utility/Generic/Portable/SUPAutobuffer.h"

#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <new>
#include <random>
#include <type_traits>
#include <vector>

using brimtest::AllocationLog;
using brimtest::AllocationRefusal;
using brimtest::AllocationRelease;
using brimtest::AllocationRequest;

namespace {

constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
constexpr const char* kFile = "server/include/Utility/Generic/Portable/SUPAutobuffer.h";
constexpr int kLine = 96;

template <class T>
bool isInline(const AutoBufferBase<T>& buffer, const void* object, std::size_t size) {
    const auto* const begin = static_cast<const unsigned char*>(object);
    const auto* const p = reinterpret_cast<const unsigned char*>(buffer.data());
    return p >= begin && p < begin + size;
}

template <class T>
void fill(AutoBufferBase<T>& buffer, std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
        buffer.data()[i] = static_cast<T>(i * 7 + 1);
    }
}

template <class T>
void expectFilled(const AutoBufferBase<T>& buffer, std::size_t count) {
    ASSERT_GE(buffer.capacity(), count);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(buffer.data()[i], static_cast<T>(i * 7 + 1)) << i;
    }
}

TEST(AutoBuffer, StartsInline) {
    AllocationLog log;
    AutoBuffer<unsigned short, 256> buffer;
    EXPECT_EQ(buffer.capacity(), 256U);
    EXPECT_TRUE(isInline(buffer, &buffer, sizeof(buffer)));
    const auto& constant = buffer;
    EXPECT_EQ(constant.data(), buffer.data());
    EXPECT_TRUE((std::is_same_v<decltype(constant.data()), const unsigned short*>));
    fill(buffer, 0, 256);
    expectFilled(buffer, 256);
    EXPECT_TRUE(log.empty());
}

TEST(AutoBuffer, HasTheLayoutOfItsFields) {
    struct Fields {
        void* p;
        std::size_t nCapacity;
        std::size_t nStaticCapacity;
        int nCount;
        void* pStatic;
    };
    EXPECT_EQ(sizeof(AutoBufferBase<char>), sizeof(Fields));
    EXPECT_EQ(sizeof(HeapedAutoBuffer<wchar_t>), sizeof(Fields));
    EXPECT_EQ(sizeof(AutoBuffer<unsigned short, 256>), sizeof(Fields) + 512);
}

TEST(AutoBuffer, GrowsExactlyTwiceAndThenDoubles) {
    AllocationLog log;
    {
        AutoBuffer<unsigned short, 256> buffer;
        const struct {
            std::size_t asked;
            std::size_t capacity;
        } steps[] = {{0, 256},   {256, 256},  {300, 300},   {300, 300},   {10, 300},
                     {400, 400}, {900, 1600}, {1600, 1600}, {1601, 3200}, {100000, 102400}};
        for (const auto& [asked, capacity] : steps) {
            buffer.reserve(asked);
            EXPECT_EQ(buffer.capacity(), capacity) << asked;
        }
    }
    std::vector<std::size_t> sizes;
    for (const AllocationRequest& request : log.requests()) {
        sizes.push_back(request.size);
        EXPECT_STREQ(request.file, kFile);
        EXPECT_EQ(request.line, kLine);
    }
    EXPECT_EQ(sizes, (std::vector<std::size_t>{600, 800, 3200, 6400, 204800}));
    EXPECT_EQ(log.requests().size(), log.releases().size());
}

TEST(AutoBuffer, FreesEachStorageWithTheSizeItHad) {
    AllocationLog log;
    {
        AutoBuffer<wchar_t, 16> buffer;
        buffer.grow(100);
        buffer.grow(200);
    }
    const std::vector<AllocationRequest> requests = log.requests();
    const std::vector<AllocationRelease> releases = log.releases();
    ASSERT_EQ(requests.size(), 2U);
    ASSERT_EQ(releases.size(), 2U);
    EXPECT_EQ(requests[0].size, 100 * sizeof(wchar_t));
    EXPECT_EQ(releases[0].block, requests[0].block);
    EXPECT_EQ(releases[0].size, 100 * sizeof(wchar_t));
    EXPECT_EQ(requests[1].size, 200 * sizeof(wchar_t));
    EXPECT_EQ(releases[1].block, requests[1].block);
    EXPECT_EQ(releases[1].size, 200 * sizeof(wchar_t));
}

TEST(AutoBuffer, FirstHeapBlockHasSixtyFourElementsAndIsNotAnExactGrowth) {
    AutoBuffer<char, 8> buffer;
    buffer.reserve(8);
    EXPECT_EQ(buffer.capacity(), 8U);
    buffer.reserve(9);
    EXPECT_EQ(buffer.capacity(), 64U);
    EXPECT_FALSE(isInline(buffer, &buffer, sizeof(buffer)));
    buffer.reserve(65);
    EXPECT_EQ(buffer.capacity(), 65U);
    buffer.reserve(66);
    EXPECT_EQ(buffer.capacity(), 66U);
    buffer.reserve(67);
    EXPECT_EQ(buffer.capacity(), 132U);
}

TEST(AutoBuffer, DoublesFromSixtyFourAtLeast) {
    AutoBuffer<char, 1> buffer;
    buffer.reserve(64);
    EXPECT_EQ(buffer.capacity(), 64U);
    AutoBuffer<char, 1> exact;
    exact.reserve(1000);
    EXPECT_EQ(exact.capacity(), 1000U) << "beyond 64 at once";
}

TEST(AutoBuffer, KeepsItsContentsWhenItGrows) {
    AutoBuffer<unsigned short, 256> buffer;
    fill(buffer, 0, 256);
    std::size_t used = 256;
    for (const std::size_t n : {std::size_t{257}, std::size_t{300}, std::size_t{900}, std::size_t{5000}}) {
        buffer.grow(n);
        expectFilled(buffer, used);
        fill(buffer, used, buffer.capacity());
        used = buffer.capacity();
    }
    buffer.reserve(used + 1);
    expectFilled(buffer, used);
}

TEST(AutoBuffer, GrowNoPreserveGrowsAlikeAndKeepsWhatFits) {
    AllocationLog log;
    AutoBuffer<unsigned short, 256> buffer;
    fill(buffer, 0, 256);
    buffer.growNoPreserve(256);
    expectFilled(buffer, 256);
    EXPECT_TRUE(log.empty());
    for (const std::size_t n : {std::size_t{300}, std::size_t{400}}) {
        buffer.growNoPreserve(n);
        EXPECT_EQ(buffer.capacity(), n);
    }
    buffer.growNoPreserve(900);
    EXPECT_EQ(buffer.capacity(), 1600U);
    EXPECT_EQ(buffer.data()[0], brimtest::kFreshByte * 0x101U) << "nothing is copied";
    EXPECT_EQ(log.requests().size(), log.releases().size() + 1);
}

TEST(HeapedAutoBuffer, StartsWithNothing) {
    AllocationLog log;
    {
        HeapedAutoBuffer<char> none;
        EXPECT_EQ(none.capacity(), 0U);
        EXPECT_EQ(none.data(), nullptr);
        none.reserve(0);
        HeapedAutoBuffer<char> zero(0);
        EXPECT_EQ(zero.capacity(), 0U);
        const HeapedAutoBuffer<char> copy(zero);
        EXPECT_EQ(copy.capacity(), 0U);
        none = zero;
        EXPECT_EQ(none.data(), nullptr);
    }
    EXPECT_TRUE(log.empty()) << "nothing to free either";
}

TEST(HeapedAutoBuffer, FirstBlockHasSixtyFourElementsAtLeast) {
    for (const auto& [asked, capacity] :
         {std::pair<std::size_t, std::size_t>{1, 64}, {63, 64}, {64, 64}, {65, 65}, {1000, 1000}}) {
        HeapedAutoBuffer<wchar_t> grown;
        grown.grow(asked);
        EXPECT_EQ(grown.capacity(), capacity) << asked;
        const HeapedAutoBuffer<wchar_t> made(asked);
        EXPECT_EQ(made.capacity(), capacity) << asked;
    }
}

TEST(HeapedAutoBuffer, ThatStartsBeyondSixtyFourHasHadOneExactGrowth) {
    HeapedAutoBuffer<char> buffer(100);
    buffer.grow(150);
    EXPECT_EQ(buffer.capacity(), 150U);
    buffer.grow(151);
    EXPECT_EQ(buffer.capacity(), 300U);
}

// ---- copies

TEST(AutoBuffer, CopyHasStorageOfItsOwn) {
    AllocationLog log;
    {
        AutoBuffer<unsigned short, 16> small;
        fill(small, 0, 16);
        const AutoBuffer<unsigned short, 16> smallCopy(small);
        EXPECT_EQ(smallCopy.capacity(), 16U);
        EXPECT_TRUE(isInline(smallCopy, &smallCopy, sizeof(smallCopy)));
        small.data()[0] = 0;
        expectFilled(smallCopy, 16);
        EXPECT_TRUE(log.empty());

        AutoBuffer<unsigned short, 16> large;
        large.grow(300);
        fill(large, 0, 300);
        AutoBuffer<unsigned short, 16> largeCopy(large);
        EXPECT_EQ(largeCopy.capacity(), 300U);
        EXPECT_NE(largeCopy.data(), large.data());
        large.data()[0] = 0;
        expectFilled(largeCopy, 300);
    }
    EXPECT_EQ(log.requests().size(), log.releases().size());
}

TEST(AutoBuffer, AssignmentCopiesEveryElement) {
    AllocationLog log;
    {
        AutoBuffer<char, 8> from;
        from.grow(100);
        fill(from, 0, 100);
        AutoBuffer<char, 8> to;
        to = from;
        EXPECT_EQ(to.capacity(), 100U);
        expectFilled(to, 100);
        EXPECT_NE(to.data(), from.data());

        AutoBuffer<char, 8> large;
        large.grow(500);
        const char* const storage = large.data();
        large = from;
        EXPECT_EQ(large.capacity(), 500U) << "storage never shrinks";
        EXPECT_EQ(large.data(), storage);
        expectFilled(large, 100);
    }
    EXPECT_EQ(log.requests().size(), log.releases().size());
}

TEST(AutoBuffer, AssignmentWorksThroughTheBaseAndBetweenSizes) {
    AutoBuffer<char, 8> small;
    fill(small, 0, 8);
    AutoBuffer<char, 200> large;
    fill(large, 0, 200);
    AutoBufferBase<char>& target = small;
    target = large;
    EXPECT_EQ(small.capacity(), 200U);
    expectFilled(small, 200);

    HeapedAutoBuffer<char> heaped;
    AutoBufferBase<char>& heapedBase = heaped;
    heapedBase = large;
    EXPECT_EQ(heaped.capacity(), 200U);
    expectFilled(heaped, 200);
    large.data()[0] = 0;
    expectFilled(heaped, 200);
}

TEST(AutoBuffer, AssignmentToItselfChangesNothing) {
    AutoBuffer<char, 8> buffer;
    buffer.grow(100);
    fill(buffer, 0, 100);
    AllocationLog log;
    const AutoBuffer<char, 8>& same = buffer;
    buffer = same;
    EXPECT_EQ(buffer.capacity(), 100U);
    expectFilled(buffer, 100);
    EXPECT_TRUE(log.empty());
}

TEST(HeapedAutoBuffer, CopyAndAssignmentHaveStorageOfTheirOwn) {
    AllocationLog log;
    {
        HeapedAutoBuffer<wchar_t> from(300);
        fill(from, 0, 300);
        const HeapedAutoBuffer<wchar_t> copy(from);
        EXPECT_EQ(copy.capacity(), 300U);
        HeapedAutoBuffer<wchar_t> assigned;
        assigned = from;
        from.data()[5] = 0;
        expectFilled(copy, 300);
        expectFilled(assigned, 300);
        const HeapedAutoBuffer<wchar_t>& same = assigned;
        assigned = same;
        expectFilled(assigned, 300);
        EXPECT_EQ(log.requests().size(), log.releases().size() + 3);
    }
    EXPECT_EQ(log.requests().size(), log.releases().size());
}

// ---- failures

// Expects the next request to be refused and `statement` to throw for it.
#define EXPECT_REFUSED(statement)                                                                            \
    do {                                                                                                     \
        const AllocationRefusal refusal(1);                                                                  \
        EXPECT_THROW(statement, std::bad_alloc);                                                             \
        EXPECT_TRUE(refusal.happened());                                                                     \
    } while (false)

TEST(AutoBuffer, ThatCannotGrowStaysAsItIs) {
    AutoBuffer<unsigned short, 256> buffer;
    fill(buffer, 0, 256);
    const unsigned short* storage = buffer.data();
    AllocationLog log;
    EXPECT_REFUSED(buffer.grow(300));
    EXPECT_REFUSED(buffer.growNoPreserve(300));
    EXPECT_REFUSED(buffer.reserve(300));
    EXPECT_EQ(buffer.capacity(), 256U);
    EXPECT_EQ(buffer.data(), storage);
    expectFilled(buffer, 256);
    EXPECT_TRUE(log.releases().empty());

    buffer.grow(300);
    EXPECT_EQ(buffer.capacity(), 300U) << "a failed growth does not count";
    fill(buffer, 0, 300);
    storage = buffer.data();
    EXPECT_REFUSED(buffer.grow(400));
    EXPECT_EQ(buffer.data(), storage);
    expectFilled(buffer, 300);
    buffer.grow(400);
    EXPECT_EQ(buffer.capacity(), 400U);
    EXPECT_REFUSED(buffer.grow(401));
    EXPECT_EQ(buffer.capacity(), 400U);
    buffer.grow(401);
    EXPECT_EQ(buffer.capacity(), 800U);
}

TEST(AutoBuffer, SizesThatWrapAreBadAllocWithoutARequest) {
    AllocationLog log;
    AutoBuffer<wchar_t, 4> exact;
    fill(exact, 0, 4);
    for (const std::size_t n : {kMax, kMax - 1, kMax / 2, kMax / sizeof(wchar_t) + 1}) {
        EXPECT_THROW(exact.grow(n), std::bad_alloc) << n;
        EXPECT_THROW(exact.growNoPreserve(n), std::bad_alloc) << n;
    }
    EXPECT_EQ(exact.capacity(), 4U);
    expectFilled(exact, 4);
    EXPECT_TRUE(log.empty());

    AutoBuffer<char, 4> doubling;
    doubling.grow(65);
    doubling.grow(66);
    fill(doubling, 0, 66);
    log.clear();
    EXPECT_THROW(doubling.grow(kMax), std::bad_alloc) << "no power of two reaches it";
    EXPECT_EQ(doubling.capacity(), 66U);
    expectFilled(doubling, 66);
    EXPECT_TRUE(log.empty());

    EXPECT_THROW(exact.grow(kMax / sizeof(wchar_t)), std::bad_alloc);
    ASSERT_EQ(log.requests().size(), 1U) << "the largest size is the allocator's to refuse";
    EXPECT_EQ(log.requests()[0].size, kMax / sizeof(wchar_t) * sizeof(wchar_t));
}

TEST(AutoBuffer, CopiesThatFailLeaveNothingBehind) {
    AutoBuffer<char, 8> from;
    from.grow(100);
    fill(from, 0, 100);
    AutoBuffer<char, 8> to;
    fill(to, 0, 8);
    const HeapedAutoBuffer<char> heaped(100);
    AllocationLog log;
    EXPECT_REFUSED((AutoBuffer<char, 8>(from)));
    EXPECT_REFUSED((HeapedAutoBuffer<char>(heaped)));
    EXPECT_REFUSED(HeapedAutoBuffer<char>(100));
    EXPECT_REFUSED(to = from);
    EXPECT_EQ(to.capacity(), 8U);
    expectFilled(to, 8);
    EXPECT_TRUE(log.releases().empty());
}

// ---- any sequence of requests, against the rule written down once more

template <class T, std::size_t N>
void growAtRandom(unsigned seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const long live = brimtest::RecordingAllocator::liveBlocks();
    for (int round = 0; round < 30; ++round) {
        AutoBuffer<T, N> buffer;
        std::size_t capacity = N;
        int exactGrowths = 0;
        fill(buffer, 0, N);
        for (int step = 0; step < 12; ++step) {
            const std::size_t n = random() % (capacity + capacity / 2 + 100);
            const bool bPreserve = random() % 2 == 0;
            const bool bRefused = n > capacity && random() % 4 == 0;
            if (bRefused) {
                EXPECT_REFUSED(buffer.reserve(n));
            } else {
                std::size_t next = std::max<std::size_t>(capacity, 64);
                if (n > next && exactGrowths < 2) {
                    next = n;
                    ++exactGrowths;
                }
                while (next < n) {
                    next *= 2;
                }
                const std::size_t before = capacity;
                capacity = n > capacity ? next : capacity;
                if (bPreserve) {
                    buffer.grow(n);
                    expectFilled(buffer, before);
                } else {
                    buffer.growNoPreserve(n);
                }
            }
            ASSERT_EQ(buffer.capacity(), capacity) << "round " << round << ", step " << step << ", n " << n;
            fill(buffer, 0, capacity);
        }
    }
    EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), live);
}

TEST(AutoBuffer, FollowsTheGrowthRuleForAnySequence) {
    growAtRandom<char, 1>(1);
    growAtRandom<unsigned short, 256>(2);
    growAtRandom<wchar_t, 63>(3);
    growAtRandom<wchar_t, 64>(4);
    growAtRandom<char, 65>(5);
}

} // namespace
