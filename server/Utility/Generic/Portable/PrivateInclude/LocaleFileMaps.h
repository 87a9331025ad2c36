// The locale file's maps, for the code-page layer below the XML support, which reads them (SUPBuildMap.cpp).
#pragma once

#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPTranscode.h"

namespace sup {

/// Adds the locales, the sort languages and the converter names of the locale file `path` to the maps. What
/// goes wrong is reported to the default error-message manager and leaves a map as it was; nothing is thrown.
void readLocaleFile(const String<wchar_t>& path, LocaleConversionMap& locales, SortLangMap& sortLanguages,
                    IconvIdentifierMap& iconvNames) noexcept;

/// The converter name that the locale file gave for an encoding number when the library was loaded; null when
/// it gave none (SUPTranscodeLocale.cpp).
const char* iconvIdentifierOf(int encoding) noexcept;

} // namespace sup
