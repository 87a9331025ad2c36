// The lists of free small blocks that the bundled provider keeps: what is kept, how much, and when it goes.
#include "fenmemoryallocator864.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <pthread.h>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#ifdef FENMEM_TEST_HAS_LISTS

namespace {

constexpr long kMostPooled = 8L << 20;
constexpr std::size_t kLargestListed = 32768;
constexpr long kMostListed = 2L * kLargestListed; // of one size class in one thread

void* allocate(std::size_t size) { return fenmem_800_allocate_dbg(size, "fenmem_lists_test", 1); }

void onNewThread(const std::function<void()>& body) { std::thread(body).join(); }

struct Kept {
    long thread = -1;
    long pool = -1;
};

Kept kept() {
    Kept result;
    fenmem_800_log_diagnostics_information(&result, [](void* context, const char* text, std::size_t) {
        auto& found = *static_cast<Kept*>(context);
        std::sscanf(text, "free small blocks kept: calling thread %ld bytes, all threads %ld bytes",
                    &found.thread, &found.pool);
    });
    return result;
}

std::vector<void*> makeBlocks(std::size_t n, std::size_t size) {
    std::vector<void*> blocks(n);
    for (void*& block : blocks) {
        block = allocate(size);
        std::memset(block, 1, size);
    }
    return blocks;
}

void release(const std::vector<void*>& blocks, std::size_t size) {
    for (void* const block : blocks) {
        fenmem_800_free(block, size);
    }
}

class FenmemLists : public testing::Test {
protected:
    void SetUp() override { fenmem_800_compact(); }
};

TEST_F(FenmemLists, GiveTheBlockThatCameLast) {
    onNewThread([] {
        for (std::size_t size = 0; size <= kLargestListed; size += size < 2100 ? 1 : 61) {
            void* const first = allocate(size);
            void* const second = allocate(size);
            fenmem_800_free(first, size);
            fenmem_800_free(second, size);
            EXPECT_EQ(allocate(size), second) << size;
            EXPECT_EQ(allocate(size), first) << size;
            fenmem_800_free(first, size);
            fenmem_800_free(second, size);
        }
    });
}

TEST_F(FenmemLists, ServeSizesOfTheSameClass) {
    onNewThread([] {
        void* const p = allocate(17);
        fenmem_800_free(p, 17);
        EXPECT_EQ(allocate(32), p);
        std::memset(p, 1, 32);
        fenmem_800_free(p, 32);
        void* const larger = allocate(33);
        EXPECT_NE(larger, p);
        fenmem_800_free(larger, 33);
        void* const large = allocate(2049);
        fenmem_800_free(large, 2049);
        EXPECT_EQ(allocate(3072), large);
        std::memset(large, 1, 3072);
        fenmem_800_free(large, 3072);
    });
}

TEST_F(FenmemLists, KeepNoLargeBlocks) {
    onNewThread([] {
        fenmem_800_free(allocate(kLargestListed + 1), kLargestListed + 1);
        EXPECT_EQ(kept().thread, 0);
        fenmem_800_free(allocate(kLargestListed), kLargestListed);
        EXPECT_EQ(kept().thread, static_cast<long>(kLargestListed));
    });
}

TEST_F(FenmemLists, AreBounded) {
    onNewThread([] {
        for (const std::size_t size : {std::size_t{0}, std::size_t{16}, std::size_t{100}, std::size_t{2048},
                                       std::size_t{9000}, kLargestListed}) {
            fenmem_800_compact();
            release(makeBlocks(10'000, size), size);
            const Kept now = kept();
            EXPECT_GT(now.thread, 0) << size;
            EXPECT_LE(now.thread, kMostListed) << size;
            EXPECT_GT(now.pool, 0) << size;
            EXPECT_LE(now.pool, kMostPooled) << size;
        }
    });
}

TEST_F(FenmemLists, PassBlocksFromThreadToThread) {
    constexpr std::size_t kSize = 64;
    constexpr std::size_t kBlocks = 10'000;
    std::vector<void*> blocks;
    onNewThread([&blocks] { blocks = makeBlocks(kBlocks, kSize); });
    onNewThread([&blocks] { release(blocks, kSize); });
    const long pooled = kept().pool;
    EXPECT_GT(pooled, static_cast<long>(kBlocks * kSize) - kMostListed);
    onNewThread([pooled] {
        const std::vector<void*> again = makeBlocks(kBlocks / 2, kSize);
        EXPECT_LE(kept().pool, pooled - static_cast<long>(kBlocks / 2 * kSize) + kMostListed);
        release(again, kSize);
    });
}

TEST_F(FenmemLists, AreEmptiedByFlush) {
    onNewThread([] {
        constexpr std::size_t kSize = 96;
        release(makeBlocks(1000, kSize), kSize);
        const Kept before = kept();
        EXPECT_GT(before.thread, 0);
        fenmem_800_flush();
        EXPECT_EQ(kept().thread, 0);
        EXPECT_GE(kept().pool, before.pool);
        release(makeBlocks(1000, kSize), kSize);
        EXPECT_GT(kept().thread, 0);
    });
}

TEST_F(FenmemLists, GoWithTheBinding) {
    onNewThread([] {
        fenmem_800_free(allocate(100), 100);
        EXPECT_GT(kept().thread, 0);
        fenmem_800_disassociate();
        EXPECT_EQ(kept().thread, 0);
        fenmem_800_associate();
        EXPECT_EQ(kept().thread, 0);
        fenmem_800_free(allocate(100), 100);
        EXPECT_GT(kept().thread, 0);
        fenmem_800_disassociate();
        fenmem_800_free(allocate(100), 100); // binds it again
        EXPECT_GT(kept().thread, 0);
    });
}

TEST_F(FenmemLists, AreGivenBackByCompact) {
    onNewThread([] {
        release(makeBlocks(20'000, 200), 200);
        fenmem_800_compact();
        EXPECT_EQ(kept().thread, 0);
        EXPECT_EQ(kept().pool, 0);
    });
}

// ---- What the system sees ---------------------------------------------------------------------------------

long residentBytes() {
    long pages = 0;
    if (FILE* const file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%*d %ld", &pages) != 1) {
            pages = 0;
        }
        std::fclose(file);
    }
    return pages * ::sysconf(_SC_PAGESIZE);
}

TEST_F(FenmemLists, LeaveNothingOfABurstAfterCompact) {
    constexpr std::size_t kSize = 112;
    constexpr std::size_t kBlocks = 1'000'000;
    const long before = residentBytes();
    std::vector<void*> blocks = makeBlocks(kBlocks, kSize);
    EXPECT_GT(residentBytes(), before + static_cast<long>(kBlocks * kSize));
    release(blocks, kSize);
    blocks = {};
    fenmem_800_compact();
    EXPECT_LT(residentBytes(), before + static_cast<long>(kBlocks * kSize / 4));
}

TEST_F(FenmemLists, EndWithTheirThread) {
    constexpr std::size_t kBytes = 512 * 1024;
    const auto use = [] {
        for (const std::size_t size : {64U, 256U, 1024U}) {
            release(makeBlocks(kBytes / size / 3, size), size);
        }
    };
    onNewThread(use);
    const long before = residentBytes();
    for (int i = 0; i < 400; ++i) {
        onNewThread(use);
    }
    EXPECT_LT(residentBytes(), before + 400L * 16 * 1024);
}

// Destructors of a thread's values may come after the provider's own: those of keys made later, and those of
// values that are stored again in a destructor.
TEST_F(FenmemLists, KeepNothingThatAnEndingThreadFrees) {
    constexpr std::size_t kSize = 256;
    struct Rounds {
        std::vector<void*> blocks = makeBlocks(256, kSize);
        int done = 0;
    };
    static pthread_key_t key;
    ASSERT_EQ(::pthread_key_create(&key,
                                   [](void* value) {
                                       auto* const rounds = static_cast<Rounds*>(value);
                                       if (++rounds->done < PTHREAD_DESTRUCTOR_ITERATIONS) {
                                           ::pthread_setspecific(key, rounds);
                                       } else {
                                           release(rounds->blocks, kSize);
                                       }
                                   }),
              0);
    const auto use = [] {
        Rounds rounds;
        std::thread([&rounds] {
            fenmem_800_free(allocate(kSize), kSize);
            ::pthread_setspecific(key, &rounds);
        }).join();
        EXPECT_EQ(rounds.done, PTHREAD_DESTRUCTOR_ITERATIONS);
    };
    use();
    const long before = residentBytes();
    constexpr int kThreads = 1000;
    for (int i = 0; i < kThreads; ++i) {
        use();
    }
    EXPECT_LT(residentBytes(), before + kThreads * static_cast<long>(kSize * 256) / 4);
    ::pthread_key_delete(key);
}

// ---- Many threads -----------------------------------------------------------------------------------------

// Blocks wander between the threads through slots that all share; each carries its size and a mark.
TEST_F(FenmemLists, KeepBlocksApartAmongThreads) {
    constexpr unsigned kSeed = 1600;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    struct Content {
        std::size_t size;
        std::uintptr_t mark;
    };
    std::array<std::atomic<Content*>, 512> slots{};
    std::atomic<int> damaged{0};
    const auto check = [&damaged](Content* block) {
        const auto* const bytes = reinterpret_cast<unsigned char*>(block);
        if (block->mark != reinterpret_cast<std::uintptr_t>(block) ||
            (block->size > sizeof(Content) && bytes[block->size - 1] != 0x3C)) {
            ++damaged;
        }
        fenmem_800_free(block, block->size);
    };
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&slots, &check, t] {
            std::mt19937 random(kSeed + t);
            for (int round = 0; round < 100'000; ++round) {
                const std::size_t size = sizeof(Content) + random() % (round % 16 == 0 ? 6000 : 300);
                auto* const block = static_cast<Content*>(allocate(size));
                std::memset(block, 0x3C, size);
                *block = {size, reinterpret_cast<std::uintptr_t>(block)};
                if (Content* const other = slots[random() % slots.size()].exchange(block)) {
                    check(other);
                }
                if (round % 20'000 == 0) {
                    fenmem_800_flush();
                    fenmem_800_compact();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::atomic<Content*>& slot : slots) {
        if (Content* const block = slot.load()) {
            check(block);
        }
    }
    EXPECT_EQ(damaged, 0);
}

// A child has the pool as it was at the fork, perhaps in the middle of another thread's call.
TEST_F(FenmemLists, WorkInAForkedChild) {
    std::atomic<bool> stop{false};
    std::thread other([&stop] {
        while (!stop) {
            release(makeBlocks(500, 64), 64);
        }
    });
    for (int i = 0; i < 100; ++i) {
        const pid_t child = ::fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            ::alarm(60);
            release(makeBlocks(500, 64), 64);
            fenmem_800_flush();
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
    stop = true;
    other.join();
}

} // namespace

#endif
