// Heap<T>: an owning pointer to one heap object.
#pragma once

#include <utility>

/// Owns the object that it is given and deletes it with `delete`, so a class with operators of its own (see
/// memallocnewdel.h) frees it its own way. May be null. Movable, not copyable; one thread at a time.
template <class T>
class Heap {
public:
    /// Null.
    Heap() noexcept = default;
    /// Takes ownership of `p`, which was made with `new`.
    explicit Heap(T* p) noexcept : m_pObj(p) {}
    /// Takes the other one's object; the object held before is deleted.
    Heap(Heap&& other) noexcept : m_pObj(other.release()) {}
    Heap& operator=(Heap&& other) noexcept {
        reset(other.release());
        return *this;
    }
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;
    ~Heap() { delete m_pObj; }

    /// The object, or null. It stays owned.
    T* get() const noexcept { return m_pObj; }
    T* operator->() const noexcept { return m_pObj; }
    T& operator*() const noexcept { return *m_pObj; }
    /// True when there is an object.
    explicit operator bool() const noexcept { return m_pObj != nullptr; }

    /// Gives the object to the caller and becomes null.
    T* release() noexcept { return std::exchange(m_pObj, nullptr); }
    /// Owns `p` from now on; the object held before is deleted, unless it is `p` itself.
    void reset(T* p = nullptr) noexcept {
        if (p != m_pObj) {
            delete std::exchange(m_pObj, p);
        }
    }

private:
    T* m_pObj = nullptr;
};
