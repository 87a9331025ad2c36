#include "kernels/search.h"

#include "kernels/kernels.h"
#include "kernels/targets.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <immintrin.h>

namespace sup::kernels {

namespace {

// ---- Where a few characters of the pattern stand ----------------------------------------------------------

// Three characters of a pattern, by their places in it.
class Probe {
public:
    Probe(const wchar_t* pattern, std::size_t a, std::size_t b, std::size_t c)
        : m_characters{pattern[a], pattern[b], pattern[c]}, m_places{a, b, c} {}

    template <int kWhich>
    wchar_t character() const {
        return m_characters[kWhich];
    }
    template <int kWhich>
    const wchar_t* in(const wchar_t* p) const {
        return p + m_places[kWhich];
    }
    bool fits(const wchar_t* p) const {
        return *in<0>(p) == m_characters[0] && *in<1>(p) == m_characters[1] && *in<2>(p) == m_characters[2];
    }

private:
    wchar_t m_characters[3];
    std::size_t m_places[3];
};

// nextPlace: the first place in [at, places) where the probe fits, `places` when there is none.
// previousPlace: one more than the last one in [0, places), 0 when there is none. Both read whole blocks of
// places, each as far as the pattern reaches from there, then single places. The third character is looked at
// only in blocks where the others fit.

std::size_t nextPlaceSingly(const wchar_t* text, std::size_t at, std::size_t places, const Probe& probe) {
    while (at < places && !probe.fits(text + at)) {
        ++at;
    }
    return at;
}

std::size_t previousPlaceSingly(const wchar_t* text, std::size_t places, const Probe& probe) {
    while (places != 0 && !probe.fits(text + places - 1)) {
        --places;
    }
    return places;
}

std::size_t lowestBit(std::uint64_t mask) { return static_cast<unsigned int>(__builtin_ctzll(mask)); }
std::size_t highestBit(std::uint64_t mask) { return 63U - static_cast<unsigned int>(__builtin_clzll(mask)); }

class Lanes4 {
public:
    static constexpr std::size_t kBlock = 8;
    explicit Lanes4(const Probe& probe)
        : m_probe(probe), m_a(_mm_set1_epi32(probe.character<0>())),
          m_b(_mm_set1_epi32(probe.character<1>())), m_c(_mm_set1_epi32(probe.character<2>())) {}
    // One bit for each place of the block.
    unsigned int places(const wchar_t* p) const {
        const __m128i first = pairs(p);
        const __m128i second = pairs(p + 4);
        if (_mm_movemask_epi8(_mm_or_si128(first, second)) == 0) {
            return 0;
        }
        return bits(p, first) | bits(p + 4, second) << 4;
    }

private:
    static __m128i load(const wchar_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    __m128i pairs(const wchar_t* p) const {
        return _mm_and_si128(_mm_cmpeq_epi32(load(m_probe.in<0>(p)), m_a),
                             _mm_cmpeq_epi32(load(m_probe.in<1>(p)), m_b));
    }
    unsigned int bits(const wchar_t* p, __m128i pairsThere) const {
        const __m128i all = _mm_and_si128(pairsThere, _mm_cmpeq_epi32(load(m_probe.in<2>(p)), m_c));
        return static_cast<unsigned int>(_mm_movemask_ps(_mm_castsi128_ps(all)));
    }

    const Probe& m_probe;
    __m128i m_a;
    __m128i m_b;
    __m128i m_c;
};

std::size_t nextPlacePlain(const wchar_t* text, std::size_t at, std::size_t places, const Probe& probe) {
    const Lanes4 lanes(probe);
    for (; at + Lanes4::kBlock <= places; at += Lanes4::kBlock) {
        if (const unsigned int mask = lanes.places(text + at)) {
            return at + lowestBit(mask);
        }
    }
    return nextPlaceSingly(text, at, places, probe);
}

std::size_t previousPlacePlain(const wchar_t* text, std::size_t places, const Probe& probe) {
    const Lanes4 lanes(probe);
    for (; places >= Lanes4::kBlock; places -= Lanes4::kBlock) {
        const std::size_t at = places - Lanes4::kBlock;
        if (const unsigned int mask = lanes.places(text + at)) {
            return at + highestBit(mask) + 1;
        }
    }
    return previousPlaceSingly(text, places, probe);
}

class Lanes8 {
public:
    static constexpr std::size_t kBlock = 32;
    BRIM_AVX2 explicit Lanes8(const Probe& probe)
        : m_probe(probe), m_a(_mm256_set1_epi32(probe.character<0>())),
          m_b(_mm256_set1_epi32(probe.character<1>())), m_c(_mm256_set1_epi32(probe.character<2>())) {}
    // From a block at `p` to the first that begins at whole vectors.
    static std::size_t toAligned(const wchar_t* p) {
        return kBlock - reinterpret_cast<std::uintptr_t>(p) / sizeof(wchar_t) % 8;
    }
    // One bit for each place of the block.
    BRIM_AVX2 unsigned int places(const wchar_t* p) const {
        const __m256i first = pairs(p);
        const __m256i second = pairs(p + 8);
        const __m256i third = pairs(p + 16);
        const __m256i fourth = pairs(p + 24);
        const __m256i any = _mm256_or_si256(_mm256_or_si256(first, second), _mm256_or_si256(third, fourth));
        if (_mm256_testz_si256(any, any) != 0) {
            return 0;
        }
        return bits(p, first) | bits(p + 8, second) << 8 | bits(p + 16, third) << 16 |
               bits(p + 24, fourth) << 24;
    }

private:
    BRIM_AVX2 static __m256i load(const wchar_t* p) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    }
    BRIM_AVX2 __m256i pairs(const wchar_t* p) const {
        return _mm256_and_si256(_mm256_cmpeq_epi32(load(m_probe.in<0>(p)), m_a),
                                _mm256_cmpeq_epi32(load(m_probe.in<1>(p)), m_b));
    }
    BRIM_AVX2 unsigned int bits(const wchar_t* p, __m256i pairsThere) const {
        const __m256i all = _mm256_and_si256(pairsThere, _mm256_cmpeq_epi32(load(m_probe.in<2>(p)), m_c));
        return static_cast<unsigned int>(_mm256_movemask_ps(_mm256_castsi256_ps(all)));
    }

