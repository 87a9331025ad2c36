#include "Utility/Generic/Portable/SUPOS.h"

#include "child_process.h"
#include "os_test_support.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using brimtest::narrow;
using brimtest::wide;

namespace {

// What getlogin_r() answers to this thread: the number of an error, or else a name.
thread_local constinit int t_loginFailure = 0;
thread_local constinit const char* t_loginName = nullptr;

} // namespace

extern "C" int getlogin_r(char* name, std::size_t size) {
    if (t_loginFailure == 0 && t_loginName != nullptr) {
        const std::size_t length = std::strlen(t_loginName) + 1;
        if (length <= size) {
            std::memcpy(name, t_loginName, length);
            return 0;
        }
        errno = ERANGE;
        return ERANGE;
    }
    errno = t_loginFailure == 0 ? ENXIO : t_loginFailure;
    return errno;
}

namespace {

struct Login {
    bool result;
    std::string name;
    std::string error;
};

Login login(const char* known, int failure, int length) {
    t_loginName = known;
    t_loginFailure = failure;
    BrimString name(L"before");
    BrimString error(L"before");
    const bool result = SystemUtility::GetOSLoginName(name, error, length);
    t_loginName = nullptr;
    t_loginFailure = 0;
    return {result, narrow(name), narrow(error)};
}

// ---- identity

TEST(Process, KnowsItsNumberAndItsThread) {
    EXPECT_EQ(SystemUtility::GetCurrentProcessID(), ::getpid());
    const brimtest::ChildResult child =
        brimtest::runInChild([] { ::_exit(SystemUtility::GetCurrentProcessID() == ::getpid() ? 0 : 1); });
    EXPECT_EQ(child.exitCode(), 0);

    EXPECT_NE(::pthread_equal(SystemUtility::GetCurrentThreadID(), ::pthread_self()), 0);
    std::thread([] {
        EXPECT_NE(::pthread_equal(SystemUtility::GetCurrentThreadID(), ::pthread_self()), 0);
    }).join();
}

TEST(Process, HasTheShortNameOfTheProgram) {
    EXPECT_EQ(SystemUtility::GetCurrentProcessName(), BrimString(L"os_test"));
    const brimtest::ClientCodePage utf8(65001);
    char other[] = "caf\xC3\xA9";
    char* const before = std::exchange(program_invocation_short_name, other);
    EXPECT_EQ(SystemUtility::GetCurrentProcessName(), BrimString(L"caf\xE9"));
    program_invocation_short_name = before;
}

TEST(Process, CountsTheProcessorsOnline) {
    EXPECT_EQ(SystemUtility::GetNumberOfLogicalProcessors(), ::sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_GT(SystemUtility::GetNumberOfLogicalProcessors(), 0);
}

TEST(GetOSLoginName, GivesTheNameAndLeavesTheErrorAlone) {
    const brimtest::ClientCodePage utf8(65001);
    const Login found = login("ren\xC3\xA9", 0, 100);
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.name, "ren\xC3\xA9");
    EXPECT_EQ(found.error, "before");
}

TEST(GetOSLoginName, GivesTheSystemsTextOnFailure) {
    for (const int code : {ENXIO, ENOTTY, EMFILE}) {
        const Login missing = login(nullptr, code, 100);
        EXPECT_FALSE(missing.result);
        EXPECT_EQ(missing.name, "before");
        EXPECT_EQ(missing.error, std::strerror(code));
    }
}

TEST(GetOSLoginName, CutsTheNameAtTheLength) {
    constexpr struct {
        int length;
        const char* name;
    } kCases[] = {{6, "solace"}, {7, "solace"}, {INT_MAX, "solace"}, {5, "solac"}, {1, "s"},
                  {0, ""},       {-1, ""},      {INT_MIN, ""}};
    for (const auto& one : kCases) {
        const Login found = login("solace", 0, one.length);
        EXPECT_TRUE(found.result) << one.length;
        EXPECT_EQ(found.name, one.name) << one.length;
    }
}

TEST(GetOSLoginName, TakesNamesOfUpTo511Bytes) {
    const std::string fits(511, 'n');
    EXPECT_EQ(login(fits.c_str(), 0, 1000).name, fits);
    const Login tooLong = login((fits + "n").c_str(), 0, 1000);
    EXPECT_FALSE(tooLong.result);
    EXPECT_EQ(tooLong.error, std::strerror(ERANGE));
}

// ---- random numbers

TEST(BrimRand_to_rand_r, FollowsTheSystemsSequence) {
    for (const unsigned int start : {0U, 1U, 42U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(testing::Message() << "seed " << start);
        unsigned int seed = start;
        SystemUtility::SetSeedValue(start);
        for (int i = 0; i < 1000; ++i) {
            ASSERT_EQ(SystemUtility::BrimRand_to_rand_r(), ::rand_r(&seed)) << i;
        }
    }
}

TEST(BrimRand_to_rand_r, MayBeDrawnByManyThreads) {
    SystemUtility::SetSeedValue(7);
    std::vector<std::thread> threads;
    std::vector<int> least(4, INT_MAX);
    for (int& smallest : least) {
        threads.emplace_back([&smallest] {
            for (int i = 0; i < 10000; ++i) {
                smallest = std::min(smallest, SystemUtility::BrimRand_to_rand_r());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const int smallest : least) {
        EXPECT_GE(smallest, 0);
        EXPECT_LT(smallest, RAND_MAX / 100); // of 10000 drawn
    }
}

const brimtest::FreshProcess kFirstNumbers("FirstNumbers", [] {
    constexpr unsigned int kDay = 86400000;
    const unsigned int now = SystemUtility::GetTimeInMilliSeconds();
    const int first = SystemUtility::BrimRand_to_rand_r();
    const int second = SystemUtility::BrimRand_to_rand_r();
    for (unsigned int age = 0; age < 600000; ++age) {
        unsigned int seed = (now + kDay - age) % kDay;
        if (::rand_r(&seed) == first && ::rand_r(&seed) == second) {
            ::_exit(0);
        }
    }
    ::_exit(1);
});

TEST(BrimRand_to_rand_r, StartsFromTheTimeOfTheLoad) {
    const brimtest::ChildResult result = kFirstNumbers.run();
    EXPECT_EQ(result.exitCode(), 0) << result;
}

// ---- first lines

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// Nothing may stay open, no child unreaped.
class LeavesNothingBehind {
public:
    LeavesNothingBehind() : m_descriptors(openDescriptors()) {}
    ~LeavesNothingBehind() {
        EXPECT_EQ(openDescriptors(), m_descriptors);
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    }

private:
    std::size_t m_descriptors;
};

struct FirstLine {
    const char* description;
    std::string content;
    std::string line;
};

std::vector<FirstLine> firstLines() {
    const std::string full(512, 'f');
    return {{"empty", "", ""},
            {"no line end", "one", "one"},
            {"line feed", "one\ntwo\n", "one"},
            {"CR LF", "one\r\ntwo\r\n", "one"},
            {"carriage return at the end", "one\r", "one"},
            {"carriage returns inside", "one\rtwo\n", "one\rtwo"},
            {"two carriage returns", "one\r\r\n", "one\r"},
            {"only a line feed", "\n", ""},
            {"only line feeds", "\n\n\n", ""},
            {"only CR LF", "\r\n", ""},
            {"LF CR", "\n\rone", ""},
            {"LF CR after text", "one\n\rtwo", "one"},
            {"blanks stay", "  one  \n", "  one  "},
            {"zero inside", std::string("one\0two\n", 8), "one"},
            {"zero first", std::string("\0one\n", 5), ""},
            {"beyond ASCII", "caf\xC3\xA9 \xE2\x82\xAC\n", "caf\xC3\xA9 \xE2\x82\xAC"},
            {"one less than the limit", full.substr(1) + "\n", full.substr(1)},
            {"the limit", full + "\n", full},
            {"the limit and no line end", full, full},
            {"more than the limit", full + "more\n", full},
            {"CR LF across the limit", full.substr(1) + "\r\n", full.substr(1)},
            {"CR LF before the limit", full.substr(2) + "\r\n", full.substr(2)}};
}

TEST(GetFirstLineFromFile, GivesTheLineWithoutItsEnd) {
    const brimtest::ClientCodePage utf8(65001);
    const brimtest::ScratchDirectory directory;
    const LeavesNothingBehind check;
    for (const FirstLine& one : firstLines()) {
        SCOPED_TRACE(one.description);
        directory.addFile("file", one.content);
        EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromFile(directory.wide("file"), false)), one.line);
        const std::string command = "cat '" + directory / "file" + "'";
        EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromFile(wide(command), true)), one.line);
        EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromExecutable(wide(command), 512)), one.line);
    }
}

