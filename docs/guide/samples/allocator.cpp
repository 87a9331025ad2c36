#include "Utility/Generic/Portable/SUPString.h"
#include "fenmemoryallocator864.h"

#include <atomic>
#include <cassert>
#include <cstdlib>

// The bytes that the library holds. Any thread may call the functions below.
static std::atomic<std::size_t> held{0};

extern "C" {

void* fenmem_800_allocate_dbg(size_t size, const char*, int) noexcept {
    void* const p = std::malloc(size == 0 ? 1 : size);
    held += p == nullptr ? 0 : size;
    return p;
}
void fenmem_800_free(void* p, size_t size) noexcept {
    held -= p == nullptr ? 0 : size;
    std::free(p);
}
void fenmem_800_compact(void) noexcept {}
void fenmem_800_associate(void) noexcept {}
void fenmem_800_disassociate(void) noexcept {}
void fenmem_800_flush(void) noexcept {}
int fenmem_800_thread_alloc_enable_default_quota(void) noexcept { return 1; }
int fenmem_800_thread_alloc_disable_quota(void) noexcept { return 1; }
void fenmem_800_log_diagnostics_information(void*, void (*)(void*, const char*, size_t)) noexcept {}
}

int main() {
    const std::size_t before = held;
    {
        const BrimString text(1000, L'x');
        assert(held >= before + 1000 * sizeof(wchar_t));
    }
    assert(held == before);
}
