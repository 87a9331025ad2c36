// The single-byte loops of processors with AVX2: 64 characters a step, looked up by byte shuffles, one for
// each row of 16; the few that are beyond the identity in a block one by one. The last step takes the last 64
// characters, some of them again.
#include "kernels/sbtable.h"
#include "kernels/targets.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace sup::kernels {

namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kHalf = 32;
// Blocks with many characters beyond the identity seldom come alone: so many are looked up unasked.
constexpr std::size_t kUnasked = 2 * kBlock;
// So many, and no more, are looked up faster one by one; and in such groups.
constexpr unsigned int kFew = 12;
constexpr unsigned int kGroup = 4;

BRIM_AVX2 inline __m256i load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
BRIM_AVX2 inline void store32(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
BRIM_AVX2 inline bool isZero(__m256i v) { return _mm256_testz_si256(v, v) != 0; }
BRIM_AVX2 inline __m256i topBitFlipped(__m256i v) {
    return _mm256_xor_si256(v, _mm256_set1_epi8(static_cast<char>(0x80)));
}

struct Halves {
    __m256i first;
    __m256i second;
};

// What planes with the same rows have for the indexes from 0 to 127, and zero for negative ones. A shuffle
// looks up the low four bits of an index that is not negative. The index goes down by 16 with each row, so it
// meets the rows before its own too: the exclusive sum of the steps so far is the row that counts.
template <std::size_t N>
struct Planes {
    Halves planes[N];
};
template <std::size_t N>
BRIM_AVX2 inline Planes<N> lookUp(const SingleByteSteps* const (&steps)[N], Halves index) {
    const __m256i begin = _mm256_set1_epi8(static_cast<char>(steps[0]->begin));
    const __m256i row = _mm256_set1_epi8(SingleByteSteps::kRow);
    Planes<N> found;
    for (Halves& plane : found.planes) {
        plane = {_mm256_setzero_si256(), _mm256_setzero_si256()};
    }
    index = {_mm256_subs_epi8(index.first, begin), _mm256_subs_epi8(index.second, begin)};
    for (std::size_t at = steps[0]->begin; at != steps[0]->end; at += SingleByteSteps::kRow) {
        for (std::size_t i = 0; i < N; ++i) {
            const __m256i step = _mm256_broadcastsi128_si256(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(steps[i]->rows.data() + at)));
            Halves& plane = found.planes[i];
            plane.first = _mm256_xor_si256(plane.first, _mm256_shuffle_epi8(step, index.first));
            plane.second = _mm256_xor_si256(plane.second, _mm256_shuffle_epi8(step, index.second));
        }
        index = {_mm256_subs_epi8(index.first, row), _mm256_subs_epi8(index.second, row)};
    }
    return found;
}

// ---- Decoding ---------------------------------------------------------------------------------------------

// 32 bytes, in the order that storeUnits() wants.
BRIM_AVX2 inline __m256i loadBytes(const char* src) { return _mm256_permute4x64_epi64(load32(src), 0xD8); }

BRIM_AVX2 inline void storeUnits(__m256i low, __m256i high, wchar_t* dst) {
    const __m256i first = _mm256_unpacklo_epi8(low, high);
    const __m256i second = _mm256_unpackhi_epi8(low, high);
    store32(dst, _mm256_cvtepu16_epi32(_mm256_castsi256_si128(first)));
    store32(dst + 8, _mm256_cvtepu16_epi32(_mm256_extracti128_si256(first, 1)));
    store32(dst + 16, _mm256_cvtepu16_epi32(_mm256_castsi256_si128(second)));
    store32(dst + 24, _mm256_cvtepu16_epi32(_mm256_extracti128_si256(second, 1)));
}

BRIM_AVX2 inline __m256i identityOf(__m256i bytes, __m256i largestIdentity) {
    const __m256i excess = _mm256_subs_epu8(bytes, largestIdentity);
    return _mm256_and_si256(bytes, _mm256_cmpeq_epi8(excess, _mm256_setzero_si256()));
}

