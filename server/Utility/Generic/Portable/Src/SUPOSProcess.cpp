// The process: its identity, its terminal, commands, call stacks, memory, random numbers.
#include "Utility/Generic/Portable/SUPOS.h"

#include "DiagnosticOutput.h"
#include "LoadTime.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cxxabi.h>
#include <execinfo.h>
#include <fcntl.h>
#include <iterator>
#include <mutex>
#include <poll.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>

namespace {

using String = sup::String<wchar_t>;

constexpr int kMostFirstLine = 512;
constexpr std::size_t kMostLoginName = 512;

String widen(const char* text) {
    return BaseStringUtil::StringFrom(text, SystemUtility::GetMultiByteCodePage());
}

std::size_t withoutLineEnd(const char* line, std::size_t length) {
    for (int i = 0; i < 2 && length != 0 && (line[length - 1] == '\n' || line[length - 1] == '\r'); ++i) {
        --length;
    }
    return length;
}

} // namespace

// ---- Identity ---------------------------------------------------------------------------------------------

int SystemUtility::GetCurrentProcessID() noexcept { return ::getpid(); }

pthread_t SystemUtility::GetCurrentThreadID() noexcept { return ::pthread_self(); }

sup::String<wchar_t> SystemUtility::GetCurrentProcessName() { return widen(program_invocation_short_name); }

bool SystemUtility::GetOSLoginName(String& name, String& error, int length) {
    char login[kMostLoginName];
    const int failure = ::getlogin_r(login, sizeof(login));
    if (failure != 0) {
        GetSystemErrorString(failure, error);
        return false;
    }
    name = widen(login).substr(0, static_cast<std::size_t>(std::max(length, 0)));
    return true;
}

int SystemUtility::GetNumberOfLogicalProcessors() noexcept {
    return static_cast<int>(std::max(::sysconf(_SC_NPROCESSORS_ONLN), 1L));
}

// ---- Random numbers ---------------------------------------------------------------------------------------

namespace {

// Threads that draw at once may draw the same number, no worse.
constinit std::atomic<unsigned int> g_seed{0};

} // namespace

void SystemUtility::SetSeedValue(unsigned int seed) noexcept {
    g_seed.store(seed, std::memory_order_relaxed);
}

int SystemUtility::BrimRand_to_rand_r() noexcept {
    unsigned int seed = g_seed.load(std::memory_order_relaxed);
    const int value = ::rand_r(&seed);
    g_seed.store(seed, std::memory_order_relaxed);
    return value;
}

void sup::loadtime::seedRandomNumbers() {
    SystemUtility::SetSeedValue(SystemUtility::GetTimeInMilliSeconds());
}

// ---- First lines ------------------------------------------------------------------------------------------

namespace {

// A signal that the host handles is no end of a pipe.
int nextByte(std::FILE* stream) {
    int c = std::getc(stream);
    while (c == EOF && std::ferror(stream) != 0 && errno == EINTR) {
        std::clearerr(stream);
        c = std::getc(stream);
    }
    return c;
}

// At most `length` bytes, without the line end.
String readFirstLine(std::FILE* stream, int length) {
    AutoBuffer<char, kMostFirstLine + 1> line;
    const std::size_t most = static_cast<std::size_t>(length);
    line.growNoPreserve(most + 1);
    std::size_t count = 0;
    for (int c = 0; count < most && c != '\n' && (c = nextByte(stream)) != EOF;) {
        line.data()[count++] = static_cast<char>(c);
    }
    line.data()[withoutLineEnd(line.data(), count)] = '\0';
    return widen(line.data());
}

} // namespace

sup::String<wchar_t> SystemUtility::GetFirstLineFromExecutable(const String& command, int length) {
    sup::String<char> narrow;
    if (length <= 0 || !BaseStringUtil::TryStringToStdString(command, narrow, GetMultiByteCodePage())) {
        return {};
    }
    std::FILE* const pipe = ::popen(narrow.c_str(), "r");
    if (pipe == nullptr) {
        return {};
    }
    String line;
    try {
        line = readFirstLine(pipe, length);
    } catch (...) {
        ::pclose(pipe);
        throw;
    }
    ::pclose(pipe);
    return line;
}

