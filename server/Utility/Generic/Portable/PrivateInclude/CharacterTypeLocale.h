// The name of the process's LC_CTYPE locale.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

namespace sup {

/// setlocale(3) of LC_CTYPE: asks with null, sets with a name. Returns a copy of the name, empty when it
/// cannot be set. Calls wait for each other: the C library frees a name when the next one is set.
String<char> characterTypeLocale(const char* name);

} // namespace sup
