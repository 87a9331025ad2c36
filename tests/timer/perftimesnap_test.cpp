// PerfTimeSnap: readings of the counter.
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include "timer_test_support.h"

#include <gtest/gtest.h>

#include <limits>
#include <sched.h>
#include <thread>
#include <type_traits>
#include <vector>
#include <x86intrin.h>

using brimtest::FakeSnap;

namespace {

static_assert(std::has_virtual_destructor_v<PerfTimeSnap>);
static_assert(std::has_virtual_destructor_v<PerfTimeInterval>);
static_assert(!std::is_convertible_v<bool, PerfTimeSnap>);

TEST(PerfTimeSnap, HoldsZeroOrAReading) {
    EXPECT_EQ(PerfTimeSnap(false).Get(), 0U);
    EXPECT_NE(PerfTimeSnap(true).Get(), 0U);
}

TEST(PerfTimeSnap, ReadsTheTimeStampCounter) {
    // On one processor, so that the counters of two need not agree.
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
    PerfTimeSnap snap(false);
    std::uint64_t before = __rdtsc();
    for (int i = 0; i < 1000; ++i) {
        snap.Set();
        const std::uint64_t reading = snap.Get();
        EXPECT_LE(before, reading);
        before = __rdtsc();
        EXPECT_LE(reading, before);
    }
}

TEST(PerfTimeSnap, ComparesReadings) {
    const FakeSnap small(1);
    const FakeSnap large(std::numeric_limits<std::uint64_t>::max());
    EXPECT_TRUE(small < large);
    EXPECT_FALSE(large < small);
    EXPECT_FALSE(small < small);
    EXPECT_TRUE(small == FakeSnap(1));
    EXPECT_FALSE(small == large);
}

TEST(PerfTimeSnap, CopiesItsReading) {
    const PerfTimeSnap snap(true);
    const PerfTimeSnap copy(snap);
    EXPECT_TRUE(copy == snap);
    PerfTimeSnap other(false);
    other = snap;
    EXPECT_EQ(other.Get(), snap.Get());
}

TEST(PerfTimeSnap, ManyThreadsTakeTheirFirstReadingsAtOnce) {
    std::vector<std::uint64_t> readings(8);
    std::vector<std::thread> threads;
    for (std::uint64_t& reading : readings) {
        threads.emplace_back([&reading] { reading = PerfTimeSnap(true).Get(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::uint64_t reading : readings) {
        EXPECT_NE(reading, 0U);
    }
}

} // namespace
