// The single-byte loops of every x86-64 processor: SSE2 for blocks of identity characters, and one look-up
// for each character of the others. Blocks without such characters seldom come alone, so a few are looked up
// unasked.
#include "kernels/sbtable.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace sup::kernels {

namespace {

constexpr std::size_t kIdentityBlock = 16;
constexpr std::size_t kLookupBlock = 8;
constexpr std::size_t kUnasked = 64; // a multiple of both

// Widens 16 bytes if all are below the limit.
bool widenIdentity(const char* src, __m128i largest, wchar_t* dst) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_subs_epu8(bytes, largest), zero)) != 0xFFFF) {
        return false;
    }
    const __m128i low = _mm_unpacklo_epi8(bytes, zero);
    const __m128i high = _mm_unpackhi_epi8(bytes, zero);
    auto* const out = reinterpret_cast<__m128i*>(dst);
    _mm_storeu_si128(out, _mm_unpacklo_epi16(low, zero));
    _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(low, zero));
    _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(high, zero));
    _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(high, zero));
    return true;
}

// Narrows 16 units if all are from 0 to the largest.
bool narrowIdentity(const wchar_t* src, __m128i largest, char* dst) {
    const auto* const in = reinterpret_cast<const __m128i*>(src);
    // Signed saturation keeps every unit that is out of range out of range: negative or too large.
    const __m128i low = _mm_packs_epi32(_mm_loadu_si128(in), _mm_loadu_si128(in + 1));
    const __m128i high = _mm_packs_epi32(_mm_loadu_si128(in + 2), _mm_loadu_si128(in + 3));
    const __m128i above = _mm_or_si128(_mm_cmpgt_epi16(low, largest), _mm_cmpgt_epi16(high, largest));
    const __m128i below = _mm_cmplt_epi16(_mm_or_si128(low, high), _mm_setzero_si128());
    if (_mm_movemask_epi8(_mm_or_si128(above, below)) != 0) {
        return false;
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(low, high));
    return true;
}

void decodeEight(const wchar_t* units, const char* src, wchar_t* dst) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, src, sizeof(bytes));
    dst[0] = units[bytes & 0xFFU];
    dst[1] = units[bytes >> 8 & 0xFFU];
    dst[2] = units[bytes >> 16 & 0xFFU];
    dst[3] = units[bytes >> 24 & 0xFFU];
    dst[4] = units[bytes >> 32 & 0xFFU];
    dst[5] = units[bytes >> 40 & 0xFFU];
    dst[6] = units[bytes >> 48 & 0xFFU];
    dst[7] = units[bytes >> 56];
}

// False, with nothing written, when a unit is unknown or 0.
bool encodeEight(const SingleByteEncoding& table, const wchar_t* src, char* dst) {
    const std::uint16_t* const pageOf = table.pageOf();
    const unsigned char* const pages = table.pages();
    std::uint64_t bytes = 0;
    std::uint32_t all = 0;
    const auto take = [&](unsigned i) {
        const auto unit = static_cast<std::uint32_t>(src[i]);
        all |= unit;
        const std::size_t page = pageOf[unit >> 8 & 0xFFU];
        bytes |= std::uint64_t{pages[page * SingleByteEncoding::kPage + (unit & 0xFFU)]} << (8 * i);
    };
    take(0), take(1), take(2), take(3), take(4), take(5), take(6), take(7);
    constexpr std::uint64_t kOnes = 0x0101010101010101U;
    const bool hasZero = ((bytes - kOnes) & ~bytes & kOnes << 7) != 0;
    if (hasZero || all > 0xFFFF) {
        return false;
    }
    std::memcpy(dst, &bytes, sizeof(bytes));
    return true;
}

} // namespace

void decodeSingleBytePlain(const SingleByteDecoding& table, const char* src, std::size_t length,
                           wchar_t* dst) noexcept {
    const __m128i largest = _mm_set1_epi8(static_cast<char>(table.identityLimit - 1));
    std::size_t done = 0;
    while (length - done >= kIdentityBlock) {
        if (widenIdentity(src + done, largest, dst + done)) {
            done += kIdentityBlock;
            continue;
        }
        const std::size_t stop = done + std::min(kUnasked, (length - done) / kLookupBlock * kLookupBlock);
        for (; done != stop; done += kLookupBlock) {
            decodeEight(table.units, src + done, dst + done);
        }
    }
    for (; done != length; ++done) {
        dst[done] = table.units[static_cast<unsigned char>(src[done])];
    }
}

std::size_t encodeSingleBytePlain(const SingleByteEncoding& table, const wchar_t* src, std::size_t length,
                                  char* dst) noexcept {
    const __m128i largest = _mm_set1_epi16(static_cast<short>(table.identityLimit() - 1));
    std::size_t done = 0;
    while (done != length) {
        while (length - done >= kIdentityBlock && narrowIdentity(src + done, largest, dst + done)) {
            done += kIdentityBlock;
        }
        const std::size_t stop = done + std::min(kUnasked, length - done);
        while (stop - done >= kLookupBlock && encodeEight(table, src + done, dst + done)) {
            done += kLookupBlock;
        }
        // The end of the text, or a unit that is unknown or 0.
        for (const std::size_t last = std::min(stop, done + kLookupBlock); done != last; ++done) {
            const char byte = table.byteOf(static_cast<std::uint32_t>(src[done]));
            if (byte == 0 && src[done] != 0) {
                return done;
            }
            dst[done] = byte;
        }
    }
    return done;
}

} // namespace sup::kernels
