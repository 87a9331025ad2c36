#include "Utility/Generic/Portable/memallocnewdel.h"

#include "Utility/Generic/Portable/SUPAtomic.h"
#include "Utility/Generic/Portable/SUPOSBase.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>

using brimtest::AllocationLog;
using brimtest::AllocationRefusal;
using brimtest::AllocationRelease;
using brimtest::AllocationRequest;
using memalloc::MemAllocNewdel;

namespace {

constexpr const char* kFile = "some/source.cpp";
constexpr int kLine = 4321;
constexpr const char* kPlainFile = "server/include/Utility/Generic/Portable/memallocnewdel.h";
constexpr int kPlainLine = 27;

// What a size-remembering block adds, whatever the padding of this process is.
std::size_t overhead() {
    AllocationLog log;
    MemAllocNewdel::operator delete(MemAllocNewdel::operator new(0, kFile, kLine));
    return log.requests().front().size;
}

struct Plain : MemAllocNewdel {
    int value = 5;
    char more[20] = {};
};

struct Counted : MemAllocNewdel {
    Counted() { ++s_alive; }
    ~Counted() { --s_alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    static inline int s_alive = 0;
};

struct Throwing : MemAllocNewdel {
    Throwing() { throw std::runtime_error("constructor"); }
    ~Throwing() = default;
};

struct Base : MemAllocNewdel {
    virtual ~Base() = default;
};
struct Derived : Base {
    ~Derived() override { ++s_destroyed; }
    char more[100] = {};
    static inline int s_destroyed = 0;
};

void expectRequest(const AllocationRequest& request, std::size_t size, const char* file, int line) {
    EXPECT_EQ(request.size, size);
    EXPECT_STREQ(request.file, file);
    EXPECT_EQ(request.line, line);
}

void expectFreed(const AllocationRelease& release, const AllocationRequest& made) {
    EXPECT_EQ(release.block, made.block);
    EXPECT_EQ(release.size, made.size);
}

TEST(MemAllocNewdel, IsAnEmptyBase) {
    EXPECT_TRUE(std::is_empty_v<MemAllocNewdel>);
    EXPECT_FALSE(std::is_polymorphic_v<MemAllocNewdel>);
    EXPECT_TRUE(std::is_destructible_v<MemAllocNewdel>);
    struct Int : MemAllocNewdel {
        int value;
    };
    EXPECT_EQ(sizeof(Int), sizeof(int));
}

TEST(MemAllocNewdel, NewWithASiteRemembersTheSize) {
    const std::size_t added = overhead();
    AllocationLog log;
    const auto* const object = new (kFile, kLine) Plain;
    EXPECT_EQ(object->value, 5);
    delete object;
    ASSERT_EQ(log.requests().size(), 1U);
    ASSERT_EQ(log.releases().size(), 1U);
    expectRequest(log.requests()[0], sizeof(Plain) + added, kFile, kLine);
    expectFreed(log.releases()[0], log.requests()[0]);
}

TEST(MemAllocNewdel, PlainNewNamesTheHeader) {
    const std::size_t added = overhead();
    AllocationLog log;
    delete new Plain;
    ASSERT_EQ(log.requests().size(), 1U);
    ASSERT_EQ(log.releases().size(), 1U);
    expectRequest(log.requests()[0], sizeof(Plain) + added, kPlainFile, kPlainLine);
    expectFreed(log.releases()[0], log.requests()[0]);
}

TEST(MemAllocNewdel, ArraysRememberTheirSizeToo) {
    const std::size_t added = overhead();
    AllocationLog log;
    const auto* const sited = new (kFile, kLine) Plain[3];
    const auto* const plain = new Plain[4];
    EXPECT_EQ(sited[2].value, 5);
    EXPECT_EQ(plain[3].value, 5);
    delete[] plain;
    delete[] sited;
    ASSERT_EQ(log.requests().size(), 2U);
    ASSERT_EQ(log.releases().size(), 2U);
    expectRequest(log.requests()[0], 3 * sizeof(Plain) + added, kFile, kLine);
    expectRequest(log.requests()[1], 4 * sizeof(Plain) + added, kPlainFile, kPlainLine);
    expectFreed(log.releases()[0], log.requests()[1]);
    expectFreed(log.releases()[1], log.requests()[0]);
}

TEST(MemAllocNewdel, ArraysOfObjectsWithDestructorsDestroyEveryOne) {
    AllocationLog log;
    const auto* const objects = new (kFile, kLine) Counted[7];
    EXPECT_EQ(Counted::s_alive, 7);
    delete[] objects;
    EXPECT_EQ(Counted::s_alive, 0);
    ASSERT_EQ(log.requests().size(), 1U);
    ASSERT_EQ(log.releases().size(), 1U);
    expectFreed(log.releases()[0], log.requests()[0]);
}

TEST(MemAllocNewdel, PlacementFormsDoNothing) {
    alignas(Plain) unsigned char storage[sizeof(Plain)];
    AllocationLog log;
    auto* const object = new (static_cast<void*>(storage)) Plain;
    EXPECT_EQ(static_cast<void*>(object), static_cast<void*>(storage));
    object->~Plain();
    void* volatile place = storage; // volatile: the compiler would warn of a release of an array
    MemAllocNewdel::operator delete(place, place);
    EXPECT_THROW(new (static_cast<void*>(storage)) Throwing, std::runtime_error);
    EXPECT_TRUE(log.empty());
}

TEST(MemAllocNewdel, AConstructorThatThrowsGivesTheBlockBack) {
    AllocationLog log;
    EXPECT_THROW(new (kFile, kLine) Throwing, std::runtime_error);
    EXPECT_THROW(new Throwing, std::runtime_error);
    EXPECT_THROW((new (kFile, kLine) Throwing[2]), std::runtime_error);
    EXPECT_THROW((new Throwing[2]), std::runtime_error);
    EXPECT_EQ(log.requests().size(), 4U);
    EXPECT_EQ(log.releases().size(), 4U);
}

TEST(MemAllocNewdel, ARefusalIsBadAlloc) {
    AllocationLog log;
    const auto expectBadAlloc = [](auto make) {
        const AllocationRefusal refusal(1);
        EXPECT_THROW(make(), std::bad_alloc);
        EXPECT_TRUE(refusal.happened());
    };
    expectBadAlloc([] { return new (kFile, kLine) Plain; });
    expectBadAlloc([] { return new Plain; });
    expectBadAlloc([] { return new (kFile, kLine) Plain[3]; });
    expectBadAlloc([] { return new Plain[3]; });
    EXPECT_EQ(log.requests().size(), 4U);
    EXPECT_TRUE(log.releases().empty());
}

TEST(MemAllocNewdel, EveryDeleteFormIgnoresNull) {
    AllocationLog log;
    MemAllocNewdel::operator delete(nullptr);
    MemAllocNewdel::operator delete(nullptr, kFile, kLine);
    MemAllocNewdel::operator delete[](nullptr);
    MemAllocNewdel::operator delete[](nullptr, kFile, kLine);
    EXPECT_TRUE(log.empty());
}

TEST(MemAllocNewdel, AnyDeleteFormFreesAnyBlock) {
    using Free = void (*)(void*);
    const Free forms[] = {[](void* p) { MemAllocNewdel::operator delete(p); },
                          [](void* p) { MemAllocNewdel::operator delete(p, kFile, kLine); },
                          [](void* p) { MemAllocNewdel::operator delete[](p); },
                          [](void* p) { MemAllocNewdel::operator delete[](p, kFile, kLine); }};
    for (const Free freeBlock : forms) {
        AllocationLog log;
        freeBlock(MemAllocNewdel::operator new(9, kFile, kLine));
        freeBlock(MemAllocNewdel::operator new(9));
        freeBlock(MemAllocNewdel::operator new[](9, kFile, kLine));
        freeBlock(MemAllocNewdel::operator new[](9));
        ASSERT_EQ(log.requests().size(), 4U);
        ASSERT_EQ(log.releases().size(), 4U);
        for (std::size_t i = 0; i < 4; ++i) {
            expectFreed(log.releases()[i], log.requests()[i]);
        }
    }
}

TEST(MemAllocNewdel, DeletingThroughABaseFreesTheWholeObject) {
    const std::size_t added = overhead();
    Derived::s_destroyed = 0;
    AllocationLog log;
    const Base* const object = new (kFile, kLine) Derived;
    delete object;
    EXPECT_EQ(Derived::s_destroyed, 1);
    ASSERT_EQ(log.requests().size(), 1U);
    ASSERT_EQ(log.releases().size(), 1U);
    expectRequest(log.requests()[0], sizeof(Derived) + added, kFile, kLine);
    expectFreed(log.releases()[0], log.requests()[0]);
}

template <class T>
class ClassOfTheGateway : public testing::Test {};
using ClassesOfTheGateway =
    testing::Types<sup::String<wchar_t>, sup::String<char>, ValueAtomic<unsigned int>>;
TYPED_TEST_SUITE(ClassOfTheGateway, ClassesOfTheGateway);

TYPED_TEST(ClassOfTheGateway, IsMadeAndFreedThroughIt) {
    EXPECT_TRUE((std::is_base_of_v<MemAllocNewdel, TypeParam>));
    const std::size_t added = overhead();
    AllocationLog log;
    const auto* const object = new TypeParam;
    ASSERT_FALSE(log.requests().empty());
    expectRequest(log.requests()[0], sizeof(TypeParam) + added, kPlainFile, kPlainLine);
    const AllocationRequest made = log.requests()[0];
    delete object;
    expectFreed(log.releases().back(), made);
    EXPECT_EQ(log.requests().size(), log.releases().size());
}

} // namespace
