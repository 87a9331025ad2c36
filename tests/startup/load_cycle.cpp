// A host that opens the library named by its argument, uses it where it can be used, and closes it, a hundred
// times. Nothing may be left over: no descriptor, no thread-specific key, no mapping, no memory. Threads that
// have used the library may outlive it.
#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <barrier>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <thread>

extern "C" {
__attribute__((weak)) void __lsan_disable();
__attribute__((weak)) void __lsan_enable();
}

namespace {

constexpr int kCycles = 100;
constexpr int kWarmUp = 20;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "load_cycle: %s\n", what.c_str());
    std::exit(1);
}

void require(bool condition, const std::string& what) {
    if (!condition) {
        fail(what);
    }
}

long openDescriptors() {
    DIR* const directory = ::opendir("/proc/self/fd");
    require(directory != nullptr, "/proc/self/fd");
    long count = 0;
    while (::readdir(directory) != nullptr) {
        ++count;
    }
    ::closedir(directory);
    return count;
}

// The lowest key that is free: it rises when keys are left over.
pthread_key_t freeKey() {
    pthread_key_t key = 0;
    require(::pthread_key_create(&key, nullptr) == 0, "thread-specific keys have run out");
    ::pthread_key_delete(key);
    return key;
}

long mappings() {
    std::ifstream maps("/proc/self/maps");
    long count = 0;
    for (std::string line; std::getline(maps, line);) {
        ++count;
    }
    return count;
}

long residentKilobytes() {
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

struct State {
    long descriptors = openDescriptors();
    pthread_key_t key = freeKey();
    long mapped = mappings();
    long resident = residentKilobytes();
};

template <class Function>
Function find(void* library, const char* name) {
    return reinterpret_cast<Function>(::dlsym(library, name));
}

// What the thread keeps in the library is nobody's when it outlives the library.
void useForGood(bool (*use)()) {
    if (__lsan_disable != nullptr) {
        __lsan_disable();
    }
    require(use(), "useTheLibrary on a thread that stays");
    if (__lsan_enable != nullptr) {
        __lsan_enable();
    }
}

void openAndClose(const char* path, int cycle) {
    void* const library = ::dlopen(path, RTLD_NOW | (cycle % 2 == 0 ? RTLD_LOCAL : RTLD_GLOBAL));
    if (library == nullptr) {
        fail("cycle " + std::to_string(cycle) + ": " + ::dlerror());
    }
    std::barrier used(2);
    std::barrier closed(2);
    std::thread thread;
    if (const auto use = find<bool (*)()>(library, "useTheLibrary")) {
        require(use(), "useTheLibrary");
        find<void (*)()>(library, "initializeTheLibrary")();
        if (cycle % 3 == 0) {
            find<void (*)()>(library, "shutTheLibraryDown")();
        }
        std::thread([use] { require(use(), "useTheLibrary on a thread"); }).join();
        if (cycle % 10 == 0) {
            thread = std::thread([&, use] {
                useForGood(use);
                used.arrive_and_wait();
                closed.arrive_and_wait();
            });
            used.arrive_and_wait();
        }
    }
    require(::dlclose(library) == 0, "dlclose");
    require(::dlopen(path, RTLD_NOLOAD | RTLD_NOW) == nullptr, "it is still there after dlclose");
    require(::dlopen("libbrimportable.so.1", RTLD_NOLOAD | RTLD_NOW) == nullptr,
            "the library is still there after dlclose");
    if (thread.joinable()) {
        closed.arrive_and_wait();
        thread.join(); // its end finds nothing of the library
    }
}

} // namespace

// Calibrating the timer a hundred times would take ten seconds.
extern "C" int nanosleep(const struct timespec* time, struct timespec* rest) {
    const struct timespec shortened {
        0, (time->tv_sec * 1'000'000'000 + time->tv_nsec) / 100 % 1'000'000'000
    };
    errno = ::clock_nanosleep(CLOCK_REALTIME, 0, &shortened, rest);
    return errno == 0 ? 0 : -1;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: load_cycle LIBRARY\n");
        return 2;
    }
    for (int cycle = 0; cycle < kWarmUp; ++cycle) {
        openAndClose(argv[1], cycle);
    }
    const State before;
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        openAndClose(argv[1], cycle);
    }
    const State after;
    std::printf("load_cycle: descriptors %ld -> %ld, free key %u -> %u, mappings %ld -> %ld, resident %ld kB "
                "-> %ld kB\n",
                before.descriptors, after.descriptors, before.key, after.key, before.mapped, after.mapped,
                before.resident, after.resident);
    require(after.descriptors == before.descriptors, "descriptors are left open");
    require(after.key == before.key, "thread-specific keys are left over");
#ifndef BRIM_SANITIZED // sanitizers keep freed memory and tables of their own
    require(after.mapped <= before.mapped + 4, "mappings are left over");
    require(after.resident <= before.resident + 1024, "memory is left over");
#endif
    return 0;
}
