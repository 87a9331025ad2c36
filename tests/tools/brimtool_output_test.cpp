// brimtool transcode: output files, progress and memory.
#include "tool_runner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <pty.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

using namespace brimtest;
using namespace std::string_literals;

namespace {

using Names = std::vector<std::string>;

class BrimtoolOutputFile : public ::testing::Test {
protected:
    ToolResult transcode(const std::string& from, const std::string& to, const std::string& input,
                         const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments = {"-o", m_target};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return transcodeRun(from, to, input, arguments).run();
    }
    static mode_t modeOf(const std::string& path) {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }

    TemporaryDirectory m_directory;
    std::string m_target = m_directory.path("target");
};

// The superuser may write everything unless it gives that up.
void obeyPermissions() {
    for (const unsigned long capability : {0UL + CAP_DAC_OVERRIDE, 0UL + CAP_DAC_READ_SEARCH}) {
        ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
    }
}

} // namespace

TEST_F(BrimtoolOutputFile, AppearsWithAllOfTheText) {
    EXPECT_EQ(transcode("UTF-8", "1252", "caf\xC3\xA9").exitCode, 0);
    EXPECT_EQ(readFile(m_target), "caf\xE9");
    EXPECT_EQ(m_directory.names(), Names{"target"});
}

TEST_F(BrimtoolOutputFile, ANewOneGetsThePermissionsThatTheUmaskLeaves) {
    ToolRun run = transcodeRun("UTF-8", "1252", "text", {"-o", m_target});
    run.setUp = [] { ::umask(027); };
    EXPECT_EQ(run.run().exitCode, 0);
    EXPECT_EQ(modeOf(m_target), 0640U);
}

TEST_F(BrimtoolOutputFile, AReplacedOneKeepsItsPermissions) {
    for (const mode_t mode : {0600U, 0644U, 0755U, 0666U}) {
        writeFile(m_target, "old and longer than the new one");
        ASSERT_EQ(::chmod(m_target.c_str(), mode), 0);
        EXPECT_EQ(transcode("UTF-8", "1252", "new").exitCode, 0);
        EXPECT_EQ(readFile(m_target), "new");
        EXPECT_EQ(modeOf(m_target), mode);
    }
}

TEST_F(BrimtoolOutputFile, IsNotLeftBehindByAFailure) {
    const std::string longText(300000, 'x'); // several pieces have been written by then
    EXPECT_EQ(transcode("UTF-8", "1252", longText + "\xFF").exitCode, 1);
    EXPECT_EQ(m_directory.names(), Names{});
    EXPECT_EQ(transcode("UTF-8", "1252", longText + "\xE4\xBD\xA0").exitCode, 1);
    EXPECT_EQ(m_directory.names(), Names{});
    EXPECT_EQ(transcode("UTF-8", "1252", longText, {"-", m_directory.path("missing")}).exitCode, 2);
    EXPECT_EQ(m_directory.names(), Names{});
}

TEST_F(BrimtoolOutputFile, IsAsItWasAfterAFailure) {
    writeFile(m_target, "precious");
    const std::string longText(300000, 'x');
    EXPECT_EQ(transcode("UTF-8", "1252", longText + "\xFF").exitCode, 1);
    EXPECT_EQ(readFile(m_target), "precious");
    EXPECT_EQ(transcode("UTF-8", "1252", longText, {"-", m_directory.path("missing")}).exitCode, 2);
    EXPECT_EQ(readFile(m_target), "precious");
    EXPECT_EQ(m_directory.names(), Names{"target"});
}

TEST_F(BrimtoolOutputFile, IsWrittenDespiteFaultsWhenLossy) {
    EXPECT_EQ(transcode("UTF-8", "1252", "a\xFFz", {"--lossy"}).exitCode, 0);
    EXPECT_EQ(readFile(m_target), "a?z");
}

