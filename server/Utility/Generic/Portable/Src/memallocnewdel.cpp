#include "Utility/Generic/Portable/memallocnewdel.h"

#include "Utility/Generic/Portable/memoryallocatorgateway.h"

namespace memalloc {
namespace {

// The site of a plain `new`, which names none.
constexpr const char* kPlainNewFile = "server/include/Utility/Generic/Portable/memallocnewdel.h";
constexpr int kPlainNewLine = 27;

} // namespace

void* MemAllocNewdel::operator new(std::size_t size, const char* file, int line) {
    return MemoryAllocatorGateway::allocateAndRemeberSize(size, file, line);
}

void MemAllocNewdel::operator delete(void* p, const char* /*file*/, int /*line*/) noexcept {
    MemoryAllocatorGateway::readSizeAndDeallocate(p);
}

void MemAllocNewdel::operator delete(void* p) noexcept { MemoryAllocatorGateway::readSizeAndDeallocate(p); }

void* MemAllocNewdel::operator new[](std::size_t size, const char* file, int line) {
    return MemoryAllocatorGateway::allocateAndRemeberSize(size, file, line);
}

void MemAllocNewdel::operator delete[](void* p, const char* /*file*/, int /*line*/) noexcept {
    MemoryAllocatorGateway::readSizeAndDeallocate(p);
}

void MemAllocNewdel::operator delete[](void* p) noexcept { MemoryAllocatorGateway::readSizeAndDeallocate(p); }

void* MemAllocNewdel::operator new(std::size_t size) {
    return MemoryAllocatorGateway::allocateAndRemeberSize(size, kPlainNewFile, kPlainNewLine);
}

void* MemAllocNewdel::operator new[](std::size_t size) {
    return MemoryAllocatorGateway::allocateAndRemeberSize(size, kPlainNewFile, kPlainNewLine);
}

} // namespace memalloc
