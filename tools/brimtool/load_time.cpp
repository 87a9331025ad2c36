#include "load_time.h"

#include <time.h>

namespace brimtool {

namespace {

// Plain values: nothing of the program has been initialised when they are written.
timespec g_start{};
timespec g_end{};

void noteStart() { ::clock_gettime(CLOCK_MONOTONIC, &g_start); }

// Before the program's other constructors.
__attribute__((constructor(101))) void noteEnd() { ::clock_gettime(CLOCK_MONOTONIC, &g_end); }

} // namespace

std::chrono::nanoseconds loadTime() noexcept {
    return std::chrono::seconds(g_end.tv_sec - g_start.tv_sec) +
           std::chrono::nanoseconds(g_end.tv_nsec - g_start.tv_nsec);
}

} // namespace brimtool

// See standard_streams.cpp.
__attribute__((section(".preinit_array"), used)) static void (*g_beforeLoading)() = brimtool::noteStart;
