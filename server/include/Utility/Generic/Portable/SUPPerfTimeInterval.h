// A stopwatch on the processor's time-stamp counter.
//
//   const PerfTimeSnap start(true);
//   work();
//   const PerfTimeSnap end(true);
//   const PerfTimeInterval elapsed(end, start);
//   elapsed.getIntervalTimeInMicroSecs();
//
// Ticks are converted by factors that are measured once, while the library is loaded (about 100 ms). They are
// written by nobody later, so any thread may convert. Snaps and intervals are plain values of their users.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <atomic>
#include <cstdint>
#include <sys/time.h>

// ---- Calibration ------------------------------------------------------------------------------------------

/// Counter ticks per unit of time. Until they are measured they are those of a counter of 1 GHz.
extern BRIMPORTABLE_API double g_TicksPerNano;
extern BRIMPORTABLE_API std::uint64_t g_TicksPerMicro;
extern BRIMPORTABLE_API std::uint64_t g_TicksPerMilli;
extern BRIMPORTABLE_API std::uint64_t g_TicksPerSecond;

/// Counter and wall-clock time at the start of an attempt to measure them.
extern BRIMPORTABLE_API std::uint64_t g_tuneCycle;
extern BRIMPORTABLE_API struct timeval g_tuneTime;

// ---- The processor ----------------------------------------------------------------------------------------

/// What the library asks of the processor's counter.
class BRIMPORTABLE_API CpuId {
public:
    CpuId() = delete;

    /// Whether processor features are logged: 1 when KROS_CPUID_LOGGING is set to a true word, otherwise -1.
    /// May throw std::bad_alloc.
    static signed char initLogging();
    /// Whether the counter can be read with RDTSCP. Logs the answer on standard output when s_logging, filled
    /// first if it is 0, is above 0. May throw std::bad_alloc.
    static bool isRdtscpSupported();

    /// 0 while not yet read, then as initLogging().
    static signed char s_logging;
};

// ---- Readings and intervals -------------------------------------------------------------------------------

/// One reading of the counter, taken with RDTSCP (it waits for the instructions before it) where the
/// processor has it, otherwise with RDTSC.
class BRIMPORTABLE_API PerfTimeSnap {
public:
    /// Takes a reading, or holds 0.
    explicit PerfTimeSnap(bool takeReading) : m_hrTime(0) {
        if (takeReading) {
            Set();
        }
    }
    virtual ~PerfTimeSnap() = default;

    /// Takes a reading. The first one of the process looks at the processor (CpuId::isRdtscpSupported) and
    /// may throw std::bad_alloc.
    void Set() {
        if (s_isRdtscpKnown.load(std::memory_order_relaxed)) {
            unsigned int processor = 0;
            m_hrTime = __builtin_ia32_rdtscp(&processor);
        } else {
            setCarefully();
        }
    }
    /// The reading in ticks; 0 without one.
    std::uint64_t Get() const noexcept { return m_hrTime; }

    /// Compare the readings.
    bool operator<(const PerfTimeSnap& other) const noexcept { return m_hrTime < other.m_hrTime; }
    bool operator==(const PerfTimeSnap& other) const noexcept { return m_hrTime == other.m_hrTime; }

protected:
    /// The reading.
    std::uint64_t m_hrTime;

private:
    // A reading that looks at the processor first; once it has found RDTSCP the others need not.
    void setCarefully();
    static std::atomic<bool> s_isRdtscpKnown;
};

/// A number of ticks. Sums wrap at 64 bits; units are rounded towards zero.
class BRIMPORTABLE_API PerfTimeInterval {
public:
    /// No time at all.
    PerfTimeInterval() noexcept : m_IntervalTime(0) {}
    /// The time from `start` to `end`; mind the order.
    PerfTimeInterval(const PerfTimeSnap& end, const PerfTimeSnap& start) : m_IntervalTime(0) {
        GetTimeInterval(end, start);
    }
    virtual ~PerfTimeInterval() = default;

    /// Becomes the time from `start` to `end`, 0 when `end` is the smaller one. The first time in the process
    /// that it is smaller by at most 20,000,000 ticks a warning goes to standard output; larger steps back
    /// are silent.
    void GetTimeInterval(const PerfTimeSnap& end, const PerfTimeSnap& start);
    void SetIntervalTime(const PerfTimeSnap& end, const PerfTimeSnap& start) { GetTimeInterval(end, start); }

    /// Add a time; the sum wraps at 64 bits.
    void AddTimeInterval(const PerfTimeInterval& other) noexcept { m_IntervalTime += other.m_IntervalTime; }
    void AddTimeInterval(const PerfTimeSnap& end, const PerfTimeSnap& start) {
        AddTimeInterval(PerfTimeInterval(end, start));
    }
    void AddTimeIntervalInMilliSecs(std::uint32_t ms) noexcept;
    /// Becomes no time at all.
    void Clear() noexcept { m_IntervalTime = 0; }

    /// The largest value when the time does not fit.
    std::uint64_t getIntervalTimeInNanoSecs() const noexcept;
    std::uint64_t getIntervalTimeInMicroSecs() const noexcept;
    /// The low 32 bits of the number.
    std::uint32_t getIntervalTimeInMilliSecs() const noexcept;
    std::uint32_t getIntervalTimeInSecs() const noexcept;

    /// Sets the factors from the ticks and the time since g_tuneCycle and g_tuneTime. One that does not fit
    /// its type becomes 0. Not for use beside other threads; neither is init().
    static void Tune();
    /// Measures the factors: up to 12 attempts, the first over 100 ms, each over twice the time of the one
    /// before. True once they are usable. If they never are, a message goes to standard error and the process
    /// exits with status -1.
    static bool init();

    /// The result of init() at load.
    static bool s_inited;

protected:
    /// In ticks.
    std::uint64_t m_IntervalTime;
};
