// BrimNodeAlloc: the sized allocator of strings and buffers. It goes through the allocator gateway.
// BrimStlAllocator: the same for the containers of the standard library.
#pragma once

#include "Utility/Generic/Portable/memoryallocatorgateway.h"

#include <cstddef>
#include <limits>
#include <new>

/// Sized blocks from the allocator gateway, under the names of an allocator. Any thread may call.
class BrimNodeAlloc {
public:
    /// Returns `bytes` bytes, never null; throws std::bad_alloc.
    static void* allocate(std::size_t bytes, const char* file, int line) {
        void* const p = memalloc::g_allocate(bytes, file, line);
        if (p == nullptr) {
            throw std::bad_alloc();
        }
        return p;
    }
    /// `bytes` must be what allocate() was asked for.
    static void deallocate(void* p, std::size_t bytes) noexcept { memalloc::g_free(p, bytes); }
};

/// An Allocator (ISO C++ [allocator.requirements]) without state.
template <class T>
class BrimStlAllocator {
public:
    /// What the standard asks of an allocator. All compare equal; allocate() throws std::bad_alloc.
    using value_type = T;

    BrimStlAllocator() noexcept = default;
    /// An allocator for another type is as good.
    template <class U>
    BrimStlAllocator(const BrimStlAllocator<U>&) noexcept {}

    /// Room for `n` objects; throws std::bad_alloc. Given back with the same `n`.
    T* allocate(std::size_t n) {
        if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(BrimNodeAlloc::allocate(n * sizeof(T), kAllocationFile, kAllocationLine));
    }
    void deallocate(T* p, std::size_t n) noexcept { BrimNodeAlloc::deallocate(p, n * sizeof(T)); }

    /// Always equal: a block may be given back through any allocator.
    template <class U>
    friend bool operator==(const BrimStlAllocator&, const BrimStlAllocator<U>&) noexcept {
        return true;
    }
    template <class U>
    friend bool operator!=(const BrimStlAllocator&, const BrimStlAllocator<U>&) noexcept {
        return false;
    }

private:
    static constexpr const char* kAllocationFile = "server/include/Utility/Generic/Portable/BrimNodeAlloc.h";
    static constexpr int kAllocationLine = 44;
};
