// What the tests of thread-local storage share.
#pragma once

#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace brimtest {

inline ThreadLocalStorageManager& manager() { return *ThreadLocalStorageManager::Make(); }

inline bool hasMap() { return GetThreadScopeStorageKey2PtrThreadLocalStorageMap(false) != nullptr; }

/// Runs `body` on a thread that has stored nothing yet, to the thread's end. Blocks of the thread must be
/// freed by then.
template <class Body>
void onFreshThread(Body body) {
    const long before = RecordingAllocator::liveBlocks();
    std::thread(body).join();
    EXPECT_EQ(RecordingAllocator::liveBlocks(), before) << "blocks of the thread";
}

/// A value that tells when it was cleaned.
struct Value {
    std::vector<int>* log;
    int id;

    static void clean(void* value) {
        const Value* const self = static_cast<const Value*>(value);
        self->log->push_back(self->id);
    }
};

} // namespace brimtest
