// Files are copied, and what stands in the way of it.
#include "Utility/Generic/Portable/SUPOS.h"

#include "os_test_support.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <random>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace brimtest;
namespace fs = std::filesystem;

namespace {

std::string randomBytes(std::size_t count, std::uint32_t seed) {
    std::mt19937 engine(seed);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(engine()); });
    return bytes;
}

// No descriptor may be left open, whatever happens.
class CopyFile : public ::testing::Test {
protected:
    bool copy(const std::string& source, const std::string& target, bool overwrite) const {
        errno = 0;
        return SystemUtility::CopyFile(m_scratch.wide(source), m_scratch.wide(target), overwrite);
    }
    void expectFailure(const std::string& source, const std::string& target, bool overwrite,
                       int error) const {
        EXPECT_FALSE(copy(source, target, overwrite));
        EXPECT_EQ(SystemUtility::GetLastSystemError(), error);
    }
    static std::ptrdiff_t descriptors() {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    }
    void TearDown() override { EXPECT_EQ(descriptors(), m_descriptors); }

    const ClientCodePage m_utf8{65001};
    const ScratchDirectory m_scratch;
    const std::ptrdiff_t m_descriptors = descriptors();
};

TEST_F(CopyFile, CopiesEveryByte) {
    constexpr std::uint32_t kSeed = 5;
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 8192U, 1'048'576U}) {
        SCOPED_TRACE(::testing::Message() << size << " bytes, seed " << kSeed);
        const std::string bytes = randomBytes(size, kSeed);
        m_scratch.addFile("source", bytes);
        fs::remove(m_scratch / "target");
        EXPECT_TRUE(copy("source", "target", false));
        EXPECT_TRUE(contentOf(m_scratch / "target") == bytes);
        EXPECT_TRUE(contentOf(m_scratch / "source") == bytes);
    }
}

TEST_F(CopyFile, ReadsAndWritesBlocksOf4096Bytes) {
    m_scratch.addFile("source", randomBytes(10'000, 1));
    const Answering reading(SystemCalls::read, [](int descriptor, void* bytes, std::size_t count) {
        EXPECT_EQ(count, 4096U);
        return ::read(descriptor, bytes, count);
    });
    std::vector<std::size_t> written;
    const Answering writing(SystemCalls::write, [&](int descriptor, const void* bytes, std::size_t count) {
        written.push_back(count);
        return ::write(descriptor, bytes, count);
    });
    EXPECT_TRUE(copy("source", "target", false));
    EXPECT_EQ(written, (std::vector<std::size_t>{4096, 4096, 1808}));
}

TEST_F(CopyFile, OverwritesOnRequestOnly) {
    m_scratch.addFile("source", "new");
    m_scratch.addFile("target", "old and longer");
    expectFailure("source", "target", false, EEXIST);
    EXPECT_EQ(contentOf(m_scratch / "target"), "old and longer");
    EXPECT_TRUE(copy("source", "target", true));
    EXPECT_EQ(contentOf(m_scratch / "target"), "new");
}

TEST_F(CopyFile, ATargetMadeMeanwhileIsNotOverwrittenUnasked) {
    m_scratch.addFile("source", "new");
    const Answering opening(SystemCalls::open, [&](const char* path, int flags, mode_t mode) {
        if ((flags & O_CREAT) != 0) {
            m_scratch.addFile("target", "somebody else's");
        }
        return ::open(path, flags, mode);
    });
    expectFailure("source", "target", false, EEXIST);
    EXPECT_EQ(contentOf(m_scratch / "target"), "somebody else's");
}

TEST_F(CopyFile, TheTargetIsTheOwnersAtMost) {
    struct Row {
        mode_t mask;
        mode_t left;
    };
    static constexpr Row kRows[] = {{0, 0700}, {022, 0700}, {077, 0700}, {0177, 0600}};
    fs::permissions(m_scratch.addFile("source"), fs::perms(0644));
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.mask);
        const FileCreationMask mask(row.mask);
        fs::remove(m_scratch / "target");
        EXPECT_TRUE(copy("source", "target", false));
        EXPECT_EQ(permissionsOf(m_scratch / "target"), row.left);
    }
}

