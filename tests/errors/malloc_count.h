// Counts the calls that one thread makes to malloc, calloc and realloc. Include it in one source of a
// program. Sanitizer runtimes bring a heap of their own, so there is nothing to count with there.
#pragma once

#ifndef BRIM_SANITIZED

#    include <cstddef>

extern "C" {

// The C library's own names for its heap.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* p, std::size_t size);
}

namespace brimtest {

inline thread_local long t_mallocCalls = 0;

} // namespace brimtest

extern "C" {

void* malloc(std::size_t size) noexcept {
    ++brimtest::t_mallocCalls;
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
    ++brimtest::t_mallocCalls;
    return __libc_calloc(count, size);
}
void* realloc(void* p, std::size_t size) noexcept {
    ++brimtest::t_mallocCalls;
    return __libc_realloc(p, size);
}
}

#endif
