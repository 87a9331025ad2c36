// DynamicLoader: shared libraries and their symbols by name, at run time.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"

/// A library is an untyped handle, null for none. Any thread may call; the text of a failure belongs to the
/// thread whose call failed, until its next call here.
class BRIMPORTABLE_API DynamicLoader {
public:
    DynamicLoader() = delete;

    /// What a failure does.
    enum OnError {
        kThrowException = 0, ///< BrimAssert::handleOSError() with "name. text of the loader"; then null
        kOnErrorReturn = 1   ///< null
    };

    /// "lib", the base name (in lower case on request), "64" on request, ".so".
    static sup::String<wchar_t> makeLibName(const sup::String<wchar_t>& baseName, bool add64,
                                            const sup::String<wchar_t>& ignored, bool lowerCase);
    /// dlopen(3) with all symbols resolved at once; `global` offers them to libraries loaded later. The name
    /// is converted to the locale's multibyte form and cut to 255 bytes; one that is empty, or that cannot be
    /// converted, is a failure.
    static void* loadLib(const sup::String<wchar_t>& fileName, bool ignored, bool global, OnError onError);
    /// The address of a symbol of a library. A null handle gives null, whatever `onError`.
    static void* loadSymbol(void* library, const char* symbol, OnError onError);
    /// The address of a symbol in the global scope of the process.
    static void* findSymbol(const char* symbol, OnError onError);
    /// True when the library was given back; true for a null handle.
    static bool unloadLib(void* library);
    /// Puts the text of the last failure, and forgets it, into `buffer` of `length` characters, cut and
    /// zero-terminated. Returns the characters written, the zero included; 1 when there was no failure.
    static unsigned int lastError(wchar_t* buffer, unsigned int length);
};
