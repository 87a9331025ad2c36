// mimalloc as a backend. Its shared library also defines malloc, free and the operators new and delete;
// linking it would put those names into the host's symbol scope. It is opened with local scope instead, so
// that nothing outside this file can bind to it, and called through two pointers that cost what a call
// through the linkage table would.
#pragma once

#include "report_writer.h"

#include <atomic>
#include <cstddef>

namespace fenmem::mimalloc_backend {

inline constexpr const char* kVariant = "bundled";

// Size of the user half of the address space: nothing larger can succeed.
inline constexpr std::size_t kLargestRequest = std::size_t{1} << 47;

using AllocateFunction = void* (*)(std::size_t) noexcept;
using ReleaseFunction = void (*)(void*) noexcept;

// They start out as functions that open the library and then do the work, and are set once.
extern std::atomic<AllocateFunction> g_allocate;
extern std::atomic<ReleaseFunction> g_release;

inline void* allocate(std::size_t size) noexcept {
    // mimalloc aligns blocks of 8 bytes and less to 8.
    constexpr std::size_t kSmallest = 16;
    return g_allocate.load(std::memory_order_acquire)(size < kSmallest ? kSmallest : size);
}
inline void release(void* p, std::size_t /*size*/) noexcept { g_release.load(std::memory_order_acquire)(p); }

void bindThread() noexcept;
void unbindThread() noexcept;
void flushThread() noexcept;
void compact() noexcept;

void report(ReportWriter& writer) noexcept;

} // namespace fenmem::mimalloc_backend
