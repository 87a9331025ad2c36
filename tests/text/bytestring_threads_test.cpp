// sup::ByteString: strings of several threads that share blocks. The thread sanitizer watches; without it the
// counts and the texts at the end still tell.
#include "Utility/Generic/Portable/SUPBString.h"

#include "bytestring_test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace brimtest;

constexpr unsigned int kThreads = 4;
constexpr int kRounds = 3000;

// Starts all threads at once and waits for their ends.
template <class Body>
void onAllThreads(Body body) {
    std::atomic<unsigned int> ready{0};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            ready.fetch_add(1, std::memory_order_relaxed);
            while (ready.load(std::memory_order_relaxed) != kThreads) {
                std::this_thread::yield();
            }
            body(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

template <class T>
class ByteStringThreads : public ByteStringTestOf<T> {};
TYPED_TEST_SUITE(ByteStringThreads, CharacterTypes, CharacterTypeNames);

TYPED_TEST(ByteStringThreads, CopiesOfOneStringAreCountedRight) {
    using B = sup::ByteString<TypeParam>;
    const B shared(TEXT("a text that all threads share"));
    const std::uint32_t hash = shared.hash();
    std::atomic<int> wrong{0};
    onAllThreads([&](unsigned int) {
        for (int i = 0; i < kRounds; ++i) {
            const B copy(shared);
            B other;
            other = copy;
            B appended;
            appended.append(copy);
            wrong += other.hash() != hash || appended.isUnique() || B::equals(copy, TEXT("something else"));
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(shared.isUnique());
    EXPECT_TRUE(isFreshBlockOf(shared, FULL_TEXT("a text that all threads share")));
}

// Each thread changes strings of its own whose blocks others read.
TYPED_TEST(ByteStringThreads, ChangesStayWithTheStringThatIsChanged) {
    using B = sup::ByteString<TypeParam>;
    const B shared(TEXT("shared"));
    std::atomic<int> wrong{0};
    onAllThreads([&](unsigned int i) {
        const auto mine = static_cast<TypeParam>('0' + static_cast<int>(i));
        for (int round = 0; round < kRounds; ++round) {
            B b(shared);
            b.push_back(mine);
            wrong += b.length() != 7 || b.back() != mine || !b.isUnique();
            B c(shared);
            c.clear();
            c += B(shared, 3);
            wrong += !B::equals(c, TEXT("sha"));
            B d(shared);
            d.reserve(20);
            d.clear();
            wrong += !d.empty() || d.capacity() != 20 || shared.length() != 6;
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(isFreshBlockOf(shared, FULL_TEXT("shared")));
}

// Which thread lets go last differs from round to round, and that one frees; a string that finds itself
// alone empties its block in place, after all that others did with it.
TYPED_TEST(ByteStringThreads, TheLastHolderFreesOrReusesTheBlock) {
    using B = sup::ByteString<TypeParam>;
    for (int round = 0; round < 200; ++round) {
        const long live = RecordingAllocator::liveBlocks();
        {
            std::vector<B> strings(kThreads, B(TEXT("a text")));
            std::atomic<int> wrong{0};
            onAllThreads([&](unsigned int i) {
                wrong += strings[i].length() != 6 || strings[i].at(2) != CHARACTER('t');
                strings[i].clear();
                wrong += !strings[i].empty();
            });
            EXPECT_EQ(wrong, 0);
        }
        ASSERT_EQ(RecordingAllocator::liveBlocks(), live) << round;
    }
}

} // namespace