TEST(GetFirstLineFromFile, IsEmptyWhereThereIsNone) {
    const brimtest::ScratchDirectory directory;
    const LeavesNothingBehind check;
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromFile(directory.wide("missing"), false)), "");
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromFile(wide(directory.path()), false)), "");
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromFile(BrimString(), false)), "");
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromFile(BrimString(), true)), "");
}

std::wstring g_openedPath;
std::wstring g_openedMode;

TEST(GetFirstLineFromFile, OpensThroughThePointer) {
    const brimtest::ScratchDirectory directory;
    const LeavesNothingBehind check;
    static std::string replacement;
    replacement = directory.addFile("other", "from elsewhere\n");
    const brimtest::Redirected redirected(
        OSAbstraction::g_wfopenFuncPtr, +[](const wchar_t* path, const wchar_t* mode) {
            g_openedPath = path;
            g_openedMode = mode;
            return std::fopen(replacement.c_str(), "r");
        });
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromFile(BrimString(L"/asked for"), false)),
              "from elsewhere");
    EXPECT_EQ(g_openedPath, L"/asked for");
    EXPECT_EQ(g_openedMode, L"r");
}

TEST(GetFirstLineFromExecutable, CutsTheLineAtTheLength) {
    const LeavesNothingBehind check;
    const BrimString command(L"printf 'abcdef\\r\\nsecond\\n'");
    constexpr struct {
        int length;
        const char* line;
    } kCases[] = {{1, "a"},      {5, "abcde"},     {6, "abcdef"}, {7, "abcdef"}, {8, "abcdef"},
                  {9, "abcdef"}, {2000, "abcdef"}, {0, ""},       {-1, ""},      {INT_MIN, ""}};
    for (const auto& one : kCases) {
        EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromExecutable(command, one.length)), one.line)
            << one.length;
    }
    const BrimString longLine(L"printf '%3000s\\n' x");
    EXPECT_EQ(SystemUtility::GetFirstLineFromExecutable(longLine, 5000).length(), 3000U);
    EXPECT_EQ(SystemUtility::GetFirstLineFromExecutable(longLine, 2999).length(), 2999U);
}

