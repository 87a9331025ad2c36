#include "block_lists.h"

#include "thread_state.h"

#if !defined(FENMEM_BACKEND_LIBC) && !defined(FENMEM_SANITIZER_HEAP)

#    include <algorithm>
#    include <atomic>
#    include <new>
#    include <pthread.h>
#    include <sched.h>
#    include <sys/mman.h>
#    include <utility>

namespace fenmem::block_lists {

namespace {

constexpr std::size_t kMostPooledBytes = std::size_t{8} << 20;

constexpr std::size_t classOf(std::size_t size) {
    return size <= kLargestSmall ? smallClassOf(size) : kSmallClasses + (size - kLargestSmall - 1) / kStep;
}

constexpr std::size_t blockSizeOf(std::size_t sizeClass) {
    return sizeClass < kSmallClasses ? std::max(sizeClass, std::size_t{1}) * kSmallStep
                                     : kLargestSmall + (sizeClass - kSmallClasses + 1) * kStep;
}

static_assert(classOf(kLargest) == kClasses - 1 && blockSizeOf(kClasses - 1) == kLargest);

/// Blocks in a full list: 8 KiB, but not so many that going through them takes long.
constexpr std::array<std::uint32_t, kClasses> kChainLengths = [] {
    std::array<std::uint32_t, kClasses> lengths{};
    for (std::size_t c = 0; c < kClasses; ++c) {
        lengths[c] = static_cast<std::uint32_t>(std::clamp<std::size_t>(8192 / blockSizeOf(c), 1, 128));
    }
    return lengths;
}();

constexpr std::size_t chainBytesOf(std::size_t sizeClass) {
    return kChainLengths[sizeClass] * blockSizeOf(sizeClass);
}

/// Chains of full length, and lists that no thread has. A call that finds it in use does nothing.
class Pool {
public:
    /// False when there is no room.
    bool give(std::size_t sizeClass, Block* chain) noexcept {
        const Use use(*this);
        if (!use || m_bytes + chainBytesOf(sizeClass) > kMostPooledBytes) {
            return false;
        }
        m_bytes += chainBytesOf(sizeClass);
        chain->nextChain = std::exchange(m_chains[sizeClass], chain);
        return true;
    }
    /// Null when there is none.
    Block* take(std::size_t sizeClass) noexcept {
        const Use use(*this);
        if (!use || m_chains[sizeClass] == nullptr) {
            return nullptr;
        }
        m_bytes -= chainBytesOf(sizeClass);
        return std::exchange(m_chains[sizeClass], m_chains[sizeClass]->nextChain);
    }

    /// All chains; waits a while for the pool, but not for ever.
    std::array<Block*, kClasses> takeAll() noexcept {
        constexpr int kPatience = 1000;
        const Use use(*this, kPatience);
        if (!use) {
            return {};
        }
        m_bytes = 0;
        return std::exchange(m_chains, {});
    }

    bool giveLists(ThreadLists* lists) noexcept {
        const Use use(*this);
        if (!use) {
            return false;
        }
        lists->next = std::exchange(m_lists, lists);
        return true;
    }
    ThreadLists* takeLists() noexcept {
        const Use use(*this);
        return use && m_lists != nullptr ? std::exchange(m_lists, m_lists->next) : nullptr;
    }

    std::size_t bytes() noexcept {
        const Use use(*this);
        return use ? m_bytes : 0;
    }

private:
    class Use {
    public:
        explicit Use(Pool& pool, int attempts = 1) noexcept : m_pool(pool) {
            while (!(m_mine = !pool.m_inUse.exchange(true, std::memory_order_acquire)) && --attempts > 0) {
                ::sched_yield();
            }
        }
        ~Use() {
            if (m_mine) {
                m_pool.m_inUse.store(false, std::memory_order_release);
            }
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        explicit operator bool() const noexcept { return m_mine; }

    private:
        Pool& m_pool;
        bool m_mine = false;
    };

