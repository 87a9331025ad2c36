// The level of processors with AVX2 and BMI2. The decoder takes blocks of 32 bytes at a fixed stride: it
// makes the unit of every byte that may end a character, from that byte and the three before, and compacts
// the units of those that do, eight bytes at a time. The encoder makes four bytes of every unit and compacts
// those that count, four units at a time.
#include "kernels/targets.h"
#include "kernels/utf8_runs.h"
#include "kernels/utf8_wellformed.h"

#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace sup::kernels {

namespace {

// ---- Tables -----------------------------------------------------------------------------------------------

// By eight bits: a byte permutation that moves the 16-bit lanes of the bits that are set to the front.
struct LaneShuffles {
    alignas(64) unsigned char bytes[256][16];
    constexpr LaneShuffles() : bytes() {
        for (unsigned int bits = 0; bits < 256; ++bits) {
            unsigned int to = 0;
            for (unsigned int lane = 0; lane < 8; ++lane) {
                if ((bits >> lane & 1U) != 0) {
                    bytes[bits][to++] = static_cast<unsigned char>(2 * lane);
                    bytes[bits][to++] = static_cast<unsigned char>(2 * lane + 1);
                }
            }
            for (; to < 16; ++to) {
                bytes[bits][to] = 0x80;
            }
        }
    }
};
constexpr LaneShuffles kLaneShuffles;

// By one bit for each lane of two bytes and more, and above these one for each of three: a byte permutation
// that moves the last one, two or three bytes of four 32-bit lanes to the front.
struct CharacterShuffles {
    alignas(64) unsigned char bytes[256][16];
    constexpr CharacterShuffles() : bytes() {
        for (unsigned int key = 0; key < 256; ++key) {
            unsigned int to = 0;
            for (unsigned int lane = 0; lane < 4; ++lane) {
                const unsigned int length = 1 + (key >> lane & 1U) + (key >> (lane + 4) & 1U);
                for (unsigned int i = 4 - length; i < 4; ++i) {
                    bytes[key][to++] = static_cast<unsigned char>(4 * lane + i);
                }
            }
            for (; to < 16; ++to) {
                bytes[key][to] = 0x80;
            }
        }
    }
};
constexpr CharacterShuffles kCharacterShuffles;

// By eight bits: a byte permutation that moves the first bytes of eight 16-bit lanes to the front, and of the
// lanes whose bits are set the second ones as well.
struct ShortShuffles {
    alignas(64) unsigned char bytes[256][16];
    constexpr ShortShuffles() : bytes() {
        for (unsigned int bits = 0; bits < 256; ++bits) {
            unsigned int to = 0;
            for (unsigned int lane = 0; lane < 8; ++lane) {
                bytes[bits][to++] = static_cast<unsigned char>(2 * lane);
                if ((bits >> lane & 1U) != 0) {
                    bytes[bits][to++] = static_cast<unsigned char>(2 * lane + 1);
                }
            }
            for (; to < 16; ++to) {
                bytes[bits][to] = 0x80;
            }
        }
    }
};
constexpr ShortShuffles kShortShuffles;

// From kFirstLanes + 8 - n: a mask of the first n of eight lanes.
constexpr std::int32_t kFirstLanes[16] = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};

// ---- Small steps ------------------------------------------------------------------------------------------

BRIM_AVX2 inline __m128i load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
BRIM_AVX2 inline __m256i load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
BRIM_AVX2 inline void store16(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
BRIM_AVX2 inline void store32(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
BRIM_AVX2 inline __m256i bytes(int value) { return _mm256_set1_epi8(static_cast<char>(value)); }
BRIM_AVX2 inline __m256i words(unsigned int value) { return _mm256_set1_epi32(static_cast<int>(value)); }
BRIM_AVX2 inline unsigned int countBits(std::uint32_t bits) {
    return static_cast<unsigned int>(_mm_popcnt_u32(bits));
}

// The top bits of 32 bytes.
BRIM_AVX2 inline std::uint32_t byteMask(__m256i v) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(v));
}

// The bytes of `block` that are not ASCII and from `limit` on.
BRIM_AVX2 inline std::uint32_t from(int limit, __m256i block, std::uint32_t nonAscii) {
    return byteMask(_mm256_cmpgt_epi8(block, bytes(limit - 1))) & nonAscii;
}

