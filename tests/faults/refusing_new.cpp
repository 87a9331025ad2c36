#include "refusing_new.h"

#include "recording_allocator.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constinit std::atomic<long> g_liveBlocks{0};

} // namespace

long brimtest::liveBlocksOfOperatorNew() noexcept { return g_liveBlocks.load(std::memory_order_relaxed); }

// The array and nothrow forms of the standard library call these two.
void* operator new(std::size_t size) {
    void* const block = brimtest::RecordingAllocator::countsAsRefused() ? nullptr : std::malloc(size + 1);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    g_liveBlocks.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void operator delete(void* block) noexcept {
    if (block != nullptr) {
        g_liveBlocks.fetch_sub(1, std::memory_order_relaxed);
        std::free(block);
    }
}

void operator delete(void* block, std::size_t /*size*/) noexcept { operator delete(block); }

void* operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete[](void* block, std::size_t /*size*/) noexcept { operator delete(block); }
