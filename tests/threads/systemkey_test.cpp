// The system key: when it is made, what is done about 0, and what happens when the system refuses.
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"

#include "Utility/Generic/Portable/SUPExceptionSupport.h"

#include "child_process.h"
#include "pthread_keys.h"
#include "thread_test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using brimtest::FreshProcess;
using brimtest::manager;
using brimtest::PthreadKeys;

namespace {

pthread_key_t libraryKey() { return GetThreadLocalStorageKey().key; }

void store() { manager().ModifyTls(1, nullptr, nullptr); }

std::string assertion(const char* condition, int line) {
    return std::string("Internal Assertion: Condition ") + condition +
           ", file server/Utility/Generic/Portable/Src/SUPThreadLocalStorage.cpp, line " +
           std::to_string(line) + "\n";
}

constexpr int kStoreLine = 26;
constexpr int kReservedKeyLine = 27;
constexpr int kResetLine = 28;
constexpr int kDeleteKeyLine = 30;

void expectAbort(const brimtest::ChildResult& result, const std::string& output) {
    EXPECT_EQ(result.signal(), SIGABRT) << result;
    EXPECT_EQ(result.output, output);
}

// ---- when it is made

const FreshProcess kFirstMap("FirstMap", [] {
    const auto show = [](const char* when) {
        std::printf("%s: %s\n", when, libraryKey() == 0 ? "none" : "one");
    };
    show("at load");
    manager().GetTlsValue(1);
    manager().IsTlsExisted(1);
    manager().DeleteTls(1);
    FreeThreadScopeStorageKey2PtrThreadLocalStorageMap();
    ResetThreadScopeStorageKey2PtrThreadLocalStorageMap();
    show("look-ups");
    store();
    show("a value");
    manager().DeleteTls(1);
    std::thread(&store).join();
    std::printf("made %d times\n", PthreadKeys::s_created);
});

TEST(SystemKey, ComesWithTheFirstMapAndStays) {
    EXPECT_EQ(kFirstMap.run().output, "at load: none\nlook-ups: none\na value: one\nmade 1 times\n");
}

const FreshProcess kManyFirstMaps("ManyFirstMaps", [] {
    constexpr int kThreads = 8;
    static std::atomic<int> s_ready{0};
    static std::atomic<int> s_wrong{0};
    static std::atomic<int> s_cleaned{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            int value = 0;
            ++s_ready;
            while (s_ready != kThreads) {
            }
            const int key = manager().CreateTls(&value, [](void*) { ++s_cleaned; });
            s_wrong += manager().GetTlsValue(key) != &value;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::printf("%d made, %d wrong, %d cleaned\n", PthreadKeys::s_created, s_wrong.load(), s_cleaned.load());
});

TEST(SystemKey, IsOneWhenThreadsRaceForTheFirstMap) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(kManyFirstMaps.run().output, "1 made, 0 wrong, 8 cleaned\n");
    }
}

// ---- 0

const FreshProcess kZeroOnce("ZeroOnce", [] {
    PthreadKeys::s_zeros = 1;
    PthreadKeys::s_isPrinting = true;
    manager().ModifyTls(1, nullptr, [](void*) { std::puts("cleaned"); });
    std::puts(libraryKey() == 0 ? "none" : "one");
    manager().ModifyTls(2, nullptr, nullptr);
    std::thread(&store).join();
});

TEST(SystemKey, ZeroIsHeldWhileAnotherIsDrawnAndThenGivenBack) {
    EXPECT_EQ(kZeroOnce.run().output, "create: 0\ncreate: a key\ndelete: 0\nstore: a map\none\n"
                                      "store: a map\nstore: null\n");
}

const FreshProcess kZeroTwice("ZeroTwice", [] {
    PthreadKeys::s_zeros = 2;
    store();
});

TEST(SystemKey, ZeroOnceMoreIsAnAssertion) {
    expectAbort(kZeroTwice.run(), assertion("rThreadLocalPaddedStorageKey.key", kReservedKeyLine));
}

// ---- refusals

const FreshProcess kNoKey("NoKey", [] {
    PthreadKeys::s_failingCreation = 1;
    store();
});

TEST(SystemKey, ARefusedKeyIsAnAssertion) { expectAbort(kNoKey.run(), assertion("0 == st", kStoreLine)); }

const FreshProcess kNoSecondKey("NoSecondKey", [] {
    PthreadKeys::s_zeros = 1;
    PthreadKeys::s_failingCreation = 2;
    store();
});

TEST(SystemKey, ARefusedSecondKeyIsAnAssertion) {
    expectAbort(kNoSecondKey.run(), assertion("0 == st", kStoreLine));
}

const FreshProcess kNoStore("NoStore", [] {
    PthreadKeys::s_storesFail = true;
    store();
});

TEST(SystemKey, ARefusedMapIsAnAssertion) { expectAbort(kNoStore.run(), assertion("0 == st", kStoreLine)); }

const FreshProcess kNoReset("NoReset", [] {
    store();
    PthreadKeys::s_storesFail = true;
    ResetThreadScopeStorageKey2PtrThreadLocalStorageMap();
});

TEST(SystemKey, ARefusedResetIsAnAssertion) { expectAbort(kNoReset.run(), assertion("0 == st", kResetLine)); }

const FreshProcess kNoDeletion("NoDeletion", [] {
    manager().ModifyTls(1, nullptr, [](void*) { std::puts("cleaned"); });
    PthreadKeys::s_isPrinting = true;
    PthreadKeys::s_deletionsFail = true;
    std::exit(0);
});

TEST(SystemKey, ARefusedDeletionAtTheEndOfTheProcessIsAnAssertion) {
    expectAbort(kNoDeletion.run(),
                "cleaned\nstore: null\ndelete: a key\n" + assertion("0 == st", kDeleteKeyLine));
}

// A handler that throws lets the process go on.
class ThrowingHandler : public sup::SUPExceptionSupport {
public:
    ThrowingHandler() { m_pSUPExceptionSupport = this; }
    ~ThrowingHandler() { m_pSUPExceptionSupport = nullptr; }

    void throwErrorMessageImpl(const wchar_t*, int, const sup::String<wchar_t>&) override {}
    void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list*) override {}
    void throwAssertErrorImpl(const wchar_t*, int line, const wchar_t*) override { throw line; }
    void throwLogicErrorImpl(const wchar_t*, int, const sup::String<wchar_t>&) override {}
};

void expectThrowThenSuccess(const char* what) {
    const long before = brimtest::RecordingAllocator::liveBlocks();
    try {
        store();
        std::printf("%s: stored\n", what);
    } catch (int) {
        std::printf("%s: %s, %ld blocks, map: %s\n", what, libraryKey() == 0 ? "no key" : "a key",
                    brimtest::RecordingAllocator::liveBlocks() - before, brimtest::hasMap() ? "yes" : "no");
    }
}

const FreshProcess kThrow("Throw", [] {
    const ThrowingHandler handler;
    PthreadKeys::s_failingCreation = 1;
    expectThrowThenSuccess("create");
    PthreadKeys::s_storesFail = true;
    expectThrowThenSuccess("store");
    PthreadKeys::s_storesFail = false;
    store();
    std::puts(manager().IsTlsExisted(1) ? "stored" : "lost");
});

TEST(SystemKey, ARefusalThatAHandlerTurnsIntoAnExceptionLeavesNothingBehind) {
    const std::string line = assertion("0 == st", kStoreLine);
    EXPECT_EQ(kThrow.run().output, line + "create: no key, 0 blocks, map: no\n" + line +
                                       "store: a key, 0 blocks, map: no\nstored\n");
}

} // namespace