// Widens 32 bytes: writes 32 units.
BRIM_AVX2 inline void widen32(__m256i block, wchar_t* dst) {
    const __m128i low = _mm256_castsi256_si128(block);
    const __m128i high = _mm256_extracti128_si256(block, 1);
    store32(dst, _mm256_cvtepu8_epi32(low));
    store32(dst + 8, _mm256_cvtepu8_epi32(_mm_unpackhi_epi64(low, low)));
    store32(dst + 16, _mm256_cvtepu8_epi32(high));
    store32(dst + 24, _mm256_cvtepu8_epi32(_mm_unpackhi_epi64(high, high)));
}
BRIM_AVX2 inline void widen16(__m128i block, wchar_t* dst) {
    store32(dst, _mm256_cvtepu8_epi32(block));
    store32(dst + 8, _mm256_cvtepu8_epi32(_mm_unpackhi_epi64(block, block)));
}

// ---- The decoder ------------------------------------------------------------------------------------------

// What a block leaves to the next one: the continuation bytes that its leads announce there, the third bytes
// of its sequences of four, and whether any such sequence reaches there.
struct Carried {
    std::uint64_t expected = 0;
    std::uint64_t thirds = 0;
    bool pairs = false;
};

// What a block holds, one bit a byte; the bits from 32 on lie in the next one.
struct Sequences {
    std::uint64_t expected; // continuation bytes, by their leads
    std::uint64_t thirds;   // third bytes of sequences of four
    std::uint32_t wrong;    // where the rules must be asked
    std::uint32_t pairLeads;

    Carried carried() const { return {expected >> 32, thirds >> 32, pairLeads >> 29 != 0}; }
};

// The bytes `kDistance` places before those of `block`.
template <int kDistance>
BRIM_AVX2 inline __m256i behind(__m256i block, __m256i before) {
    return _mm256_alignr_epi8(block, _mm256_permute2x128_si256(before, block, 0x21), 16 - kDistance);
}

// `one` holds the bytes one place before those of `block`.
BRIM_AVX2 inline Sequences classify(__m256i block, __m256i one, std::uint32_t nonAscii,
                                    const Carried& before) {
    const std::uint32_t leads = from(0xC0, block, nonAscii);
    const std::uint32_t longLeads = from(0xE0, block, nonAscii);
    Sequences s{before.expected | std::uint64_t{leads} << 1 | std::uint64_t{longLeads} << 2, before.thirds,
                leads & ~from(0xC2, block, nonAscii), 0};
    if ((longLeads | (before.expected & 2U)) != 0) {
        const __m256i e0 = _mm256_cmpeq_epi8(one, bytes(0xE0));
        s.wrong |= byteMask(_mm256_and_si256(e0, _mm256_cmpgt_epi8(bytes(0xA0), block)));
        s.pairLeads = from(0xF0, block, nonAscii);
        if (s.pairLeads != 0 || before.pairs) {
            s.expected |= std::uint64_t{s.pairLeads} << 3;
            s.thirds |= std::uint64_t{s.pairLeads} << 2;
            const __m256i f0 = _mm256_cmpeq_epi8(one, bytes(0xF0));
            const __m256i f4 = _mm256_cmpeq_epi8(one, bytes(0xF4));
            const __m256i below90 = _mm256_cmpgt_epi8(bytes(0x90), block);
            s.wrong |=
                byteMask(_mm256_or_si256(_mm256_and_si256(f0, below90), _mm256_andnot_si256(below90, f4)));
            s.wrong |= from(0xF5, block, nonAscii);
        }
    }
    s.wrong |= (nonAscii & ~leads) ^ static_cast<std::uint32_t>(s.expected);
    return s;
}

// The units of a block, 16 bits each, were every byte the last of a character (or the third of four).
struct Units {
    __m256i low;  // bytes 0 to 7 and 16 to 23
    __m256i high; // bytes 8 to 15 and 24 to 31
};

