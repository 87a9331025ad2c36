// sup::String between threads: strings that share a block may belong to different ones. The thread sanitizer
// reads along; without it these tests check texts and that each block is freed exactly once.
#include "Utility/Generic/Portable/SUPString.h"

#include "child_process.h"
#include "string_test_support.h"

#include <gtest/gtest.h>

#include <sys/single_threaded.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <latch>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace brimtest;

constexpr int kThreads = 6;

// Runs body(0), body(1), ... in threads of their own, all at the same time.
template <class Body>
void inThreads(int count, Body body) {
    std::latch start(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&start, body, i]() mutable {
            start.arrive_and_wait();
            body(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

template <class T>
class StringThreads : public StringTestOf<T> {};
TYPED_TEST_SUITE(StringThreads, CharacterTypes, CharacterTypeNames);

// Each thread works on strings of its own, all of which begin as copies of the same ones.
TYPED_TEST(StringThreads, EachChangesItsOwnCopies) {
    using S = sup::String<TypeParam>;
    std::vector<S> origins;
    for (const std::size_t length : {1U, 7U, 8U, 40U, 200U}) {
        origins.push_back(alphabetString<TypeParam>(length));
    }
    std::atomic<int> wrong{0};
    inThreads(kThreads, [&](int thread) {
        std::mt19937 random(static_cast<unsigned>(thread));
        std::vector<S> mine(4);
        std::vector<std::basic_string<TypeParam>> expected(4);
        for (int i = 0; i < 3000; ++i) {
            const std::size_t at = random() % mine.size();
            const std::size_t from = random() % mine.size();
            S& s = mine[at];
            auto& text = expected[at];
            switch (random() % 10) {
            case 0:
            case 1:
            case 2: {
                const S& origin = origins[random() % origins.size()];
                s = origin;
                text = alphabet<TypeParam>(origin.length());
                break;
            }
            case 3:
                s = mine[from];
                text = expected[from];
                break;
            case 4:
                s.append(TEXT("tail"));
                text.append(TEXT("tail"));
                break;
            case 5:
                s.replace(1, 2, TEXT("X"));
                text = text.empty() ? text.append(TEXT("X")) : text.replace(1, 2, TEXT("X"));
                break;
            case 6:
                s.erase(3, 4);
                text = text.size() > 3 ? text.erase(3, 4) : text;
                break;
            case 7:
                s.resize(9, CHARACTER('r'));
                text.resize(9, CHARACTER('r'));
                break;
            case 8:
                if (!s.empty()) {
                    *s.mutable_begin() = CHARACTER('M');
                    text[0] = CHARACTER('M');
                }
                break;
            default:
                s.clear();
                text.clear();
                break;
            }
            wrong += copyOf(s) == text ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    for (const S& origin : origins) {
        EXPECT_EQ(copyOf(origin), alphabet<TypeParam>(origin.length()));
        EXPECT_TRUE(origin.isUnique());
    }
}

TYPED_TEST(StringThreads, LastOwnerFreesTheBlockOnce) {
    using S = sup::String<TypeParam>;
    for (int round = 0; round < 200; ++round) {
        const long blocksBefore = RecordingAllocator::liveBlocks();
        std::vector<S> owners(kThreads, alphabetString<TypeParam>(50));
        EXPECT_EQ(RecordingAllocator::liveBlocks(), blocksBefore + 1);
        EXPECT_EQ(owners.front().diagnosticGetSharedRepresentation()->m_refCount.get(), kThreads);
        inThreads(kThreads, [&](int thread) {
            S& mine = owners[static_cast<std::size_t>(thread)];
            switch ((round + thread) % 4) { // the ways to let go
            case 0:
                mine = S();
                break;
            case 1:
                mine.clear();
                break;
            case 2:
                mine = TEXT("other");
                break;
            default:
                mine.append(TEXT("more"));
                break;
            }
        });
        std::size_t nonNull = 0;
        for (const S& owner : owners) {
            nonNull += owner.diagnosticGetSharedRepresentation() == nullptr ? 0 : 1;
        }
        EXPECT_EQ(RecordingAllocator::liveBlocks(), blocksBefore + static_cast<long>(nonNull));
    }
}

// The one that remains may write in place at once: it sees that the others have done with the characters.
TYPED_TEST(StringThreads, RemainingOwnerChangesTheBlockInPlace) {
    using S = sup::String<TypeParam>;
    const std::string expected = show(alphabet<TypeParam>(40));
    for (int round = 0; round < 100; ++round) {
        S mine = alphabetString<TypeParam>(40);
        const TypeParam* const block = mine.c_str();
        std::atomic<int> wrong{0};
        std::vector<std::thread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&wrong, &expected, theirs = mine]() mutable {
                wrong += show(theirs) == expected ? 0 : 1;
                theirs = S();
            });
        }
        while (!mine.isUnique()) {
            std::this_thread::yield();
        }
        *mine.mutable_begin() = CHARACTER('X');
        mine.replace(1, 3, TEXT("YZ"));
        EXPECT_EQ(mine.c_str(), block);
        for (std::thread& reader : readers) {
            reader.join();
        }
        EXPECT_EQ(wrong.load(), 0);
        EXPECT_EQ(show(mine), "XYZ" + expected.substr(4));
    }
}

// Blocks are made in one thread, changed in another and freed in a third.
TYPED_TEST(StringThreads, StringsTravelBetweenThreads) {
    using S = sup::String<TypeParam>;
    std::mutex mutex;
    std::vector<S> mail;
    std::atomic<std::size_t> wrong{0};
    std::atomic<std::size_t> taken{0};
    constexpr std::size_t kLetters = 1000;
    inThreads(kThreads, [&](int thread) {
        for (std::size_t i = 0; i < kLetters; ++i) {
            S letter = alphabetString<TypeParam>(1 + i % 30);
            const S kept(letter);
            {
                const std::lock_guard<std::mutex> lock(mutex);
                mail.push_back(std::move(letter));
                if (thread % 2 == 0) {
                    mail.push_back(kept);
                }
            }
            S received;
            {
                const std::lock_guard<std::mutex> lock(mutex);
                received = mail[i % mail.size()];
                mail[i % mail.size()].swap(mail.back());
                mail.pop_back();
            }
            ++taken;
            received.push_back(CHARACTER('!'));
            const std::basic_string<TypeParam> text = copyOf(received);
            const auto sent = text.substr(0, text.size() - 1);
            wrong += sent == alphabet<TypeParam>(sent.size()) && text.back() == CHARACTER('!') ? 0U : 1U;
            wrong += copyOf(kept) == alphabet<TypeParam>(1 + i % 30) ? 0U : 1U;
        }
    });
    EXPECT_EQ(taken.load(), kThreads * kLetters);
    EXPECT_EQ(wrong.load(), 0U);
    EXPECT_EQ(mail.size(), kThreads / 2 * kLetters);
    mail.clear();
}

// Counts that a process kept while it had one thread must still be right once it has more. Prints what went
// wrong.
void countAcrossTheFirstThread() {
#ifndef BRIM_SANITIZED // a sanitizer's runtime may start a thread of its own
    if (__libc_single_threaded == 0) {
        std::puts("not single-threaded at the start");
    }
#endif
    const long blocksBefore = RecordingAllocator::liveBlocks();
    {
        const BrimString origin(L"shared by one thread, then by many");
        std::vector<BrimString> copies(100, origin);
        copies.resize(50);
        copies[0].append(L"!");
        const auto* const block = origin.diagnosticGetSharedRepresentation();
        if (block->m_refCount.get() != 50) {
            std::puts("wrong count in one thread");
        }
        inThreads(kThreads, [&](int) {
            for (int i = 0; i < 2000; ++i) {
                BrimString mine(origin);
                const BrimString more(mine);
                mine.append(L"?");
            }
        });
        if (block->m_refCount.get() != 50) {
            std::puts("wrong count after many threads");
        }
        copies.clear();
        if (!origin.isUnique()) {
            std::puts("not alone at the end");
        }
    }
    if (RecordingAllocator::liveBlocks() != blocksBefore) {
        std::puts("blocks left over");
    }
    std::puts("done");
}

const brimtest::FreshProcess kCountAcrossTheFirstThread("CountAcrossTheFirstThread",
                                                        countAcrossTheFirstThread);

TEST(StringThreadsStart, CountsOfASingleThreadHoldWhenThreadsStart) {
    const brimtest::ChildResult result = kCountAcrossTheFirstThread.run();
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "done\n") << result;
}

} // namespace
