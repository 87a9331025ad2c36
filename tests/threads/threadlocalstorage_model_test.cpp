// Random operations, in several threads at once, against an ordered map of the same values.
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include "thread_test_support.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <thread>
#include <vector>

using brimtest::manager;
using brimtest::Value;

namespace {

struct ModelSlot {
    Value* value;
    bool isCleaned; // with a callback
};

// One thread's part. Values live in `m_values`; `m_log` shows what was cleaned, `m_expected` what should have
// been.
class Player {
public:
    Player(unsigned int seed, const std::vector<int>& keys) : m_random(seed), m_keys(keys) {}

    void play() {
        for (int step = 0; step < 2000 && !testing::Test::HasFailure(); ++step) {
            const int key = m_keys[m_random() % m_keys.size()];
            switch (m_random() % 6) {
            case 0:
                create();
                break;
            case 1:
                modify(key);
                break;
            case 2:
                insert(key);
                break;
            case 3:
                erase(key);
                break;
            default:
                check(key);
                break;
            }
        }
        for (const int key : m_keys) {
            check(key);
        }
        for (const auto& [key, slot] : m_model) { // in the order of the thread's end
            expectCleaned(slot);
        }
    }

    void compare() const { EXPECT_EQ(m_log, m_expected); }

private:
    Value* newValue() {
        m_values.push_back(std::make_unique<Value>(Value{&m_log, static_cast<int>(m_values.size())}));
        return m_values.back().get();
    }
    bool flip() { return m_random() % 2 == 0; }
    static PtrCleanupCallBack callback(bool isCleaned) { return isCleaned ? &Value::clean : nullptr; }
    void expectCleaned(const ModelSlot& slot) {
        if (slot.isCleaned) {
            m_expected.push_back(slot.value->id);
        }
    }

    void create() {
        if (m_keys.size() >= 100) {
            return;
        }
        const ModelSlot slot{newValue(), flip()};
        const int key = manager().CreateTls(slot.value, callback(slot.isCleaned));
        EXPECT_TRUE(m_model.emplace(key, slot).second) << key << " was drawn before";
        m_keys.push_back(key);
    }
    void modify(int key) {
        const ModelSlot slot{newValue(), flip()};
        EXPECT_TRUE(manager().ModifyTls(key, slot.value, callback(slot.isCleaned)));
        m_model.insert_or_assign(key, slot);
    }
    void insert(int key) {
        const ModelSlot slot{newValue(), flip()};
        auto* const fresh = new BrimThreadLocalStorage(key, slot.value, callback(slot.isCleaned));
        EXPECT_TRUE(manager().InsertTls(key, fresh));
        if (!m_model.emplace(key, slot).second) {
            delete fresh;
            expectCleaned(slot);
        }
    }
    void erase(int key) {
        if (m_model.count(key) != 0) {
            expectCleaned(m_model.at(key));
            m_model.erase(key);
        }
        EXPECT_EQ(manager().DeleteTls(key), brimtest::hasMap());
    }
    void check(int key) {
        const auto entry = m_model.find(key);
        const bool isThere = entry != m_model.end();
        EXPECT_EQ(manager().IsTlsExisted(key), isThere) << key;
        EXPECT_EQ(manager().GetTlsValue(key), isThere ? entry->second.value : nullptr) << key;
        EXPECT_EQ(manager().GetTls(key) != nullptr, isThere) << key;
        EXPECT_EQ(m_log, m_expected);
    }

    std::mt19937 m_random;
    std::vector<int> m_keys;
    std::map<int, ModelSlot> m_model;
    std::vector<std::unique_ptr<Value>> m_values;
    std::vector<int> m_log;
    std::vector<int> m_expected;
};

TEST(ThreadLocalStorageModel, ThreadsAgreeWithOrderedMaps) {
    // So that no key that is drawn later is one of those below.
    while (manager().CreateTls(nullptr, nullptr) < 66) {
    }
    FreeThreadScopeStorageKey2PtrThreadLocalStorageMap();
    const long before = brimtest::RecordingAllocator::liveBlocks();
    // Keys that all threads use; some share a place among the shortcuts.
    const std::vector<int> keys{-1000000, -1, 0, 1, 2, 3, 30, 61, 62, 63, 64, 65, 66, 1 << 30};
    for (unsigned int seed = 100; seed < 140; seed += 4) {
        SCOPED_TRACE(testing::Message() << "seeds from " << seed);
        std::vector<Player> players;
        for (unsigned int i = 0; i < 4; ++i) {
            players.emplace_back(seed + i, keys);
        }
        std::vector<std::thread> threads;
        for (Player& player : players) {
            threads.emplace_back([&player] { player.play(); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const Player& player : players) {
            player.compare();
        }
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), before);
}

} // namespace
