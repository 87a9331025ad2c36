#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include "DiagnosticOutput.h"
#include "LoadTime.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Wraps.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <unistd.h>
#include <x86intrin.h>

double g_TicksPerNano = 1.0;
std::uint64_t g_TicksPerMicro = 1'000;
std::uint64_t g_TicksPerMilli = 1'000'000;
std::uint64_t g_TicksPerSecond = 1'000'000'000;
std::uint64_t g_tuneCycle = 0;
struct timeval g_tuneTime = {};

bool PerfTimeInterval::s_inited = false;

namespace {

constexpr std::uint64_t kLargestReportedStepBack = 20'000'000;
constexpr int kAttempts = 12;
constexpr unsigned int kFirstAttemptMs = 100;

// `value` rounded towards zero; `otherwise` when that does not fit, or is no number.
std::uint64_t truncate(double value, std::uint64_t otherwise) {
    constexpr double kEnd = 18446744073709551616.0; // 2^64
    return value >= 0.0 && value < kEnd ? static_cast<std::uint64_t>(value) : otherwise;
}

struct timeval wallTime() {
    struct timeval now = {};
    ::gettimeofday(&now, nullptr);
    return now;
}

std::uint64_t inMicros(const struct timeval& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 + static_cast<std::uint64_t>(time.tv_usec);
}

bool areFactorsUsable() {
    return g_TicksPerSecond != 0 && g_TicksPerMilli != 0 && g_TicksPerMicro != 0 && g_TicksPerNano != 0.0;
}

} // namespace

constinit std::atomic<bool> PerfTimeSnap::s_isRdtscpKnown{false};

void PerfTimeSnap::setCarefully() {
    static const bool useRdtscp = CpuId::isRdtscpSupported();
    s_isRdtscpKnown.store(useRdtscp, std::memory_order_relaxed);
    unsigned int processor = 0;
    m_hrTime = useRdtscp ? __rdtscp(&processor) : __rdtsc();
}

void PerfTimeInterval::GetTimeInterval(const PerfTimeSnap& end, const PerfTimeSnap& start) {
    static std::atomic<bool> logged{false};
    if (!(end < start)) {
        m_IntervalTime = end.Get() - start.Get();
        return;
    }
    m_IntervalTime = 0;
    if (start.Get() - end.Get() <= kLargestReportedStepBack && !logged.exchange(true)) {
        sup::DiagnosticLine().text(
            "ERROR: PerfTimeInterval::GetTimeInterval() detected an end time < start time.\n"
            "       Reported times are not accurate.  If on x86, this is due to the TSC not\n"
            "       being synchronized.\n");
    }
}

void PerfTimeInterval::AddTimeIntervalInMilliSecs(std::uint32_t ms) noexcept {
    m_IntervalTime += ms * g_TicksPerMilli;
}

std::uint64_t PerfTimeInterval::getIntervalTimeInNanoSecs() const noexcept {
    return truncate(static_cast<double>(m_IntervalTime) / g_TicksPerNano,
                    std::numeric_limits<std::uint64_t>::max());
}

std::uint64_t PerfTimeInterval::getIntervalTimeInMicroSecs() const noexcept {
    return m_IntervalTime / g_TicksPerMicro;
}

std::uint32_t PerfTimeInterval::getIntervalTimeInMilliSecs() const noexcept {
    return static_cast<std::uint32_t>(m_IntervalTime / g_TicksPerMilli);
}

std::uint32_t PerfTimeInterval::getIntervalTimeInSecs() const noexcept {
    return static_cast<std::uint32_t>(m_IntervalTime / g_TicksPerSecond);
}

BRIM_WRAPS void PerfTimeInterval::Tune() {
    // Unsigned throughout: a clock that went back gives a huge time, and so no usable factors.
    const std::uint64_t ticks = __rdtsc() - g_tuneCycle;
    const struct timeval now = wallTime();
    const std::uint64_t micros = inMicros(now) - inMicros(g_tuneTime);
    g_TicksPerNano = static_cast<double>(ticks) / static_cast<double>(micros) / 1000;
    g_TicksPerMicro = truncate(g_TicksPerNano * 1e3, 0);
    g_TicksPerMilli = truncate(g_TicksPerNano * 1e6, 0);
    g_TicksPerSecond = truncate(g_TicksPerNano * 1e9, 0);
}

bool PerfTimeInterval::init() {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        g_tuneCycle = __rdtsc();
        g_tuneTime = wallTime();
        SystemUtility::Sleep(kFirstAttemptMs << attempt);
        Tune();
        if (areFactorsUsable()) {
            return true;
        }
    }
    // To the descriptor: the stream, which holds nothing back, may be wide.
    ::dprintf(STDERR_FILENO,
              "Critical Error: rdtsc() continued to return an incomprehensible number.  Exiting...\n");
    std::exit(-1);
}

namespace sup::loadtime {

void calibratePerfTimer() { PerfTimeInterval::s_inited = PerfTimeInterval::init(); }

} // namespace sup::loadtime
