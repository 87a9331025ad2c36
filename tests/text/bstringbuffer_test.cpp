// sup::BStringBuffer. There is one instance in a process, so what depends on its history runs in a child of
// its own.
#include "Utility/Generic/Portable/StringBuffer.h"

#include "child_process.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using namespace brimtest;
using brimtest::ChildResult;
using brimtest::runInChild;
using sup::BStringBuffer;

constexpr std::size_t kSlots = 10;

// The next slot, written to from end to end.
char* draw(int size) {
    char* const p = BStringBuffer::GetBuffer().GetNextBuffer(size);
    std::memset(p, 'x', static_cast<std::size_t>(std::max(size, 0)));
    return p;
}

// Standard output of a child that gets the slots in their first state.
template <class Body>
std::string outputOfFreshRing(Body body) {
    const ChildResult result = runInChild([&] {
        body();
        std::fflush(stdout);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    return result.output;
}

TEST(BStringBuffer, IsOneInstance) {
    EXPECT_EQ(outputOfFreshRing([] {
                  std::printf(&BStringBuffer::GetBuffer() == &BStringBuffer::GetBuffer() ? "one" : "two");
              }),
              "one");
    EXPECT_FALSE(std::is_default_constructible<BStringBuffer>::value);
    EXPECT_FALSE(std::is_copy_constructible<BStringBuffer>::value);
}

TEST(BStringBuffer, HoldsACounterAndTenBuffers) {
    EXPECT_EQ(sizeof(BStringBuffer), 8 + kSlots * sizeof(HeapedAutoBuffer<char>));
}

TEST(BStringBuffer, EleventhCallReturnsTheFirstSlot) {
    EXPECT_EQ(outputOfFreshRing([] {
                  std::vector<char*> slots;
                  for (std::size_t i = 0; i < kSlots; ++i) {
                      slots.push_back(draw(10));
                  }
                  const std::set<char*> distinct(slots.begin(), slots.end());
                  bool inTurn = true;
                  for (std::size_t i = 0; i < 5 * kSlots; ++i) {
                      inTurn = inTurn && draw(10) == slots[i % kSlots];
                  }
                  std::printf("%zu slots, %s", distinct.size(), inTurn ? "in turn" : "in disorder");
              }),
              "10 slots, in turn");
}

TEST(BStringBuffer, SlotIsUntouchedUntilItIsDrawnAgain) {
    EXPECT_EQ(outputOfFreshRing([] {
                  char* const slot = draw(10);
                  std::strcpy(slot, "kept");
                  for (std::size_t i = 1; i < kSlots; ++i) {
                      draw(1000);
                  }
                  std::printf("%s", slot);
                  std::printf(BStringBuffer::GetBuffer().GetNextBuffer(64) == slot ? ", the same"
                                                                                   : ", another");
                  std::printf(", %.4s", slot);
              }),
              "kept, the same, kept");
}

TEST(BStringBuffer, NoSlotIsAllocatedBeforeItIsDrawn) {
    EXPECT_EQ(outputOfFreshRing([] {
                  AllocationLog log;
                  BStringBuffer::GetBuffer();
                  std::printf("%zu", log.requests().size());
                  for (std::size_t i = 0; i < kSlots; ++i) {
                      draw(1);
                  }
                  std::printf(" %zu", log.requests().size());
                  for (std::size_t i = 0; i < kSlots; ++i) {
                      draw(64);
                  }
                  std::printf(" %zu", log.requests().size());
              }),
              "0 10 10");
}

// Each row draws one slot again and again; the blocks that its sizes lead to.
TEST(BStringBuffer, SlotsGrowToSixtyFourThenTwiceExactlyThenDouble) {
    const struct {
        std::vector<int> sizes;
        const char* blocks;
    } rows[] = {
        {{1}, "64 "},
        {{64, 63, 1}, "64 "},
        {{65}, "65 "},
        {{10, 100, 100, 99}, "64 100 "},
        {{10, 100, 150, 151}, "64 100 150 300 "},
        {{100, 150, 151, 301, 5000}, "100 150 300 600 9600 "},
        {{100, 99, 1, 101, 102}, "100 101 202 "},
        {{1 << 20}, "1048576 "},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(outputOfFreshRing([&row] {
                      AllocationLog log;
                      for (const int size : row.sizes) {
                          log.clear();
                          draw(size);
                          for (const AllocationRequest& request : log.requests()) {
                              std::printf("%zu ", request.size);
                          }
                          for (std::size_t i = 1; i < kSlots; ++i) {
                              draw(1);
                          }
                      }
                  }),
                  row.blocks);
    }
}

TEST(BStringBuffer, SizesBelowOneGetASlotToo) {
    for (const int size : {0, -1, INT_MIN}) {
        EXPECT_EQ(outputOfFreshRing([size] {
                      AllocationLog log;
                      char* const slot = BStringBuffer::GetBuffer().GetNextBuffer(size);
                      std::printf(slot == nullptr ? "null" : "%zu", log.requests()[0].size);
                  }),
                  "64")
            << size;
    }
}

TEST(BStringBuffer, RefusedMemoryThrowsAndTheRingGoesOn) {
    EXPECT_EQ(outputOfFreshRing([] {
                  char* const first = draw(64);
                  {
                      const AllocationRefusal refusal(1);
                      try {
                          draw(64);
                          std::printf("no exception ");
                      } catch (const std::bad_alloc&) {
                          std::printf("bad_alloc ");
                      }
                  }
                  for (std::size_t i = 2; i < kSlots; ++i) {
                      draw(64);
                  }
                  {
                      const AllocationRefusal refusal(1);
                      try {
                          draw(65);
                      } catch (const std::bad_alloc&) {
                          std::printf("bad_alloc ");
                      }
                  }
                  draw(64); // the slot that got nothing the first time
                  for (std::size_t i = 2; i < kSlots; ++i) {
                      draw(64);
                  }
                  std::printf(draw(64) == first ? "old block kept" : "old block lost");
              }),
              "bad_alloc bad_alloc old block kept");
}

TEST(BStringBuffer, IsDestroyedAtExit) {
    static long before;
    const ChildResult result = runInChild([] {
        before = RecordingAllocator::liveBlocks();
        // Runs after the destructor of what is made later.
        std::atexit([] {
            char text[64];
            const int n =
                std::snprintf(text, sizeof(text), "%ld at exit", RecordingAllocator::liveBlocks() - before);
            if (::write(STDOUT_FILENO, text, static_cast<std::size_t>(n)) != n) {
                ::_exit(9);
            }
            ::_exit(0);
        });
        for (std::size_t i = 0; i < kSlots; ++i) {
            draw(100);
        }
        if (RecordingAllocator::liveBlocks() - before != static_cast<long>(kSlots)) {
            ::_exit(8);
        }
        std::exit(0);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "0 at exit");
}

// Threads that draw at once get the ten slots and nothing else, each in its turn.
TEST(BStringBuffer, ManyThreadsDrawTheTenSlotsOnly) {
    EXPECT_EQ(outputOfFreshRing([] {
                  constexpr int kThreads = 8;
                  constexpr int kDraws = 5000; // kThreads * kDraws is a multiple of the slots
                  std::array<char*, kSlots> slots{};
                  for (char*& slot : slots) {
                      slot = draw(256);
                  }
                  std::array<std::atomic<int>, kSlots> drawn{};
                  std::atomic<int> strange{0};
                  std::atomic<bool> go{false};
                  std::vector<std::thread> threads;
                  for (int t = 0; t < kThreads; ++t) {
                      threads.emplace_back([&] {
                          while (!go.load()) {
                              std::this_thread::yield();
                          }
                          for (int i = 0; i < kDraws; ++i) {
                              const char* const p = BStringBuffer::GetBuffer().GetNextBuffer(i % 257);
                              const auto slot = std::find(slots.begin(), slots.end(), p);
                              if (slot == slots.end()) {
                                  ++strange;
                              } else {
                                  ++drawn[static_cast<std::size_t>(slot - slots.begin())];
                              }
                          }
                      });
                  }
                  go = true;
                  for (std::thread& thread : threads) {
                      thread.join();
                  }
                  const bool even = std::all_of(drawn.begin(), drawn.end(), [](const std::atomic<int>& n) {
                      return n.load() == kThreads * kDraws / static_cast<int>(kSlots);
                  });
                  std::printf("%d strange, %s", strange.load(), even ? "even" : "uneven");
              }),
              "0 strange, even");
}

// Ten threads with one slot each may write to it, growth included, without meeting each other.
TEST(BStringBuffer, TenSlotsInUseAtOnceDoNotOverlap) {
    EXPECT_EQ(outputOfFreshRing([] {
                  std::atomic<int> ready{0};
                  std::atomic<int> torn{0};
                  std::vector<std::thread> threads;
                  for (std::size_t t = 0; t < kSlots; ++t) {
                      threads.emplace_back([&, t] {
                          const auto mark = static_cast<char>('a' + static_cast<int>(t));
                          const std::size_t size = 100 + 50 * t;
                          ++ready;
                          while (ready.load() != static_cast<int>(kSlots)) {
                              std::this_thread::yield();
                          }
                          char* const p = BStringBuffer::GetBuffer().GetNextBuffer(static_cast<int>(size));
                          for (int round = 0; round < 100; ++round) {
                              std::memset(p, mark, size);
                              torn += std::count(p, p + size, mark) == static_cast<long>(size) ? 0 : 1;
                          }
                      });
                  }
                  for (std::thread& thread : threads) {
                      thread.join();
                  }
                  std::printf("%d torn", torn.load());
              }),
              "0 torn");
}

} // namespace
