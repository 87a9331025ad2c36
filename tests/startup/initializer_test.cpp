// The initialiser of the process. Its state is one for the process, so each test asks in a child.
#include "Utility/Generic/Portable/SUPOS.h"

#include "child_process.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

using brimtest::FreshProcess;
using brimtest::runInChild;

namespace {

static_assert(std::is_base_of_v<memalloc::MemAllocNewdel, UtilityInitializer>);
static_assert(std::has_virtual_destructor_v<UtilityInitializer>);
static_assert(sizeof(UtilityInitializer) == sizeof(void*), "no data besides the virtual table");

// Tells of its life on standard output.
class TellingInitializer : public UtilityInitializer {
public:
    explicit TellingInitializer(const char* name) : m_name(name) { tell("made"); }
    ~TellingInitializer() override { tell("deleted"); }

    static bool isWithinEscalation() { return IsWithinEscalatingInitialization(); }
    static void registerSource(const sup::String<char>& name) { RegisterEventSource(name); }

protected:
    void InitializeMapping() override {
        tell("mapping");
        UtilityInitializer::InitializeMapping();
    }

private:
    void tell(const char* what) const {
        std::printf("%s %s%s\n", m_name, what, isWithinEscalation() ? " (escalating)" : "");
    }

    const char* m_name;
};

class FailingInitializer : public UtilityInitializer {
protected:
    void InitializeMapping() override { throw std::runtime_error("mapping"); }
};

void showState() { std::puts(UtilityInitializer::IsInitialized() ? "initialised" : "not initialised"); }

template <class Body>
std::string printed(Body body) {
    const brimtest::ChildResult result = runInChild([&] {
        body();
        std::fflush(stdout);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    return result.output;
}

void initialize(int times) {
    for (; times > 0; --times) {
        UtilityInitializer::Initialize();
    }
}

void shutdown(int times) {
    for (; times > 0; --times) {
        UtilityInitializer::Shutdown();
    }
}

// ---- Pairs ------------------------------------------------------------------------------------------------

TEST(UtilityInitializer, APairInitialisesAndEndsIt) {
    EXPECT_EQ(printed([] {
                  showState();
                  initialize(1);
                  showState();
                  shutdown(1);
                  showState();
              }),
              "not initialised\ninitialised\nnot initialised\n");
}

TEST(UtilityInitializer, NestedPairsEndWithTheOutermost) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::RegisterShutdownCallback([] { std::puts("callback"); });
                  initialize(3);
                  for (int i = 0; i < 3; ++i) {
                      showState();
                      shutdown(1);
                  }
                  showState();
              }),
              "initialised\ninitialised\ninitialised\ncallback\nnot initialised\n");
}

TEST(UtilityInitializer, ShutdownWithoutInitializeDoesNothingAlsoToTheCount) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::RegisterShutdownCallback([] { std::puts("callback"); });
                  shutdown(5);
                  showState();
                  initialize(2);
                  shutdown(1);
                  showState(); // a count below 0 before would have ended it
                  shutdown(1);
                  showState();
              }),
              "not initialised\ninitialised\ncallback\nnot initialised\n");
}

TEST(UtilityInitializer, CanBeInitialisedAnew) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::RegisterShutdownCallback([] { std::puts("callback"); });
                  for (int i = 0; i < 3; ++i) {
                      initialize(2);
                      shutdown(2);
                      showState();
                  }
              }),
              "callback\nnot initialised\ncallback\nnot initialised\ncallback\nnot initialised\n");
}

TEST(UtilityInitializer, IsFreedAtTheEnd) {
    EXPECT_EQ(printed([] {
                  const long blocks = brimtest::RecordingAllocator::liveBlocks();
                  initialize(1);
                  std::printf("%ld\n", brimtest::RecordingAllocator::liveBlocks() - blocks);
                  shutdown(1);
                  std::printf("%ld\n", brimtest::RecordingAllocator::liveBlocks() - blocks);
              }),
              "1\n0\n");
}

TEST(UtilityInitializer, StaysAsItIsWhenMemoryRunsOut) {
    EXPECT_EQ(printed([] {
                  try {
                      const brimtest::AllocationRefusal refusal(1);
                      initialize(1);
                  } catch (const std::bad_alloc&) {
                      std::puts("bad_alloc");
                  }
                  showState();
                  initialize(1);
                  shutdown(1);
                  showState();
              }),
              "bad_alloc\nnot initialised\nnot initialised\n");
}

// ---- A derived initialiser --------------------------------------------------------------------------------

TEST(SetMappingInitializer, InstallsWithoutCalling) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  showState();
                  initialize(1);
                  showState();
                  shutdown(1);
                  showState();
              }),
              "A made\ninitialised\nA mapping\ninitialised\nA deleted\nnot initialised\n");
}

TEST(SetMappingInitializer, EachInitializeCallsTheMapping) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  initialize(3);
                  shutdown(3);
              }),
              "A made\nA mapping\nA mapping\nA mapping\nA deleted\n");
}

