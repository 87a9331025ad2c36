// ThreadLocalStorageManager: its operations within one thread, and what threads share.
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include "child_process.h"
#include "thread_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <new>
#include <pthread.h>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using brimtest::manager;
using brimtest::onFreshThread;
using brimtest::Value;

namespace {

static_assert(std::is_base_of_v<memalloc::MemAllocNewdel, BrimThreadLocalStorage>);
static_assert(sizeof(BrimThreadLocalStorage) == 32);
static_assert(!std::is_copy_constructible_v<BrimThreadLocalStorage>);
static_assert(!std::is_copy_constructible_v<ThreadLocalStorageManager>);

// Keys that share a place among the shortcuts, and the ends of the range.
constexpr int kKeys[] = {INT_MIN, -65, -64, -1, 0, 1, 2, 62, 63, 64, 65, 1000, INT_MAX};

// ---- the slot

TEST(BrimThreadLocalStorage, RemembersWhatItIsMadeOf) {
    int value = 0;
    const BrimThreadLocalStorage slot(17, &value, nullptr);
    EXPECT_EQ(slot.Get(), &value);
    EXPECT_EQ(slot.GetThreadScopeKey(), 17);
    EXPECT_EQ(slot.GetTid(), static_cast<unsigned int>(pthread_self())) << "the low 32 bits";
    EXPECT_EQ(slot.GetTid(), GetCurrThreadID());
}

TEST(BrimThreadLocalStorage, RemembersTheThreadThatMadeIt) {
    BrimThreadLocalStorage* slot = nullptr;
    unsigned int maker = 0;
    std::thread([&] {
        slot = new BrimThreadLocalStorage(1, nullptr, nullptr);
        maker = GetCurrThreadID();
    }).join();
    EXPECT_EQ(slot->GetTid(), maker);
    delete slot;
}

TEST(BrimThreadLocalStorage, HandsItsLastValueToItsLastCallback) {
    std::vector<int> log;
    Value first{&log, 1};
    Value second{&log, 2};
    {
        BrimThreadLocalStorage slot(1, &first, [](void*) { FAIL() << "the callback was replaced"; });
        slot.SetValue(&second);
        slot.SetCleanupCallBack(&Value::clean);
        EXPECT_EQ(slot.Get(), &second);
        EXPECT_TRUE(log.empty());
    }
    EXPECT_EQ(log, std::vector<int>{2});
}

TEST(BrimThreadLocalStorage, NeedsNoCallback) {
    int value = 0;
    const BrimThreadLocalStorage slot(1, &value, nullptr);
}

TEST(BrimThreadLocalStorage, CallbackRunsForANullValueToo) {
    static int s_calls;
    s_calls = 0;
    {
        const BrimThreadLocalStorage slot(1, nullptr, [](void* value) { s_calls += value == nullptr; });
    }
    EXPECT_EQ(s_calls, 1);
}

// ---- keys

const brimtest::FreshProcess kFirstKeys("FirstKeys", [] {
    std::printf("%d ", manager().CreateTls(nullptr, nullptr));
    std::thread([] { std::printf("%d ", manager().CreateTls(nullptr, nullptr)); }).join();
    manager().DeleteTls(1);
    std::printf("%d", manager().CreateTls(nullptr, nullptr));
});

TEST(CreateTls, CountsKeysFromOneInAllThreadsAndReusesNone) { EXPECT_EQ(kFirstKeys.run().output, "1 2 3"); }

TEST(CreateTls, GivesThreadsThatRaceDistinctKeys) {
    constexpr std::size_t kThreads = 8;
    constexpr std::size_t kKeysEach = 500;
    const int before = manager().CreateTls(nullptr, nullptr);
    std::vector<std::vector<int>> keys(kThreads);
    std::atomic<std::size_t> ready{0};
    std::vector<std::thread> threads;
    for (std::vector<int>& mine : keys) {
        threads.emplace_back([&mine, &ready] {
            ++ready;
            while (ready != kThreads) {
                std::this_thread::yield();
            }
            for (std::size_t i = 0; i < kKeysEach; ++i) {
                mine.push_back(manager().CreateTls(&mine, nullptr));
            }
            for (const int key : mine) {
                EXPECT_EQ(manager().GetTlsValue(key), &mine);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<int> all;
    for (const std::vector<int>& mine : keys) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(all.size(), kThreads * kKeysEach);
    EXPECT_EQ(*all.begin(), before + 1);
    EXPECT_EQ(*all.rbegin(), before + static_cast<int>(kThreads * kKeysEach));
    manager().DeleteTls(before);
}

// ---- one thread's slots

TEST(ThreadLocalStorageManager, IsOne) {
    EXPECT_EQ(ThreadLocalStorageManager::Make(), ThreadLocalStorageManager::Make());
    std::thread([&main = manager()] { EXPECT_EQ(ThreadLocalStorageManager::Make(), &main); }).join();
}

TEST(ThreadLocalStorageManager, EachThreadHasItsOwnValueOfAKey) {
    int mine = 0;
    const int key = manager().CreateTls(&mine, nullptr);
    onFreshThread([&] {
        int other = 0;
        EXPECT_EQ(manager().GetTlsValue(key), nullptr);
        EXPECT_TRUE(manager().ModifyTls(key, &other, nullptr));
        EXPECT_EQ(manager().GetTlsValue(key), &other);
    });
    EXPECT_EQ(manager().GetTlsValue(key), &mine);
    EXPECT_TRUE(manager().DeleteTls(key));
}

TEST(ThreadLocalStorageManager, LookUpsInAThreadThatStoredNothingMakeNoMap) {
    const int key = manager().CreateTls(nullptr, nullptr);
    onFreshThread([key] {
        const brimtest::AllocationLog log;
        EXPECT_EQ(manager().GetTlsValue(key), nullptr);
        EXPECT_EQ(manager().GetTls(key), nullptr);
        EXPECT_FALSE(manager().IsTlsExisted(key));
        EXPECT_FALSE(manager().DeleteTls(key)) << "no map";
        EXPECT_FALSE(brimtest::hasMap());
        EXPECT_TRUE(log.empty());
    });
    manager().DeleteTls(key);
}

TEST(ThreadLocalStorageManager, FindsTheSlotOfAKey) {
    onFreshThread([] {
        int value = 0;
        const int key = manager().CreateTls(&value, nullptr);
        const BrimThreadLocalStorage* const slot = manager().GetTls(key);
        ASSERT_NE(slot, nullptr);
        EXPECT_EQ(slot->Get(), &value);
        EXPECT_EQ(slot->GetThreadScopeKey(), key);
        EXPECT_EQ(slot->GetTid(), GetCurrThreadID());
        EXPECT_TRUE(manager().IsTlsExisted(key));
        EXPECT_FALSE(manager().IsTlsExisted(key + 1));
        EXPECT_EQ(manager().GetTls(key + 1), nullptr);
        EXPECT_EQ(manager().GetTlsValue(key + 1), nullptr);
    });
}

TEST(ThreadLocalStorageManager, ANullValueIsAValue) {
    onFreshThread([] {
        const int key = manager().CreateTls(nullptr, nullptr);
        EXPECT_TRUE(manager().IsTlsExisted(key));
        EXPECT_EQ(manager().GetTlsValue(key), nullptr);
    });
}

TEST(ThreadLocalStorageManager, LookUpsAllocateNothing) {
    onFreshThread([] {
        for (const int key : kKeys) {
            manager().ModifyTls(key, nullptr, nullptr);
        }
        const brimtest::AllocationLog log;
        for (const int key : kKeys) {
            EXPECT_TRUE(manager().IsTlsExisted(key));
            EXPECT_TRUE(manager().ModifyTls(key, nullptr, nullptr)) << "of a slot that is there";
        }
        EXPECT_TRUE(log.empty());
    });
}

TEST(ModifyTls, TakesAnyKey) {
    onFreshThread([] {
        std::vector<int> values(std::size(kKeys));
        for (std::size_t i = 0; i < values.size(); ++i) {
            EXPECT_TRUE(manager().ModifyTls(kKeys[i], &values[i], nullptr));
        }
        for (std::size_t i = 0; i < values.size(); ++i) {
            EXPECT_EQ(manager().GetTlsValue(kKeys[i]), &values[i]) << kKeys[i];
            EXPECT_EQ(manager().GetTls(kKeys[i])->GetThreadScopeKey(), kKeys[i]);
        }
    });
}

TEST(ModifyTls, ReplacesValueAndCallbackWithoutCallingTheOldOne) {
    std::vector<int> log;
    Value first{&log, 1};
    Value second{&log, 2};
    onFreshThread([&] {
        const int key = manager().CreateTls(&first, [](void*) { FAIL() << "the callback was replaced"; });
        const BrimThreadLocalStorage* const slot = manager().GetTls(key);
        EXPECT_TRUE(manager().ModifyTls(key, &second, &Value::clean));
        EXPECT_EQ(manager().GetTls(key), slot) << "the same slot";
        EXPECT_EQ(manager().GetTlsValue(key), &second);
        EXPECT_TRUE(log.empty());
        EXPECT_TRUE(manager().DeleteTls(key));
        EXPECT_EQ(log, std::vector<int>{2});
    });
    EXPECT_EQ(log, std::vector<int>{2}) << "not again at the thread's end";
}

TEST(ModifyTls, ANullCallbackReplacesTooAndLeavesTheValueAlone) {
    std::vector<int> log;
    Value value{&log, 1};
    onFreshThread([&] {
        manager().ModifyTls(5, &value, &Value::clean);
        manager().ModifyTls(5, &value, nullptr);
    });
    EXPECT_TRUE(log.empty());
}

TEST(DeleteTls, CallsTheCallbackOnceAndForgetsTheSlot) {
    std::vector<int> log;
    onFreshThread([&] {
        for (const int key : kKeys) {
            log.clear();
            Value value{&log, key};
            manager().ModifyTls(key, &value, &Value::clean);
            const long blocks = brimtest::RecordingAllocator::liveBlocks();
            EXPECT_TRUE(manager().DeleteTls(key));
            EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), blocks - 2) << "the slot and its entry";
            EXPECT_EQ(log, std::vector<int>{key});
            EXPECT_FALSE(manager().IsTlsExisted(key));
            EXPECT_EQ(manager().GetTlsValue(key), nullptr);
            EXPECT_TRUE(manager().DeleteTls(key)) << "the map is there, the key is not";
        }
        log.clear();
    });
    EXPECT_TRUE(log.empty()) << "nothing is left for the thread's end";
}

TEST(DeleteTls, LeavesOtherThreadsAlone) {
    std::vector<int> log;
    Value value{&log, 1};
    const int key = manager().CreateTls(&value, &Value::clean);
    onFreshThread([key] {
        manager().ModifyTls(key, nullptr, nullptr);
        manager().DeleteTls(key);
    });
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(manager().GetTlsValue(key), &value);
    manager().DeleteTls(key);
    EXPECT_EQ(log, std::vector<int>{1});
}

TEST(DeleteTls, SlotIsGoneWhenItsCallbackRuns) {
    static bool s_wasGone;
    s_wasGone = false;
    onFreshThread([] {
        manager().ModifyTls(7, nullptr, [](void*) { s_wasGone = !manager().IsTlsExisted(7); });
        manager().DeleteTls(7);
    });
    EXPECT_TRUE(s_wasGone);
}

TEST(DeleteTls, CallbackMayStoreUnderTheSameKey) {
    static int s_value;
    onFreshThread([] {
        manager().ModifyTls(7, nullptr, [](void*) { manager().ModifyTls(7, &s_value, nullptr); });
        EXPECT_TRUE(manager().DeleteTls(7));
        EXPECT_EQ(manager().GetTlsValue(7), &s_value);
    });
}

TEST(InsertTls, OwnsTheSlot) {
    std::vector<int> log;
    Value value{&log, 3};
    onFreshThread([&] {
        auto* const slot = new BrimThreadLocalStorage(9, &value, &Value::clean);
        EXPECT_TRUE(manager().InsertTls(9, slot)) << "and makes the map";
        EXPECT_EQ(manager().GetTls(9), slot);
        EXPECT_TRUE(log.empty());
    });
    EXPECT_EQ(log, std::vector<int>{3});
}

TEST(InsertTls, GoesByItsArgumentNotByTheSlotsKey) {
    onFreshThread([] {
        auto* const slot = new BrimThreadLocalStorage(9, nullptr, nullptr);
        EXPECT_TRUE(manager().InsertTls(100, slot));
        EXPECT_EQ(manager().GetTls(100), slot);
        EXPECT_EQ(manager().GetTls(9), nullptr);
        EXPECT_EQ(slot->GetThreadScopeKey(), 9);
    });
}

TEST(InsertTls, LeavesAKeyThatIsPresentAndTheNewSlotAlone) {
    std::vector<int> log;
    Value first{&log, 1};
    Value second{&log, 2};
    onFreshThread([&] {
        for (const int key : {1, 1000}) {
            log.clear();
            manager().ModifyTls(key, &first, nullptr);
            auto* const slot = new BrimThreadLocalStorage(key, &second, &Value::clean);
            EXPECT_TRUE(manager().InsertTls(key, slot));
            EXPECT_EQ(manager().GetTlsValue(key), &first);
            EXPECT_TRUE(log.empty());
            delete slot; // still ours
            EXPECT_EQ(log, std::vector<int>{2});
        }
    });
}

TEST(InsertTls, IgnoresNull) {
    onFreshThread([] {
        EXPECT_TRUE(manager().InsertTls(1, nullptr));
        EXPECT_FALSE(manager().IsTlsExisted(1));
        EXPECT_TRUE(manager().DeleteTls(1));
        EXPECT_TRUE(manager().ModifyTls(1, nullptr, nullptr));
        EXPECT_TRUE(manager().IsTlsExisted(1));
    });
}

// ---- memory

TEST(ThreadLocalStorageManager, AllocatesThroughTheGateway) {
    onFreshThread([] {
        const brimtest::AllocationLog log;
        manager().ModifyTls(1, nullptr, nullptr);
        const std::vector<brimtest::AllocationRequest> requests = log.requests();
        ASSERT_EQ(requests.size(), 3U) << "the map, a slot, an entry of the map";
        EXPECT_EQ(requests[0].size, sizeof(ThreadScopeKey2PtrThreadLocalStorageMap) + 8);
        EXPECT_EQ(requests[1].size, sizeof(BrimThreadLocalStorage) + 8);
        EXPECT_STREQ(requests[0].file, "server/Utility/Generic/Portable/Src/SUPThreadLocalStorage.cpp");
        EXPECT_STREQ(requests[1].file, "server/Utility/Generic/Portable/Src/SUPThreadLocalStorage.cpp");
    });
}

// Refuses each request of `store` in turn, until it gets through.
template <class Store>
void expectNothingIsStoredWithoutMemory(Store store) {
    std::vector<int> log;
    Value value{&log, 1};
    int refused = 0;
    onFreshThread([&] {
        for (;; ++refused) {
            const brimtest::AllocationRefusal refusal(refused + 1);
            try {
                store(&value);
                break;
            } catch (const std::bad_alloc&) {
                EXPECT_TRUE(refusal.happened());
                EXPECT_FALSE(manager().IsTlsExisted(5));
                EXPECT_TRUE(log.empty()) << "the value stays the caller's";
            }
            FreeThreadScopeStorageKey2PtrThreadLocalStorageMap();
        }
        EXPECT_TRUE(log.empty());
    });
    EXPECT_EQ(refused, 3) << "the map, the slot, the entry of the map";
    EXPECT_EQ(log, std::vector<int>{1}) << "of the store that got through";
}

TEST(ModifyTls, ThrowsBadAllocAndStoresNothingWithoutMemory) {
    expectNothingIsStoredWithoutMemory([](Value* value) { manager().ModifyTls(5, value, &Value::clean); });
}

TEST(CreateTls, ThrowsBadAllocAndStoresNothingWithoutMemory) {
    expectNothingIsStoredWithoutMemory([](Value* value) { manager().CreateTls(value, &Value::clean); });
}

TEST(InsertTls, ThrowsBadAllocAndLeavesTheSlotWithTheCaller) {
    std::vector<int> log;
    Value value{&log, 1};
    onFreshThread([&] {
        auto* const slot = new BrimThreadLocalStorage(5, &value, &Value::clean);
        for (long n = 1; n <= 2; ++n) {
            const brimtest::AllocationRefusal refusal(1);
            EXPECT_THROW(manager().InsertTls(5, slot), std::bad_alloc) << "the map, then the entry";
            if (n == 1) {
                manager().InsertTls(6, nullptr); // makes the map
            }
        }
        EXPECT_FALSE(manager().IsTlsExisted(5));
        delete slot;
        EXPECT_EQ(log, std::vector<int>{1});
    });
}

} // namespace
