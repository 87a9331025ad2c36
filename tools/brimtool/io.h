// Reading and writing whole buffers by descriptor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace brimtool {

/// A file that cannot be opened, read or written.
class IoError : public std::runtime_error {
public:
    /// `error` is the errno of what failed.
    IoError(const std::string& what, int error);
};

/// Owns a descriptor, or not.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : m_number(number) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const noexcept { return m_number; }
    bool isOpen() const noexcept { return m_number != -1; }
    void adopt(int number) noexcept { m_number = number; }
    /// Closes it; false, with errno set, when that reports an error.
    bool close() noexcept;

private:
    int m_number = -1;
};

/// One input: a file, or standard input when the name is "-".
class InputFile {
public:
    explicit InputFile(const std::string& name);

    /// Reads up to `room` bytes; 0 at the end.
    std::size_t read(char* buffer, std::size_t room);
    /// What messages call the file `name`.
    static std::string displayNameOf(const std::string& name);
    const std::string& displayName() const noexcept { return m_displayName; }
    const struct stat& status() const noexcept { return m_status; }

private:
    std::string m_displayName;
    Descriptor m_owned;
    int m_descriptor;
    struct stat m_status {};
};

/// Writes all of `data`; `name` is for the message.
void writeAll(int descriptor, std::string_view data, const std::string& name);

/// The bytes that reading the named input will give, or 0 when that cannot be known.
std::uint64_t sizeOfInput(const std::string& name) noexcept;

} // namespace brimtool
