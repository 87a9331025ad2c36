// An allocator library of one's own over malloc. At exit it tells whether it was asked.
#include <fenmemoryallocator864.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

std::atomic<unsigned long> s_requests{0};

struct AtExit {
    ~AtExit() { std::printf("own allocator: %s\n", s_requests == 0 ? "not asked" : "asked"); }
} s_atExit;

} // namespace

void* fenmem_800_allocate_dbg(size_t size, const char* /*file*/, int /*line*/) noexcept {
    ++s_requests;
    return std::malloc(size);
}
void fenmem_800_free(void* p, size_t /*size*/) noexcept { std::free(p); }
void fenmem_800_compact() noexcept {}
void fenmem_800_associate() noexcept {}
void fenmem_800_disassociate() noexcept {}
void fenmem_800_flush() noexcept {}
int fenmem_800_thread_alloc_enable_default_quota() noexcept { return 0; }
int fenmem_800_thread_alloc_disable_quota() noexcept { return 1; }
void fenmem_800_log_diagnostics_information(void* /*context*/,
                                            void (* /*callback*/)(void*, const char*, size_t)) noexcept {}
