// AutoBuffer<T, N>: an array with N elements inline that moves to the heap when it grows;
// HeapedAutoBuffer<T>: the same without inline elements. Functions take the common base, AutoBufferBase<T>,
// by reference.
//
// A buffer has a capacity and no length: callers keep count of what they use. Elements are plain data (they
// are copied as bytes and not initialised). One buffer belongs to one thread.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

/// The common part of the buffers below: what a function takes that works with any of them.
template <class T>
class BRIMPORTABLE_API AutoBufferBase {
    static_assert(std::is_trivially_copyable<T>::value && std::is_trivially_destructible<T>::value,
                  "elements are copied as bytes");

public:
    /// A copy has storage of its own with the same contents and capacity.
    AutoBufferBase(const AutoBufferBase& other) : AutoBufferBase(nullptr, 0) { copyFrom(other); }
    AutoBufferBase& operator=(const AutoBufferBase& other) {
        copyFrom(other);
        return *this;
    }
    ~AutoBufferBase() { freeStorage(); }

    /// The elements that there is room for.
    std::size_t capacity() const noexcept { return m_nCapacity; }
    /// The elements, valid until the next growth. Null while there is no room.
    T* data() noexcept { return m_p; }
    const T* data() const noexcept { return m_p; }

    /// Makes room for `n` elements in all. The contents stay. Throws std::bad_alloc, the buffer unchanged.
    void reserve(std::size_t n) { make_room(n, true); }
    /// The same.
    void grow(std::size_t n) { make_room(n, true); }
    /// Makes room for `n` elements in all; the contents are undefined after a growth.
    void growNoPreserve(std::size_t n) { make_room(n, false); }

protected:
    /// Begins with the storage of a derived buffer.
    AutoBufferBase(T* pStatic, std::size_t nStaticCapacity) noexcept
        : m_p(pStatic), m_nCapacity(nStaticCapacity), m_nStaticCapacity(nStaticCapacity), m_pStatic(pStatic) {
    }

    /// Takes the contents of `other`, in storage of its own.
    void copyFrom(const AutoBufferBase& other) {
        if (this == &other) {
            return;
        }
        make_room(other.m_nCapacity, false);
        if (other.m_nCapacity != 0) {
            std::memcpy(m_p, other.m_p, other.m_nCapacity * sizeof(T));
        }
    }

private:
    static constexpr std::size_t kSmallestHeapCapacity = 64;
    static constexpr int kExactGrowths = 2;
    static constexpr const char* kAllocationFile = "server/include/Utility/Generic/Portable/SUPAutobuffer.h";
    static constexpr int kAllocationLine = 96;

    // The first two growths beyond the smallest block are exact, since many buffers grow once and are thrown
    // away; later ones double.
    void make_room(std::size_t n, bool preserve) {
        if (n <= m_nCapacity) {
            return;
        }
        std::size_t newCapacity = m_nCapacity < kSmallestHeapCapacity ? kSmallestHeapCapacity : m_nCapacity;
        const bool exact = newCapacity < n && m_nCount < kExactGrowths;
        if (exact) {
            newCapacity = n;
        }
        while (newCapacity < n) {
            if (newCapacity > std::numeric_limits<std::size_t>::max() / 2) {
                throw std::bad_alloc();
            }
            newCapacity *= 2;
        }
        if (newCapacity > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
            throw std::bad_alloc();
        }
        T* const storage = static_cast<T*>(
            BrimNodeAlloc::allocate(newCapacity * sizeof(T), kAllocationFile, kAllocationLine));
        if (preserve && m_nCapacity != 0) {
            std::memcpy(storage, m_p, m_nCapacity * sizeof(T));
        }
        freeStorage();
        m_p = storage;
        m_nCapacity = newCapacity;
        if (exact) {
            ++m_nCount;
        }
    }

    void freeStorage() noexcept {
        if (m_p != m_pStatic && m_p != nullptr) {
            BrimNodeAlloc::deallocate(m_p, m_nCapacity * sizeof(T));
        }
    }

    T* m_p;
    std::size_t m_nCapacity;
    std::size_t m_nStaticCapacity;
    int m_nCount = 0;
    T* m_pStatic;
};

/// Room for `N` elements inline, and for more on the heap. Contents are undefined at first.
template <class T, std::size_t N>
class BRIMPORTABLE_API AutoBuffer : public AutoBufferBase<T> {
public:
    /// With room for `N` elements.
    AutoBuffer() noexcept : AutoBufferBase<T>(m_static, N) {}
    /// A copy of the contents.
    AutoBuffer(const AutoBuffer& other) : AutoBufferBase<T>(m_static, N) { this->copyFrom(other); }
    AutoBuffer& operator=(const AutoBuffer& other) {
        this->copyFrom(other);
        return *this;
    }

private:
    T m_static[N];
};

/// All room on the heap, none at first.
template <class T>
class HeapedAutoBuffer : public AutoBufferBase<T> {
public:
    /// Without room.
    HeapedAutoBuffer() noexcept : AutoBufferBase<T>(nullptr, 0) {}
    /// With room for `initialCapacity` elements. Throws std::bad_alloc.
    explicit HeapedAutoBuffer(std::size_t initialCapacity) : HeapedAutoBuffer() {
        this->reserve(initialCapacity);
    }
    HeapedAutoBuffer(const HeapedAutoBuffer&) = default;
    HeapedAutoBuffer& operator=(const HeapedAutoBuffer&) = default;
};

extern template class AutoBufferBase<wchar_t>;
extern template class AutoBufferBase<char>;
extern template class AutoBufferBase<unsigned short>;
extern template class AutoBuffer<unsigned short, 256>; // UTF-16 text for the XML parser