template <bool kPairs>
BRIM_AVX2 inline Units unitsOf(__m256i block, __m256i one, __m256i before) {
    const __m256i two = behind<2>(block, before);
    const __m256i isLong = _mm256_cmpeq_epi8(_mm256_max_epu8(two, bytes(0xE0)), two);
    const __m256i lowBits = _mm256_or_si256(_mm256_and_si256(block, bytes(0x3F)),
                                            _mm256_and_si256(_mm256_slli_epi16(one, 6), bytes(0xC0)));
    __m256i low = _mm256_blendv_epi8(block, lowBits, block);
    __m256i high = _mm256_and_si256(_mm256_srli_epi16(one, 2), bytes(0x0F));
    const __m256i topBits = _mm256_and_si256(_mm256_slli_epi16(two, 4), bytes(0xF0));
    high = _mm256_or_si256(high, _mm256_and_si256(topBits, isLong));
    high = _mm256_and_si256(high, _mm256_cmpgt_epi8(_mm256_setzero_si256(), block));
    if constexpr (!kPairs) {
        return {_mm256_unpacklo_epi8(low, high), _mm256_unpackhi_epi8(low, high)};
    }
    const __m256i three = behind<3>(block, before);
    const __m256i isLast = _mm256_cmpeq_epi8(_mm256_max_epu8(three, bytes(0xF0)), three);
    high =
        _mm256_blendv_epi8(high, _mm256_or_si256(_mm256_and_si256(high, bytes(0x03)), bytes(0xDC)), isLast);
    const __m256i isThird = _mm256_cmpeq_epi8(_mm256_max_epu8(two, bytes(0xF0)), two);
    const __m256i thirdLow = _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi16(one, 2), bytes(0xFC)),
                                             _mm256_and_si256(_mm256_srli_epi16(block, 4), bytes(0x03)));
    low = _mm256_blendv_epi8(low, thirdLow, isThird);
    high = _mm256_blendv_epi8(high, _mm256_and_si256(two, bytes(0x07)), isThird);
    // 0xD800 less the 0x10000 >> 10 that a pair leaves out.
    const __m256i moreLow = _mm256_and_si256(isThird, bytes(0xC0));
    const __m256i moreHigh = _mm256_and_si256(isThird, bytes(0xD7));
    return {_mm256_add_epi16(_mm256_unpacklo_epi8(low, high), _mm256_unpacklo_epi8(moreLow, moreHigh)),
            _mm256_add_epi16(_mm256_unpackhi_epi8(low, high), _mm256_unpackhi_epi8(moreLow, moreHigh))};
}

// Moves the units of the bits of `kept`, those of eight bytes, to the front: writes eight units.
BRIM_AVX2 inline wchar_t* emit8(__m128i units, std::uint32_t kept, wchar_t* dst) {
    const __m128i shuffle = load16(kLaneShuffles.bytes[kept & 0xFFU]);
    store32(dst, _mm256_cvtepu16_epi32(_mm_shuffle_epi8(units, shuffle)));
    return dst + countBits(kept & 0xFFU);
}
// As emit8(), but writes exactly those that are kept.
BRIM_AVX2 inline wchar_t* emitUpTo8(__m128i units, std::uint32_t kept, wchar_t* dst) {
    const __m128i shuffle = load16(kLaneShuffles.bytes[kept & 0xFFU]);
    const unsigned int count = countBits(kept & 0xFFU);
    _mm256_maskstore_epi32(reinterpret_cast<int*>(dst), load32(kFirstLanes + 8 - count),
                           _mm256_cvtepu16_epi32(_mm_shuffle_epi8(units, shuffle)));
    return dst + count;
}

// Each byte gives a unit at most, so the eight units that are written for eight bytes never reach beyond
// the room of these.
template <bool kPairs>
BRIM_AVX2 inline wchar_t* emit32(__m256i block, __m256i one, __m256i before, std::uint32_t kept,
                                 wchar_t* dst) {
    const Units units = unitsOf<kPairs>(block, one, before);
    dst = emit8(_mm256_castsi256_si128(units.low), kept, dst);
    dst = emit8(_mm256_castsi256_si128(units.high), kept >> 8, dst);
    dst = emit8(_mm256_extracti128_si256(units.low, 1), kept >> 16, dst);
    return emit8(_mm256_extracti128_si256(units.high, 1), kept >> 24, dst);
}

