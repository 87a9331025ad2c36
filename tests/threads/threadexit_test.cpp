// What happens at the end of a thread.
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include "thread_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <pthread.h>
#include <random>
#include <thread>
#include <vector>

using brimtest::manager;
using brimtest::onFreshThread;
using brimtest::Value;

namespace {

// What the callbacks of the thread that is ending have seen. One such thread at a time.
std::vector<int> g_log;

void* asValue(int id) { return reinterpret_cast<void*>(static_cast<std::intptr_t>(id)); }
int asId(void* value) { return static_cast<int>(reinterpret_cast<std::intptr_t>(value)); }
void logId(void* value) { g_log.push_back(asId(value)); }

class ThreadExit : public testing::Test {
protected:
    void SetUp() override { g_log.clear(); }
};

TEST_F(ThreadExit, CallbacksRunInAscendingKeyOrder) {
    for (unsigned int seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::vector<int> keys{INT_MIN, -7, -1, 0, 1, 2, 3, 62, 63, 64, 65, 900, INT_MAX};
        const std::vector<int> sorted = keys;
        std::shuffle(keys.begin(), keys.end(), std::mt19937(seed));
        g_log.clear();
        onFreshThread([&keys] {
            for (const int key : keys) {
                manager().ModifyTls(key, asValue(key), &logId);
            }
            EXPECT_TRUE(g_log.empty());
        });
        EXPECT_EQ(g_log, sorted);
    }
}

TEST_F(ThreadExit, AValueWithoutACallbackIsDropped) {
    onFreshThread([] {
        manager().ModifyTls(1, asValue(1), nullptr);
        manager().ModifyTls(2, asValue(2), &logId);
    });
    EXPECT_EQ(g_log, std::vector<int>{2});
}

TEST_F(ThreadExit, CallbacksRunOnTheThreadThatEnds) {
    static unsigned int s_thread;
    unsigned int expected = 0;
    onFreshThread([&expected] {
        expected = GetCurrThreadID();
        manager().ModifyTls(1, nullptr, [](void*) { s_thread = GetCurrThreadID(); });
    });
    EXPECT_EQ(s_thread, expected);
}

TEST_F(ThreadExit, ASlotIsGoneWhenItsCallbackRunsAndTheOthersAreNot) {
    onFreshThread([] {
        manager().ModifyTls(1, asValue(1), [](void*) {
            EXPECT_FALSE(manager().IsTlsExisted(1));
            EXPECT_EQ(manager().GetTlsValue(1), nullptr);
            EXPECT_EQ(manager().GetTlsValue(2), asValue(2));
            EXPECT_TRUE(manager().DeleteTls(1)) << "a map, but no such key";
            logId(asValue(1));
        });
        manager().ModifyTls(2, asValue(2), &logId);
    });
    EXPECT_EQ(g_log, (std::vector<int>{1, 2}));
}

TEST_F(ThreadExit, ACallbackMayDeleteTheNextSlot) {
    onFreshThread([] {
        manager().ModifyTls(1, asValue(1), [](void* value) {
            manager().DeleteTls(2);
            logId(value);
        });
        manager().ModifyTls(2, asValue(2), &logId);
        manager().ModifyTls(3, asValue(3), &logId);
    });
    EXPECT_EQ(g_log, (std::vector<int>{2, 1, 3}));
}

TEST_F(ThreadExit, ACallbackMayChangeALaterSlot) {
    onFreshThread([] {
        manager().ModifyTls(1, asValue(1), [](void*) { manager().ModifyTls(2, asValue(20), &logId); });
        manager().ModifyTls(2, asValue(2), nullptr);
    });
    EXPECT_EQ(g_log, std::vector<int>{20});
}

TEST_F(ThreadExit, WhatACallbackStoresIsCleanedToo) {
    onFreshThread([] {
        manager().ModifyTls(5, asValue(5), [](void* value) {
            logId(value);
            for (const int key : {1, 5, 6, 7, 100}) { // before, the same, among, and after the others
                manager().ModifyTls(key, asValue(1000 + key), &logId);
            }
        });
        manager().ModifyTls(6, asValue(6), &logId);
        manager().ModifyTls(8, asValue(8), &logId);
    });
    EXPECT_EQ(g_log, (std::vector<int>{5, 1006, 1007, 8, 1001, 1005, 1100})) << "6 was replaced";
}

TEST_F(ThreadExit, ALoneCallbackMayStoreAgain) {
    onFreshThread(
        [] { manager().ModifyTls(1, asValue(1), [](void*) { manager().CreateTls(asValue(2), &logId); }); });
    EXPECT_EQ(g_log, std::vector<int>{2});
}

void storeAgain(void* value) {
    logId(value);
    manager().ModifyTls(1, asValue(asId(value) + 1), &storeAgain);
}

TEST_F(ThreadExit, ACallbackThatAlwaysStoresRunsAsOftenAsTheSystemWouldCall) {
    onFreshThread([] {
        manager().ModifyTls(1, asValue(0), &storeAgain);
        manager().ModifyTls(2, asValue(100), &logId);
    });
    EXPECT_EQ(std::count(g_log.begin(), g_log.end(), 100), 1);
    EXPECT_EQ(g_log.size(), 1U + PTHREAD_DESTRUCTOR_ITERATIONS);
}

void createAnother(void* value) {
    logId(value);
    manager().CreateTls(asValue(asId(value) + 1), &createAnother);
}

TEST_F(ThreadExit, ACallbackThatAlwaysDrawsAKeyRunsAsOftenAsTheSystemWouldCall) {
    onFreshThread([] { manager().CreateTls(asValue(0), &createAnother); });
    EXPECT_EQ(g_log.size(), std::size_t{PTHREAD_DESTRUCTOR_ITERATIONS});
}

// Another user of the system's keys, whose turn comes after the library's.
TEST_F(ThreadExit, WhatIsStoredWhenTheMapIsGoneIsCleanedToo) {
    manager().DeleteTls(manager().CreateTls(nullptr, nullptr)); // the library's key exists
    pthread_key_t later = 0;
    ASSERT_EQ(pthread_key_create(&later,
                                 [](void*) {
                                     logId(asValue(2));
                                     EXPECT_FALSE(brimtest::hasMap());
                                     EXPECT_EQ(manager().GetTls(1), nullptr);
                                     manager().ModifyTls(1, asValue(3), &logId);
                                 }),
              0);
    ASSERT_GT(later, GetThreadLocalStorageKey().key);
    onFreshThread([later] {
        manager().ModifyTls(1, asValue(1), &logId);
        pthread_setspecific(later, asValue(1));
    });
    EXPECT_EQ(g_log, (std::vector<int>{1, 2, 3}));
    pthread_key_delete(later);
}

// Objects of C++ that belong to the thread go before the system's keys.
struct StoresAtItsEnd {
    bool isUsed = false;
    ~StoresAtItsEnd() {
        logId(manager().GetTlsValue(1));
        manager().ModifyTls(2, asValue(2), &logId);
    }
};

TEST_F(ThreadExit, DestructorsOfTheThreadsObjectsMayReadAndStore) {
    onFreshThread([] {
        static thread_local StoresAtItsEnd s_object;
        s_object.isUsed = true;
        manager().ModifyTls(1, asValue(1), &logId);
    });
    EXPECT_EQ(g_log, (std::vector<int>{1, 1, 2}));
}

TEST_F(ThreadExit, AThreadThatStoredNothingEndsQuietly) {
    onFreshThread([] { EXPECT_EQ(manager().GetTlsValue(1), nullptr); });
}

TEST_F(ThreadExit, ManyThreadsCleanTheirOwnValues) {
    constexpr std::size_t kThreads = 16;
    constexpr int kValues = 40;
    const int first = manager().CreateTls(nullptr, nullptr); // the map is there
    const long before = brimtest::RecordingAllocator::liveBlocks();
    std::vector<int> keys;
    for (int i = 0; i < kValues; ++i) {
        keys.push_back(manager().CreateTls(nullptr, nullptr));
    }
    std::vector<std::vector<int>> logs(kThreads);
    std::vector<std::thread> threads;
    for (std::vector<int>& log : logs) {
        threads.emplace_back([&log, &keys] {
            for (const int key : keys) {
                manager().ModifyTls(key, new Value{&log, key}, [](void* value) {
                    Value::clean(value);
                    delete static_cast<Value*>(value);
                });
            }
            for (std::size_t i = 0; i < keys.size(); i += 2) {
                manager().DeleteTls(keys[i]);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::vector<int>& log : logs) {
        ASSERT_EQ(log.size(), keys.size());
        EXPECT_TRUE(std::is_sorted(log.begin() + kValues / 2, log.end()));
    }
    for (const int key : keys) {
        manager().DeleteTls(key);
    }
    EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), before);
    manager().DeleteTls(first);
}

} // namespace
