#include "Utility/Generic/Portable/SUPAtomic.h"

#include "child_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstdio>
#include <limits>
#include <numeric>
#include <set>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

constexpr int kThreads = 8;
constexpr int kSteps = 20000;

// Runs `body(index)` on many threads that start together.
template <class Body>
void onThreads(Body body) {
    std::barrier start(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&start, &body, i] {
            start.arrive_and_wait();
            body(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

static_assert(sizeof(IntegralAtomic<int, false>) == 4);
static_assert(sizeof(AtomicUint32) == 4);
static_assert(!std::is_copy_constructible_v<IntegralAtomic<int, false>>);
static_assert(!std::is_copy_constructible_v<AtomicUint32>);
static_assert(std::is_same_v<AtomicUint32, ValueAtomic<unsigned int>>);

TEST(IntegralAtomic, CountsUpAndDown) {
    IntegralAtomic<int, false> count;
    for (const int first : {0, 1, -5, 1000000, std::numeric_limits<int>::max() - 1, -2147483647}) {
        count.initialize(first);
        EXPECT_EQ(count.get(), first);
        count.increment();
        EXPECT_EQ(count.get(), first + 1);
        EXPECT_EQ(count.decrement(), first) << "the new value";
        EXPECT_EQ(count.decrement(), first - 1);
        EXPECT_EQ(count.get(), first - 1);
    }
}

// The steps are plain until the first thread and locked from then on.
const brimtest::FreshProcess kCountsBeforeAndAfterTheFirstThread("CountsBeforeAndAfterTheFirstThread", [] {
    IntegralAtomic<int, false> count;
    count.initialize(1);
    for (int i = 0; i < 1000; ++i) {
        count.increment();
    }
    std::printf("%d\n", count.get());
    std::printf("%d\n", count.decrement());
    std::thread([&count] {
        for (int i = 0; i < 1000; ++i) {
            count.increment();
        }
        std::printf("%d\n", count.decrement());
    }).join();
    std::printf("%d\n", count.decrement());
});

TEST(IntegralAtomic, ReleaseTellsTheLast) {
    const auto countDown = [] {
        IntegralAtomic<int, false> count;
        count.initialize(3);
        EXPECT_FALSE(count.release());
        EXPECT_FALSE(count.release());
        EXPECT_EQ(count.get(), 1);
        EXPECT_TRUE(count.release());
        EXPECT_EQ(count.get(), 0);
    };
    countDown();
    std::thread([] {}).join(); // from here on the steps are locked
    countDown();
}

TEST(IntegralAtomic, CountsAcrossTheStartOfTheFirstThread) {
    const brimtest::ChildResult result = kCountsBeforeAndAfterTheFirstThread.run();
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "1001\n1000\n1999\n1998\n");
}

TEST(IntegralAtomic, LosesNoStepOfManyThreads) {
    IntegralAtomic<int, false> count;
    count.initialize(5);
    onThreads([&count](int) {
        for (int i = 0; i < kSteps; ++i) {
            count.increment();
        }
    });
    EXPECT_EQ(count.get(), 5 + kThreads * kSteps);
    onThreads([&count](int) {
        for (int i = 0; i < kSteps; ++i) {
            count.increment();
            count.decrement();
            count.decrement();
        }
    });
    EXPECT_EQ(count.get(), 5);
}

TEST(IntegralAtomic, DecrementReturnsEachValueToOneThreadOnly) {
    IntegralAtomic<int, false> count;
    count.initialize(kThreads * kSteps);
    std::vector<std::vector<int>> seen(kThreads);
    onThreads([&](int index) {
        std::vector<int>& mine = seen[static_cast<std::size_t>(index)];
        mine.reserve(kSteps);
        for (int i = 0; i < kSteps; ++i) {
            mine.push_back(count.decrement());
        }
    });
    std::vector<int> all;
    for (const std::vector<int>& mine : seen) {
        EXPECT_TRUE(std::is_sorted(mine.rbegin(), mine.rend()));
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    std::vector<int> expected(kThreads * kSteps);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(all, expected);
}

TEST(IntegralAtomic, WhoeverReachesZeroSeesWhatTheOthersDid) {
    constexpr int kRounds = 500;
    struct Shared {
        IntegralAtomic<int, false> count;
        int written[kThreads] = {}; // plain on purpose: the count alone orders them
    };
    std::vector<Shared> rounds(kRounds);
    for (Shared& shared : rounds) {
        shared.count.initialize(kThreads);
    }
    std::atomic<int> last{0};
    std::atomic<int> sum{0};
    onThreads([&](int index) {
        for (Shared& shared : rounds) {
            shared.written[index] = index + 1;
            if (shared.count.decrement() == 0) {
                ++last;
                sum += std::accumulate(std::begin(shared.written), std::end(shared.written), 0);
            }
        }
    });
    EXPECT_EQ(last.load(), kRounds);
    EXPECT_EQ(sum.load(), kRounds * kThreads * (kThreads + 1) / 2);
}

TEST(IntegralAtomic, AHolderThatReadsOneSeesWhatTheOthersDid) {
    constexpr int kRounds = 2000;
    for (int round = 0; round < kRounds; ++round) {
        IntegralAtomic<int, false> count;
        int value = 0;
        count.initialize(2);
        std::thread other([&] {
            value = round + 1;
            count.decrement();
        });
        while (count.get() != 1) {
            std::this_thread::yield();
        }
        EXPECT_EQ(value, round + 1);
        other.join();
    }
}

TEST(ValueAtomic, StartsAtZeroOrAtItsValue) {
    const AtomicUint32 zero;
    EXPECT_EQ(zero.get(), 0U);
    const AtomicUint32 seven(7);
    EXPECT_EQ(seven.get(), 7U);
    const ValueAtomic<bool> flag(true);
    EXPECT_TRUE(flag.get());
}

TEST(ValueAtomic, IncrementAndDecrementReturnTheNewValue) {
    AtomicUint32 value(3);
    EXPECT_EQ(value.increment(), 4U);
    EXPECT_EQ(value.decrement(), 3U);
    EXPECT_EQ(value.get(), 3U);
    value.set(std::numeric_limits<unsigned int>::max());
    EXPECT_EQ(value.increment(), 0U);
    EXPECT_EQ(value.decrement(), std::numeric_limits<unsigned int>::max());
}

TEST(ValueAtomic, CompareExchangeStoresOrTellsTheValue) {
    AtomicUint32 value(3);
    unsigned int expected = 4;
    EXPECT_FALSE(value.compareExchange(expected, 9));
    EXPECT_EQ(expected, 3U);
    EXPECT_EQ(value.get(), 3U);
    EXPECT_TRUE(value.compareExchange(expected, 9));
    EXPECT_EQ(expected, 3U);
    EXPECT_EQ(value.get(), 9U);
}

TEST(ValueAtomic, LosesNoStepOfManyThreads) {
    AtomicUint32 value;
    onThreads([&value](int index) {
        for (int i = 0; i < kSteps; ++i) {
            if (index % 2 == 0) {
                value.increment();
            } else {
                unsigned int expected = value.get();
                while (!value.compareExchange(expected, expected + 1)) {
                }
            }
        }
    });
    EXPECT_EQ(value.get(), static_cast<unsigned int>(kThreads * kSteps));
    onThreads([&value](int) {
        for (int i = 0; i < kSteps; ++i) {
            value.decrement();
        }
    });
    EXPECT_EQ(value.get(), 0U);
}

TEST(ValueAtomic, GivesEachTicketToOneThreadOnly) {
    AtomicUint32 next;
    std::vector<std::vector<unsigned int>> tickets(kThreads);
    onThreads([&](int index) {
        for (int i = 0; i < 2000; ++i) {
            tickets[static_cast<std::size_t>(index)].push_back(next.increment());
        }
    });
    std::set<unsigned int> all;
    for (const auto& mine : tickets) {
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(all.size(), kThreads * 2000U);
    EXPECT_EQ(*all.begin(), 1U);
    EXPECT_EQ(*all.rbegin(), kThreads * 2000U);
}

TEST(ValueAtomic, SetPublishesWhatWasWrittenBefore) {
    for (int round = 0; round < 500; ++round) {
        AtomicUint32 ready;
        int value = 0;
        std::thread writer([&] {
            value = round + 1;
            ready.set(1);
        });
        while (ready.get() == 0) {
            std::this_thread::yield();
        }
        EXPECT_EQ(value, round + 1);
        writer.join();
    }
}

} // namespace
