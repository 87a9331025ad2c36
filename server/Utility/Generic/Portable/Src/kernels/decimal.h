// From decimal digits to a double.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

namespace sup::kernels {

/// digits * 10^power, rounded to the nearest double, halves to even ones, whatever the processor's rounding
/// mode is. False when that is no normal number and not 0: `value` is left alone.
BRIMPORTABLE_API bool decimalToDouble(unsigned long digits, int power, double& value) noexcept;

} // namespace sup::kernels
