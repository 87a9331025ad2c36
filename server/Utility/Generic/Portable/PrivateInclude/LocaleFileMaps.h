// The locale file's maps, for the code-page layer below the XML support, which defines this
// (SUPBuildMap.cpp).
#pragma once

#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPTranscode.h"

namespace sup {

/// Adds the locales and the sort languages of the locale file `path` to the maps. What goes wrong is reported
/// to the default error-message manager and leaves a map as it was; nothing is thrown.
void readLocaleFile(const String<wchar_t>& path, LocaleConversionMap& locales,
                    SortLangMap& sortLanguages) noexcept;

} // namespace sup
