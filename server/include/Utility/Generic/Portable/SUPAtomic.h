// Atomic counters: IntegralAtomic for reference counts, ValueAtomic for everything else.
#pragma once

#include "Utility/Generic/Portable/atomics_linux.h"
#include "Utility/Generic/Portable/memallocnewdel.h"

#include <atomic>

template <class Integer, bool kSequentiallyConsistent>
class IntegralAtomic;

/// A counter with just the memory order that reference counting needs; every member may be called from any
/// thread. `IntegralAtomic<int, false>` counts the strings that share a block.
template <class Integer>
class IntegralAtomic<Integer, false> {
public:
    IntegralAtomic() noexcept = default;
    IntegralAtomic(const IntegralAtomic&) = delete;
    IntegralAtomic& operator=(const IntegralAtomic&) = delete;

    /// Sets the first value, ordered after everything that the thread wrote before.
    void initialize(Integer value) noexcept { m_value.store(value, std::memory_order_release); }
    /// Adds one.
    void increment() noexcept { sup::atomics_linux::addReference(m_value, Integer{1}); }
    /// Returns the new value.
    Integer decrement() noexcept { return sup::atomics_linux::dropReference(m_value, Integer{1}); }
    /// Subtracts one; true when nothing is left.
    bool release() noexcept { return sup::atomics_linux::dropsLastReference(m_value, Integer{1}); }
    /// A plain read. A holder that reads 1 is alone and sees what earlier holders did.
    Integer get() const noexcept { return m_value.load(std::memory_order_acquire); }

private:
    std::atomic<Integer> m_value;
};

/// A sequentially consistent atomic value whose objects, made with `new`, come from the allocator gateway.
template <class T>
class ValueAtomic : public memalloc::MemAllocNewdel {
public:
    ValueAtomic() noexcept : m_value(T{}) {}
    /// Begins with `value`.
    explicit ValueAtomic(T value) noexcept : m_value(value) {}
    ValueAtomic(const ValueAtomic&) = delete;
    ValueAtomic& operator=(const ValueAtomic&) = delete;

    /// Reads and writes the value.
    T get() const noexcept { return m_value.load(); }
    void set(T value) noexcept { m_value.store(value); }
    /// Adds one and returns the new value.
    T increment() noexcept { return ++m_value; }
    /// Subtracts one and returns the new value.
    T decrement() noexcept { return --m_value; }
    /// Stores `desired` if the value is `expected`; otherwise loads it into `expected`. True when it stored.
    bool compareExchange(T& expected, T desired) noexcept {
        return m_value.compare_exchange_strong(expected, desired);
    }

private:
    std::atomic<T> m_value;
};

/// The counter of transcoders.
using AtomicUint32 = ValueAtomic<unsigned int>;
