#include "environment_test_support.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

// ---- System calls: the program's definitions win over the C library's for the library under test ----------

// Sanitizer runtimes make some of these calls before they are ready to check any.
#define BEFORE_SANITIZERS __attribute__((no_sanitize("address", "thread", "undefined")))

extern "C" {

long __sysconf(int name) noexcept; // the C library's own name for it

BEFORE_SANITIZERS long sysconf(int name) noexcept {
    using Calls = brimtest::SystemCalls;
    if (name == _SC_NPROCESSORS_ONLN) {
        if (::getenv(brimtest::kNoProcessorsVariable) != nullptr) {
            return -1;
        }
        if (Calls::processorsAreOurs) {
            return Calls::processors;
        }
    }
    return __sysconf(name);
}

BEFORE_SANITIZERS int getrlimit(__rlimit_resource_t resource, struct rlimit* limit) noexcept {
    using Calls = brimtest::SystemCalls;
    if (Calls::fileLimitFails) {
        errno = EPERM;
        return -1;
    }
    const int result = ::prlimit(0, static_cast<__rlimit_resource>(resource), nullptr, limit);
    if (Calls::fileLimitIsOurs) {
        limit->rlim_cur = Calls::fileLimit;
    }
    return result;
}

BEFORE_SANITIZERS int mkdir(const char* path, mode_t mode) noexcept {
    using Calls = brimtest::SystemCalls;
    if (Calls::printDirectories) {
        std::printf("mkdir %s\n", path);
    }
    if (Calls::refuseDirectories) {
        errno = EROFS;
        return -1;
    }
    return ::mkdirat(AT_FDCWD, path, mode);
}

// Calibrating the timer need not be exact here, so it takes a hundredth of the time.
int nanosleep(const struct timespec* time, struct timespec* rest) {
    constexpr long kNanosPerSecond = 1'000'000'000;
    const long nanos = (time->tv_sec * kNanosPerSecond + time->tv_nsec) / 100;
    const struct timespec shortened { nanos / kNanosPerSecond, nanos % kNanosPerSecond };
    errno = ::clock_nanosleep(CLOCK_REALTIME, 0, &shortened, rest);
    return errno == 0 ? 0 : -1;
}

} // extern "C"

namespace brimtest {

namespace {

// A cache that is filled when the library is loaded would be filled in every fork. So the program starts
// itself anew without the variables of the layout.
__attribute__((constructor)) void startWithoutTheLayout(int /*argc*/, char** argv) {
    static constexpr const char* kVariables[] = {"HX_PRODUCT_HOME", "VANTA_HX_HOME",  "VANTA_HOME",
                                                 "DOMAIN_HOME",     "VANTA_INSTANCE", "COMPONENT_NAME"};
    const bool isFreshProcess = std::getenv("BRIM_TEST_FRESH_PROCESS") != nullptr;
    bool isChanged = false;
    for (const char* const variable : kVariables) {
        if (!isFreshProcess && std::getenv(variable) != nullptr) {
            ::unsetenv(variable);
            isChanged = true;
        }
    }
    if (isChanged) {
        ::execve("/proc/self/exe", argv, environ);
        std::perror("execve");
        std::abort();
    }
}

} // namespace

Tree::Tree() {
    std::string pattern = (std::filesystem::temp_directory_path() / "brim-env-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        ADD_FAILURE() << "mkdtemp: " << std::strerror(errno);
    }
    m_root = pattern;
}

Tree::~Tree() {
    std::error_code ignored;
    std::filesystem::remove_all(m_root, ignored);
}

void Tree::addDirectory(const std::string& name) const {
    std::filesystem::create_directories(m_root + "/" + name);
}

void Tree::addFile(const std::string& name) const {
    std::filesystem::create_directories(std::filesystem::path(m_root + "/" + name).parent_path());
    std::ofstream(m_root + "/" + name) << "content";
}

bool Tree::hasDirectory(const std::string& name) const {
    return std::filesystem::is_directory(m_root + "/" + name);
}

std::string Tree::listing() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_root)) {
        names.push_back(entry.path().string().substr(m_root.size() + 1) + "\n");
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) {
        text += name;
    }
    return text;
}

std::string Tree::expand(std::string text) const {
    for (std::size_t at = text.find("$T"); at != std::string::npos; at = text.find("$T", at)) {
        text.replace(at, 2, m_root);
        at += m_root.size();
    }
    return text;
}

sup::String<wchar_t> wide(const std::string& text) { return BaseStringUtil::StringFrom(text.c_str(), 65001); }

std::string narrow(const sup::String<wchar_t>& text) {
    const sup::String<char> bytes = BaseStringUtil::StringToStdString(text, 65001);
    return {bytes.begin(), bytes.end()};
}

void setVariable(const std::string& name, const std::string& value) {
    ::setenv(name.c_str(), value.c_str(), 1);
}

void show(DirectoryOperation operation) {
    sup::String<wchar_t> path(L"left from before");
    const bool result = operation(path);
    std::printf("%s %s\n", result ? "true" : "false", narrow(path).c_str());
}

void show(const sup::String<wchar_t>& text) { std::printf("%s\n", narrow(text).c_str()); }
void show(bool value) { std::printf("%s\n", value ? "true" : "false"); }
void show(int value) { std::printf("%d\n", value); }

} // namespace brimtest
