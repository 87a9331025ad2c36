#include "standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

namespace brimtool {

namespace {

int g_dataOutput = -1;

bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

// A standard descriptor that is closed would be given to the next file that is opened, which then would
// receive messages. What takes its place can neither be read nor holds anything.
void occupy(int descriptor) {
    const int null = ::open("/dev/null", O_WRONLY);
    if (null != descriptor && null != -1) {
        ::dup2(null, descriptor);
        ::close(null);
    }
}

void separateDataFromMessages() {
    g_dataOutput = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (!isOpen(STDIN_FILENO)) {
        occupy(STDIN_FILENO);
    }
    if (!isOpen(STDERR_FILENO)) {
        occupy(STDERR_FILENO);
    }
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
}

} // namespace

int dataOutput() noexcept { return g_dataOutput; }

} // namespace brimtool

// The functions listed in an executable's .preinit_array run before the constructors of the libraries that it
// loads.
__attribute__((section(".preinit_array"),
               used)) static void (*g_beforeAllConstructors)() = brimtool::separateDataFromMessages;
