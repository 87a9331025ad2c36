// The single-byte loops of processors with AVX-512 and VBMI: 64 characters a step, each looked up by
// permutations of whole registers. Whole blocks inside the text are read and written; the rest goes through
// masks.
#include "kernels/sbtable.h"
#include "kernels/targets.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace sup::kernels {

namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kQuarter = 16;
// From this length on destinations are aligned first.
constexpr std::size_t kWorthAligning = 4096;
// So far ahead long destinations are fetched for writing.
constexpr std::size_t kAhead = 512;

std::uint64_t firstBits(std::size_t count) { return count >= 64 ? ~std::uint64_t{0} : (1ULL << count) - 1; }
__mmask16 quarterMask(std::uint64_t mask, std::size_t quarter) {
    return static_cast<__mmask16>(mask >> (kQuarter * quarter));
}

// ---- Decoding ---------------------------------------------------------------------------------------------

struct Planes {
    __m512i low[2];
    __m512i high[2];
};

BRIM_AVX512 inline Planes loadPlanes(const SingleByteDecoding& table) {
    return {{_mm512_loadu_si512(table.low.data()), _mm512_loadu_si512(table.low.data() + kBlock)},
            {_mm512_loadu_si512(table.high.data()), _mm512_loadu_si512(table.high.data() + kBlock)}};
}

// The places of the dwords when the quarters of a register take turns; twice gives the old order.
BRIM_AVX512 inline __m512i inTurn(__m512i v) {
    return _mm512_permutexvar_epi32(_mm512_set_epi32(15, 11, 7, 3, 14, 10, 6, 2, 13, 9, 5, 1, 12, 8, 4, 0),
                                    v);
}

// The units of 64 bytes. Unpacking takes parts of every quarter, so these are put where it finds them in
// order.
struct DecodedBlock {
    __m512i units[4];
};
BRIM_AVX512 inline DecodedBlock decodeBlock(const Planes& planes, __m512i inOrder) {
    const __m512i zero = _mm512_setzero_si512();
    const __m512i bytes = inTurn(inOrder);
    const __mmask64 upper = _mm512_movepi8_mask(bytes);
    const __m512i low =
        _mm512_mask_mov_epi8(bytes, upper, _mm512_permutex2var_epi8(planes.low[0], bytes, planes.low[1]));
    const __m512i high =
        _mm512_maskz_mov_epi8(upper, _mm512_permutex2var_epi8(planes.high[0], bytes, planes.high[1]));
    const __m512i first = _mm512_unpacklo_epi8(low, high);
    const __m512i second = _mm512_unpackhi_epi8(low, high);
    return {{_mm512_unpacklo_epi16(first, zero), _mm512_unpackhi_epi16(first, zero),
             _mm512_unpacklo_epi16(second, zero), _mm512_unpackhi_epi16(second, zero)}};
}

BRIM_AVX512 inline void decodeWhole(const Planes& planes, const char* src, wchar_t* dst) {
    const DecodedBlock block = decodeBlock(planes, _mm512_loadu_si512(src));
    for (std::size_t i = 0; i < 4; ++i) {
        _mm512_storeu_si512(dst + kQuarter * i, block.units[i]);
    }
}

BRIM_AVX512 inline void fetchForWriting(const wchar_t* dst) {
    for (std::size_t i = 0; i < 4; ++i) {
        __builtin_prefetch(dst + kQuarter * i, 1);
    }
}

// Fewer than 64 bytes: reads and writes through masks.
BRIM_AVX512 inline void decodePart(const Planes& planes, const char* src, std::size_t length, wchar_t* dst) {
    const std::uint64_t present = firstBits(length);
    const DecodedBlock block = decodeBlock(planes, _mm512_maskz_loadu_epi8(present, src));
    for (std::size_t i = 0; i < 4; ++i) {
        _mm512_mask_storeu_epi32(dst + kQuarter * i, quarterMask(present, i), block.units[i]);
    }
}

// ---- Encoding ---------------------------------------------------------------------------------------------

struct Window {
    __m512i bytes[4];
    __m512i base;
};

BRIM_AVX512 inline Window loadWindow(const SingleByteEncoding& table) {
    const unsigned char* const bytes = table.window();
    return {{_mm512_loadu_si512(bytes), _mm512_loadu_si512(bytes + kBlock),
             _mm512_loadu_si512(bytes + 2 * kBlock), _mm512_loadu_si512(bytes + 3 * kBlock)},
            _mm512_set1_epi16(table.windowBase())};
}

BRIM_AVX512 inline __m512i lookUp(const Window& window, __m512i index) {
    const __m512i lower = _mm512_permutex2var_epi8(window.bytes[0], index, window.bytes[1]);
    const __m512i upper = _mm512_permutex2var_epi8(window.bytes[2], index, window.bytes[3]);
    return _mm512_mask_mov_epi8(lower, _mm512_movepi8_mask(index), upper);
}

