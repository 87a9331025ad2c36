// Calibration: at load, and with a clock of our own. This program's gettimeofday and nanosleep win over the C
// library's for the library under test; they are the real ones unless a test or BRIM_TEST_CLOCK takes over.
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include "child_process.h"
#include "timer_test_support.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>
#include <x86intrin.h>

using brimtest::FreshProcess;
using brimtest::KeepsCalibration;

namespace {

// Takes part in loading the library, so it is ready before anything runs. The fake clock stands still but for
// the sleeps, which take no real time: each of the first `standing` sleeps moves it by `step` microseconds,
// later ones by 1, which makes the counter look very fast.
struct FakeClock {
    bool isOn;
    long standing;
    long step;
    long sleeps;
    struct timeval now;

    // From BRIM_TEST_CLOCK: "standing step".
    void takeFromEnvironment() {
        const char* text = std::getenv("BRIM_TEST_CLOCK");
        if (text == nullptr || isOn) {
            return;
        }
        char* end = nullptr;
        isOn = true;
        standing = std::strtol(text, &end, 10);
        step = std::strtol(end, nullptr, 10);
        now = {1'000'000'000, 500'000};
    }
    void sleep(const struct timespec& time) {
        ::dprintf(STDOUT_FILENO, "sleep %ld ms\n",
                  static_cast<long>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000);
        const long micros = now.tv_usec + (sleeps++ < standing ? step : 1);
        now.tv_sec += micros >= 0 ? micros / 1'000'000 : -1;
        now.tv_usec = micros >= 0 ? micros % 1'000'000 : micros + 1'000'000;
    }
};
constinit FakeClock g_clock{};

} // namespace

extern "C" int gettimeofday(struct timeval* __restrict time, void* __restrict /*zone*/) noexcept {
    g_clock.takeFromEnvironment();
    if (g_clock.isOn) {
        *time = g_clock.now;
        return 0;
    }
    struct timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    *time = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

extern "C" int nanosleep(const struct timespec* time, struct timespec* rest) {
    g_clock.takeFromEnvironment();
    if (g_clock.isOn) {
        g_clock.sleep(*time);
        return 0;
    }
    return static_cast<int>(::syscall(SYS_nanosleep, time, rest));
}

namespace {

const char* const kCriticalError =
    "Critical Error: rdtsc() continued to return an incomprehensible number.  Exiting...\n";

void expectConsistentFactors() {
    EXPECT_GT(g_TicksPerNano, 0.0);
    EXPECT_EQ(g_TicksPerMicro, static_cast<std::uint64_t>(std::trunc(g_TicksPerNano * 1e3)));
    EXPECT_EQ(g_TicksPerMilli, static_cast<std::uint64_t>(std::trunc(g_TicksPerNano * 1e6)));
    EXPECT_EQ(g_TicksPerSecond, static_cast<std::uint64_t>(std::trunc(g_TicksPerNano * 1e9)));
}

// The lines about sleeps and the end of the process; a load prints others, too.
std::string calibrationLines(const brimtest::ChildResult& result) {
    std::istringstream lines(result.atLoad + result.output);
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("sleep ", 0) == 0 || line.rfind("Critical ", 0) == 0 || line.rfind("state ", 0) == 0) {
            found += line + "\n";
        }
    }
    return found;
}

// ---- at load

