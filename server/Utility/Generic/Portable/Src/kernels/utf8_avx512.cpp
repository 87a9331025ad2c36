// The level of processors with AVX-512 VBMI2. The decoder takes blocks of 64 bytes at a fixed stride: it
// makes the unit of every byte that may end a character, from that byte and the two before, and compresses
// the units of those that do. The encoder spreads every unit over four bytes and compresses those that count.
#include "kernels/units_avx512.h"
#include "kernels/utf8_runs.h"
#include "kernels/utf8_wellformed.h"

#include <cstdint>
#include <immintrin.h>

namespace sup::kernels {

namespace {

// ---- Small steps ------------------------------------------------------------------------------------------

// The bytes of unit 16 * group + i of a plane of low bytes and one of high bytes, for two of the four bytes
// of each unit; the other two are masked out.
struct Interleave {
    alignas(64) unsigned char bytes[4][64];
    constexpr Interleave() : bytes() {
        for (unsigned int group = 0; group < 4; ++group) {
            for (unsigned int i = 0; i < 64; ++i) {
                bytes[group][i] = static_cast<unsigned char>(16 * group + i / 4 + 64 * (i % 4 == 1 ? 1 : 0));
            }
        }
    }
};
constexpr Interleave kInterleave;

BRIM_AVX512 inline __m512i words(unsigned int value) { return _mm512_set1_epi32(static_cast<int>(value)); }
BRIM_AVX512 inline __m512i bytes(int value) { return _mm512_set1_epi8(static_cast<char>(value)); }
BRIM_AVX512 inline std::uint64_t from(__m512i limit, __m512i block) {
    return _mm512_cmpge_epu8_mask(block, limit);
}
BRIM_AVX512 inline unsigned int maskOf(__m128i block) {
    return static_cast<unsigned int>(_mm_movemask_epi8(block));
}
BRIM_AVX512 inline unsigned int countBits(std::uint64_t bits) {
    return static_cast<unsigned int>(_mm_popcnt_u64(bits));
}
BRIM_AVX512 inline std::uint64_t firstBits(unsigned int count) { return _bzhi_u64(~std::uint64_t{0}, count); }

// The bits of `mask` from `one`, all others from `other`.
BRIM_AVX512 inline __m512i select(__m512i mask, __m512i one, __m512i other) {
    return _mm512_ternarylogic_epi32(mask, one, other, 0xCA);
}

// The bytes that blocks are compared with and masked by, a register of each. They come from memory, out of
// the compiler's sight: it would make each of them anew for every block, at the price of a permutation.
struct Repeated {
    static constexpr unsigned char kValues[] = {0x0F, 0xA0, 0xBF, 0xC0, 0xC2, 0xDF, 0xE0, 0xEF, 0xF0, 0xFE};
    static constexpr std::size_t kCount = sizeof(kValues);
    alignas(64) unsigned char bytes[kCount][64];
    constexpr Repeated() : bytes() {
        for (std::size_t row = 0; row < kCount; ++row) {
            for (unsigned char& byte : bytes[row]) {
                byte = kValues[row];
            }
        }
    }
    /// Where the row of `value` begins.
    static constexpr std::size_t placeOf(unsigned char value) {
        std::size_t row = 0;
        while (kValues[row] != value) {
            ++row;
        }
        return 64 * row;
    }
};
constexpr Repeated kRepeated;

// The rows in memory.
class RepeatedRows {
public:
    RepeatedRows() : m_rows(kRepeated.bytes[0]) { asm("" : "+r"(m_rows)); }
    template <unsigned char kValue>
    BRIM_AVX512 __m512i get() const {
        constexpr std::size_t kPlace = Repeated::placeOf(kValue);
        return _mm512_load_si512(m_rows + kPlace);
    }
    template <unsigned char kValue>
    BRIM_AVX512 __m128i get16() const {
        constexpr std::size_t kPlace = Repeated::placeOf(kValue);
        return _mm_load_si128(reinterpret_cast<const __m128i*>(m_rows + kPlace));
    }

private:
    const unsigned char* m_rows;
};

struct Constants {
    __m512i b0F;
    __m512i bA0;
    __m512i bC0;
    __m512i bC2;
    __m512i bE0;
    __m512i bF0;
    __mmask64 lowerHalves; // of the units
};
BRIM_AVX512 inline Constants loadConstants() {
    const RepeatedRows rows;
    __mmask64 lowerHalves = 0x3333333333333333;
    asm("" : "+k"(lowerHalves));
    return {rows.get<0x0F>(), rows.get<0xA0>(), rows.get<0xC0>(), rows.get<0xC2>(),
            rows.get<0xE0>(), rows.get<0xF0>(), lowerHalves};
}

// ---- The decoder ------------------------------------------------------------------------------------------

// A block, and the bytes one and two places before each of its own. What is not there is zero.
struct Bytes {
    __m512i at;
    __m512i one;
    __m512i two;
};

// The places one and two before each of a block, from 64 on for what is not there.
struct Behind {
    alignas(64) unsigned char bytes[2][64];
    constexpr Behind() : bytes() {
        for (unsigned int distance = 1; distance <= 2; ++distance) {
            for (unsigned int i = 0; i < 64; ++i) {
                bytes[distance - 1][i] = static_cast<unsigned char>(i < distance ? 64 : i - distance);
            }
        }
    }
};
constexpr Behind kBehind;

// Puts what is before the bytes of a block at `src`. There is nothing before `first`.
BRIM_AVX512 inline void putBehind(Bytes& block, const char* src, const char* first,
                                  std::uint64_t present = ~std::uint64_t{0}) {
    if (src != first) {
        block.one = _mm512_maskz_loadu_epi8(present, src - 1);
        block.two = _mm512_maskz_loadu_epi8(present, src - 2);
    } else {
        const __m512i nothing = _mm512_setzero_si512();
        block.one = _mm512_permutex2var_epi8(block.at, _mm512_load_si512(kBehind.bytes[0]), nothing);
        block.two = _mm512_permutex2var_epi8(block.at, _mm512_load_si512(kBehind.bytes[1]), nothing);
    }
}

// What a block leaves to the next one, whose first bits these are.
struct Carried {
    std::uint64_t expected = 0; // continuation bytes
    std::uint64_t thirds = 0;   // third bytes of sequences of three and four
    std::uint64_t fours = 0;    // the third and fourth bytes of sequences of four
};

// What a block holds, one bit a byte.
struct Sequences {
    std::uint64_t nonAscii;
    std::uint64_t expected; // continuation bytes, by their leads
    std::uint64_t next;     // the bytes after which one is expected
    std::uint64_t thirds;   // third bytes
    std::uint64_t fourLeads;
    std::uint64_t wrong; // where the rules must be asked
    Carried carried;
};

BRIM_AVX512 inline Sequences classify(const Constants& constants, const Bytes& block, std::uint64_t nonAscii,
                                      const Carried& before) {
    const std::uint64_t leads = from(constants.bC0, block.at);
    const std::uint64_t threes = from(constants.bE0, block.at);
    const std::uint64_t fours = from(constants.bF0, block.at);
    Sequences s{nonAscii,
                0,
                leads | threes << 1 | fours << 2 | before.expected >> 1,
                threes << 2 | before.thirds,
                fours,
                0,
                {leads >> 63 | threes >> 62 | fours >> 61, threes >> 62, fours >> 61}};
    s.expected = s.next << 1 | (before.expected & 1U);
    const __mmask64 overlong = _mm512_mask_cmplt_epu8_mask(_mm512_cmpeq_epi8_mask(block.one, constants.bE0),
                                                           block.at, constants.bA0);
    const __mmask64 tooSmall = _mm512_mask_cmplt_epu8_mask(leads, block.at, constants.bC2);
    s.wrong = ((nonAscii & ~leads) ^ s.expected) | overlong | tooSmall;
    return s;
}

// Sequences of four may only stand for 0x10000 to 0x10FFFF.
BRIM_AVX512 inline std::uint64_t wrongFours(const Bytes& block) {
    const __mmask64 afterF0 = _mm512_cmpeq_epi8_mask(block.one, bytes(0xF0));
    const __mmask64 afterF4 = _mm512_cmpeq_epi8_mask(block.one, bytes(0xF4));
    return _mm512_mask_cmplt_epu8_mask(afterF0, block.at, bytes(0x90)) |
           _mm512_mask_cmpge_epu8_mask(afterF4, block.at, bytes(0x90)) | from(bytes(0xF5), block.at);
}

// The low and the high bytes of units.
struct Planes {
    __m512i low;
    __m512i high;
};

// The units, were every byte the last of a character.
BRIM_AVX512 inline Planes unitsOf(const Constants& constants, const Bytes& block, const Sequences& s) {
    const __m512i low = select(constants.bC0, _mm512_slli_epi16(block.one, 6), block.at);
    const __m512i third = _mm512_maskz_mov_epi8(s.thirds, _mm512_slli_epi16(block.two, 4));
    const __m512i high = select(constants.b0F, _mm512_srli_epi16(block.one, 2), third);
    return {_mm512_mask_mov_epi8(block.at, s.nonAscii, low), _mm512_maskz_mov_epi8(s.nonAscii, high)};
}

// The surrogates of sequences of four: the high one stands at the third byte, the low one at the fourth.
BRIM_AVX512 inline void putPairs(const Bytes& block, std::uint64_t thirds, std::uint64_t fourths,
                                 Planes& units) {
    units.high = _mm512_mask_mov_epi8(units.high, fourths,
                                      select(bytes(0x03), _mm512_srli_epi16(block.one, 2), bytes(0xDC)));
    // 0xD800 less the 0x10000 >> 10 that a pair leaves out.
    const __m512i low = select(bytes(0xFC), _mm512_slli_epi16(block.one, 2), _mm512_srli_epi16(block.at, 4));
    const __mmask64 overflow = _mm512_mask_cmpge_epu8_mask(thirds, low, bytes(0x40));
    units.low = _mm512_mask_add_epi8(units.low, thirds, low, bytes(0xC0));
    units.high =
        _mm512_mask_add_epi8(units.high, thirds, _mm512_and_si512(block.two, bytes(0x07)), bytes(0xD7));
    units.high = _mm512_mask_add_epi8(units.high, overflow, units.high, bytes(1));
}

BRIM_AVX512 inline __m512i unitsOfGroup(const Constants& constants, const Planes& planes,
                                        unsigned int group) {
    return _mm512_maskz_permutex2var_epi8(constants.lowerHalves, planes.low,
                                          _mm512_load_si512(kInterleave.bytes[group]), planes.high);
}

// What a block becomes: its units in order, and how many they are.
struct Decoded {
    Planes units;
    unsigned int count;
};

// `before` is what the block before has left, `length` the bytes that count.
BRIM_AVX512 inline Decoded decodeBlock(const Constants& constants, const Bytes& block, const Sequences& s,
                                       const Carried& before, unsigned int length) {
    Planes units = unitsOf(constants, block, s);
    std::uint64_t kept = ~s.next;
    if ((s.fourLeads | before.fours) != 0) {
        const std::uint64_t thirds = s.fourLeads << 2 | before.fours >> 1;
        putPairs(block, thirds, s.fourLeads << 3 | before.fours, units);
        kept |= thirds;
    }
    kept = _bzhi_u64(kept, length);
    return {{_mm512_maskz_compress_epi8(kept, units.low), _mm512_maskz_compress_epi8(kept, units.high)},
            countBits(kept)};
}

// Long destinations are fetched so far ahead.
inline void fetchForWriting(const wchar_t* dst) {
    constexpr std::ptrdiff_t kAhead = 512;
    for (std::ptrdiff_t i = 0; i < 64; i += 16) {
        __builtin_prefetch(dst + kAhead + i, 1);
    }
}

BRIM_AVX512 inline void widen64(const char* src, wchar_t* dst) {
    for (std::ptrdiff_t i = 0; i < 64; i += 16) {
        const __m128i part = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        _mm512_storeu_si512(dst + i, _mm512_cvtepu8_epi32(part));
    }
}

// Stores up to 64 units: the caller has room for as many.
BRIM_AVX512 inline wchar_t* storeBlock(const Constants& constants, const Decoded& block, wchar_t* dst) {
    _mm512_storeu_si512(dst, unitsOfGroup(constants, block.units, 0));
    _mm512_storeu_si512(dst + 16, unitsOfGroup(constants, block.units, 1));
    _mm512_storeu_si512(dst + 32, unitsOfGroup(constants, block.units, 2));
    _mm512_storeu_si512(dst + 48, unitsOfGroup(constants, block.units, 3));
    return dst + block.count;
}
// As storeBlock(), but stores exactly the units that there are.
BRIM_AVX512 inline wchar_t* storeExactly(const Constants& constants, const Decoded& block, wchar_t* dst) {
    const std::uint64_t room = firstBits(block.count);
    for (unsigned int group = 0; 16 * group < block.count; ++group) {
        _mm512_mask_storeu_epi32(dst + 16 * group, static_cast<__mmask16>(room >> 16 * group),
                                 unitsOfGroup(constants, block.units, group));
    }
    return dst + block.count;
}

// Where a vector loop stops, at the start of a character. `within`: the byte at `at` should continue one.
inline DecodeProgress stopAt(const DecodeProgress& at, bool within) { return within ? takeBack(at) : at; }

// Decodes the last bytes, fewer than 64 of them, or up to the first place where the rules must be asked.
// `first` is where the text begins, `before` what the block before has left. Reads and writes through masks,
// so nothing beyond either end is touched.
BRIM_AVX512 inline __attribute__((always_inline)) DecodeProgress
decodePart(const Constants& constants, __m512i bytesAt, std::uint64_t nonAscii, const Carried& before,
           const DecodeProgress& at, const char* first, const char* end) {
    const auto present = static_cast<unsigned int>(end - at.src);
    Bytes block;
    block.at = bytesAt;
    putBehind(block, at.src, first, firstBits(present));
    Sequences s = classify(constants, block, nonAscii, before);
    if ((s.fourLeads | before.fours) != 0) {
        s.wrong |= wrongFours(block);
    }
    // Where the bytes end: a byte that is not there is wrong too.
    const auto length = static_cast<unsigned int>(_tzcnt_u64(s.wrong | ~firstBits(present)));
    wchar_t* const dst = storeExactly(constants, decodeBlock(constants, block, s, before, length), at.dst);
    return stopAt({at.src + length, dst}, (s.expected >> length & 1U) != 0);
}

// Decodes from the start of a character until the end or the first place where the rules must be asked.
BRIM_AVX512 __attribute__((noinline)) DecodeProgress decodeUntilWrong(const char* src, const char* end,
                                                                      wchar_t* dst) noexcept {
    // So many blocks after one that is not ASCII are not looked at for being it: that would be a branch which
    // sparse text mispredicts.
    constexpr unsigned int kNotAsked = 4;
    unsigned int notAsked = 0;
    const Constants constants = loadConstants();
    Carried before;
    DecodeProgress at{src, dst};
    while (end - at.src >= 64) {
        Bytes block;
        block.at = _mm512_loadu_si512(at.src);
        const std::uint64_t nonAscii = _mm512_movepi8_mask(block.at);
        if (notAsked == 0 && nonAscii == 0) {
            fetchForWriting(at.dst);
            widen64(at.src, at.dst);
            // As far as the next cache line of the destination: whoever comes here again, stores aligned.
            const std::ptrdiff_t aligned = unitsToLine(at.dst) + 48;
            at.src += aligned;
            at.dst += aligned;
            continue;
        }
        notAsked = nonAscii != 0 ? kNotAsked : notAsked - 1;
        putBehind(block, at.src, src);
        Sequences s = classify(constants, block, nonAscii, before);
        if ((s.fourLeads | before.fours) != 0) {
            s.wrong |= wrongFours(block);
        }
        if (s.wrong != 0) {
            const auto length = static_cast<unsigned int>(_tzcnt_u64(s.wrong));
            at.dst = storeBlock(constants, decodeBlock(constants, block, s, before, length), at.dst);
            return stopAt({at.src + length, at.dst}, (s.expected >> length & 1U) != 0);
        }
        at.dst = storeBlock(constants, decodeBlock(constants, block, s, before, 64), at.dst);
        at.src += 64;
        before = s.carried;
    }
    if (at.src == end) {
        return stopAt(at, before.expected != 0);
    }
    const __m512i rest = _mm512_maskz_loadu_epi8(firstBits(static_cast<unsigned int>(end - at.src)), at.src);
    return decodePart(constants, rest, _mm512_movepi8_mask(rest), before, at, src, end);
}

// Goes on from a stop before the end of a text that began at `start`.
BRIM_AVX512 __attribute__((noinline)) DecodeProgress decodeAfter(DecodeProgress at, const char* start,
                                                                 const char* end) noexcept {
    while (at.src != end && decodeDamage(at, start, end) && at.src != end) {
        start = at.src;
        at = decodeUntilWrong(at.src, end, at.dst);
    }
    return at;
}

// Fewer than 64 bytes.
BRIM_AVX512 inline void widenPart(__m512i block, unsigned int length, wchar_t* dst) {
    const std::uint64_t present = firstBits(length);
    _mm512_mask_storeu_epi32(dst, static_cast<__mmask16>(present),
                             _mm512_cvtepu8_epi32(_mm512_castsi512_si128(block)));
    if (length > 16) {
        _mm512_mask_storeu_epi32(dst + 16, static_cast<__mmask16>(present >> 16),
                                 _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(block, 1)));
    }
    if (length > 32) {
        _mm512_mask_storeu_epi32(dst + 32, static_cast<__mmask16>(present >> 32),
                                 _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(block, 2)));
        _mm512_mask_storeu_epi32(dst + 48, static_cast<__mmask16>(present >> 48),
                                 _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(block, 3)));
    }
}

