// The replaceable platform wrappers of files: what goes through them, and what each of them does.
#include "Utility/Generic/Portable/SUPOSBase.h"

#include "os_test_support.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace brimtest;
namespace fs = std::filesystem;

namespace {

// ---- What goes through the pointers -----------------------------------------------------------------------

using Calls = std::vector<std::string>;
Calls g_calls;

void note(const char* name, const wchar_t* path) {
    g_calls.push_back(std::string(name) + " " + narrow(path));
}

int notedOpen(const wchar_t* path, int flags, int mode) {
    note((flags & O_CREAT) != 0 ? "create" : "open", path);
    EXPECT_EQ(mode, 0700);
    EXPECT_EQ(flags & (O_CREAT | O_TRUNC | O_ACCMODE),
              (flags & O_CREAT) != 0 ? O_CREAT | O_TRUNC | O_WRONLY : O_RDONLY);
    return WRAP_wopen(path, flags, mode);
}
std::FILE* notedFopen(const wchar_t* path, const wchar_t* mode) {
    note("fopen", path);
    return WRAP_wfopen(path, mode);
}
int notedStat(const wchar_t* path, struct stat* record) {
    note("stat", path);
    return WRAP_wstat(path, record);
}
wchar_t* notedGetcwd(wchar_t* buffer, int length) {
    EXPECT_EQ(length, 8192);
    wchar_t* const result = WRAP_wgetcwd(buffer, length);
    note("getcwd", result);
    return result;
}
int notedChdir(const wchar_t* path) {
    note("chdir", path);
    return WRAP_wchdir(path);
}

// Operations run in a directory with a file "file" and a directory "inner". In texts "~" is its path.
class OSAbstractionPointers : public ::testing::Test {
protected:
    OSAbstractionPointers() {
        m_scratch.addFile("file", "first line\n");
        m_scratch.addDirectory("inner");
        EXPECT_EQ(::chdir(m_scratch.path().c_str()), 0);
        g_calls.clear();
    }

    void expectCalls(Calls expected) const {
        for (std::string& call : expected) {
            const std::size_t home = call.find('~');
            call = home == std::string::npos ? call : call.replace(home, 1, m_scratch.path());
        }
        EXPECT_EQ(g_calls, expected);
        g_calls.clear();
    }

private:
    KeepsWorkingDirectory m_keeps;
    ClientCodePage m_utf8{65001};
    ScratchDirectory m_scratch;
    Redirected<int(const wchar_t*, int, int)> m_open{OSAbstraction::g_wopenFuncPtr, notedOpen};
    Redirected<std::FILE*(const wchar_t*, const wchar_t*)> m_fopen{OSAbstraction::g_wfopenFuncPtr,
                                                                   notedFopen};
    Redirected<int(const wchar_t*, struct stat*)> m_stat{OSAbstraction::g_wstatFuncPtr, notedStat};
    Redirected<wchar_t*(wchar_t*, int)> m_getcwd{OSAbstraction::g_wgetcwdFuncPtr, notedGetcwd};
    Redirected<int(const wchar_t*)> m_chdir{OSAbstraction::g_wchdirFuncPtr, notedChdir};
};

TEST_F(OSAbstractionPointers, DirectoriesAreTestedThroughThem) {
    const Calls awayAndBack{"getcwd ~", "chdir inner", "chdir ~"};
    EXPECT_TRUE(SystemUtility::IsValidDirectory(L"inner"));
    expectCalls(awayAndBack);
    EXPECT_TRUE(SystemUtility::MakeDirectory(L"inner"));
    expectCalls(awayAndBack);
    EXPECT_TRUE(SystemUtility::MakeDirectories(L"inner"));
    expectCalls(awayAndBack);
    BrimString path;
    EXPECT_TRUE(SystemUtility::GetFullDirectoryPath(L"inner", path));
    expectCalls({"getcwd ~", "chdir inner", "getcwd ~/inner", "chdir ~"});
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"file"));
    expectCalls({"getcwd ~", "chdir file"});
}

