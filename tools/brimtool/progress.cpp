#include "progress.h"

#include <cstdio>

namespace brimtool {

namespace {

using namespace std::chrono_literals;

constexpr auto kFirst = 500ms; // shorter conversions show nothing
constexpr auto kInterval = 100ms;
constexpr double kMegabyte = 1e6;

} // namespace

Progress::Progress(bool enabled, std::uint64_t total) noexcept
    : m_enabled(enabled), m_total(total), m_next(Clock::now() + kFirst) {}

void Progress::update(std::uint64_t done) noexcept {
    if (!m_enabled) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now < m_next) {
        return;
    }
    m_next = now + kInterval;
    m_shown = true;
    const double megabytes = static_cast<double>(done) / kMegabyte;
    if (m_total == 0 || done > m_total) {
        std::fprintf(stderr, "\rbrimtool: %.1f MB\033[K", megabytes);
    } else {
        const double total = static_cast<double>(m_total);
        std::fprintf(stderr, "\rbrimtool: %.1f of %.1f MB, %.0f %%\033[K", megabytes, total / kMegabyte,
                     100.0 * static_cast<double>(done) / total);
    }
}

void Progress::erase() noexcept {
    if (m_shown) {
        std::fputs("\r\033[K", stderr);
        m_shown = false;
    }
}

} // namespace brimtool
