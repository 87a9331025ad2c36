// The level of processors with AVX-512 VBMI2. The decoder takes blocks of 64 bytes at a fixed stride: it
// makes the unit of every byte that may end a character, from that byte and the two before, and compresses
// the units of those that do. The encoder spreads every unit over four bytes and compresses those that count.
#include "kernels/utf8_runs.h"

#include <cstdint>
#include <immintrin.h>

#ifndef __clang__ // the undefined operands of GCC 12's own intrinsics
#    pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#    pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#define BRIM_AVX512                                                                                          \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt,prfchw")))

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
BRIM_AVX512 inline void store16(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
BRIM_AVX512 inline std::uint64_t from(__m512i limit, __m512i block) {
    return _mm512_cmpge_epu8_mask(block, limit);
}
BRIM_AVX512 inline unsigned int countBits(std::uint64_t bits) {
    return static_cast<unsigned int>(_mm_popcnt_u64(bits));
}
BRIM_AVX512 inline std::uint64_t firstBits(unsigned int count) { return _bzhi_u64(~std::uint64_t{0}, count); }

// The bits of `mask` from `one`, all others from `other`.
BRIM_AVX512 inline __m512i select(__m512i mask, __m512i one, __m512i other) {
    return _mm512_ternarylogic_epi32(mask, one, other, 0xCA);
}

// Constants that stay in registers: the compiler would make them anew for every block.
BRIM_AVX512 inline __m512i held(__m512i constant) {
    asm("" : "+v"(constant));
    return constant;
}
BRIM_AVX512 inline __mmask64 held(__mmask64 constant) {
    asm("" : "+k"(constant));
    return constant;
}
struct Constants {
    BRIM_AVX512 Constants() {}
    __m512i b0F = held(bytes(0x0F));
    __m512i bA0 = held(bytes(0xA0));
    __m512i bC0 = held(bytes(0xC0));
    __m512i bC2 = held(bytes(0xC2));
    __m512i bE0 = held(bytes(0xE0));
    __m512i bF0 = held(bytes(0xF0));
    __mmask64 lowerHalves = held(__mmask64{0x3333333333333333}); // of the units
};

// ---- The decoder ------------------------------------------------------------------------------------------

// A block, and the bytes one and two places before each of its own. What is not there is zero.
struct Bytes {
    __m512i at;
    __m512i one;
    __m512i two;
};

// The places one and two before each of a block.
struct Behind {
    alignas(64) unsigned char bytes[2][64];
    constexpr Behind() : bytes() {
        for (unsigned int distance = 1; distance <= 2; ++distance) {
            for (unsigned int i = distance; i < 64; ++i) {
                bytes[distance - 1][i] = static_cast<unsigned char>(i - distance);
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
        block.one =
            _mm512_maskz_permutexvar_epi8(~std::uint64_t{1}, _mm512_load_si512(kBehind.bytes[0]), block.at);
        block.two =
            _mm512_maskz_permutexvar_epi8(~std::uint64_t{3}, _mm512_load_si512(kBehind.bytes[1]), block.at);
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

// How far the vector loop came, and whether the byte there should continue a character.
struct Stop {
    DecodeProgress at;
    bool within;
};

// Decodes from the start of a character until the end or the first place where the rules must be asked.
BRIM_AVX512 inline Stop decodeUntilWrong(const char* src, const char* end, wchar_t* dst) {
    // So many blocks after one that is not ASCII are not looked at for being it: that would be a branch which
    // sparse text mispredicts.
    constexpr unsigned int kNotAsked = 4;
    unsigned int notAsked = 0;
    const Constants constants;
    Carried before;
    DecodeProgress at{src, dst};
    while (end - at.src >= 64) {
        Bytes block;
        block.at = _mm512_loadu_si512(at.src);
        const std::uint64_t nonAscii = _mm512_movepi8_mask(block.at);
        if (notAsked == 0 && nonAscii == 0) {
            for (std::ptrdiff_t i = 0; i < 64; i += 16) {
                __builtin_prefetch(at.dst + 1024 + i, 1);
            }
            widen64(at.src, at.dst);
            // As far as the next cache line of the destination: whoever comes here again, stores aligned.
            const std::ptrdiff_t aligned =
                64 - static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(at.dst) / 4 % 16);
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
            return {{at.src + length,
                     storeBlock(constants, decodeBlock(constants, block, s, before, length), at.dst)},
                    (s.expected >> length & 1U) != 0};
        }
        at.dst = storeBlock(constants, decodeBlock(constants, block, s, before, 64), at.dst);
        at.src += 64;
        before = s.carried;
    }
    if (at.src == end) {
        return {at, before.expected != 0};
    }
    auto length = static_cast<unsigned int>(end - at.src);
    Bytes block;
    block.at = _mm512_maskz_loadu_epi8(firstBits(length), at.src);
    putBehind(block, at.src, src, firstBits(length));
    Sequences s = classify(constants, block, _mm512_movepi8_mask(block.at), before);
    if ((s.fourLeads | before.fours) != 0) {
        s.wrong |= wrongFours(block);
    }
    const std::uint64_t wrong = _bzhi_u64(s.wrong, length);
    length = wrong != 0 ? static_cast<unsigned int>(_tzcnt_u64(wrong)) : length;
    return {
        {at.src + length, storeExactly(constants, decodeBlock(constants, block, s, before, length), at.dst)},
        (s.expected >> length & 1U) != 0};
}

// Short texts are mostly ASCII.
BRIM_AVX512 inline void widenAscii16(DecodeProgress& at, const char* end) {
    while (end - at.src >= 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at.src));
        if (_mm_movemask_epi8(block) != 0) {
            break;
        }
        _mm512_storeu_si512(at.dst, _mm512_cvtepu8_epi32(block));
        at.src += 16;
        at.dst += 16;
    }
}

} // namespace

BRIM_AVX512 DecodeProgress decodeUtf8Avx512(const char* src, const char* end, wchar_t* dst) noexcept {
    DecodeProgress at{src, dst};
    if (end - src < 64) {
        widenAscii16(at, end);
    }
    while (at.src != end) {
        const char* const start = at.src;
        const Stop stop = decodeUntilWrong(at.src, end, at.dst);
        at = stop.within ? takeBack(stop.at) : stop.at;
        if (at.src == end || !decodeDamage(at, start, end)) {
            break;
        }
    }
    return at;
}

namespace {

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
    const __m512i lanes =
        _mm512_ternarylogic_epi32(bits, _mm512_set1_epi8(0x3F), marks, 0xEA); // (bits & 0x3F) | marks
    return {_mm512_mask_slli_epi32(lanes, static_cast<__mmask16>(~static_cast<unsigned int>(two)), units, 24),
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

} // namespace

// Blocks of 16 units store 64 bytes and look at the unit after them: they end 22 units before the end, which
// have room for 66 bytes.
BRIM_AVX512 EncodeProgress encodeUtf8Avx512(const wchar_t* src, const wchar_t* end, char* dst) noexcept {
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

} // namespace sup::kernels
