#include "output_file.h"

#include "standard_streams.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <unistd.h>

namespace brimtool {

namespace {

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGTERM};

// What the signal handler removes; empty when there is nothing.
char g_temporaryName[PATH_MAX];

void removeTemporaryAndEnd(int signal) {
    if (g_temporaryName[0] != '\0') {
        ::unlink(g_temporaryName);
    }
    ::raise(signal); // the default action, once this returns: SA_RESETHAND
}

// Holds back the ending signals for as long as it lives.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t ending;
        ::sigemptyset(&ending);
        for (const int signal : kEndingSignals) {
            ::sigaddset(&ending, signal);
        }
        ::sigprocmask(SIG_BLOCK, &ending, &m_before);
    }
    ~SignalsBlocked() { ::sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};

void installSignalHandlers() {
    for (const int signal : kEndingSignals) {
        struct sigaction before {};
        ::sigaction(signal, nullptr, &before);
        if (before.sa_handler == SIG_IGN) { // as nohup leaves it
            continue;
        }
        struct sigaction action {};
        action.sa_handler = removeTemporaryAndEnd;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        ::sigaction(signal, &action, nullptr);
    }
}

bool namesStandardOutput(const std::string& name) {
    static constexpr const char* kNames[] = {"-", "/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"};
    return std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames);
}

// Follows symbolic links also when the last one leads to no file yet.
std::filesystem::path followLinks(std::filesystem::path path) {
    constexpr int kMostLinks = 40;
    std::error_code ignored;
    for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(path, ignored); ++i) {
        path = path.parent_path() / std::filesystem::read_symlink(path, ignored);
    }
    return path;
}

mode_t currentUmask() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

} // namespace

OutputFile::OutputFile(const std::string& name) {
    if (namesStandardOutput(name)) {
        m_displayName = "standard output";
        m_owned.adopt(dataOutput());
        m_descriptor = m_owned.number();
        return;
    }
    m_displayName = name;
    m_replaces = ::stat(name.c_str(), &m_replaced) == 0;
    if (!m_replaces && errno != ENOENT) {
        throw IoError("cannot open " + name, errno);
    }
    if (m_replaces && !S_ISREG(m_replaced.st_mode)) {
        m_owned.adopt(::open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
        if (!m_owned.isOpen()) {
            throw IoError("cannot open " + name, errno);
        }
    } else {
        openTemporary(name);
    }
    m_descriptor = m_owned.number();
}

OutputFile::~OutputFile() {
    if (!m_temporary.empty()) {
        const SignalsBlocked blocked;
        ::unlink(m_temporary.c_str());
        g_temporaryName[0] = '\0';
    }
}

void OutputFile::openTemporary(const std::string& name) {
    if (m_replaces && ::faccessat(AT_FDCWD, name.c_str(), W_OK, AT_EACCESS) != 0) {
        throw IoError("cannot write " + name, errno);
    }
    const std::filesystem::path target = followLinks(name);
    std::string temporary = target.parent_path() / ".brimtool.XXXXXX";
    if (!target.has_filename() || temporary.size() >= sizeof(g_temporaryName)) {
        throw IoError("cannot open " + name, target.has_filename() ? ENAMETOOLONG : ENOENT);
    }
    installSignalHandlers();
    const SignalsBlocked blocked;
    m_owned.adopt(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!m_owned.isOpen()) {
        throw IoError("cannot create a file beside " + name, errno);
    }
    m_target = target;
    m_temporary = temporary;
    std::memcpy(g_temporaryName, temporary.c_str(), temporary.size() + 1);
}

// Those of the replaced file, or those that any new file gets.
void OutputFile::takePermissions() {
    if (m_replaces && ::fchown(m_descriptor, m_replaced.st_uid, m_replaced.st_gid) != 0) {
        // The owner of the new file is who made it, as with any editor that saves by replacing.
    }
    const mode_t mode = m_replaces ? m_replaced.st_mode & 0777U : 0666U & ~currentUmask();
    if (::fchmod(m_descriptor, mode) != 0) {
        throw IoError("cannot set the permissions of " + m_displayName, errno);
    }
}

void OutputFile::commit() {
    if (!m_temporary.empty()) {
        takePermissions();
        // What is replaced may be the only copy of the text, so the new one must be on the disk first.
        if (m_replaces && ::fsync(m_descriptor) != 0) {
            throw IoError("cannot write " + m_displayName, errno);
        }
    }
    if (m_owned.isOpen() && !m_owned.close()) {
        throw IoError("cannot write " + m_displayName, errno);
    }
    if (!m_temporary.empty()) {
        const SignalsBlocked blocked;
        if (std::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
            throw IoError("cannot write " + m_displayName, errno);
        }
        m_temporary.clear();
        g_temporaryName[0] = '\0';
    }
}

bool OutputFile::isTerminal() const noexcept { return ::isatty(m_descriptor) == 1; }

bool OutputFile::writesInto(const struct stat& input) const noexcept {
    struct stat output {};
    return m_temporary.empty() && ::fstat(m_descriptor, &output) == 0 && S_ISREG(output.st_mode) &&
           output.st_dev == input.st_dev && output.st_ino == input.st_ino;
}

} // namespace brimtool
