// Free functions of the code-page layer. The Windows-style conversions are static members of SystemUtility
// (SUPOS.h).
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>

/// Converts `srcLen` bytes of `codePage` to 16-bit units. Returns the units written, -1 when `dst` is too
/// small, 0 for an unknown code page, which is reported to the error-message manager. No terminating zero is
/// added.
BRIMPORTABLE_API int MultibyteToUcs2_S(unsigned int codePage, const char* src, int srcLen,
                                       unsigned short* dst, int dstLen);
/// The other way; results in bytes.
BRIMPORTABLE_API int Ucs2ToMultibyte_S(unsigned int codePage, const unsigned short* src, int srcLen,
                                       char* dst, int dstLen);
/// The number of 16-bit units before the first 0.
BRIMPORTABLE_API std::size_t UCS2Strlen(const unsigned short* text);

/// The code page of a system locale name, language_territory.codeset@modifier: by its code set ("en_US.UTF-8"
/// is 65001); 1252 for a name without one ("C", "POSIX") or with one that the library does not know.
BRIMPORTABLE_API unsigned int Locale2CodePage(const char* localeName);