    const Probe& m_probe;
    __m256i m_a;
    __m256i m_b;
    __m256i m_c;
};

// What is left of less than a block is left to the plain versions, with the upper halves of the registers
// cleared: they would slow those down.

BRIM_AVX2 std::size_t nextPlaceAvx2(const wchar_t* text, std::size_t at, std::size_t places,
                                    const Probe& probe) {
    const Lanes8 lanes(probe);
    // The second block overlaps the first, so that it and those that follow are aligned.
    for (std::size_t step = Lanes8::toAligned(probe.in<0>(text + at)); at + Lanes8::kBlock <= places;
         at += step, step = Lanes8::kBlock) {
        if (const unsigned int mask = lanes.places(text + at)) {
            return at + lowestBit(mask);
        }
    }
    _mm256_zeroupper();
    return nextPlacePlain(text, at, places, probe);
}

BRIM_AVX2 std::size_t previousPlaceAvx2(const wchar_t* text, std::size_t places, const Probe& probe) {
    const Lanes8 lanes(probe);
    for (; places >= Lanes8::kBlock; places -= Lanes8::kBlock) {
        const std::size_t at = places - Lanes8::kBlock;
        if (const unsigned int mask = lanes.places(text + at)) {
            return at + highestBit(mask) + 1;
        }
    }
    _mm256_zeroupper();
    return previousPlacePlain(text, places, probe);
}

class Lanes16 {
public:
    static constexpr std::size_t kBlock = 64;
    BRIM_AVX512 explicit Lanes16(const Probe& probe)
        : m_probe(probe), m_a(_mm512_set1_epi32(probe.character<0>())),
          m_b(_mm512_set1_epi32(probe.character<1>())), m_c(_mm512_set1_epi32(probe.character<2>())) {}
    // From a block at `p` to the first that begins at whole vectors.
    static std::size_t toAligned(const wchar_t* p) {
        return kBlock - reinterpret_cast<std::uintptr_t>(p) / sizeof(wchar_t) % 16;
    }
    // One bit for each place of the block.
    BRIM_AVX512 std::uint64_t places(const wchar_t* p) const {
        const std::uint64_t pairsThere =
            pairs(p) | pairs(p + 16) << 16 | pairs(p + 32) << 32 | pairs(p + 48) << 48;
        if (pairsThere == 0) {
            return 0;
        }
        return pairsThere & (third(p) | third(p + 16) << 16 | third(p + 32) << 32 | third(p + 48) << 48);
    }

private:
    BRIM_AVX512 static __m512i load(const wchar_t* p) { return _mm512_loadu_si512(p); }
    BRIM_AVX512 std::uint64_t pairs(const wchar_t* p) const {
        const __mmask16 first = _mm512_cmpeq_epi32_mask(load(m_probe.in<0>(p)), m_a);
        return _mm512_mask_cmpeq_epi32_mask(first, load(m_probe.in<1>(p)), m_b);
    }
    BRIM_AVX512 std::uint64_t third(const wchar_t* p) const {
        return _mm512_cmpeq_epi32_mask(load(m_probe.in<2>(p)), m_c);
    }