TEST(GetFirstLineFromExecutable, RunsNothingForALengthOfNothing) {
    const brimtest::ScratchDirectory directory;
    const BrimString command = wide("touch '" + directory / "made" + "'");
    for (const int length : {0, -1}) {
        SystemUtility::GetFirstLineFromExecutable(command, length);
        EXPECT_FALSE(std::filesystem::exists(directory / "made"));
    }
    SystemUtility::GetFirstLineFromExecutable(command, 1);
    EXPECT_TRUE(std::filesystem::exists(directory / "made"));
}

TEST(GetFirstLineFromExecutable, GivesWhatAFailingCommandWrote) {
    const LeavesNothingBehind check;
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromExecutable(BrimString(L"exit 3"), 100)), "");
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromExecutable(BrimString(L"/no/such 2>/dev/null"), 100)),
              "");
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromExecutable(BrimString(L"echo partly; exit 3"), 100)),
              "partly");
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromExecutable(BrimString(), 100)), "");
}

TEST(GetFirstLineFromExecutable, EndsACommandThatWouldGoOn) {
    const LeavesNothingBehind check;
    EXPECT_EQ(narrow(SystemUtility::GetFirstLineFromExecutable(BrimString(L"yes"), 100)), "y");
}

// ---- memory

std::optional<std::uint64_t> bytesIn(const char* file, const std::string& name) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            return std::stoull(line.substr(name.size() + 1)) * 1024;
        }
    }
    ADD_FAILURE() << name << " is not in " << file;
    return std::nullopt;
}