TEST_F(OSAbstractionPointers, TheWorkingDirectoryIsReachedThroughThem) {
    BrimString path;
    EXPECT_TRUE(SystemUtility::GetCurrentWorkingDirectory(path));
    expectCalls({"getcwd ~"});
    EXPECT_TRUE(SystemUtility::ChangeCurrentWorkingDirectory(L"inner"));
    expectCalls({"chdir inner"});
}

TEST_F(OSAbstractionPointers, FilesAreExaminedThroughThem) {
    EXPECT_TRUE(SystemUtility::IsFileExist(L"file"));
    expectCalls({"stat file"});
    EXPECT_EQ(SystemUtility::GetFileSize(L"file"), 11U);
    expectCalls({"stat file"});
    EXPECT_GT(SystemUtility::GetBlockSize(L"file"), 0U);
    expectCalls({"stat file"});
}

TEST_F(OSAbstractionPointers, FilesAreCopiedAndReadThroughThem) {
    EXPECT_TRUE(SystemUtility::CopyFile(L"file", L"made", false));
    expectCalls({"stat file", "stat made", "open file", "create made"});
    EXPECT_TRUE(SystemUtility::CopyFile(L"file", L"made", true));
    expectCalls({"stat file", "stat made", "open file", "create made"});
    EXPECT_EQ(SystemUtility::GetFirstLineFromFile(L"file", false), BrimString(L"first line"));
    expectCalls({"fopen file"});
}

TEST(OSAbstraction, AHostsFunctionsTakeTheSystemsPlace) {
    const Redirected stat(OSAbstraction::g_wstatFuncPtr, [](const wchar_t*, struct stat* record) {
        *record = {};
        record->st_size = 4711;
        record->st_blksize = 512;
        return 0;
    });
    const Redirected getcwd(OSAbstraction::g_wgetcwdFuncPtr, [](wchar_t* buffer, int) {
        buffer[0] = L'!';
        buffer[1] = L'\0';
        return buffer;
    });
    const Redirected chdir(OSAbstraction::g_wchdirFuncPtr, [](const wchar_t*) { return 0; });
    const Redirected open(OSAbstraction::g_wopenFuncPtr, [](const wchar_t*, int, int) {
        errno = EPERM;
        return -1;
    });
    EXPECT_TRUE(SystemUtility::IsFileExist(L"/no such file"));
    EXPECT_EQ(SystemUtility::GetFileSize(L"/no such file"), 4711U);
    EXPECT_EQ(SystemUtility::GetBlockSize(L"/no such file"), 512U);
    EXPECT_TRUE(SystemUtility::IsValidDirectory(L"/no such directory"));
    BrimString path;
    EXPECT_TRUE(SystemUtility::GetFullDirectoryPath(L"/no such directory", path));
    EXPECT_EQ(path, BrimString(L"!"));
    EXPECT_FALSE(SystemUtility::CopyFile(L"/no such file", L"/no such target", true));
}

// ---- The wrappers -----------------------------------------------------------------------------------------

