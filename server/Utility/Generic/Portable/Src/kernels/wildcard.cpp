#include "kernels/wildcard.h"

#include "Utility/Generic/Portable/SUPAutobuffer.h"
#include "kernels/search.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <emmintrin.h>

namespace sup::kernels {

namespace {

constexpr wchar_t kAnyOne = L'?';
constexpr std::size_t kWord = 64;
constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

const wchar_t* findAnyOne(const wchar_t* first, const wchar_t* last) {
    const wchar_t* const found = std::wmemchr(first, kAnyOne, static_cast<std::size_t>(last - first));
    return found == nullptr ? last : found;
}

struct Part {
    const wchar_t* first;
    std::size_t length;
};

// The longest stretch without "?".
Part longestPart(const wchar_t* segment, std::size_t m) {
    const wchar_t* const last = segment + m;
    Part longest{segment, 0};
    for (const wchar_t* p = segment;; ++p) {
        const wchar_t* const end = findAnyOne(p, last);
        const auto length = static_cast<std::size_t>(end - p);
        if (length > longest.length) {
            longest = {p, length};
        }
        if (end == last) {
            return longest;
        }
        p = end;
    }
}

// Compares a segment at 64 places at once. The different characters of the segment are numbered from 1 on,
// all others are 0. Bit i of plane b is bit b of the number of the i-th character of a window of the text.
class BitParallelSearch {
public:
    BitParallelSearch(const wchar_t* segment, std::size_t m) : m_segment(segment), m_m(m) {
        m_known.growNoPreserve(m);
        wchar_t* const known = m_known.data();
        wchar_t* const knownEnd = std::remove_copy(segment, segment + m, known, kAnyOne);
        std::sort(known, knownEnd);
        m_nKnown = static_cast<std::size_t>(std::unique(known, knownEnd) - known);
        while (m_nKnown >> m_nPlanes != 0) {
            ++m_nPlanes;
        }
        m_numbers.growNoPreserve(m);
        for (std::size_t i = 0; i < m; ++i) {
            m_numbers.data()[i] = numberOf(segment[i]);
        }
    }

    /// As findSegment, m <= n. It takes the text by windows, so that the work for a find that is near is
    /// small.
    std::size_t find(const wchar_t* text, std::size_t n) {
        const std::size_t places = n - m_m + 1;
        const std::size_t step = std::max<std::size_t>(m_m, 4096) / kWord * kWord + kWord;
        for (std::size_t from = 0; from < places; from += step) {
            const std::size_t count = std::min(step, places - from);
            const std::size_t found = findInWindow(text + from, count);
            if (found != kNotFound) {
                return from + found;
            }
        }
        return n;
    }

private:
    std::uint32_t numberOf(wchar_t c) const {
        const wchar_t* const end = m_known.data() + m_nKnown;
        const wchar_t* const found = std::lower_bound(m_known.data(), end, c);
        return found != end && *found == c ? static_cast<std::uint32_t>(found - m_known.data()) + 1 : 0;
    }

    std::size_t findInWindow(const wchar_t* window, std::size_t places) {
        fillPlanes(window, places + m_m - 1);
        for (std::size_t block = 0; block < places; block += kWord) {
            const std::size_t count = std::min(places - block, kWord);
            const std::uint64_t fits = fitsAt(block, ~std::uint64_t{0} >> (kWord - count));
            if (fits != 0) {
                return block + static_cast<unsigned int>(__builtin_ctzll(fits));
            }
        }
        return kNotFound;
    }

    // A word more than the characters take: 64 bits may be read from each of them on.
    void fillPlanes(const wchar_t* window, std::size_t n) {
        m_planeWords = n / kWord + 2;
        m_planes.growNoPreserve(m_nPlanes * m_planeWords);
        std::fill_n(m_planes.data(), m_nPlanes * m_planeWords, std::uint64_t{0});
        for (std::size_t i = 0; i < n; ++i) {
            std::uint64_t* word = m_planes.data() + i / kWord;
            for (std::uint32_t number = numberOf(window[i]); number != 0; number >>= 1) {
                *word |= std::uint64_t{number & 1} << (i % kWord);
                word += m_planeWords;
            }
        }
    }

    // Those of the 64 places from `block` on, as far as they are in `fits`, where the segment fits.
    std::uint64_t fitsAt(std::size_t block, std::uint64_t fits) const {
        for (std::size_t i = 0; i < m_m && fits != 0; ++i) {
            if (m_segment[i] == kAnyOne) {
                continue;
            }
            const std::size_t shift = (block + i) % kWord;
            const std::uint64_t* word = m_planes.data() + (block + i) / kWord;
            for (std::size_t plane = 0; plane < m_nPlanes; ++plane, word += m_planeWords) {
                const std::uint64_t bits = word[0] >> shift | word[1] << 1 << (kWord - 1 - shift);
                fits &= (m_numbers.data()[i] >> plane & 1) != 0 ? bits : ~bits;
            }
        }
        return fits;
    }

    const wchar_t* m_segment;
    std::size_t m_m;
    HeapedAutoBuffer<wchar_t> m_known; // the segment's characters, sorted, each once
    std::size_t m_nKnown = 0;
    HeapedAutoBuffer<std::uint32_t> m_numbers; // of the segment's characters, in its order
    HeapedAutoBuffer<std::uint64_t> m_planes;
    std::size_t m_nPlanes = 0;
    std::size_t m_planeWords = 0;
};

} // namespace

bool segmentFits(const wchar_t* text, const wchar_t* segment, std::size_t m) {
    const auto load = [](const wchar_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); };
    std::size_t i = 0;
    for (; m - i >= 4; i += 4) {
        const __m128i given = load(segment + i);
        const __m128i fits = _mm_or_si128(_mm_cmpeq_epi32(given, load(text + i)),
                                          _mm_cmpeq_epi32(given, _mm_set1_epi32(kAnyOne)));
        if (_mm_movemask_epi8(fits) != 0xFFFF) {
            return false;
        }
    }
    while (i < m && (segment[i] == text[i] || segment[i] == kAnyOne)) {
        ++i;
    }
    return i == m;
}

// Looks for the longest part, and compares the rest where that is.
std::size_t findSegment(const wchar_t* text, std::size_t n, const wchar_t* segment, std::size_t m) {
    if (m > n) {
        return n;
    }
    const Part longest = longestPart(segment, m);
    if (longest.length == 0) {
        return 0;
    }
    if (longest.length == m) {
        return findText(text, n, segment, m);
    }
    const auto before = static_cast<std::size_t>(longest.first - segment);
    const std::size_t places = n - m + 1;
    Budget budget(m);
    for (std::size_t from = 0; from < places;) {
        const std::size_t area = places - from + longest.length - 1;
        const std::size_t found = findText(text + from + before, area, longest.first, longest.length);
        if (found == area) {
            return n;
        }
        const std::size_t place = from + found;
        if (segmentFits(text + place, segment, m)) {
            return place;
        }
        budget.earn(found);
        from = place + 1;
        if (!budget.spend(m)) {
            const std::size_t left = n - from;
            const std::size_t slowlyFound =
                from < places ? BitParallelSearch(segment, m).find(text + from, left) : left;
            return from + slowlyFound; // n when there is none
        }
    }
    return n;
}

} // namespace sup::kernels
