// Base64 as in RFC 4648, over whole groups: three bytes are four characters.
#pragma once

#include "Utility/Generic/Portable/SUPExport.h"

#include <array>
#include <cstddef>

namespace sup::kernels {

alignas(64) constexpr char base64tab[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<signed char, 256> base64Values() {
    std::array<signed char, 256> values{};
    for (signed char& value : values) {
        value = -1;
    }
    for (signed char i = 0; i < 64; ++i) {
        values[static_cast<unsigned char>(base64tab[i])] = i;
    }
    return values;
}
/// The 6-bit value of each character of the alphabet, -1 for all others.
alignas(64) constexpr std::array<signed char, 256> g_base64_chars = base64Values();

/// Encodes `groups` groups; `dst` has room for four characters each, and nothing beyond is written.
BRIMPORTABLE_API void encodeBase64(const unsigned char* src, std::size_t groups, char* dst) noexcept;

/// Decodes `groups` groups, but stops before one with a character that is not of the alphabet. Returns the
/// groups decoded; `dst` has room for three bytes for each of `groups`, and nothing beyond is written.
BRIMPORTABLE_API std::size_t decodeBase64(const unsigned char* src, std::size_t groups,
                                          unsigned char* dst) noexcept;

} // namespace sup::kernels
