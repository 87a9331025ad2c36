// The multi-byte loops of every x86-64 processor: SSE2 for ASCII, and one or two look-ups for each other
// character. Blocks that are not all ASCII seldom come alone, so a few are looked up unasked.
#include "kernels/mbtable.h"
#include "kernels/utf8_runs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <emmintrin.h>

namespace sup::kernels {

namespace {

constexpr std::size_t kAsciiBlock = 16;
constexpr std::size_t kUnasked = 64;

// Narrows 16 units if all are ASCII.
bool narrowAscii(const wchar_t* src, char* dst) {
    const auto* const in = reinterpret_cast<const __m128i*>(src);
    const __m128i largest = _mm_set1_epi16(0x7F);
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

} // namespace

MultibyteProgress decodeMultibytePlain(const MultibyteDecoding& table, const char* src, std::size_t length,
                                       wchar_t* dst, std::size_t room) noexcept {
    const unsigned char* const rowOf = table.rowOf();
    const std::uint16_t* const units = table.units();
    std::size_t read = 0;
    std::size_t written = 0;
    while (read != length && written != room) {
        while (table.hasAscii() && length - read >= kAsciiBlock && room - written >= kAsciiBlock &&
               _mm_movemask_epi8(loadBytes16(src + read)) == 0) {
            widenBytes16(src + read, dst + written);
            read += kAsciiBlock;
            written += kAsciiBlock;
        }
        const std::size_t stop = written + std::min(kUnasked, room - written);
        while (read != length && written != stop) {
            const std::size_t row = rowOf[static_cast<unsigned char>(src[read])];
            const std::size_t isLead = row != 0 ? 1 : 0;
            if (length - read <= isLead) {
                return {read, written};
            }
            const std::uint16_t unit =
                units[row * MultibyteDecoding::kRow + static_cast<unsigned char>(src[read + isLead])];
            if (unit == MultibyteDecoding::kUnknown) {
                return {read, written};
            }
            dst[written++] = static_cast<wchar_t>(unit);
            read += 1 + isLead;
        }
    }
    return {read, written};
}

MultibyteProgress encodeMultibytePlain(const MultibyteEncoding& table, const wchar_t* src, std::size_t length,
                                       char* dst, std::size_t room) noexcept {
    MultibyteProgress at{0, 0};
    bool goesOn = true;
    while (goesOn && at.read != length) {
        while (length - at.read >= kAsciiBlock && room - at.written >= kAsciiBlock &&
               narrowAscii(src + at.read, dst + at.written)) {
            at = {at.read + kAsciiBlock, at.written + kAsciiBlock};
        }
        goesOn = encodeOneByOne(table, src, std::min(kUnasked, length - at.read), dst, room, at);
    }
    return at;
}

} // namespace sup::kernels
