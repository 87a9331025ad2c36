// The level of processors with AVX-512 VBMI2. The decoder takes blocks of 64 bytes and decodes the characters
// that start in the first 61, which lie in the block whole: so blocks follow each other at a fixed distance,
// and only the place of the next unit depends on the block before. The encoder spreads every unit over four
// bytes and compresses those that count.
#include "kernels/kernels.h"
#include "kernels/utf8_runs.h"

#include <cstdint>
#include <immintrin.h>

#ifndef __clang__ // the undefined operands of GCC 12's own intrinsics
#    pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#    pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#define BRIM_AVX512                                                                                          \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")))

namespace sup::kernels {

namespace {

// ---- Small steps ------------------------------------------------------------------------------------------

// From where a group of 16 units takes its positions: each four times over.
struct Repeat {
    alignas(64) unsigned char bytes[4][64];
    constexpr Repeat() : bytes() {
        for (unsigned int group = 0; group < 4; ++group) {
            for (unsigned int i = 0; i < 64; ++i) {
                bytes[group][i] = static_cast<unsigned char>(16 * group + i / 4);
            }
        }
    }
};
constexpr Repeat kRepeat;
struct Iota {
    alignas(64) unsigned char bytes[64];
    constexpr Iota() : bytes() {
        for (unsigned int i = 0; i < 64; ++i) {
            bytes[i] = static_cast<unsigned char>(i);
        }
    }
};
constexpr Iota kIota;

BRIM_AVX512 inline __m512i words(unsigned int value) { return _mm512_set1_epi32(static_cast<int>(value)); }
BRIM_AVX512 inline void store16(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
BRIM_AVX512 inline std::uint64_t from(int limit, __m512i bytes) {
    return _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(limit)));
}
BRIM_AVX512 inline unsigned int countBits(std::uint64_t bits) {
    return static_cast<unsigned int>(_mm_popcnt_u64(bits));
}
BRIM_AVX512 inline std::uint64_t firstBits(unsigned int count) { return _bzhi_u64(~std::uint64_t{0}, count); }

// ---- The decoder ------------------------------------------------------------------------------------------

// What a block of bytes holds, one bit each.
struct Sequences {
    std::uint64_t nonAscii;
    std::uint64_t leads;
    std::uint64_t threes; // leads of three bytes and more
    std::uint64_t fours;
    std::uint64_t wrong; // where the rules must be asked
};

// `carried`: continuation bytes at the beginning that belong to a character before the block.
BRIM_AVX512 inline Sequences classify(__m512i bytes, std::uint64_t nonAscii, std::uint64_t carried) {
    Sequences s{nonAscii, from(0xC0, bytes), from(0xE0, bytes), from(0xF0, bytes), 0};
    const std::uint64_t continuations = nonAscii & ~s.leads;
    s.wrong = continuations ^ (s.leads << 1 | s.threes << 2 | s.fours << 3 | carried);
    s.wrong |= s.leads & ~from(0xC2, bytes);
    if (s.threes != 0) {
        s.wrong |= (s.threes & ~from(0xE1, bytes)) << 1 & ~from(0xA0, bytes);
    }
    if (s.fours != 0) {
        const std::uint64_t from90 = from(0x90, bytes);
        s.wrong |= (s.fours & ~from(0xF1, bytes)) << 1 & ~from90;
        s.wrong |= (from(0xF4, bytes) << 1 & from90) | from(0xF5, bytes);
    }
    return s;
}

// What the units of a block are, in order of their positions.
struct UnitMasks {
    std::uint64_t upper; // of ASCII with bit 6, which the six bits of payload leave out
    std::uint64_t two;   // of a sequence of two bytes and more
    std::uint64_t three; // three and more
    std::uint64_t high;  // the high surrogate of four bytes
    std::uint64_t low;   // and the low one
};

template <int kLongest>
BRIM_AVX512 inline __m512i gatherUnits(unsigned int group, __m512i payload, __m512i positions,
                                       const UnitMasks& masks) {
    const unsigned int shift = 16 * group;
    const __m512i first = _mm512_permutexvar_epi8(_mm512_load_si512(kRepeat.bytes[group]), positions);
    const __m512i bytes =
        _mm512_permutexvar_epi8(_mm512_add_epi8(first, _mm512_set1_epi32(0x03020100)), payload);
    const __m512i pairs = _mm512_maddubs_epi16(bytes, _mm512_set1_epi16(0x0140));
    const __m512i all = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
    __m512i units = _mm512_srli_epi32(all, 18);
    units = _mm512_mask_srli_epi32(units, static_cast<__mmask16>(masks.two >> shift), all, 12);
    units = _mm512_mask_or_epi32(units, static_cast<__mmask16>(masks.upper >> shift), units,
                                 _mm512_set1_epi32(0x40));
    if constexpr (kLongest >= 3) {
        units = _mm512_mask_srli_epi32(units, static_cast<__mmask16>(masks.three >> shift), all, 6);
    }
    if constexpr (kLongest == 4) {
        const auto high = static_cast<__mmask16>(masks.high >> shift);
        units = _mm512_mask_srli_epi32(units, high, all, 10);
        units = _mm512_mask_add_epi32(units, high, units, _mm512_set1_epi32(0xD7C0));
        const auto low = static_cast<__mmask16>(masks.low >> shift);
        units = _mm512_mask_srli_epi32(units, low, all, 6);
        units = _mm512_mask_and_epi32(units, low, units, _mm512_set1_epi32(0x3FF));
        units = _mm512_mask_or_epi32(units, low, units, _mm512_set1_epi32(0xDC00));
    }
    return units;
}

template <int kLongest>
BRIM_AVX512 inline void storeUnits(unsigned int group, __m512i payload, __m512i positions,
                                   const UnitMasks& masks, wchar_t* dst) {
    _mm512_storeu_si512(dst + 16 * group, gatherUnits<kLongest>(group, payload, positions, masks));
}

BRIM_AVX512 inline void widen64(__m512i bytes, wchar_t* dst) {
    _mm512_storeu_si512(dst, _mm512_cvtepu8_epi32(_mm512_castsi512_si128(bytes)));
    _mm512_storeu_si512(dst + 16, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 1)));
    _mm512_storeu_si512(dst + 32, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 2)));
    _mm512_storeu_si512(dst + 48, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 3)));
}