    const Probe& m_probe;
    __m512i m_a;
    __m512i m_b;
    __m512i m_c;
};

BRIM_AVX512 std::size_t nextPlaceAvx512(const wchar_t* text, std::size_t at, std::size_t places,
                                        const Probe& probe) {
    const Lanes16 lanes(probe);
    for (std::size_t step = Lanes16::toAligned(probe.in<0>(text + at)); at + Lanes16::kBlock <= places;
         at += step, step = Lanes16::kBlock) {
        if (const std::uint64_t mask = lanes.places(text + at)) {
            return at + lowestBit(mask);
        }
    }
    _mm256_zeroupper();
    return nextPlacePlain(text, at, places, probe);
}

BRIM_AVX512 std::size_t previousPlaceAvx512(const wchar_t* text, std::size_t places, const Probe& probe) {
    const Lanes16 lanes(probe);
    for (; places >= Lanes16::kBlock; places -= Lanes16::kBlock) {
        const std::size_t at = places - Lanes16::kBlock;
        if (const std::uint64_t mask = lanes.places(text + at)) {
            return at + highestBit(mask) + 1;
        }
    }
    _mm256_zeroupper();
    return previousPlacePlain(text, places, probe);
}

// ---- The quick way ----------------------------------------------------------------------------------------

// A probe that lets too much through is replaced by one with the character that told its last place apart.
constexpr int kMostProbes = 3;
Probe firstProbe(const wchar_t* pattern, std::size_t m) { return Probe(pattern, 0, m - 1, m / 2); }

// Of two texts of `n` characters; `n` when they are equal.
std::size_t firstDifference(const wchar_t* a, const wchar_t* b, std::size_t n) {
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128i same = _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i)),
                                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i)));
        const auto bits = static_cast<unsigned int>(_mm_movemask_ps(_mm_castsi128_ps(same)));
        if (bits != 0xF) {
            return i + static_cast<unsigned int>(__builtin_ctz(~bits));
        }
    }
    while (i < n && a[i] == b[i]) {
        ++i;
    }
    return i;
}

// ---- Single characters ------------------------------------------------------------------------------------

BRIM_AVX512 inline __mmask16 firstLanes(std::size_t count) {
    return static_cast<__mmask16>(_bzhi_u32(0xFFFF, static_cast<unsigned int>(count)));
}
BRIM_AVX512 inline std::uint64_t placesOf(__m512i c, const wchar_t* p) {
    return _mm512_cmpeq_epi32_mask(_mm512_loadu_si512(p), c);
}

// Blocks of 64 characters, aligned from the second one on, which overlaps the first; then the rest by masks.
BRIM_AVX512 std::size_t findCharacterAvx512(const wchar_t* text, std::size_t n, wchar_t wanted) {
    const __m512i c = _mm512_set1_epi32(wanted);
    std::size_t at = 0;
    for (std::size_t step = Lanes16::toAligned(text); n - at >= Lanes16::kBlock;
         at += step, step = Lanes16::kBlock) {
        const wchar_t* const p = text + at;
        const std::uint64_t first = placesOf(c, p);
        const std::uint64_t second = placesOf(c, p + 16);
        const std::uint64_t third = placesOf(c, p + 32);
        const std::uint64_t fourth = placesOf(c, p + 48);
        if ((first | second | third | fourth) != 0) {
            return at + lowestBit(first | second << 16 | third << 32 | fourth << 48);
        }
    }
    for (; at < n; at += 16) {
        const __mmask16 lanes = firstLanes(std::min<std::size_t>(n - at, 16));
        const unsigned int places =
            _mm512_mask_cmpeq_epi32_mask(lanes, _mm512_maskz_loadu_epi32(lanes, text + at), c);
        if (places != 0) {
            return at + lowestBit(places);
        }
    }
    return n;
}

