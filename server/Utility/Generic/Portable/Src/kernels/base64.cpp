#include "kernels/base64.h"

#include "kernels/kernels.h"
#include "kernels/targets.h"

#include <algorithm>
#include <cstdint>
#include <immintrin.h>

namespace sup::kernels {

namespace {

// ---- Plain ------------------------------------------------------------------------------------------------

void encodePlain(const unsigned char* src, std::size_t groups, char* dst) noexcept {
    for (; groups != 0; --groups, src += 3, dst += 4) {
        const unsigned int bits = static_cast<unsigned int>(src[0]) << 16 |
                                  static_cast<unsigned int>(src[1]) << 8 | static_cast<unsigned int>(src[2]);
        dst[0] = base64tab[bits >> 18];
        dst[1] = base64tab[bits >> 12 & 0x3F];
        dst[2] = base64tab[bits >> 6 & 0x3F];
        dst[3] = base64tab[bits & 0x3F];
    }
}

std::size_t decodePlain(const unsigned char* src, std::size_t groups, unsigned char* dst) noexcept {
    for (std::size_t done = 0; done < groups; ++done, src += 4, dst += 3) {
        const int bits = g_base64_chars[src[0]] << 18 | g_base64_chars[src[1]] << 12 |
                         g_base64_chars[src[2]] << 6 | g_base64_chars[src[3]];
        if (bits < 0) { // one of them is no character of the alphabet
            return done;
        }
        dst[0] = static_cast<unsigned char>(bits >> 16);
        dst[1] = static_cast<unsigned char>(bits >> 8);
        dst[2] = static_cast<unsigned char>(bits);
    }
    return groups;
}

// ---- AVX2: eight groups a step ----------------------------------------------------------------------------

BRIM_AVX2 inline __m256i twice(__m128i x) { return _mm256_broadcastsi128_si256(x); }
BRIM_AVX2 inline __m128i load16(const unsigned char* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// A step reads 28 bytes of the 24 that it encodes: it needs two groups more.
BRIM_AVX2 void encodeAvx2(const unsigned char* src, std::size_t groups, char* dst) noexcept {
    const __m256i spread = twice(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    // What to add to a value of each range: that of the letters, of the ten digits, of "+" and "/".
    const __m256i offsets =
        twice(_mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                            '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    for (; groups >= 10; groups -= 8, src += 24, dst += 32) {
        const __m256i bytes = _mm256_shuffle_epi8(
            _mm256_inserti128_si256(_mm256_castsi128_si256(load16(src)), load16(src + 12), 1), spread);
        const __m256i even = _mm256_mulhi_epu16(_mm256_and_si256(bytes, _mm256_set1_epi32(0x0FC0FC00)),
                                                _mm256_set1_epi32(0x04000040));
        const __m256i odd = _mm256_mullo_epi16(_mm256_and_si256(bytes, _mm256_set1_epi32(0x003F03F0)),
                                               _mm256_set1_epi32(0x01000010));
        const __m256i values = _mm256_or_si256(even, odd);
        const __m256i isCapital = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
        const __m256i range = _mm256_or_si256(_mm256_subs_epu8(values, _mm256_set1_epi8(51)),
                                              _mm256_and_si256(isCapital, _mm256_set1_epi8(13)));
        const __m256i text = _mm256_add_epi8(_mm256_shuffle_epi8(offsets, range), values);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), text);
    }
    _mm256_zeroupper();
    encodePlain(src, groups, dst);
}

// A step writes 28 bytes, four more than it decodes: it needs two groups more.
BRIM_AVX2 std::size_t decodeAvx2(const unsigned char* src, std::size_t groups, unsigned char* dst) noexcept {
    // By the halves of a character: it is of the alphabet when their entries have no bit in common.
    const __m256i byLow = twice(_mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                              0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A));
    const __m256i byHigh = twice(_mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10,
                                               0x10, 0x10, 0x10, 0x10, 0x10, 0x10));
    // What to add to a character by its high half, "/" having a place of its own.
    const __m256i offsets = twice(_mm_setr_epi8(0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a',
                                                26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0));
    const __m256i gather = twice(_mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    const __m256i slash = _mm256_set1_epi8('/');
    std::size_t done = 0;
    for (; groups - done >= 10; done += 8, src += 32, dst += 24) {
        const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
        const __m256i high = _mm256_and_si256(_mm256_srli_epi32(text, 4), slash); // pshufb minds 0x8F only
        const __m256i low = _mm256_and_si256(text, slash);
        const __m256i bad =
            _mm256_and_si256(_mm256_shuffle_epi8(byLow, low), _mm256_shuffle_epi8(byHigh, high));
        if (_mm256_testz_si256(bad, bad) == 0) {
            break;
        }
        const __m256i isSlash = _mm256_cmpeq_epi8(text, slash);
        const __m256i values =
            _mm256_add_epi8(text, _mm256_shuffle_epi8(offsets, _mm256_add_epi8(isSlash, high)));
        const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
        const __m256i bytes =
            _mm256_shuffle_epi8(_mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000)), gather);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(bytes));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 12), _mm256_extracti128_si256(bytes, 1));
    }
    _mm256_zeroupper();
    return done + decodePlain(src, groups - done, dst);
}

// ---- AVX-512: sixteen groups a step, what is left through masks -------------------------------------------

constexpr std::size_t kStep = 16;

