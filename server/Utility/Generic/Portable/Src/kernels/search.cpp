#include "kernels/search.h"

#include "Utility/Generic/Portable/SUPAutobuffer.h"

#include <cwchar>
#include <emmintrin.h>

namespace sup::kernels {

namespace {

// The quick way compares the first and the last character of the pattern at many places and the rest where
// both fit. It gives up when the rests it compared outweigh the text it passed: then the texts are of the
// repetitive kind that only the slow, linear way gets through.
class Budget {
public:
    explicit Budget(std::size_t m) : m_left(16 * m + 4096) {}
    void earn(std::size_t characters) { m_left += 2 * characters; }
    // False when it is used up.
    bool spend(std::size_t characters) {
        if (characters > m_left) {
            return false;
        }
        m_left -= characters;
        return true;
    }

private:
    std::size_t m_left;
};

bool equalCharacters(const wchar_t* a, const wchar_t* b, std::size_t n) { return std::wmemcmp(a, b, n) == 0; }

// Knuth, Morris and Pratt: textAt and patternAt give the characters in the direction of the search. Returns
// where the first match begins, or `n`.
template <class TextAt, class PatternAt>
std::size_t findLinearly(std::size_t from, std::size_t n, std::size_t m, TextAt textAt, PatternAt patternAt) {
    // border[i]: length of the longest proper border of the first i + 1 pattern characters.
    HeapedAutoBuffer<std::size_t> borders(m);
    std::size_t* const border = borders.data();
    border[0] = 0;
    for (std::size_t i = 1, matched = 0; i < m; ++i) {
        while (matched != 0 && patternAt(i) != patternAt(matched)) {
            matched = border[matched - 1];
        }
        matched += patternAt(i) == patternAt(matched) ? 1 : 0;
        border[i] = matched;
    }
    for (std::size_t i = from, matched = 0; i < n; ++i) {
        while (matched != 0 && textAt(i) != patternAt(matched)) {
            matched = border[matched - 1];
        }
        matched += textAt(i) == patternAt(matched) ? 1 : 0;
        if (matched == m) {
            return i + 1 - m;
        }
    }
    return n;
}

__m128i load4(const wchar_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// One bit for each of the four places from `p` on where the first and the last character fit.
unsigned int candidates(const wchar_t* p, std::size_t m, __m128i first, __m128i last) {
    const __m128i both =
        _mm_and_si128(_mm_cmpeq_epi32(load4(p), first), _mm_cmpeq_epi32(load4(p + (m - 1)), last));
    return static_cast<unsigned int>(_mm_movemask_ps(_mm_castsi128_ps(both)));
}

} // namespace

std::size_t findText(const wchar_t* text, std::size_t n, const wchar_t* pattern, std::size_t m) {
    if (m > n) {
        return n;
    }
    if (m == 1) {
        const wchar_t* const found = std::wmemchr(text, *pattern, n);
        return found == nullptr ? n : static_cast<std::size_t>(found - text);
    }
    const std::size_t places = n - m + 1;
    const std::size_t inner = m - 2;
    const __m128i first = _mm_set1_epi32(pattern[0]);
    const __m128i last = _mm_set1_epi32(pattern[m - 1]);
    Budget budget(m);
    std::size_t at = 0;
    const auto slowly = [&] {
        return findLinearly(
            at, n, m, [=](std::size_t i) { return text[i]; }, [=](std::size_t i) { return pattern[i]; });
    };
    // Reads text[at .. at + m + 6] at most, which lies inside while eight places are left.
    for (; at + 8 <= places; at += 8) {
        unsigned int mask = candidates(text + at, m, first, last) | candidates(text + at + 4, m, first, last)
                                                                        << 4;
        for (; mask != 0; mask &= mask - 1) {
            const std::size_t place = at + static_cast<unsigned int>(__builtin_ctz(mask));
            if (equalCharacters(text + place + 1, pattern + 1, inner)) {
                return place;
            }
            if (!budget.spend(inner)) {
                return slowly();
            }
        }
        budget.earn(8);
    }
    for (; at < places; ++at) {
        if (text[at] == pattern[0] && text[at + m - 1] == pattern[m - 1]) {
            if (equalCharacters(text + at + 1, pattern + 1, inner)) {
                return at;
            }
            if (!budget.spend(inner)) {
                return slowly();
            }
        }
    }
    return n;
}

std::size_t findLastText(const wchar_t* text, std::size_t n, const wchar_t* pattern, std::size_t m) {
    if (m > n) {
        return n;
    }
    const std::size_t inner = m == 1 ? 0 : m - 2;
    const __m128i first = _mm_set1_epi32(pattern[0]);
    const __m128i last = _mm_set1_epi32(pattern[m - 1]);
    Budget budget(m);
    std::size_t places = n - m + 1; // those not looked at yet, from 0 on
    const auto slowly = [&] {
        // Backwards: the text that the places left reach, read from its end.
        const std::size_t reach = places + m - 1;
        const std::size_t found = findLinearly(
            0, reach, m, [=](std::size_t i) { return text[reach - 1 - i]; },
            [=](std::size_t i) { return pattern[m - 1 - i]; });
        return found == reach ? n : reach - m - found;
    };
    for (; places >= 8; places -= 8) {
        const std::size_t at = places - 8;
        unsigned int mask = candidates(text + at, m, first, last) | candidates(text + at + 4, m, first, last)
                                                                        << 4;
        while (mask != 0) {
            const unsigned int bit = 31U - static_cast<unsigned int>(__builtin_clz(mask));
            if (equalCharacters(text + at + bit + 1, pattern + 1, inner)) {
                return at + bit;
            }
            if (!budget.spend(inner)) {
                return slowly();
            }
            mask ^= 1U << bit;
        }
        budget.earn(8);
    }
    for (; places != 0; --places) {
        const std::size_t at = places - 1;
        if (text[at] == pattern[0] && text[at + m - 1] == pattern[m - 1]) {
            if (equalCharacters(text + at + 1, pattern + 1, inner)) {
                return at;
            }
            if (!budget.spend(inner)) {
                return slowly();
            }
        }
    }
    return n;
}

} // namespace sup::kernels
