// Files and directories.
#include "Utility/Generic/Portable/SUPOS.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include <cerrno>
#include <cwchar>
#include <fcntl.h>
#include <iterator>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

using String = sup::String<wchar_t>;

constexpr std::size_t kMostDirectoryLength = 8192;
constexpr std::size_t kMostCopiedPath = 4096;
constexpr std::size_t kCopyBlock = 4096;
constexpr mode_t kAllPermissions = 0777;
constexpr int kOwnerPermissions = 0700;

class Descriptor {
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor() {
        if (m_descriptor != -1) {
            const int error = errno; // the failure that ends the operation is the one to tell
            ::close(m_descriptor);
            errno = error;
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return m_descriptor != -1; }
    int get() const { return m_descriptor; }
    bool close() { return ::close(std::exchange(m_descriptor, -1)) == 0; }

private:
    int m_descriptor;
};

// The working directory while a test of another one takes place, and the way back: by name, or by descriptor
// where the name cannot be expressed in the code page. Whoever leaves it by an exception comes back too.
class WorkingDirectory {
public:
    WorkingDirectory() : m_lock(s_mutex), m_descriptor(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        m_isKnown = OSAbstraction::g_wgetcwdFuncPtr(m_name, static_cast<int>(std::size(m_name))) != nullptr;
    }
    ~WorkingDirectory() {
        if (m_isLeft) {
            comeBack();
        }
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    bool leaveFor(const String& path) {
        m_isLeft = m_isKnown && OSAbstraction::g_wchdirFuncPtr(path.c_str()) == 0;
        return m_isLeft;
    }
    bool comeBack() noexcept {
        m_isLeft = false;
        try {
            if (OSAbstraction::g_wchdirFuncPtr(m_name) == 0) {
                return true;
            }
        } catch (...) {
            // No memory for the name: the descriptor needs none.
        }
        return m_descriptor.isOpen() && ::fchdir(m_descriptor.get()) == 0;
    }

private:
    static inline constinit std::mutex s_mutex; // two tests at once would come back to each other's directory
    std::lock_guard<std::mutex> m_lock;
    Descriptor m_descriptor;
    wchar_t m_name[kMostDirectoryLength];
    bool m_isKnown;
    bool m_isLeft = false;
};

bool narrow(const String& path, sup::String<char>& result) {
    if (BaseStringUtil::TryStringToStdString(path, result, SystemUtility::GetMultiByteCodePage())) {
        return true;
    }
    errno = EILSEQ;
    return false;
}

bool stat(const String& path, struct stat& record) {
    return OSAbstraction::g_wstatFuncPtr(path.c_str(), &record) == 0;
}

bool fitsCopyBuffer(const String& path) {
    sup::String<char> bytes;
    if (!narrow(path, bytes)) {
        return false;
    }
    if (bytes.length() >= kMostCopiedPath) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

int openFile(const String& path, int flags) {
    int descriptor = -1;
    do {
        descriptor = OSAbstraction::g_wopenFuncPtr(path.c_str(), flags | O_CLOEXEC, kOwnerPermissions);
    } while (descriptor == -1 && errno == EINTR);
    return descriptor;
}

bool writeAll(int descriptor, const char* bytes, std::size_t count) {
    while (count != 0) {
        const ssize_t written = ::write(descriptor, bytes, count);
        if (written >= 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool copyBytes(int from, int to) {
    char block[kCopyBlock];
    for (;;) {
        const ssize_t count = ::read(from, block, sizeof(block));
        if (count == 0) {
            return true;
        }
        if (count > 0 ? !writeAll(to, block, static_cast<std::size_t>(count)) : errno != EINTR) {
            return false;
        }
    }
}

} // namespace

bool SystemUtility::IsValidDirectory(const String& path) {
    WorkingDirectory before;
    return before.leaveFor(path) && before.comeBack();
}

bool SystemUtility::MakeDirectory(const String& path) {
    if (IsValidDirectory(path)) {
        return true;
    }
    sup::String<char> bytes;
    if (!narrow(path, bytes)) {
        return false;
    }
    // Another process may have made it meanwhile.
    return ::mkdir(bytes.c_str(), kAllPermissions) == 0 || (errno == EEXIST && IsValidDirectory(path));
}

bool SystemUtility::MakeDirectories(const String& path) {
    if (IsValidDirectory(path)) {
        return true;
    }
    for (std::size_t slash = path.find(L'/', 1); slash < path.length(); slash = path.find(L'/', slash + 1)) {
        if (!MakeDirectory(path.substr(0, slash))) {
            return false;
        }
    }
    return MakeDirectory(path);
}

bool SystemUtility::IsFileExist(const String& path) {
    struct stat record;
    return stat(path, record);
}

bool SystemUtility::GetCurrentWorkingDirectory(String& path) {
    wchar_t buffer[kMostDirectoryLength];
    if (OSAbstraction::g_wgetcwdFuncPtr(buffer, static_cast<int>(std::size(buffer))) == nullptr) {
        return false;
    }
    path = buffer;
    return true;
}

bool SystemUtility::ChangeCurrentWorkingDirectory(const String& path) {
    return OSAbstraction::g_wchdirFuncPtr(path.c_str()) == 0;
}

bool SystemUtility::GetFullDirectoryPath(const String& dir, String& path) {
    WorkingDirectory before;
    if (!before.leaveFor(dir)) {
        return false;
    }
    String found;
    const bool isFound = GetCurrentWorkingDirectory(found);
    if (!before.comeBack() || !isFound) {
        return false;
    }
    path = found;
    return true;
}

std::uint64_t SystemUtility::GetFileSize(const String& path) {
    struct stat record;
    return stat(path, record) ? static_cast<std::uint64_t>(record.st_size) : 0;
}

std::uint64_t SystemUtility::GetFileSize(int descriptor) {
    struct stat record;
    return ::fstat(descriptor, &record) == 0 ? static_cast<std::uint64_t>(record.st_size) : 0;
}

std::uint64_t SystemUtility::GetBlockSize(const String& path) {
    struct stat record;
    return stat(path, record) ? static_cast<std::uint64_t>(record.st_blksize) : 0;
}

bool SystemUtility::CopyFile(const String& source, const String& target, bool overwrite) {
    struct stat sourceRecord;
    struct stat targetRecord;
    if (!fitsCopyBuffer(source) || !fitsCopyBuffer(target) || !stat(source, sourceRecord)) {
        return false;
    }
    errno = 0;
    if (stat(target, targetRecord)) {
        const bool isSame =
            sourceRecord.st_dev == targetRecord.st_dev && sourceRecord.st_ino == targetRecord.st_ino;
        if (!overwrite || isSame) {
            errno = EEXIST;
            return false;
        }
    } else if (errno != ENOENT && errno != 0) { // it may be there, and even be the source
        return false;
    }
    if (S_ISDIR(sourceRecord.st_mode)) { // which can be opened, but not read
        errno = EISDIR;
        return false;
    }
    const Descriptor from(openFile(source, O_RDONLY));
    if (!from.isOpen()) {
        return false;
    }
    // Exclusive: somebody else may have made the target meanwhile.
    Descriptor to(openFile(target, O_WRONLY | O_CREAT | O_TRUNC | (overwrite ? 0 : O_EXCL)));
    return to.isOpen() && copyBytes(from.get(), to.get()) && to.close();
}