BRIM_AVX2 inline void decodeBlock(const SingleByteDecoding& table, __m256i largestIdentity, const char* src,
                                  wchar_t* dst) {
    const Halves bytes = {loadBytes(src), loadBytes(src + kHalf)};
    // The steps have nothing for the identity part.
    const Planes<2> found = lookUp<2>({&table.lowSteps, &table.highSteps},
                                      {topBitFlipped(bytes.first), topBitFlipped(bytes.second)});
    const Halves& low = found.planes[0];
    const Halves& high = found.planes[1];
    storeUnits(_mm256_or_si256(identityOf(bytes.first, largestIdentity), low.first), high.first, dst);
    storeUnits(_mm256_or_si256(identityOf(bytes.second, largestIdentity), low.second), high.second,
               dst + kHalf);
}

// A bit for each of 64 bytes that is not of the identity part.
BRIM_AVX2 inline std::uint32_t identityAmong32(__m256i largestIdentity, const char* src) {
    const __m256i excess = _mm256_subs_epu8(load32(src), largestIdentity);
    return static_cast<std::uint32_t>(
        _mm256_movemask_epi8(_mm256_cmpeq_epi8(excess, _mm256_setzero_si256())));
}
BRIM_AVX2 inline std::uint64_t beyondIdentity(__m256i largestIdentity, const char* src) {
    const std::uint64_t first = identityAmong32(largestIdentity, src);
    const std::uint64_t second = identityAmong32(largestIdentity, src + kHalf);
    return ~(first | second << kHalf);
}

// Decodes 64 bytes, of which those in `beyond` are looked up.
BRIM_AVX2 inline void decodeFew(const wchar_t* units, std::uint64_t beyond, const char* src, wchar_t* dst) {
    for (std::size_t i = 0; i < kBlock; i += 8) {
        store32(dst + i, _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + i))));
    }
    while (beyond != 0) {
        for (unsigned int i = 0; i < kGroup; ++i) {
            // Without one left, the first byte again: the table has the identity too.
            const std::size_t at = _tzcnt_u64(beyond) % kBlock;
            dst[at] = units[static_cast<unsigned char>(src[at])];
            beyond = _blsr_u64(beyond);
        }
    }
}

// ---- Encoding ---------------------------------------------------------------------------------------------

// 32 units; the packs take four dwords of each quarter in turn, which inOrder() puts in order. Signed
// saturation to 16 bits keeps what is beyond ASCII and the window beyond them.
BRIM_AVX2 inline Halves loadUnits(const wchar_t* src) {
    return {_mm256_packs_epi32(load32(src), load32(src + 8)),
            _mm256_packs_epi32(load32(src + 16), load32(src + 24))};
}
BRIM_AVX2 inline __m256i inOrder(__m256i packed) {
    return _mm256_permutevar8x32_epi32(packed, _mm256_set_epi32(7, 3, 6, 2, 5, 1, 4, 0));
}

// Exact up to 255, which stands for what is above too.
BRIM_AVX2 inline __m256i narrowed(Halves units) {
    const __m256i largest = _mm256_set1_epi16(0xFF);
    return _mm256_packus_epi16(_mm256_min_epu16(units.first, largest),
                               _mm256_min_epu16(units.second, largest));
}

// Outside the window the index saturates to 0 or 255, which hold zeros.
BRIM_AVX2 inline __m256i indexOf(Halves units, __m256i base) {
    return _mm256_packus_epi16(_mm256_subs_epi16(units.first, base), _mm256_subs_epi16(units.second, base));
}

// A bit for each byte that is beyond ASCII and was not found.
BRIM_AVX2 inline std::uint64_t missing(__m256i bytes, __m256i found) {
    const __m256i beyond = _mm256_and_si256(bytes, _mm256_cmpeq_epi8(found, _mm256_setzero_si256()));
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(inOrder(beyond)));
}

