// Where the converted text goes.
//
// A named regular file appears, or changes, only when all is well: the text goes to a new file beside it,
// which takes its name in commit(). Until then, and after a failure or a signal that ends the program, the
// old file is as it was, so an input may be the output too. Everything else (standard output, pipes, devices)
// is written directly.
#pragma once

#include "io.h"

#include <string>
#include <string_view>
#include <sys/stat.h>

namespace brimtool {

class OutputFile {
public:
    /// "-" and the system's names for standard output mean the latter. Only one named file at a time.
    explicit OutputFile(const std::string& name);
    /// Without commit(), a named regular file is left as it was.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(std::string_view data) { writeAll(m_descriptor, data, m_displayName); }
    /// Gives the text its name. Nothing may be written afterwards.
    void commit();

    bool isTerminal() const noexcept;
    /// True when writing goes straight into the regular file that `input` describes.
    bool writesInto(const struct stat& input) const noexcept;

private:
    void openTemporary(const std::string& name);
    void takePermissions();

    std::string m_displayName;
    std::string m_target;    // the file to replace, behind all symbolic links
    std::string m_temporary; // empty when written directly
    struct stat m_replaced {};
    bool m_replaces = false;
    Descriptor m_owned;
    int m_descriptor = -1;
};

} // namespace brimtool