int openOnce(const wchar_t* path) {
    const int descriptor = WRAP_wopen(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
    return descriptor == -1 ? -1 : ::close(descriptor);
}

TEST(WRAP_wopen, TakesUtf8WhateverTheCodePageIs) {
    const FileCreationMask none(0);
    for (const unsigned int page : {1252U, 65001U, 99999U}) {
        SCOPED_TRACE(page);
        const ScratchDirectory directory;
        const ClientCodePage codePage(page);
        EXPECT_EQ(openOnce(directory.wide("\xC3\xA9\xE4\xB8\xAD").c_str()), 0);
        EXPECT_EQ(permissionsOf(directory / "\xC3\xA9\xE4\xB8\xAD"), 0640U);
    }
}

TEST(WRAP_wopen, PassesFlagsAndErrorsOn) {
    const ScratchDirectory directory;
    errno = 0;
    EXPECT_EQ(WRAP_wopen(directory.wide("missing").c_str(), O_RDONLY, 0), -1);
    EXPECT_EQ(errno, ENOENT);
    directory.addFile("file");
    EXPECT_EQ(WRAP_wopen(directory.wide("file").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600), -1);
    EXPECT_EQ(errno, EEXIST);
}

// All wrappers that take a path, under one signature.
struct PathWrapper {
    const char* name;
    bool (*succeeds)(const wchar_t* path);
};
const PathWrapper kPathWrappers[] = {
    {"wopen", [](const wchar_t* path) { return openOnce(path) == 0; }},
    {"wfopen",
     [](const wchar_t* path) {
         std::FILE* const file = WRAP_wfopen(path, L"r");
         return file != nullptr && std::fclose(file) == 0;
     }},
    {"wremove", [](const wchar_t* path) { return WRAP_wremove(path) == 0; }},
    {"wrmdir", [](const wchar_t* path) { return WRAP_wrmdir(path) == 0; }},
    {"wstat",
     [](const wchar_t* path) {
         struct stat record = {};
         return WRAP_wstat(path, &record) == 0;
     }},
    {"wchdir", [](const wchar_t* path) { return WRAP_wchdir(path) == 0; }},
};

TEST(PathWrappers, ANullPathIsEFAULT) {
    for (const PathWrapper& wrapper : kPathWrappers) {
        errno = 0;
        EXPECT_FALSE(wrapper.succeeds(nullptr)) << wrapper.name;
        EXPECT_EQ(errno, EFAULT) << wrapper.name;
    }
    errno = 0;
    EXPECT_EQ(WRAP_wfopen(L"/", nullptr), nullptr);
    EXPECT_EQ(errno, EFAULT);
}

TEST(PathWrappers, AnEmptyPathIsENOENT) {
    for (const PathWrapper& wrapper : kPathWrappers) {
        errno = 0;
        EXPECT_FALSE(wrapper.succeeds(L"")) << wrapper.name;
        EXPECT_EQ(errno, ENOENT) << wrapper.name;
    }
}

TEST(PathWrappers, AnUnknownPageIsEILSEQ) {
    const ScratchDirectory directory;
    const BrimString path = directory.wide("file");
    const ClientCodePage unknown(99999);
    for (const PathWrapper& wrapper : kPathWrappers) {
        directory.addFile("file");
        RecordingManager manager;
        errno = 0;
        const bool takesUtf8 = std::string(wrapper.name) == "wopen";
        EXPECT_EQ(wrapper.succeeds(path.c_str()), takesUtf8) << wrapper.name;
        if (!takesUtf8) {
            EXPECT_EQ(errno, EILSEQ) << wrapper.name;
            EXPECT_EQ(manager.reports(), RecordingManager::unsupported("99999")) << wrapper.name;
        }
    }
}

TEST(PathWrappers, ALongPathIsENAMETOOLONG) {
    const BrimString path = wide("/" + std::string(100'000, 'x'));
    for (const PathWrapper& wrapper : kPathWrappers) {
        errno = 0;
        EXPECT_FALSE(wrapper.succeeds(path.c_str())) << wrapper.name;
        EXPECT_EQ(errno, ENAMETOOLONG) << wrapper.name;
    }
}

TEST(WRAP_wremove, RemovesFilesAndNoDirectories) {
    const ScratchDirectory directory;
    directory.addFile("file");
    directory.addDirectory("directory");
    fs::create_directory_symlink("directory", directory / "link");
    EXPECT_EQ(WRAP_wremove(directory.wide("file").c_str()), 0);
    EXPECT_EQ(WRAP_wremove(directory.wide("link").c_str()), 0);
    EXPECT_EQ(WRAP_wremove(directory.wide("directory").c_str()), -1);
    EXPECT_TRUE(fs::is_directory(directory / "directory"));
    EXPECT_FALSE(fs::exists(directory / "file"));
    EXPECT_FALSE(fs::is_symlink(directory / "link"));
}

TEST(WRAP_wrmdir, RemovesEmptyDirectoriesOnly) {
    const ScratchDirectory directory;
    directory.addFile("file");
    directory.addDirectory("full/inner");
    EXPECT_EQ(WRAP_wrmdir(directory.wide("full").c_str()), -1);
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_EQ(WRAP_wrmdir(directory.wide("full/inner").c_str()), 0);
    EXPECT_EQ(WRAP_wrmdir(directory.wide("full").c_str()), 0);
    EXPECT_FALSE(fs::exists(directory / "full"));
    EXPECT_EQ(WRAP_wrmdir(directory.wide("file").c_str()), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(WRAP_wfopen, TakesTheModesOfFopen) {
    struct Row {
        const wchar_t* mode;
        const char* left; // of "old" once "new" was written
        int error;        // of the write; EBADF in a reading mode
    };
    static constexpr Row kRows[] = {{L"r", "old", EBADF}, {L"rb", "old", EBADF}, {L"w", "new", 0},
                                    {L"a", "oldnew", 0},  {L"r+", "new", 0},     {L"w+b", "new", 0},
                                    {L"ab+", "oldnew", 0}};
    const ScratchDirectory directory;
    for (const Row& row : kRows) {
        SCOPED_TRACE(narrow(row.mode));
        const std::string path = directory.addFile("file", "old");
        std::FILE* const file = WRAP_wfopen(wide(path).c_str(), row.mode);
        ASSERT_NE(file, nullptr);
        errno = 0;
        EXPECT_EQ(std::fputs("new", file) < 0, row.error != 0);
        EXPECT_EQ(errno, row.error);
        std::fclose(file);
        EXPECT_EQ(contentOf(path), row.left);
    }
    EXPECT_EQ(WRAP_wfopen(directory.wide("missing").c_str(), L"r"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    for (const wchar_t* const mode : {L"", L"x", L"\x4E2D"}) {
        errno = 0;
        EXPECT_EQ(WRAP_wfopen(directory.wide("file").c_str(), mode), nullptr);
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST(WRAP_wgetcwd, NeedsRoomForThePathAndItsZero) {
    const ScratchDirectory directory;
    const KeepsWorkingDirectory keeps;
    ASSERT_EQ(::chdir(directory.path().c_str()), 0);
    const std::size_t length = directory.path().size();
    for (std::size_t room = 1; room <= length + 3; ++room) {
        SCOPED_TRACE(room);
        std::vector<wchar_t> buffer(room); // its end is guarded by the address sanitizer
        errno = 0;
        wchar_t* const result = WRAP_wgetcwd(buffer.data(), static_cast<int>(room));
        if (room <= length) {
            EXPECT_EQ(result, nullptr);
            EXPECT_EQ(errno, ERANGE);
        } else {
            EXPECT_EQ(result, buffer.data());
            EXPECT_EQ(narrow(buffer.data()), directory.path());
        }
    }
    wchar_t buffer[1];
    EXPECT_EQ(WRAP_wgetcwd(nullptr, 8192), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(WRAP_wgetcwd(buffer, 0), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(WRAP_wgetcwd(buffer, -1), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST(WRAP_wgetcwd, EndsInAZeroThoughTheNameEndsInACutSequence) {
    const ScratchDirectory directory;
    const KeepsWorkingDirectory keeps;
    const ClientCodePage utf8(65001);
    const std::string path = directory.path() + "/cut\xE2";
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    ASSERT_EQ(::chdir(path.c_str()), 0);
    std::vector<wchar_t> buffer(path.size(), L'#');
    ASSERT_EQ(WRAP_wgetcwd(buffer.data(), static_cast<int>(buffer.size())), buffer.data());
    EXPECT_EQ(narrow(buffer.data()), directory.path() + "/cut");
    EXPECT_EQ(WRAP_wgetcwd(buffer.data(), static_cast<int>(buffer.size()) - 1), nullptr);
    EXPECT_EQ(errno, ERANGE);
}

} // namespace
