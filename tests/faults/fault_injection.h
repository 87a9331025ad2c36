// Operations without memory: each runs with its first request refused, then with its second, and so on until
// it needs none that is refused. A table lists the operations of one subject, a type whose default object is
// what an operation works on and whose picture() tells everything that can be seen of it.
#pragma once

#include "child_process.h"
#include "recording_allocator.h"
#include "refusing_new.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <new>
#include <string>

namespace brimtest {

enum class Promise {
    unchanged, ///< std::bad_alloc comes out and the subject is as it was; trying again then succeeds
    usable,    ///< std::bad_alloc comes out; what the operation fills may be filled in part
    served,    ///< as `usable`, but some requests, or all, can be done without: nothing comes out then
    noRequest  ///< asks for no memory at all
};

template <class Subject>
struct FaultyOperation {
    const char* name;
    void (*run)(Subject&);
    Promise promise = Promise::unchanged;
};

/// Live blocks of somebody else's code, which loses some of them when memory runs out.
inline constinit std::atomic<long> foreignBlocks{0};

inline long liveBlocks() {
    return RecordingAllocator::liveBlocks() + liveBlocksOfOperatorNew() - foreignBlocks.load();
}

/// Keeps what is printed off the test's own output, unless something fails.
class CapturedOutput {
public:
    CapturedOutput() { testing::internal::CaptureStdout(); }
    ~CapturedOutput() {
        const std::string printed = testing::internal::GetCapturedStdout();
        if (testing::Test::HasFailure()) {
            std::fputs(printed.c_str(), stdout);
        }
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;
};

/// One run of an operation with its `n`-th request refused.
struct RefusedRun {
    template <class Run>
    RefusedRun(long n, Run run) {
        const AllocationRefusal refusal(n);
        try {
            run();
        } catch (const std::bad_alloc&) {
            isBadAlloc = true;
        }
        isRefused = refusal.happened();
    }

    bool isBadAlloc = false;
    bool isRefused = false;
};

/// Refuses each request in turn. Returns how many there were. The process's own caches are cold at the first
/// run and filled by the last.
template <class Subject>
long refuseEachRequest(const FaultyOperation<Subject>& operation, const std::string& after) {
    constexpr long kEndless = 100000;
    for (long n = 1; n < kEndless; ++n) {
        SCOPED_TRACE(testing::Message() << operation.name << ", request " << n);
        const long atStart = liveBlocks();
        {
            Subject subject;
            const std::string before = picture(subject);
            const long atRun = liveBlocks();
            const RefusedRun run(n, [&] { operation.run(subject); });
            const long atEnd = liveBlocks();
            if (!run.isRefused) {
                EXPECT_FALSE(run.isBadAlloc) << "memory for everything";
                EXPECT_TRUE(after.empty() || picture(subject) == after) << picture(subject);
                return n - 1;
            }
            if (operation.promise != Promise::served) {
                EXPECT_TRUE(run.isBadAlloc) << "a refusal went unnoticed";
            }
            if (run.isBadAlloc && operation.promise == Promise::unchanged) {
                EXPECT_EQ(picture(subject), before);
                EXPECT_EQ(atEnd, atRun);
                operation.run(subject);
                EXPECT_TRUE(after.empty() || picture(subject) == after) << picture(subject);
            } else if (run.isBadAlloc) {
                operation.run(subject);
            } else {
                EXPECT_TRUE(after.empty() || picture(subject) == after) << picture(subject);
            }
        }
        EXPECT_EQ(liveBlocks(), atStart);
        if (testing::Test::HasFailure()) {
            return n;
        }
    }
    ADD_FAILURE() << operation.name << " never ends";
    return kEndless;
}

template <class Subject>
void expectRequests(const FaultyOperation<Subject>& operation, long requests) {
    if (operation.promise != Promise::served) {
        EXPECT_EQ(requests == 0, operation.promise == Promise::noRequest)
            << operation.name << " asks " << requests << " times";
    }
}

/// Each operation of a table, the process's caches filled before.
template <class Subject, std::size_t N>
void expectHarmlessRefusals(const FaultyOperation<Subject> (&operations)[N]) {
    for (const FaultyOperation<Subject>& operation : operations) {
        std::string after;
        {
            Subject subject;
            operation.run(subject);
            after = picture(subject);
        }
        const long requests = refuseEachRequest(operation, after);
        expectRequests(operation, requests);
    }
}

/// The same, each operation in a process of its own whose caches are cold: the first refusal meets the first
/// use. What an operation keeps for the process must not be counted as lost, so only refused runs are.
template <class Subject, std::size_t N>
void expectHarmlessRefusalsAtFirstUse(const FaultyOperation<Subject> (&operations)[N]) {
    for (const FaultyOperation<Subject>& operation : operations) {
        const ChildResult child = runInChild([&] {
            const long requests = refuseEachRequest(operation, std::string());
            expectRequests(operation, requests);
            std::fflush(stdout);
            ::_exit(testing::Test::HasFailure() ? 1 : 0);
        });
        EXPECT_EQ(child.exitCode(), 0) << operation.name << ": " << child;
    }
}

} // namespace brimtest
