// What one thread holds and may hold. The account is kept at all times, so that a quota can be switched on in
// the middle of a thread's life; a thread without a quota has a limit that no sum of real blocks reaches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace fenmem {

struct ThreadAccount {
    static constexpr std::int64_t kNoLimit = std::numeric_limits<std::int64_t>::max();

    std::int64_t held = 0; // negative when the thread has freed more of others' blocks than it holds
    std::int64_t limit = kNoLimit;

    // `size` is at most backend::kLargestRequest, far from where the sum could wrap.
    [[nodiscard]] bool allows(std::size_t size) const noexcept {
        return held + static_cast<std::int64_t>(size) <= limit;
    }
    void charge(std::size_t size) noexcept { held += static_cast<std::int64_t>(size); }
    void credit(std::size_t size) noexcept { held -= static_cast<std::int64_t>(size); }
};

} // namespace fenmem
