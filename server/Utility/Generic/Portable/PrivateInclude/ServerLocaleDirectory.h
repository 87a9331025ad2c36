// Where the locale file lies, for the code-page layer below the directory layout, which defines this
// (SUPOS.cpp).
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

namespace sup {

String<wchar_t> serverLocaleDirectory();

} // namespace sup
