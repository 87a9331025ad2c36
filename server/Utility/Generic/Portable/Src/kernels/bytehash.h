// The hash of byte strings: h = h * 101 + byte, from 0, in 32 bits.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>
#include <cstdint>

namespace sup::kernels {

/// By the loops of the level in use (kernels.h).
BRIMPORTABLE_API std::uint32_t hashBytes(const unsigned char* bytes, std::size_t n) noexcept;

/// As the rule says, byte by byte.
BRIMPORTABLE_API std::uint32_t hashBytesPlain(const unsigned char* bytes, std::size_t n) noexcept;

} // namespace sup::kernels