template <class T>
inline std::uint64_t loadAs(const char* src) {
    T value;
    std::memcpy(&value, src, sizeof(value));
    return value;
}

// `length` bytes, 1 to 31, followed by zeros; reads nothing beyond them.
BRIM_AVX2 inline __m256i loadPart(const char* src, std::size_t length) {
    const std::size_t rest = length & 15U;
    const char* const part = src + (length & 16U);
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    if (rest >= 8) { // two loads that overlap, each of a fixed length
        low = loadAs<std::uint64_t>(part);
        high = rest == 8 ? 0 : loadAs<std::uint64_t>(part + rest - 8) >> (8 * (16 - rest));
    } else if (rest >= 4) {
        low = loadAs<std::uint32_t>(part) | loadAs<std::uint32_t>(part + rest - 4) << (8 * (rest - 4));
    } else if (rest >= 2) {
        low = loadAs<std::uint16_t>(part) | loadAs<std::uint16_t>(part + rest - 2) << (8 * (rest - 2));
    } else if (rest == 1) {
        low = loadAs<unsigned char>(part);
    }
    const __m128i bits = _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
    return length < 16 ? _mm256_zextsi128_si256(bits)
                       : _mm256_inserti128_si256(_mm256_castsi128_si256(load16(src)), bits, 1);
}

// As emit32() for `length` bytes, but writes exactly the units that are kept.
template <bool kPairs>
BRIM_AVX2 inline wchar_t* emitPart(__m256i block, __m256i one, __m256i before, std::uint32_t kept,
                                   unsigned int length, wchar_t* dst) {
    const Units units = unitsOf<kPairs>(block, one, before);
    dst = emitUpTo8(_mm256_castsi256_si128(units.low), kept, dst);
    if (length > 8) {
        dst = emitUpTo8(_mm256_castsi256_si128(units.high), kept >> 8, dst);
    }
    if (length > 16) {
        dst = emitUpTo8(_mm256_extracti128_si256(units.low, 1), kept >> 16, dst);
        dst = emitUpTo8(_mm256_extracti128_si256(units.high, 1), kept >> 24, dst);
    }
    return dst;
}

// Decodes from the start of a character until the end or the first place where the rules must be asked, and
// stops at the start of the character there.
BRIM_AVX2 inline DecodeProgress decodeRight(const char* src, const char* end, wchar_t* dst) {
    DecodeProgress at{src, dst};
    __m256i before = _mm256_setzero_si256();
    Carried carried;
    while (end - at.src >= 32) {
        const __m256i block = load32(at.src);
        const std::uint32_t nonAscii = byteMask(block);
        if (nonAscii == 0 && carried.expected == 0) {
            widen32(block, at.dst);
            at.src += 32;
            at.dst += 32;
            before = block;
            continue;
        }
        const __m256i one = behind<1>(block, before);
        const Sequences s = classify(block, one, nonAscii, carried);
        // A byte ends its character when no other is expected after it.
        auto kept = static_cast<std::uint32_t>(~(s.expected >> 1) | s.thirds);
        unsigned int length = 32;
        if (s.wrong != 0) {
            length = _tzcnt_u32(s.wrong);
            kept = _bzhi_u32(kept, length);
        }
        at.dst = s.pairLeads != 0 || carried.pairs ? emit32<true>(block, one, before, kept, at.dst)
                                                   : emit32<false>(block, one, before, kept, at.dst);
        at.src += length;
        if (s.wrong != 0) {
            return (s.expected >> length & 1U) != 0 ? takeBack(at) : at;
        }
        carried = s.carried();
        before = block;
    }
    if (carried.expected == 0 && end - at.src >= 16 && _mm_movemask_epi8(load16(at.src)) == 0) {
        widen16(load16(at.src), at.dst);
        at.src += 16;
        at.dst += 16;
        before = _mm256_setzero_si256();
    }
    std::uint64_t expected = carried.expected;
    if (at.src != end) {
        auto length = static_cast<unsigned int>(end - at.src);
        const __m256i block = loadPart(at.src, length);
        const __m256i one = behind<1>(block, before);
        const Sequences s = classify(block, one, byteMask(block), carried);
        const std::uint32_t wrong = _bzhi_u32(s.wrong, length);
        length = wrong != 0 ? _tzcnt_u32(wrong) : length;
        const auto kept = static_cast<std::uint32_t>(~(s.expected >> 1) | s.thirds);
        const std::uint32_t keptPart = _bzhi_u32(kept, length);
        at.dst = s.pairLeads != 0 || carried.pairs
                     ? emitPart<true>(block, one, before, keptPart, length, at.dst)
                     : emitPart<false>(block, one, before, keptPart, length, at.dst);
        at.src += length;
        expected = s.expected >> length;
    }
    return (expected & 1U) != 0 ? takeBack(at) : at;
}

} // namespace

