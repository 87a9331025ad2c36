#include "CaseFolding.h"

#include "kernels/kernels.h"
#include "kernels/targets.h"

#include <algorithm>
#include <cwctype>
#include <immintrin.h>

namespace sup {

namespace {

constexpr int kCaseBit = 0x20;

__m128i load4(const wchar_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

bool isZero(__m128i x) { return _mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_setzero_si128())) == 0xFFFF; }

// `bit` in the lanes whose character is one of first to last.
__m128i bitOfRange(__m128i x, char first, char last, int bit) {
    const __m128i above = _mm_cmpgt_epi32(x, _mm_set1_epi32(first - 1));
    const __m128i below = _mm_cmplt_epi32(x, _mm_set1_epi32(last + 1));
    return _mm_and_si128(_mm_and_si128(above, below), _mm_set1_epi32(bit));
}

// Reads and writes whole blocks of four characters inside [0, n), then single ones.
template <class Fold>
wchar_t* foldPlain(const Fold& fold, bool plainAscii, char firstLetter, const wchar_t* src, std::size_t n,
                   wchar_t* dst) {
    const char lastLetter = static_cast<char>(firstLetter + 25);
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128i x = load4(src + i);
        if (plainAscii && isZero(_mm_and_si128(x, _mm_set1_epi32(~0x7F)))) {
            const __m128i folded = _mm_xor_si128(x, bitOfRange(x, firstLetter, lastLetter, kCaseBit));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), folded);
            continue;
        }
        for (std::size_t k = i; k < i + 4; ++k) {
            dst[k] = fold(src[k]);
        }
    }
    for (; i < n; ++i) {
        dst[i] = fold(src[i]);
    }
    return dst + n;
}

// Blocks of 16 characters, the last one through masks. What is neither ASCII nor in the table is folded
// singly.
template <class Fold>
BRIM_AVX512 wchar_t* foldAvx512(const Fold& fold, bool plainAscii, char firstLetter, const wchar_t* alphabets,
                                std::uint32_t limit, const wchar_t* src, std::size_t n, wchar_t* dst) {
    constexpr std::size_t kBlock = 16;
    for (std::size_t i = 0; i < n; i += kBlock) {
        const std::size_t count = std::min(n - i, kBlock);
        const auto lanes = static_cast<__mmask16>(_bzhi_u32(0xFFFF, static_cast<unsigned int>(count)));
        const __m512i x = _mm512_maskz_loadu_epi32(lanes, src + i);
        if (plainAscii && _mm512_test_epi32_mask(x, _mm512_set1_epi32(~0x7F)) == 0) {
            const __mmask16 isLetter = _mm512_cmplt_epu32_mask(
                _mm512_sub_epi32(x, _mm512_set1_epi32(firstLetter)), _mm512_set1_epi32(26));
            const __m512i folded = _mm512_mask_xor_epi32(x, isLetter, x, _mm512_set1_epi32(kCaseBit));
            _mm512_mask_storeu_epi32(dst + i, lanes, folded);
            continue;
        }
        const __mmask16 inTable =
            _mm512_mask_cmplt_epu32_mask(lanes, x, _mm512_set1_epi32(static_cast<int>(limit)));
        const __m512i folded = _mm512_mask_i32gather_epi32(x, inTable, x, alphabets, 4);
        _mm512_mask_storeu_epi32(dst + i, lanes, folded);
        for (unsigned int others = lanes & ~static_cast<unsigned int>(inTable); others != 0;
             others &= others - 1) {
            wchar_t& c = dst[i + _tzcnt_u32(others)];
            c = fold(c);
        }
    }
    return dst + n;
}

bool isWide() { return kernels::kernels().level == kernels::Level::avx512; }

// What of the difference of two blocks no case bit explains: a letter of ASCII and the other of its pair
// differ in that bit alone.
__m128i unexplained(__m128i a, __m128i b, int caseBit) {
    const __m128i small = _mm_or_si128(a, _mm_set1_epi32(kCaseBit));
    return _mm_andnot_si128(bitOfRange(small, 'a', 'z', caseBit), _mm_xor_si128(a, b));
}

} // namespace

wchar_t* LowerCaseFold::fold(const wchar_t* src, std::size_t n, wchar_t* dst) const noexcept {
    return isWide() ? foldAvx512(*this, m_plainAscii, 'A', m_alphabets, m_limit, src, n, dst)
                    : foldPlain(*this, m_plainAscii, 'A', src, n, dst);
}