// Where the units of the characters that start at `starts` come from, and what they are. The low surrogate of
// four bytes takes the place of the second one.
struct UnitPlaces {
    std::uint64_t units;
    __m512i positions;
    __m512i payload;
    UnitMasks masks;
};

template <int kLongest>
BRIM_AVX512 inline UnitPlaces placesOf(__m512i bytes, const Sequences& s, std::uint64_t starts) {
    const std::uint64_t lows = kLongest == 4 ? (s.fours & starts) << 1 : 0;
    const std::uint64_t units = starts | lows;
    const std::uint64_t upper = _mm512_mask_test_epi8_mask(~s.nonAscii, bytes, _mm512_set1_epi8(0x40));
    __m512i payload = _mm512_and_si512(bytes, _mm512_set1_epi8(0x3F));
    if constexpr (kLongest >= 3) {
        payload = _mm512_mask_blend_epi8(s.threes, payload, _mm512_and_si512(bytes, _mm512_set1_epi8(0x0F)));
    }
    const __m512i positions = _mm512_maskz_compress_epi8(units, _mm512_load_si512(kIota.bytes));
    return {units,
            positions,
            payload,
            {_pext_u64(upper, units), _pext_u64(s.nonAscii, units),
             kLongest >= 3 ? _pext_u64(s.threes, units) : 0, kLongest == 4 ? _pext_u64(s.fours, units) : 0,
             kLongest == 4 ? _pext_u64(lows, units) : 0}};
}

// Stores up to 64 units: the caller has room for as many.
template <int kLongest>
BRIM_AVX512 inline wchar_t* decodeStarts(__m512i bytes, const Sequences& s, std::uint64_t starts,
                                         wchar_t* dst) {
    const UnitPlaces places = placesOf<kLongest>(bytes, s, starts);
    const unsigned int count = countBits(places.units);
    storeUnits<kLongest>(0, places.payload, places.positions, places.masks, dst);
    storeUnits<kLongest>(1, places.payload, places.positions, places.masks, dst);
    if (count > 32) {
        storeUnits<kLongest>(2, places.payload, places.positions, places.masks, dst);
        storeUnits<kLongest>(3, places.payload, places.positions, places.masks, dst);
    }
    return dst + count;
}
BRIM_AVX512 inline wchar_t* decodeStarts(__m512i bytes, const Sequences& s, std::uint64_t starts,
                                         wchar_t* dst) {
    return s.threes == 0  ? decodeStarts<2>(bytes, s, starts, dst)
           : s.fours == 0 ? decodeStarts<3>(bytes, s, starts, dst)
                          : decodeStarts<4>(bytes, s, starts, dst);
}
// As decodeStarts(), but stores exactly the units that there are.
template <int kLongest>
BRIM_AVX512 inline wchar_t* decodeStartsExactly(__m512i bytes, const Sequences& s, std::uint64_t starts,
                                                wchar_t* dst) {
    const UnitPlaces places = placesOf<kLongest>(bytes, s, starts);
    const unsigned int count = countBits(places.units);
    const std::uint64_t room = firstBits(count);
    for (unsigned int group = 0; 16 * group < count; ++group) {
        _mm512_mask_storeu_epi32(
            dst + 16 * group, static_cast<__mmask16>(room >> 16 * group),
            gatherUnits<kLongest>(group, places.payload, places.positions, places.masks));
    }
    return dst + count;
}

