// Clocks, sleeping, and the texts of times.
#include "Utility/Generic/Portable/SUPOS.h"

#include "TerminatedText.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <sys/time.h>

namespace {

constexpr unsigned int kMillisPerDay = 86400000;
constexpr std::uint64_t kMillisPerSecond = 1000;
constexpr long kMicrosPerMilli = 1000;
constexpr long kNanosPerMilli = 1000000;
constexpr long kNanosPerSecond = 1000000000;
constexpr std::time_t kSecondsPerDay = 86400;

struct timeval now() {
    struct timeval time {};
    ::gettimeofday(&time, nullptr);
    return time;
}

} // namespace

unsigned int SystemUtility::GetTimeInMilliSeconds() {
    const struct timeval time = now();
    const auto second = static_cast<unsigned int>(time.tv_sec % kSecondsPerDay);
    return second * 1000U + static_cast<unsigned int>(time.tv_usec / kMicrosPerMilli);
}

unsigned int SystemUtility::GetElapsedTime(unsigned int start) {
    const unsigned int end = GetTimeInMilliSeconds();
    return end < start ? end + kMillisPerDay - start : end - start;
}

unsigned int SystemUtility::getRefElapsedMilliseconds() {
    const struct timeval time = now();
    const std::uint64_t milliseconds = static_cast<std::uint64_t>(time.tv_sec) * kMillisPerSecond +
                                       static_cast<std::uint64_t>(time.tv_usec / kMicrosPerMilli);
    return static_cast<unsigned int>(milliseconds % std::numeric_limits<std::uint32_t>::max());
}

unsigned int SystemUtility::GetTimeOfDayInSeconds() { return static_cast<unsigned int>(now().tv_sec); }

void SystemUtility::GetTimeOfDay(unsigned int& seconds, unsigned int& milliseconds) {
    const struct timeval time = now();
    seconds = static_cast<unsigned int>(time.tv_sec);
    milliseconds = static_cast<unsigned int>(time.tv_usec / kMicrosPerMilli);
}

void SystemUtility::RelativeTime2AbsoluteTime(unsigned int ms, std::timespec* absolute) {
    const struct timeval time = now();
    const long nanos = time.tv_usec * 1000L + static_cast<long>(ms % kMillisPerSecond) * kNanosPerMilli;
    absolute->tv_sec =
        time.tv_sec + static_cast<std::time_t>(ms / kMillisPerSecond) + nanos / kNanosPerSecond;
    absolute->tv_nsec = nanos % kNanosPerSecond;
}

void SystemUtility::Sleep(unsigned int ms) {
    struct timespec rest {
        static_cast<std::time_t>(ms / kMillisPerSecond),
            static_cast<long>(ms % kMillisPerSecond) * kNanosPerMilli
    };
    while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

std::size_t SystemUtility::Wcsftime(wchar_t* buffer, std::size_t length, const char* format,
                                    const std::tm* time) {
    if (length == 0) {
        return 0;
    }
    // No wide text is longer than the narrow one it comes from, but the narrow one may have up to four bytes
    // a character.
    AutoBuffer<char, 1024> narrow;
    narrow.growNoPreserve(length * 4);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const std::size_t bytes = std::strftime(narrow.data(), narrow.capacity(), format, time);
#pragma GCC diagnostic pop
    const int most = static_cast<int>(std::min<std::size_t>(length, std::numeric_limits<int>::max()));
    const int units =
        bytes == 0 ? 0 : sup::widenTerminated(narrow.data(), buffer, most, GetMultiByteCodePage());
    if (units < 1) {
        buffer[0] = L'\0';
        return 0;
    }
    return static_cast<std::size_t>(units) - 1;
}