BRIM_AVX512 __attribute__((noinline)) DecodeProgress decodeUpTo63(const char* src, const char* end,
                                                                  wchar_t* dst) noexcept {
    const auto length = static_cast<unsigned int>(end - src);
    const __m512i block = _mm512_maskz_loadu_epi8(firstBits(length), src);
    const std::uint64_t nonAscii = _mm512_movepi8_mask(block);
    if (nonAscii == 0) {
        widenPart(block, length, dst);
        return {end, dst + length};
    }
    const DecodeProgress at = decodePart(loadConstants(), block, nonAscii, {}, {src, dst}, src, end);
    return at.src == end ? at : decodeAfter(at, src, end);
}

// Up to 16 bytes are a matter of few instructions, as long as all is well with them and none of them begins a
// sequence of four. Null, and nothing written, when that is not so.
BRIM_AVX512 inline wchar_t* decodeUpTo16(const char* src, unsigned int length, wchar_t* dst) {
    const RepeatedRows rows;
    const __m128i at = _mm_maskz_loadu_epi8(static_cast<__mmask16>(firstBits(length)), src);
    const unsigned int nonAsciiBits = maskOf(at);
    if (nonAsciiBits == 0) {
        _mm512_mask_storeu_epi32(dst, static_cast<__mmask16>(firstBits(length)), _mm512_cvtepu8_epi32(at));
        return dst + length;
    }
    const __m128i one = _mm_bslli_si128(at, 1);
    const __m128i two = _mm_bslli_si128(at, 2);
    // Signed comparisons: ASCII is above the rest.
    const unsigned int leads = maskOf(_mm_cmpgt_epi8(at, rows.get16<0xBF>())) & nonAsciiBits;
    const unsigned int threes = maskOf(_mm_cmpgt_epi8(at, rows.get16<0xDF>())) & nonAsciiBits;
    const __m128i tooLong = _mm_cmpgt_epi8(at, rows.get16<0xEF>());
    const __m128i tooSmall = _mm_cmpeq_epi8(_mm_and_si128(at, rows.get16<0xFE>()), rows.get16<0xC0>());
    const __m128i overlong =
        _mm_and_si128(_mm_cmpeq_epi8(one, rows.get16<0xE0>()), _mm_cmpgt_epi8(rows.get16<0xA0>(), at));
    const unsigned int wrong =
        maskOf(_mm_ternarylogic_epi32(overlong, tooSmall, tooLong, 0xFE)) & nonAsciiBits;
    const unsigned int next = leads | threes << 1;
    // A continuation byte that is expected beyond the end is wrong as well.
    if ((((nonAsciiBits & ~leads) ^ next << 1) | wrong) != 0) {
        return nullptr;
    }
    const __m128i nonAscii = _mm_cmpgt_epi8(_mm_setzero_si128(), at);
    const __m128i lowBits = _mm_and_si128(nonAscii, rows.get16<0xC0>());
    const __m128i low = _mm_ternarylogic_epi32(lowBits, _mm_slli_epi16(one, 6), at, 0xCA);
    const __m128i isThird = _mm_cmpeq_epi8(_mm_max_epu8(two, rows.get16<0xE0>()), two);
    const __m128i third = _mm_and_si128(isThird, _mm_slli_epi16(two, 4));
    const __m128i highBits = _mm_ternarylogic_epi32(rows.get16<0x0F>(), _mm_srli_epi16(one, 2), third, 0xCA);
    const __m128i high = _mm_and_si128(nonAscii, highBits);
    const __m256i units = _mm256_set_m128i(_mm_unpackhi_epi8(low, high), _mm_unpacklo_epi8(low, high));
    const std::uint64_t kept = firstBits(length) & ~next;
    const unsigned int count = countBits(kept);
    _mm512_mask_storeu_epi32(
        dst, static_cast<__mmask16>(firstBits(count)),
        _mm512_cvtepu16_epi32(_mm256_maskz_compress_epi16(static_cast<__mmask16>(kept), units)));
    return dst + count;
}

