// Directories are made, files examined.
#include "Utility/Generic/Portable/SUPOS.h"

#include "child_process.h"
#include "os_test_support.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace brimtest;
namespace fs = std::filesystem;

namespace {

constexpr uid_t kNobody = 65534;

// In a child that is no superuser, who may write anywhere.
template <class Body>
void asAnybody(const ScratchDirectory& directory, Body body) {
    fs::permissions(directory.path(), fs::perms::all); // the child may enter it
    const ChildResult child = runInChild([&] {
        if (::geteuid() == 0 && ::setresuid(kNobody, kNobody, kNobody) != 0) {
            ::_exit(97);
        }
        body();
    });
    EXPECT_EQ(child.exitCode(), 0) << child;
}

// The child's way to tell that an expectation failed.
void require(bool condition, int code) {
    if (!condition) {
        ::_exit(code);
    }
}

TEST(MakeDirectory, MakesADirectoryWithWhatTheMaskLeaves) {
    struct Row {
        mode_t mask;
        mode_t left;
    };
    static constexpr Row kRows[] = {{0, 0777}, {022, 0755}, {027, 0750}, {077, 0700}};
    const ScratchDirectory directory;
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.mask);
        const FileCreationMask mask(row.mask);
        const std::string name = "made" + std::to_string(row.mask);
        EXPECT_TRUE(SystemUtility::MakeDirectory(directory.wide(name)));
        EXPECT_EQ(permissionsOf(directory / name), row.left);
    }
}

TEST(MakeDirectory, IsTrueForADirectoryThatIsThereAlready) {
    const ScratchDirectory directory;
    fs::permissions(directory.addDirectory("there"), fs::perms(0750));
    directory.addFile("there/kept");
    EXPECT_TRUE(SystemUtility::MakeDirectory(directory.wide("there")));
    EXPECT_EQ(permissionsOf(directory / "there"), 0750U);
    EXPECT_TRUE(fs::exists(directory / "there/kept"));
}

TEST(MakeDirectory, IsFalseWhereSomethingElseStands) {
    const ScratchDirectory directory;
    directory.addFile("file");
    fs::create_symlink("nowhere", directory / "dangling");
    for (const char* const name : {"file", "dangling"}) {
        EXPECT_FALSE(SystemUtility::MakeDirectory(directory.wide(name))) << name;
    }
    EXPECT_EQ(contentOf(directory / "file"), "content");
    EXPECT_FALSE(fs::exists(directory / "nowhere"));
}

TEST(MakeDirectory, LeavesErrno) {
    const ScratchDirectory directory;
    directory.addFile("file");
    struct Row {
        const char* name;
        int error;
    };
    static constexpr Row kRows[] = {{"missing/made", ENOENT}, {"file/made", ENOTDIR}};
    for (const Row& row : kRows) {
        errno = 0;
        EXPECT_FALSE(SystemUtility::MakeDirectory(directory.wide(row.name))) << row.name;
        EXPECT_EQ(SystemUtility::GetLastSystemError(), row.error) << row.name;
    }
    errno = 0;
    EXPECT_FALSE(SystemUtility::MakeDirectory(BrimString()));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOENT);
    const ClientCodePage unknown(99999);
    RecordingManager manager;
    errno = 0;
    EXPECT_FALSE(SystemUtility::MakeDirectory(directory.wide("made")));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), EILSEQ);
}

TEST(MakeDirectory, NeedsThePermissionToWrite) {
    const ScratchDirectory directory;
    fs::permissions(directory.addDirectory("closed"), fs::perms(0555));
    asAnybody(directory, [&] {
        require(!SystemUtility::MakeDirectory(directory.wide("closed/made")), 1);
        require(errno == EACCES, 2);
    });
    EXPECT_FALSE(fs::exists(directory / "closed/made"));
}

