// A directory of a test, and what a test must leave as it was: the working directory and the descriptors.
#pragma once

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPString.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <unistd.h>

namespace brimtest {

/// A directory that is removed with everything in it; in memory where the system has such a place, since
/// tests make and remove hundreds.
class Scratch {
public:
    Scratch() : m_path(base() / "brim-faults-XXXXXX") { EXPECT_NE(::mkdtemp(m_path.data()), nullptr); }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    BrimString wide(const std::string& name) const {
        return BaseStringUtil::StringFrom((*this / name).c_str(), 65001);
    }
    void addFile(const std::string& name, const std::string& content) const {
        std::ofstream(*this / name, std::ios::binary) << content;
    }

private:
    static std::filesystem::path base() {
        const std::filesystem::path inMemory("/dev/shm");
        return ::access(inMemory.c_str(), W_OK | X_OK) == 0
                   ? inMemory
                   : std::filesystem::canonical(std::filesystem::temp_directory_path());
    }

    std::string m_path;
};

inline std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

} // namespace brimtest
