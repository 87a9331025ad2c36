#include "kernels/escape.h"

#include "kernels/kernels.h"
#include "kernels/targets.h"

#include <cstring>
#include <immintrin.h>

namespace sup::kernels {

namespace {

constexpr std::size_t kStep = 16;

__m128i load4(const wchar_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
void store4(wchar_t* p, __m128i x) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), x); }

// ---- URI --------------------------------------------------------------------------------------------------

bool hasPiece(wchar_t c) { return static_cast<std::uint32_t>(c) < 0x100; }

// Four characters are written for each one, and go on after those that count: there is nothing to foresee.
EscapeProgress encodeUriPlain(const UriPieces& pieces, const wchar_t* src, std::size_t n,
                              wchar_t* dst) noexcept {
    std::size_t i = 0;
    std::size_t written = 0;
    for (; i < n && hasPiece(src[i]); ++i) {
        const std::uint32_t piece = pieces[src[i]];
        const __m128i zero = _mm_setzero_si128();
        const __m128i bytes = _mm_cvtsi32_si128(static_cast<int>(piece & 0xFFFFFF));
        store4(dst + written, _mm_unpacklo_epi16(_mm_unpacklo_epi8(bytes, zero), zero));
        written += piece >> 24;
    }
    return {i, written};
}

BRIM_AVX512 inline void widen16(wchar_t* dst, __m128i bytes) {
    _mm512_storeu_si512(dst, _mm512_cvtepu8_epi32(bytes));
}

// Presses the pieces of 16 characters together.
BRIM_AVX512 EscapeProgress encodeUriAvx512(const UriPieces& pieces, const wchar_t* src, std::size_t n,
                                           wchar_t* dst) noexcept {
    std::size_t i = 0;
    std::size_t written = 0;
    for (; n - i >= kStep; i += kStep) {
        const __m512i text = _mm512_loadu_si512(src + i);
        if (_mm512_cmpge_epu32_mask(text, _mm512_set1_epi32(0x100)) != 0) {
            break;
        }
        const __m512i found = _mm512_i32gather_epi32(text, pieces, 4);
        const __m512i bytes = _mm512_and_si512(found, _mm512_set1_epi32(0xFFFFFF));
        const __mmask64 isUsed = _mm512_test_epi8_mask(bytes, bytes);
        const __m512i pressed = _mm512_maskz_compress_epi8(isUsed, bytes);
        widen16(dst + written, _mm512_castsi512_si128(pressed));
        widen16(dst + written + kStep, _mm512_extracti32x4_epi32(pressed, 1));
        widen16(dst + written + 2 * kStep, _mm512_extracti32x4_epi32(pressed, 2));
        written += static_cast<std::size_t>(_mm_popcnt_u64(isUsed));
    }
    _mm256_zeroupper();
    const EscapeProgress rest = encodeUriPlain(pieces, src + i, n - i, dst + written);
    return {i + rest.read, written + rest.written};
}

// Copies four characters with blanks for plus signs; tells the percent signs.
__m128i copyBlanks(const wchar_t* src, wchar_t* dst) {
    const __m128i text = load4(src);
    const __m128i isPlus = _mm_cmpeq_epi32(text, _mm_set1_epi32('+'));
    store4(dst, _mm_xor_si128(text, _mm_and_si128(isPlus, _mm_set1_epi32('+' ^ ' '))));
    return _mm_cmpeq_epi32(text, _mm_set1_epi32('%'));
}

EscapeProgress copyUriPlain(const wchar_t* src, std::size_t n, wchar_t* dst) noexcept {
    std::size_t i = 0;
    for (; n - i >= 4; i += 4) {
        if (const int percents = _mm_movemask_ps(_mm_castsi128_ps(copyBlanks(src + i, dst + i)))) {
            i += static_cast<unsigned int>(__builtin_ctz(static_cast<unsigned int>(percents)));
            return {i, i};
        }
    }
    for (; i < n && src[i] != L'%'; ++i) {
        dst[i] = src[i] == L'+' ? L' ' : src[i];
    }
    return {i, i};
}

