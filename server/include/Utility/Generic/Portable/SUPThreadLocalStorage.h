// Thread-local storage under integer keys. A component draws a key once; each thread then stores a pointer of
// its own under it, with a callback that runs when the value is deleted or the thread ends.
//
// Each thread owns an ordered map from key to slot, made when it first stores something. One system key
// (pthread_key_create(3)) serves the whole library: it makes the system call back at the end of a thread.
//
// Every operation acts on the calling thread's map, so none needs a lock; any thread may call any of them.
//
// Cleanup callbacks run on the thread that stored the value. Each runs with its slot already taken out of the
// map; the others can still be read, and a callback may store, change and delete. It must not throw, and must
// not free the map. When a thread ends the slots go in ascending order of their keys. What the callbacks
// store meanwhile is cleaned too, in further rounds where its key was passed already; after as many rounds as
// the system grants its own keys (PTHREAD_DESTRUCTOR_ITERATIONS) the rest is freed without callbacks.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/memallocnewdel.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <pthread.h>
#include <utility>

/// Receives the value of a slot that goes. Null where nothing is to be done.
using PtrCleanupCallBack = void (*)(void* value);

/// The low 32 bits of pthread_self(3).
BRIMPORTABLE_API unsigned int GetCurrThreadID() noexcept;

/// One value of one thread. The value stays the caller's; the destructor hands it to the callback.
class BRIMPORTABLE_API BrimThreadLocalStorage : public memalloc::MemAllocNewdel {
public:
    /// A slot of the calling thread.
    BrimThreadLocalStorage(int key, void* value, PtrCleanupCallBack cleanup) noexcept
        : value_(value), threadScopeKey_(key), ptrCleanupCallBack_(cleanup), tid_(GetCurrThreadID()) {}
    ~BrimThreadLocalStorage() {
        if (ptrCleanupCallBack_ != nullptr) {
            ptrCleanupCallBack_(value_);
        }
    }
    BrimThreadLocalStorage(const BrimThreadLocalStorage&) = delete;
    BrimThreadLocalStorage& operator=(const BrimThreadLocalStorage&) = delete;

    /// The value, and the callback that the destructor hands it to.
    void* Get() const noexcept { return value_; }
    void SetValue(void* value) noexcept { value_ = value; }
    void SetCleanupCallBack(PtrCleanupCallBack cleanup) noexcept { ptrCleanupCallBack_ = cleanup; }
    /// The thread that made the slot, as GetCurrThreadID() names it.
    unsigned int GetTid() const noexcept { return tid_; }
    /// The key.
    int GetThreadScopeKey() const noexcept { return threadScopeKey_; }

private:
    void* value_;
    int threadScopeKey_;
    PtrCleanupCallBack ptrCleanupCallBack_;
    unsigned int tid_;
};

/// The slots of one thread in ascending order of their keys. Its destructor leaves the slots alone:
/// FreeThreadScopeStorageKey2PtrThreadLocalStorageMap() destroys them first.
class BRIMPORTABLE_API ThreadScopeKey2PtrThreadLocalStorageMap : public memalloc::MemAllocNewdel {
public:
    /// Key to slot.
    using Slots = std::map<int, BrimThreadLocalStorage*, std::less<int>,
                           BrimStlAllocator<std::pair<const int, BrimThreadLocalStorage*>>>;

    ThreadScopeKey2PtrThreadLocalStorageMap() = default;
    virtual ~ThreadScopeKey2PtrThreadLocalStorageMap() = default;
    ThreadScopeKey2PtrThreadLocalStorageMap(const ThreadScopeKey2PtrThreadLocalStorageMap&) = delete;
    ThreadScopeKey2PtrThreadLocalStorageMap&
    operator=(const ThreadScopeKey2PtrThreadLocalStorageMap&) = delete;

    /// The slots, in the order of their keys, and their number.
    bool empty() const noexcept { return m_slots.empty(); }
    std::size_t size() const noexcept { return m_slots.size(); }
    const Slots& slots() const noexcept { return m_slots; }

    /// The slot of `key`, or null.
    BrimThreadLocalStorage* find(int key) const noexcept {
        const Shortcut& shortcut = m_shortcuts[placeOf(key)];
        if (shortcut.slot != nullptr && shortcut.key == key) {
            return shortcut.slot;
        }
        const Slots::const_iterator entry = m_slots.find(key);
        return entry == m_slots.end() ? nullptr : entry->second;
    }
    /// False, and nothing changes, when the key is present already. `slot` is not null. May throw
    /// std::bad_alloc.
    bool insert(int key, BrimThreadLocalStorage* slot) {
        const bool isNew = m_slots.emplace(key, slot).second;
        if (isNew) {
            m_shortcuts[placeOf(key)] = {key, slot};
        }
        return isNew;
    }
    /// Takes the slot of `key` out of the map and gives it to the caller; null when there is none.
    BrimThreadLocalStorage* unhook(int key) noexcept {
        BrimThreadLocalStorage* const slot = find(key);
        if (slot != nullptr) {
            m_slots.erase(key);
            if (m_shortcuts[placeOf(key)].key == key) {
                m_shortcuts[placeOf(key)] = {};
            }
        }
        return slot;
    }

private:
    // Keys are counted, so the few dozen that a thread uses seldom share a place here: most are found without
    // a search. Of keys that share one, the last that was inserted has it.
    struct Shortcut {
        int key;
        BrimThreadLocalStorage* slot;
    };
    static constexpr std::size_t kShortcuts = 64;
    static std::size_t placeOf(int key) noexcept { return static_cast<unsigned int>(key) % kShortcuts; }

