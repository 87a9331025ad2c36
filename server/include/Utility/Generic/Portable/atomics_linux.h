// Atomic steps on Linux: the primitives under SUPAtomic.h.
//
// Counts of shared text are touched on every copy, so they leave out the lock prefix while the process has
// never had a second thread. The C library clears __libc_single_threaded before it starts one, and starting a
// thread orders everything before it, so the change from plain to locked steps is seen by both threads.
#pragma once

#include <atomic>
#include <sys/single_threaded.h>

namespace sup::atomics_linux {

/// Adds `delta` to a reference count. Taking a reference needs no order: the caller already holds one.
template <class Integer>
inline void addReference(std::atomic<Integer>& count, Integer delta) noexcept {
    if (__libc_single_threaded) {
        count.store(static_cast<Integer>(count.load(std::memory_order_relaxed) + delta),
                    std::memory_order_relaxed);
    } else {
        count.fetch_add(delta, std::memory_order_relaxed);
    }
}

/// Subtracts `delta` from a reference count and returns the new value. Whoever sees 0 also sees everything
/// that the other holders did before they let go.
template <class Integer>
inline Integer dropReference(std::atomic<Integer>& count, Integer delta) noexcept {
    if (__libc_single_threaded) {
        const auto left = static_cast<Integer>(count.load(std::memory_order_relaxed) - delta);
        count.store(left, std::memory_order_relaxed);
        return left;
    }
    return static_cast<Integer>(count.fetch_sub(delta, std::memory_order_acq_rel) - delta);
}

/// The same, and true when nothing is left.
template <class Integer>
inline bool dropsLastReference(std::atomic<Integer>& count, Integer delta) noexcept {
    if (__libc_single_threaded) {
        const auto left = static_cast<Integer>(count.load(std::memory_order_relaxed) - delta);
        count.store(left, std::memory_order_relaxed);
        return left == 0;
    }
    return (count -= delta) == 0; // one instruction
}

} // namespace sup::atomics_linux