BRIM_AVX512 inline __mmask64 firstBytes(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned int>(count));
}

// The places of the three bytes of each group, as four that a shift makes 6-bit values of.
struct Spread {
    alignas(64) unsigned char places[64];
    constexpr Spread() : places() {
        constexpr unsigned int kOfGroup[] = {1, 0, 2, 1};
        for (unsigned int i = 0; i < 64; ++i) {
            places[i] = static_cast<unsigned char>(i / 4 * 3 + kOfGroup[i % 4]);
        }
    }
};
constexpr Spread kSpread;

BRIM_AVX512 inline __m512i encoded(__m512i bytes) {
    const __m512i shifts = _mm512_set1_epi64(0x3036242A1016040A);
    const __m512i spread = _mm512_permutexvar_epi8(_mm512_load_si512(kSpread.places), bytes);
    return _mm512_permutexvar_epi8(_mm512_multishift_epi64_epi8(shifts, spread),
                                   _mm512_load_si512(base64tab));
}

// A whole step reads 64 bytes of the 48 that it encodes: it needs six groups more.
BRIM_AVX512 void encodeAvx512(const unsigned char* src, std::size_t groups, char* dst) noexcept {
    for (; groups >= kStep + 6; groups -= kStep, src += 3 * kStep, dst += 4 * kStep) {
        _mm512_storeu_si512(dst, encoded(_mm512_loadu_si512(src)));
    }
    while (groups != 0) {
        const std::size_t n = std::min(groups, kStep);
        _mm512_mask_storeu_epi8(dst, firstBytes(4 * n),
                                encoded(_mm512_maskz_loadu_epi8(firstBytes(3 * n), src)));
        groups -= n;
        src += 3 * n;
        dst += 4 * n;
    }
}

// The places of the bytes of each group, which lie in the order of the processor.
struct Gather {
    alignas(64) unsigned char places[64];
    constexpr Gather() : places() {
        for (unsigned int i = 0; i < 48; ++i) {
            places[i] = static_cast<unsigned char>(i / 3 * 4 + 2 - i % 3);
        }
    }
};
constexpr Gather kGather;

// Gathers the signs of characters that are not of the alphabet in `bad`.
BRIM_AVX512 inline __m512i decoded(__m512i text, __m512i& bad) {
    const __m512i values =
        _mm512_permutex2var_epi8(_mm512_load_si512(g_base64_chars.data()), text,
                                 _mm512_load_si512(g_base64_chars.data() + 64)); // minds the low 7 bits
    bad = _mm512_ternarylogic_epi32(bad, values, text, 0xFE);
    const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
    const __m512i triples = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
    return _mm512_permutexvar_epi8(_mm512_load_si512(kGather.places), triples);
}
BRIM_AVX512 inline void decodeStep(const unsigned char* src, unsigned char* dst, __m512i& bad) {
    _mm512_storeu_si512(dst, decoded(_mm512_loadu_si512(src), bad));
}

// A whole step writes 64 bytes, 16 more than it decodes: it needs six groups more. Four steps are judged
// together; what they have written is written again when they are bad.
BRIM_AVX512 std::size_t decodeAvx512(const unsigned char* src, std::size_t groups,
                                     unsigned char* dst) noexcept {
    std::size_t done = 0;
    for (; groups - done >= 4 * kStep + 6; done += 4 * kStep) {
        __m512i bad = _mm512_setzero_si512();
        decodeStep(src + 4 * done, dst + 3 * done, bad);
        decodeStep(src + 4 * (done + kStep), dst + 3 * (done + kStep), bad);
        decodeStep(src + 4 * (done + 2 * kStep), dst + 3 * (done + 2 * kStep), bad);
        decodeStep(src + 4 * (done + 3 * kStep), dst + 3 * (done + 3 * kStep), bad);
        if (_mm512_movepi8_mask(bad) != 0) {
            break;
        }
    }
    while (done != groups) {
        const std::size_t n = std::min(groups - done, kStep);
        const __m512i padded = _mm512_set1_epi8(base64tab[0]);
        __m512i bad = _mm512_setzero_si512();
        const __m512i bytes = decoded(_mm512_mask_loadu_epi8(padded, firstBytes(4 * n), src + 4 * done), bad);
        if (_mm512_movepi8_mask(bad) != 0) {
            break;
        }
        _mm512_mask_storeu_epi8(dst + 3 * done, firstBytes(3 * n), bytes);
        done += n;
    }
    _mm256_zeroupper();
    return done + decodePlain(src + 4 * done, groups - done, dst + 3 * done);
}

} // namespace

void encodeBase64(const unsigned char* src, std::size_t groups, char* dst) noexcept {
    switch (kernels().level) {
    case Level::avx512:
        return encodeAvx512(src, groups, dst);
    case Level::avx2:
        return encodeAvx2(src, groups, dst);
    case Level::plain:
        break;
    }
    encodePlain(src, groups, dst);
}

std::size_t decodeBase64(const unsigned char* src, std::size_t groups, unsigned char* dst) noexcept {
    switch (kernels().level) {
    case Level::avx512:
        return decodeAvx512(src, groups, dst);
    case Level::avx2:
        return decodeAvx2(src, groups, dst);
    case Level::plain:
        break;
    }
    return decodePlain(src, groups, dst);
}

} // namespace sup::kernels
