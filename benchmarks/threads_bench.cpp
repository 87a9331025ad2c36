// Thread-local storage and the performance timer against what the system and the language offer.
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include <QThreadStorage>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <pthread.h>
#include <thread>
#include <vector>
#include <x86intrin.h>

namespace {

constexpr std::size_t kMostKeys = 64;

std::size_t keysArgument(const benchmark::State& state) { return static_cast<std::size_t>(state.range(0)); }

// ---- Values -----------------------------------------------------------------------------------------------

// A peer draws a key with its constructor and gives it back with the destructor; value() is the hot path.

class Brim {
public:
    explicit Brim(void* value) : m_key(ThreadLocalStorageManager::Make()->CreateTls(value, nullptr)) {}
    ~Brim() { ThreadLocalStorageManager::Make()->DeleteTls(m_key); }
    void* value() const { return s_manager->GetTlsValue(m_key); }
    void store(void* value) const { s_manager->ModifyTls(m_key, value, nullptr); }

private:
    static inline ThreadLocalStorageManager* const s_manager = ThreadLocalStorageManager::Make();
    int m_key;
};

class PthreadKey {
public:
    explicit PthreadKey(void* value) {
        pthread_key_create(&m_key, nullptr);
        store(value);
    }
    ~PthreadKey() { pthread_key_delete(m_key); }
    void* value() const { return pthread_getspecific(m_key); }
    void store(void* value) const { pthread_setspecific(m_key, value); }

private:
    pthread_key_t m_key;
};

// An object of the program for each value: Qt has no keys. Of a pointer it would own the target.
class QThreadStorage {
public:
    explicit QThreadStorage(void* value) { store(value); }
    void* value() const { return m_storage.localData().value; }
    void store(void* value) const { m_storage.setLocalData({value}); }

private:
    struct Value {
        void* value;
    };
    mutable ::QThreadStorage<Value> m_storage;
};

// The cheapest there is: an element of an array of the program itself.
class NativeThreadLocal {
public:
    explicit NativeThreadLocal(void* value) : m_index(s_next++) { store(value); }
    ~NativeThreadLocal() { --s_next; }
    void* value() const { return s_values[m_index]; }
    void store(void* value) const { s_values[m_index] = value; }

private:
    static thread_local void* s_values[kMostKeys];
    static inline std::size_t s_next = 0;
    std::size_t m_index;
};
thread_local void* NativeThreadLocal::s_values[kMostKeys];

// An ordered map of the thread, behind a pointer of the program itself.
class StdMap {
public:
    explicit StdMap(void* value) : m_key(++s_lastKey) {
        if (s_map == nullptr) {
            s_map = new std::map<int, std::unique_ptr<void*>>;
        }
        s_map->emplace(m_key, std::make_unique<void*>(value));
    }
    ~StdMap() { s_map->erase(m_key); }
    void* value() const {
        const auto entry = s_map->find(m_key);
        return entry == s_map->end() ? nullptr : *entry->second;
    }
    void store(void* value) const {
        const auto entry = s_map->find(m_key);
        if (entry != s_map->end()) {
            *entry->second = value;
        }
    }

private:
    static thread_local std::map<int, std::unique_ptr<void*>>* s_map;
    static inline int s_lastKey = 0;
    int m_key;
};
thread_local std::map<int, std::unique_ptr<void*>>* StdMap::s_map = nullptr;

// Keys and the order in which they are asked for.
template <class Peer>
struct Keys {
    explicit Keys(std::size_t n) {
        peers.reserve(n);
        for (std::size_t i = 0; i < n; ++i) {
            peers.push_back(std::make_unique<Peer>(this));
        }
        for (std::size_t i = 0; i < kMostKeys; ++i) {
            order.push_back(peers[i * 37 % n].get());
        }
    }
    bool isRight() const {
        for (const auto& peer : peers) {
            if (peer->value() != this) {
                return false;
            }
        }
        return true;
    }