TEST(MakeDirectory, IsTrueWhenSomebodyElseIsQuicker) {
    const ScratchDirectory directory;
    int calls = 0;
    const Answering quicker(SystemCalls::mkdir, [&](const char* path, mode_t mode) {
        ++calls;
        EXPECT_EQ(::mkdir(path, mode), 0);
        return ::mkdir(path, mode);
    });
    EXPECT_TRUE(SystemUtility::MakeDirectory(directory.wide("made")));
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(SystemUtility::MakeDirectories(directory.wide("a/b/c")));
    EXPECT_EQ(calls, 4);
    EXPECT_TRUE(fs::is_directory(directory / "a/b/c"));
}

TEST(MakeDirectory, IsFalseWhenSomebodyElseMakesAFileThere) {
    const ScratchDirectory directory;
    const Answering quicker(SystemCalls::mkdir, [&](const char* path, mode_t mode) {
        directory.addFile("made");
        return ::mkdir(path, mode);
    });
    EXPECT_FALSE(SystemUtility::MakeDirectory(directory.wide("made")));
    EXPECT_EQ(contentOf(directory / "made"), "content");
}

TEST(MakeDirectories, MakesEachMissingParentInOrder) {
    const ScratchDirectory directory;
    directory.addDirectory("a");
    std::vector<std::string> made;
    const Answering watching(SystemCalls::mkdir, [&](const char* path, mode_t mode) {
        made.emplace_back(path);
        return ::mkdir(path, mode);
    });
    EXPECT_TRUE(SystemUtility::MakeDirectories(directory.wide("a/b/c")));
    EXPECT_EQ(made, (std::vector<std::string>{directory / "a/b", directory / "a/b/c"}));
}

TEST(MakeDirectories, TakesPathsInAnyForm) {
    struct Row {
        const char* path;
        const char* made;
    };
    static constexpr Row kRows[] = {{"a", "a"},
                                    {"b/", "b"},
                                    {"c//d///e", "c/d/e"},
                                    {"f/./g/../h", "f/h"},
                                    {"./i/j", "i/j"},
                                    {"link/k/l", "real/k/l"},
                                    {"m\nn/%s%n/\xC3\xA9\xE4\xB8\xAD", "m\nn/%s%n/\xC3\xA9\xE4\xB8\xAD"}};
    const ScratchDirectory directory;
    const KeepsWorkingDirectory keeps;
    const ClientCodePage utf8(65001);
    directory.addDirectory("real");
    fs::create_directory_symlink("real", directory / "link");
    ASSERT_TRUE(SystemUtility::ChangeCurrentWorkingDirectory(wide(directory.path())));
    for (const Row& row : kRows) {
        EXPECT_TRUE(SystemUtility::MakeDirectories(wide(row.path))) << row.path;
        EXPECT_TRUE(fs::is_directory(directory / row.made)) << row.path;
    }
    EXPECT_TRUE(fs::is_directory(directory / "f/g"));
}

TEST(MakeDirectories, EndsAtTheFirstFailure) {
    const ScratchDirectory directory;
    directory.addFile("file");
    errno = 0;
    EXPECT_FALSE(SystemUtility::MakeDirectories(directory.wide("a/../file/b/c")));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOTDIR);
    EXPECT_TRUE(fs::is_directory(directory / "a"));
    errno = 0;
    EXPECT_FALSE(SystemUtility::MakeDirectories(BrimString()));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOENT);
}

TEST(MakeDirectory, NamesAreInTheCodePage) {
    const ScratchDirectory directory;
    {
        const ClientCodePage western(1252);
        EXPECT_TRUE(SystemUtility::MakeDirectory(directory.wide("\xC3\xA9t\xC3\xA9")));
        EXPECT_TRUE(SystemUtility::IsValidDirectory(directory.wide("\xC3\xA9t\xC3\xA9")));
    }
    EXPECT_TRUE(fs::is_directory(directory / "\xE9t\xE9"));
    const ClientCodePage utf8(65001);
    EXPECT_FALSE(SystemUtility::IsValidDirectory(directory.wide("\xC3\xA9t\xC3\xA9")));
}

TEST(MakeDirectory, CharacterThatThePageLacksBecomesAQuestionMark) {
    const ScratchDirectory directory;
    const ClientCodePage western(1252);
    EXPECT_TRUE(SystemUtility::MakeDirectory(directory.wide("a\xE4\xB8\xAD")));
    EXPECT_TRUE(fs::is_directory(directory / "a?"));
}

