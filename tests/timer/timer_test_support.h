// What the tests of the performance timer share.
#pragma once

#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include <cstdint>
#include <sys/time.h>

namespace brimtest {

/// A reading of the tester's choice.
class FakeSnap : public PerfTimeSnap {
public:
    explicit FakeSnap(std::uint64_t ticks) : PerfTimeSnap(false) { m_hrTime = ticks; }
};

/// The interval of so many ticks.
inline PerfTimeInterval interval(std::uint64_t ticks) {
    return PerfTimeInterval(FakeSnap(ticks), FakeSnap(0));
}

/// Puts the calibration back at its end.
class KeepsCalibration {
public:
    KeepsCalibration() = default;
    ~KeepsCalibration() {
        g_TicksPerNano = m_perNano;
        g_TicksPerMicro = m_perMicro;
        g_TicksPerMilli = m_perMilli;
        g_TicksPerSecond = m_perSecond;
        g_tuneCycle = m_tuneCycle;
        g_tuneTime = m_tuneTime;
    }
    KeepsCalibration(const KeepsCalibration&) = delete;
    KeepsCalibration& operator=(const KeepsCalibration&) = delete;

private:
    double m_perNano = g_TicksPerNano;
    std::uint64_t m_perMicro = g_TicksPerMicro;
    std::uint64_t m_perMilli = g_TicksPerMilli;
    std::uint64_t m_perSecond = g_TicksPerSecond;
    std::uint64_t m_tuneCycle = g_tuneCycle;
    struct timeval m_tuneTime = g_tuneTime;
};

} // namespace brimtest