TEST(Calibration, IsDoneWhenTheLibraryIsLoaded) {
    EXPECT_TRUE(PerfTimeInterval::s_inited);
    expectConsistentFactors();
    EXPECT_NE(g_tuneCycle, 0U);
    EXPECT_NE(g_tuneTime.tv_sec, 0);
    // Between 100 MHz and 20 GHz: the real clock and the real counter were used.
    EXPECT_GT(g_TicksPerSecond, 100'000'000U);
    EXPECT_LT(g_TicksPerSecond, 20'000'000'000U);
}

const FreshProcess kState("State", [] {
    std::printf("state %d %d\n", PerfTimeInterval::s_inited,
                g_TicksPerSecond != 0 && g_TicksPerMilli != 0 && g_TicksPerMicro != 0);
});

brimtest::ChildResult loadWithClock(const std::string& clock) {
    return kState.run({{"BRIM_TEST_CLOCK", clock.c_str()}});
}

TEST(Calibration, TakesOneAttemptWhereTheClocksWork) {
    EXPECT_EQ(calibrationLines(loadWithClock("0 0")), "sleep 100 ms\nstate 1 1\n");
}

TEST(Calibration, DoublesTheSleepUntilTheFactorsAreUsable) {
    EXPECT_EQ(calibrationLines(loadWithClock("3 0")),
              "sleep 100 ms\nsleep 200 ms\nsleep 400 ms\nsleep 800 ms\nstate 1 1\n");
}

TEST(Calibration, DistrustsAClockThatGoesBack) {
    EXPECT_EQ(calibrationLines(loadWithClock("2 -1000")),
              "sleep 100 ms\nsleep 200 ms\nsleep 400 ms\nstate 1 1\n");
}

// So much time passes that a tick would take more than a microsecond.
TEST(Calibration, DistrustsACounterThatHardlyMoves) {
    EXPECT_EQ(calibrationLines(loadWithClock("1 900000000000")), "sleep 100 ms\nsleep 200 ms\nstate 1 1\n");
}

TEST(Calibration, TheTwelfthAttemptMaySucceed) {
    const brimtest::ChildResult result = loadWithClock("11 0");
    EXPECT_NE(calibrationLines(result).find("sleep 204800 ms\nstate 1 1\n"), std::string::npos) << result;
}

TEST(Calibration, EndsTheProcessAfterTwelveAttempts) {
    const brimtest::ChildResult result = brimtest::runInChild([] {
        ::setenv("BRIM_TEST_CLOCK", "1000 0", 1);
        ::dup2(STDOUT_FILENO, STDERR_FILENO);
        ::execl("/proc/self/exe", "fresh process", static_cast<char*>(nullptr));
    });
    std::string sleeps;
    for (int ms = 100; ms <= 204'800; ms *= 2) {
        sleeps += "sleep " + std::to_string(ms) + " ms\n";
    }
    EXPECT_EQ(result.exitCode(), 255) << result;
    EXPECT_EQ(calibrationLines(result), sleeps + kCriticalError);
}

TEST(Calibration, MessageOfTheEndGoesToStandardErrorOnly) {
    const brimtest::ChildResult result = loadWithClock("1000 0");
    EXPECT_EQ(result.exitCode(), 255) << result;
    EXPECT_EQ(result.output.find("Critical"), std::string::npos);
}

// ---- one attempt

class Tune : public testing::Test {
protected:
    void SetUp() override {
        g_clock = {};
        g_clock.isOn = true;
        g_clock.now = {2'000'000'000, 250'000};
        g_tuneTime = g_clock.now;
        g_tuneCycle = __rdtsc();
    }
    void TearDown() override { g_clock = {}; }

    static void expectNoFactors() {
        EXPECT_EQ(g_TicksPerMicro, 0U);
        EXPECT_EQ(g_TicksPerMilli, 0U);
        EXPECT_EQ(g_TicksPerSecond, 0U);
    }

    KeepsCalibration m_keeper;
};

// Ticks since `cycle` divided by the microseconds: between bounds, since the counter runs.
void expectTicksPerNano(std::uint64_t cycle, double micros) {
    const std::uint64_t before = __rdtsc();
    PerfTimeInterval::Tune();
    const std::uint64_t after = __rdtsc();
    EXPECT_GE(g_TicksPerNano, static_cast<double>(before - cycle) / micros / 1000);
    EXPECT_LE(g_TicksPerNano, static_cast<double>(after - cycle) / micros / 1000);
}

TEST_F(Tune, DividesTicksByTime) {
    g_tuneCycle -= 5'000'000'000;
    g_tuneTime = {1'999'999'998, 250'001}; // 1.999999 seconds ago
    expectTicksPerNano(g_tuneCycle, 1'999'999.0);
    expectConsistentFactors();
}

TEST_F(Tune, TakesMicroSecondsAcrossASecond) {
    g_tuneCycle -= 1'000'000'000;
    g_tuneTime = {1'999'999'999, 750'000}; // half a second ago
    expectTicksPerNano(g_tuneCycle, 500'000.0);
    expectConsistentFactors();
}

TEST_F(Tune, GivesNoFactorsForNoTime) {
    PerfTimeInterval::Tune();
    EXPECT_TRUE(std::isinf(g_TicksPerNano));
    expectNoFactors();
}

TEST_F(Tune, GivesNoFactorsForAClockThatWentBack) {
    g_tuneTime.tv_usec += 1; // a time of 2^64 - 1 microseconds
    PerfTimeInterval::Tune();
    EXPECT_NE(g_TicksPerNano, 0.0);
    expectNoFactors();
}

TEST_F(Tune, LeavesFactorsOutThatDoNotFitTheirType) {
    g_tuneCycle += std::uint64_t{1} << 60U; // a counter that went back: nearly 2^64 ticks
    g_tuneTime.tv_usec -= 1;                // in a microsecond
    PerfTimeInterval::Tune();
    EXPECT_GT(g_TicksPerNano, 1e16);
    EXPECT_EQ(g_TicksPerSecond, 0U) << "beyond 64 bits";
    EXPECT_EQ(g_TicksPerMilli, 0U);
    EXPECT_EQ(g_TicksPerMicro, static_cast<std::uint64_t>(g_TicksPerNano * 1e3));
}

TEST_F(Tune, RoundsFactorsOfASlowCounterDown) {
    g_tuneCycle -= 5'000'000'000;
    g_tuneTime.tv_sec -= 1'000'000; // 5 kHz
    PerfTimeInterval::Tune();
    EXPECT_EQ(g_TicksPerMicro, 0U);
    EXPECT_EQ(g_TicksPerMilli, 5U);
    EXPECT_EQ(g_TicksPerSecond, static_cast<std::uint64_t>(g_TicksPerNano * 1e9));
}

TEST_F(Tune, InitMeasuresAnew) {
    EXPECT_EQ(brimtest::runInChild([] { std::_Exit(PerfTimeInterval::init() ? 7 : 8); }).exitCode(), 7);
}

} // namespace
