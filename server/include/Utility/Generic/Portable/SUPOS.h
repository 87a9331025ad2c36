// SystemUtility: the static functions of the operating-system and code-page layers.
#pragma once

#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPOSBase.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPTranscode.h"

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
    // is the number of units written. With a null destination, or one of length 0, it is the number needed. A
    // destination that is too small receives what fits, possibly cut inside a character, and the result is 0.
    // So it is for a null source, a length below -1, a result beyond INT_MAX, and an unknown code page once
    // the error-message manager has returned from its report. Throws std::bad_alloc.

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

    // ---- Errors of the operating system -------------------------------------------------------------------

    /// The calling thread's errno.
    static int GetLastSystemError() noexcept;
    /// The system's text for error number `code`, also for a number that it does not know.
    static void GetSystemErrorString(int code, sup::String<wchar_t>& text);
    static sup::String<wchar_t> GetSystemErrorString(int code);
};
