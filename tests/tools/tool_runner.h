// Runs brimtool as a child process, with everything that it writes.
#pragma once

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace brimtest {

struct ToolResult {
    std::string output; // standard output
    std::string errors; // standard error
    int exitCode = -1;  // -1 when a signal ended the tool
    int signal = 0;
    long maxResidentKilobytes = 0;
};

std::ostream& operator<<(std::ostream& stream, const ToolResult& result);

struct ToolRun {
    std::vector<std::string> arguments; // without the program's name
    std::string input;                  // standard input
    /// 0: the input comes as the system pleases. Otherwise each read of the tool gets this many bytes.
    std::size_t readLength = 0;
    std::vector<std::pair<std::string, std::string>> environment; // added
    /// The tool gets no other variables, those of the sanitizers apart.
    bool hasOwnEnvironment = false;
    /// Runs in the child before the tool starts, after its standard streams have been set up.
    std::function<void()> setUp;

    ToolResult run() const;
};

/// `brimtool transcode --from FROM --to TO`, and more arguments.
ToolRun transcodeRun(const std::string& from, const std::string& to, std::string input = {},
                     const std::vector<std::string>& more = {});

/// A directory that lives as long as the object.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string path(const std::string& name) const { return m_path / name; }
    const std::filesystem::path& path() const { return m_path; }
    /// The names in it, sorted.
    std::vector<std::string> names() const;

private:
    std::filesystem::path m_path;
};

void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);

/// iconv(3); an empty text when it fails.
std::string systemIconv(const std::string& from, const std::string& to, const std::string& text);

} // namespace brimtest
