// Errors of the operating system: the thread's last one and the texts.
#include "LastSystemError.h"
#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <cerrno>
#include <cstring>

int sup::lastSystemError() noexcept { return errno; }

sup::String<wchar_t> sup::systemErrorText(int code) {
    char buffer[1024] = {};
    const char* const narrow = ::strerror_r(code, buffer, sizeof(buffer));
    const unsigned int codePage = SystemUtility::GetMultiByteCodePage();
    wchar_t wide[sizeof(buffer)];
    const int units =
        SystemUtility::MultiByteToWideChar(narrow, wide, static_cast<int>(sizeof(buffer)), codePage);
    return String<wchar_t>(wide, units > 0 ? static_cast<std::size_t>(units) - 1 : 0);
}

int SystemUtility::GetLastSystemError() noexcept { return sup::lastSystemError(); }

void SystemUtility::GetSystemErrorString(int code, sup::String<wchar_t>& text) {
    text = GetSystemErrorString(code);
}

sup::String<wchar_t> SystemUtility::GetSystemErrorString(int code) { return sup::systemErrorText(code); }

sup::String<wchar_t> SystemUtility::GetLastSystemErrorString() {
    return GetSystemErrorString(GetLastSystemError());
}