// The C library's is as fast on short texts, and not made for the widest registers.
[[gnu::noinline]] std::size_t findCharacter(const wchar_t* text, std::size_t n, wchar_t c) {
    constexpr std::size_t kLong = 512;
    if (n >= kLong && kernels().level == Level::avx512) {
        return findCharacterAvx512(text, n, c);
    }
    const wchar_t* const found = std::wmemchr(text, c, n);
    return found == nullptr ? n : static_cast<std::size_t>(found - text);
}

// ---- Short texts ------------------------------------------------------------------------------------------

constexpr std::size_t kShortText = 128;
constexpr std::size_t kShortPattern = 16;

BRIM_AVX512 inline bool fitsShortAvx512(const wchar_t* text, const wchar_t* pattern, __mmask16 lanes) {
    return _mm512_mask_cmpneq_epi32_mask(lanes, _mm512_maskz_loadu_epi32(lanes, text),
                                         _mm512_maskz_loadu_epi32(lanes, pattern)) == 0;
}

// The first of the places whose bits are set where the pattern fits.
BRIM_AVX512 inline std::size_t firstFitAvx512(const wchar_t* text, unsigned int ends, const wchar_t* pattern,
                                              std::size_t m, std::size_t otherwise) {
    for (; ends != 0; ends &= ends - 1) {
        const std::size_t place = _tzcnt_u32(ends);
        if (fitsShortAvx512(text + place, pattern, firstLanes(m))) {
            return place;
        }
    }
    return otherwise;
}

// Looks for the first and the last character of the pattern at 16 places at once, and compares the whole
// where both are. The last 16 places may overlap those before.
BRIM_AVX512 std::size_t findShortAvx512(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                                        std::size_t m) {
    constexpr std::size_t kLanes = 16;
    const __m512i first = _mm512_set1_epi32(pattern[0]);
    const __m512i last = _mm512_set1_epi32(pattern[m - 1]);
    const std::size_t places = n - m + 1;
    if (places < kLanes) {
        const __mmask16 lanes = firstLanes(places);
        const __m512i begins = _mm512_maskz_loadu_epi32(lanes, text);
        const __m512i ends = _mm512_maskz_loadu_epi32(lanes, text + m - 1);
        const __mmask16 both =
            _mm512_mask_cmpeq_epi32_mask(_mm512_mask_cmpeq_epi32_mask(lanes, begins, first), ends, last);
        return firstFitAvx512(text, both, pattern, m, n);
    }
    const std::size_t lastBlock = places - kLanes;
    for (std::size_t at = 0;; at = std::min(at + kLanes, lastBlock)) {
        const wchar_t* const p = text + at;
        if (const __mmask16 begins = _mm512_cmpeq_epi32_mask(_mm512_loadu_si512(p), first)) {
            const __mmask16 both = _mm512_mask_cmpeq_epi32_mask(begins, _mm512_loadu_si512(p + m - 1), last);
            const std::size_t fit = firstFitAvx512(p, both, pattern, m, kLanes);
            if (fit != kLanes) {
                return at + fit;
            }
        }
        if (at == lastBlock) {
            return n;
        }
    }
}

// While the first character of the pattern is rare, one look at each character is enough.
// Returns the place from which on to look further: a match when `found`, `places` when there is none.
constexpr std::size_t kSample = 64;
constexpr std::size_t kRareDistance = 128;
std::size_t findByFirstCharacter(const wchar_t* text, std::size_t places, const wchar_t* pattern,
                                 std::size_t m, bool& found) {
    const bool isLong = places > kRareDistance;
    if (isLong && std::wmemchr(text, *pattern, kSample) != nullptr) {
        return 0;
    }
    const std::size_t distance = kRareDistance + m;
    const std::size_t freeHits = isLong ? 4 : 1;
    std::size_t at = isLong ? kSample : 0;
    for (std::size_t hits = 0; at < places && hits * distance <= at + freeHits * distance; ++hits) {
        const std::size_t place = at + findCharacter(text + at, places - at, *pattern);
        if (place == places) {
            return places;
        }
        if (text[place + m - 1] == pattern[m - 1] && std::wmemcmp(text + place, pattern, m) == 0) {
            found = true;
            return place;
        }
        at = place + 1;
    }
    return at;
}

