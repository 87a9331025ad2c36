// MemAllocNewdel: a base class whose derived objects, made with `new`, come from the allocator gateway.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>

namespace memalloc {

/// An empty base: no data, no virtual functions. `new (file, line) T` names the allocation site; plain `new
/// T` names this header. Blocks remember their size, so any `delete` form frees them. Objects are aligned to
/// 8 bytes, so a derived class must not ask for more.
class BRIMPORTABLE_API MemAllocNewdel {
public:
    /// A block that remembers its size, for one object or for an array. Throws std::bad_alloc.
    static void* operator new(std::size_t size, const char* file, int line);
    /// Gives it back. Null is ignored.
    static void operator delete(void* p, const char* file, int line) noexcept;
    static void operator delete(void* p) noexcept;
    /// As for one object.
    static void* operator new[](std::size_t size, const char* file, int line);
    static void operator delete[](void* p, const char* file, int line) noexcept;
    /// Construction in place; nothing is allocated, nothing freed.
    static void* operator new(std::size_t, void* where) noexcept { return where; }
    static void operator delete(void*, void*) noexcept {}
    /// As the others.
    static void operator delete[](void* p) noexcept;
    static void* operator new(std::size_t size);
    static void* operator new[](std::size_t size);
};

} // namespace memalloc
