// Clocks and sleeping on a clock of the test's own, and the texts of times.
#include "Utility/Generic/Portable/SUPOS.h"

#include "os_test_support.h"
#include "recording_manager.h"
#include "test_locale.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <cwchar>
#include <string>
#include <sys/time.h>
#include <utility>
#include <vector>

using namespace brimtest;

namespace {

constexpr std::time_t kDay = 86'400;

// Stops the clock while it lives.
class ClockAt {
public:
    explicit ClockAt(std::time_t seconds, long micros = 0)
        : m_answering(SystemCalls::gettimeofday, [=](struct timeval* time) {
              *time = {seconds, micros};
              return 0;
          }) {}

private:
    Answering<int(struct timeval*)> m_answering;
};

TEST(GetTimeInMilliSeconds, CountsFromMidnightUtc) {
    struct Row {
        std::time_t seconds;
        long micros;
        unsigned int expected;
    };
    static constexpr Row kRows[] = {
        {0, 0, 0},
        {0, 999, 0},
        {0, 1000, 1},
        {1, 0, 1000},
        {kDay - 1, 999'999, 86'399'999},
        {kDay, 0, 0},
        {kDay, 999, 0},
        {20'000 * kDay + 13 * 3600 + 14 * 60 + 15, 167'899, ((13 * 60 + 14) * 60 + 15) * 1000 + 167},
        {std::time_t{INT_MAX} + 1, 0, 11'648'000},  // 2038-01-19 03:14:08
        {std::time_t{UINT_MAX} + 1, 0, 23'296'000}, // 2106-02-07 06:28:16
    };
    for (const Row& row : kRows) {
        const ClockAt clock(row.seconds, row.micros);
        EXPECT_EQ(SystemUtility::GetTimeInMilliSeconds(), row.expected) << row.seconds << "." << row.micros;
    }
}

TEST(GetElapsedTime, AddsADayWhenMidnightHasPassed) {
    struct Row {
        unsigned int start;
        unsigned int now;
        unsigned int expected;
    };
    static constexpr Row kRows[] = {
        {86'399'000, 1'000, 2'000},  {86'399'999, 0, 1}, {0, 0, 0},
        {0, 86'399'999, 86'399'999}, {1, 0, 86'399'999}, {86'399'999, 86'399'999, 0},
        {5'000, 7'500, 2'500}};
    for (const Row& row : kRows) {
        const ClockAt clock(100 * kDay + row.now / 1000, static_cast<long>(row.now % 1000) * 1000);
        EXPECT_EQ(SystemUtility::GetElapsedTime(row.start), row.expected) << row.start << " to " << row.now;
    }
}

TEST(getRefElapsedMilliseconds, IsModuloOneLessThanAPowerOfTwo) {
    constexpr std::uint64_t kModulus = 4'294'967'295;
    struct Row {
        std::uint64_t milliseconds;
        unsigned int expected;
    };
    static constexpr Row kRows[] = {{0, 0},
                                    {1, 1},
                                    {kModulus - 1, 4'294'967'294},
                                    {kModulus, 0},
                                    {kModulus + 1, 1},
                                    {2 * kModulus - 1, 4'294'967'294},
                                    {2 * kModulus, 0},
                                    {400 * kModulus + 77, 77},
                                    {1000 * kModulus + 999, 999}};
    for (const Row& row : kRows) {
        const ClockAt clock(static_cast<std::time_t>(row.milliseconds / 1000),
                            static_cast<long>(row.milliseconds % 1000) * 1000 + 999);
        EXPECT_EQ(SystemUtility::getRefElapsedMilliseconds(), row.expected) << row.milliseconds;
    }
}

TEST(GetTimeOfDay, GivesTheLow32BitsOfTheSeconds) {
    struct Row {
        std::time_t seconds;
        unsigned int expected;
    };
    static constexpr Row kRows[] = {{0, 0},
                                    {1'700'000'000, 1'700'000'000},
                                    {INT_MAX, 0x7FFFFFFF},
                                    {std::time_t{INT_MAX} + 1, 0x80000000},
                                    {UINT_MAX, 0xFFFFFFFF},
                                    {std::time_t{UINT_MAX} + 1, 0},
                                    {std::time_t{UINT_MAX} + 12'346, 12'345}};
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.seconds);
        const ClockAt clock(row.seconds, 987'654);
        EXPECT_EQ(SystemUtility::GetTimeOfDayInSeconds(), row.expected);
        unsigned int seconds = 1;
        unsigned int milliseconds = 1;
        SystemUtility::GetTimeOfDay(seconds, milliseconds);
        EXPECT_EQ(seconds, row.expected);
        EXPECT_EQ(milliseconds, 987U);
    }
}

TEST(GetTimeOfDay, FollowsTheSystemsClock) {
    const std::time_t before = std::time(nullptr) - 1; // which may lag behind by a tick
    const unsigned int seconds = SystemUtility::GetTimeOfDayInSeconds();
    const std::time_t after = std::time(nullptr) + 1;
    EXPECT_LE(static_cast<unsigned int>(before), seconds);
    EXPECT_GE(static_cast<unsigned int>(after), seconds);
}

TEST(RelativeTime2AbsoluteTime, IsNormalised) {
    struct Row {
        std::time_t seconds;
        long micros;
        unsigned int ms;
        std::time_t expectedSeconds;
        long expectedNanos;
    };
    static constexpr Row kRows[] = {
        {100, 0, 0, 100, 0},
        {100, 999'999, 0, 100, 999'999'000},
        {100, 0, 999, 100, 999'000'000},
        {100, 999, 999, 100, 999'999'000},
        {100, 1'000, 999, 101, 0},
        {100, 0, 1'000, 101, 0},
        {100, 999'999, 1'000, 101, 999'999'000},
        {100, 999'999, 1'999, 102, 998'999'000},
        {100, 0, UINT_MAX, 100 + 4'294'967, 295'000'000},
        {100, 705'000, UINT_MAX, 100 + 4'294'968, 0},
        {std::time_t{UINT_MAX} + 1, 500'000, 500, std::time_t{UINT_MAX} + 2, 0},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(::testing::Message() << row.seconds << "." << row.micros << " and " << row.ms << " ms");
        const ClockAt clock(row.seconds, row.micros);
        std::timespec absolute{-1, -1};
        SystemUtility::RelativeTime2AbsoluteTime(row.ms, &absolute);
        EXPECT_EQ(absolute.tv_sec, row.expectedSeconds);
        EXPECT_EQ(absolute.tv_nsec, row.expectedNanos);
    }
}

// ---- Sleeping: no time passes -----------------------------------------------------------------------------

using Naps = std::vector<std::pair<std::time_t, long>>;

// Is asked for naps, and is interrupted `interruptions` times, with 2 s and 1 ns less to go each time.
Naps napsOf(unsigned int ms, int interruptions, int lastError = 0) {
    Naps naps;
    const Answering answering(SystemCalls::nanosleep, [&](const std::timespec* time, std::timespec* rest) {
        naps.emplace_back(time->tv_sec, time->tv_nsec);
        if (interruptions-- > 0) {
            *rest = {time->tv_sec - 2, time->tv_nsec - 1};
            errno = EINTR;
            return -1;
        }
        errno = lastError;
        return lastError == 0 ? 0 : -1;
    });
    SystemUtility::Sleep(ms);
    return naps;
}

TEST(Sleep, TakesMilliseconds) {
    EXPECT_EQ(napsOf(0, 0), (Naps{{0, 0}}));
    EXPECT_EQ(napsOf(999, 0), (Naps{{0, 999'000'000}}));
    EXPECT_EQ(napsOf(1'000, 0), (Naps{{1, 0}}));
    EXPECT_EQ(napsOf(UINT_MAX, 0), (Naps{{4'294'967, 295'000'000}}));
}

TEST(Sleep, GoesOnWithWhatIsLeftAfterASignal) {
    EXPECT_EQ(napsOf(7'500, 3),
              (Naps{{7, 500'000'000}, {5, 499'999'999}, {3, 499'999'998}, {1, 499'999'997}}));
}

TEST(Sleep, EndsAtAnyOtherError) {
    EXPECT_EQ(napsOf(7'500, 0, EINVAL), (Naps{{7, 500'000'000}}));
    EXPECT_EQ(napsOf(7'500, 1, EFAULT), (Naps{{7, 500'000'000}, {5, 499'999'999}}));
}

// ---- The texts of times -----------------------------------------------------------------------------------

std::tm aTime() {
    std::tm time{};
    time.tm_year = 124; // Friday, 2024-03-01 13:05:09
    time.tm_mon = 2;
    time.tm_mday = 1;
    time.tm_wday = 5;
    time.tm_hour = 13;
    time.tm_min = 5;
    time.tm_sec = 9;
    return time;
}

// Exactly sized, so that the address sanitizer guards its end, and full of what must not be left.
std::wstring formatted(const char* format, std::size_t length, const std::tm& time = aTime()) {
    std::vector<wchar_t> buffer(length, L'#');
    const std::size_t written = SystemUtility::Wcsftime(buffer.data(), length, format, &time);
    EXPECT_EQ(std::wcslen(buffer.data()), written);
    return buffer.data();
}

TEST(Wcsftime, WritesWhatFitsWithItsZero) {
    const ScopedLocale plain("C");
    EXPECT_EQ(formatted("%Y-%m-%d %H:%M:%S", 100), L"2024-03-01 13:05:09");
    EXPECT_EQ(formatted("%Y-%m-%d", 11), L"2024-03-01");
    EXPECT_EQ(formatted("%Y-%m-%d", 10), L"");
    EXPECT_EQ(formatted("%Y-%m-%d", 1), L"");
    EXPECT_EQ(formatted("%Y", 5), L"2024");
    EXPECT_EQ(formatted("%Y", 4), L"");
    EXPECT_EQ(formatted("%A %B %%", 100), L"Friday March %");
}

TEST(Wcsftime, AnEmptyTextIsNoCharacters) {
    const ScopedLocale plain("C");
    EXPECT_EQ(formatted("", 10), L"");
    EXPECT_EQ(formatted("", 1), L"");
    EXPECT_EQ(formatted("%p", 10).size(), 2U);
}

TEST(Wcsftime, TouchesNothingOfALengthOfZero) {
    wchar_t buffer[2] = {L'#', L'#'};
    const std::tm time = aTime();
    EXPECT_EQ(SystemUtility::Wcsftime(buffer, 0, "%Y", &time), 0U);
    EXPECT_EQ(SystemUtility::Wcsftime(nullptr, 0, "%Y", &time), 0U);
    EXPECT_EQ(buffer[0], L'#');
}

TEST(Wcsftime, LongTextsAreWhole) {
    const ScopedLocale plain("C");
    const ClientCodePage utf8(65001);
    std::string format;
    std::wstring expected;
    for (int i = 0; i < 1'000; ++i) {
        format += "%Y\xE4\xB8\xAD";
        expected += L"2024\u4E2D";
    }
    EXPECT_TRUE(formatted(format.c_str(), expected.size() + 1) == expected);
    EXPECT_TRUE(formatted(format.c_str(), expected.size()).empty());
}

TEST(Wcsftime, WidensTheTextOfTheLocale) {
    const CompiledLocale german("de_DE");
    BRIM_SKIP_WITHOUT(german);
    const ClientCodePage utf8(65001);
    EXPECT_EQ(formatted("%A, %B", 100), L"Freitag, M\u00E4rz");
    // Characters count, not bytes.
    EXPECT_EQ(formatted("%B", 5), L"M\u00E4rz");
    EXPECT_EQ(formatted("%B", 4), L"");
    EXPECT_EQ(formatted("\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80", 5), L"\u00E9\u4E2D\xD83D\xDE00");
    EXPECT_EQ(formatted("\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80", 4), L"");
}

TEST(Wcsftime, ReadsBytesByTheCodePage) {
    const ScopedLocale plain("C");
    const ClientCodePage western(1252);
    EXPECT_EQ(formatted("\xE9\x80", 3), L"\u00E9\u20AC");
}

TEST(Wcsftime, EndsInAZeroWhereASequenceIsCut) {
    const ScopedLocale plain("C");
    const ClientCodePage utf8(65001);
    EXPECT_EQ(formatted("%Y\xE2", 10), L"2024");
    EXPECT_EQ(formatted("%Y\xE2", 5), L"2024");
    EXPECT_EQ(formatted("%Y\xE2", 4), L"");
}

TEST(Wcsftime, IsEmptyUnderAnUnknownPage) {
    const ClientCodePage unknown(99999);
    RecordingManager manager;
    EXPECT_EQ(formatted("%Y", 100), L"");
}

} // namespace
