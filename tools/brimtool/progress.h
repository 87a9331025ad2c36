// How far a long conversion has come: one line on the terminal, rewritten in place, gone at the end.
#pragma once

#include <chrono>
#include <cstdint>

namespace brimtool {

class Progress {
public:
    /// `total` is the number of bytes to come, 0 when that is not known. Shows nothing unless `enabled`.
    Progress(bool enabled, std::uint64_t total) noexcept;
    ~Progress() { erase(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Shows the line when the conversion has been going on for a while, at most ten times a second.
    void update(std::uint64_t done) noexcept;
    /// Takes the line off the terminal; call it before any other message.
    void erase() noexcept;

private:
    using Clock = std::chrono::steady_clock;

    bool m_enabled;
    bool m_shown = false;
    std::uint64_t m_total;
    Clock::time_point m_next;
};

} // namespace brimtool
