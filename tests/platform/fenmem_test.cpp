#include "fenmemoryallocator864.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kQuota = FENMEM_800_DEFAULT_THREAD_QUOTA;

void* allocate(std::size_t size) { return fenmem_800_allocate_dbg(size, "fenmem_test", 1); }

// A new thread holds nothing and has no quota, so the figures of the tests are exact.
template <class Body>
void onNewThread(Body body) {
    std::thread(std::move(body)).join();
}

void appendPiece(void* context, const char* text, std::size_t length) {
    static_cast<std::vector<std::string>*>(context)->emplace_back(text, length);
}

std::vector<std::string> reportPieces() {
    std::vector<std::string> pieces;
    fenmem_800_log_diagnostics_information(&pieces, &appendPiece);
    return pieces;
}

std::string report() {
    std::string all;
    for (const std::string& piece : reportPieces()) {
        all += piece;
    }
    return all;
}

TEST(FenmemBlocks, AreAlignedAndWritable) {
    for (std::size_t size = 0; size <= 2100; ++size) {
        // Two at a time: blocks of one size class lie next to each other.
        std::array<void*, 2> blocks{allocate(size), allocate(size)};
        EXPECT_NE(blocks[0], blocks[1]);
        for (void* const p : blocks) {
            ASSERT_NE(p, nullptr) << size;
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % FENMEM_800_ALIGNMENT, 0U) << size;
            std::memset(p, 0xA5, size);
        }
        for (void* const p : blocks) {
            fenmem_800_free(p, size);
        }
    }
}

TEST(FenmemBlocks, KeepTheirContentsAmongOthers) {
    constexpr unsigned kSeed = 864;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    struct Block {
        unsigned char* p;
        std::size_t size;
        unsigned char fill;
    };
    std::mt19937 random(kSeed);
    std::vector<Block> blocks;
    const auto freeAt = [&blocks](std::size_t index) {
        const Block block = blocks[index];
        for (std::size_t i = 0; i < block.size; ++i) {
            ASSERT_EQ(block.p[i], block.fill);
        }
        fenmem_800_free(block.p, block.size);
        blocks[index] = blocks.back();
        blocks.pop_back();
    };
    for (unsigned round = 0; round < 4000; ++round) {
        const std::size_t size = (std::size_t{1} << (random() % 17)) + random() % 64;
        auto* const p = static_cast<unsigned char*>(allocate(size));
        ASSERT_NE(p, nullptr);
        const auto fill = static_cast<unsigned char>(round);
        std::memset(p, fill, size);
        blocks.push_back({p, size, fill});
        if (random() % 3 != 0) {
            freeAt(random() % blocks.size());
        }
    }
    while (!blocks.empty()) {
        freeAt(blocks.size() - 1);
    }
}

TEST(FenmemBlocks, NullIsFreedWithoutEffect) {
    onNewThread([] {
        fenmem_800_free(nullptr, 0);
        fenmem_800_free(nullptr, kQuota); // not credited either
        fenmem_800_thread_alloc_enable_default_quota();
        EXPECT_EQ(allocate(kQuota + 1), nullptr);
    });
}

TEST(FenmemBlocks, SiteMayBeNull) {
    void* const p = fenmem_800_allocate_dbg(8, nullptr, 0);
    ASSERT_NE(p, nullptr);
    fenmem_800_free(p, 8);
}

TEST(FenmemBlocks, HugeRequestsGiveNull) {
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
    for (const std::size_t size : {kMost, kMost - 7, kMost - 8, kMost - 15, kMost / 2 + 1, kMost / 2,
                                   std::size_t{1} << 62, (std::size_t{1} << 47) + 1}) {
        EXPECT_EQ(allocate(size), nullptr) << size;
    }
}