// The first `length` bytes are right: how many are whole characters.
BRIM_AVX512 inline unsigned int wholeLength(const Sequences& s, unsigned int length) {
    const std::uint64_t last = firstBits(length) ^ firstBits(length) >> 1;
    const std::uint64_t reaching =
        (s.leads & last) | (s.threes & (last | last >> 1)) | (s.fours & (last | last >> 1 | last >> 2));
    return reaching == 0 ? length : static_cast<unsigned int>(_tzcnt_u64(reaching));
}

// Decodes from the start of a character while 64 bytes are left, which have room for the 64 units that a
// block stores. Stops at the start of a character: a sooner one than that when the rules must be asked.
BRIM_AVX512 inline DecodeProgress decodeBlocks(const char* src, const char* end, wchar_t* dst) {
    constexpr unsigned int kStride = 61;
    constexpr std::uint64_t kStarts = (std::uint64_t{1} << kStride) - 1;
    std::uint64_t carried = 0;
    while (end - src >= 64) {
        const __m512i bytes = _mm512_loadu_si512(src);
        const std::uint64_t nonAscii = _mm512_movepi8_mask(bytes);
        if (nonAscii == 0) {
            widen64(bytes, dst);
            src += 64;
            dst += 64;
            continue;
        }
        const Sequences s = classify(bytes, nonAscii, carried);
        const std::uint64_t starts = ~(nonAscii & ~s.leads);
        if (s.wrong != 0) {
            const unsigned int length = wholeLength(s, static_cast<unsigned int>(_tzcnt_u64(s.wrong)));
            return {src + length, decodeStarts(bytes, s, starts & firstBits(length), dst)};
        }
        dst = decodeStarts(bytes, s, starts & kStarts, dst);
        carried =
            ((s.leads & kStarts) << 1 | (s.threes & kStarts) << 2 | (s.fours & kStarts) << 3) >> kStride;
        src += kStride;
    }
    return {src + countBits(carried), dst};
}

// Decodes 1 to 63 bytes from the start of a character, up to one that is cut or for which the rules must be
// asked. Reads and writes through masks, so nothing beyond either end is touched.
BRIM_AVX512 inline DecodeProgress decodePart(const char* src, const char* end, wchar_t* dst) {
    auto length = static_cast<unsigned int>(end - src);
    const __m512i bytes = _mm512_maskz_loadu_epi8(firstBits(length), src);
    const Sequences s = classify(bytes, _mm512_movepi8_mask(bytes), 0);
    const std::uint64_t wrong = _bzhi_u64(s.wrong, length);
    length = wholeLength(s, wrong != 0 ? static_cast<unsigned int>(_tzcnt_u64(wrong)) : length);
    const std::uint64_t starts = ~(s.nonAscii & ~s.leads) & firstBits(length);
    return {src + length, s.threes == 0  ? decodeStartsExactly<2>(bytes, s, starts, dst)
                          : s.fours == 0 ? decodeStartsExactly<3>(bytes, s, starts, dst)
                                         : decodeStartsExactly<4>(bytes, s, starts, dst)};
}

// Short texts are mostly ASCII.
BRIM_AVX512 inline void widenAscii16(DecodeProgress& at, const char* end) {
    while (end - at.src >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at.src));
        if (_mm_movemask_epi8(bytes) != 0) {
            break;
        }
        _mm512_storeu_si512(at.dst, _mm512_cvtepu8_epi32(bytes));
        at.src += 16;
        at.dst += 16;
    }
}

