// The multi-byte loops of processors with AVX-512 and VBMI2. A step decodes the characters of up to 64 bytes:
// masks tell the lead bytes, the lead bytes' rows and the last bytes are each moved together, and both give
// the places of 16 units at a time, which are gathered. A step of the encoder gathers the bytes of 16 units
// and moves them together. All reads and writes beside the tables go through masks or are whole registers
// inside the text.
#include "kernels/mbtable.h"
#include "kernels/targets.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace sup::kernels {

namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kQuarter = 16;

BRIM_AVX512 inline std::uint64_t firstBits(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned int>(count));
}
BRIM_AVX512 inline __mmask16 quarterMask(std::uint64_t mask, std::size_t quarter) {
    return static_cast<__mmask16>(mask >> (kQuarter * quarter));
}
BRIM_AVX512 inline std::size_t countBits(std::uint64_t mask) {
    return static_cast<std::size_t>(_mm_popcnt_u64(mask));
}

// ---- Decoding ---------------------------------------------------------------------------------------------

BRIM_AVX512 inline void widenBlock(__m512i bytes, wchar_t* dst) {
    _mm512_storeu_si512(dst, _mm512_cvtepu8_epi32(_mm512_castsi512_si128(bytes)));
    _mm512_storeu_si512(dst + kQuarter, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 1)));
    _mm512_storeu_si512(dst + 2 * kQuarter, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 2)));
    _mm512_storeu_si512(dst + 3 * kQuarter, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 3)));
}

// The units at the places that the low quarters of `rows` and `lasts` name, for the lanes in `present`.
BRIM_AVX512 inline __m512i gatherUnits(const std::uint16_t* units, __m512i rows, __m512i lasts,
                                       __mmask16 present) {
    const __m512i row = _mm512_cvtepu8_epi32(_mm512_castsi512_si128(rows));
    const __m512i last = _mm512_cvtepu8_epi32(_mm512_castsi512_si128(lasts));
    const __m512i place = _mm512_or_si512(_mm512_slli_epi32(row, 8), last);
    const __m512i found = _mm512_mask_i32gather_epi32(_mm512_setzero_si512(), present, place, units, 2);
    return _mm512_and_si512(found, _mm512_set1_epi32(0xFFFF));
}

} // namespace

BRIM_AVX512 MultibyteProgress decodeMultibyteAvx512(const MultibyteDecoding& table, const char* src,
                                                    std::size_t length, wchar_t* dst,
                                                    std::size_t room) noexcept {
    if (!table.hasUpperLeads()) {
        return decodeMultibytePlain(table, src, length, dst, room);
    }
    const __m512i unknown = _mm512_set1_epi32(MultibyteDecoding::kUnknown);
    const __m512i rowOf[2] = {_mm512_loadu_si512(table.rowOf() + MultibyteDecoding::kUpperHalf),
                              _mm512_loadu_si512(table.rowOf() + MultibyteDecoding::kUpperHalf + kBlock)};
    std::size_t read = 0;
    std::size_t written = 0;
    while (read != length) {
        const std::size_t taken = std::min(kBlock, length - read);
        const __m512i bytes = _mm512_maskz_loadu_epi8(firstBits(taken), src + read);
        const __mmask64 upper = _mm512_movepi8_mask(bytes);
        if (upper == 0 && table.hasAscii() && taken == kBlock && room - written >= kBlock) {
            widenBlock(bytes, dst + written);
            read += kBlock;
            written += kBlock;
            continue;
        }
        const __m512i rows = _mm512_maskz_permutex2var_epi8(upper, rowOf[0], bytes, rowOf[1]);
        const std::uint64_t leads = leadsAmong(_mm512_test_epi8_mask(rows, rows));
        // A last byte that leads is left to the next step.
        const std::size_t whole = taken - (leads >> (taken - 1) & 1U);
        const std::uint64_t present = firstBits(whole);
        const std::uint64_t lastBytes = present & ~leads;
        const std::size_t count = countBits(lastBytes);
        if (count == 0 || count > room - written) {
            break;
        }
        __m512i firsts = _mm512_maskz_compress_epi8(present & ~(leads << 1), rows);
        __m512i lasts = _mm512_maskz_compress_epi8(lastBytes, bytes);
        const std::uint64_t filled = firstBits(count);
        __m512i units[4];
        __mmask16 strange = 0;
        for (std::size_t i = 0; i < 4 && kQuarter * i < count; ++i) {
            const __mmask16 lanes = quarterMask(filled, i);
            units[i] = gatherUnits(table.units(), firsts, lasts, lanes);
            strange |= _mm512_cmpeq_epi32_mask(units[i], unknown);
            firsts = _mm512_shuffle_i32x4(firsts, firsts, 0x39); // the next quarter comes down
            lasts = _mm512_shuffle_i32x4(lasts, lasts, 0x39);
        }
        if (strange != 0) {
            break;
        }
        for (std::size_t i = 0; i < 4 && kQuarter * i < count; ++i) {
            _mm512_mask_storeu_epi32(dst + written + kQuarter * i, quarterMask(filled, i), units[i]);
        }
        read += whole;
        written += count;
    }
    return {read, written};
}

// ---- Encoding ---------------------------------------------------------------------------------------------

BRIM_AVX512 MultibyteProgress encodeMultibyteAvx512(const MultibyteEncoding& table, const wchar_t* src,
                                                    std::size_t length, char* dst,
                                                    std::size_t room) noexcept {
    constexpr std::uint64_t kLowBytes = 0x1111111111111111U;
    std::size_t read = 0;
    std::size_t written = 0;
    while (read != length) {
        const std::size_t taken = std::min(kQuarter, length - read);
        const auto present = static_cast<__mmask16>(firstBits(taken));
        const __m512i units = _mm512_maskz_loadu_epi32(present, src + read);
        // Signed, so negative units are their low byte too.
        const __mmask16 narrow = _mm512_mask_cmplt_epi32_mask(present, units, _mm512_set1_epi32(0x80));
        if (narrow == present) {
            if (room - written < taken) {
                break;
            }
            _mm_mask_storeu_epi8(dst + written, present, _mm512_cvtepi32_epi8(units));
            read += taken;
            written += taken;
            continue;
        }
        const __mmask16 listed =
            _mm512_mask_cmplt_epu32_mask(static_cast<__mmask16>(present & ~narrow), units,
                                         _mm512_set1_epi32(static_cast<int>(MultibyteEncoding::kUnits)));
        const __m512i ownBytes = _mm512_and_si512(units, _mm512_set1_epi32(0xFF));
        const __m512i bytes = _mm512_mask_i32gather_epi32(ownBytes, listed, units, table.bytes, 4);
        const auto known = static_cast<__mmask16>(narrow | _mm512_mask_test_epi32_mask(listed, bytes, bytes));
        std::uint64_t kept = _mm512_test_epi8_mask(bytes, bytes) | _pdep_u64(narrow, kLowBytes);
        // A branch, so that the next step does not wait for what was gathered.
        std::size_t count = taken;
        if (known != present) [[unlikely]] {
            count = _tzcnt_u32(~static_cast<std::uint32_t>(known));
            kept &= firstBits(MultibyteEncoding::kBytes * count);
        }
        const std::size_t size = countBits(kept);
        if (size > room - written) {
            break;
        }
        _mm512_mask_storeu_epi8(dst + written, firstBits(size), _mm512_maskz_compress_epi8(kept, bytes));
        written += size;
        if (known != present) [[unlikely]] {
            return {read + count, written};
        }
        read += taken;
    }
    return {read, written};
}

} // namespace sup::kernels
