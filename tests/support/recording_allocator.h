// An allocator provider for a test program. Its definitions of fenmem_800_allocate_dbg and fenmem_800_free
// win over the bundled ones; it knows the size of each block, can list requests and can refuse them. Any
// number of sources of one program may include it.
//
//   AllocationLog log;
//   useTheLibrary();
//   log.requests();            // what it asked for, in order
//
//   AllocationRefusal refusal(2);   // this thread's second request from here on gets null
//
// Any thread may allocate and free at any time. A free with another size than the request's, or of what is no
// live block, ends the program. While no log is open, the provider orders nothing between threads, so the
// thread sanitizer sees the races of the code under test.
#pragma once

#include <fenmemoryallocator864.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace brimtest {

/// What a new block is filled with.
inline constexpr unsigned char kFreshByte = 0xA5;

/// One call of fenmem_800_allocate_dbg; `block` is null when it was refused.
struct AllocationRequest {
    std::size_t size;
    const char* file;
    int line;
    void* block;
};

/// One call of fenmem_800_free.
struct AllocationRelease {
    void* block;
    std::size_t size;
};

class RecordingAllocator {
public:
    /// Larger requests are refused, as on a machine that lacks the memory.
    static constexpr std::size_t kLargestSize = std::size_t{1} << 30U;

    /// Blocks that were allocated and not freed.
    static long liveBlocks() noexcept { return s_liveBlocks.load(std::memory_order_relaxed); }

    static void* allocate(std::size_t size, const char* file, int line) noexcept;
    static void free(void* p, std::size_t size) noexcept;

    /// Counts a request of the calling thread; true when it is the one to refuse. For a program that sends
    /// requests of its own here (refusing_new.h).
    static bool countsAsRefused() noexcept {
        return s_requestsUntilRefusal > 0 && --s_requestsUntilRefusal == 0;
    }

private:
    friend class AllocationLog;
    friend class AllocationRefusal;

    // In front of each block; it keeps the block's alignment.
    struct alignas(16) Header {
        std::size_t size;
        volatile std::uint64_t state; // volatile: the mark of a freed block must be written
    };
    static constexpr std::uint64_t kLive = 0x6C697665626C6F63U;
    static constexpr std::uint64_t kFreed = 0x6672656564626C6FU;
    static inline std::atomic<long> s_liveBlocks{0};
    static inline thread_local long s_requestsUntilRefusal = 0;

    static inline std::atomic<bool> s_logging{false};
    static inline std::mutex s_logMutex;
    static inline std::vector<AllocationRequest> s_requests;
    static inline std::vector<AllocationRelease> s_releases;
};

/// Lists what all threads request and free during its life. One at a time.
class AllocationLog {
public:
    AllocationLog() {
        clear();
        RecordingAllocator::s_logging = true;
    }
    ~AllocationLog() { RecordingAllocator::s_logging = false; }
    AllocationLog(const AllocationLog&) = delete;
    AllocationLog& operator=(const AllocationLog&) = delete;

    std::vector<AllocationRequest> requests() const {
        const std::lock_guard<std::mutex> lock(RecordingAllocator::s_logMutex);
        return RecordingAllocator::s_requests;
    }
    std::vector<AllocationRelease> releases() const {
        const std::lock_guard<std::mutex> lock(RecordingAllocator::s_logMutex);
        return RecordingAllocator::s_releases;
    }
    /// True when nothing was requested or freed.
    bool empty() const { return requests().empty() && releases().empty(); }
    void clear() {
        const std::lock_guard<std::mutex> lock(RecordingAllocator::s_logMutex);
        RecordingAllocator::s_requests.clear();
        RecordingAllocator::s_releases.clear();
    }
};

/// During its life the `n`-th request (from 1 on) of the thread that made it is refused; those before and
/// after are served.
class AllocationRefusal {
public:
    explicit AllocationRefusal(long n) noexcept { RecordingAllocator::s_requestsUntilRefusal = n; }
    ~AllocationRefusal() { RecordingAllocator::s_requestsUntilRefusal = 0; }
    AllocationRefusal(const AllocationRefusal&) = delete;
    AllocationRefusal& operator=(const AllocationRefusal&) = delete;

    /// True once the request has come and was refused.
    bool happened() const noexcept { return RecordingAllocator::s_requestsUntilRefusal == 0; }
};

inline void* RecordingAllocator::allocate(std::size_t size, const char* file, int line) noexcept {
    void* block = nullptr;
    if (!countsAsRefused() && size <= kLargestSize) {
        if (auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size))) {
            header->size = size;
            header->state = kLive;
            block = header + 1;
            std::memset(block, kFreshByte, size);
            s_liveBlocks.fetch_add(1, std::memory_order_relaxed);
        }
    }
    if (s_logging.load(std::memory_order_relaxed)) {
        const std::lock_guard<std::mutex> lock(s_logMutex);
        s_requests.push_back({size, file, line, block});
    }
    return block;
}

inline void RecordingAllocator::free(void* p, std::size_t size) noexcept {
    if (s_logging.load(std::memory_order_relaxed)) {
        const std::lock_guard<std::mutex> lock(s_logMutex);
        s_releases.push_back({p, size});
    }
    if (p == nullptr) {
        return;
    }
    auto* const header = static_cast<Header*>(p) - 1;
    if (header->state != kLive || header->size != size) {
        std::fprintf(stderr, "recording_allocator.h: free(%p, %zu) of a block that is %s and has size %zu\n",
                     p, size, header->state == kLive ? "live" : "not live", header->size);
        std::abort();
    }
    header->state = kFreed;
    s_liveBlocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(header);
}

} // namespace brimtest

// `used`: nothing in the program calls them; the dynamic linker finds them for the library.
extern "C" {
__attribute__((used)) inline void* fenmem_800_allocate_dbg(std::size_t size, const char* file,
                                                           int line) noexcept {
    return brimtest::RecordingAllocator::allocate(size, file, line);
}
__attribute__((used)) inline void fenmem_800_free(void* p, std::size_t size) noexcept {
    brimtest::RecordingAllocator::free(p, size);
}
}