// The characters of a text that is shorter than a block as bytes, zeros behind them; false when one is none.
BRIM_AVX512 inline bool bytesOf(const wchar_t* src, std::uint64_t isText, __m512i& bytes) {
    const auto load = [&](unsigned int quarter) BRIM_AVX512 {
        return _mm512_maskz_loadu_epi32(static_cast<__mmask16>(isText >> (16 * quarter)), src + 16 * quarter);
    };
    const __m512i a = load(0);
    const __m512i b = load(1);
    const __m512i c = load(2);
    const __m512i d = load(3);
    const __m512i any = _mm512_or_si512(_mm512_or_si512(a, b), _mm512_or_si512(c, d));
    const __m256i low = _mm256_set_m128i(_mm512_cvtepi32_epi8(b), _mm512_cvtepi32_epi8(a));
    const __m256i high = _mm256_set_m128i(_mm512_cvtepi32_epi8(d), _mm512_cvtepi32_epi8(c));
    bytes = _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
    return _mm512_test_epi32_mask(any, _mm512_set1_epi32(~0xFF)) == 0;
}

struct Following {
    alignas(64) unsigned char places[2][64];
    constexpr Following() : places() {
        for (unsigned int i = 0; i < 64; ++i) {
            places[0][i] = static_cast<unsigned char>((i + 1) % 64);
            places[1][i] = static_cast<unsigned char>((i + 2) % 64);
        }
    }
};
constexpr Following kFollowing;

// By blocks of 64 characters: each escape leaves one byte of three, and the rest is pressed together. An
// escape that the end of a block cuts begins the next one.
BRIM_AVX512 EscapeProgress decodeUriAvx512(const wchar_t* src, std::size_t n, wchar_t* dst) noexcept {
    std::size_t i = 0;
    std::size_t written = 0;
    while (i != n) {
        const std::uint64_t isText =
            _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned int>(n - i < 64 ? n - i : 64));
        __m512i bytes;
        if (!bytesOf(src + i, isText, bytes)) {
            break;
        }
        const __m512i small = _mm512_or_si512(bytes, _mm512_set1_epi8(0x20));
        const __mmask64 isDigit =
            _mm512_cmplt_epu8_mask(_mm512_sub_epi8(bytes, _mm512_set1_epi8('0')), _mm512_set1_epi8(10));
        const __mmask64 isLetter =
            _mm512_cmplt_epu8_mask(_mm512_sub_epi8(small, _mm512_set1_epi8('a')), _mm512_set1_epi8(6));
        const __m512i low = _mm512_and_si512(bytes, _mm512_set1_epi8(0xF));
        const __m512i values = _mm512_mask_add_epi8(low, isLetter, low, _mm512_set1_epi8(9));
        const __m512i first = _mm512_permutexvar_epi8(_mm512_load_si512(kFollowing.places[0]), values);
        const __m512i second = _mm512_permutexvar_epi8(_mm512_load_si512(kFollowing.places[1]), values);
        const __m512i pairs = _mm512_or_si512(_mm512_slli_epi16(first, 4), second); // of halves below 16
        const __mmask64 isAscii = _mm512_cmpgt_epi8_mask(pairs, _mm512_setzero_si512());

        const std::uint64_t isHex = isDigit | isLetter;
        const std::uint64_t isPercent = _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8('%'));
        const std::uint64_t isEscape = isPercent & isHex >> 1 & isHex >> 2 & isAscii;
        const std::uint64_t isOther = isPercent & ~isEscape;
        const std::uint64_t isBefore = isOther == 0 ? isText : _blsmsk_u64(isOther) >> 1;
        const std::uint64_t isKept = isBefore & ~(isEscape << 1 | isEscape << 2);

        const __mmask64 isPlus = _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8('+'));
        const __m512i blanks = _mm512_mask_mov_epi8(bytes, isPlus, _mm512_set1_epi8(' '));
        const __m512i pressed =
            _mm512_maskz_compress_epi8(isKept, _mm512_mask_mov_epi8(blanks, isEscape, pairs));
        widen16(dst + written, _mm512_castsi512_si128(pressed));
        widen16(dst + written + 16, _mm512_extracti32x4_epi32(pressed, 1));
        widen16(dst + written + 32, _mm512_extracti32x4_epi32(pressed, 2));
        widen16(dst + written + 48, _mm512_extracti32x4_epi32(pressed, 3));
        written += static_cast<std::size_t>(_mm_popcnt_u64(isKept));
        const auto read = static_cast<std::size_t>(_mm_popcnt_u64(isBefore));
        if (read == 0) {
            return {i, written};
        }
        i += read;
    }
    _mm256_zeroupper();
    const EscapeProgress rest = copyUriPlain(src + i, n - i, dst + written);
    return {i + rest.read, written + rest.written};
}