BRIM_AVX2 DecodeProgress decodeUtf8Avx2(const char* src, const char* end, wchar_t* dst) noexcept {
    DecodeProgress at{src, dst};
    while (at.src != end) {
        const char* const start = at.src;
        at = decodeRight(at.src, end, at.dst);
        if (at.src == end || !decodeDamage(at, start, end)) {
            break;
        }
    }
    return at;
}

namespace {

// ---- The encoder ------------------------------------------------------------------------------------------

// Eight units: for each its bytes at the end of its lane, whether it has two bytes and more, and whether it
// has three.
struct Characters {
    __m256i lanes;
    __m256i isTwo;
    __m256i isThree;
};

BRIM_AVX2 inline Characters charactersOf(__m256i units) {
    const __m256i isTwo = _mm256_cmpgt_epi32(units, words(0x7F));
    const __m256i isThree = _mm256_cmpgt_epi32(units, words(0x7FF));
    const __m256i last = _mm256_slli_epi32(units, 24);
    __m256i lanes = _mm256_and_si256(last, words(0x3F000000));
    lanes = _mm256_or_si256(lanes, _mm256_and_si256(_mm256_slli_epi32(units, 10), words(0x003F0000)));
    lanes = _mm256_or_si256(lanes, _mm256_and_si256(_mm256_srli_epi32(units, 4), words(0x00000F00)));
    lanes = _mm256_or_si256(
        lanes, _mm256_xor_si256(words(0x80C00000), _mm256_and_si256(isThree, words(0x0040E000))));
    return {_mm256_blendv_epi8(last, lanes, isTwo), isTwo, isThree};
}

// As charactersOf() for units among which surrogates are; looks at the units before and after them. One that
// stands alone is right as it is. Of a pair each half gives two bytes: the high one those of its upper eight
// bits (0x40 more: 0x10000 >> 10) under another mark, the low one its own with two bits of the high one.
BRIM_AVX2 inline Characters charactersWithPairs(const wchar_t* src, __m256i units) {
    const __m256i kinds = words(0xFFFFFC00);
    const __m256i high = words(kFirstHighSurrogate);
    const __m256i low = words(kFirstLowSurrogate);
    const __m256i previous = load32(src - 1);
    const __m256i kind = _mm256_and_si256(units, kinds);
    const __m256i pairHighs = _mm256_and_si256(
        _mm256_cmpeq_epi32(kind, high), _mm256_cmpeq_epi32(_mm256_and_si256(load32(src + 1), kinds), low));
    const __m256i pairLows = _mm256_and_si256(_mm256_cmpeq_epi32(kind, low),
                                              _mm256_cmpeq_epi32(_mm256_and_si256(previous, kinds), high));
    const __m256i value = _mm256_add_epi32(_mm256_and_si256(units, words(0x3FF)), words(0x40));
    Characters characters = charactersOf(units);
    const __m256i upperLanes =
        _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(value, 22), words(0x3F000000)),
                                        _mm256_and_si256(_mm256_slli_epi32(value, 8), words(0x00070000))),
                        words(0x80F00000));
    characters.lanes = _mm256_blendv_epi8(characters.lanes, upperLanes, pairHighs);
    const __m256i cleared = _mm256_andnot_si256(_mm256_slli_epi32(previous, 20), words(0x00300000));
    characters.lanes = _mm256_andnot_si256(_mm256_and_si256(cleared, pairLows), characters.lanes);
    characters.isThree = _mm256_andnot_si256(_mm256_or_si256(pairHighs, pairLows), characters.isThree);
    return characters;
}

