// The vector loops take the bytes as the coefficients of a polynomial in 101: four neighbours make one number
// (two multiplications and additions of bytes and of 16-bit pairs, neither of which overflows), and the sums
// of such numbers are moved on by a power of 101. Zeros in front change nothing, so the first block is the
// one that may be short.
#include "kernels/bytehash.h"

#include "Wraps.h"
#include "kernels/kernels.h"
#include "kernels/targets.h"

#include <cstring>
#include <immintrin.h>
#include <utility>

namespace sup::kernels {

namespace {

constexpr std::uint32_t kFactor = 101;

BRIM_WRAPS constexpr std::uint32_t powerOf(std::uint32_t factor, std::size_t n) {
    std::uint32_t power = 1;
    for (; n != 0; --n) {
        power *= factor;
    }
    return power;
}

// What each number of four bytes is multiplied by in a block of kLanes of them.
template <std::size_t kLanes>
struct LanePowers {
    alignas(64) std::uint32_t values[kLanes] = {};
    constexpr LanePowers() {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            values[lane] = powerOf(kFactor, 4 * (kLanes - 1 - lane));
        }
    }
};

constexpr LanePowers<8> kPowers8;
constexpr LanePowers<16> kPowers16;
// Of two neighbours the lower half comes first.
constexpr short kBytePairs = 1 << 8 | kFactor;
constexpr int kPairsOfPairs = 1 << 16 | kFactor * kFactor;

// ---- AVX2: blocks of 32 bytes -----------------------------------------------------------------------------

BRIM_AVX2 __m256i fours(__m256i bytes) {
    return _mm256_madd_epi16(_mm256_maddubs_epi16(bytes, _mm256_set1_epi16(kBytePairs)),
                             _mm256_set1_epi32(kPairsOfPairs));
}

BRIM_AVX2 __m256i load32(const unsigned char* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

BRIM_AVX2 std::uint32_t sumOf(__m256i lanes) {
    __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0x4E));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0xB1));
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(sum));
}

BRIM_AVX2 std::uint32_t hashBytesAvx2(const unsigned char* bytes, std::size_t n) {
    constexpr std::size_t kBlock = 32;
    const std::size_t first = n % kBlock;
    unsigned char padded[kBlock] = {};
    std::memcpy(padded + (kBlock - first), bytes, first);
    __m256i sums = fours(load32(padded));
    const __m256i ahead = _mm256_set1_epi32(static_cast<int>(powerOf(kFactor, kBlock)));
    for (std::size_t at = first; at < n; at += kBlock) {
        sums = _mm256_add_epi32(_mm256_mullo_epi32(sums, ahead), fours(load32(bytes + at)));
    }
    return sumOf(
        _mm256_mullo_epi32(sums, _mm256_load_si256(reinterpret_cast<const __m256i*>(kPowers8.values))));
}

// ---- AVX-512: blocks of 64 bytes, four at a time ----------------------------------------------------------

BRIM_AVX512 __m512i fours(__m512i bytes) {
    return _mm512_madd_epi16(_mm512_maddubs_epi16(bytes, _mm512_set1_epi16(kBytePairs)),
                             _mm512_set1_epi32(kPairsOfPairs));
}

// sums * 101^kBytes + what comes next
template <std::size_t kBytes>
BRIM_AVX512 __m512i moveOn(__m512i sums, __m512i next) {
    constexpr int kPower = static_cast<int>(powerOf(kFactor, kBytes));
    return _mm512_add_epi32(_mm512_mullo_epi32(sums, _mm512_set1_epi32(kPower)), next);
}

// Reads the first block under a mask, whole blocks from there on.
BRIM_AVX512 std::uint32_t hashBytesAvx512(const unsigned char* bytes, std::size_t n) {
    constexpr std::size_t kBlock = 64;
    const std::size_t first = n % kBlock;
    const __mmask64 mask = first == 0 ? 0 : ~__mmask64{0} << (kBlock - first);
    __m512i a = fours(_mm512_maskz_loadu_epi8(mask, bytes + first - kBlock));
    std::size_t at = first;
    if (n - at >= 4 * kBlock) {
        __m512i b = _mm512_setzero_si512();
        __m512i c = b;
        __m512i d = b;
        // The short block is the last of the four that the loop comes from.
        std::swap(a, d);
        for (; n - at >= 4 * kBlock; at += 4 * kBlock) {
            a = moveOn<4 * kBlock>(a, fours(_mm512_loadu_si512(bytes + at)));
            b = moveOn<4 * kBlock>(b, fours(_mm512_loadu_si512(bytes + at + kBlock)));
            c = moveOn<4 * kBlock>(c, fours(_mm512_loadu_si512(bytes + at + 2 * kBlock)));
            d = moveOn<4 * kBlock>(d, fours(_mm512_loadu_si512(bytes + at + 3 * kBlock)));
        }
        a = moveOn<kBlock>(moveOn<kBlock>(moveOn<kBlock>(a, b), c), d);
    }
    for (; at < n; at += kBlock) {
        a = moveOn<kBlock>(a, fours(_mm512_loadu_si512(bytes + at)));
    }
    a = _mm512_mullo_epi32(a, _mm512_load_si512(kPowers16.values));
    // The forms with a mask: GCC 12 warns of its own header at the others.
    return sumOf(_mm256_add_epi32(_mm512_maskz_extracti64x4_epi64(0xFF, a, 0),
                                  _mm512_maskz_extracti64x4_epi64(0xFF, a, 1)));
}

} // namespace

BRIM_WRAPS std::uint32_t hashBytesPlain(const unsigned char* bytes, std::size_t n) noexcept {
    std::uint32_t h = 0;
    for (std::size_t i = 0; i < n; ++i) {
        h = h * kFactor + bytes[i];
    }
    return h;
}

std::uint32_t hashBytes(const unsigned char* bytes, std::size_t n) noexcept {
    constexpr std::size_t kFew = 8;
    switch (n <= kFew ? Level::plain : kernels().level) {
    case Level::avx512:
        return hashBytesAvx512(bytes, n);
    case Level::avx2:
        return hashBytesAvx2(bytes, n);
    case Level::plain:
        break;
    }
    return hashBytesPlain(bytes, n);
}

} // namespace sup::kernels
