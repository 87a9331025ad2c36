// The replaceable platform wrappers: each converts its texts, calls the system, and returns. Decisions lie
// above. Those that depend on a locale are in SUPOSLocale.cpp.
#include "Utility/Generic/Portable/SUPOSBase.h"

#include "DefaultEventSource.h"
#include "LoadTime.h"
#include "TerminatedText.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace OSAbstraction {

int (*g_wopenFuncPtr)(const wchar_t* path, int flags, int mode) = WRAP_wopen;
std::FILE* (*g_wfopenFuncPtr)(const wchar_t* path, const wchar_t* mode) = WRAP_wfopen;
int (*g_wremoveFuncPtr)(const wchar_t* path) = WRAP_wremove;
int (*g_wrmdirFuncPtr)(const wchar_t* path) = WRAP_wrmdir;
int (*g_wstatFuncPtr)(const wchar_t* path, struct stat* record) = WRAP_wstat;
wchar_t* (*g_wgetcwdFuncPtr)(wchar_t* buffer, int length) = WRAP_wgetcwd;
int (*g_wchdirFuncPtr)(const wchar_t* path) = WRAP_wchdir;
void (*g_wlogerrorFuncPtr)(bool toSystemLog, const wchar_t* message) = WRAP_wlogerror;

} // namespace OSAbstraction

namespace {

constexpr int kMostPathBytes = 4 * 8192;
constexpr unsigned int kUtf8 = 65001;

constexpr const char* kSystemLogIdentity = "Solace";
constexpr std::size_t kSystemLogBuffer = 1024;

// False, with errno set, for a path that the code page cannot express.
bool narrowPath(const wchar_t* path, sup::String<char>& narrow, unsigned int codePage) {
    if (path != nullptr && BaseStringUtil::TryStringToStdString(path, narrow, codePage)) {
        return true;
    }
    errno = path == nullptr ? EFAULT : EILSEQ;
    return false;
}

bool narrowPath(const wchar_t* path, sup::String<char>& narrow) {
    return narrowPath(path, narrow, SystemUtility::GetMultiByteCodePage());
}

bool isSystemLoggingOff() {
    sup::String<wchar_t> value;
    return SystemUtility::Getenv(L"VANTA_HX_SYSTEM_LOGGING", value) &&
           !BaseStringUtil::BooleanFrom(value, false);
}

// To the descriptor: a narrow stream refuses wide text and a wide one bytes.
void writeToStandardError(const sup::String<char>& text) {
    std::fflush(stderr);
    const char* rest = text.begin();
    while (rest != text.end()) {
        const ssize_t written = ::write(STDERR_FILENO, rest, static_cast<std::size_t>(text.end() - rest));
        if (written < 0 && errno != EINTR) {
            return;
        }
        rest += std::max<ssize_t>(written, 0);
    }
}

void writeToSystemLog(const sup::String<char>& message) {
    const std::string_view text(message.begin(), std::min(message.length(), kSystemLogBuffer - 1));
    char buffer[kSystemLogBuffer] = {};
    text.copy(buffer, text.size());
    ::openlog(kSystemLogIdentity, LOG_PID | LOG_CONS, LOG_DAEMON);
    // The message is no format: a directive in it must not read what nobody passed.
    ::syslog(LOG_ERR, "%s", buffer);
    ::closelog();
}

} // namespace

int WRAP_wopen(const wchar_t* path, int flags, int mode) {
    sup::String<char> narrow;
    return narrowPath(path, narrow, kUtf8) ? ::open(narrow.c_str(), flags, mode) : -1;
}

std::FILE* WRAP_wfopen(const wchar_t* path, const wchar_t* mode) {
    sup::String<char> narrow;
    sup::String<char> narrowMode;
    return narrowPath(path, narrow) && narrowPath(mode, narrowMode)
               ? std::fopen(narrow.c_str(), narrowMode.c_str())
               : nullptr;
}

int WRAP_wremove(const wchar_t* path) {
    sup::String<char> narrow;
    return narrowPath(path, narrow) ? ::unlink(narrow.c_str()) : -1;
}

int WRAP_wrmdir(const wchar_t* path) {
    sup::String<char> narrow;
    return narrowPath(path, narrow) ? ::rmdir(narrow.c_str()) : -1;
}

int WRAP_wstat(const wchar_t* path, struct stat* record) {
    sup::String<char> narrow;
    return narrowPath(path, narrow) ? ::stat(narrow.c_str(), record) : -1;
}

wchar_t* WRAP_wgetcwd(wchar_t* buffer, int length) {
    char narrow[kMostPathBytes];
    if (::getcwd(narrow, sizeof(narrow)) == nullptr) {
        return nullptr;
    }
    if (buffer == nullptr || length <= 0) { // which would only ask for the size
        errno = EINVAL;
        return nullptr;
    }
    if (sup::widenTerminated(narrow, buffer, length, SystemUtility::GetMultiByteCodePage()) < 1) {
        errno = ERANGE;
        return nullptr;
    }
    return buffer;
}

int WRAP_wchdir(const wchar_t* path) {
    sup::String<char> narrow;
    return narrowPath(path, narrow) ? ::chdir(narrow.c_str()) : -1;
}

void WRAP_wlogerror(bool toSystemLog, const wchar_t* message) {
    if (message == nullptr || *message == L'\0' || isSystemLoggingOff()) {
        return;
    }
    sup::String<char> narrow;
    if (!BaseStringUtil::TryStringToStdString(message, narrow, SystemUtility::GetMultiByteCodePage())) {
        BaseStringUtil::TryStringToStdString(message, narrow,
                                             kUtf8); // an unknown page: the error still shows
    }
    writeToStandardError(sup::String<char>(narrow).append("\n"));
    if (toSystemLog) {
        writeToSystemLog(narrow);
    }
}

constinit sup::String<char> DefaultEventSource::m_sDefaultSolaceEventSource;

void sup::loadtime::nameDefaultEventSource() {
    DefaultEventSource::m_sDefaultSolaceEventSource = "Vanta HX Utility";
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