// From 64 bytes on.
BRIM_AVX512 __attribute__((noinline)) DecodeProgress decodeLong(const char* src, const char* end,
                                                                wchar_t* dst) noexcept {
    const DecodeProgress at = decodeUntilWrong(src, end, dst);
    return at.src == end ? at : decodeAfter(at, src, end);
}

} // namespace

BRIM_AVX512 DecodeProgress decodeUtf8Avx512(const char* src, const char* end, wchar_t* dst) noexcept {
    if (end - src >= 64) {
        return decodeLong(src, end, dst);
    }
    if (end - src <= 16) {
        if (wchar_t* const dstEnd = decodeUpTo16(src, static_cast<unsigned int>(end - src), dst)) {
            return {end, dstEnd};
        }
    }
    return decodeUpTo63(src, end, dst);
}
namespace {

// ---- The encoder ------------------------------------------------------------------------------------------

// The constants of the encoder, a register of each, from memory as those of the decoder.
struct EncoderRows {
    static constexpr std::uint64_t kValues[] = {
        0x0000008000000080, // the first unit of two bytes
        0x0000080000000800, // and that of three
        0x0000D8000000D800, // the first surrogate
        // The marks of the bytes of a unit; each has the top bit, so they tell which bytes count. ASCII gets
        // its byte last.
        0x8000000080000000, 0x80C0000080C00000, 0x8080E0008080E000,
        0x3F3F3F3F3F3F3F3F, // what a byte has besides its mark
        0x3F003F003F003F00, // and the second of two in 16 bits
        0x80C080C080C080C0, // the marks of these
        0x20262C3200060C12, // six bits to a byte: those from bit 18, 12, 6 and 0 of each unit
    };
    static constexpr std::size_t kCount = sizeof(kValues) / sizeof(kValues[0]);
    alignas(64) std::uint64_t words[kCount][8];
    constexpr EncoderRows() : words() {
        for (std::size_t row = 0; row < kCount; ++row) {
            for (std::uint64_t& word : words[row]) {
                word = kValues[row];
            }
        }
    }
};
constexpr EncoderRows kEncoderRows;

struct EncoderConstants {
    __m512i first2;
    __m512i first3;
    __m512i firstHigh;
    __m512i mark1;
    __m512i mark2;
    __m512i mark3;
    __m512i sixBits;
    __m512i shortBits;
    __m512i shortMarks;
    __m512i spread;
};
BRIM_AVX512 inline EncoderConstants loadEncoderConstants() {
    const std::uint64_t(*rows)[8] = kEncoderRows.words;
    asm("" : "+r"(rows));
    return {_mm512_load_si512(rows[0]), _mm512_load_si512(rows[1]), _mm512_load_si512(rows[2]),
            _mm512_load_si512(rows[3]), _mm512_load_si512(rows[4]), _mm512_load_si512(rows[5]),
            _mm512_load_si512(rows[6]), _mm512_load_si512(rows[7]), _mm512_load_si512(rows[8]),
            _mm512_load_si512(rows[9])};
}

BRIM_AVX512 inline bool anyFrom(__m512i limit, __m512i units) {
    return _mm512_cmpge_epu32_mask(units, limit) != 0;
}

// The bytes of 16 units, four a unit, and which of them count.
struct EncodedBlock {
    __m512i bytes;
    std::uint64_t kept;
    unsigned int carried; // 1: the last unit and the one after it are a pair, whose bytes are here
    bool tooBig;          // a unit above 0xFFFF: there are no bytes
};

// The marks of the bytes of `units`, of which `two` are those of two bytes and more.
BRIM_AVX512 inline __m512i marksOf(const EncoderConstants& constants, __m512i units, __mmask16 two) {
    const __mmask16 three = _mm512_cmpge_epu32_mask(units, constants.first3);
    return _mm512_mask_mov_epi32(_mm512_mask_mov_epi32(constants.mark1, two, constants.mark2), three,
                                 constants.mark3);
}
// `values` are the code points.
BRIM_AVX512 inline __m512i bytesOf(const EncoderConstants& constants, __m512i values, __m512i marks,
                                   __mmask16 two) {
    const __m512i bits = _mm512_multishift_epi64_epi8(constants.spread, values);
    const __m512i lanes = // (bits & sixBits) | marks
        _mm512_ternarylogic_epi32(bits, constants.sixBits, marks, 0xEA);
    return _mm512_mask_slli_epi32(lanes, _knot_mask16(two), values, 24);
}

// `next` is where the unit after each is; `readable` are the lanes that may be read there. `carried` is that
// of the block before.
BRIM_AVX512 inline EncodedBlock encodeBlock(const EncoderConstants& constants, __m512i units,
                                            const wchar_t* next, std::uint32_t readable,
                                            unsigned int carried) {
    const __mmask16 two = _mm512_cmpge_epu32_mask(units, constants.first2);
    __m512i marks = marksOf(constants, units, two);
    __m512i values = units;
    unsigned int nextCarried = 0;
    if (anyFrom(constants.firstHigh, units)) {
        if (anyFrom(words(kFirstSupplementary), units)) {
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
    return {bytesOf(constants, values, marks, two), _mm512_movepi8_mask(marks), nextCarried, false};
}

// Up to 16 units, at least one: reads and writes through masks. Stops before a high surrogate at the very
// end; does nothing when a unit is too big.
BRIM_AVX512 inline EncodeProgress encodePart(const EncoderConstants& constants, const wchar_t* src,
                                             const wchar_t* end, char* dst) {
    auto length = static_cast<unsigned int>(end - src);
    if (isHighSurrogate(static_cast<char32_t>(end[-1]))) {
        --length;
    }
    const auto present = static_cast<std::uint32_t>(firstBits(length));
    const __m512i units = _mm512_maskz_loadu_epi32(static_cast<__mmask16>(present), src);
    const EncodedBlock block = encodeBlock(constants, units, src + 1, present >> 1, 0);
    if (block.tooBig) {
        return {src, dst};
    }
    const std::uint64_t kept = _bzhi_u64(block.kept, 4 * length);
    const unsigned int count = countBits(kept);
    _mm512_mask_storeu_epi8(dst, firstBits(count), _mm512_maskz_compress_epi8(kept, block.bytes));
    return {src + length, dst + count};
}

// The places of the lower halves of the units of two registers.
struct LowerHalves {
    alignas(64) std::uint16_t words[32];
    constexpr LowerHalves() : words() {
        for (unsigned int i = 0; i < 32; ++i) {
            words[i] = static_cast<std::uint16_t>(2 * i);
        }
    }
};
constexpr LowerHalves kLowerHalves;

// 32 units below 0x800: stores 64 bytes.
BRIM_AVX512 inline char* encodeUpToTwoBytes(const EncoderConstants& constants, __m512i first, __m512i second,
                                            char* dst) {
    const __m512i units = _mm512_permutex2var_epi16(first, _mm512_load_si512(kLowerHalves.words), second);
    const __mmask32 two = _mm512_cmpge_epu16_mask(units, _mm512_set1_epi16(0x80));
    const __m512i both =
        select(constants.shortBits, _mm512_slli_epi16(units, 8), _mm512_srli_epi16(units, 6));
    const __m512i lanes = _mm512_mask_mov_epi16(units, two, _mm512_or_si512(both, constants.shortMarks));
    const std::uint64_t kept = _pdep_u64(two, 0xAAAAAAAAAAAAAAAA) | 0x5555555555555555;
    _mm512_storeu_si512(dst, _mm512_maskz_compress_epi8(kept, lanes));
    return dst + 32 + countBits(two);
}

// 128 units a step, as long as they are ASCII.
BRIM_AVX512 inline EncodeProgress encodeAscii(const EncoderConstants& constants, EncodeProgress at,
                                              const wchar_t* end) {
    for (; end - at.src >= 128; at.src += 128, at.dst += 128) {
        __m512i units[8];
        __m512i all = _mm512_setzero_si512();
        for (std::ptrdiff_t i = 0; i < 8; ++i) {
            units[i] = _mm512_loadu_si512(at.src + 16 * i);
            all = _mm512_or_si512(all, units[i]);
        }
        if (anyFrom(constants.first2, all)) {
            break;
        }
        _mm512_storeu_si512(at.dst, narrow64(units[0], units[1], units[2], units[3]));
        _mm512_storeu_si512(at.dst + 64, narrow64(units[4], units[5], units[6], units[7]));
    }
    return at;
}

// Blocks of 32 units. Those of units of three bytes and more store 64 bytes a half and look at the unit after
// it: so all end 38 units before the end, which have room for the 66 bytes of the second half.
BRIM_AVX512 __attribute__((noinline)) EncodeProgress encodeLong(const wchar_t* src, const wchar_t* end,
                                                                char* dst) noexcept {
    // So many blocks after one that is not ASCII, or not short, are not looked at for being it: that would be
    // a branch which mixed text mispredicts.
    constexpr unsigned int kNotAsked = 4;
    const EncoderConstants constants = loadEncoderConstants();
    EncodeProgress at{src, dst};
    unsigned int notAscii = 0;
    unsigned int notShort = 0;
    unsigned int carried = 0; // 1: the first unit ended a pair of the last block
    while (end - at.src >= 38) {
        const __m512i first = _mm512_loadu_si512(at.src);
        const __m512i second = _mm512_loadu_si512(at.src + 16);
        const __m512i all = _mm512_or_si512(first, second);
        if (notAscii == 0 && end - at.src >= 64) {
            const __m512i third = _mm512_loadu_si512(at.src + 32);
            const __m512i fourth = _mm512_loadu_si512(at.src + 48);
            if (!anyFrom(constants.first2, _mm512_ternarylogic_epi32(all, third, fourth, 0xFE))) {
                _mm512_storeu_si512(at.dst, narrow64(first, second, third, fourth));
                const std::ptrdiff_t aligned = unitsToLine(at.src) + 48;
                at = encodeAscii(constants, {at.src + aligned, at.dst + aligned}, end);
                continue;
            }
        }
        notAscii = anyFrom(constants.first2, all) ? kNotAsked : notAscii - (notAscii != 0 ? 1 : 0);
        notShort = anyFrom(constants.first3, all) ? kNotAsked : notShort - (notShort != 0 ? 1 : 0);
        if (notShort == 0) {
            at.dst = encodeUpToTwoBytes(constants, first, second, at.dst);
            at.src += 32;
            continue;
        }
        for (int half = 0; half < 2; ++half) {
            const __m512i units = _mm512_loadu_si512(at.src);
            const EncodedBlock block = encodeBlock(constants, units, at.src + 1, 0xFFFF, carried);
            if (block.tooBig) {
                at.src += carried;
                encodeByRule(at, end, end);
                return at;
            }
            _mm512_storeu_si512(at.dst, _mm512_maskz_compress_epi8(block.kept, block.bytes));
            at.dst += countBits(block.kept);
            at.src += 16;
            carried = block.carried;
        }
    }
    at.src += carried;
    while (end - at.src > 16) {
        const wchar_t* const before = at.src;
        at = encodePart(constants, at.src, at.src + 16, at.dst);
        if (at.src == before) { // a unit is too big
            break;
        }
    }
    if (at.src != end && end - at.src <= 16) {
        at = encodePart(constants, at.src, end, at.dst);
    }
    encodeByRule(at, end, end);
    return at;
}

// Up to 16 units, none of them a surrogate or above, are a matter of few instructions. Null, and nothing
// written, when that is not so.
BRIM_AVX512 inline char* encodeUpTo16(const wchar_t* src, unsigned int length, char* dst) {
    const auto present = static_cast<__mmask16>(firstBits(length));
    const __m512i units = _mm512_maskz_loadu_epi32(present, src);
    const __mmask16 two = _mm512_cmpge_epu32_mask(units, words(0x80));
    if (two == 0) {
        _mm_mask_storeu_epi8(dst, present, _mm512_cvtepi32_epi8(units));
        return dst + length;
    }
    const EncoderConstants constants = loadEncoderConstants();
    if (anyFrom(constants.firstHigh, units)) {
        return nullptr;
    }
    const __m512i marks = marksOf(constants, units, two);
    const std::uint64_t kept = _bzhi_u64(_mm512_movepi8_mask(marks), 4 * length);
    const __m512i bytes = bytesOf(constants, units, marks, two);
    const unsigned int count = countBits(kept);
    _mm512_mask_storeu_epi8(dst, firstBits(count), _mm512_maskz_compress_epi8(kept, bytes));
    return dst + count;
}

} // namespace

BRIM_AVX512 EncodeProgress encodeUtf8Avx512(const wchar_t* src, const wchar_t* end, char* dst) noexcept {
    if (end - src <= 16) {
        if (char* const dstEnd = encodeUpTo16(src, static_cast<unsigned int>(end - src), dst)) {
            return {end, dstEnd};
        }
    }
    return encodeLong(src, end, dst);
}

// ---- The exact size ---------------------------------------------------------------------------------------

BRIM_AVX512 std::size_t exactUtf8SizeAvx512(const wchar_t* src, std::size_t srcLen) noexcept {
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

// ---- Well-formed text -------------------------------------------------------------------------------------

namespace {

// What is wrong with a block by the strict rules: encoded surrogates, too.
BRIM_AVX512 inline std::uint64_t malformed(const Bytes& block, const Sequences& s, const Carried& before) {
    const __mmask64 afterED = _mm512_cmpeq_epi8_mask(block.one, bytes(0xED));
    const std::uint64_t wrong = s.wrong | _mm512_mask_cmpge_epu8_mask(afterED, block.at, bytes(0xA0));
    return (s.fourLeads | before.fours) == 0 ? wrong : wrong | wrongFours(block);
}

} // namespace

BRIM_AVX512 std::size_t wellFormedUtf8Avx512(const char* src, std::size_t length) noexcept {
    const char* const end = src + length;
    const char* at = src;
    const Constants constants = loadConstants();
    Carried before;
    for (; end - at >= 64; at += 64) {
        Bytes block;
        block.at = _mm512_loadu_si512(at);
        const std::uint64_t nonAscii = _mm512_movepi8_mask(block.at);
        if ((nonAscii | before.expected) == 0) {
            continue;
        }
        putBehind(block, at, src);
        const Sequences s = classify(constants, block, nonAscii, before);
        if (malformed(block, s, before) != 0) {
            break;
        }
        before = s.carried;
    }
    if (end - at < 64) { // nothing was malformed so far
        const std::uint64_t present = firstBits(static_cast<unsigned int>(end - at));
        Bytes block;
        block.at = _mm512_maskz_loadu_epi8(present, at);
        putBehind(block, at, src, present);
        const Sequences s = classify(constants, block, _mm512_movepi8_mask(block.at), before);
        // What is cut is expected where nothing is any more.
        if (malformed(block, s, before) == 0) {
            return length;
        }
    }
    return static_cast<std::size_t>(skipWellFormed(before.expected != 0 ? startBefore(at) : at, end) - src);
}

} // namespace sup::kernels
