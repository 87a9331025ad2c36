// What one thread holds and may hold. The account is kept at all times, so that a quota can be switched on in
// the middle of a thread's life; a thread without a quota has a limit that no sum of real blocks reaches.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fenmem {

class ThreadAccount {
public:
    static constexpr std::int64_t kNoLimit = std::int64_t{1} << 62;

    /// Negative when the thread has freed more of others' blocks than it holds.
    [[nodiscard]] std::int64_t held() const noexcept { return m_limit - m_left; }
    [[nodiscard]] std::int64_t limit() const noexcept { return m_limit; }
    void setLimit(std::int64_t limit) noexcept {
        m_left += limit - m_limit;
        m_limit = limit;
    }

    /// `size` is at most backend::kLargestRequest, far from where the sums could wrap.
    [[nodiscard]] bool allows(std::size_t size) const noexcept {
        return static_cast<std::int64_t>(size) <= m_left;
    }
    void charge(std::size_t size) noexcept { m_left -= static_cast<std::int64_t>(size); }
    void credit(std::size_t size) noexcept { m_left += static_cast<std::int64_t>(size); }

private:
    std::int64_t m_limit = kNoLimit;
    std::int64_t m_left = kNoLimit; // what the thread may still get
};

} // namespace fenmem
