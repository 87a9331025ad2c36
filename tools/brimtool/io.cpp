#include "io.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace brimtool {

IoError::IoError(const std::string& what, int error)
    : std::runtime_error(what + ": " + std::strerror(error)) {}

Descriptor::~Descriptor() { close(); }

bool Descriptor::close() noexcept {
    const int number = std::exchange(m_number, -1);
    return number == -1 || ::close(number) == 0;
}

InputFile::InputFile(const std::string& name)
    : m_displayName(displayNameOf(name)), m_descriptor(STDIN_FILENO) {
    if (name != "-") {
        m_owned.adopt(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
        m_descriptor = m_owned.number();
    }
    if (m_descriptor == -1 || ::fstat(m_descriptor, &m_status) != 0) {
        throw IoError("cannot open " + m_displayName, errno);
    }
    // Files that are not in memory are read further ahead; others have nothing to be told.
    ::posix_fadvise(m_descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
}

std::string InputFile::displayNameOf(const std::string& name) {
    return name == "-" ? "standard input" : name;
}

std::size_t InputFile::read(char* buffer, std::size_t room) {
    for (;;) {
        const ssize_t got = ::read(m_descriptor, buffer, room);
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR) {
            throw IoError("cannot read " + m_displayName, errno);
        }
    }
}

void writeAll(int descriptor, std::string_view data, const std::string& name) {
    while (!data.empty()) {
        const ssize_t written = ::write(descriptor, data.data(), data.size());
        if (written >= 0) {
            data.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            throw IoError("cannot write " + name, errno);
        }
    }
}

std::uint64_t sizeOfInput(const std::string& name) noexcept {
    struct stat status {};
    const bool known = name == "-" ? ::fstat(STDIN_FILENO, &status) == 0 : ::stat(name.c_str(), &status) == 0;
    return known && S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

} // namespace brimtool
