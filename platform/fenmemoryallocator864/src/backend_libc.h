// The C runtime's malloc as a backend: in sanitizer builds this is the sanitizer's own, which sees every
// block.
#pragma once

#include "report_writer.h"
#include "sanitizer_heap.h"

#include <cstddef>
#include <cstdlib>

namespace fenmem::libc_backend {

inline constexpr const char* kVariant = "libc";

#ifdef FENMEM_SANITIZER_HEAP

// A sanitizer's malloc ends the process at a terabyte instead of returning null.
inline constexpr std::size_t kLargestRequest = std::size_t{1} << 39;

void* allocate(std::size_t size) noexcept;
void release(void* p, std::size_t size) noexcept; // ends the process when the size is not the one requested

#else

// Size of the user half of the address space: nothing larger can succeed.
inline constexpr std::size_t kLargestRequest = std::size_t{1} << 47;

inline void* allocate(std::size_t size) noexcept { return std::malloc(size); }
inline void release(void* p, std::size_t /*size*/) noexcept { std::free(p); }

#endif

// The C runtime binds threads to its caches by itself and has no call to empty one.
inline void bindThread() noexcept {}
inline void unbindThread() noexcept {}
inline void flushThread() noexcept {}
void compact() noexcept;

void report(ReportWriter& writer) noexcept;

} // namespace fenmem::libc_backend
