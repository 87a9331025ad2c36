#include "Utility/Generic/Portable/memoryallocatorgateway.h"

#include "LoadTime.h"
#include "Wraps.h"

#include <fenmemoryallocator864.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace {

// Plain globals: load time writes them before any thread of the host exists, and a later recomputation writes
// the same values. 0 means not yet computed. The arithmetic is 32-bit and may wrap; isUsable() tells.
struct AllocPadding {
    BRIM_WRAPS static void init() {
        const char* const value = std::getenv("VANTA_HX_ALLOCATION_PADDING");
        const std::uint32_t padding =
            value == nullptr ? 0 : static_cast<std::uint32_t>(std::strtol(value, nullptr, 10));
        const std::uint32_t rounded = (padding + 7U) & ~7U;
        s_offset = rounded + kHeaderSize;
        s_size = 2U * rounded + kHeaderSize;
    }

    static std::uint32_t offset() {
        if (s_offset == 0) {
            init();
        }
        return s_offset;
    }

    static std::uint32_t size() {
        if (s_size == 0) {
            init();
        }
        return s_size;
    }

    // False when a wrapped padding would put the caller's memory over the header or past the block's end.
    static bool isUsable() { return offset() >= kHeaderSize && offset() <= size(); }

    static constexpr std::uint32_t kHeaderSize = 8;
    static std::uint32_t s_offset;
    static std::uint32_t s_size;
};

std::uint32_t AllocPadding::s_offset = 0;
std::uint32_t AllocPadding::s_size = 0;

bool hasOnlyPercentDirectives(const char* text) {
    for (const char* p = std::strchr(text, '%'); p != nullptr; p = std::strchr(p + 2, '%')) {
        if (p[1] != '%') {
            return false;
        }
    }
    return true;
}

void printReportPiece(void* /*context*/, const char* text, std::size_t /*length*/) {
    if (text == nullptr) {
        return;
    }
    if (hasOnlyPercentDirectives(text)) {
// The allocator writes its report as printf formats; this one reads no argument.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
        std::printf(text);
#pragma GCC diagnostic pop
    } else {
        std::fputs(text, stdout);
    }
}

} // namespace

namespace sup::loadtime {

void computeAllocationPadding() {
    AllocPadding::size();
    AllocPadding::offset();
}

} // namespace sup::loadtime

namespace memalloc {

constinit const AllocateFunction g_allocate = &fenmem_800_allocate_dbg;
constinit const FreeFunction g_free = &fenmem_800_free;

void* MemoryAllocatorGateway::allocate(std::size_t size, const char* file, int line) {
    void* const p = fenmem_800_allocate_dbg(size, file, line);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}

void MemoryAllocatorGateway::deallocate(void* p, std::size_t size) noexcept { fenmem_800_free(p, size); }

void* MemoryAllocatorGateway::allocateAndRemeberSize(std::size_t size, const char* file, int line) {
    if (!AllocPadding::isUsable() || size > std::numeric_limits<std::size_t>::max() - AllocPadding::size()) {
        throw std::bad_alloc();
    }
    const std::size_t total = size + AllocPadding::size();
    char* const block = static_cast<char*>(allocate(total, file, line));
    std::memcpy(block, &total, sizeof(total));
    return block + AllocPadding::offset();
}

void MemoryAllocatorGateway::readSizeAndDeallocate(void* p) noexcept {
    if (p == nullptr) {
        return;
    }
    char* const block = static_cast<char*>(p) - AllocPadding::offset();
    std::size_t total = 0;
    std::memcpy(&total, block, sizeof(total));
    deallocate(block, total);
}

void MemoryAllocatorGateway::associateCurrentThread() noexcept { fenmem_800_associate(); }

void MemoryAllocatorGateway::disassociateCurrentThread() noexcept { fenmem_800_disassociate(); }

void MemoryAllocatorGateway::flushCurrentThread() noexcept { fenmem_800_flush(); }

void MemoryAllocatorGateway::compact() noexcept { fenmem_800_compact(); }

bool MemoryAllocatorGateway::enableDefaultThreadAllocationQuota() noexcept {
    return fenmem_800_thread_alloc_enable_default_quota() != 0;
}

bool MemoryAllocatorGateway::disableThreadAllocationQuota() noexcept {
    return fenmem_800_thread_alloc_disable_quota() != 0;
}

void MemoryUtils::dumpMemoryProfileToCout() {
    fenmem_800_log_diagnostics_information(nullptr, printReportPiece);
    std::fflush(stdout);
}

void* MemoryAllocatorHeap::allocate(std::size_t size, const char* file, int line) {
    return MemoryAllocatorGateway::allocateAndRemeberSize(size, file, line);
}

void MemoryAllocatorHeap::deallocate(void* p) noexcept { MemoryAllocatorGateway::readSizeAndDeallocate(p); }

} // namespace memalloc
