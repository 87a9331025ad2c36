// Files and directories.
#include "Utility/Generic/Portable/SUPOS.h"

#include <iterator>

bool SystemUtility::IsValidDirectory(const sup::String<wchar_t>& path) {
    wchar_t current[8192];
    if (OSAbstraction::g_wgetcwdFuncPtr(current, static_cast<int>(std::size(current))) == nullptr ||
        OSAbstraction::g_wchdirFuncPtr(path.c_str()) != 0) {
        return false;
    }
    OSAbstraction::g_wchdirFuncPtr(current);
    return true;
}
