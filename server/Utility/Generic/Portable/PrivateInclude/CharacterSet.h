// A set of wide characters, and their places in a text. Sets of ASCII characters are looked for in vectors,
// other characters below U+0100 by a table, the rest by binary search.
#pragma once

#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "Utility/Generic/Portable/SUPExport.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <emmintrin.h>

namespace sup {

class BRIMPORTABLE_API CharacterSet {
public:
    static constexpr std::size_t kBlock = 16;

    CharacterSet(const wchar_t* first, const wchar_t* last);

    bool contains(wchar_t c) const noexcept {
        if (m_nFew != 0) {
            return std::any_of(m_few, m_few + m_nFew,
                               [c](__m128i one) { return c == (_mm_cvtsi128_si32(one) & 0x7F); });
        }
        return isLow(c) ? m_low[c] : std::binary_search(m_others.data(), m_others.data() + m_nOthers, c);
    }

    /// One bit for each of the `n` characters at `p`, kBlock at most, that is in the set.
    unsigned int placesIn(const wchar_t* p, std::size_t n) const noexcept {
        if (m_nFew != 0 && n == kBlock) {
            return placesOfFew(p);
        }
        unsigned int places = 0;
        for (std::size_t i = 0; i < n; ++i) {
            places |= (contains(p[i]) ? 1U : 0U) << i;
        }
        return places;
    }

    /// The same of the `n` characters, kBlock at most, from `at` on in a text; it may be read before them.
    unsigned int placesAt(const wchar_t* text, std::size_t at, std::size_t n) const noexcept {
        const std::size_t missing = kBlock - n;
        return at >= missing ? placesIn(text + at - missing, kBlock) >> missing : placesIn(text + at, n);
    }

    struct Counts {
        std::size_t members;
        std::size_t runsOfOthers; ///< stretches between them that are not empty
    };
    Counts count(const wchar_t* text, std::size_t n) const noexcept;

    /// Where to go on looking from `start` in the `n` characters at `text`: nothing before is in the set, or
    /// all is with `ofOthers`.
    std::size_t skip(const wchar_t* text, std::size_t n, std::size_t start, bool ofOthers) const noexcept;

private:
    static constexpr std::size_t kMostFew = 8;

    static bool isLow(wchar_t c) noexcept { return static_cast<std::uint32_t>(c) < 256; }
    // Narrowed with saturation, no other character becomes such a byte.
    static bool isAscii(wchar_t c) noexcept { return c > 0 && c < 0x80; }

    unsigned int placesOfFew(const wchar_t* p) const noexcept {
        const auto load = [p](std::size_t i) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        };
        const __m128i bytes =
            _mm_packus_epi16(_mm_packs_epi32(load(0), load(4)), _mm_packs_epi32(load(8), load(12)));
        __m128i any = _mm_setzero_si128();
        for (std::size_t i = 0; i < m_nFew; ++i) {
            any = _mm_or_si128(any, _mm_cmpeq_epi8(bytes, m_few[i]));
        }
        return static_cast<unsigned int>(_mm_movemask_epi8(any));
    }

    bool m_low[256]; // set unless they are ASCII and few
    bool m_isAscii;
    // Of an ASCII set: by the low half of a character, the bits of the high halves.
    alignas(16) unsigned char m_halves[16] = {};
    __m128i m_few[kMostFew]; // each character in every byte, when they are ASCII and few
    std::size_t m_nFew = 0;
    AutoBuffer<wchar_t, 32> m_others; // sorted
    std::size_t m_nOthers = 0;
};

/// The places of a set's characters in the `n` characters at `text`, from `start` on; or the places of all
/// others. The set and the text must outlive it.
class SetPlaces {
public:
    SetPlaces(const CharacterSet& set, const wchar_t* text, std::size_t n, std::size_t start = 0,
              bool ofOthers = false) noexcept
        : m_set(set), m_text(text), m_n(n), m_block(start), m_ahead(start), m_flip(ofOthers ? ~0U : 0U) {}

    /// The next place; `n` when there is none left.
    std::size_t next() noexcept {
        while (m_places == 0) {
            if (m_ahead >= m_n) {
                return m_n;
            }
            const std::size_t count = std::min(m_n - m_ahead, CharacterSet::kBlock);
            m_block = m_ahead;
            m_ahead += count;
            m_places = (m_set.placesAt(m_text, m_block, count) ^ m_flip) & ((1U << count) - 1);
            if (m_places == 0) {
                m_ahead = m_set.skip(m_text, m_n, m_ahead, m_flip != 0);
            }
        }
        const auto bit = static_cast<unsigned int>(__builtin_ctz(m_places));
        m_places &= m_places - 1;
        return m_block + bit;
    }

private:
    const CharacterSet& m_set;
    const wchar_t* m_text;
    std::size_t m_n;
    std::size_t m_block;       // begins here
    std::size_t m_ahead;       // what no block has covered begins here
    unsigned int m_places = 0; // of the block, not given out yet
    unsigned int m_flip;
};

} // namespace sup
