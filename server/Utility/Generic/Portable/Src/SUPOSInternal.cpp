// The replaceable platform wrappers: each converts its paths, calls the system, and returns. Decisions lie
// above.
#include "Utility/Generic/Portable/SUPOSBase.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <unistd.h>

wchar_t* (*OSAbstraction::g_wgetcwdFuncPtr)(wchar_t* buffer, int length) = WRAP_wgetcwd;
int (*OSAbstraction::g_wchdirFuncPtr)(const wchar_t* path) = WRAP_wchdir;

namespace {

constexpr int kMostPathBytes = 4 * 8192;

// False, with errno set, for a path that the code page cannot express.
bool narrowPath(const wchar_t* path, sup::String<char>& narrow) {
    if (path != nullptr &&
        BaseStringUtil::TryStringToStdString(path, narrow, SystemUtility::GetMultiByteCodePage())) {
        return true;
    }
    errno = path == nullptr ? EFAULT : EILSEQ;
    return false;
}

} // namespace

wchar_t* WRAP_wgetcwd(wchar_t* buffer, int length) {
    char narrow[kMostPathBytes];
    if (::getcwd(narrow, sizeof(narrow)) == nullptr) {
        return nullptr;
    }
    if (SystemUtility::MultiByteToWideChar(narrow, buffer, length, SystemUtility::GetMultiByteCodePage()) <
        1) {
        errno = ERANGE;
        return nullptr;
    }
    return buffer;
}

int WRAP_wchdir(const wchar_t* path) {
    sup::String<char> narrow;
    return narrowPath(path, narrow) ? ::chdir(narrow.c_str()) : -1;
}

int SystemUtility::GetTotalSizeOfVariableArgumentList(const wchar_t* format, va_list args) {
    // vswprintf does not tell how much it would have written, so a text that does not fit here is written to
    // a stream in memory that grows.
    wchar_t buffer[512];
    va_list again;
    va_copy(again, args);
    int length = std::vswprintf(buffer, sizeof(buffer) / sizeof(*buffer), format, again);
    va_end(again);
    if (length >= 0) {
        return length;
    }
    wchar_t* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = ::open_wmemstream(&text, &size);
    if (stream == nullptr) {
        return -1;
    }
    va_copy(again, args);
    length = std::vfwprintf(stream, format, again);
    va_end(again);
    std::fclose(stream);
    std::free(text);
    return length;
}