sup::String<wchar_t> SystemUtility::GetFirstLineFromFile(const String& path, bool viaPipe) {
    if (viaPipe) {
        return GetFirstLineFromExecutable(path, kMostFirstLine);
    }
    std::FILE* const file = OSAbstraction::g_wfopenFuncPtr(path.c_str(), L"r");
    if (file == nullptr) {
        return {};
    }
    String line;
    try {
        line = readFirstLine(file, kMostFirstLine);
    } catch (...) {
        std::fclose(file);
        throw;
    }
    std::fclose(file);
    return line;
}

// ---- The terminal -----------------------------------------------------------------------------------------

void SystemUtility::SetTerminalEcho(bool on) {
    struct termios settings;
    if (::tcgetattr(STDIN_FILENO, &settings) == 0) {
        if (on) {
            settings.c_lflag |= static_cast<tcflag_t>(ECHO);
        } else {
            settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        }
        ::tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    }
}

void SystemUtility::PrintMultiByteString(const char* text, bool lineFeed, bool flush) {
    text = text == nullptr ? "" : text;
    if (std::fwide(stdout, 0) > 0) {
        sup::DiagnosticLine().text(text).text(lineFeed ? "\n" : "");
        return;
    }
    std::fputs(text, stdout);
    if (lineFeed) {
        std::putchar('\n');
    }
    if (flush) {
        std::fflush(stdout);
    }
}

namespace {

// The signals that end or stop a process at its terminal.
constexpr int kTerminalSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGTTIN, SIGTTOU};

// Atomic, since a signal may reach any thread; lock-free, as a handler needs it.
constinit std::atomic<int> g_terminalSignal{0};
constinit std::atomic<int> g_signalPipe{-1}; // wakes the reader
static_assert(std::atomic<int>::is_always_lock_free);

void noteTerminalSignal(int signal) {
    const int error = errno;
    g_terminalSignal = signal;
    const ssize_t written = ::write(g_signalPipe, "", 1);
    static_cast<void>(written); // one byte in the pipe is enough
    errno = error;
}

// While it lives the echo is off, and a signal ends the read instead of the process.
class SilentTerminal {
public:
    SilentTerminal() {
        g_terminalSignal = 0;
        // A pipe would take the number of a standard input that is closed.
        if (::fcntl(STDIN_FILENO, F_GETFD) == -1 || ::pipe2(m_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
            return;
        }
        g_signalPipe = m_pipe[1];
        struct sigaction note {};
        note.sa_handler = noteTerminalSignal;
        ::sigemptyset(&note.sa_mask);
        for (std::size_t i = 0; i < std::size(kTerminalSignals); ++i) {
            ::sigaction(kTerminalSignals[i], nullptr, &m_before[i]);
            if (m_before[i].sa_handler != SIG_IGN) { // what the host ignores stays ignored
                ::sigaction(kTerminalSignals[i], &note, nullptr);
            }
        }
        SystemUtility::SetTerminalEcho(false);
    }
    ~SilentTerminal() {
        if (!isReady()) {
            return;
        }
        SystemUtility::SetTerminalEcho(true);
        for (std::size_t i = 0; i < std::size(kTerminalSignals); ++i) {
            ::sigaction(kTerminalSignals[i], &m_before[i], nullptr);
        }
        g_signalPipe = -1;
        ::close(m_pipe[0]);
        ::close(m_pipe[1]);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    bool isReady() const { return m_pipe[0] != -1; }

    // Waits until standard input can be read; false when a signal came first.
    bool awaitInput() const {
        struct pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {m_pipe[0], POLLIN, 0}};
        while (::poll(sources, std::size(sources), -1) < 0 && errno == EINTR) {
        }
        return sources[1].revents == 0;
    }

private:
    int m_pipe[2] = {-1, -1};
    struct sigaction m_before[std::size(kTerminalSignals)];
};

enum class ReadEnd { line, endOfInput, signal };

// Reads through the line end; bytes beyond `capacity` are dropped. None stays in the stream's buffer.
ReadEnd readSecretLine(const SilentTerminal& terminal, char* buffer, std::size_t capacity,
                       std::size_t& length) {
    ReadEnd end = ReadEnd::endOfInput;
    length = 0;
    for (int c = 0; c != '\n';) {
        const bool isBuffered = stdin->_IO_read_ptr != stdin->_IO_read_end;
        if (!isBuffered && !terminal.awaitInput()) {
            end = ReadEnd::signal;
            break;
        }
        c = std::getc(stdin);
        if (c == EOF) {
            std::clearerr(stdin);
            break;
        }
        end = ReadEnd::line;
        if (length < capacity) {
            buffer[length++] = static_cast<char>(c);
        }
    }
    if (stdin->_IO_read_ptr != stdin->_IO_read_base) {
        ::explicit_bzero(stdin->_IO_read_base,
                         static_cast<std::size_t>(stdin->_IO_read_ptr - stdin->_IO_read_base));
    }
    // An earlier and longer read has left its end behind that of the last one.
    if (stdin->_IO_read_end != nullptr && stdin->_IO_read_base == stdin->_IO_buf_base) {
        ::explicit_bzero(stdin->_IO_read_end,
                         static_cast<std::size_t>(stdin->_IO_buf_end - stdin->_IO_read_end));
    }
    return end;
}

} // namespace

