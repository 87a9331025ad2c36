// A child process at a terminal of its own, and the hand at its keyboard.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>

namespace brimtest {

/// Runs a body whose standard streams are a new terminal, in its foreground and with the default action of
/// every terminal signal. What the body puts into report() comes back by finish(). Waiting calls give up,
/// and fail the test, after a minute.
///
/// Between this process and the body stands the leader of the terminal's session: it outlives the body, so
/// the terminal keeps the settings that the body left.
class TerminalChild {
public:
    template <class Body>
    explicit TerminalChild(Body body) {
        int slave = -1;
        int events[2];
        int reports[2];
        int leash[2];
        std::fflush(nullptr);
        if (::openpty(&m_master, &slave, nullptr, nullptr, nullptr) != 0 || ::pipe(events) != 0 ||
            ::pipe(reports) != 0 || ::pipe(leash) != 0) {
            ADD_FAILURE() << "no terminal";
            return;
        }
        m_leader = ::fork();
        if (m_leader == 0) {
            ::close(m_master);
            ::close(leash[1]);
            ::close(events[0]);
            ::close(reports[0]);
            lead(slave, events[1], reports[1], leash[0], body);
        }
        ::close(slave);
        ::close(events[1]);
        ::close(reports[1]);
        ::close(leash[0]);
        m_events = events[0];
        m_reports = reports[0];
        m_leash = leash[1];
        m_child = nextEvent();
    }
    ~TerminalChild() {
        if (!m_isOver && m_child > 0) {
            ::kill(m_child, SIGKILL);
        }
        for (const int descriptor : {m_leash, m_events, m_reports}) {
            ::close(descriptor);
        }
        if (m_leader > 0) {
            ::waitpid(m_leader, nullptr, 0);
        }
        ::close(m_master);
    }
    TerminalChild(const TerminalChild&) = delete;
    TerminalChild& operator=(const TerminalChild&) = delete;

    /// In the body: keeps `text` for finish().
    static void report(const std::string& text) {
        [[maybe_unused]] const ssize_t n = ::write(s_report, text.data(), text.size());
    }

    pid_t id() const { return m_child; }
    bool echoes() const {
        struct termios settings = {};
        EXPECT_EQ(::tcgetattr(m_master, &settings), 0);
        return (settings.c_lflag & static_cast<tcflag_t>(ECHO)) != 0;
    }
    void awaitEcho(bool on) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        while (echoes() != on) {
            if (std::chrono::steady_clock::now() > end) {
                ADD_FAILURE() << "the echo never came " << (on ? "on" : "off");
                return;
            }
            ::sched_yield();
        }
    }
    void type(const std::string& keys) const {
        EXPECT_EQ(::write(m_master, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    /// Returns what the terminal shows, up to and with `text`.
    std::string awaitOutput(const std::string& text) {
        while (m_output.find(text) == std::string::npos) {
            char buffer[512];
            const ssize_t n = readSoon(m_master, buffer, sizeof(buffer));
            if (n <= 0) {
                ADD_FAILURE() << '"' << text << "\" does not appear after \"" << m_output << '"';
                return m_output;
            }
            m_output.append(buffer, static_cast<std::size_t>(n));
        }
        const std::size_t length = m_output.find(text) + text.size();
        const std::string shown = m_output.substr(0, length);
        m_output.erase(0, length);
        return shown;
    }
    /// The signal that stops the body next.
    int awaitStop() {
        const int status = nextEvent();
        return WIFSTOPPED(status) ? WSTOPSIG(status) : -1;
    }
    struct Result {
        int exitCode; // -1 when a signal ended the body
        int signal;   // 0 when it returned
        std::string report;
    };
    Result finish() {
        const int status = nextEvent();
        Result result{
            WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0, {}};
        char buffer[512];
        for (ssize_t n; (n = readSoon(m_reports, buffer, sizeof(buffer))) > 0;) {
            result.report.append(buffer, static_cast<std::size_t>(n));
        }
        return result;
    }

private:
    template <class Body>
    [[noreturn]] static void lead(int slave, int events, int reports, int leash, Body body) {
        ::login_tty(slave);
        ::signal(SIGHUP, SIG_IGN);
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(events);
            ::close(leash);
            s_report = reports;
            takeForeground();
            body();
            ::_exit(0);
        }
        ::close(reports);
        tell(events, child);
        int status = 0;
        do {
            while (::waitpid(child, &status, WUNTRACED) == -1 && errno == EINTR) {
            }
            tell(events, status);
        } while (WIFSTOPPED(status));
        char end = 0;
        [[maybe_unused]] const ssize_t n = ::read(leash, &end, 1);
        ::_exit(0);
    }
    static void takeForeground() {
        const struct rlimit noCore = {0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        ::signal(SIGTTOU, SIG_IGN); // for the change from the background
        ::setpgid(0, 0);
        ::tcsetpgrp(STDIN_FILENO, ::getpid());
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGTTIN, SIGTTOU}) {
            ::signal(signal, SIG_DFL);
        }
    }
    static void tell(int events, int value) {
        [[maybe_unused]] const ssize_t n = ::write(events, &value, sizeof(value));
    }
    int nextEvent() {
        int value = kNoEvent;
        struct pollfd sources[] = {{m_events, POLLIN, 0}, {m_master, POLLIN, 0}};
        while (::poll(sources, 2, kPatience) > 0 && sources[0].revents == 0) {
            char buffer[512]; // a full terminal would hold the child up
            const ssize_t n = ::read(m_master, buffer, sizeof(buffer));
            m_output.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
        }
        if (sources[0].revents == 0 || ::read(m_events, &value, sizeof(value)) != sizeof(value)) {
            ADD_FAILURE() << "the child neither stops nor ends; it shows " << m_output;
        }
        m_isOver = m_child > 0 && !WIFSTOPPED(value) && value != kNoEvent;
        return value;
    }
    static ssize_t readSoon(int descriptor, void* buffer, std::size_t size) {
        struct pollfd source = {descriptor, POLLIN, 0};
        int ready = 0;
        while ((ready = ::poll(&source, 1, kPatience)) == -1 && errno == EINTR) {
        }
        return ready == 1 ? ::read(descriptor, buffer, size) : -1;
    }

    static constexpr int kPatience = 60000; // milliseconds
    static constexpr int kNoEvent = -1;
    static inline int s_report = -1;

    int m_master = -1;
    int m_events = -1;
    int m_reports = -1;
    int m_leash = -1;
    pid_t m_leader = -1;
    pid_t m_child = -1;
    bool m_isOver = false;
    std::string m_output;
};

} // namespace brimtest