TEST(IsFileExist, IsTrueForWhateverCanBeExamined) {
    const ScratchDirectory directory;
    const ClientCodePage utf8(65001);
    directory.addFile("file");
    directory.addFile("new\nline %d \xE4\xB8\xAD");
    directory.addDirectory("directory");
    ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
    fs::create_symlink("file", directory / "link");
    fs::create_symlink("nowhere", directory / "dangling");
    for (const char* const name : {"file", "new\nline %d \xE4\xB8\xAD", "directory", "pipe", "link"}) {
        EXPECT_TRUE(SystemUtility::IsFileExist(directory.wide(name))) << name;
    }
    for (const char* const name : {"missing", "dangling", "file/below", "FILE"}) {
        EXPECT_FALSE(SystemUtility::IsFileExist(directory.wide(name))) << name;
    }
    EXPECT_FALSE(SystemUtility::IsFileExist(BrimString()));
    EXPECT_TRUE(SystemUtility::IsFileExist(L"/"));
}

TEST(IsFileExist, NeedsThePermissionToLook) {
    const ScratchDirectory directory;
    directory.addDirectory("closed");
    directory.addFile("closed/file");
    fs::permissions(directory / "closed", fs::perms(0));
    asAnybody(directory, [&] {
        require(!SystemUtility::IsFileExist(directory.wide("closed/file")), 1);
        require(errno == EACCES, 2);
        require(SystemUtility::GetFileSize(directory.wide("closed/file")) == 0, 3);
    });
    fs::permissions(directory / "closed", fs::perms::all);
}

TEST(IsFileExist, PathsMayHave4095Bytes) {
    const ScratchDirectory directory;
    directory.addFile("file");
    const std::string slashes(4095 - directory.path().size() - 4, '/');
    const std::string path = directory.path() + slashes + "file";
    ASSERT_EQ(path.size(), 4095U);
    EXPECT_TRUE(SystemUtility::IsFileExist(wide(path)));
    EXPECT_FALSE(SystemUtility::IsFileExist(wide("/" + path)));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENAMETOOLONG);
}

TEST(GetFileSize, IsTheSizeOfTheFile) {
    const ScratchDirectory directory;
    for (const std::size_t size : {0U, 1U, 4096U, 100'000U}) {
        const std::string path = directory.addFile("file", std::string(size, 'x'));
        EXPECT_EQ(SystemUtility::GetFileSize(wide(path)), size);
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(SystemUtility::GetFileSize(descriptor), size);
        ::close(descriptor);
    }
}

TEST(GetFileSize, HasMoreThan32Bits) {
    const ScratchDirectory directory;
    constexpr std::uint64_t kSize = (std::uint64_t{5} << 32) + 7;
    const std::string path = directory.addFile("file");
    if (::truncate(path.c_str(), static_cast<off_t>(kSize)) != 0) {
        GTEST_SKIP() << "no big files here";
    }
    EXPECT_EQ(SystemUtility::GetFileSize(wide(path)), kSize);
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(SystemUtility::GetFileSize(descriptor), kSize);
    ::close(descriptor);
}

TEST(GetFileSize, IsZeroForWhatCannotBeExamined) {
    const ScratchDirectory directory;
    EXPECT_EQ(SystemUtility::GetFileSize(directory.wide("missing")), 0U);
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOENT);
    EXPECT_EQ(SystemUtility::GetFileSize(-1), 0U);
    EXPECT_EQ(SystemUtility::GetLastSystemError(), EBADF);
    EXPECT_EQ(SystemUtility::GetBlockSize(directory.wide("missing")), 0U);
}

TEST(GetBlockSize, IsThatOfTheFileSystem) {
    const ScratchDirectory directory;
    const std::string path = directory.addFile("file");
    struct stat record = {};
    ASSERT_EQ(::stat(path.c_str(), &record), 0);
    EXPECT_GT(record.st_blksize, 0);
    EXPECT_EQ(SystemUtility::GetBlockSize(wide(path)), static_cast<std::uint64_t>(record.st_blksize));
}

} // namespace