TEST_F(BrimtoolOutputFile, IsAsItWasWhenTheDiskIsTooSmall) {
    writeFile(m_target, "precious");
    ToolRun run = transcodeRun("UTF-8", "1252", std::string(300000, 'x'), {"-o", m_target});
    run.setUp = [] {
        const rlimit limit{100000, 100000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
    };
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.errors, "brimtool: cannot write " + m_target + ": File too large\n");
    EXPECT_EQ(readFile(m_target), "precious");
    EXPECT_EQ(m_directory.names(), Names{"target"});
}

TEST_F(BrimtoolOutputFile, MayBeAnInput) {
    std::string text;
    while (text.size() < 500000) {
        text += "\xC3\xA9\xE2\x82\xAC";
    }
    writeFile(m_target, text);
    EXPECT_EQ(transcode("UTF-8", "UTF-16LE", "", {m_target}).exitCode, 0);
    EXPECT_TRUE(readFile(m_target) == systemIconv("UTF-8", "UTF-16LE", text));
    EXPECT_EQ(transcode("UTF-16LE", "UTF-8", "", {m_target}).exitCode, 0);
    EXPECT_TRUE(readFile(m_target) == text);
    EXPECT_EQ(m_directory.names(), Names{"target"});
}

TEST_F(BrimtoolOutputFile, IsReplacedBehindASymbolicLink) {
    const std::string link = m_directory.path("link");
    const std::string outer = m_directory.path("outer");
    std::filesystem::create_symlink("target", link);
    std::filesystem::create_symlink(link, outer);
    for (const char* const text : {"made through a dangling link", "replaced"}) {
        EXPECT_EQ(transcodeRun("UTF-8", "1252", text, {"-o", outer}).run().exitCode, 0);
        EXPECT_EQ(readFile(m_target), text);
        EXPECT_TRUE(std::filesystem::is_symlink(link) && std::filesystem::is_symlink(outer));
    }
}

TEST_F(BrimtoolOutputFile, MayHaveTheLongestName) {
    const std::string longest = m_directory.path(std::string(255, 'n'));
    EXPECT_EQ(transcodeRun("UTF-8", "1252", "text", {"-o", longest}).run().exitCode, 0);
    EXPECT_EQ(readFile(longest), "text");
}

TEST_F(BrimtoolOutputFile, ThatMayNotBeWrittenGivesTwo) {
    writeFile(m_target, "precious");
    ASSERT_EQ(::chmod(m_target.c_str(), 0444), 0);
    ToolRun run = transcodeRun("UTF-8", "1252", "text", {"-o", m_target});
    run.setUp = obeyPermissions;
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.errors, "brimtool: cannot write " + m_target + ": Permission denied\n");
    EXPECT_EQ(readFile(m_target), "precious");
}

TEST_F(BrimtoolOutputFile, InAPlaceThatTakesNoFilesGivesTwo) {
    EXPECT_EQ(transcodeRun("UTF-8", "1252", "text", {"-o", m_directory.path("no/such")}).run().exitCode, 2);
    EXPECT_EQ(transcodeRun("UTF-8", "1252", "text", {"-o", m_directory.path("new/")}).run().exitCode, 2);
    EXPECT_EQ(transcodeRun("UTF-8", "1252", "text", {"-o", m_directory.path()}).run().exitCode, 2);
    std::filesystem::create_symlink("loop", m_directory.path("loop"));
    EXPECT_EQ(transcodeRun("UTF-8", "1252", "text", {"-o", m_directory.path("loop")}).run().exitCode, 2);
    EXPECT_EQ(m_directory.names(), Names{"loop"});
}

TEST_F(BrimtoolOutputFile, StandardOutputHasSeveralNames) {
    for (const char* const name : {"-", "/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"}) {
        const ToolResult result = transcodeRun("UTF-8", "1252", "text", {"-o", name}).run();
        EXPECT_EQ(result.exitCode, 0) << result;
        EXPECT_EQ(result.output, "text") << name;
        EXPECT_EQ(result.errors, "") << name;
    }
}

