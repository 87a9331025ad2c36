#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include "LoadTime.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPHeapOwner.h"

#include <climits>
#include <cstdlib>
#include <mutex>

namespace {

using Map = ThreadScopeKey2PtrThreadLocalStorageMap;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPThreadLocalStorage.cpp";
constexpr const char* kAllocationFile = "server/Utility/Generic/Portable/Src/SUPThreadLocalStorage.cpp";
constexpr int kSlotLine = 24;
constexpr int kMapLine = 25;
constexpr int kStoreLine = 26;
constexpr int kReservedKeyLine = 27;
constexpr int kResetLine = 28;
constexpr int kNotEmptyLine = 29;
constexpr int kDeleteKeyLine = 30;

constinit std::atomic<int> g_tlsKey{0};

// One pointer of static thread-local room: the initial-exec model saves a call on every look-up.
constinit thread_local Map* g_ptrThreadScopeStorageKey2PtrThreadLocalStorageMap
    __attribute__((tls_model("initial-exec"))) = nullptr;

// Making the system key, using it and deleting it exclude each other: a thread may make its first map while
// another one ends the process.
constinit std::mutex g_systemKeyMutex;
constinit bool g_managerIsGone = false;

void require(bool condition, int line, const wchar_t* text) {
    if (!condition) {
        BrimAssert::handleAssert(kThisFile, line, text);
        std::abort();
    }
}

// A callback may store whenever it runs, so a round ends with the last key that was there at its beginning,
// and the rounds are counted.
void destroySlots(Map& map) {
    for (int round = 0; round < PTHREAD_DESTRUCTOR_ITERATIONS && !map.empty(); ++round) {
        const int last = map.slots().rbegin()->first;
        Map::Slots::const_iterator next = map.slots().begin();
        while (next != map.slots().end() && next->first <= last) {
            const int key = next->first;
            delete map.unhook(key);
            next = map.slots().upper_bound(key);
        }
    }
    while (!map.empty()) {
        BrimThreadLocalStorage* const slot = map.unhook(map.slots().begin()->first);
        slot->SetCleanupCallBack(nullptr);
        delete slot;
    }
}

void endOfProcess() {
    if (GetThreadLocalStorageKey().key == 0) {
        return;
    }
    FreeThreadScopeStorageKey2PtrThreadLocalStorageMap();
    int st = 0;
    {
        const std::lock_guard<std::mutex> lock(g_systemKeyMutex);
        st = ::pthread_key_delete(GetThreadLocalStorageKey().key.exchange(0));
    }
    require(0 == st, kDeleteKeyLine, L"0 == st");
}

// Leaves 0 in `key` when the system gave no other. The caller holds the mutex.
int createSystemKey(pthread_key_t& key) {
    int st = ::pthread_key_create(&key, &ThreadLocalStorageManager::destructor);
    if (st == 0 && key == 0) { // 0 is reserved: held while another one is drawn
        st = ::pthread_key_create(&key, &ThreadLocalStorageManager::destructor);
        ::pthread_key_delete(0);
    }
    // A key that is made when the manager is gone must go before the library does, too.
    if (st == 0 && g_managerIsGone) {
        st = std::atexit(&endOfProcess);
    }
    return st;
}

// The calling thread's map, registered under the system key; both are made where they do not exist.
Map* registeredMap() {
    Map*& current = g_ptrThreadScopeStorageKey2PtrThreadLocalStorageMap;
    Heap<Map> fresh;
    if (current == nullptr) {
        fresh.reset(new (kAllocationFile, kMapLine) Map);
    }
    int st = 0;
    pthread_key_t key = 0;
    {
        const std::lock_guard<std::mutex> lock(g_systemKeyMutex);
        key = GetThreadLocalStorageKey().key;
        if (key == 0) {
            st = createSystemKey(key);
            GetThreadLocalStorageKey().key = st == 0 ? key : 0;
        }
        if (st == 0 && key != 0) {
            st = ::pthread_setspecific(key, current == nullptr ? fresh.get() : current);
        }
    }
    require(0 == st, kStoreLine, L"0 == st");
    require(key != 0, kReservedKeyLine, L"rThreadLocalPaddedStorageKey.key");
    if (current == nullptr) {
        current = fresh.release();
    }
    return current;
}

void addSlot(Map& map, int key, void* value, PtrCleanupCallBack cleanup) {
    // Without the callback until it is in the map: when memory runs out the value stays the caller's.
    Heap<BrimThreadLocalStorage> slot(new (kAllocationFile, kSlotLine)
                                          BrimThreadLocalStorage(key, value, nullptr));
    map.insert(key, slot.get());
    slot.release()->SetCleanupCallBack(cleanup);
}

} // namespace

// ---- The thread's map -------------------------------------------------------------------------------------

unsigned int GetCurrThreadID() noexcept { return static_cast<unsigned int>(::pthread_self()); }

