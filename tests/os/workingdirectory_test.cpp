// The working directory, and the operations that leave it for a moment.
#include "Utility/Generic/Portable/SUPOS.h"

#include "os_test_support.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace brimtest;
namespace fs = std::filesystem;

namespace {

// Tests start in a directory of their own and end where the program started.
class WorkingDirectory : public ::testing::Test {
protected:
    WorkingDirectory() {
        m_scratch.addDirectory("other/inner");
        moveTo(m_scratch.addDirectory("home"));
    }

    void moveTo(const std::string& path) {
        EXPECT_EQ(::chdir(path.c_str()), 0);
        m_home = current();
    }
    void expectHome() const { EXPECT_EQ(current(), m_home); }

private:
    static ino_t current() {
        struct stat record = {};
        EXPECT_EQ(::stat(".", &record), 0);
        return record.st_ino;
    }

    KeepsWorkingDirectory m_keeps;
    ClientCodePage m_utf8{65001};
    ino_t m_home = 0;

protected:
    ScratchDirectory m_scratch;
};

using IsValidDirectory = WorkingDirectory;
using GetFullDirectoryPath = WorkingDirectory;
using CurrentWorkingDirectory = WorkingDirectory;

TEST_F(IsValidDirectory, IsTrueForDirectoriesOnly) {
    m_scratch.addFile("file");
    fs::create_symlink("file", m_scratch / "link");
    fs::create_symlink("nowhere", m_scratch / "dangling");
    fs::create_directory_symlink("other", m_scratch / "directorylink");
    for (const char* const path : {"/", ".", "..", "../other", "../other/inner/", "../directorylink"}) {
        EXPECT_TRUE(SystemUtility::IsValidDirectory(wide(path))) << path;
        expectHome();
    }
    EXPECT_TRUE(SystemUtility::IsValidDirectory(m_scratch.wide("other")));
    for (const char* const path : {"", "missing", "../file", "../link", "../dangling", "../file/below"}) {
        EXPECT_FALSE(SystemUtility::IsValidDirectory(wide(path))) << path;
        expectHome();
    }
}

TEST_F(IsValidDirectory, LeavesErrno) {
    m_scratch.addFile("file");
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"missing"));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOENT);
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"../file"));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOTDIR);
}

TEST_F(IsValidDirectory, TakesAnyNameOfTheCodePage) {
    struct Row {
        unsigned int codePage;
        const char* bytes;
        const char* utf8;
    };
    static constexpr Row kRows[] = {{65001, "new\nline", "new\nline"},
                                    {65001, "%s%n%d", "%s%n%d"},
                                    {65001, " \t'\"\\", " \t'\"\\"},
                                    {65001, "\xE4\xB8\xAD\xF0\x9F\x98\x80", "\xE4\xB8\xAD\xF0\x9F\x98\x80"},
                                    {1252, "caf\xE9 \x80", "caf\xC3\xA9 \xE2\x82\xAC"},
                                    {1252, "%n\n", "%n\n"}};
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.utf8);
        const std::string path = m_scratch.addDirectory(row.bytes);
        const ClientCodePage page(row.codePage);
        EXPECT_TRUE(SystemUtility::IsValidDirectory(m_scratch.wide(row.utf8)));
        // The other way: such a directory is what is left and come back to.
        moveTo(path);
        EXPECT_TRUE(SystemUtility::IsValidDirectory(L"/"));
        expectHome();
        BrimString current;
        EXPECT_TRUE(SystemUtility::GetCurrentWorkingDirectory(current));
        EXPECT_EQ(current, m_scratch.wide(row.utf8));
    }
}

TEST_F(IsValidDirectory, ComesBackWhereTheNameCannotBeExpressed) {
    moveTo(m_scratch.addDirectory("\xFF\xFE"));
    EXPECT_TRUE(SystemUtility::IsValidDirectory(L"/"));
    expectHome();
}

// Renames the directory left, once it is left.
std::string g_from;
std::string g_to;
int renamingChdir(const wchar_t* path) {
    const int result = WRAP_wchdir(path);
    fs::rename(g_from, g_to);
    std::swap(g_from, g_to);
    return result;
}