TEST_F(BrimtoolOutputFile, DevicesAndPipesAreWrittenDirectly) {
    EXPECT_EQ(transcodeRun("UTF-8", "1252", "text", {"-o", "/dev/null"}).run().exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));

    ASSERT_EQ(::mkfifo(m_target.c_str(), 0600), 0);
    const int reader = ::open(m_target.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC); // both ends: nobody waits
    ASSERT_NE(reader, -1);
    EXPECT_EQ(transcode("UTF-8", "1252", "text\xFF").exitCode, 1);
    char buffer[16];
    const ssize_t n = ::read(reader, buffer, sizeof(buffer));
    ::close(reader);
    EXPECT_EQ(n, 4);
    EXPECT_TRUE(std::filesystem::is_fifo(m_target));
}

TEST_F(BrimtoolOutputFile, IsNotLeftBehindByASignal) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const int events = ::inotify_init1(IN_CLOEXEC);
        ASSERT_NE(::inotify_add_watch(events, m_directory.path().c_str(), IN_CREATE), -1);
        int input[2] = {-1, -1};
        ASSERT_EQ(::pipe2(input, O_CLOEXEC), 0);
        const pid_t tool = ::fork();
        if (tool == 0) {
            ::dup2(input[0], STDIN_FILENO);
            ::execl(BRIMTOOL_PATH, "brimtool", "transcode", "--from=UTF-8", "--to=1252", "-o",
                    m_target.c_str(), static_cast<char*>(nullptr));
            ::_exit(97);
        }
        // It has made its temporary file, and waits for input that never comes.
        pollfd created{events, POLLIN, 0};
        EXPECT_EQ(::poll(&created, 1, 60000), 1);
        ::kill(tool, signal);
        int status = 0;
        while (::waitpid(tool, &status, 0) == -1 && errno == EINTR) {
        }
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_EQ(m_directory.names(), Names{});
        ::close(input[0]);
        ::close(input[1]);
        ::close(events);
    }
}

TEST_F(BrimtoolOutputFile, AnIgnoredSignalStaysIgnored) {
    ToolRun run = transcodeRun("UTF-8", "1252", "text", {"-o", m_target});
    run.setUp = [] {
        std::signal(SIGHUP, SIG_IGN);
        sigset_t hangUp;
        ::sigemptyset(&hangUp);
        ::sigaddset(&hangUp, SIGHUP);
        ::sigprocmask(SIG_UNBLOCK, &hangUp, nullptr);
        // Sends it to the tool again and again for as long as it lives.
        const pid_t tool = ::getpid();
        if (::fork() == 0) {
            ::close_range(0, ~0U, 0); // the ends of the tool's streams too
            while (::getppid() == tool && ::kill(tool, SIGHUP) == 0) {
            }
            ::_exit(0);
        }
    };
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(readFile(m_target), "text");
}

TEST(BrimtoolTranscode, NeedsNoMoreMemoryForLongerTexts) {
    const TemporaryDirectory directory;
    const std::string file = directory.path("zeros");
    const auto residentFor = [&file](off_t length) {
        writeFile(file, "");
        EXPECT_EQ(::truncate(file.c_str(), length), 0);
        const ToolResult result = transcodeRun("UTF-8", "UTF-16LE", "", {"-o", "/dev/null", file}).run();
        EXPECT_EQ(result.exitCode, 0) << result;
        return result.maxResidentKilobytes;
    };
    const long forShort = residentFor(off_t{1} << 20);
    const long forLong = residentFor(off_t{1} << 28);
    EXPECT_LT(forLong - forShort, 8 * 1024);
}

