// Child processes of a test: what they write to standard output, and how they end.
#pragma once

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace brimtest {

struct ChildResult {
    std::string output; // standard output
    std::string atLoad; // of a FreshProcess: what was printed before its body ran
    int status = 0;     // as waitpid() gives it

    /// The exit code; -1 when a signal ended the child.
    int exitCode() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
    /// The signal that ended the child; 0 when it exited.
    int signal() const { return WIFSIGNALED(status) ? WTERMSIG(status) : 0; }
};

inline std::ostream& operator<<(std::ostream& stream, const ChildResult& result) {
    return stream << "exit code " << result.exitCode() << ", signal " << result.signal() << ", output \""
                  << result.output << '"';
}

/// Runs `body` in a fork of this process, its standard output a pipe. The child ends with _exit(0) when
/// `body` returns, so what it left unflushed is lost and does not show in the result. A failed expectation
/// inside the child does not reach the parent, and an exception out of `body` gives exit code 99.
template <class Body>
ChildResult runInChild(Body body) {
    ChildResult result;
    int ends[2] = {-1, -1};
    std::fflush(nullptr);
    if (::pipe(ends) != 0) {
        ADD_FAILURE() << "pipe: " << std::strerror(errno);
        return result;
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
        try {
            body();
        } catch (...) {
            ::_exit(99);
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    if (child < 0) {
        ADD_FAILURE() << "fork: " << std::strerror(errno);
        ::close(ends[0]);
        return result;
    }
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(ends[0], buffer, sizeof(buffer));
        if (n > 0) {
            result.output.append(buffer, static_cast<std::size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    ::close(ends[0]);
    while (::waitpid(child, &result.status, 0) == -1 && errno == EINTR) {
    }
    return result;
}

/// Gives this process, a child, a standard output on which nothing was printed yet: it is neither narrow nor
/// wide.
inline void renewStandardOutput() {
    std::fflush(stdout);
    stdout = ::fdopen(::dup(STDOUT_FILENO), "w");
}

/// One change of the environment: a null value removes the variable.
struct EnvironmentChange {
    const char* name;
    const char* value;
};

/// A body that runs in a fresh process, for what is read when a program is loaded. Make it at namespace
/// scope:
///
///   const brimtest::FreshProcess kPrintsItsHome("PrintsItsHome", [] { std::puts(std::getenv("HOME")); });
///
/// run() starts this test program anew; there the object runs its body before main(), flushes standard output
/// and ends the process with exit code 0. The body must not rely on dynamically initialised objects. What
/// libraries print while they are loaded is told apart from what the body prints; a process that ends while
/// it is loaded has it all in `output`.
class FreshProcess {
public:
    using Body = void (*)();

    FreshProcess(const char* name, Body body) : m_name(name) {
        const char* const asked = std::getenv(kVariable);
        if (asked != nullptr && std::strcmp(asked, name) == 0) {
            std::fflush(stdout);
            [[maybe_unused]] const ssize_t n = ::write(STDOUT_FILENO, &kBodyStarts, 1);
            body();
            std::fflush(stdout);
            ::_exit(0);
        }
    }

    ChildResult run(const std::vector<EnvironmentChange>& changes = {}) const {
        ChildResult result = runInChild([&] {
            for (const EnvironmentChange& change : changes) {
                if (change.value == nullptr) {
                    ::unsetenv(change.name);
                } else {
                    ::setenv(change.name, change.value, 1);
                }
            }
            ::setenv(kVariable, m_name, 1);
            ::execl("/proc/self/exe", "fresh process", static_cast<char*>(nullptr));
            ::_exit(98);
        });
        const std::size_t start = result.output.find(kBodyStarts);
        if (start != std::string::npos) {
            result.atLoad = result.output.substr(0, start);
            result.output.erase(0, start + 1);
        }
        return result;
    }

private:
    static constexpr const char* kVariable = "BRIM_TEST_FRESH_PROCESS";
    static constexpr char kBodyStarts = '\x1E';
    const char* m_name;
};

} // namespace brimtest