TEST_F(CopyFile, AnOverwrittenTargetKeepsItsPermissions) {
    m_scratch.addFile("source");
    fs::permissions(m_scratch.addFile("target"), fs::perms(0640));
    EXPECT_TRUE(copy("source", "target", true));
    EXPECT_EQ(permissionsOf(m_scratch / "target"), 0640U);
}

TEST_F(CopyFile, AFileIsNotCopiedOntoItself) {
    m_scratch.addFile("source", "precious");
    fs::create_hard_link(m_scratch / "source", m_scratch / "hard");
    fs::create_symlink("source", m_scratch / "soft");
    fs::create_symlink("soft", m_scratch / "softer");
    for (const char* const target : {"source", "./source", "hard", "soft", "softer"}) {
        SCOPED_TRACE(target);
        for (const bool overwrite : {false, true}) {
            expectFailure("source", target, overwrite, EEXIST);
            expectFailure(target, "source", overwrite, EEXIST);
        }
        EXPECT_EQ(contentOf(m_scratch / "source"), "precious");
    }
}

TEST_F(CopyFile, FollowsSymbolicLinks) {
    m_scratch.addFile("source", "new");
    m_scratch.addFile("target", "old");
    fs::create_symlink("source", m_scratch / "fromlink");
    fs::create_symlink("target", m_scratch / "tolink");
    fs::create_symlink("made", m_scratch / "dangling");
    EXPECT_TRUE(copy("fromlink", "tolink", true));
    EXPECT_TRUE(fs::is_symlink(m_scratch / "tolink"));
    EXPECT_EQ(contentOf(m_scratch / "target"), "new");
    EXPECT_TRUE(copy("source", "dangling", true));
    EXPECT_EQ(contentOf(m_scratch / "made"), "new");
}

TEST_F(CopyFile, NeedsASourceThatCanBeRead) {
    m_scratch.addDirectory("directory");
    m_scratch.addFile("target", "old");
    fs::create_symlink("nowhere", m_scratch / "dangling");
    expectFailure("missing", "target", true, ENOENT);
    expectFailure("missing", "made", true, ENOENT);
    expectFailure("dangling", "target", true, ENOENT);
    expectFailure("directory", "target", true, EISDIR);
    expectFailure("directory", "made", false, EISDIR);
    EXPECT_EQ(contentOf(m_scratch / "target"), "old");
    EXPECT_FALSE(fs::exists(m_scratch / "made"));
}

TEST_F(CopyFile, NeedsATargetThatCanBeWritten) {
    m_scratch.addFile("source");
    m_scratch.addDirectory("directory");
    expectFailure("source", "directory", false, EEXIST);
    expectFailure("source", "directory", true, EISDIR);
    expectFailure("source", "missing/made", true, ENOENT);
    expectFailure("source", "source/made", true, ENOTDIR);
    EXPECT_TRUE(fs::is_empty(m_scratch / "directory"));
}

