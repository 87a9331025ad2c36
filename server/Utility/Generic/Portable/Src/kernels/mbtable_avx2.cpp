// The multi-byte loops of processors with AVX2 and BMI2. The decoder finds the characters of 64 bytes at a
// step, and looks them up one by one, without a branch that depends on their length. A step of the encoder
// gathers the bytes of eight units, and moves those of four at a time together.
#include "kernels/mbtable.h"
#include "kernels/targets.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace sup::kernels {

namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kHalf = 32;

BRIM_AVX2 inline __m256i load32(const char* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
BRIM_AVX2 inline std::uint64_t joined(__m256i first, __m256i second) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(first)) |
           static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(second))) << kHalf;
}

// Sets the top bit of each byte that leads when it is the first of a character. `leadBits` is the table's.
BRIM_AVX2 inline __m256i leading(__m256i bytes, __m256i leadBits) {
    const __m256i nibble = _mm256_set1_epi8(0x0F);
    const __m256i bitOfUpper = _mm256_broadcastsi128_si256(
        _mm_set_epi8(static_cast<char>(0x80), 0x40, 0x20, 0x10, 8, 4, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0));
    const __m256i upper = _mm256_and_si256(_mm256_srli_epi16(bytes, 4), nibble);
    const __m256i bit = _mm256_shuffle_epi8(bitOfUpper, upper);
    const __m256i bits = _mm256_shuffle_epi8(leadBits, _mm256_and_si256(bytes, nibble));
    // The bit of an ASCII byte is none, which every set has.
    return _mm256_and_si256(bytes, _mm256_cmpeq_epi8(_mm256_and_si256(bits, bit), bit));
}

BRIM_AVX2 inline void widenBlock(const char* src, wchar_t* dst) {
    for (std::size_t i = 0; i < kBlock; i += 8) {
        const __m256i units =
            _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + i)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), units);
    }
}

// What moves four units of one byte or two together: bit i is set when unit i has two.
constexpr auto kTogether = [] {
    std::array<std::array<unsigned char, 16>, 16> shuffles{};
    for (std::size_t two = 0; two < shuffles.size(); ++two) {
        shuffles[two].fill(0x80); // gives zero
        std::size_t to = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            shuffles[two][to++] = static_cast<unsigned char>(4 * i);
            if ((two >> i & 1U) != 0) {
                shuffles[two][to++] = static_cast<unsigned char>(4 * i + 1);
            }
        }
    }
    return shuffles;
}();

// Writes 16 bytes; returns how many count.
BRIM_AVX2 inline std::size_t storeTogether(__m128i bytes, std::uint32_t two, char* dst) {
    const __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kTogether[two].data()));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_shuffle_epi8(bytes, shuffle));
    return 4 + static_cast<std::size_t>(_mm_popcnt_u32(two));
}

BRIM_AVX2 inline __m256i loadUnits(const wchar_t* src) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
}
BRIM_AVX2 inline std::uint32_t laneMask(__m256i lanes) {
    return static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes)));
}

} // namespace

BRIM_AVX2 MultibyteProgress decodeMultibyteAvx2(const MultibyteDecoding& table, const char* src,
                                                std::size_t length, wchar_t* dst, std::size_t room) noexcept {
    const unsigned char* const rowOf = table.rowOf();
    const std::uint16_t* const units = table.units();
    const __m256i leadBits =
        _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table.leadBits())));
    std::size_t read = 0;
    std::size_t written = 0;
    while (table.hasUpperLeads() && length - read >= kBlock && room - written >= kBlock) {
        const char* const block = src + read;
        const __m256i first = load32(block);
        const __m256i second = load32(block + kHalf);
        if (table.hasAscii() && joined(first, second) == 0) {
            widenBlock(block, dst + written);
            read += kBlock;
            written += kBlock;
            continue;
        }
        const std::uint64_t leads = leadsAmong(joined(leading(first, leadBits), leading(second, leadBits)));
        // A last byte that leads is left to the next block.
        const std::size_t whole = kBlock - (leads >> (kBlock - 1));
        for (std::uint64_t starts = ~(leads << 1 | leads >> (kBlock - 1) << (kBlock - 1)); starts != 0;
             starts &= starts - 1) {
            const auto at = static_cast<std::size_t>(__builtin_ctzll(starts));
            const std::size_t row = rowOf[static_cast<unsigned char>(block[at])];
            const auto last = static_cast<unsigned char>(block[at + (row != 0 ? 1 : 0)]);
            const std::uint16_t unit = units[row * MultibyteDecoding::kRow + last];
            if (unit == MultibyteDecoding::kUnknown) {
                return {read + at, written};
            }
            dst[written++] = static_cast<wchar_t>(unit);
        }
        read += whole;
    }
    const MultibyteProgress rest =
        decodeMultibytePlain(table, src + read, length - read, dst + written, room - written);
    return {read + rest.read, written + rest.written};
}

BRIM_AVX2 MultibyteProgress encodeMultibyteAvx2(const MultibyteEncoding& table, const wchar_t* src,
                                                std::size_t length, char* dst, std::size_t room) noexcept {
    constexpr std::size_t kStep = 8;
    const __m256i beyondAscii = _mm256_set1_epi32(~0x7F);
    const __m256i beyondUnits = _mm256_set1_epi32(~0xFFFF);
    const __m256i zero = _mm256_setzero_si256();
    const auto* const bytesOfUnits = reinterpret_cast<const int*>(table.bytes);
    MultibyteProgress at{0, 0};
    while (length - at.read >= 2 * kStep && room - at.written >= 2 * kStep * MultibyteEncoding::kBytes) {
        const __m256i first = loadUnits(src + at.read);
        const __m256i second = loadUnits(src + at.read + kStep);
        if (_mm256_testz_si256(_mm256_or_si256(first, second), beyondAscii) != 0) {
            const __m256i words = _mm256_permute4x64_epi64(_mm256_packus_epi32(first, second), 0xD8);
            _mm_storeu_si128(
                reinterpret_cast<__m128i*>(dst + at.written),
                _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1)));
            at = {at.read + 2 * kStep, at.written + 2 * kStep};
            continue;
        }
        for (const __m256i units : {first, second}) {
            if (_mm256_testz_si256(units, beyondUnits) == 0) {
                return at;
            }
            const __m256i isAscii = _mm256_cmpgt_epi32(_mm256_set1_epi32(0x80), units);
            const __m256i bytes =
                _mm256_blendv_epi8(_mm256_i32gather_epi32(bytesOfUnits, units, 4), units, isAscii);
            if (laneMask(_mm256_andnot_si256(isAscii, _mm256_cmpeq_epi32(bytes, zero))) != 0) {
                return at;
            }
            if (_mm256_testz_si256(bytes, beyondUnits) == 0) { // more than two bytes
                encodeOneByOne(table, src, kStep, dst, room, at);
                continue;
            }
            const std::uint32_t two = laneMask(_mm256_cmpgt_epi32(bytes, _mm256_set1_epi32(0xFF)));
            at.written += storeTogether(_mm256_castsi256_si128(bytes), two & 0xFU, dst + at.written);
            at.written += storeTogether(_mm256_extracti128_si256(bytes, 1), two >> 4, dst + at.written);
            at.read += kStep;
        }
    }
    const MultibyteProgress rest =
        encodeMultibytePlain(table, src + at.read, length - at.read, dst + at.written, room - at.written);
    return {at.read + rest.read, at.written + rest.written};
}

} // namespace sup::kernels