wchar_t* UpperCaseFold::fold(const wchar_t* src, std::size_t n, wchar_t* dst) const noexcept {
    return isWide() ? foldAvx512(*this, m_plainAscii, 'a', m_alphabets, m_limit, src, n, dst)
                    : foldPlain(*this, m_plainAscii, 'a', src, n, dst);
}

wchar_t LowerCaseFold::foldOther(std::uint32_t code) const noexcept {
    return m_characters != nullptr && code < LocaleCharacters::kLimit
               ? m_characters->lower(code)
               : static_cast<wchar_t>(std::towlower(code));
}

wchar_t UpperCaseFold::foldOther(std::uint32_t code) const noexcept {
    return m_characters != nullptr && code < LocaleCharacters::kLimit
               ? m_characters->upper(code)
               : static_cast<wchar_t>(std::towupper(code));
}

// Reads whole blocks of eight characters inside [0, n), then single ones.
std::size_t LowerCaseFold::firstDifferencePlain(const wchar_t* a, const wchar_t* b,
                                                std::size_t n) const noexcept {
    const LowerCaseFold& fold = *this;
    const int caseBit = m_plainAscii ? kCaseBit : 0;
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i rest = _mm_or_si128(unexplained(load4(a + i), load4(b + i), caseBit),
                                          unexplained(load4(a + i + 4), load4(b + i + 4), caseBit));
        if (isZero(rest)) {
            continue;
        }
        // All eight without a branch: which letters are equal as they stand is hard to foresee.
        wchar_t differs = 0;
        for (std::size_t k = i; k < i + 8; ++k) {
            differs |= fold(a[k]) ^ fold(b[k]);
        }
        if (differs != 0) {
            break;
        }
    }
    while (i < n && (a[i] == b[i] || fold(a[i]) == fold(b[i]))) {
        ++i;
    }
    return i;
}

// Blocks of 16 characters, the last one through masks. Only what no case bit explains is looked up.
BRIM_AVX512 std::size_t LowerCaseFold::firstDifferenceAvx512(const wchar_t* a, const wchar_t* b,
                                                             std::size_t n) const noexcept {
    constexpr std::size_t kBlock = 16;
    const __m512i caseBit = _mm512_set1_epi32(m_plainAscii ? kCaseBit : 0);
    const __m512i limit = _mm512_set1_epi32(static_cast<int>(m_limit));
    for (std::size_t i = 0; i < n; i += kBlock) {
        const std::size_t count = std::min(n - i, kBlock);
        const auto lanes = static_cast<__mmask16>(_bzhi_u32(0xFFFF, static_cast<unsigned int>(count)));
        const __m512i x = _mm512_maskz_loadu_epi32(lanes, a + i);
        const __m512i y = _mm512_maskz_loadu_epi32(lanes, b + i);
        const __m512i difference = _mm512_xor_si512(x, y);
        const __m512i small = _mm512_or_si512(x, _mm512_set1_epi32(kCaseBit));
        const __mmask16 isLetter =
            _mm512_cmplt_epu32_mask(_mm512_sub_epi32(small, _mm512_set1_epi32('a')), _mm512_set1_epi32(26));
        const __mmask16 inDoubt = _mm512_test_epi32_mask(
            difference, _mm512_mask_andnot_epi32(difference, isLetter, caseBit, difference));
        if (inDoubt == 0) {
            continue;
        }
        const __mmask16 inTable =
            _mm512_mask_cmplt_epu32_mask(_mm512_mask_cmplt_epu32_mask(inDoubt, x, limit), y, limit);
        const __m512i zero = _mm512_setzero_si512();
        const __m512i foldedX = _mm512_mask_i32gather_epi32(zero, inTable, x, m_alphabets, 4);
        const __m512i foldedY = _mm512_mask_i32gather_epi32(zero, inTable, y, m_alphabets, 4);
        if (inTable == inDoubt && _mm512_cmpneq_epi32_mask(foldedX, foldedY) == 0) {
            continue;
        }
        const std::size_t differs = firstDifferencePlain(a + i, b + i, count);
        if (differs != count) {
            return i + differs;
        }
    }
    return n;
}

std::size_t LowerCaseFold::firstDifference(const wchar_t* a, const wchar_t* b, std::size_t n) const noexcept {
    return isWide() ? firstDifferenceAvx512(a, b, n) : firstDifferencePlain(a, b, n);
}

} // namespace sup