    std::vector<std::unique_ptr<Peer>> peers;
    std::vector<const Peer*> order;
};

template <class Peer>
void BM_ThreadValue(benchmark::State& state) {
    const Keys<Peer> keys(keysArgument(state));
    if (!keys.isRight()) {
        state.SkipWithError("wrong answer");
    }
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(keys.order[i++ % kMostKeys]->value());
    }
}
BENCHMARK_TEMPLATE(BM_ThreadValue, Brim)->Arg(1)->Arg(4)->Arg(16)->Arg(60);
BENCHMARK_TEMPLATE(BM_ThreadValue, PthreadKey)->Arg(1)->Arg(4)->Arg(16)->Arg(60);
BENCHMARK_TEMPLATE(BM_ThreadValue, QThreadStorage)->Arg(1)->Arg(4)->Arg(16)->Arg(60);
BENCHMARK_TEMPLATE(BM_ThreadValue, NativeThreadLocal)->Arg(1)->Arg(4)->Arg(16)->Arg(60);
BENCHMARK_TEMPLATE(BM_ThreadValue, StdMap)->Arg(1)->Arg(4)->Arg(16)->Arg(60);

template <class Peer>
void BM_ThreadValueStore(benchmark::State& state) {
    const Keys<Peer> keys(keysArgument(state));
    std::size_t i = 0;
    for (auto _ : state) {
        keys.order[i++ % kMostKeys]->store(&state);
        benchmark::ClobberMemory();
    }
}
BENCHMARK_TEMPLATE(BM_ThreadValueStore, Brim)->Arg(16);
BENCHMARK_TEMPLATE(BM_ThreadValueStore, PthreadKey)->Arg(16);
BENCHMARK_TEMPLATE(BM_ThreadValueStore, StdMap)->Arg(16);

// A slot more and a slot less, beside sixteen others.
template <class Peer>
void BM_ThreadValueCreateAndDelete(benchmark::State& state) {
    const Keys<Peer> keys(16);
    for (auto _ : state) {
        const Peer peer(&state);
        benchmark::DoNotOptimize(peer);
    }
}
BENCHMARK_TEMPLATE(BM_ThreadValueCreateAndDelete, Brim);
BENCHMARK_TEMPLATE(BM_ThreadValueCreateAndDelete, StdMap);

// ---- Readings ---------------------------------------------------------------------------------------------

// A peer keeps its last reading, as a snap does.

struct BrimSnap {
    void take() { snap.Set(); }
    PerfTimeSnap snap{false};
};
struct Rdtscp {
    void take() {
        unsigned int processor = 0;
        ticks = __rdtscp(&processor);
    }
    std::uint64_t ticks = 0;
};
struct SteadyClock {
    void take() { time = std::chrono::steady_clock::now(); }
    std::chrono::steady_clock::time_point time;
};
struct ClockGettime {
    void take() { ::clock_gettime(CLOCK_MONOTONIC, &time); }
    struct timespec time = {};
};

template <class Peer>
void takeReadings(benchmark::State& state) {
    Peer peer;
    for (auto _ : state) {
        peer.take();
        benchmark::DoNotOptimize(peer);
        benchmark::ClobberMemory();
    }
}

template <class Peer>
void BM_TakeReading(benchmark::State& state) {
    takeReadings<Peer>(state);
}
template <>
void BM_TakeReading<Brim>(benchmark::State& state) {
    takeReadings<BrimSnap>(state);
}
BENCHMARK_TEMPLATE(BM_TakeReading, Brim);
BENCHMARK_TEMPLATE(BM_TakeReading, Rdtscp);
BENCHMARK_TEMPLATE(BM_TakeReading, SteadyClock);
BENCHMARK_TEMPLATE(BM_TakeReading, ClockGettime);

} // namespace

int main(int argc, char** argv) {
    // Values of threads matter where there are several.
    std::thread([] {}).join();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
