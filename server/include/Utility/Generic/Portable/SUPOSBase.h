// The replaceable parts of the operating-system layer: the error-message manager and the platform settings.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/memallocnewdel.h"

/// Receives the recoverable failures of the library: a number and up to two narrow texts. The default manager
/// prints one line on standard output and returns; a host may register one of its own, which may throw.
///
/// Registration belongs to start-up, before other threads report failures. A registered manager must outlive
/// every report, so call Register(nullptr) before destroying it.
class BRIMPORTABLE_API UtilityPortableErrorMessageManager : public memalloc::MemAllocNewdel {
public:
    /// The failures. The values travel as plain int.
    enum errCode {
        E_Portable_LackOfSpace = 0,
        E_Portable_EncodingUnsupported = -1,
        E_Portable_DefaultLocaleUnsupported = -2,
        E_Portable_LocaleUnavailable = -3,
        E_Portable_IncompleteCharOrShiftSeq = -4,
        E_Portable_IllegalCharOrShiftSeq = -5,
        E_Portable_BadF = -6,
        E_Portable_UnknownIconvErr = -7,
        E_Portable_UnknownHostname = -8,
        E_Portable_XmlFileNotFound = -9,
        E_Portable_XmlParserFailure = -10,
        E_Portable_WSAStartup = -11,
        E_Portable_GetHostByName = -12
    };

    virtual ~UtilityPortableErrorMessageManager() = default;
    /// Reports failure `code`. `arg1` may be null, and then `arg2` is ignored; `arg2` may be null.
    virtual void ThrowErrorMessage(int code, const char* arg1, const char* arg2) = 0;

    /// Returns the current manager, never null. With `replace` it first makes `mgr` the current one, or the
    /// default one when `mgr` is null.
    static UtilityPortableErrorMessageManager* Get(UtilityPortableErrorMessageManager* mgr, bool replace);
    /// Makes `mgr` the current manager, or the default one when `mgr` is null. Always true. Ownership stays
    /// with the caller.
    static bool Register(UtilityPortableErrorMessageManager* mgr);
};

/// Process-wide settings that a host sets once at start-up, before other threads use the library.
namespace OSAbstraction {

/// The code page of the process's narrow text, which library callers pass for it. 0, the first value, stands
/// for the page of the process's locale (SystemUtility::GetACP).
extern BRIMPORTABLE_API unsigned int g_clientCodePage;

// The system calls under the file operations, each at first the wrapper of the same name. Wide paths are
// converted to the process's code page. A host may put its own functions in their place.

/// getcwd(3) into `buffer` of `length` characters; returns `buffer`, or null on failure.
extern BRIMPORTABLE_API wchar_t* (*g_wgetcwdFuncPtr)(wchar_t* buffer, int length);
/// chdir(2).
extern BRIMPORTABLE_API int (*g_wchdirFuncPtr)(const wchar_t* path);

} // namespace OSAbstraction

BRIMPORTABLE_API wchar_t* WRAP_wgetcwd(wchar_t* buffer, int length);
BRIMPORTABLE_API int WRAP_wchdir(const wchar_t* path);