template <std::size_t (*kNextPlace)(const wchar_t*, std::size_t, std::size_t, const Probe&)>
std::size_t findByProbes(const wchar_t* text, std::size_t at, std::size_t n, const wchar_t* pattern,
                         std::size_t m) {
    const std::size_t places = n - m + 1;
    Probe probe = firstProbe(pattern, m);
    Budget budget(m);
    for (int probes = 1;;) {
        const std::size_t place = kNextPlace(text, at, places, probe);
        if (place == places) {
            return n;
        }
        const std::size_t differs = firstDifference(text + place, pattern, m);
        if (differs == m) {
            return place;
        }
        budget.earn(place - at);
        at = place + 1;
        if (!budget.spend(differs)) {
            if (probes++ == kMostProbes) {
                return at + findTextLinearly(text + at, n - at, pattern, m);
            }
            probe = Probe(pattern, differs, 0, m - 1);
            budget = Budget(m);
        }
    }
}

template <std::size_t (*kPreviousPlace)(const wchar_t*, std::size_t, const Probe&)>
std::size_t findLastByProbes(const wchar_t* text, std::size_t n, const wchar_t* pattern, std::size_t m) {
    Probe probe = firstProbe(pattern, m);
    Budget budget(m);
    std::size_t places = n - m + 1; // those not looked at yet, from 0 on
    for (int probes = 1;;) {
        const std::size_t behind = kPreviousPlace(text, places, probe);
        if (behind == 0) {
            return n;
        }
        const std::size_t place = behind - 1;
        const std::size_t differs = firstDifference(text + place, pattern, m);
        if (differs == m) {
            return place;
        }
        budget.earn(places - behind);
        places = place;
        if (!budget.spend(differs)) {
            if (probes++ == kMostProbes) {
                const std::size_t reach = places + m - 1;
                const std::size_t found = findLastTextLinearly(text, reach, pattern, m);
                return found == reach ? n : found;
            }
            probe = Probe(pattern, differs, 0, m - 1);
            budget = Budget(m);
        }
    }
}

} // namespace

void Borders::makeLengths() {
    m_lengths.growNoPreserve(m_m);
    std::size_t* const lengths = m_lengths.data();
    lengths[0] = 0;
    for (std::size_t i = 1; i < m_m; ++i) {
        lengths[i] = next(lengths[i - 1], m_pattern[i]);
    }
    m_isMade = true;
}

// Apart, so that short searches do not pay for its registers.
[[gnu::noinline]] static std::size_t findInLongText(const wchar_t* text, std::size_t n,
                                                    const wchar_t* pattern, std::size_t m) noexcept {
    const std::size_t places = n - m + 1;
    bool found = false;
    const std::size_t at = findByFirstCharacter(text, places, pattern, m, found);
    if (found) {
        return at;
    }
    switch (places - at > kRareDistance ? kernels().level : Level::plain) {
    case Level::avx512:
        return findByProbes<nextPlaceAvx512>(text, at, n, pattern, m);
    case Level::avx2:
        return findByProbes<nextPlaceAvx2>(text, at, n, pattern, m);
    case Level::plain:
        break;
    }
    return findByProbes<nextPlacePlain>(text, at, n, pattern, m);
}

std::size_t findText(const wchar_t* text, std::size_t n, const wchar_t* pattern, std::size_t m) noexcept {
    if (m > n) {
        return n;
    }
    if (m == 1) {
        return findCharacter(text, n, *pattern);
    }
    if (n - m < kShortText && m <= kShortPattern && kernels().level == Level::avx512) {
        return findShortAvx512(text, n, pattern, m);
    }
    return findInLongText(text, n, pattern, m);
}

std::size_t findTextBeforeZero(const wchar_t* text, std::size_t n, const wchar_t* pattern,
                               std::size_t m) noexcept {
    if (m == 0) {
        return 0;
    }
    // By growing windows: where the zero is matters only as far as there is no match.
    std::size_t from = 0;
    for (std::size_t window = 2 * m + 256;; window *= 2) {
        const std::size_t looked = ::wcsnlen(text + from, std::min(window, n - from));
        const std::size_t found = findText(text + from, looked, pattern, m);
        if (found != looked) {
            return from + found;
        }
        if (looked < window) {
            return n;
        }
        from += looked - (m - 1);
    }
}

std::size_t findLastText(const wchar_t* text, std::size_t n, const wchar_t* pattern, std::size_t m) noexcept {
    if (m > n) {
        return n;
    }
    switch (kernels().level) {
    case Level::avx512:
        return findLastByProbes<previousPlaceAvx512>(text, n, pattern, m);
    case Level::avx2:
        return findLastByProbes<previousPlaceAvx2>(text, n, pattern, m);
    case Level::plain:
        break;
    }
    return findLastByProbes<previousPlacePlain>(text, n, pattern, m);
}

} // namespace sup::kernels