namespace {

// Runs the tool on a terminal of its own: standard error is the terminal, standard input a pipe that is fed
// until `enough` says so of what the terminal has shown. Returns all that it has shown.
template <class Enough>
std::string terminalOf(std::vector<std::string> more, bool outputToo, Enough enough) {
    int master = -1;
    int slave = -1;
    int input[2] = {-1, -1};
    if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0 || ::pipe2(input, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no terminal";
        return {};
    }
    ToolRun run = transcodeRun("UTF-8", "1252", "", more);
    const pid_t tool = ::fork();
    if (tool == 0) {
        std::vector<char*> argv;
        std::string name = "brimtool";
        argv.push_back(name.data());
        for (std::string& argument : run.arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        ::dup2(input[0], STDIN_FILENO);
        ::dup2(slave, STDERR_FILENO);
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(outputToo ? slave : null, STDOUT_FILENO);
        ::close(master);
        ::close(slave);
        ::execv(BRIMTOOL_PATH, argv.data());
        ::_exit(97);
    }
    ::close(slave);
    ::close(input[0]);
    std::string shown;
    bool feeding = true;
    for (;;) {
        pollfd ends[] = {{master, POLLIN, 0}, {feeding ? input[1] : -1, POLLOUT, 0}};
        ::poll(ends, 2, -1);
        if ((ends[0].revents & (POLLIN | POLLHUP)) != 0) {
            char buffer[4096];
            const ssize_t n = ::read(master, buffer, sizeof(buffer));
            if (n <= 0) {
                break; // the tool has gone
            }
            shown.append(buffer, static_cast<std::size_t>(n));
        }
        if (ends[1].revents != 0) {
            if (enough(shown)) {
                ::close(input[1]);
                feeding = false;
            } else if (::write(input[1], "text of no length\n", 18) != 18) {
                ADD_FAILURE() << "the tool takes no input";
                feeding = false;
            }
        }
    }
    ::close(master);
    int status = 0;
    while (::waitpid(tool, &status, 0) == -1 && errno == EINTR) {
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status << ": " << shown;
    return shown;
}

constexpr const char* kErase = "\r\033[K";

} // namespace

TEST(BrimtoolProgress, ShowsALineOnATerminalAndTakesItAway) {
    const auto severalLines = [](const std::string& shown) {
        return std::count(shown.begin(), shown.end(), '\r') >= 3;
    };
    const std::string shown = terminalOf({}, false, severalLines);
    EXPECT_EQ(shown.rfind("\rbrimtool: ", 0), 0U) << shown;
    EXPECT_NE(shown.find(" MB\033[K"), std::string::npos) << shown;
    EXPECT_EQ(shown.find('\n'), std::string::npos) << shown;
    EXPECT_EQ(shown.substr(shown.size() - 4), kErase) << shown;
}

TEST(BrimtoolProgress, IsGoneBeforeOtherMessages) {
    const auto oneLine = [](const std::string& shown) { return !shown.empty(); };
    const std::string shown = terminalOf({"--stats"}, false, oneLine);
    const std::size_t stats = shown.find(" characters, ");
    ASSERT_NE(stats, std::string::npos) << shown;
    const std::size_t erased = shown.rfind(kErase, stats);
    ASSERT_NE(erased, std::string::npos) << shown;
    EXPECT_EQ(shown.compare(erased + 4, 10, "brimtool: "), 0) << shown;
}

TEST(BrimtoolProgress, AnEmptyConversionShowsNothing) {
    const auto atOnce = [](const std::string&) { return true; };
    EXPECT_EQ(terminalOf({}, false, atOnce), "");
}

// Both feed the tool for twice the time after which the line would be due.
TEST(BrimtoolProgress, IsSilentWhenQuiet) {
    const auto start = std::chrono::steady_clock::now();
    const auto longEnough = [start](const std::string&) {
        return std::chrono::steady_clock::now() - start > std::chrono::seconds(1);
    };
    EXPECT_EQ(terminalOf({"--quiet"}, false, longEnough), "");
}

TEST(BrimtoolProgress, IsSilentWhenTheDataGoesToTheTerminal) {
    const auto start = std::chrono::steady_clock::now();
    const auto longEnough = [start](const std::string&) {
        return std::chrono::steady_clock::now() - start > std::chrono::seconds(1);
    };
    const std::string shown = terminalOf({}, true, longEnough);
    EXPECT_EQ(shown.find("brimtool"), std::string::npos);
    EXPECT_EQ(shown.rfind("text of no length\r\n", 0), 0U);
}