// Writes 16 bytes for four units, which take twelve at most.
BRIM_AVX2 inline char* emit4(__m128i lanes, std::uint32_t key, char* dst) {
    store16(dst, _mm_shuffle_epi8(lanes, load16(kCharacterShuffles.bytes[key])));
    return dst + 4 + countBits(key);
}
BRIM_AVX2 inline char* emit8(const Characters& characters, char* dst) {
    // Packed, the lanes of each half of the register are the key of its shuffle.
    const __m256i keys = _mm256_packs_epi32(characters.isTwo, characters.isThree);
    const std::uint32_t bits = byteMask(_mm256_packs_epi16(keys, keys));
    dst = emit4(_mm256_castsi256_si128(characters.lanes), bits & 0xFFU, dst);
    return emit4(_mm256_extracti128_si256(characters.lanes, 1), bits >> 24, dst);
}

// Sixteen units, those of each half of `packed` in order of the halves of the source, as 16-bit lanes.
BRIM_AVX2 inline __m256i pack16(__m256i first, __m256i second) {
    return _mm256_permute4x64_epi64(_mm256_packus_epi32(first, second), 0xD8);
}

// Sixteen units below 0x800: writes at most 32 bytes.
BRIM_AVX2 inline char* encodeUpToTwoBytes(__m256i units, char* dst) {
    const __m256i isTwo = _mm256_cmpgt_epi16(units, _mm256_set1_epi16(0x7F));
    const __m256i last = _mm256_slli_epi16(_mm256_and_si256(units, _mm256_set1_epi16(0x3F)), 8);
    const __m256i both = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(units, 6), last),
                                         _mm256_set1_epi16(static_cast<short>(0x80C0)));
    const __m256i lanes = _mm256_blendv_epi8(units, both, isTwo);
    const auto two = static_cast<std::uint32_t>(_mm_movemask_epi8(
        _mm_packs_epi16(_mm256_castsi256_si128(isTwo), _mm256_extracti128_si256(isTwo, 1))));
    store16(dst, _mm_shuffle_epi8(_mm256_castsi256_si128(lanes), load16(kShortShuffles.bytes[two & 0xFFU])));
    dst += 8 + countBits(two & 0xFFU);
    store16(dst,
            _mm_shuffle_epi8(_mm256_extracti128_si256(lanes, 1), load16(kShortShuffles.bytes[two >> 8])));
    return dst + 8 + countBits(two >> 8);
}

// 32 units a step, as long as they are ASCII.
BRIM_AVX2 inline EncodeProgress encodeAscii(EncodeProgress at, const wchar_t* end) {
    for (; end - at.src >= 32; at.src += 32, at.dst += 32) {
        const __m256i a = load32(at.src);
        const __m256i b = load32(at.src + 8);
        const __m256i c = load32(at.src + 16);
        const __m256i d = load32(at.src + 24);
        const __m256i all = _mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d));
        if (_mm256_testz_si256(all, words(~0x7FU)) == 0) {
            break;
        }
        // The packs take from both halves of the registers in turn.
        const __m256i packed = _mm256_packus_epi16(_mm256_packus_epi32(a, b), _mm256_packus_epi32(c, d));
        store32(at.dst, _mm256_permutevar8x32_epi32(packed, _mm256_set_epi32(7, 3, 6, 2, 5, 1, 4, 0)));
    }
    return at;
}

} // namespace

