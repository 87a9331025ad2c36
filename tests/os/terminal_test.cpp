#include "Utility/Generic/Portable/SUPOS.h"

#include "child_process.h"
#include "terminal_child.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <future>
#include <initializer_list>
#include <string>
#include <thread>
#include <vector>

using brimtest::runInChild;
using brimtest::TerminalChild;

namespace {

// Raised when the echo is switched on; 0 for none.
int g_raisedWithTheEcho = 0;

} // namespace

// The program's definition wins over the C library's for the library under test.
extern "C" int tcsetattr(int descriptor, int when, const struct termios* settings) noexcept {
    if ((settings->c_lflag & static_cast<tcflag_t>(ECHO)) != 0 && g_raisedWithTheEcho != 0) {
        ::raise(g_raisedWithTheEcho);
    }
    using Function = int(int, int, const struct termios*);
    static const auto real = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, "tcsetattr"));
    return real(descriptor, when, settings);
}

namespace {

// "result:text" of a question with room for `length` bytes.
std::string ask(int length = 64, const char* prompt = "Password: ") {
    std::vector<char> buffer(static_cast<std::size_t>(std::max(length, 1)) + 1, '#');
    const bool result = SystemUtility::GetPasswordFromTerminal(prompt, buffer.data(), length);
    const std::string text(buffer.data(), ::strnlen(buffer.data(), buffer.size()));
    return (buffer.back() == '#' ? "" : "beyond the buffer ") + std::string(result ? "1:" : "0:") + text;
}

// A braced list is worked off from left to right.
std::string joined(std::initializer_list<std::string> texts) {
    std::string all;
    for (const std::string& text : texts) {
        all += all.empty() ? text : " " + text;
    }
    return all;
}

// ---- PrintMultiByteString

TEST(PrintMultiByteString, PrintsOnANarrowStream) {
    constexpr struct {
        const char* text;
        bool lineFeed;
        const char* shown;
    } kCases[] = {{"text", false, "text"},
                  {"text", true, "text\n"},
                  {"", true, "\n"},
                  {"", false, ""},
                  {nullptr, true, "\n"},
                  {nullptr, false, ""},
                  {"100% %s %n", true, "100% %s %n\n"},
                  {"caf\xC3\xA9\xFF", false, "caf\xC3\xA9\xFF"}};
    for (const auto& one : kCases) {
        for (const bool flush : {true, false}) {
            const auto child = runInChild([&] {
                SystemUtility::PrintMultiByteString(one.text, one.lineFeed, flush);
                [[maybe_unused]] const ssize_t n = ::write(STDOUT_FILENO, "|", 1);
                std::fflush(stdout);
            });
            EXPECT_EQ(child.output, flush ? one.shown + std::string("|") : std::string("|") + one.shown);
        }
    }
}

TEST(PrintMultiByteString, PrintsOnAWideStreamInOrder) {
    for (const char* const locale : {"C", "C.UTF-8"}) {
        const auto child = runInChild([&] {
            std::setlocale(LC_ALL, locale);
            brimtest::renewStandardOutput();
            std::fwide(stdout, 1);
            std::wprintf(L"wide ");
            SystemUtility::PrintMultiByteString("caf\xC3\xA9 %s\xFF", true, true);
            std::wprintf(L"again ");
            SystemUtility::PrintMultiByteString(nullptr, true, false);
            SystemUtility::PrintMultiByteString("", false, true);
            std::wprintf(L"%d", std::fwide(stdout, 0) > 0 ? 1 : 0);
            std::fflush(stdout);
        });
        EXPECT_EQ(child.output, "wide caf\xC3\xA9 %s\xFF\nagain \n1") << locale;
    }
}

// ---- SetTerminalEcho

TEST(SetTerminalEcho, SwitchesTheEchoAtOnceAndNothingElse) {
    TerminalChild child([] {
        struct termios before = {};
        struct termios off = {};
        struct termios on = {};
        ::tcgetattr(STDIN_FILENO, &before);
        SystemUtility::SetTerminalEcho(false);
        SystemUtility::SetTerminalEcho(false);
        ::tcgetattr(STDIN_FILENO, &off);
        SystemUtility::SetTerminalEcho(true);
        SystemUtility::SetTerminalEcho(true);
        ::tcgetattr(STDIN_FILENO, &on);
        const auto echo = static_cast<tcflag_t>(ECHO);
        TerminalChild::report((before.c_lflag & echo) != 0 && off.c_lflag == (before.c_lflag & ~echo) &&
                                      off.c_iflag == before.c_iflag && on.c_lflag == before.c_lflag
                                  ? "as it should"
                                  : "otherwise");
    });
    EXPECT_EQ(child.finish().report, "as it should");
}

TEST(SetTerminalEcho, LeavesWhatIsNoTerminalAlone) {
    const auto child = runInChild([] {
        ::close(STDIN_FILENO);
        SystemUtility::SetTerminalEcho(false);
        ::open("/dev/null", O_RDONLY);
        SystemUtility::SetTerminalEcho(true);
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
}

// ---- GetPasswordFromTerminal at a terminal

TEST(GetPasswordFromTerminal, ReadsALineThatNobodySees) {
    TerminalChild child([] {
        TerminalChild::report(ask());
        SystemUtility::PrintMultiByteString("done", true, true);
    });
    EXPECT_EQ(child.awaitOutput("Password: "), "Password: ");
    child.awaitEcho(false);
    child.type("open sesame\n");
    EXPECT_EQ(child.awaitOutput("done\r\n"), "\r\ndone\r\n");
    const TerminalChild::Result result = child.finish();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.report, "1:open sesame");
    EXPECT_TRUE(child.echoes());
}

TEST(GetPasswordFromTerminal, KeepsAnEmptyLineEmpty) {
    TerminalChild child([] { TerminalChild::report(ask()); });
    child.awaitOutput("Password: ");
    child.awaitEcho(false);
    child.type("\n");
    EXPECT_EQ(child.finish().report, "1:");
    EXPECT_TRUE(child.echoes());
}

TEST(GetPasswordFromTerminal, EndsWithTheInput) {
    TerminalChild child([] {
        TerminalChild::report(ask());
        TerminalChild::report(" " + ask(64, "Again: ")); // the end of input does not stick
    });
    child.awaitOutput("Password: ");
    child.awaitEcho(false);
    child.type("\x04");
    child.awaitOutput("Again: ");
    child.awaitEcho(false);
    child.type("half a line\x04\x04");
    EXPECT_EQ(child.finish().report, "0: 1:half a line");
    EXPECT_TRUE(child.echoes());
}

TEST(GetPasswordFromTerminal, SwitchesTheEchoOnWhateverItWasBefore) {
    TerminalChild child([] {
        SystemUtility::SetTerminalEcho(false);
        TerminalChild::report(ask());
    });
    child.awaitOutput("Password: ");
    child.awaitEcho(false);
    child.type("x\n");
    EXPECT_EQ(child.finish().report, "1:x");
    EXPECT_TRUE(child.echoes());
}

volatile std::sig_atomic_t g_handled = 0;
void handle(int signal) { g_handled = signal; }

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

TEST(GetPasswordFromTerminal, ReturnsFalseAfterASignalThatTheHostHandles) {
    for (const int signal : kEndingSignals) {
        SCOPED_TRACE(::strsignal(signal));
        TerminalChild child([signal] {
            struct sigaction action = {};
            action.sa_handler = handle;
            action.sa_flags = SA_RESTART;
            ::sigaction(signal, &action, nullptr);
            const std::string answer = ask();
            struct sigaction after = {};
            ::sigaction(signal, nullptr, &after);
            TerminalChild::report(answer + " " + std::to_string(g_handled) +
                                  (after.sa_handler == handle ? " kept" : " lost"));
        });
        child.awaitOutput("Password: ");
        child.awaitEcho(false);
        ::kill(child.id(), signal);
        const TerminalChild::Result result = child.finish();
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.report, "0: " + std::to_string(signal) + " kept");
        EXPECT_TRUE(child.echoes());
    }
}

TEST(GetPasswordFromTerminal, LetsASignalEndTheProcessWithTheEchoOn) {
    for (const int signal : kEndingSignals) {
        SCOPED_TRACE(::strsignal(signal));
        TerminalChild child([] { TerminalChild::report(ask()); });
        child.awaitOutput("Password: ");
        child.awaitEcho(false);
        ::kill(child.id(), signal);
        const TerminalChild::Result result = child.finish();
        EXPECT_EQ(result.signal, signal);
        EXPECT_EQ(result.report, "");
        EXPECT_TRUE(child.echoes());
    }
}

TEST(GetPasswordFromTerminal, EndsByTheInterruptKey) {
    TerminalChild child([] { TerminalChild::report(ask()); });
    child.awaitOutput("Password: ");
    child.awaitEcho(false);
    child.type("half\x03");
    EXPECT_EQ(child.finish().signal, SIGINT);
    EXPECT_TRUE(child.echoes());
}

TEST(GetPasswordFromTerminal, GoesOnThroughASignalThatTheHostIgnores) {
    TerminalChild child([] {
        ::signal(SIGINT, SIG_IGN);
        ::signal(SIGTSTP, SIG_IGN);
        const std::string answer = ask();
        struct sigaction after = {};
        ::sigaction(SIGINT, nullptr, &after);
        TerminalChild::report(answer + (after.sa_handler == SIG_IGN ? " ignored" : " not ignored"));
    });
    child.awaitOutput("Password: ");
    child.awaitEcho(false);
    ::kill(child.id(), SIGINT);
    ::kill(child.id(), SIGTSTP);
    child.type("\x03kept\n"); // the key drops what was typed before it
    EXPECT_EQ(child.finish().report, "1:kept ignored");
    EXPECT_TRUE(child.echoes());
}

TEST(GetPasswordFromTerminal, LosesNoSignalThatComesAfterTheLine) {
    for (const int signal : {SIGINT, SIGTERM, SIGTSTP}) {
        SCOPED_TRACE(::strsignal(signal));
        TerminalChild child([signal] {
            ::signal(signal, handle);
            g_raisedWithTheEcho = signal;
            const std::string answer = ask();
            TerminalChild::report(answer + " " + std::to_string(g_handled));
        });
        child.awaitOutput("Password: ");
        child.awaitEcho(false);
        child.type("complete\n");
        EXPECT_EQ(child.finish().report, "1:complete " + std::to_string(signal));
        EXPECT_TRUE(child.echoes());
    }
}

TEST(GetPasswordFromTerminal, AsksAgainAfterAStop) {
    TerminalChild child([] { TerminalChild::report(ask()); });
    for (int i = 0; i < 2; ++i) {
        child.awaitOutput("Password: ");
        child.awaitEcho(false);
        child.type("dropped\x1A");
        EXPECT_EQ(child.awaitStop(), SIGTSTP);
        EXPECT_TRUE(child.echoes());
        ::kill(child.id(), SIGCONT);
    }
    child.awaitOutput("Password: ");
    child.awaitEcho(false);
    child.type("anew\n");
    EXPECT_EQ(child.finish().report, "1:anew");
    EXPECT_TRUE(child.echoes());
}

TEST(GetPasswordFromTerminal, WakesUpWhenAnotherThreadGetsTheSignal) {
    TerminalChild child([] {
        ::signal(SIGINT, handle);
        int ends[2];
        if (::pipe(ends) != 0) {
            ::_exit(97);
        }
        std::promise<void> started;
        std::thread other([&ends, &started] {
            started.set_value();
            struct pollfd end = {ends[0], POLLIN, 0};
            while (::poll(&end, 1, -1) == -1 && errno == EINTR) {
            }
        });
        started.get_future().wait();
        sigset_t interrupt;
        ::sigemptyset(&interrupt);
        ::sigaddset(&interrupt, SIGINT);
        ::pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
        const std::string answer = ask();
        ::pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
        ::close(ends[1]);
        other.join();
        TerminalChild::report(answer + " " + std::to_string(g_handled));
    });
    child.awaitOutput("Password: ");
    child.awaitEcho(false);
    ::kill(child.id(), SIGINT);
    EXPECT_EQ(child.finish().report, "0: " + std::to_string(SIGINT));
    EXPECT_TRUE(child.echoes());
}

// ---- GetPasswordFromTerminal from a pipe

// Makes a pipe this process's standard input; writes reach it.
class PipedInput {
public:
    explicit PipedInput(const std::string& text) {
        int ends[2];
        if (::pipe(ends) != 0) {
            ::_exit(97);
        }
        ::dup2(ends[0], STDIN_FILENO);
        ::close(ends[0]);
        m_end = ends[1];
        write(text);
    }
    void write(const std::string& text) const {
        [[maybe_unused]] const ssize_t n = ::write(m_end, text.data(), text.size());
    }
    void end() { ::close(m_end); }

private:
    int m_end;
};

// What `answers` returns in a child that has `input`, and then nothing, to read.
template <class Answers>
std::string answersTo(const std::string& input, Answers answers) {
    const auto child = runInChild([&] {
        const int output = ::dup(STDOUT_FILENO);
        ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
        PipedInput pipe(input);
        pipe.end();
        const std::string text = answers();
        [[maybe_unused]] const ssize_t n = ::write(output, text.data(), text.size());
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
    return child.output;
}

TEST(GetPasswordFromTerminal, GivesTheLineWithoutItsEnd) {
    const struct {
        const char* input;
        int length;
        const char* answer;
    } kCases[] = {
        {"secret\n", 64, "1:secret"},
        {"secret\r\n", 64, "1:secret"},
        {"secret", 64, "1:secret"},
        {"secret\r", 64, "1:secret"},
        {"secret\r\r\n", 64, "1:secret\r"},
        {" se cret \n", 64, "1: se cret "},
        {"ge\xC3\xA4\xFF\n", 64, "1:ge\xC3\xA4\xFF"},
        {"\n", 64, "1:"},
        {"\r\n", 64, "1:"},
        {"\r", 64, "1:"},
        {"\r\r\r\n", 64, "1:\r\r"},
        {"", 64, "0:"},
        {"secret\n", 7, "1:secret"},
        {"secret\r\n", 7, "1:secret"},
        {"secret\r\n", 8, "1:secret"},
        {"secret\n", 6, "1:secre"},
        {"secret\n", 2, "1:s"},
        {"secret\n", 1, "1:"},
        {"\n", 1, "1:"},
        {"", 1, "0:"},
    };
    for (const auto& one : kCases) {
        EXPECT_EQ(answersTo(one.input, [&] { return ask(one.length); }), one.answer)
            << testing::PrintToString(one.input) << ", " << one.length;
    }
}

TEST(GetPasswordFromTerminal, DropsTheRestOfALongLineAndNoMore) {
    const std::string input = std::string(10000, 'x') + "\nnext\nlast\n";
    EXPECT_EQ(answersTo(input, [] { return joined({ask(5), ask(1), ask()}); }), "1:xxxx 1: 1:last");
}

TEST(GetPasswordFromTerminal, LeavesACarriageReturnAfterTheLineToTheNextOne) {
    EXPECT_EQ(answersTo("one\n\rtwo\n\r", [] { return joined({ask(), ask(), ask()}); }), "1:one 1:\rtwo 1:");
}

TEST(GetPasswordFromTerminal, RefusesABufferOfNothingAndReadsNothing) {
    EXPECT_EQ(answersTo("secret\n",
                        [] {
                            char untouched = '#';
                            const bool any = SystemUtility::GetPasswordFromTerminal("", nullptr, 10) ||
                                             SystemUtility::GetPasswordFromTerminal("", &untouched, 0) ||
                                             SystemUtility::GetPasswordFromTerminal("", &untouched, -1);
                            return std::string(any ? "true " : "false ") + untouched + " " + ask();
                        }),
              "false # 1:secret");
}

TEST(GetPasswordFromTerminal, PrintsItsPromptAndALineFeed) {
    for (const char* const prompt : {static_cast<const char*>(nullptr), "", "50% %s: "}) {
        const auto child = runInChild([&] {
            const PipedInput pipe("secret\n");
            ask(64, prompt);
        });
        EXPECT_EQ(child.output, std::string(prompt == nullptr ? "" : prompt) + "\n");
    }
}

TEST(GetPasswordFromTerminal, FailsWithoutStandardInput) {
    const auto child = runInChild([] {
        ::close(STDIN_FILENO);
        ::_exit(ask() == "0:" ? 0 : 1);
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
}

std::string nextLine() {
    char line[64] = "";
    return std::fgets(line, sizeof(line), stdin) != nullptr ? line : "(end)";
}

TEST(GetPasswordFromTerminal, TakesItsTurnInABufferedStream) {
    EXPECT_EQ(answersTo("first\nsecret\r\nthird\nanother\nfifth\n",
                        [] {
                            return joined({nextLine(), ask(), nextLine(), ask(5), nextLine(), nextLine()});
                        }),
              "first\n 1:secret third\n 1:anot fifth\n (end)");
}

// Whether standard input's buffer holds `text`.
bool isBuffered(const char* text) {
    const char* const end = stdin->_IO_buf_end;
    return std::search(static_cast<const char*>(stdin->_IO_buf_base), end, text, text + std::strlen(text)) !=
           end;
}

TEST(GetPasswordFromTerminal, LeavesNoSecretInTheStreamsBuffer) {
    const auto child = runInChild([] {
        PipedInput pipe("first\nOPENSESAME\nthird\n");
        bool isSafe = nextLine() == "first\n" && isBuffered("OPENSESAME");
        isSafe = isSafe && ask() == "1:OPENSESAME" && !isBuffered("SESAME") && nextLine() == "third\n";

        pipe.write("a long line and its SECOND SECRET\n"); // a short read after it reaches not that far
        isSafe = isSafe && ask() == "1:a long line and its SECOND SECRET" && !isBuffered("SECRET");
        pipe.write("short\n");
        isSafe = isSafe && ask() == "1:short" && !isBuffered("SECRET") && !isBuffered("short");

        pipe.write("dropped beyond THE CUT\n");
        isSafe = isSafe && ask(4) == "1:dro" && !isBuffered("THE CUT");
        ::_exit(isSafe ? 0 : 1);
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
}

TEST(GetPasswordFromTerminal, WipesTheEndOfAnEarlierRead) {
    const auto child = runInChild([] {
        const PipedInput pipe("");
        // The host reads a secret by itself, and then asks for a shorter one.
        pipe.write("xxxxxxxxxx LEFT BEHIND\n");
        bool isSafe = nextLine() == "xxxxxxxxxx LEFT BEHIND\n" && isBuffered("BEHIND");
        pipe.write("short\n");
        isSafe = isSafe && ask() == "1:short" && !isBuffered("BEHIND");
        ::_exit(isSafe ? 0 : 1);
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
}

TEST(GetPasswordFromTerminal, ReadsFromAnUnbufferedStream) {
    EXPECT_EQ(answersTo("one\ntwo\n",
                        [] {
                            std::setvbuf(stdin, nullptr, _IONBF, 0);
                            return joined({ask(), nextLine()});
                        }),
              "1:one two\n");
}

TEST(GetPasswordFromTerminal, ClosesWhatItOpened) {
    const auto child = runInChild([] {
        const PipedInput pipe("one\ntwo\n");
        const int before = ::dup(STDIN_FILENO);
        ::close(before);
        ask();
        ask();
        ::_exit(::dup(STDIN_FILENO) == before ? 0 : 1);
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
}

} // namespace