// 64 units, and a bit for each that is neither ASCII nor in the window.
struct EncodedBlock {
    __m512i bytes;
    std::uint64_t others;
};
BRIM_AVX512 inline EncodedBlock encodeBlock(const Window& window, __m512i a, __m512i b, __m512i c,
                                            __m512i d) {
    // The packs take dwords of every quarter in turn. Signed saturation to 16 bits keeps what is beyond ASCII
    // and the window beyond them.
    const __m512i first = _mm512_packs_epi32(a, b);
    const __m512i second = _mm512_packs_epi32(c, d);
    const __m512i largest = _mm512_set1_epi16(0xFF);
    const __m512i bytes =
        _mm512_packus_epi16(_mm512_min_epu16(first, largest), _mm512_min_epu16(second, largest));
    const __mmask64 beyondAscii = _mm512_movepi8_mask(bytes);
    // Outside the window the index saturates to 0 or 255, which hold zeros.
    const __m512i index =
        _mm512_packus_epi16(_mm512_subs_epi16(first, window.base), _mm512_subs_epi16(second, window.base));
    const __m512i found = lookUp(window, index);
    const __mmask64 others = _mm512_mask_testn_epi8_mask(beyondAscii, found, found);
    return {inTurn(_mm512_mask_mov_epi8(bytes, beyondAscii, found)),
            others == 0 ? 0 : _mm512_movepi8_mask(inTurn(_mm512_movm_epi8(others)))};
}

// The same for up to 16 units, with zeros for the rest.
BRIM_AVX512 inline EncodedBlock encodeQuarter(const Window& window, std::int16_t base, __m512i units) {
    const __m128i bytes = _mm512_cvtusepi32_epi8(units);
    // Without a sign, what is below the window is large, and saturates to 255 too.
    const __m128i index = _mm512_cvtusepi32_epi8(_mm512_sub_epi32(units, _mm512_set1_epi32(base)));
    const __m128i found = _mm512_castsi512_si128(lookUp(window, _mm512_zextsi128_si512(index)));
    const __mmask16 beyondAscii = _mm_movepi8_mask(bytes);
    return {_mm512_castsi128_si512(_mm_mask_mov_epi8(bytes, beyondAscii, found)),
            _mm_mask_testn_epi8_mask(beyondAscii, found, found)};
}

// Stores what is known of `length` units; returns how many these are.
BRIM_AVX512 inline std::size_t storeBlock(const SingleByteEncoding& table, const EncodedBlock& block,
                                          const wchar_t* src, std::size_t length, char* dst) {
    const std::size_t known = firstUnknown(table, block.others, src, length);
    _mm512_mask_storeu_epi8(dst, firstBits(known), block.bytes);
    writeOthers(table, block.others, src, known, dst);
    return known;
}

BRIM_AVX512 inline std::size_t encodeWhole(const SingleByteEncoding& table, const Window& window,
                                           const wchar_t* src, char* dst) {
    const EncodedBlock block = encodeBlock(window, _mm512_loadu_si512(src), _mm512_loadu_si512(src + 16),
                                           _mm512_loadu_si512(src + 32), _mm512_loadu_si512(src + 48));
    if (block.others != 0) {
        return storeBlock(table, block, src, kBlock, dst);
    }
    _mm512_storeu_si512(dst, block.bytes);
    return kBlock;
}

// Fewer than 64 units: reads and writes through masks.
BRIM_AVX512 inline std::size_t encodePart(const SingleByteEncoding& table, const Window& window,
                                          const wchar_t* src, std::size_t length, char* dst) {
    const std::uint64_t present = firstBits(length);
    if (length <= kQuarter) {
        const __m512i units = _mm512_maskz_loadu_epi32(quarterMask(present, 0), src);
        return storeBlock(table, encodeQuarter(window, table.windowBase(), units), src, length, dst);
    }
    const EncodedBlock block = encodeBlock(window, _mm512_maskz_loadu_epi32(quarterMask(present, 0), src),
                                           _mm512_maskz_loadu_epi32(quarterMask(present, 1), src + 16),
                                           _mm512_maskz_loadu_epi32(quarterMask(present, 2), src + 32),
                                           _mm512_maskz_loadu_epi32(quarterMask(present, 3), src + 48));
    return storeBlock(table, block, src, length, dst);
}

} // namespace

BRIM_AVX512 void decodeSingleByteAvx512(const SingleByteDecoding& table, const char* src, std::size_t length,
                                        wchar_t* dst) noexcept {
    if (!table.isPlanar) {
        decodeSingleBytePlain(table, src, length, dst);
        return;
    }
    const Planes planes = loadPlanes(table);
    std::size_t done = 0;
    if (length >= kWorthAligning) {
        // The aligned blocks write over a part of the first one.
        decodeWhole(planes, src, dst);
        done = kQuarter - reinterpret_cast<std::uintptr_t>(dst) / sizeof(wchar_t) % kQuarter;
    }
    for (; length - done >= kAhead + kBlock; done += kBlock) {
        fetchForWriting(dst + done + kAhead);
        decodeWhole(planes, src + done, dst + done);
    }
    for (; length - done >= kBlock; done += kBlock) {
        decodeWhole(planes, src + done, dst + done);
    }
    if (done != length) {
        decodePart(planes, src + done, length - done, dst + done);
    }
}

BRIM_AVX512 std::size_t encodeSingleByteAvx512(const SingleByteEncoding& table, const wchar_t* src,
                                               std::size_t length, char* dst) noexcept {
    if (!table.hasAscii()) {
        return encodeSingleBytePlain(table, src, length, dst);
    }
    const Window window = loadWindow(table);
    std::size_t done = 0;
    for (; length - done >= kBlock; done += kBlock) {
        const std::size_t encoded = encodeWhole(table, window, src + done, dst + done);
        if (encoded != kBlock) {
            return done + encoded;
        }
    }
    return done == length ? done : done + encodePart(table, window, src + done, length - done, dst + done);
}

} // namespace sup::kernels