TEST_F(CopyFile, ShortAndInterruptedCallsGoOn) {
    constexpr std::uint32_t kSeed = 11;
    SCOPED_TRACE(kSeed);
    const std::string bytes = randomBytes(20'000, kSeed);
    m_scratch.addFile("source", bytes);
    std::mt19937 engine(kSeed);
    const auto isInterrupted = [&engine] {
        errno = EINTR;
        return engine() % 3 == 0;
    };
    const auto part = [&engine](std::size_t count) { return 1 + engine() % count; };
    int interruptions = 0;
    for (int i = 0; i < 20; ++i) {
        fs::remove(m_scratch / "target");
        {
            const Answering opening(SystemCalls::open, [&](const char* path, int flags, mode_t mode) {
                return isInterrupted() && ++interruptions ? -1 : ::open(path, flags, mode);
            });
            const Answering reading(SystemCalls::read, [&](int descriptor, void* to, std::size_t count) {
                return isInterrupted() && ++interruptions ? -1 : ::read(descriptor, to, part(count));
            });
            const Answering writing(
                SystemCalls::write, [&](int descriptor, const void* from, std::size_t count) {
                    return isInterrupted() && ++interruptions ? -1 : ::write(descriptor, from, part(count));
                });
            EXPECT_TRUE(copy("source", "target", false));
        }
        EXPECT_TRUE(contentOf(m_scratch / "target") == bytes);
    }
    EXPECT_GT(interruptions, 0);
}

TEST_F(CopyFile, AFailedCallIsAFailedCopy) {
    m_scratch.addFile("source", randomBytes(10'000, 1));
    const auto fails = [](int error) {
        errno = error;
        return -1;
    };
    int calls = 0;
    {
        const Answering full(SystemCalls::write, [&](int descriptor, const void* bytes, std::size_t count) {
            return ++calls == 2 ? fails(ENOSPC) : ::write(descriptor, bytes, count);
        });
        expectFailure("source", "target", true, ENOSPC);
        EXPECT_EQ(calls, 2);
    }
    {
        calls = 0;
        const Answering broken(SystemCalls::read, [&](int descriptor, void* bytes, std::size_t count) {
            return ++calls == 2 ? fails(EIO) : ::read(descriptor, bytes, count);
        });
        expectFailure("source", "target", true, EIO);
        EXPECT_EQ(calls, 2);
    }
    for (const int failing : {O_RDONLY, O_WRONLY}) {
        const Answering refused(SystemCalls::open, [&](const char* path, int flags, mode_t mode) {
            return (flags & O_ACCMODE) == failing ? fails(EACCES) : ::open(path, flags, mode);
        });
        expectFailure("source", "target", true, EACCES);
    }
    const Answering late(SystemCalls::close, [&](int descriptor) {
        ::close(descriptor);
        return fails(EDQUOT); // as a file system tells that writes once accepted are lost
    });
    expectFailure("source", "target", true, EDQUOT);
}

TEST_F(CopyFile, AFullFileSystemIsTold) {
    if (::access("/dev/full", W_OK) != 0) {
        GTEST_SKIP() << "no /dev/full";
    }
    m_scratch.addFile("source");
    EXPECT_FALSE(SystemUtility::CopyFile(m_scratch.wide("source"), L"/dev/full", true));
    EXPECT_EQ(SystemUtility::GetLastSystemError(), ENOSPC);
}

TEST_F(CopyFile, PathsMayHave4095Bytes) {
    m_scratch.addFile("source");
    const auto padded = [&](const std::string& name, std::size_t size) {
        return m_scratch.path() + std::string(size - m_scratch.path().size() - name.size(), '/') + name;
    };
    // Characters of more than one byte count as what they are in UTF-8.
    for (const std::string name : {"target", "\xE4\xB8\xAD"}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(SystemUtility::CopyFile(wide(padded("source", 4095)), wide(padded(name, 4095)), false));
        EXPECT_EQ(contentOf(m_scratch / name), "content");
        // Longer ones do not even get to the system.
        const Redirected stat(OSAbstraction::g_wstatFuncPtr, [](const wchar_t*, struct stat*) {
            ADD_FAILURE() << "examined";
            return -1;
        });
        for (const std::size_t size : {4096U, 100'000U}) {
            EXPECT_FALSE(SystemUtility::CopyFile(wide(padded("source", size)), m_scratch.wide("made"), true));
            EXPECT_EQ(SystemUtility::GetLastSystemError(), ENAMETOOLONG);
            EXPECT_FALSE(SystemUtility::CopyFile(m_scratch.wide("source"), wide(padded(name, size)), true));
            EXPECT_EQ(SystemUtility::GetLastSystemError(), ENAMETOOLONG);
        }
    }
}

TEST_F(CopyFile, NamesMayHoldAnything) {
    for (const std::string name : {"new\nline", "%s%n", "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80", " "}) {
        m_scratch.addFile(name, name);
        EXPECT_TRUE(copy(name, name + "copy", false)) << name;
        EXPECT_EQ(contentOf(m_scratch / (name + "copy")), name);
    }
}

TEST_F(CopyFile, UnderAnotherPageFilesAreExaminedByItAndOpenedByTheirUtf8Name) {
    m_scratch.addFile("\xE9", "by page");
    const ClientCodePage western(1252);
    expectFailure("\xC3\xA9", "target", false, ENOENT);
    m_scratch.addFile("\xC3\xA9", "by UTF-8");
    EXPECT_TRUE(copy("\xC3\xA9", "target", false));
    EXPECT_EQ(contentOf(m_scratch / "target"), "by UTF-8");
}

TEST_F(CopyFile, AnUnknownPageTouchesNothing) {
    m_scratch.addFile("source");
    const ClientCodePage unknown(99999);
    RecordingManager manager;
    expectFailure("source", "target", true, EILSEQ);
    EXPECT_FALSE(fs::exists(m_scratch / "target"));
}

} // namespace