ThreadLocalPaddedStorageKey& GetThreadLocalStorageKey() noexcept {
    constinit static ThreadLocalPaddedStorageKey key{};
    return key;
}

int InitializeThreadLocalStorageKey() noexcept {
    GetThreadLocalStorageKey();
    return 0;
}

Map* GetThreadScopeStorageKey2PtrThreadLocalStorageMap(bool create) {
    Map* const map = g_ptrThreadScopeStorageKey2PtrThreadLocalStorageMap;
    if (map != nullptr && GetThreadLocalStorageKey().key != 0) {
        return map;
    }
    return create ? registeredMap() : nullptr;
}

void ResetThreadScopeStorageKey2PtrThreadLocalStorageMap() {
    g_ptrThreadScopeStorageKey2PtrThreadLocalStorageMap = nullptr;
    int st = 0;
    {
        const std::lock_guard<std::mutex> lock(g_systemKeyMutex);
        const pthread_key_t key = GetThreadLocalStorageKey().key;
        st = key == 0 ? 0 : ::pthread_setspecific(key, nullptr);
    }
    require(0 == st, kResetLine, L"0 == st");
}

bool IsEmptyThreadScopeStorageKey2PtrThreadLocalStorageMap(const Map* map) {
    return map == nullptr || map->empty();
}

void FreeThreadScopeStorageKey2PtrThreadLocalStorageMap(Map* map) {
    if (map == nullptr || GetThreadLocalStorageKey().key == 0) {
        return;
    }
    destroySlots(*map);
    require(map->slots().empty(), kNotEmptyLine, L"pMap->empty()");
    if (map == g_ptrThreadScopeStorageKey2PtrThreadLocalStorageMap) {
        ResetThreadScopeStorageKey2PtrThreadLocalStorageMap();
    }
    delete map;
}

void FreeThreadScopeStorageKey2PtrThreadLocalStorageMap() {
    FreeThreadScopeStorageKey2PtrThreadLocalStorageMap(
        GetThreadScopeStorageKey2PtrThreadLocalStorageMap(false));
}

// ---- The manager ------------------------------------------------------------------------------------------

ThreadLocalStorageManager* ThreadLocalStorageManager::Make() {
    static ThreadLocalStorageManager manager;
    return &manager;
}

ThreadLocalStorageManager::~ThreadLocalStorageManager() {
    {
        const std::lock_guard<std::mutex> lock(g_systemKeyMutex);
        g_managerIsGone = true;
    }
    endOfProcess();
}

int ThreadLocalStorageManager::CreateTls(void* value, PtrCleanupCallBack cleanup) {
    Map* const map = GetThreadScopeStorageKey2PtrThreadLocalStorageMap(true);
    const int key = g_tlsKey.fetch_add(1) + 1;
    addSlot(*map, key, value, cleanup);
    return key;
}

bool ThreadLocalStorageManager::ModifyTls(int key, void* value, PtrCleanupCallBack cleanup) {
    Map* const map = GetThreadScopeStorageKey2PtrThreadLocalStorageMap(true);
    if (BrimThreadLocalStorage* const slot = map->find(key)) {
        slot->SetValue(value);
        slot->SetCleanupCallBack(cleanup);
    } else {
        addSlot(*map, key, value, cleanup);
    }
    return true;
}

bool ThreadLocalStorageManager::InsertTls(int key, BrimThreadLocalStorage* slot) {
    Map* const map = GetThreadScopeStorageKey2PtrThreadLocalStorageMap(true);
    if (slot != nullptr) {
        map->insert(key, slot);
    }
    return true;
}

BrimThreadLocalStorage* ThreadLocalStorageManager::GetTls(int key) noexcept {
    const Map* const map = GetThreadScopeStorageKey2PtrThreadLocalStorageMap(false);
    return map == nullptr ? nullptr : map->find(key);
}

void* ThreadLocalStorageManager::GetTlsValue(int key) noexcept {
    const BrimThreadLocalStorage* const slot = GetTls(key);
    return slot == nullptr ? nullptr : slot->Get();
}

bool ThreadLocalStorageManager::IsTlsExisted(int key) noexcept { return GetTls(key) != nullptr; }

bool ThreadLocalStorageManager::DeleteTls(int key) noexcept {
    Map* const map = GetThreadScopeStorageKey2PtrThreadLocalStorageMap(false);
    if (map == nullptr) {
        return false;
    }
    delete map->unhook(key);
    return true;
}

void ThreadLocalStorageManager::destructor(void* map) {
    FreeThreadScopeStorageKey2PtrThreadLocalStorageMap(static_cast<Map*>(map));
}

namespace sup::loadtime {

void initializeThreadLocalStorage() {
    InitializeThreadLocalStorageKey();
    ThreadLocalStorageManager::Make();
}

} // namespace sup::loadtime
