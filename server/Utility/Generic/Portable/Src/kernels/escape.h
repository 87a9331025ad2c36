// The loops of the URI and XML escapes. Each writes a little beyond what it makes: see how much room it
// takes.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>
#include <cstdint>

namespace sup::kernels {

struct EscapeProgress {
    std::size_t read;    ///< characters
    std::size_t written; ///< characters
};

/// What stands for a character below U+0100 in a URI: up to three bytes, from the lowest one on, the rest of
/// them zeros; their number in the highest one.
using UriPieces = std::uint32_t[0x100];

/// Escapes `n` characters for a URI, but stops before one that `pieces` does not have. `dst` has room for
/// three characters each and four more.
BRIMPORTABLE_API EscapeProgress encodeUri(const UriPieces& pieces, const wchar_t* src, std::size_t n,
                                          wchar_t* dst) noexcept;

/// Copies up to `n` characters of a URI with blanks for plus signs, and perhaps decodes escapes of ASCII
/// characters other than zero. Stops before a percent sign that it does not decode, and nowhere else. `dst`
/// has room for 64 characters more.
BRIMPORTABLE_API EscapeProgress decodeUri(const wchar_t* src, std::size_t n, wchar_t* dst) noexcept;

/// Escapes the quotes and brackets of XML in `n` characters; returns how many it has written. `dst` has room
/// for six characters each and three more.
BRIMPORTABLE_API std::size_t escapeXml(const wchar_t* src, std::size_t n, wchar_t* dst) noexcept;

} // namespace sup::kernels
