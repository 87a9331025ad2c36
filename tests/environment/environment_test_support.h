// What the tests of the environment and the directory layout share: temporary trees, and processes that have
// asked nothing yet, so that no cache is filled.
#pragma once

#include "Utility/Generic/Portable/SUPOS.h"

#include "child_process.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace brimtest {

using Variables = std::vector<std::pair<std::string, std::string>>;
using DirectoryOperation = bool (*)(sup::String<wchar_t>& path);

/// A directory that is removed with everything in it. In texts "$T" stands for it.
class Tree {
public:
    Tree();
    ~Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    const std::string& root() const { return m_root; }
    void addDirectory(const std::string& name) const;
    void addFile(const std::string& name) const;
    bool hasDirectory(const std::string& name) const;
    /// All that is in it, sorted, each name followed by a line feed.
    std::string listing() const;
    std::string expand(std::string text) const;

private:
    std::string m_root;
};

/// The system calls of the library that a test looks at or lets fail, in this process. Set before threads
/// start.
struct SystemCalls {
    /// What sysconf() gives for the number of processors; 0 and more, or -1.
    static inline long processors{0};
    static inline bool processorsAreOurs{false};
    /// The soft limit on open files, or that it cannot be told.
    static inline unsigned long fileLimit{0};
    static inline bool fileLimitIsOurs{false};
    static inline bool fileLimitFails{false};
    /// Directories are made nowhere: each attempt fails.
    static inline bool refuseDirectories{false};
    /// Each attempt to make a directory prints a line "mkdir PATH".
    static inline bool printDirectories{false};
};

/// The name of an environment variable that makes the number of processors unknown from load time on.
inline constexpr const char* kNoProcessorsVariable = "BRIM_TEST_NO_PROCESSORS";

/// The wide text of UTF-8.
sup::String<wchar_t> wide(const std::string& text);
std::string narrow(const sup::String<wchar_t>& text);

void setVariable(const std::string& name, const std::string& value);

/// Prints "true PATH" or "false PATH" and a line feed.
void show(DirectoryOperation operation);
void show(const sup::String<wchar_t>& text);
void show(bool value);
void show(int value);

/// What `body` prints in a fork of this process that has exactly the `variables` (values expanded) for an
/// environment, UTF-8 for a code page, and the tree for a working directory. Nothing of the library that
/// these tests are about has been asked before the fork.
template <class Body>
std::string answers(const Tree& tree, const Variables& variables, Body body) {
    const ChildResult result = runInChild([&] {
        ::clearenv();
        for (const auto& [name, value] : variables) {
            setVariable(name, tree.expand(value));
        }
        OSAbstraction::g_clientCodePage = 65001;
        if (::chdir(tree.root().c_str()) != 0) {
            ::_exit(97);
        }
        body();
        std::fflush(stdout);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    return result.output;
}

} // namespace brimtest