    Slots m_slots;
    Shortcut m_shortcuts[kShortcuts] = {};
};

/// The system key, alone on its cache lines: every look-up in any thread reads it. 0 stands for a key that
/// does not exist; glibc may hand out 0, and that one is not used.
struct ThreadLocalPaddedStorageKey {
    /// The key, and what keeps its cache lines to itself.
    char prepad[128];
    std::atomic<pthread_key_t> key;
    char postpad[128];
};

/// The facade. Keys are process-wide and never reused.
///
/// Storing may throw std::bad_alloc, and then nothing is stored. When the system refuses a key or a value for
/// it, that is an assertion ("0 == st") and the process is aborted.
///
/// At process exit, or when the library is unloaded, the exiting thread's slots are cleaned and the system
/// key is deleted; maps of threads that still run stay as they are, without callbacks.
class BRIMPORTABLE_API ThreadLocalStorageManager {
public:
    ThreadLocalStorageManager(const ThreadLocalStorageManager&) = delete;
    ThreadLocalStorageManager& operator=(const ThreadLocalStorageManager&) = delete;

    /// The one manager.
    static ThreadLocalStorageManager* Make();

    /// Draws a new key, from 1 on, and stores `value` under it for the calling thread. Other threads store
    /// theirs with ModifyTls().
    int CreateTls(void* value, PtrCleanupCallBack cleanup);
    /// Stores `value` under `key`. The callback of a value that is replaced is not called. Always true.
    bool ModifyTls(int key, void* value, PtrCleanupCallBack cleanup);
    /// Puts a slot made with `new` under `key` and owns it from then on; when the key is present, nothing
    /// changes and the slot stays the caller's. Null is ignored. Always true.
    bool InsertTls(int key, BrimThreadLocalStorage* slot);
    /// The slot, or null. The map keeps owning it.
    BrimThreadLocalStorage* GetTls(int key) noexcept;
    /// The slot's value, or null.
    void* GetTlsValue(int key) noexcept;
    /// True when the calling thread has a slot under `key`.
    bool IsTlsExisted(int key) noexcept;
    /// Destroys the slot; its callback runs. False when the thread has no map at all, otherwise true, also
    /// when there is no such slot.
    bool DeleteTls(int key) noexcept;

    /// What the system calls when a thread ends that has a map.
    static void destructor(void* map);

private:
    ThreadLocalStorageManager() = default;
    ~ThreadLocalStorageManager();
};

// ---- The thread's map -------------------------------------------------------------------------------------

/// The system key.
BRIMPORTABLE_API ThreadLocalPaddedStorageKey& GetThreadLocalStorageKey() noexcept;
/// Makes sure that the object of GetThreadLocalStorageKey() exists; 0. The system key itself comes with the
/// first map.
BRIMPORTABLE_API int InitializeThreadLocalStorageKey() noexcept;

/// The calling thread's map. While it has none, or while there is no system key: null, or with `create` a new
/// one (the system key is made too). The thread owns it.
BRIMPORTABLE_API ThreadScopeKey2PtrThreadLocalStorageMap*
GetThreadScopeStorageKey2PtrThreadLocalStorageMap(bool create);
/// Makes the calling thread forget its map, which is the caller's from then on.
BRIMPORTABLE_API void ResetThreadScopeStorageKey2PtrThreadLocalStorageMap();
/// True for null and for a map without slots.
BRIMPORTABLE_API bool
IsEmptyThreadScopeStorageKey2PtrThreadLocalStorageMap(const ThreadScopeKey2PtrThreadLocalStorageMap* map);
/// Destroys the slots, callbacks included, then the map, which the calling thread forgets if it is its own.
/// Nothing happens when `map` is null or there is no system key.
BRIMPORTABLE_API void
FreeThreadScopeStorageKey2PtrThreadLocalStorageMap(ThreadScopeKey2PtrThreadLocalStorageMap* map);
/// The same for the calling thread's map.
BRIMPORTABLE_API void FreeThreadScopeStorageKey2PtrThreadLocalStorageMap();
