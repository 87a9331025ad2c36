#include "Utility/Generic/Portable/SUPHeapOwner.h"

#include "Utility/Generic/Portable/memallocnewdel.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

using brimtest::AllocationLog;

namespace {

struct Item {
    explicit Item(int v = 0) : value(v) { ++s_alive; }
    ~Item() { --s_alive; }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;

    int value;
    static inline int s_alive = 0;
};

struct Base {
    virtual ~Base() = default;
};
struct Derived : Base {
    ~Derived() override { ++s_destroyed; }
    static inline int s_destroyed = 0;
};

struct OfTheGateway : memalloc::MemAllocNewdel {
    int value = 3;
};

static_assert(!std::is_copy_constructible_v<Heap<Item>>);
static_assert(!std::is_copy_assignable_v<Heap<Item>>);
static_assert(std::is_nothrow_move_constructible_v<Heap<Item>>);
static_assert(std::is_nothrow_move_assignable_v<Heap<Item>>);
static_assert(!std::is_convertible_v<Item*, Heap<Item>>);
static_assert(sizeof(Heap<Item>) == sizeof(Item*));

class HeapOfItems : public testing::Test {
protected:
    void SetUp() override { Item::s_alive = 0; }
    void TearDown() override { EXPECT_EQ(Item::s_alive, 0); }
};

TEST_F(HeapOfItems, MayBeNull) {
    const Heap<Item> none;
    const Heap<Item> null(nullptr);
    EXPECT_EQ(none.get(), nullptr);
    EXPECT_EQ(null.get(), nullptr);
    EXPECT_FALSE(static_cast<bool>(none));
}

TEST_F(HeapOfItems, OwnsItsObject) {
    {
        auto* const item = new Item(7);
        const Heap<Item> owner(item);
        EXPECT_EQ(owner.get(), item);
        EXPECT_EQ(owner->value, 7);
        EXPECT_EQ(&*owner, item);
        EXPECT_TRUE(static_cast<bool>(owner));
        EXPECT_EQ(Item::s_alive, 1);
    }
    EXPECT_EQ(Item::s_alive, 0);
}

TEST_F(HeapOfItems, MovingHandsTheObjectOver) {
    auto* const item = new Item;
    Heap<Item> first(item);
    Heap<Item> second(std::move(first));
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(second.get(), item);

    Heap<Item> third(new Item);
    third = std::move(second);
    EXPECT_EQ(second.get(), nullptr);
    EXPECT_EQ(third.get(), item);
    EXPECT_EQ(Item::s_alive, 1) << "what the target held is gone";

    third = Heap<Item>();
    EXPECT_EQ(Item::s_alive, 0);
}

TEST_F(HeapOfItems, MovingToItselfKeepsTheObject) {
    auto* const item = new Item;
    Heap<Item> owner(item);
    Heap<Item>& same = owner;
    owner = std::move(same);
    EXPECT_EQ(owner.get(), item);
    EXPECT_EQ(Item::s_alive, 1);
}

TEST_F(HeapOfItems, ReleaseGivesTheObjectToTheCaller) {
    auto* const item = new Item;
    {
        Heap<Item> owner(item);
        EXPECT_EQ(owner.release(), item);
        EXPECT_EQ(owner.get(), nullptr);
        EXPECT_EQ(owner.release(), nullptr);
    }
    EXPECT_EQ(Item::s_alive, 1);
    delete item;
}

TEST_F(HeapOfItems, ResetReplacesTheObject) {
    Heap<Item> owner(new Item(1));
    auto* const item = new Item(2);
    owner.reset(item);
    EXPECT_EQ(owner.get(), item);
    EXPECT_EQ(Item::s_alive, 1);
    owner.reset(item);
    EXPECT_EQ(owner->value, 2) << "its own object stays";
    owner.reset();
    EXPECT_EQ(owner.get(), nullptr);
    EXPECT_EQ(Item::s_alive, 0);
}

TEST(Heap, DeletesThroughAVirtualDestructor) {
    Derived::s_destroyed = 0;
    { const Heap<Base> owner(new Derived); }
    EXPECT_EQ(Derived::s_destroyed, 1);
}

TEST(Heap, DeletesThroughTheOperatorOfTheClass) {
    AllocationLog log;
    {
        const Heap<OfTheGateway> owner(new ("some/source.cpp", 1) OfTheGateway);
        EXPECT_EQ(owner->value, 3);
        EXPECT_EQ(log.requests().size(), 1U);
        EXPECT_TRUE(log.releases().empty());
    }
    ASSERT_EQ(log.releases().size(), 1U);
    EXPECT_EQ(log.releases()[0].block, log.requests()[0].block);
    EXPECT_EQ(log.releases()[0].size, log.requests()[0].size);
}

TEST(Heap, ThatIsNullFreesNothing) {
    AllocationLog log;
    { const Heap<OfTheGateway> owner; }
    EXPECT_TRUE(log.empty());
}

} // namespace
