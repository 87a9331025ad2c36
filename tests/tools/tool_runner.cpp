#include "tool_runner.h"

#include <fcntl.h>
#include <iconv.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace brimtest {

namespace {

// Writes what is left of the input; closes the end when it is done or nobody reads any more.
void feed(int& end, const std::string& input, std::size_t& at, std::size_t step) {
    const std::size_t length = std::min(step == 0 ? input.size() - at : step, input.size() - at);
    if (length != 0) {
        const ssize_t n = ::send(end, input.data() + at, length, MSG_NOSIGNAL);
        if (n >= 0) {
            at += static_cast<std::size_t>(n);
        } else if (errno != EAGAIN && errno != EINTR) {
            at = input.size();
        }
    }
    if (at == input.size()) {
        ::close(end);
        end = -1;
    }
}

void drain(int& end, std::string& text) {
    char buffer[65536];
    const ssize_t n = ::read(end, buffer, sizeof(buffer));
    if (n > 0) {
        text.append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0) {
        ::close(end);
        end = -1;
    }
}

void clearEnvironment() {
    std::vector<std::pair<std::string, std::string>> kept;
    for (const char* const name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
        if (const char* const value = std::getenv(name)) {
            kept.emplace_back(name, value);
        }
    }
    ::clearenv();
    for (const auto& [name, value] : kept) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const ToolResult& result) {
    return stream << "exit code " << result.exitCode << ", signal " << result.signal << ", "
                  << result.output.size() << " bytes of output, errors \"" << result.errors << '"';
}

ToolResult ToolRun::run() const {
    // A packet socket hands out one packet a read, however slowly the reader comes.
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    const int kind = readLength == 0 ? SOCK_STREAM : SOCK_SEQPACKET;
    if (::socketpair(AF_UNIX, kind | SOCK_CLOEXEC, 0, in.data()) != 0 ||
        ::pipe2(out.data(), O_CLOEXEC) != 0 || ::pipe2(err.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipes");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        if (hasOwnEnvironment) {
            clearEnvironment();
        }
        for (const auto& [name, value] : environment) {
            ::setenv(name.c_str(), value.c_str(), 1);
        }
        std::vector<char*> argv;
        std::string program = BRIMTOOL_PATH;
        argv.push_back(program.data());
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        if (setUp) {
            setUp();
        }
        ::execv(program.c_str(), argv.data());
        ::_exit(97);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    for (const int end : {in[1], out[0], err[0]}) {
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    ToolResult result;
    std::size_t fed = 0;
    while (in[1] != -1 || out[0] != -1 || err[0] != -1) {
        std::array<pollfd, 3> ends{{{in[1], POLLOUT, 0}, {out[0], POLLIN, 0}, {err[0], POLLIN, 0}}};
        ::poll(ends.data(), ends.size(), -1);
        if (ends[0].revents != 0) {
            feed(in[1], input, fed, readLength);
        }
        if (ends[1].revents != 0) {
            drain(out[0], result.output);
        }
        if (ends[2].revents != 0) {
            drain(err[0], result.errors);
        }
    }
    int status = 0;
    rusage usage{};
    while (::wait4(child, &status, 0, &usage) == -1 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.maxResidentKilobytes = usage.ru_maxrss;
    return result;
}

ToolRun transcodeRun(const std::string& from, const std::string& to, std::string input,
                     const std::vector<std::string>& more) {
    ToolRun run;
    run.arguments = {"transcode", "--from", from, "--to", to};
    run.arguments.insert(run.arguments.end(), more.begin(), more.end());
    run.input = std::move(input);
    return run;
}

TemporaryDirectory::TemporaryDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "brimtool_test.XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary directory");
    }
    m_path = name;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::vector<std::string> TemporaryDirectory::names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

std::string systemIconv(const std::string& from, const std::string& to, const std::string& text) {
    const iconv_t converter = ::iconv_open(to.c_str(), from.c_str());
    if (converter == reinterpret_cast<iconv_t>(-1)) {
        ADD_FAILURE() << "iconv does not know " << from << " or " << to;
        return {};
    }
    std::string converted(4 * text.size() + 16, '\0');
    std::string source = text;
    char* in = source.data();
    std::size_t inLeft = source.size();
    char* out = converted.data();
    std::size_t outLeft = converted.size();
    const bool failed = ::iconv(converter, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1);
    ::iconv_close(converter);
    converted.resize(failed ? 0 : converted.size() - outLeft);
    return converted;
}

} // namespace brimtest
