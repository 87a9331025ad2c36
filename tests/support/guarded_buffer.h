// Memory that ends at a page nobody may touch, so that a read or write past the end stops the test in every
// build.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>

namespace brimtest {

/// Room for `capacity` elements of plain data, the last of which borders on the guard page.
template <class T>
class GuardedBuffer {
public:
    explicit GuardedBuffer(std::size_t capacity) {
        const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        m_usable = (capacity * sizeof(T) + page - 1) / page * page;
        m_mapped = m_usable + page;
        void* const block =
            ::mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (block == MAP_FAILED) {
            throw std::bad_alloc();
        }
        m_base = static_cast<char*>(block);
        if (::mprotect(m_base + m_usable, page, PROT_NONE) != 0) {
            ::munmap(m_base, m_mapped);
            throw std::bad_alloc();
        }
    }
    ~GuardedBuffer() { ::munmap(m_base, m_mapped); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    std::size_t capacity() const { return m_usable / sizeof(T); }

    /// The last `count` elements.
    T* last(std::size_t count) { return reinterpret_cast<T*>(m_base + m_usable) - count; }

    /// The last `count` elements, filled with `fill`, as are up to kFence elements before them.
    T* lastFenced(std::size_t count, T fill) {
        m_fence = std::min(kFence, capacity() - count);
        T* const first = last(count);
        std::fill(first - m_fence, first + count, fill);
        return first;
    }
    /// Whether the elements before lastFenced(count, fill) are as they were.
    bool fenceIsWhole(std::size_t count, T fill) {
        T* const first = last(count);
        return std::all_of(first - m_fence, first, [fill](const T& value) { return value == fill; });
    }

private:
    static constexpr std::size_t kFence = 16;

    char* m_base = nullptr;
    std::size_t m_usable = 0;
    std::size_t m_mapped = 0;
    std::size_t m_fence = 0;
};

} // namespace brimtest
