#include "backend_mimalloc.h"

#include "backend_libc.h"

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mimalloc.h>
#include <pthread.h>

namespace fenmem::mimalloc_backend {

namespace {

// The binary interface that mimalloc.h describes.
constexpr const char* kLibrary = "libmimalloc.so.2";
static_assert(MI_MALLOC_VERSION / 100 == 2, "mimalloc.h does not describe libmimalloc.so.2");

struct Mimalloc {
    decltype(&mi_malloc) malloc;
    decltype(&mi_free) free;
    decltype(&mi_thread_init) threadInit;
    decltype(&mi_thread_done) threadDone;
    decltype(&mi_collect) collect;
    decltype(&mi_stats_print_out) statsPrintOut;
    decltype(&mi_version) version;
};

Mimalloc s_mimalloc;
bool s_opened = false;
pthread_once_t s_once = PTHREAD_ONCE_INIT;

// mimalloc gives the thread that initialises it a heap which it never takes back.
__attribute__((tls_model("initial-exec"))) thread_local bool t_ownsMainHeap = false;

template <class Function>
bool find(void* library, const char* name, Function& function) {
    void* const symbol = dlsym(library, name);
    static_assert(sizeof symbol == sizeof function);
    std::memcpy(&function, &symbol, sizeof symbol);
    return symbol != nullptr;
}

// The library stays open for the life of the process: blocks outlive every user of this provider. Without it
// the C runtime's functions take over, and the report says so.
void openLibrary() {
    Mimalloc& m = s_mimalloc;
    void* const library = dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library != nullptr && find(library, "mi_malloc", m.malloc) && find(library, "mi_free", m.free) &&
        find(library, "mi_thread_init", m.threadInit) && find(library, "mi_thread_done", m.threadDone) &&
        find(library, "mi_collect", m.collect) && find(library, "mi_stats_print_out", m.statsPrintOut) &&
        find(library, "mi_version", m.version)) {
        s_opened = true;
        t_ownsMainHeap = true;
        g_allocate.store(m.malloc, std::memory_order_release);
        g_release.store(m.free, std::memory_order_release);
        return;
    }
    g_allocate.store(&std::malloc, std::memory_order_release);
    g_release.store(&std::free, std::memory_order_release);
}

bool opened() {
    pthread_once(&s_once, openLibrary);
    return s_opened;
}

void* openAndAllocate(std::size_t size) noexcept {
    opened();
    return g_allocate.load(std::memory_order_acquire)(size);
}

void openAndRelease(void* p) noexcept {
    opened();
    g_release.load(std::memory_order_acquire)(p);
}

// Opening while the provider is loaded keeps the dynamic linker out of the first allocation.
[[gnu::constructor]] void openAtLoad() { opened(); }

void writeStatistics(const char* text, void* writer) { *static_cast<ReportWriter*>(writer) << text; }

} // namespace

constinit std::atomic<AllocateFunction> g_allocate{&openAndAllocate};
constinit std::atomic<ReleaseFunction> g_release{&openAndRelease};

void bindThread() noexcept {
    if (opened()) {
        s_mimalloc.threadInit();
    }
}

void unbindThread() noexcept {
    if (!opened()) {
        return;
    }
    if (t_ownsMainHeap) {
        s_mimalloc.collect(false);
        return;
    }
    s_mimalloc.threadInit(); // keeps mimalloc's count of threads right when the thread is not bound
    s_mimalloc.threadDone();
}

void flushThread() noexcept {
    if (opened()) {
        s_mimalloc.collect(false);
    }
}

void compact() noexcept {
    if (opened()) {
        s_mimalloc.collect(true);
    } else {
        libc_backend::compact();
    }
}

void report(ReportWriter& writer) noexcept {
    if (opened()) {
        const int version = s_mimalloc.version();
        writer << "mimalloc " << version / 100 << "." << version / 10 % 10 << "." << version % 10 << "\n";
        s_mimalloc.statsPrintOut(&writeStatistics, &writer);
    } else {
        writer << kLibrary << " cannot be opened; the C runtime's malloc takes its place\n";
        libc_backend::report(writer);
    }
}

} // namespace fenmem::mimalloc_backend
