#include "backend_libc.h"

#include <malloc.h>

#ifdef FENMEM_SANITIZER_HEAP
#    include <cstdio>

// Every sanitizer runtime with a heap defines these; the header that declares them comes with Clang only.
extern "C" int __sanitizer_get_ownership(const volatile void* p);
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* p);
#endif

namespace fenmem::libc_backend {

#ifdef FENMEM_SANITIZER_HEAP

namespace {
// Sanitizers count an empty block as one byte.
std::size_t countedSize(std::size_t size) { return size == 0 ? 1 : size; }
} // namespace

void* allocate(std::size_t size) noexcept { return std::malloc(countedSize(size)); }

void release(void* p, std::size_t size) noexcept {
    // A block that is not live is left to free(), whose message is the better one.
    if (__sanitizer_get_ownership(p) != 0 && __sanitizer_get_allocated_size(p) != countedSize(size)) {
        std::fprintf(stderr, "fenmem_800_free: block of %zu bytes freed with size %zu\n",
                     __sanitizer_get_allocated_size(p), size);
        std::abort();
    }
    std::free(p);
}

#endif

void compact() noexcept { malloc_trim(0); }

void report(ReportWriter& writer) noexcept {
    const struct mallinfo2 info = mallinfo2();
    const auto line = [&writer](const char* label, std::size_t bytes) {
        writer << label << static_cast<long long>(bytes) << " bytes\n";
    };
    writer << "C runtime heap, all threads:\n";
    line("  in use: ", info.uordblks + info.hblkhd);
    line("  free in arenas: ", info.fordblks);
    line("  arenas: ", info.arena);
    line("  mapped single blocks: ", info.hblkhd);
    line("  releasable at the top: ", info.keepcost);
}

} // namespace fenmem::libc_backend
