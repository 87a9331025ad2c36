// What happens at the end of the process. The manager is destroyed after the objects of the program.
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include "child_process.h"
#include "thread_test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <unistd.h>

using brimtest::FreshProcess;
using brimtest::manager;

namespace {

void printId(void* value) {
    std::printf("clean %d\n", static_cast<int>(reinterpret_cast<std::intptr_t>(value)));
}

void keep(int key, PtrCleanupCallBack cleanup = &printId) {
    manager().ModifyTls(key, reinterpret_cast<void*>(static_cast<std::intptr_t>(key)), cleanup);
}

bool hasSystemKey() { return GetThreadLocalStorageKey().key != 0; }

[[noreturn]] void waitForEver() {
    for (;;) {
        ::pause();
    }
}

void expectCleanExit(const FreshProcess& process, const std::string& output) {
    const brimtest::ChildResult result = process.run();
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, output);
}

// Runs when what callbacks of the process's end registered is called: the manager is gone.
void afterTheManager(void (*body)()) { std::atexit(body); }

const FreshProcess kOrder("Order", [] {
    for (const int key : {70, 3, -1, 2}) {
        keep(key);
    }
    manager().ModifyTls(4, nullptr, nullptr);
    std::exit(0);
});

TEST(ProcessExit, CleansTheThreadsSlotsInAscendingKeyOrder) {
    expectCleanExit(kOrder, "clean -1\nclean 2\nclean 3\nclean 70\n");
}

const FreshProcess kNothingStored("NothingStored", [] {
    manager().GetTlsValue(1);
    std::puts(hasSystemKey() ? "a key" : "no key");
    std::exit(0);
});

TEST(ProcessExit, IsQuietWithoutAKey) { expectCleanExit(kNothingStored, "no key\n"); }

const FreshProcess kOthersOnly("OthersOnly", [] {
    std::thread([] { keep(1); }).join();
    std::puts(hasSystemKey() ? "a key" : "no key");
    std::exit(0);
});

TEST(ProcessExit, IsQuietInAThreadWithoutAMap) { expectCleanExit(kOthersOnly, "clean 1\na key\n"); }

const FreshProcess kOtherThreads("OtherThreads", [] {
    static std::atomic<bool> s_isStored{false};
    std::thread([] {
        keep(1);
        s_isStored = true;
        waitForEver();
    }).detach();
    while (!s_isStored) {
    }
    keep(2);
    std::exit(0);
});

TEST(ProcessExit, LeavesThreadsThatStillRunAlone) { expectCleanExit(kOtherThreads, "clean 2\n"); }

const FreshProcess kExitElsewhere("ExitElsewhere", [] {
    keep(1);
    std::thread([] {
        keep(2);
        std::exit(0);
    }).join();
});

TEST(ProcessExit, CleansTheThreadThatEndsTheProcess) { expectCleanExit(kExitElsewhere, "clean 2\n"); }

const FreshProcess kStoresAgain("StoresAgain", [] {
    keep(5, [](void* value) {
        printId(value);
        keep(1);
        keep(6);
    });
    keep(7);
    std::exit(0);
});

TEST(ProcessExit, WhatACallbackStoresIsCleanedToo) {
    expectCleanExit(kStoresAgain, "clean 5\nclean 6\nclean 7\nclean 1\n");
}

const FreshProcess kKeyIsGone("KeyIsGone", [] {
    keep(1, [](void* value) {
        printId(value);
        std::puts(hasSystemKey() ? "a key" : "no key");
        afterTheManager([] {
            std::puts(hasSystemKey() ? "a key" : "no key");
            std::printf("%d %d %d\n", manager().GetTlsValue(2) != nullptr, manager().IsTlsExisted(2),
                        manager().DeleteTls(2));
        });
    });
    std::exit(0);
});

TEST(ProcessExit, DeletesTheSystemKey) { expectCleanExit(kKeyIsGone, "clean 1\na key\nno key\n0 0 0\n"); }

// The library may be unloaded next, so what a late handler makes must go as well.
const FreshProcess kLateStore("LateStore", [] {
    keep(1, [](void*) {
        afterTheManager([] {
            keep(3);
            keep(2);
            std::puts(hasSystemKey() ? "a key" : "no key");
            manager().ModifyTls(4, nullptr, [](void*) {
                afterTheManager([] { std::puts(hasSystemKey() ? "a key" : "no key"); });
            });
        });
    });
    std::exit(0);
});

TEST(ProcessExit, WhatIsStoredWhenTheManagerIsGoneIsCleanedToo) {
    expectCleanExit(kLateStore, "a key\nclean 2\nclean 3\nno key\n");
}

// A thread that stored before the end, and its end comes after the key is gone.
const FreshProcess kThreadOutlivesTheKey("ThreadOutlivesTheKey", [] {
    static std::atomic<int> s_step{0};
    static std::thread* s_thread = nullptr;
    std::thread thread([] {
        keep(2);
        s_step = 1;
        while (s_step != 2) {
        }
        std::printf("%d\n", manager().IsTlsExisted(2));
    });
    s_thread = &thread;
    while (s_step != 1) {
    }
    keep(1, [](void* value) {
        printId(value);
        afterTheManager([] {
            s_step = 2;
            s_thread->join();
        });
    });
    std::exit(0);
});

TEST(ProcessExit, AThreadThatEndsLaterIsNotCleaned) {
    expectCleanExit(kThreadOutlivesTheKey, "clean 1\n0\n");
}

} // namespace
