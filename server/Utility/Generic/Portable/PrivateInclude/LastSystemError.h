// The operating system's last error, for reports below the operating-system layer, which defines these
// (SUPOSError.cpp).
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

namespace sup {

/// The calling thread's errno.
int lastSystemError() noexcept;
/// The system's text for an error number.
String<wchar_t> systemErrorText(int code);

} // namespace sup