// Encodes 64 units; returns the place of the first that has no byte, or 64.
BRIM_AVX2 inline std::size_t encodeBlock(const SingleByteEncoding& table, __m256i largestIdentity,
                                         __m256i base, const wchar_t* src, char* dst) {
    const Halves first = loadUnits(src);
    const Halves second = loadUnits(src + kHalf);
    const Halves bytes = {narrowed(first), narrowed(second)};
    const __m256i largest = _mm256_max_epu16(_mm256_max_epu16(first.first, first.second),
                                             _mm256_max_epu16(second.first, second.second));
    if (isZero(_mm256_subs_epu16(largest, largestIdentity))) {
        store32(dst, inOrder(bytes.first));
        store32(dst + kHalf, inOrder(bytes.second));
        return kBlock;
    }
    const Halves index = {indexOf(first, base), indexOf(second, base)};
    const Halves lower = lookUp<1>({&table.windowSteps(0)}, index).planes[0];
    const Halves upper =
        lookUp<1>({&table.windowSteps(1)}, {topBitFlipped(index.first), topBitFlipped(index.second)})
            .planes[0];
    const Halves found = {_mm256_or_si256(lower.first, upper.first),
                          _mm256_or_si256(lower.second, upper.second)};
    const __m256i result[2] = {inOrder(_mm256_blendv_epi8(bytes.first, found.first, bytes.first)),
                               inOrder(_mm256_blendv_epi8(bytes.second, found.second, bytes.second))};
    const std::uint64_t others = missing(bytes.first, found.first) | missing(bytes.second, found.second)
                                                                         << kHalf;
    const std::size_t known = firstUnknown(table, others, src, kBlock);
    if (known == kBlock) {
        store32(dst, result[0]);
        store32(dst + kHalf, result[1]);
    } else {
        std::memcpy(dst, result, known);
    }
    writeOthers(table, others, src, known, dst);
    return known;
}

} // namespace

BRIM_AVX2 void decodeSingleByteAvx2(const SingleByteDecoding& table, const char* src, std::size_t length,
                                    wchar_t* dst) noexcept {
    if (!table.isPlanar || length < kBlock) {
        decodeSingleBytePlain(table, src, length, dst);
        return;
    }
    const __m256i largestIdentity = _mm256_set1_epi8(static_cast<char>(table.identityLimit - 1));
    const std::size_t last = length - kBlock;
    for (std::size_t done = 0; done < last;) {
        const std::uint64_t beyond = beyondIdentity(largestIdentity, src + done);
        if (_mm_popcnt_u64(beyond) <= kFew) {
            decodeFew(table.units, beyond, src + done, dst + done);
            done += kBlock;
            continue;
        }
        for (const std::size_t stop = std::min(done + kUnasked, last); done < stop; done += kBlock) {
            decodeBlock(table, largestIdentity, src + done, dst + done);
        }
    }
    decodeBlock(table, largestIdentity, src + last, dst + last);
}

BRIM_AVX2 std::size_t encodeSingleByteAvx2(const SingleByteEncoding& table, const wchar_t* src,
                                           std::size_t length, char* dst) noexcept {
    if (!table.hasAscii() || length < kBlock) {
        return encodeSingleBytePlain(table, src, length, dst);
    }
    const __m256i largestIdentity = _mm256_set1_epi16(static_cast<short>(table.identityLimit() - 1));
    const __m256i base = _mm256_set1_epi16(table.windowBase());
    const std::size_t last = length - kBlock;
    for (std::size_t done = 0;; done = std::min(done + kBlock, last)) {
        const std::size_t encoded = encodeBlock(table, largestIdentity, base, src + done, dst + done);
        if (encoded != kBlock || done == last) {
            return done + encoded;
        }
    }
}

} // namespace sup::kernels