bool SystemUtility::GetPasswordFromTerminal(const char* prompt, char* buffer, int length) {
    if (buffer == nullptr || length <= 0) {
        return false;
    }
    static constinit std::mutex oneReader; // of the signals' old actions
    const std::lock_guard<std::mutex> lock(oneReader);
    const auto capacity = static_cast<std::size_t>(length) - 1;
    ReadEnd end = ReadEnd::line;
    std::size_t count = 0;
    bool isStopped = false;
    do {
        PrintMultiByteString(prompt, false, true);
        {
            const SilentTerminal terminal;
            end =
                terminal.isReady() ? readSecretLine(terminal, buffer, capacity, count) : ReadEnd::endOfInput;
        }
        PrintMultiByteString("", true, true);
        const int signal = g_terminalSignal; // one may have come after the line
        isStopped = end == ReadEnd::signal && (signal == SIGTSTP || signal == SIGTTIN || signal == SIGTTOU);
        if (end == ReadEnd::signal) {
            ::explicit_bzero(buffer, capacity + 1);
        }
        if (signal != 0) {
            ::raise(signal); // now to the action that the host has for it
        }
    } while (isStopped); // and continued: the line is asked for again
    buffer[end == ReadEnd::line ? withoutLineEnd(buffer, count) : 0] = '\0';
    return end == ReadEnd::line;
}

// ---- Memory -----------------------------------------------------------------------------------------------

namespace {

// The bytes that a line "name:   n kB" of /proc tells; false when there is no such line.
bool findKilobytes(std::string_view table, std::string_view name, std::uint64_t& bytes) {
    for (std::size_t at = table.find(name); at != std::string_view::npos; at = table.find(name, at + 1)) {
        if (at == 0 || table[at - 1] == '\n') {
            bytes = std::strtoull(table.data() + at + name.size(), nullptr, 10) * 1024;
            return true;
        }
    }
    return false;
}

class ProcFile {
public:
    explicit ProcFile(const char* path) {
        if (std::FILE* const file = std::fopen(path, "re")) {
            m_length = std::fread(m_text, 1, sizeof(m_text) - 1, file);
            std::fclose(file);
        }
    }
    std::string_view text() const { return {m_text, m_length}; }

private:
    char m_text[8192] = {};
    std::size_t m_length = 0;
};

} // namespace

