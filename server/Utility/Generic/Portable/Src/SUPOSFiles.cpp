// Files and directories.
#include "Utility/Generic/Portable/SUPOS.h"

#include <fcntl.h>
#include <iterator>
#include <unistd.h>

namespace {

// The working directory, to come back to even when its name cannot be expressed in the code page.
class WorkingDirectory {
public:
    WorkingDirectory() : m_descriptor(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
    ~WorkingDirectory() {
        if (m_descriptor != -1) {
            ::close(m_descriptor);
        }
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    bool enter() const { return m_descriptor != -1 && ::fchdir(m_descriptor) == 0; }

private:
    int m_descriptor;
};

} // namespace

bool SystemUtility::IsValidDirectory(const sup::String<wchar_t>& path) {
    const WorkingDirectory before;
    wchar_t current[8192];
    if (OSAbstraction::g_wgetcwdFuncPtr(current, static_cast<int>(std::size(current))) == nullptr ||
        OSAbstraction::g_wchdirFuncPtr(path.c_str()) != 0) {
        return false;
    }
    return OSAbstraction::g_wchdirFuncPtr(current) == 0 || before.enter();
}