TEST(SetMappingInitializer, DeletesTheOneBefore) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  initialize(1);
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("B"));
                  showState();
                  initialize(1);
                  shutdown(2);
                  showState();
              }),
              "A made\nA mapping\nB made (escalating)\nA deleted (escalating)\ninitialised\nB mapping\n"
              "B deleted\nnot initialised\n");
}

TEST(SetMappingInitializer, TheOneThatIsInstalledStays) {
    EXPECT_EQ(printed([] {
                  auto* const initializer = new TellingInitializer("A");
                  UtilityInitializer::SetMappingInitializer(initializer);
                  UtilityInitializer::SetMappingInitializer(initializer);
                  showState();
                  initialize(1);
                  shutdown(1);
              }),
              "A made\ninitialised\nA mapping\nA deleted\n");
}

TEST(SetMappingInitializer, NullTakesItAway) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::SetMappingInitializer(nullptr);
                  showState();
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  UtilityInitializer::SetMappingInitializer(nullptr);
                  showState();
              }),
              "not initialised\nA made\nA deleted\nnot initialised\n");
}

TEST(SetMappingInitializer, DoesNotChangeTheCount) {
    EXPECT_EQ(printed([] {
                  initialize(2);
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  shutdown(1);
                  showState();
                  shutdown(1);
                  showState();
              }),
              "A made (escalating)\ninitialised\nA deleted\nnot initialised\n");
}

TEST(SetMappingInitializer, AShutdownWithoutInitializeIsAFullOneAndLeavesTheCountAtMinusOne) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::RegisterShutdownCallback([] { std::puts("callback"); });
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  shutdown(1);
                  showState();
                  // From -1, two calls count to 1, so that the first end is the last one.
                  initialize(2);
                  shutdown(1);
                  showState();
                  initialize(1);
                  shutdown(1);
                  showState();
              }),
              "A made\ncallback\nA deleted\nnot initialised\ncallback\nnot initialised\n"
              "callback\nnot initialised\n");
}

TEST(UtilityInitializer, AMappingThatThrowsIsNotCounted) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::SetMappingInitializer(new FailingInitializer);
                  for (int i = 0; i < 2; ++i) {
                      try {
                          initialize(1);
                      } catch (const std::runtime_error& error) {
                          std::puts(error.what());
                      }
                  }
                  showState();
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  initialize(1);
                  shutdown(1);
                  showState();
              }),
              "mapping\nmapping\ninitialised\nA made (escalating)\nA mapping\nA deleted\nnot initialised\n");
}

TEST(IsWithinEscalatingInitialization, IsTrueWhileTwoAreAlive) {
    EXPECT_EQ(printed([] {
                  const auto show = [] {
                      std::puts(TellingInitializer::isWithinEscalation() ? "yes" : "no");
                  };
                  show();
                  {
                      const UtilityInitializer one;
                      show();
                      const UtilityInitializer two;
                      show();
                  }
                  show();
                  initialize(2); // one object
                  show();
                  shutdown(2);
                  show();
              }),
              "no\nno\nyes\nno\nno\nno\n");
}

TEST(RegisterEventSource, DoesNothing) {
    EXPECT_EQ(printed([] { TellingInitializer::registerSource("a source"); }), "");
}

// ---- Callbacks --------------------------------------------------------------------------------------------

// Functions whose bodies differ, so that each has an address of its own.
template <int N>
void tellNumber() {
    std::printf("%d ", N);
}

using Callback = void (*)();
constexpr std::array<Callback, 5> kCallbacks = {tellNumber<0>, tellNumber<1>, tellNumber<2>, tellNumber<3>,
                                                tellNumber<4>};

std::array<std::size_t, 5> byAddress() {
    std::array<std::size_t, 5> order = {0, 1, 2, 3, 4};
    std::sort(order.begin(), order.end(), [](std::size_t a, std::size_t b) {
        return std::less<Callback>()(kCallbacks[a], kCallbacks[b]);
    });
    return order;
}

std::string textOf(const std::array<std::size_t, 5>& order) {
    std::string text;
    for (const std::size_t i : order) {
        text += std::to_string(i) + " ";
    }
    return text;
}

TEST(ShutdownCallbacks, RunInTheOrderOfTheirAddresses) {
    std::array<std::size_t, 5> order = byAddress();
    const std::string expected = textOf(order);
    do {
        EXPECT_EQ(printed([&order] {
                      for (const std::size_t i : order) {
                          UtilityInitializer::RegisterShutdownCallback(kCallbacks[i]);
                      }
                      initialize(1);
                      shutdown(1);
                  }),
                  expected)
            << "registered " << textOf(order);
        std::rotate(order.begin(), order.begin() + 1, order.end());
    } while (textOf(order) != expected);
    std::reverse(order.begin(), order.end());
    EXPECT_EQ(printed([&order] {
                  for (const std::size_t i : order) {
                      UtilityInitializer::RegisterShutdownCallback(kCallbacks[i]);
                  }
                  initialize(1);
                  shutdown(1);
              }),
              expected);
}