    std::atomic<bool> m_inUse{false};
    std::size_t m_bytes = 0;
    std::array<Block*, kClasses> m_chains{};
    ThreadLists* m_lists = nullptr;
};

constinit Pool s_pool;

// Its destructor takes a thread's lists away. Set once, while the provider is loaded.
constinit std::atomic<bool> s_hasKey{false};
pthread_key_t s_key;

// Set when a thread ends: what it still frees goes to the backend at once, since nobody comes after it.
__attribute__((tls_model("initial-exec"))) constinit thread_local bool t_isEnding = false;

bool isBound() { return t_thread.lists != kNoLists; }

ThreadLists* makeLists() {
    if (ThreadLists* const lists = s_pool.takeLists()) {
        return lists;
    }
    void* const room =
        ::mmap(nullptr, sizeof(ThreadLists), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return room == MAP_FAILED ? nullptr : ::new (room) ThreadLists;
}

void destroyLists(ThreadLists* lists) { ::munmap(lists, sizeof(ThreadLists)); }

bool bind() {
    if (t_isEnding || !s_hasKey.load(std::memory_order_acquire)) {
        return false;
    }
    ThreadLists* const lists = makeLists();
    if (lists == nullptr) {
        return false;
    }
    if (::pthread_setspecific(s_key, lists) != 0) {
        destroyLists(lists);
        return false;
    }
    for (std::size_t c = 0; c < kClasses; ++c) {
        lists->lists[c] = {nullptr, kChainLengths[c]};
    }
    t_thread.lists = lists;
    return true;
}

void releaseChain(std::size_t sizeClass, Block* chain) {
    while (chain != nullptr) {
        Block* const block = std::exchange(chain, chain->next);
        backend::release(block, blockSizeOf(sizeClass));
    }
}

void pass(std::size_t sizeClass, Block* fullChain) {
    if (!s_pool.give(sizeClass, fullChain)) {
        releaseChain(sizeClass, fullChain);
    }
}

// The pool takes full chains only; the rest goes to the backend.
void emptyLists(ThreadLists& lists) {
    for (std::size_t c = 0; c < kClasses; ++c) {
        List& list = lists.lists[c];
        if (lists.full[c] != nullptr) {
            pass(c, std::exchange(lists.full[c], nullptr));
        }
        if (list.room == 0) {
            pass(c, list.first);
        } else {
            releaseChain(c, list.first);
        }
        list = {nullptr, kChainLengths[c]};
    }
}

// Also the destructor of the key.
void takeListsAway(void* threadLists) {
    auto* const lists = static_cast<ThreadLists*>(threadLists);
    t_thread.lists = kNoLists;
    emptyLists(*lists);
    if (!s_pool.giveLists(lists)) {
        destroyLists(lists);
    }
}

void endThread(void* threadLists) {
    t_isEnding = true;
    takeListsAway(threadLists);
}

// Before mimalloc is opened: keys are cleared in the order of their making, and the blocks of a thread should
// go back while its heap is still there.
[[gnu::constructor(101)]] void makeKey() {
    s_hasKey.store(::pthread_key_create(&s_key, &endThread) == 0, std::memory_order_release);
}

std::size_t bytesOf(const ThreadLists& lists) {
    std::size_t bytes = 0;
    for (std::size_t c = 0; c < kClasses; ++c) {
        const std::size_t blocks =
            kChainLengths[c] - lists.lists[c].room + (lists.full[c] != nullptr ? kChainLengths[c] : 0);
        bytes += blocks * blockSizeOf(c);
    }
    return bytes;
}

} // namespace

constinit ThreadLists g_noLists;

void* allocate(std::size_t size) noexcept {
    if (size > kLargest) {
        return backend::allocate(size);
    }
    const std::size_t sizeClass = classOf(size);
    if (isBound() || bind()) {
        ThreadLists& lists = *t_thread.lists;
        List& list = lists.lists[sizeClass];
        if (list.first == nullptr) {
            Block* const chain = lists.full[sizeClass] != nullptr
                                     ? std::exchange(lists.full[sizeClass], nullptr)
                                     : s_pool.take(sizeClass);
            if (chain != nullptr) {
                list = {chain, 0};
            }
        }
        if (Block* const block = pop(list)) {
            return block;
        }
    }
    return backend::allocate(blockSizeOf(sizeClass));
}

void release(void* p, std::size_t size) noexcept {
    if (size > kLargest || (!isBound() && !bind())) {
        backend::release(p, size);
        return;
    }
    const std::size_t sizeClass = classOf(size);
    ThreadLists& lists = *t_thread.lists;
    List& list = lists.lists[sizeClass];
    if (list.room == 0) {
        if (lists.full[sizeClass] != nullptr) {
            pass(sizeClass, lists.full[sizeClass]);
        }
        lists.full[sizeClass] = list.first;
        list = {nullptr, kChainLengths[sizeClass]};
    }
    push(list, p);
}

void bindThread() noexcept {
    if (!isBound()) {
        bind();
    }
}

void unbindThread() noexcept {
    if (isBound()) {
        ThreadLists* const lists = t_thread.lists;
        ::pthread_setspecific(s_key, nullptr);
        takeListsAway(lists);
    }
}

void flushThread() noexcept {
    if (isBound()) {
        emptyLists(*t_thread.lists);
    }
}

void compact() noexcept {
    flushThread();
    std::array<Block*, kClasses> chains = s_pool.takeAll();
    for (std::size_t c = 0; c < kClasses; ++c) {
        while (chains[c] != nullptr) {
            releaseChain(c, std::exchange(chains[c], chains[c]->nextChain));
        }
    }
    while (ThreadLists* const lists = s_pool.takeLists()) {
        destroyLists(lists);
    }
}

void report(ReportWriter& writer) noexcept {
    writer << "free small blocks kept: calling thread "
           << static_cast<long long>(isBound() ? bytesOf(*t_thread.lists) : 0) << " bytes, all threads "
           << static_cast<long long>(s_pool.bytes()) << " bytes\n";
}

} // namespace fenmem::block_lists

#endif