TEST_F(IsValidDirectory, ComesBackToADirectoryThatWasRenamedMeanwhile) {
    for (int i = 0; i < 2; ++i) {
        g_from = m_scratch / "home";
        g_to = m_scratch / "elsewhere";
        const Redirected chdir(OSAbstraction::g_wchdirFuncPtr, renamingChdir);
        BrimString path;
        EXPECT_TRUE(i == 0 ? SystemUtility::IsValidDirectory(L"/")
                           : SystemUtility::GetFullDirectoryPath(L"/", path));
        expectHome();
    }
}

int g_chdirs = 0;
int chdirOneWay(const wchar_t* path) {
    errno = EACCES;
    return g_chdirs++ == 0 ? WRAP_wchdir(path) : -1;
}

TEST_F(IsValidDirectory, IsFalseWhenThereIsNoWayBack) {
    const Answering noDescriptors(SystemCalls::open, [](const char*, int, mode_t) {
        errno = EMFILE;
        return -1;
    });
    const Redirected chdir(OSAbstraction::g_wchdirFuncPtr, chdirOneWay);
    g_chdirs = 0;
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"/"));
    BrimString path(L"kept");
    g_chdirs = 0;
    EXPECT_FALSE(SystemUtility::GetFullDirectoryPath(L"/", path));
    EXPECT_EQ(path, BrimString(L"kept"));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), EACCES);
}

TEST_F(IsValidDirectory, StaysWhereItCouldNotComeBackTo) {
    fs::remove(m_scratch / "home");
    errno = 0;
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"/"));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOENT);
    expectHome();
}

TEST_F(IsValidDirectory, NeedsNoDescriptor) {
    const Answering noDescriptors(SystemCalls::open, [](const char*, int, mode_t) {
        errno = EMFILE;
        return -1;
    });
    EXPECT_TRUE(SystemUtility::IsValidDirectory(L"/"));
    expectHome();
}

TEST_F(IsValidDirectory, LeavesNoDescriptorOpen) {
    const auto count = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = count();
    SystemUtility::IsValidDirectory(L"/");
    SystemUtility::IsValidDirectory(L"/missing");
    EXPECT_EQ(count(), before);
}

// A working directory whose path has exactly `characters` of them, 3 bytes each in most names.
void descend(std::size_t characters, std::size_t length) {
    constexpr std::size_t kLongestName = 80;
    while (length < characters) {
        // A slash and a name; the last but one leaves room for a slash and a name too.
        std::size_t name = std::min(kLongestName, characters - length - 1);
        if (characters - length - 1 - name == 1) {
            --name;
        }
        std::string text;
        for (std::size_t i = 0; i < name; ++i) {
            text += "\xE4\xB8\xAD";
        }
        ASSERT_EQ(::mkdir(text.c_str(), 0700), 0);
        ASSERT_EQ(::chdir(text.c_str()), 0);
        length += 1 + name;
    }
}

TEST_F(CurrentWorkingDirectory, MayHave8191Characters) {
    descend(8191, (m_scratch / "home").size());
    moveTo(".");
    BrimString path;
    EXPECT_TRUE(SystemUtility::GetCurrentWorkingDirectory(path));
    EXPECT_EQ(path.length(), 8191U);
    EXPECT_EQ(path.substr(0, m_scratch.path().size()), wide(m_scratch.path()));
    EXPECT_TRUE(SystemUtility::IsValidDirectory(L"/"));
    expectHome();
    BrimString full;
    EXPECT_TRUE(SystemUtility::GetFullDirectoryPath(L".", full));
    EXPECT_EQ(full, path);
    expectHome();
}

TEST_F(CurrentWorkingDirectory, OfMoreThan8191CharactersIsNotLeft) {
    descend(8192, (m_scratch / "home").size());
    moveTo(".");
    BrimString path(L"kept");
    EXPECT_FALSE(SystemUtility::GetCurrentWorkingDirectory(path));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ERANGE);
    EXPECT_EQ(path, BrimString(L"kept"));
    const Redirected chdir(OSAbstraction::g_wchdirFuncPtr, [](const wchar_t*) {
        ADD_FAILURE() << "left";
        return -1;
    });
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"/"));
    EXPECT_FALSE(SystemUtility::GetFullDirectoryPath(L"/", path));
    expectHome();
}

