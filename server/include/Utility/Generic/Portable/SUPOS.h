// SystemUtility: the static functions of the operating-system and code-page layers.
#pragma once

#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPOSBase.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPTranscode.h"

#include <cstdarg>

class BRIMPORTABLE_API SystemUtility {
public:
    SystemUtility() = delete;

    // ---- Code pages ---------------------------------------------------------------------------------------
    // A code page is a number in the Windows numbering; 0 stands for GetACP(). transcodercache.h lists the
    // built-in pages. Any thread may call.

    /// The code page of the process's narrow text: OSAbstraction::g_clientCodePage.
    static unsigned int GetMultiByteCodePage();
    /// The code page of the process's LC_CTYPE locale as it was at the first call.
    static unsigned int GetACP();
    /// "ANSI" gives what GetACP() has found so far (0 before its first call), "UTF8" 65001, each in any case;
    /// everything else gives -1.
    static int GetCodePageFromString(const sup::String<wchar_t>& name);
    /// True for "ANSI" and "UTF8" in any case; null is false.
    static bool IsValidCodePage(const char* name);

    // ---- Conversions --------------------------------------------------------------------------------------
    // A source length of -1 means a zero-terminated source, whose zero is converted and counted. The result
    // is the number of units written. With a null destination, or one of length 0 or less, it is the number
    // needed. A destination that is too small receives what fits, possibly cut inside a character, and the
    // result is 0. So it is for a null source, a length below -1, a result beyond INT_MAX, and an unknown
    // code page once the error-message manager has returned from its report. Throws std::bad_alloc.

    static int WideCharToMultiByte(const wchar_t* src, int srcLen, char* dst, int dstLen,
                                   unsigned int codePage);
    static int WideCharToMultiByte(const wchar_t* src, char* dst, int dstLen, unsigned int codePage);
    static int WideCharToUTF8(const wchar_t* src, char* dst, int dstLen);
    static int MultiByteToWideChar(const char* src, int srcLen, wchar_t* dst, int dstLen,
                                   unsigned int codePage);
    static int MultiByteToWideChar(const char* src, wchar_t* dst, int dstLen, unsigned int codePage);
    static int UTF8ToWideChar(const char* src, wchar_t* dst, int dstLen);
    static int MultiByteToUcs2(const char* src, int srcLen, unsigned short* dst, int dstLen,
                               unsigned int codePage);
    static int MultiByteToUcs2(const char* src, unsigned short* dst, int dstLen, unsigned int codePage);
    static int Ucs2ToMultiByte(const unsigned short* src, int srcLen, char* dst, int dstLen,
                               unsigned int codePage);
    static int Ucs2ToMultiByte(const unsigned short* src, char* dst, int dstLen, unsigned int codePage);

    // ---- Locales ------------------------------------------------------------------------------------------

    /// Sets the C library's locale for `category` by product locale name: the system locale that the locale
    /// file gives for it, else the name itself. When neither can be set, E_Portable_LocaleUnavailable is
    /// reported with the name and the fallback, "C", and the fallback is set. Returns the system name of the
    /// locale now set. For start-up: other threads must not use the locale meanwhile. A null name is the
    /// environment's locale.
    static const char* NCSetLocale(int category, const char* locale);
    /// The system locale of the first entry of the locale file with this code page; empty when there is none.
    static sup::String<char> GetSystemLocaleFromCodePage(unsigned int codePage);

    // ---- Environment and directories ----------------------------------------------------------------------
    // Each gives a usable value; the result says whether it is real (from the environment, or derived) or a
    // fallback. Variables must not be changed while other threads read them.

    /// The value of an environment variable; false and an empty `value` when it is absent.
    static bool Getenv(const sup::String<wchar_t>& name, sup::String<wchar_t>& value);
    /// The product's home, cached once it was found.
    static bool GetVantaHXHomeDirectory(sup::String<wchar_t>& path);
    /// The server's locale directory, under the home.
    static bool GetServerLocaleDirectory(sup::String<wchar_t>& path);

    // ---- Files and directories ----------------------------------------------------------------------------

    /// True when the process can change into `path`. It does so for a moment, so no other thread may depend
    /// on the working directory meanwhile.
    static bool IsValidDirectory(const sup::String<wchar_t>& path);

    // ---- Formatting ---------------------------------------------------------------------------------------

    /// The wide characters that the formatted text needs, without its zero; negative when the format cannot
    /// be expanded.
    static int GetTotalSizeOfVariableArgumentList(const wchar_t* format, va_list args);

    // ---- Errors of the operating system -------------------------------------------------------------------

    /// The calling thread's errno.
    static int GetLastSystemError() noexcept;
    /// The system's text for error number `code`, also for a number that it does not know.
    static void GetSystemErrorString(int code, sup::String<wchar_t>& text);
    static sup::String<wchar_t> GetSystemErrorString(int code);
};

/// Makes each "//" of `path` a "/", in one pass from left to right, and takes one "/" off its end. "/"
/// becomes empty.
BRIMPORTABLE_API void CleanupPath(sup::String<wchar_t>& path);
