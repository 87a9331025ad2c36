// Lists of free blocks between the account and the backend, so that most requests cost a few instructions.
// Each thread has a list for every 16 bytes of size up to 2 KiB and for every KiB up to 32, which its own
// frees fill and its own requests empty. When a list is full it goes to the pool of the process as a chain,
// and a thread without blocks takes a chain from there: blocks that one thread makes and another frees go
// round in chains.
//
// A thread keeps at most 16 KiB of a size, or two blocks, the pool 8 MiB in all; what is beyond goes back to
// the backend, and so does everything else that a thread keeps when it ends. No call waits: whoever finds the
// pool in use goes to the backend instead, so a child process may use what another thread held when it was
// forked.
//
// There are no lists over the C runtime's malloc or under a sanitizer: tools that watch those see each block.
#pragma once

#include "backend.h"
#include "sanitizer_heap.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace fenmem::block_lists {

struct ThreadLists;

#if defined(FENMEM_BACKEND_LIBC) || defined(FENMEM_SANITIZER_HEAP)

inline constexpr ThreadLists* kNoLists = nullptr;
inline void* take(ThreadLists* /*lists*/, std::size_t /*size*/) noexcept { return nullptr; }
inline bool keep(ThreadLists* /*lists*/, void* /*p*/, std::size_t /*size*/) noexcept { return false; }
inline void* allocate(std::size_t size) noexcept { return backend::allocate(size); }
inline void release(void* p, std::size_t size) noexcept { backend::release(p, size); }
inline void bindThread() noexcept {}
inline void unbindThread() noexcept {}
inline void flushThread() noexcept {}
inline void compact() noexcept {}
inline void report(ReportWriter& /*writer*/) noexcept {}

#else

/// A free block. The second pointer is used in the first block of a chain in the pool.
struct Block {
    Block* next;
    Block* nextChain;
};

inline constexpr std::size_t kSmallStep = 16;
inline constexpr std::size_t kLargestSmall = 2048;
inline constexpr std::size_t kSmallClasses = kLargestSmall / kSmallStep + 1;
inline constexpr std::size_t kStep = 1024;
inline constexpr std::size_t kLargest = 32768; // larger blocks go to the backend
inline constexpr std::size_t kClasses = kSmallClasses + (kLargest - kLargestSmall) / kStep;

static_assert(sizeof(Block) == kSmallStep, "the smallest block holds the links");

/// Requests of size 0 have a class of their own, whose blocks are as large as those of the next.
constexpr std::size_t smallClassOf(std::size_t size) { return (size + kSmallStep - 1) / kSmallStep; }

/// The free blocks of one class in one thread.
struct List {
    Block* first = nullptr;
    std::uint64_t room = 0; // blocks that may join
};

struct ThreadLists {
    std::array<List, kClasses> lists;
    std::array<Block*, kClasses> full{}; // a list that has been full, as a chain
    ThreadLists* next = nullptr;         // in the pool
};

/// The lists of threads that have none: without blocks and without room.
extern ThreadLists g_noLists;
inline constexpr ThreadLists* kNoLists = &g_noLists;

inline Block* pop(List& list) noexcept {
    Block* const block = list.first;
    if (block != nullptr) {
        list.first = block->next;
        ++list.room;
    }
    return block;
}

/// False when there is no room.
inline bool push(List& list, void* p) noexcept {
    if (list.room == 0) {
        return false;
    }
    --list.room;
    Block* const block = static_cast<Block*>(p);
    block->next = list.first;
    list.first = block;
    return true;
}

/// A small block of the calling thread's lists; null when there is none.
inline void* take(ThreadLists* lists, std::size_t size) noexcept {
    return size <= kLargestSmall ? pop(lists->lists[smallClassOf(size)]) : nullptr;
}
/// Keeps a small block; false when there is no room.
inline bool keep(ThreadLists* lists, void* p, std::size_t size) noexcept {
    return size <= kLargestSmall && push(lists->lists[smallClassOf(size)], p);
}

/// For all other cases: lists, pool, backend. Null when memory is exhausted.
void* allocate(std::size_t size) noexcept;
void release(void* p, std::size_t size) noexcept;

/// Gives the calling thread lists, if it has none, and takes them away; the blocks go to the pool.
void bindThread() noexcept;
void unbindThread() noexcept;
/// Gives the calling thread's blocks to the pool.
void flushThread() noexcept;
/// Gives the calling thread's blocks and the pool's to the backend.
void compact() noexcept;

void report(ReportWriter& writer) noexcept;

#endif

} // namespace fenmem::block_lists
