// The gateway to the memory allocator library (libfenmemoryallocator864): the one place through which heap
// memory of the library comes and goes.
//
// A size-remembering block starts with its total size (8 bytes) and may be wrapped in guard padding, P bytes
// on either side of the caller's memory: P is VANTA_HX_ALLOCATION_PADDING, read once when the library is
// loaded and rounded up to a multiple of 8; 0 without the variable.
//
//   offset 0      8 bytes   total size, exactly as requested from the allocator: n + 8 + 2P
//   offset 8      P bytes   front guard, neither written nor checked
//   offset 8 + P  n bytes   the caller's memory; aligned to 8
//   then          P bytes   back guard
//
// Every function may be called from any thread. A program that defines fenmem_800_* functions of its own sees
// every request: the library calls them through the dynamic linker.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>

namespace memalloc {

/// The types of the allocator library's functions.
using AllocateFunction = void* (*)(std::size_t size, const char* file, int line) noexcept;
using FreeFunction = void (*)(void* p, std::size_t size) noexcept;

/// The allocator library's function, as the dynamic linker has found it: the way of BrimNodeAlloc, whose
/// requests are too many for a call in between. Null when the allocator refuses.
extern BRIMPORTABLE_API const AllocateFunction g_allocate;
/// Its counterpart; `size` is the size that was requested, null is ignored.
extern BRIMPORTABLE_API const FreeFunction g_free;

/// Blocks from the allocator library, and its settings for the calling thread.
class BRIMPORTABLE_API MemoryAllocatorGateway {
public:
    MemoryAllocatorGateway() = delete;

    /// Returns a block of `size` bytes, never null; throws std::bad_alloc when the allocator refuses.
    /// `file` and `line` name the allocation site for the allocator's diagnostics; the text must stay alive.
    static void* allocate(std::size_t size, const char* file, int line);
    /// Frees a block of allocate(); `size` is the size that was requested.
    static void deallocate(void* p, std::size_t size) noexcept;

    /// As allocate(), but the block remembers its size. std::bad_alloc also when the total would not fit a
    /// size_t, or when the padding is so large that its 32-bit arithmetic wrapped.
    static void* allocateAndRemeberSize(std::size_t size, const char* file, int line);
    /// Frees a block of allocateAndRemeberSize(). Null is ignored.
    static void readSizeAndDeallocate(void* p) noexcept;

    /// Binds the calling thread to a per-thread cache of the allocator, and unbinds it.
    static void associateCurrentThread() noexcept;
    static void disassociateCurrentThread() noexcept;
    /// Gives the calling thread's cached blocks back to the shared pool.
    static void flushCurrentThread() noexcept;
    /// Gives cached free memory back to the system.
    static void compact() noexcept;

    /// Switches the calling thread's allocation quota on (with the allocator's default limit) or off. True on
    /// success.
    static bool enableDefaultThreadAllocationQuota() noexcept;
    static bool disableThreadAllocationQuota() noexcept;
};

/// Reports on memory.
class BRIMPORTABLE_API MemoryUtils {
public:
    MemoryUtils() = delete;

    /// Prints the allocator's report on standard output and flushes it. Each piece of the report is taken as
    /// a printf format; a piece with a directive other than "%%" is printed as it is.
    static void dumpMemoryProfileToCout();
};

/// The size-remembering pair under the names of a heap, for code that is handed a heap as a type.
class BRIMPORTABLE_API MemoryAllocatorHeap {
public:
    MemoryAllocatorHeap() = delete;

    /// MemoryAllocatorGateway::allocateAndRemeberSize() and readSizeAndDeallocate().
    static void* allocate(std::size_t size, const char* file, int line);
    static void deallocate(void* p) noexcept;
};

} // namespace memalloc