TEST(FenmemBlocks, MayBeFreedByAnotherThread) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kBlocks = 2000;
    const auto sizeOf = [](std::size_t index) { return 1 + index * 7 % 3000; };
    std::vector<std::vector<void*>> made(kThreads);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&made, &sizeOf, t] {
            for (std::size_t i = 0; i < kBlocks; ++i) {
                made[t].push_back(allocate(sizeOf(i)));
                std::memset(made[t].back(), static_cast<int>(t), sizeOf(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    threads.clear();
    // The threads that made the blocks are gone; the next ones free them while allocating themselves.
    for (std::size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&made, &sizeOf, t] {
            for (std::size_t i = 0; i < kBlocks; ++i) {
                void* const own = allocate(sizeOf(i));
                fenmem_800_free(made[t][i], sizeOf(i));
                fenmem_800_free(own, sizeOf(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

#ifdef FENMEM_TEST_SIZES_ARE_CHECKED
TEST(FenmemBlocksDeathTest, FreeWithAnotherSizeEndsTheProcess) {
    void* const p = allocate(10);
    EXPECT_DEATH(fenmem_800_free(p, 18), "block of 10 bytes freed with size 18");
    fenmem_800_free(p, 10);
}
#endif

TEST(FenmemQuota, IsOffByDefault) {
    onNewThread([] {
        void* const p = allocate(kQuota + 1);
        EXPECT_NE(p, nullptr);
        fenmem_800_free(p, kQuota + 1);
    });
}

TEST(FenmemQuota, HoldsToTheByte) {
    onNewThread([] {
        EXPECT_NE(fenmem_800_thread_alloc_enable_default_quota(), 0);
        EXPECT_EQ(allocate(kQuota + 1), nullptr);
        void* const most = allocate(kQuota - 100);
        ASSERT_NE(most, nullptr);
        EXPECT_EQ(allocate(101), nullptr);
        void* const rest = allocate(100);
        EXPECT_NE(rest, nullptr);
        EXPECT_EQ(allocate(1), nullptr);
        fenmem_800_free(rest, 100);
        void* const again = allocate(100);
        EXPECT_NE(again, nullptr);
        fenmem_800_free(again, 100);
        fenmem_800_free(most, kQuota - 100);
        EXPECT_NE(fenmem_800_thread_alloc_disable_quota(), 0);
    });
}

TEST(FenmemQuota, CanBeLiftedAndSetAgain) {
    onNewThread([] {
        EXPECT_NE(fenmem_800_thread_alloc_disable_quota(), 0); // also when none is on
        for (int round = 0; round < 3; ++round) {
            EXPECT_NE(fenmem_800_thread_alloc_enable_default_quota(), 0);
            EXPECT_NE(fenmem_800_thread_alloc_enable_default_quota(), 0);
            EXPECT_EQ(allocate(kQuota + 1), nullptr);
            EXPECT_NE(fenmem_800_thread_alloc_disable_quota(), 0);
            void* const p = allocate(kQuota + 1);
            EXPECT_NE(p, nullptr);
            fenmem_800_free(p, kQuota + 1);
        }
    });
}

TEST(FenmemQuota, CountsWhatWasHeldBeforeItWasOn) {
    onNewThread([] {
        void* const before = allocate(1000);
        void* const beyond = allocate(kQuota);
        fenmem_800_thread_alloc_enable_default_quota();
        EXPECT_EQ(allocate(0), nullptr); // 1000 bytes beyond the limit already
        fenmem_800_free(beyond, kQuota);
        EXPECT_EQ(allocate(kQuota - 999), nullptr);
        void* const rest = allocate(kQuota - 1000);
        EXPECT_NE(rest, nullptr);
        fenmem_800_free(rest, kQuota - 1000);
        fenmem_800_free(before, 1000);
    });
}

TEST(FenmemQuota, FailedRequestsLeaveTheAccountAlone) {
    onNewThread([] {
        constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
        fenmem_800_thread_alloc_enable_default_quota();
        void* const held = allocate(kQuota - 1000);
        ASSERT_NE(held, nullptr);
        // Among them sizes whose sum with the bytes held wraps around to a small number.
        for (const std::size_t size : {std::size_t{1001}, kQuota, kMost, kMost - (kQuota - 1000),
                                       kMost - (kQuota - 1000) + 1, kMost / 2, kMost / 2 + 1}) {
            for (int round = 0; round < 3; ++round) {
                EXPECT_EQ(allocate(size), nullptr) << size;
            }
        }
        fenmem_800_thread_alloc_disable_quota();
        EXPECT_EQ(allocate(kMost / 2), nullptr); // refused for its size alone
        fenmem_800_thread_alloc_enable_default_quota();
        void* const rest = allocate(1000);
        EXPECT_NE(rest, nullptr);
        EXPECT_EQ(allocate(1), nullptr);
        fenmem_800_free(rest, 1000);
        fenmem_800_free(held, kQuota - 1000);
    });
}

TEST(FenmemQuota, IsEachThreadsOwn) {
    onNewThread([] {
        fenmem_800_thread_alloc_enable_default_quota();
        void* const all = allocate(kQuota);
        ASSERT_NE(all, nullptr);
        EXPECT_EQ(allocate(1), nullptr);
        onNewThread([] {
            void* const unlimited = allocate(kQuota + 1);
            EXPECT_NE(unlimited, nullptr);
            fenmem_800_free(unlimited, kQuota + 1);
            fenmem_800_thread_alloc_enable_default_quota();
            void* const own = allocate(kQuota);
            EXPECT_NE(own, nullptr);
            fenmem_800_free(own, kQuota);
        });
        EXPECT_EQ(allocate(1), nullptr);
        fenmem_800_free(all, kQuota);
    });
}

TEST(FenmemQuota, CreditsTheThreadThatFrees) {
    onNewThread([] {
        constexpr std::size_t kSize = 5000;
        fenmem_800_thread_alloc_enable_default_quota();
        void* const p = allocate(kSize);
        onNewThread([p] {
            fenmem_800_free(p, kSize);
            fenmem_800_thread_alloc_enable_default_quota();
            EXPECT_EQ(allocate(kQuota + kSize + 1), nullptr);
            void* const own = allocate(kQuota + kSize);
            EXPECT_NE(own, nullptr);
            fenmem_800_free(own, kQuota + kSize);
        });
        EXPECT_EQ(allocate(kQuota - kSize + 1), nullptr);
        void* const rest = allocate(kQuota - kSize);
        EXPECT_NE(rest, nullptr);
        fenmem_800_free(rest, kQuota - kSize);
    });
}

TEST(FenmemThreads, BindUnbindFlushAndCompactRepeatedly) {
    const auto use = [] {
        std::vector<void*> blocks;
        for (std::size_t size = 0; size < 500; ++size) {
            blocks.push_back(allocate(size));
            ASSERT_NE(blocks.back(), nullptr);
            std::memset(blocks.back(), 0x5A, size);
        }
        for (std::size_t size = 0; size < 500; ++size) {
            fenmem_800_free(blocks[size], size);
        }
    };
    const auto body = [use] {
        for (int round = 0; round < 20; ++round) {
            fenmem_800_associate();
            fenmem_800_associate();
            use();
            fenmem_800_flush();
            use();
            fenmem_800_disassociate();
            fenmem_800_disassociate();
            use();
            fenmem_800_compact();
            use();
        }
    };
    body(); // the thread that loaded the provider, and others next to each other
    std::thread first(body);
    std::thread second(body);
    first.join();
    second.join();
}

TEST(FenmemThreads, BlocksOutliveTheBindingOfTheirThread) {
    onNewThread([] {
        fenmem_800_associate();
        std::vector<unsigned char*> blocks;
        for (std::size_t size = 1; size < 3000; size += 13) {
            blocks.push_back(static_cast<unsigned char*>(allocate(size)));
            std::memset(blocks.back(), static_cast<int>(size % 251), size);
        }
        fenmem_800_disassociate();
        std::size_t size = 1;
        for (unsigned char* const p : blocks) {
            EXPECT_EQ(p[0], size % 251);
            EXPECT_EQ(p[size - 1], size % 251);
            fenmem_800_free(p, size);
            size += 13;
        }
    });
}

TEST(FenmemThreads, UnbindingKeepsTheAccount) {
    onNewThread([] {
        fenmem_800_thread_alloc_enable_default_quota();
        void* const p = allocate(1000);
        fenmem_800_disassociate();
        fenmem_800_flush();
        fenmem_800_compact();
        EXPECT_EQ(allocate(kQuota - 999), nullptr);
        fenmem_800_free(p, 1000);
    });
}

TEST(FenmemReport, PiecesAreCompleteFormatsWithoutArguments) {
    struct Seen {
        std::size_t pieces = 0;
        std::size_t bytes = 0;
    } seen;
    fenmem_800_log_diagnostics_information(&seen, [](void* context, const char* text, std::size_t length) {
        auto& counts = *static_cast<Seen*>(context);
        ++counts.pieces;
        counts.bytes += length;
        ASSERT_NE(text, nullptr);
        EXPECT_EQ(std::strlen(text), length);
        for (const char* p = std::strchr(text, '%'); p != nullptr; p = std::strchr(p + 2, '%')) {
            ASSERT_EQ(p[1], '%') << text;
        }
    });
    EXPECT_GT(seen.pieces, 1U);
    EXPECT_GT(seen.bytes, 0U);
}

TEST(FenmemReport, NullCallbackDoesNothing) { fenmem_800_log_diagnostics_information(nullptr, nullptr); }

TEST(FenmemReport, TellsWhatTheThreadHolds) {
    if (report().find("fenmemoryallocator864, variant ") == std::string::npos) {
        GTEST_SKIP() << "the system's provider words its report in its own way";
    }
    onNewThread([] {
        EXPECT_THAT(report(), testing::HasSubstr("calling thread holds 0 bytes, quota off\n"));
        void* const p = allocate(12345);
        fenmem_800_thread_alloc_enable_default_quota();
        EXPECT_THAT(report(),
                    testing::HasSubstr("calling thread holds 12345 bytes, quota 268435456 bytes\n"));
        onNewThread([p] {
            fenmem_800_free(p, 12345);
            EXPECT_THAT(report(), testing::HasSubstr("calling thread holds -12345 bytes, quota off\n"));
        });
    });
}

TEST(FenmemReport, NamesWhatIsBelow) {
    const char* const expected = std::getenv("FENMEM_TEST_REPORT_SAYS");
    EXPECT_THAT(report(), testing::HasSubstr(expected != nullptr ? expected : "\n"));
}

TEST(FenmemReport, MayBeTakenWhileOthersAllocate) {
    std::thread other([] {
        for (std::size_t round = 0; round < 5000; ++round) {
            fenmem_800_free(allocate(round), round);
        }
    });
    for (int round = 0; round < 20; ++round) {
        EXPECT_FALSE(report().empty());
    }
    other.join();
}

} // namespace