BRIM_AVX512 DecodeProgress decodeUtf8(const char* src, const char* end, wchar_t* dst) noexcept {
    DecodeProgress at{src, dst};
    if (end - src < 64) {
        widenAscii16(at, end);
    }
    while (at.src != end) {
        const char* const start = at.src;
        if (end - at.src >= 64) {
            at = decodeBlocks(at.src, end, at.dst);
        }
        if (end - at.src < 64 && at.src != end) {
            at = decodePart(at.src, end, at.dst);
        }
        if (at.src == end || !decodeDamage(at, start, end)) {
            break;
        }
    }
    return at;
}

// ---- The encoder ------------------------------------------------------------------------------------------

// The bytes of 16 units, four a unit, and which of them count.
struct EncodedBlock {
    __m512i bytes;
    std::uint64_t kept;
    unsigned int carried; // 1: the last unit and the one after it are a pair, whose bytes are here
    bool tooBig;          // a unit above 0xFFFF: there are no bytes
};

// `next` is where the unit after each is; `readable` are the lanes that may be read there. `carried` is that
// of the block before.
BRIM_AVX512 inline EncodedBlock encodeBlock(__m512i units, const wchar_t* next, std::uint32_t readable,
                                            unsigned int carried) {
    const __mmask16 two = _mm512_cmpge_epu32_mask(units, words(0x80));
    const __mmask16 three = _mm512_cmpge_epu32_mask(units, words(0x800));
    // The marks of the bytes that count; each has the top bit, so they tell which do. ASCII gets its byte
    // last.
    __m512i marks = _mm512_mask_mov_epi32(words(0x80000000), two, words(0x80C00000));
    marks = _mm512_mask_mov_epi32(marks, three, words(0x8080E000));
    __m512i values = units;
    unsigned int nextCarried = 0;
    if (_mm512_cmpge_epu32_mask(units, words(kFirstHighSurrogate)) != 0) {
        if (_mm512_cmpge_epu32_mask(units, words(kFirstSupplementary)) != 0) {
            return {units, 0, carried, true};
        }
        const __m512i after = _mm512_maskz_loadu_epi32(static_cast<__mmask16>(readable), next);
        const __m512i kinds = words(0xFFFFFC00);
        const __mmask16 high =
            _mm512_cmpeq_epi32_mask(_mm512_and_si512(units, kinds), words(kFirstHighSurrogate));
        const __mmask16 pairs =
            _mm512_mask_cmpeq_epi32_mask(high, _mm512_and_si512(after, kinds), words(kFirstLowSurrogate));
        nextCarried = static_cast<unsigned int>(pairs) >> 15;
        constexpr std::uint32_t kTooMuch =
            (kFirstHighSurrogate << 10) + kFirstLowSurrogate - kFirstSupplementary;
        values = _mm512_mask_add_epi32(units, pairs, _mm512_slli_epi32(units, 10),
                                       _mm512_sub_epi32(after, words(kTooMuch)));
        marks = _mm512_mask_mov_epi32(marks, pairs, words(0x808080F0));
        // The low surrogate of a pair gives nothing.
        marks = _mm512_maskz_mov_epi32(
            static_cast<__mmask16>(~(static_cast<unsigned int>(pairs) << 1 | carried)), marks);
    }
    // Six bits to a byte: those from bit 18, 12, 6 and 0 of each unit.
    const __m512i spread = _mm512_set1_epi64(0x20262C3200060C12);
    const __m512i bits = _mm512_multishift_epi64_epi8(spread, values);
    const __m512i bytes =
        _mm512_ternarylogic_epi32(bits, _mm512_set1_epi8(0x3F), marks, 0xEA); // (bits & 0x3F) | marks
    return {_mm512_mask_slli_epi32(bytes, static_cast<__mmask16>(~static_cast<unsigned int>(two)), units, 24),
            _mm512_movepi8_mask(marks), nextCarried, false};
}

// Fewer than 16 units, at least one: reads and writes through masks. Stops before a high surrogate at the
// very end; does nothing when a unit is too big.
BRIM_AVX512 inline EncodeProgress encodePart(const wchar_t* src, const wchar_t* end, char* dst) {
    auto length = static_cast<unsigned int>(end - src);
    if (isHighSurrogate(static_cast<char32_t>(end[-1]))) {
        --length;
    }
    const auto present = static_cast<std::uint32_t>(firstBits(length));
    const __m512i units = _mm512_maskz_loadu_epi32(static_cast<__mmask16>(present), src);
    const EncodedBlock block = encodeBlock(units, src + 1, present >> 1, 0);
    if (block.tooBig) {
        return {src, dst};
    }
    const std::uint64_t kept = block.kept & firstBits(4 * length);
    const unsigned int count = countBits(kept);
    _mm512_mask_storeu_epi8(dst, firstBits(count), _mm512_maskz_compress_epi8(kept, block.bytes));
    return {src + length, dst + count};
}

