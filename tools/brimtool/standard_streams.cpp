#include "standard_streams.h"

#include <csignal>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace brimtool {

namespace {

constexpr std::string_view kNoLocaleFile = "Xml File Not Found error number -9, ";

int g_dataOutput = -1;
int g_loadMessages = -1; // a file in memory; -1 when messages are not held

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

void writeMessage(const char* text, std::size_t length) {
    // There is nobody left to tell when this fails.
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text, length);
}

// Only calls that a signal handler may make.
void showAllLoadMessages(int /*signal*/) {
    char buffer[1024];
    ssize_t length = 0;
    ::lseek(g_loadMessages, 0, SEEK_SET);
    while ((length = ::read(g_loadMessages, buffer, sizeof(buffer))) > 0) {
        writeMessage(buffer, static_cast<std::size_t>(length));
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
    g_loadMessages = ::memfd_create("load messages", MFD_CLOEXEC);
    if (g_loadMessages == -1) {
        return;
    }
    ::dup2(g_loadMessages, STDOUT_FILENO);
    std::signal(SIGABRT, showAllLoadMessages);
}

std::string takeLoadMessages() {
    std::string text;
    const off_t length = ::lseek(g_loadMessages, 0, SEEK_END);
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        const ssize_t got = ::pread(g_loadMessages, text.data(), text.size(), 0);
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    return text;
}

} // namespace

int dataOutput() noexcept { return g_dataOutput; }

void showLoadMessages() {
    if (g_loadMessages == -1) {
        return;
    }
    std::signal(SIGABRT, SIG_DFL);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    const std::string messages = takeLoadMessages();
    ::close(g_loadMessages);
    g_loadMessages = -1;
    for (std::string_view rest = messages; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n') + 1); // all of it without a line feed
        const std::string_view shown = line.empty() ? rest : line;
        if (shown.compare(0, kNoLocaleFile.size(), kNoLocaleFile) != 0) {
            writeMessage(shown.data(), shown.size());
        }
        rest.remove_prefix(shown.size());
    }
}

} // namespace brimtool

// The functions listed in an executable's .preinit_array run before the constructors of the libraries that it
// loads.
__attribute__((section(".preinit_array"),
               used)) static void (*g_beforeAllConstructors)() = brimtool::separateDataFromMessages;
