#include "CharacterSet.h"

#include "kernels/kernels.h"
#include "kernels/targets.h"

#include <immintrin.h>
#include <iterator>

namespace sup {

namespace {

BRIM_AVX2 inline __m256i load8(const wchar_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

// Looks at blocks of 32 characters as bytes, in whatever order, up to one with a character whose being in the
// set is not as `skipped` says. A byte's high half chooses the bit that has to be set for its low half.
template <bool kSkipped>
BRIM_AVX2 std::size_t skipAvx2(const wchar_t* text, std::size_t n, std::size_t start,
                               const unsigned char* halves) noexcept {
    const __m256i low = _mm256_set1_epi8(0xF);
    const __m256i bitsOfLow = _mm256_broadcastsi128_si256(*reinterpret_cast<const __m128i*>(halves));
    const __m256i bitOfHigh =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 0, 0, 0, 0, 0, 0, 0, 0));
    for (; start + 32 <= n; start += 32) {
        const wchar_t* const p = text + start;
        const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(load8(p), load8(p + 8)),
                                                  _mm256_packs_epi32(load8(p + 16), load8(p + 24)));
        const __m256i high = _mm256_and_si256(_mm256_srli_epi16(bytes, 4), low);
        const __m256i bits = _mm256_and_si256(_mm256_shuffle_epi8(bitsOfLow, _mm256_and_si256(bytes, low)),
                                              _mm256_shuffle_epi8(bitOfHigh, high));
        const __m256i isOut = _mm256_cmpeq_epi8(bits, _mm256_setzero_si256());
        if (_mm256_movemask_epi8(isOut) != (kSkipped ? 0 : -1)) {
            break;
        }
    }
    return start;
}

// The same with blocks of 64 characters.
template <bool kSkipped>
BRIM_AVX512 std::size_t skipAvx512(const wchar_t* text, std::size_t n, std::size_t start,
                                   const unsigned char* halves) noexcept {
    const __m512i low = _mm512_set1_epi8(0xF);
    const __m512i bitsOfLow = _mm512_broadcast_i32x4(*reinterpret_cast<const __m128i*>(halves));
    const __m512i bitOfHigh =
        _mm512_broadcast_i32x4(_mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 0, 0, 0, 0, 0, 0, 0, 0));
    for (; start + 64 <= n; start += 64) {
        const wchar_t* const p = text + start;
        const __m512i bytes =
            _mm512_packus_epi16(_mm512_packs_epi32(_mm512_loadu_si512(p), _mm512_loadu_si512(p + 16)),
                                _mm512_packs_epi32(_mm512_loadu_si512(p + 32), _mm512_loadu_si512(p + 48)));
        const __m512i high = _mm512_and_si512(_mm512_srli_epi16(bytes, 4), low);
        const __mmask64 isIn =
            _mm512_test_epi8_mask(_mm512_shuffle_epi8(bitsOfLow, _mm512_and_si512(bytes, low)),
                                  _mm512_shuffle_epi8(bitOfHigh, high));
        if (isIn != (kSkipped ? ~__mmask64{0} : 0)) {
            break;
        }
    }
    return start;
}

} // namespace

CharacterSet::CharacterSet(const wchar_t* first, const wchar_t* last)
    : m_isAscii(std::all_of(first, last, isAscii)) {
    const bool isFew = m_isAscii && last != first && last - first <= static_cast<std::ptrdiff_t>(kMostFew);
    if (!isFew) {
        std::fill(std::begin(m_low), std::end(m_low), false);
    }
    if (m_isAscii) {
        for (; first != last; ++first) {
            m_halves[*first & 0xF] |= static_cast<unsigned char>(1U << (*first >> 4));
            if (isFew) {
                m_few[m_nFew++] = _mm_set1_epi8(static_cast<char>(*first));
            } else {
                m_low[*first] = true;
            }
        }
        return;
    }
    m_others.growNoPreserve(static_cast<std::size_t>(last - first));
    for (; first != last; ++first) {
        if (isLow(*first)) {
            m_low[*first] = true;
        } else {
            m_others.data()[m_nOthers++] = *first;
        }
    }
    std::sort(m_others.data(), m_others.data() + m_nOthers);
}

CharacterSet::Counts CharacterSet::count(const wchar_t* text, std::size_t n) const noexcept {
    constexpr std::size_t kWord = 64;
    Counts counts{0, 0};
    std::uint64_t before = 1; // a member stands before the first character, as it were
    for (std::size_t i = 0; i < n; i += kWord) {
        const std::size_t count = std::min(n - i, kWord);
        std::uint64_t places = ~std::uint64_t{0} << (count - 1)
                                                 << 1; // what is behind the end counts as members
        for (std::size_t k = 0; k < count; k += kBlock) {
            places |= std::uint64_t{placesAt(text, i + k, std::min(count - k, kBlock))} << k;
        }
        counts.members += static_cast<std::size_t>(__builtin_popcountll(places)) - (kWord - count);
        counts.runsOfOthers +=
            static_cast<std::size_t>(__builtin_popcountll(~places & (places << 1 | before)));
        before = places >> (kWord - 1);
    }
    return counts;
}

std::size_t CharacterSet::skip(const wchar_t* text, std::size_t n, std::size_t start,
                               bool ofOthers) const noexcept {
    if (n - start < 2 * kBlock || !m_isAscii || kernels::kernels().level == kernels::Level::plain) {
        return start;
    }
    if (kernels::kernels().level == kernels::Level::avx512) {
        start = ofOthers ? skipAvx512<true>(text, n, start, m_halves)
                         : skipAvx512<false>(text, n, start, m_halves);
    }
    return ofOthers ? skipAvx2<true>(text, n, start, m_halves) : skipAvx2<false>(text, n, start, m_halves);
}

} // namespace sup
