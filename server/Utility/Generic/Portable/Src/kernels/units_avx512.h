// What the loops of the AVX-512 level share. For their sources only.
#pragma once

#include "kernels/targets.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace sup::kernels {

/// The units from `p` to the next cache line, 1 to 16.
inline std::ptrdiff_t unitsToLine(const wchar_t* p) {
    constexpr std::uintptr_t kLineUnits = 64 / sizeof(wchar_t);
    return static_cast<std::ptrdiff_t>(kLineUnits -
                                       reinterpret_cast<std::uintptr_t>(p) / sizeof(wchar_t) % kLineUnits);
}

/// The places of byte `kFirst` and, with two bytes a unit, of byte 1 - kFirst of each unit of two registers.
template <unsigned int kBytes, unsigned int kFirst>
struct BytePlaces {
    alignas(64) unsigned char bytes[64];
    constexpr BytePlaces() : bytes() {
        for (unsigned int i = 0; i < 64; ++i) {
            const unsigned int byte = i % kBytes == 0 ? kFirst : 1 - kFirst;
            bytes[i] = static_cast<unsigned char>((4 * (i / kBytes) + byte) & 127U);
        }
    }
};
template <unsigned int kBytes, unsigned int kFirst>
constexpr BytePlaces<kBytes, kFirst> kBytePlaces;

/// One or two bytes of each of 32 units; with one byte a unit the result comes twice.
template <unsigned int kBytes, unsigned int kFirst>
BRIM_AVX512 inline __m512i chosenBytes(__m512i a, __m512i b) {
    return _mm512_permutex2var_epi8(a, _mm512_load_si512((kBytePlaces<kBytes, kFirst>.bytes)), b);
}

/// The lowest bytes of 64 units.
BRIM_AVX512 inline __m512i narrow64(__m512i a, __m512i b, __m512i c, __m512i d) {
    return _mm512_mask_blend_epi64(0xF0, chosenBytes<1, 0>(a, b), chosenBytes<1, 0>(c, d));
}

} // namespace sup::kernels
