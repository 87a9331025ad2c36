// Free functions of the code-page layer. The Windows-style conversions are static members of SystemUtility
// (SUPOS.h).
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/SUPString.h"

#include <cstddef>
#include <functional>
#include <map>
#include <utility>

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

/// The code page of a system locale name, `language_territory.codeset@modifier`: that of the locale file's
/// entry for the name, or for the name without its modifier; else the code page of the code set, by the
/// file's entries or by its well-known name; else 1252.
BRIMPORTABLE_API unsigned int Locale2CodePage(const char* localeName);

/// The path of the locale configuration file, "BrimLocale.xml" in the server's locale directory. It is built
/// under the "C" locale of LC_CTYPE, which is put back afterwards; a locale that cannot be set is reported.
BRIMPORTABLE_API sup::String<wchar_t> GetLocaleFile();

namespace sup {

/// The order of strcmp.
struct NarrowStringLess {
    /// True when `a` comes first.
    bool operator()(const String<char>& a, const String<char>& b) const noexcept { return a.compare(b) < 0; }
};

/// Product locale name to (system locale name, code page as text).
using LocaleConversionMap =
    std::map<String<char>, std::pair<String<char>, String<char>>, NarrowStringLess,
             BrimStlAllocator<std::pair<const String<char>, std::pair<String<char>, String<char>>>>>;

/// Sort locale id (a Windows locale id) to sort language name.
using SortLangMap = std::map<unsigned int, String<char>, std::less<unsigned int>,
                             BrimStlAllocator<std::pair<const unsigned int, String<char>>>>;

/// Code page to the converter name of iconv(3).
using IconvIdentifierMap =
    std::map<int, String<char>, std::less<int>, BrimStlAllocator<std::pair<const int, String<char>>>>;

} // namespace sup

// Both maps are filled from the locale file (SUPBuildMap.h tells its format) when the library is loaded and
// live until it is unloaded. They are read-only. A file that is missing or malformed was reported to the
// error-message manager, and then they hold only what is built in.

/// The locale conversion map. It always has the entry "C".
BRIMPORTABLE_API const sup::LocaleConversionMap& GetQuayLocale2SystemLocaleMap();
/// The sort languages, empty without a locale file.
extern BRIMPORTABLE_API sup::SortLangMap g_sortLangMap;
/// The same map.
BRIMPORTABLE_API const sup::SortLangMap& GetSortLangMap();
