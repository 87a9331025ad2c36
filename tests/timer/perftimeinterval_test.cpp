// PerfTimeInterval: differences, sums, conversions, the warning.
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include "child_process.h"
#include "timer_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

using brimtest::FakeSnap;
using brimtest::interval;
using brimtest::KeepsCalibration;
using brimtest::runInChild;

namespace {

constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t kSmallStep = 20'000'000;

const char* const kWarning =
    "ERROR: PerfTimeInterval::GetTimeInterval() detected an end time < start time.\n"
    "       Reported times are not accurate.  If on x86, this is due to the TSC not\n"
    "       being synchronized.\n";

// One tick is 0.4 ns.
void calibrateTo2500MHz() {
    g_TicksPerNano = 2.5;
    g_TicksPerMicro = 2'500;
    g_TicksPerMilli = 2'500'000;
    g_TicksPerSecond = 2'500'000'000;
}

void expectUnits(const PerfTimeInterval& actual, std::uint64_t nanos, std::uint64_t micros,
                 std::uint32_t millis, std::uint32_t seconds) {
    EXPECT_EQ(actual.getIntervalTimeInNanoSecs(), nanos);
    EXPECT_EQ(actual.getIntervalTimeInMicroSecs(), micros);
    EXPECT_EQ(actual.getIntervalTimeInMilliSecs(), millis);
    EXPECT_EQ(actual.getIntervalTimeInSecs(), seconds);
}

// ---- conversions

TEST(PerfTimeInterval, ConvertsByTruncating) {
    const KeepsCalibration keeper;
    calibrateTo2500MHz();
    struct Row {
        std::uint64_t ticks;
        std::uint64_t nanos;
        std::uint64_t micros;
        std::uint32_t millis;
        std::uint32_t seconds;
    };
    constexpr Row kRows[] = {
        {0, 0, 0, 0, 0},
        {1, 0, 0, 0, 0},
        {2, 0, 0, 0, 0},
        {3, 1, 0, 0, 0},
        {2'499, 999, 0, 0, 0},
        {2'500, 1'000, 1, 0, 0},
        {2'499'999, 999'999, 999, 0, 0},
        {2'500'000, 1'000'000, 1'000, 1, 0},
        {2'499'999'999, 999'999'999, 999'999, 999, 0},
        {2'500'000'000, 1'000'000'000, 1'000'000, 1'000, 1},
        {9'000'000'000'000, 3'600'000'000'000, 3'600'000'000, 3'600'000, 3'600},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.ticks);
        expectUnits(interval(row.ticks), row.nanos, row.micros, row.millis, row.seconds);
    }
}

TEST(PerfTimeInterval, CutsMilliSecondsAndSecondsTo32Bits) {
    const KeepsCalibration keeper;
    calibrateTo2500MHz();
    constexpr std::uint64_t kWrap = std::uint64_t{1} << 32U;
    EXPECT_EQ(interval((kWrap - 1) * g_TicksPerMilli).getIntervalTimeInMilliSecs(), kWrap - 1);
    EXPECT_EQ(interval((kWrap + 5) * g_TicksPerMilli).getIntervalTimeInMilliSecs(), 5U);
    EXPECT_EQ(interval((kWrap - 1) * g_TicksPerSecond).getIntervalTimeInSecs(), kWrap - 1);
    g_TicksPerSecond = 4;
    EXPECT_EQ(interval((kWrap + 7) * 4).getIntervalTimeInSecs(), 7U);
}

TEST(PerfTimeInterval, NanoSecondsAreAQuotientOfDoubles) {
    const KeepsCalibration keeper;
    std::mt19937_64 random(7);
    for (int i = 0; i < 10000; ++i) {
        const std::uint64_t ticks = random() >> (1 + random() % 60);
        g_TicksPerNano = 1.0 + static_cast<double>(random() % 4'000'000) / 1e6;
        ASSERT_EQ(interval(ticks).getIntervalTimeInNanoSecs(),
                  static_cast<std::uint64_t>(std::trunc(static_cast<double>(ticks) / g_TicksPerNano)))
            << ticks << " ticks, seed 7";
    }
}

TEST(PerfTimeInterval, NanoSecondsThatDoNotFitAreTheLargestNumber) {
    const KeepsCalibration keeper;
    g_TicksPerNano = 0.5;
    EXPECT_EQ(interval(kMax).getIntervalTimeInNanoSecs(), kMax);
    EXPECT_EQ(interval(std::uint64_t{1} << 62U).getIntervalTimeInNanoSecs(), std::uint64_t{1} << 63U);
    g_TicksPerNano = 1.0;
    EXPECT_EQ(interval(kMax).getIntervalTimeInNanoSecs(), kMax) << "rounded up to 2^64";
}

// ---- differences and sums

TEST(PerfTimeInterval, IsTheTimeFromStartToEnd) {
    const KeepsCalibration keeper;
    calibrateTo2500MHz();
    const FakeSnap start(1'000'000);
    const FakeSnap end(6'000'000);
    expectUnits(PerfTimeInterval(end, start), 2'000'000, 2'000, 2, 0);
    PerfTimeInterval other;
    expectUnits(other, 0, 0, 0, 0);
    other.SetIntervalTime(end, start);
    expectUnits(other, 2'000'000, 2'000, 2, 0);
    other.GetTimeInterval(end, FakeSnap(3'500'000));
    expectUnits(other, 1'000'000, 1'000, 1, 0);
}

TEST(PerfTimeInterval, IsZeroInEveryUnitWhenEndIsStart) {
    for (const std::uint64_t ticks : {std::uint64_t{0}, std::uint64_t{123456789}, kMax}) {
        expectUnits(PerfTimeInterval(FakeSnap(ticks), FakeSnap(ticks)), 0, 0, 0, 0);
    }
}

TEST(PerfTimeInterval, SpansTheWholeRange) {
    const KeepsCalibration keeper;
    g_TicksPerMicro = 1;
    EXPECT_EQ(PerfTimeInterval(FakeSnap(kMax), FakeSnap(0)).getIntervalTimeInMicroSecs(), kMax);
}

TEST(PerfTimeInterval, Adds) {
    const KeepsCalibration keeper;
    calibrateTo2500MHz();
    PerfTimeInterval sum;
    sum.AddTimeInterval(interval(2'500'000));
    EXPECT_EQ(sum.getIntervalTimeInMilliSecs(), 1U);
    sum.AddTimeInterval(FakeSnap(5'000'000), FakeSnap(0));
    EXPECT_EQ(sum.getIntervalTimeInMilliSecs(), 3U);
    sum.AddTimeIntervalInMilliSecs(4);
    EXPECT_EQ(sum.getIntervalTimeInMicroSecs(), 7'000U);
    sum.AddTimeIntervalInMilliSecs(std::numeric_limits<std::uint32_t>::max());
    EXPECT_EQ(sum.getIntervalTimeInMicroSecs(), 7'000U + 4'294'967'295'000U);
    sum.Clear();
    expectUnits(sum, 0, 0, 0, 0);
}

TEST(PerfTimeInterval, MilliSecondsComeBackOnACalibratedMachine) {
    for (const std::uint32_t ms : {0U, 1U, 5U, 86'400'000U}) {
        PerfTimeInterval sum;
        sum.AddTimeIntervalInMilliSecs(ms);
        EXPECT_EQ(sum.getIntervalTimeInMilliSecs(), ms);
    }
}

// ---- the warning

void goBack(std::uint64_t ticks) {
    const FakeSnap start(kSmallStep * 10);
    PerfTimeInterval backwards(FakeSnap(start.Get() - ticks), start);
    if (backwards.getIntervalTimeInNanoSecs() != 0) {
        std::printf("not 0\n");
        std::fflush(stdout);
    }
}

TEST(PerfTimeIntervalWarning, ComesOncePerProcess) {
    EXPECT_EQ(runInChild([] {
                  goBack(1);
                  goBack(1);
                  goBack(kSmallStep);
              }).output,
              kWarning);
}

TEST(PerfTimeIntervalWarning, ComesForStepsUpToTwentyMillionTicks) {
    EXPECT_EQ(runInChild([] { goBack(kSmallStep); }).output, kWarning);
    EXPECT_EQ(runInChild([] { goBack(kSmallStep + 1); }).output, "");
}

TEST(PerfTimeIntervalWarning, ALargerStepIsSilentAndLeavesItForLater) {
    EXPECT_EQ(runInChild([] { goBack(30'000'000); }).output, "");
    EXPECT_EQ(runInChild([] {
                  goBack(30'000'000);
                  goBack(2);
              }).output,
              kWarning);
}

TEST(PerfTimeIntervalWarning, ComesAtTheTopOfTheRangeToo) {
    EXPECT_EQ(runInChild([] { PerfTimeInterval(FakeSnap(kMax - 1), FakeSnap(kMax)); }).output, kWarning);
}

TEST(PerfTimeIntervalWarning, ComesFromEveryWayToAnInterval) {
    EXPECT_EQ(runInChild([] { PerfTimeInterval().SetIntervalTime(FakeSnap(1), FakeSnap(2)); }).output,
              kWarning);
    EXPECT_EQ(runInChild([] { PerfTimeInterval().AddTimeInterval(FakeSnap(1), FakeSnap(2)); }).output,
              kWarning);
}

TEST(PerfTimeIntervalWarning, ABackwardsIntervalReplacesAnOlderOneByZero) {
    PerfTimeInterval sum = interval(1000);
    sum.GetTimeInterval(FakeSnap(0), FakeSnap(kMax));
    EXPECT_EQ(sum.getIntervalTimeInNanoSecs(), 0U);
}

TEST(PerfTimeIntervalWarning, ComesOnceFromManyThreads) {
    EXPECT_EQ(runInChild([] {
                  std::vector<std::thread> threads;
                  for (int i = 0; i < 8; ++i) {
                      threads.emplace_back([] { goBack(1); });
                  }
                  for (std::thread& thread : threads) {
                      thread.join();
                  }
              }).output,
              kWarning);
}

TEST(PerfTimeIntervalWarning, AppearsOnAWideStreamAndLeavesItWide) {
    EXPECT_EQ(runInChild([] {
                  brimtest::renewStandardOutput();
                  std::wprintf(L"before\n");
                  goBack(1);
                  std::wprintf(L"after\n");
                  std::fflush(stdout);
              }).output,
              std::string("before\n") + kWarning + "after\n");
}

TEST(PerfTimeIntervalWarning, AppearsBetweenNarrowLines) {
    EXPECT_EQ(runInChild([] {
                  std::printf("before\n");
                  goBack(1);
                  std::printf("after\n");
                  std::fflush(stdout);
              }).output,
              std::string("before\n") + kWarning + "after\n");
}

} // namespace