TEST(ShutdownCallbacks, RunOnceHoweverOftenTheyAreRegistered) {
    EXPECT_EQ(printed([] {
                  for (int i = 0; i < 3; ++i) {
                      UtilityInitializer::RegisterShutdownCallback(tellNumber<1>);
                  }
                  initialize(1);
                  UtilityInitializer::RegisterShutdownCallback(tellNumber<1>);
                  shutdown(1);
              }),
              "1 ");
}

TEST(ShutdownCallbacks, CanBeTakenBack) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::UnregisterShutdownCallback(tellNumber<0>); // never registered
                  UtilityInitializer::RegisterShutdownCallback(tellNumber<1>);
                  UtilityInitializer::RegisterShutdownCallback(tellNumber<2>);
                  UtilityInitializer::RegisterShutdownCallback(tellNumber<1>);
                  UtilityInitializer::UnregisterShutdownCallback(tellNumber<1>);
                  UtilityInitializer::UnregisterShutdownCallback(tellNumber<1>);
                  initialize(1);
                  shutdown(1);
              }),
              "2 ");
}

TEST(ShutdownCallbacks, StayForTheNextTime) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::RegisterShutdownCallback(tellNumber<1>);
                  initialize(1);
                  shutdown(1);
                  initialize(1);
                  shutdown(1);
              }),
              "1 1 ");
}

TEST(ShutdownCallbacks, RunWhileTheInitialiserIsThere) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::RegisterShutdownCallback([] { showState(); });
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  initialize(1);
                  shutdown(1);
              }),
              "A made\nA mapping\ninitialised\nA deleted\n");
}

bool g_mayThrow = true;

void throwing() {
    std::printf("throws ");
    if (g_mayThrow) {
        throw std::runtime_error("callback");
    }
}

void shutdownThatMayThrow() {
    try {
        shutdown(1);
    } catch (const std::runtime_error& error) {
        std::printf("%s ", error.what());
    }
}

TEST(ShutdownCallbacks, OneThatThrowsLeavesTheInitialiserAndTheCountLowered) {
    EXPECT_EQ(printed([] {
                  UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
                  UtilityInitializer::RegisterShutdownCallback(throwing);
                  initialize(2);
                  shutdownThatMayThrow(); // an inner pair ends
                  shutdownThatMayThrow();
                  showState();
                  g_mayThrow = false;
                  initialize(1);
                  shutdownThatMayThrow(); // the only pair left
                  showState();
              }),
              "A made\nA mapping\nA mapping\nthrows callback initialised\nA mapping\nthrows A deleted\n"
              "not initialised\n");
}

TEST(ShutdownCallbacks, OneThatThrowsEndsTheCallForThoseBehindIt) {
    const bool isBefore = std::less<Callback>()(tellNumber<1>, throwing);
    EXPECT_EQ(printed([] {
                  UtilityInitializer::RegisterShutdownCallback(throwing);
                  UtilityInitializer::RegisterShutdownCallback(tellNumber<1>);
                  initialize(1);
                  shutdownThatMayThrow();
              }),
              isBefore ? "1 throws callback " : "throws callback ");
}

// ---- The end of the process -------------------------------------------------------------------------------

const FreshProcess kLeavesItInstalled("leaves it installed", [] {
    UtilityInitializer::SetMappingInitializer(new TellingInitializer("A"));
    UtilityInitializer::RegisterShutdownCallback(tellNumber<1>);
    UtilityInitializer::Initialize();
    std::exit(0);
});

TEST(UtilityInitializer, IsDeletedAtTheEndOfTheProcessWithoutCallbacks) {
    const brimtest::ChildResult result = kLeavesItInstalled.run();
    EXPECT_EQ(result.exitCode(), 0);
    EXPECT_EQ(result.output, "A made\nA mapping\nA deleted\n");
}

// Tidies up after itself, as one that registers callbacks does.
class TidyInitializer : public UtilityInitializer {
public:
    ~TidyInitializer() override {
        UnregisterShutdownCallback(tellNumber<1>);
        RegisterShutdownCallback(tellNumber<2>);
        std::puts("tidied");
    }
};

const FreshProcess kTidiesAtTheEnd("tidies at the end", [] {
    for (const Callback callback : kCallbacks) {
        UtilityInitializer::RegisterShutdownCallback(callback);
    }
    UtilityInitializer::SetMappingInitializer(new TidyInitializer);
    std::exit(0);
});

TEST(UtilityInitializer, MayUnregisterCallbacksWhenItIsDeletedAtTheEndOfTheProcess) {
    const brimtest::ChildResult result = kTidiesAtTheEnd.run();
    EXPECT_EQ(result.exitCode(), 0);
    EXPECT_EQ(result.output, "tidied\n");
}

const FreshProcess kNeverUsed("never used", [] { std::exit(0); });

TEST(UtilityInitializer, NeedNotBeUsed) {
    const brimtest::ChildResult result = kNeverUsed.run();
    EXPECT_EQ(result.exitCode(), 0);
    EXPECT_EQ(result.output, "");
}

} // namespace