// Blocks write at most four bytes beyond the room of their units and look at the unit after them: they end
// ten units before the end.
BRIM_AVX2 EncodeProgress encodeUtf8Avx2(const wchar_t* src, const wchar_t* end, char* dst) noexcept {
    EncodeProgress at{src, dst};
    while (end - at.src >= 10) {
        at = encodeAscii(at, end);
        if (end - at.src < 10) {
            break;
        }
        int blocks = 1;
        if (end - at.src >= 16) {
            const __m256i first = load32(at.src);
            const __m256i second = load32(at.src + 8);
            const __m256i all = _mm256_or_si256(first, second);
            if (_mm256_testz_si256(all, words(~0x7FU)) != 0) {
                const __m256i units = pack16(first, second);
                store16(at.dst,
                        _mm_packus_epi16(_mm256_castsi256_si128(units), _mm256_extracti128_si256(units, 1)));
                at.src += 16;
                at.dst += 16;
                continue;
            }
            if (_mm256_testz_si256(all, words(~0x7FFU)) != 0) {
                at.dst = encodeUpToTwoBytes(pack16(first, second), at.dst);
                at.src += 16;
                continue;
            }
            blocks = end - at.src >= 34 ? 4 : 1;
        }
        bool tooBig = false;
        for (; blocks != 0; --blocks) {
            const __m256i units = load32(at.src);
            tooBig = _mm256_testz_si256(units, words(~0xFFFFU)) == 0;
            if (tooBig) {
                break;
            }
            const __m256i surrogates =
                _mm256_cmpeq_epi32(_mm256_and_si256(units, words(0xF800)), words(0xD800));
            if (_mm256_testz_si256(surrogates, surrogates) != 0) {
                at.dst = emit8(charactersOf(units), at.dst);
            } else if (at.src != src) {
                at.dst = emit8(charactersWithPairs(at.src, units), at.dst);
            } else { // there is no unit before
                encodeByRule(at, at.src + 1, end);
                break;
            }
            at.src += 8;
        }
        if (tooBig) {
            break;
        }
    }
    if (at.src != src && at.src != end && isHighSurrogate(static_cast<char32_t>(at.src[-1])) &&
        isLowSurrogate(static_cast<char32_t>(*at.src))) { // back to the start of the pair
        --at.src;
        at.dst -= 2;
    }
    encodeByRule(at, end, end);
    return at;
}

// ---- The exact size ---------------------------------------------------------------------------------------

BRIM_AVX2 std::size_t exactUtf8SizeAvx2(const wchar_t* src, std::size_t srcLen) noexcept {
    constexpr std::ptrdiff_t kBlock = 32;
    const wchar_t* const end = src + srcLen;
    std::size_t size = 0;
    while (end - src >= kBlock) {
        __m256i all = _mm256_setzero_si256();
        __m256i surrogates = all;
        __m256i more = all; // minus the bytes beyond one a unit, by lane
        for (std::ptrdiff_t i = 0; i < kBlock; i += 8) {
            const __m256i units = load32(src + i);
            all = _mm256_or_si256(all, units);
            surrogates = _mm256_or_si256(
                surrogates, _mm256_cmpeq_epi32(_mm256_and_si256(units, words(0xF800)), words(0xD800)));
            more = _mm256_add_epi32(more, _mm256_cmpgt_epi32(units, words(0x7F)));
            more = _mm256_add_epi32(more, _mm256_cmpgt_epi32(units, words(0x7FF)));
        }
        if (_mm256_testz_si256(all, words(~0xFFFFU)) == 0 ||
            _mm256_testz_si256(surrogates, surrogates) == 0) {
            size += countByRule(src, src + 16, end);
            continue;
        }
        __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(more), _mm256_extracti128_si256(more, 1));
        sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0x4E));
        sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, 0xB1));
        size += static_cast<std::size_t>(kBlock - _mm_cvtsi128_si32(sum));
        src += kBlock;
    }
    return size + countByRule(src, end, end);
}

// ---- Well-formed text -------------------------------------------------------------------------------------

BRIM_AVX2 std::size_t wellFormedUtf8Avx2(const char* src, std::size_t length) noexcept {
    const char* const end = src + length;
    const char* at = src;
    __m256i before = _mm256_setzero_si256();
    Carried carried;
    for (; end - at >= 32; at += 32) {
        const __m256i block = load32(at);
        const std::uint32_t nonAscii = byteMask(block);
        if (nonAscii != 0 || carried.expected != 0) {
            const __m256i one = behind<1>(block, before);
            const Sequences s = classify(block, one, nonAscii, carried);
            const __m256i surrogates = // signed comparisons: continuation bytes are below ASCII
                _mm256_and_si256(_mm256_cmpeq_epi8(one, bytes(0xED)), _mm256_cmpgt_epi8(block, bytes(0x9F)));
            if ((s.wrong | (byteMask(surrogates) & nonAscii)) != 0) {
                break;
            }
            carried = s.carried();
        }
        before = block;
    }
    return static_cast<std::size_t>(skipWellFormed(carried.expected != 0 ? startBefore(at) : at, end) - src);
}

} // namespace sup::kernels
