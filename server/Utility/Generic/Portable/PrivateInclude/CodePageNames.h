// Code pages by the well-known names of their encodings.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <string_view>

namespace sup {

/// The code page of an encoding name such as "UTF-8", "iso8859-15", "ISO_8859-1" or "windows-1252"; case and
/// punctuation do not matter. -1 for a name that the library does not know.
BRIMPORTABLE_API int codePageOfName(std::string_view name) noexcept;

} // namespace sup
