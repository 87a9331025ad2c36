#include "os_test_support.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <unistd.h>

// ---- System calls: the program's definitions win over the C library's for the library under test ----------

namespace {

// What is next in line, a sanitizer's for example.
template <class F>
F* next(const char* name) {
    return reinterpret_cast<F*>(::dlsym(RTLD_NEXT, name));
}

using brimtest::SystemCalls;

} // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    if (SystemCalls::open != nullptr) {
        return (*SystemCalls::open)(path, flags, mode);
    }
    static const auto real = next<int(const char*, int, ...)>("open");
    return real(path, flags, mode);
}

ssize_t read(int descriptor, void* bytes, std::size_t count) {
    if (SystemCalls::read != nullptr) {
        return (*SystemCalls::read)(descriptor, bytes, count);
    }
    static const auto real = next<ssize_t(int, void*, std::size_t)>("read");
    return real(descriptor, bytes, count);
}

ssize_t write(int descriptor, const void* bytes, std::size_t count) {
    if (SystemCalls::write != nullptr) {
        return (*SystemCalls::write)(descriptor, bytes, count);
    }
    static const auto real = next<ssize_t(int, const void*, std::size_t)>("write");
    return real(descriptor, bytes, count);
}

int close(int descriptor) {
    if (SystemCalls::close != nullptr) {
        return (*SystemCalls::close)(descriptor);
    }
    static const auto real = next<int(int)>("close");
    return real(descriptor);
}

int mkdir(const char* path, mode_t mode) noexcept {
    if (SystemCalls::mkdir != nullptr) {
        return (*SystemCalls::mkdir)(path, mode);
    }
    static const auto real = next<int(const char*, mode_t)>("mkdir");
    return real(path, mode);
}

int gettimeofday(struct timeval* __restrict time, void* __restrict zone) noexcept {
    if (SystemCalls::gettimeofday != nullptr) {
        return (*SystemCalls::gettimeofday)(time);
    }
    static const auto real = next<int(struct timeval*, void*)>("gettimeofday");
    return real(time, zone);
}

int nanosleep(const std::timespec* time, std::timespec* rest) {
    if (SystemCalls::nanosleep != nullptr) {
        return (*SystemCalls::nanosleep)(time, rest);
    }
    static const auto real = next<int(const std::timespec*, std::timespec*)>("nanosleep");
    return real(time, rest);
}

} // extern "C"

namespace brimtest {

ScratchDirectory::ScratchDirectory() {
    std::string pattern =
        std::filesystem::canonical(std::filesystem::temp_directory_path()) / "brim-os-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        ADD_FAILURE() << "mkdtemp: " << std::strerror(errno);
    }
    m_path = pattern;
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string ScratchDirectory::addDirectory(const std::string& name) const {
    std::filesystem::create_directories(*this / name);
    return *this / name;
}

std::string ScratchDirectory::addFile(const std::string& name, const std::string& content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
    return *this / name;
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

mode_t permissionsOf(const std::string& path) {
    struct stat record = {};
    EXPECT_EQ(::stat(path.c_str(), &record), 0) << path;
    return record.st_mode & static_cast<mode_t>(ALLPERMS);
}

KeepsWorkingDirectory::KeepsWorkingDirectory()
    : m_descriptor(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

KeepsWorkingDirectory::~KeepsWorkingDirectory() {
    EXPECT_EQ(::fchdir(m_descriptor), 0);
    ::close(m_descriptor);
}

} // namespace brimtest