TEST_F(CurrentWorkingDirectory, IsUnknownUnderAnUnknownPage) {
    const ClientCodePage unknown(99999);
    RecordingManager manager;
    BrimString path(L"kept");
    EXPECT_FALSE(SystemUtility::GetCurrentWorkingDirectory(path));
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"/"));
    EXPECT_EQ(path, BrimString(L"kept"));
    expectHome();
}

TEST_F(CurrentWorkingDirectory, IsChanged) {
    EXPECT_TRUE(SystemUtility::ChangeCurrentWorkingDirectory(L"../other/inner"));
    BrimString path;
    EXPECT_TRUE(SystemUtility::GetCurrentWorkingDirectory(path));
    EXPECT_EQ(path, m_scratch.wide("other/inner"));
    errno = 0;
    EXPECT_FALSE(SystemUtility::ChangeCurrentWorkingDirectory(L"missing"));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOENT);
    EXPECT_FALSE(SystemUtility::ChangeCurrentWorkingDirectory(BrimString()));
    EXPECT_TRUE(SystemUtility::GetCurrentWorkingDirectory(path));
    EXPECT_EQ(path, m_scratch.wide("other/inner"));
}

TEST_F(GetFullDirectoryPath, ResolvesLinksAndRelativeParts) {
    fs::create_directory_symlink("other/inner", m_scratch / "link");
    struct Row {
        const char* path;
        const char* full;
    };
    static constexpr Row kRows[] = {{".", "home"},
                                    {"../other", "other"},
                                    {"../link", "other/inner"},
                                    {"../link/..", "other"},
                                    {"..//other/./inner/", "other/inner"}};
    for (const Row& row : kRows) {
        BrimString full;
        EXPECT_TRUE(SystemUtility::GetFullDirectoryPath(wide(row.path), full)) << row.path;
        EXPECT_EQ(full, m_scratch.wide(row.full)) << row.path;
        expectHome();
    }
    BrimString root;
    EXPECT_TRUE(SystemUtility::GetFullDirectoryPath(L"/../..", root));
    EXPECT_EQ(root, BrimString(L"/"));
}

TEST_F(GetFullDirectoryPath, TouchesNothingWhenItFails) {
    m_scratch.addFile("file");
    for (const char* const path : {"", "missing", "../file"}) {
        BrimString full(L"kept");
        EXPECT_FALSE(SystemUtility::GetFullDirectoryPath(wide(path), full)) << path;
        EXPECT_EQ(full, BrimString(L"kept")) << path;
        expectHome();
    }
}

TEST_F(GetFullDirectoryPath, GivesItsArgumentBack) {
    BrimString path(L"../other");
    EXPECT_TRUE(SystemUtility::GetFullDirectoryPath(path, path));
    EXPECT_EQ(path, m_scratch.wide("other"));
}

// Sees each thread leave and come back, with no other in between.
std::atomic<bool> g_isSomebodyOut{false};
std::atomic<int> g_interleaved{0};
thread_local bool t_isOut = false;
int watchedChdir(const wchar_t* path) {
    t_isOut = !t_isOut;
    if (g_isSomebodyOut.exchange(t_isOut) == t_isOut) {
        ++g_interleaved;
    }
    std::this_thread::yield();
    return WRAP_wchdir(path);
}

TEST_F(IsValidDirectory, OneThreadAtATimeIsAway) {
    const Redirected chdir(OSAbstraction::g_wchdirFuncPtr, watchedChdir);
    g_interleaved = 0;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const BrimString target = m_scratch.wide("other/inner");
            for (int i = 0; i < 300; ++i) {
                BrimString full;
                const bool isRight =
                    (i + t) % 2 == 0 ? SystemUtility::IsValidDirectory(target)
                                     : SystemUtility::GetFullDirectoryPath(target, full) && full == target;
                wrong += isRight ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(g_interleaved, 0);
    expectHome();
}

} // namespace