// Blocks of 16 units store 64 bytes and look at the unit after them: they end 22 units before the end, which
// have room for 66 bytes.
BRIM_AVX512 EncodeProgress encodeUtf8(const wchar_t* src, const wchar_t* end, char* dst) noexcept {
    EncodeProgress at{src, dst};
    unsigned int carried = 0; // 1: the first unit ended a pair of the last block
    bool tooBig = false;
    while (end - at.src >= 22 && !tooBig) {
        unsigned int blocks = 1;
        if (end - at.src > 64) {
            const __m512i a = _mm512_loadu_si512(at.src);
            const __m512i b = _mm512_loadu_si512(at.src + 16);
            const __m512i c = _mm512_loadu_si512(at.src + 32);
            const __m512i d = _mm512_loadu_si512(at.src + 48);
            const __m512i all = _mm512_or_si512(_mm512_ternarylogic_epi32(a, b, c, 0xFE), d);
            if (_mm512_test_epi32_mask(all, words(~0x7FU)) == 0) {
                store16(at.dst, _mm512_cvtepi32_epi8(a));
                store16(at.dst + 16, _mm512_cvtepi32_epi8(b));
                store16(at.dst + 32, _mm512_cvtepi32_epi8(c));
                store16(at.dst + 48, _mm512_cvtepi32_epi8(d));
                at.src += 64;
                at.dst += 64;
                continue;
            }
            blocks = end - at.src >= 70 ? 4 : 1;
        }
        for (; blocks != 0; --blocks) {
            const EncodedBlock block = encodeBlock(_mm512_loadu_si512(at.src), at.src + 1, 0xFFFF, carried);
            tooBig = block.tooBig;
            if (tooBig) {
                break;
            }
            _mm512_storeu_si512(at.dst, _mm512_maskz_compress_epi8(block.kept, block.bytes));
            at.dst += countBits(block.kept);
            at.src += 16;
            carried = block.carried;
        }
    }
    at.src += carried;
    if (!tooBig && end - at.src >= 16) {
        const __m512i units = _mm512_loadu_si512(at.src);
        if (_mm512_test_epi32_mask(units, words(~0x7FU)) == 0) { // a short text is mostly ASCII
            store16(at.dst, _mm512_cvtepi32_epi8(units));
            at.src += 16;
            at.dst += 16;
        } else { // fifteen: the last of sixteen may begin a pair
            at = encodePart(at.src, at.src + 15, at.dst);
        }
    }
    if (!tooBig && at.src != end && end - at.src < 16) {
        at = encodePart(at.src, end, at.dst);
    }
    encodeByRule(at, end, end);
    return at;
}

// ---- The exact size ---------------------------------------------------------------------------------------

BRIM_AVX512 std::size_t exactUtf8Size(const wchar_t* src, std::size_t srcLen) noexcept {
    constexpr std::ptrdiff_t kBlock = 64;
    const wchar_t* const end = src + srcLen;
    std::size_t size = 0;
    while (end - src >= kBlock) {
        __mmask16 odd = 0; // surrogates, and units above 0xFFFF
        unsigned int more = 0;
        for (std::ptrdiff_t i = 0; i < kBlock; i += 16) {
            const __m512i units = _mm512_loadu_si512(src + i);
            odd = static_cast<__mmask16>(
                odd | _mm512_cmplt_epu32_mask(_mm512_sub_epi32(units, words(0xD800)), words(0x800)) |
                _mm512_cmpge_epu32_mask(units, words(0x10000)));
            more += countBits(_mm512_cmpge_epu32_mask(units, words(0x80)));
            more += countBits(_mm512_cmpge_epu32_mask(units, words(0x800)));
        }
        if (odd != 0) {
            size += countByRule(src, src + 16, end);
        } else {
            size += static_cast<std::size_t>(kBlock) + more;
            src += kBlock;
        }
    }
    return size + countByRule(src, end, end);
}

} // namespace

constinit const Kernels kAvx512Kernels{
    Level::avx512,          &decodeUtf8, &encodeUtf8, &exactUtf8Size, &decodeSingleByteAvx512,
    &encodeSingleByteAvx512};

} // namespace sup::kernels