// ---- XML --------------------------------------------------------------------------------------------------

// What stands for a character: after "&", if it begins so, which the first character tells.
struct Entity {
    wchar_t rest[8];
    std::size_t length; // with the first character
};
constexpr Entity kEntities[] = {{L"", 1},     {L"quot;", 6}, {L"apos;", 6},
                                {L"amp;", 5}, {L"lt;", 4},   {L"gt;", 4}};
constexpr std::uint32_t kEntityLimit = 64;
struct EntityOf {
    unsigned char which[kEntityLimit];
    constexpr EntityOf() : which() {
        which[L'"'] = 1;
        which[L'\''] = 2;
        which[L'&'] = 3;
        which[L'<'] = 4;
        which[L'>'] = 5;
    }
};
constexpr EntityOf kEntityOf;

wchar_t* escapeOne(wchar_t c, wchar_t* dst) {
    const auto code = static_cast<std::uint32_t>(c);
    const unsigned char which = code < kEntityLimit ? kEntityOf.which[code] : static_cast<unsigned char>(0);
    const Entity& entity = kEntities[which];
    *dst = which != 0 ? L'&' : c;
    store4(dst + 1, load4(entity.rest));
    store4(dst + 5, load4(entity.rest + 4));
    return dst + entity.length;
}

// Narrowed with saturation, no other character becomes one of the five.
bool needsEscape(__m128i a, __m128i b, __m128i c, __m128i d) {
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
    const auto is = [bytes](char special) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(special)); };
    // "&" and "'", and "<" and ">" differ in one bit each.
    const __m128i ampOrApos = _mm_cmpeq_epi8(_mm_or_si128(bytes, _mm_set1_epi8(1)), _mm_set1_epi8('\''));
    const __m128i bracket = _mm_cmpeq_epi8(_mm_or_si128(bytes, _mm_set1_epi8(2)), _mm_set1_epi8('>'));
    return _mm_movemask_epi8(_mm_or_si128(is('"'), _mm_or_si128(ampOrApos, bracket))) != 0;
}

} // namespace

EscapeProgress encodeUri(const UriPieces& pieces, const wchar_t* src, std::size_t n, wchar_t* dst) noexcept {
    return kernels().level == Level::avx512 ? encodeUriAvx512(pieces, src, n, dst)
                                            : encodeUriPlain(pieces, src, n, dst);
}

EscapeProgress decodeUri(const wchar_t* src, std::size_t n, wchar_t* dst) noexcept {
    return kernels().level == Level::avx512 ? decodeUriAvx512(src, n, dst) : copyUriPlain(src, n, dst);
}

// Stretches without a special character are copied; elsewhere the whole of an entity's room is written for
// each character, and goes on after what counts: there is nothing to foresee.
std::size_t escapeXml(const wchar_t* src, std::size_t n, wchar_t* dst) noexcept {
    wchar_t* to = dst;
    std::size_t i = 0;
    for (; n - i >= kStep; i += kStep) {
        const __m128i a = load4(src + i);
        const __m128i b = load4(src + i + 4);
        const __m128i c = load4(src + i + 8);
        const __m128i d = load4(src + i + 12);
        if (needsEscape(a, b, c, d)) {
            for (std::size_t k = i; k < i + kStep; ++k) {
                to = escapeOne(src[k], to);
            }
            continue;
        }
        store4(to, a);
        store4(to + 4, b);
        store4(to + 8, c);
        store4(to + 12, d);
        to += kStep;
    }
    for (; i < n; ++i) {
        to = escapeOne(src[i], to);
    }
    return static_cast<std::size_t>(to - dst);
}

} // namespace sup::kernels
