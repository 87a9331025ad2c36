// A library with the bad manner to print when it is loaded and unloaded, through stdio and past it, and to
// abort at load when NOISY_ABORT is set.
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

__attribute__((constructor)) void printAtLoad() {
    std::printf("buffered at load\n");
    if (::write(STDOUT_FILENO, "direct at load\n", 15) != 15) {
        std::perror("write");
    }
    if (std::getenv("NOISY_ABORT") != nullptr) {
        std::abort();
    }
}

__attribute__((destructor)) void printAtUnload() { std::printf("buffered at unload\n"); }

} // namespace