constexpr std::uint64_t kMegabyte = 1024 * 1024;

// Other threads and programs move these numbers, and the kernel counts them roughly: one of many readings
// must lie near what /proc tells before or after it.
void expectNear(const char* file, const char* name, std::uint64_t SUMemStat::*value) {
    std::uint64_t seen = 0;
    for (int i = 0; i < 100; ++i) {
        const std::uint64_t before = bytesIn(file, name).value_or(0);
        SUMemStat stat;
        ASSERT_TRUE(SystemUtility::GetMemStat(stat));
        seen = stat.*value;
        if (seen + 4 * kMegabyte >= before && seen <= before + 4 * kMegabyte) {
            return;
        }
    }
    ADD_FAILURE() << name << " is never near " << seen;
}

TEST(GetMemStat, TellsTheNumbersOfProc) {
    expectNear("/proc/self/status", "VmRSS", &SUMemStat::resident);
    expectNear("/proc/self/status", "VmSize", &SUMemStat::virtualSize);
    expectNear("/proc/self/status", "VmHWM", &SUMemStat::peak);
    expectNear("/proc/meminfo", "MemAvailable", &SUMemStat::free);
    SUMemStat stat;
    ASSERT_TRUE(SystemUtility::GetMemStat(stat));
    EXPECT_EQ(stat.total, bytesIn("/proc/meminfo", "MemTotal"));
    EXPECT_LE(stat.free, stat.total);
    EXPECT_LE(stat.resident, stat.virtualSize);
    EXPECT_LE(stat.resident, stat.peak + kMegabyte);
}

TEST(GetMemStat, SeesMemoryComeAndGo) {
    constexpr std::size_t kSize = 64 * kMegabyte;
    constexpr std::size_t kNearly = 60 * kMegabyte;
    SUMemStat before;
    SUMemStat held;
    SUMemStat after;
    ASSERT_TRUE(SystemUtility::GetMemStat(before));
    void* const block = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    std::memset(block, 1, kSize);
    ASSERT_TRUE(SystemUtility::GetMemStat(held));
    ASSERT_EQ(::munmap(block, kSize), 0);
    ASSERT_TRUE(SystemUtility::GetMemStat(after));

    EXPECT_GE(held.resident, before.resident + kNearly);
    EXPECT_GE(held.virtualSize, before.virtualSize + kNearly);
    EXPECT_GE(held.peak, before.resident + kNearly);
    EXPECT_LE(after.resident, held.resident - kNearly);
    EXPECT_LE(after.virtualSize, held.virtualSize - kNearly);
    EXPECT_GE(after.peak + 4 * kMegabyte, held.resident) << "the peak stays";
}

// ---- errors of the operating system

TEST(SystemError, IsTheThreadsLastOne) {
    errno = ENOENT;
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOENT);
    std::thread([] {
        errno = EACCES;
        EXPECT_EQ(SystemUtility::GetLastSystemError(), EACCES);
        errno = EACCES;
        EXPECT_EQ(narrow(SystemUtility::GetLastSystemErrorString()), "Permission denied");
    }).join();
    errno = ENOENT;
    EXPECT_EQ(narrow(SystemUtility::GetLastSystemErrorString()), "No such file or directory");
}

TEST(SystemError, HasATextForEveryNumber) {
    for (const int code : {0, 1, ENOENT, EILSEQ, 133, 134, 99999, -1, INT_MAX, INT_MIN}) {
        const std::string expected = std::strerror(code);
        EXPECT_EQ(narrow(SystemUtility::GetSystemErrorString(code)), expected);
        BrimString text(L"before");
        SystemUtility::GetSystemErrorString(code, text);
        EXPECT_EQ(narrow(text), expected);
    }
    EXPECT_EQ(narrow(SystemUtility::GetSystemErrorString(99999)), "Unknown error 99999");
}

} // namespace