bool SystemUtility::GetMemStat(SUMemStat& stat) {
    stat = SUMemStat();
    const ProcFile process("/proc/self/status");
    const ProcFile machine("/proc/meminfo");
    SUMemStat found{};
    if (!findKilobytes(process.text(), "VmRSS:", found.resident) ||
        !findKilobytes(process.text(), "VmSize:", found.virtualSize) ||
        !findKilobytes(process.text(), "VmHWM:", found.peak) ||
        !findKilobytes(machine.text(), "MemAvailable:", found.free) ||
        !findKilobytes(machine.text(), "MemTotal:", found.total)) {
        return false;
    }
    stat = found;
    return true;
}

// ---- Call stacks ------------------------------------------------------------------------------------------

namespace {

using NarrowString = sup::String<char>;

NarrowString stringOf(std::string_view text) { return NarrowString(text.data(), text.size()); }

// The name that a person wrote, or the one in the symbol table.
NarrowString demangled(const NarrowString& symbol) {
    if (std::strncmp(symbol.c_str(), "_Z", 2) != 0) { // the demangler takes a C function "i" for the type int
        return symbol;
    }
    int status = 0;
    char* const name = abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status);
    if (name == nullptr) {
        return symbol;
    }
    NarrowString result;
    try {
        result = name;
    } catch (...) {
        std::free(name);
        throw;
    }
    std::free(name);
    return result;
}

// `line` is "module(symbol+offset) [address]"; other forms stay as they are.
NarrowString resolvedLine(std::string_view line) {
    const std::size_t open = line.rfind('('); // the path of a module may have some, too
    const std::size_t plus = line.find('+', open == std::string_view::npos ? line.size() : open);
    const std::size_t close = line.find(')', plus == std::string_view::npos ? line.size() : plus);
    if (close == std::string_view::npos) {
        return stringOf(line);
    }
    const NarrowString symbol = stringOf(line.substr(open + 1, plus - open - 1));
    NarrowString result = stringOf(line.substr(0, open));
    result.append(" : ");
    if (!symbol.empty()) {
        result.append(demangled(symbol)).append("()");
    }
    return result.append("+").append(stringOf(line.substr(plus + 1, close - plus - 1)));
}

} // namespace

void CallStack::Init() noexcept {
    m_lines.clear();
    void* frames[kMostFrames + 1];
    const int count = ::backtrace(frames, kMostFrames + 1);
    m_nFrames = std::max(count - 1, 0); // the first is this function
    std::copy_n(frames + 1, m_nFrames, m_frames);
}

void CallStack::ResolveSymbols() {
    m_lines.clear();
    char** const symbols = ::backtrace_symbols(m_frames, m_nFrames);
    if (symbols == nullptr) {
        return;
    }
    try {
        for (int i = 0; i < m_nFrames; ++i) {
            m_lines.push_back(resolvedLine(symbols[i]));
        }
    } catch (...) {
        std::free(symbols);
        throw;
    }
    std::free(symbols);
}

std::size_t CallStack::ToString(char* buffer, std::size_t size) const noexcept {
    if (size == 0) {
        return 0;
    }
    std::size_t length = 0;
    const auto add = [&](const char* text, std::size_t count) {
        const std::size_t fits = std::min(count, size - 1 - length);
        std::memcpy(buffer + length, text, fits);
        length += fits;
    };
    for (const NarrowString& line : m_lines) {
        add("\n", length == 0 ? 0 : 1);
        add(line.c_str(), line.length());
    }
    buffer[length] = '\0';
    return length;
}

std::size_t CallStack::FillToString(wchar_t* buffer, std::size_t size) const {
    if (size == 0) {
        return 0;
    }
    String text;
    for (const NarrowString& line : m_lines) {
        text.append(text.empty() ? L"" : L"\n").append(widen(line.c_str()));
    }
    const std::size_t length = std::min(text.length(), size - 1);
    std::copy_n(text.begin(), length, buffer);
    buffer[length] = L'\0';
    return length;
}

void SystemUtility::GetCurrentCallStack(CallStack& stack) noexcept { stack.Init(); }
