// The thread's map and the functions around it.
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include "thread_test_support.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <map>
#include <random>
#include <type_traits>
#include <vector>

using brimtest::manager;
using brimtest::onFreshThread;
using brimtest::Value;
using Map = ThreadScopeKey2PtrThreadLocalStorageMap;

namespace {

static_assert(std::has_virtual_destructor_v<Map>);
static_assert(std::is_base_of_v<memalloc::MemAllocNewdel, Map>);
static_assert(offsetof(ThreadLocalPaddedStorageKey, prepad) == 0);
static_assert(offsetof(ThreadLocalPaddedStorageKey, key) == 128);
static_assert(offsetof(ThreadLocalPaddedStorageKey, postpad) == 132);
static_assert(sizeof(ThreadLocalPaddedStorageKey) == 260);

// Some share a place among the shortcuts; the ends of the range.
constexpr int kKeys[] = {INT_MIN, -64, -1, 0, 1, 2, 31, 32, 62, 63, 64, 65, 127, 128, 4096, INT_MAX};

TEST(ThreadLocalMap, AgreesWithAnOrderedMap) {
    for (unsigned int seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        std::vector<BrimThreadLocalStorage*> slots;
        Map map;
        std::map<int, BrimThreadLocalStorage*> model;
        for (int step = 0; step < 500; ++step) {
            const int key = kKeys[random() % std::size(kKeys)];
            if (random() % 2 == 0) {
                slots.push_back(new BrimThreadLocalStorage(key, nullptr, nullptr));
                ASSERT_EQ(map.insert(key, slots.back()), model.emplace(key, slots.back()).second);
            } else {
                const auto entry = model.find(key);
                ASSERT_EQ(map.unhook(key), entry == model.end() ? nullptr : entry->second);
                model.erase(key);
            }
            for (const int each : kKeys) {
                const auto entry = model.find(each);
                ASSERT_EQ(map.find(each), entry == model.end() ? nullptr : entry->second) << each;
            }
            ASSERT_EQ(map.size(), model.size());
            ASSERT_EQ(map.empty(), model.empty());
            ASSERT_TRUE(std::equal(model.begin(), model.end(), map.slots().begin(), map.slots().end()));
        }
        for (BrimThreadLocalStorage* const slot : slots) {
            delete slot;
        }
    }
}

TEST(ThreadLocalMap, DestructorLeavesTheSlotsAlone) {
    std::vector<int> log;
    Value value{&log, 1};
    BrimThreadLocalStorage slot(1, &value, &Value::clean);
    {
        Map map;
        map.insert(1, &slot);
    }
    EXPECT_TRUE(log.empty());
}

TEST(InitializeThreadLocalStorageKey, IsAlwaysZero) {
    EXPECT_EQ(InitializeThreadLocalStorageKey(), 0);
    EXPECT_EQ(InitializeThreadLocalStorageKey(), 0);
}

TEST(GetThreadLocalStorageKey, IsOneObjectForAllThreads) {
    const ThreadLocalPaddedStorageKey* const mine = &GetThreadLocalStorageKey();
    onFreshThread([mine] { EXPECT_EQ(&GetThreadLocalStorageKey(), mine); });
}

TEST(IsEmptyThreadLocalMap, IsTrueForNullAndForNoSlots) {
    EXPECT_TRUE(IsEmptyThreadScopeStorageKey2PtrThreadLocalStorageMap(nullptr));
    Map map;
    EXPECT_TRUE(IsEmptyThreadScopeStorageKey2PtrThreadLocalStorageMap(&map));
    BrimThreadLocalStorage slot(1, nullptr, nullptr);
    map.insert(1, &slot);
    EXPECT_FALSE(IsEmptyThreadScopeStorageKey2PtrThreadLocalStorageMap(&map));
    map.unhook(1);
    EXPECT_TRUE(IsEmptyThreadScopeStorageKey2PtrThreadLocalStorageMap(&map));
}

TEST(GetThreadLocalMap, MakesTheMapOnceAndOnlyWhenAsked) {
    onFreshThread([] {
        EXPECT_EQ(GetThreadScopeStorageKey2PtrThreadLocalStorageMap(false), nullptr);
        Map* const map = GetThreadScopeStorageKey2PtrThreadLocalStorageMap(true);
        ASSERT_NE(map, nullptr);
        EXPECT_TRUE(map->empty());
        EXPECT_EQ(GetThreadScopeStorageKey2PtrThreadLocalStorageMap(true), map);
        EXPECT_EQ(GetThreadScopeStorageKey2PtrThreadLocalStorageMap(false), map);
        EXPECT_EQ(pthread_getspecific(GetThreadLocalStorageKey().key), map) << "under the system key too";
        onFreshThread([map] { EXPECT_NE(GetThreadScopeStorageKey2PtrThreadLocalStorageMap(true), map); });
    });
}

TEST(ResetThreadLocalMap, GivesTheMapToTheCaller) {
    std::vector<int> log;
    Value value{&log, 1};
    onFreshThread([&] {
        manager().ModifyTls(1, &value, &Value::clean);
        Map* const map = GetThreadScopeStorageKey2PtrThreadLocalStorageMap(false);
        ResetThreadScopeStorageKey2PtrThreadLocalStorageMap();
        EXPECT_FALSE(brimtest::hasMap());
        EXPECT_EQ(pthread_getspecific(GetThreadLocalStorageKey().key), nullptr);
        EXPECT_FALSE(manager().IsTlsExisted(1));
        EXPECT_EQ(map->find(1)->Get(), &value);
        EXPECT_TRUE(log.empty());
        manager().ModifyTls(1, nullptr, nullptr);
        FreeThreadScopeStorageKey2PtrThreadLocalStorageMap(map);
        EXPECT_EQ(log, std::vector<int>{1});
        EXPECT_TRUE(manager().IsTlsExisted(1)) << "the thread's new map";
    });
    EXPECT_EQ(log, std::vector<int>{1});
}

TEST(ResetThreadLocalMap, DoesNothingWithoutAMap) {
    onFreshThread([] { ResetThreadScopeStorageKey2PtrThreadLocalStorageMap(); });
}

TEST(FreeThreadLocalMap, CleansTheThreadBeforeItsEnd) {
    for (const bool isByArgument : {false, true}) {
        SCOPED_TRACE(isByArgument);
        std::vector<int> log;
        std::vector<Value> values{{&log, 0}, {&log, 1}, {&log, 2}};
        onFreshThread([&] {
            for (const int key : {1, 0, 2}) {
                manager().ModifyTls(key, &values[static_cast<std::size_t>(key)], &Value::clean);
            }
            if (isByArgument) {
                FreeThreadScopeStorageKey2PtrThreadLocalStorageMap(
                    GetThreadScopeStorageKey2PtrThreadLocalStorageMap(false));
            } else {
                FreeThreadScopeStorageKey2PtrThreadLocalStorageMap();
            }
            EXPECT_EQ(log, (std::vector<int>{0, 1, 2}));
            EXPECT_FALSE(brimtest::hasMap());
            EXPECT_FALSE(manager().DeleteTls(1));
            log.clear();
        });
        EXPECT_TRUE(log.empty()) << "nothing is left for the thread's end";
    }
}

TEST(FreeThreadLocalMap, DoesNothingForNull) {
    onFreshThread([] {
        FreeThreadScopeStorageKey2PtrThreadLocalStorageMap(nullptr);
        FreeThreadScopeStorageKey2PtrThreadLocalStorageMap();
        ThreadLocalStorageManager::destructor(nullptr);
        EXPECT_FALSE(brimtest::hasMap());
    });
}

} // namespace
