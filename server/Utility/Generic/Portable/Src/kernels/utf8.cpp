#include "kernels/utf8.h"

#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace sup::kernels {

namespace {

// A decoder block is 64 bytes, one bit of a 64-bit mask each. The loops below read up to 16 bytes from any
// byte of it, so kReadAhead bytes must be there.
constexpr std::ptrdiff_t kBlock = 64;
constexpr std::ptrdiff_t kReadAhead = kBlock + 16;

__m128i load16(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
void store16(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// Widens 16 bytes: reads 16 bytes, writes 16 units.
void widen16(const char* src, wchar_t* dst) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bytes = load16(src);
    const __m128i low = _mm_unpacklo_epi8(bytes, zero);
    const __m128i high = _mm_unpackhi_epi8(bytes, zero);
    store16(dst, _mm_unpacklo_epi16(low, zero));
    store16(dst + 4, _mm_unpackhi_epi16(low, zero));
    store16(dst + 8, _mm_unpacklo_epi16(high, zero));
    store16(dst + 12, _mm_unpackhi_epi16(high, zero));
}

// One bit for each byte of a block: the top bit of what `test` makes of it.
template <class Test>
std::uint64_t maskOf(const char* block, Test test) {
    std::uint64_t mask = 0;
    for (unsigned int i = 0; i < 4; ++i) {
        const auto bits = static_cast<unsigned int>(_mm_movemask_epi8(test(load16(block + 16 * i))));
        mask |= static_cast<std::uint64_t>(bits) << (16 * i);
    }
    return mask;
}

// Signed comparisons of bytes: 0x80..0xFF are -128..-1.
std::uint64_t maskBelow(const char* block, unsigned char limit) {
    const __m128i limits = _mm_set1_epi8(static_cast<char>(limit));
    return maskOf(block, [limits](__m128i bytes) { return _mm_cmplt_epi8(bytes, limits); });
}
std::uint64_t maskEqual(const char* block, unsigned char mask, unsigned char value) {
    const __m128i masks = _mm_set1_epi8(static_cast<char>(mask));
    const __m128i values = _mm_set1_epi8(static_cast<char>(value));
    return maskOf(block, [=](__m128i bytes) { return _mm_cmpeq_epi8(_mm_and_si128(bytes, masks), values); });
}

unsigned int firstBit(std::uint64_t mask) { return static_cast<unsigned int>(__builtin_ctzll(mask)); }

// Few characters beyond ASCII (or a block that needs care): copies the ASCII runs between them 16 bytes at a
// step and decodes each by the rule. `nonAscii` has a bit for every byte from 0x80 on.
DecodeProgress decodeByRuns(const char* block, std::uint64_t nonAscii, const char* end, wchar_t* dst) {
    const char* src = block;
    for (;;) {
        const auto done = static_cast<unsigned int>(src - block);
        const std::uint64_t rest = nonAscii >> done;
        const unsigned int run = rest == 0 ? static_cast<unsigned int>(kBlock) - done : firstBit(rest);
        for (unsigned int i = 0; i < run; i += 16) {
            widen16(src + i, dst + i);
        }
        src += run;
        dst += run;
        if (src == block + kBlock) {
            return {src, dst};
        }
        do {
            const DecodedSequence sequence = decodeSequence(src, end);
            dst = writeUnits(sequence.value, dst);
            src += sequence.consumed;
        } while (src < block + kBlock && (nonAscii >> (src - block) & 1U) != 0);
        if (src >= block + kBlock) {
            return {src, dst};
        }
    }
}

// By the upper half of the lead byte: the bits of the lead that carry payload, and how far a four-byte value
// is shifted down to give the character of a shorter one.
constexpr unsigned char kLeadMask[16] = {0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F,
                                         0,    0,    0,    0,    0x1F, 0x1F, 0x0F, 0x07};
constexpr unsigned char kShift[16] = {18, 18, 18, 18, 18, 18, 18, 18, 0, 0, 0, 0, 12, 12, 6, 0};

// Decodes the characters of a block of well-formed sequences whose first bytes are the bits of `starts`,
// without a branch on what they are: the only branch is the loop's.
template <std::size_t kLongest>
wchar_t* decodeStarts(const char* block, std::uint64_t starts, wchar_t* dst) {
    for (; starts != 0; starts &= starts - 1) {
        const auto* const p = reinterpret_cast<const unsigned char*>(block) + firstBit(starts);
        const std::uint32_t lead = p[0];
        if constexpr (kLongest == 2) {
            const std::uint32_t two = (lead & 0x1FU) << 6 | (p[1] & 0x3FU);
            const std::uint32_t isTwo = 0U - (lead >> 7);
            *dst++ = static_cast<wchar_t>(lead ^ ((lead ^ two) & isTwo));
        } else if constexpr (kLongest == 3) {
            const std::uint32_t all =
                (lead & kLeadMask[lead >> 4]) << 12 | (p[1] & 0x3FU) << 6 | (p[2] & 0x3FU);
            *dst++ = static_cast<wchar_t>(all >> (kShift[lead >> 4] - 6U));
        } else {
            const std::uint32_t all = (lead & kLeadMask[lead >> 4]) << 18 | (p[1] & 0x3FU) << 12 |
                                      (p[2] & 0x3FU) << 6 | (p[3] & 0x3FU);
            const std::uint32_t value = all >> kShift[lead >> 4];
            const std::uint32_t isPair = lead >= 0xF0 ? 1 : 0;
            const std::uint32_t high =
                static_cast<std::uint32_t>(kFirstHighSurrogate) + ((value - 0x10000U) >> 10);
            dst[0] = static_cast<wchar_t>(value ^ ((value ^ high) & (0U - isPair)));
            // Overwritten by the next character when this one is no pair.
            dst[1] = static_cast<wchar_t>(static_cast<std::uint32_t>(kFirstLowSurrogate) + (value & 0x3FFU));
            dst += 1 + isPair;
        }
    }
    return dst;
}

// Below this many bytes beyond ASCII in a block, runs are faster.
constexpr unsigned int kFewBytes = 10;

unsigned int countBits(std::uint64_t mask) {
    mask -= mask >> 1 & 0x5555555555555555U;
    mask = (mask & 0x3333333333333333U) + (mask >> 2 & 0x3333333333333333U);
    mask = (mask + (mask >> 4)) & 0x0F0F0F0F0F0F0F0FU;
    return static_cast<unsigned int>(mask * 0x0101010101010101U >> 56);
}

// Decodes at least 61 bytes from `block`, which has kReadAhead bytes; `dst` has room for a unit a byte. A
// block goes the fast way only when all its sequences are well formed but for encoded surrogates, so every
// rule gives the same; everything else is left to the rule, character by character.
DecodeProgress decodeBlock(const char* block, const char* end, wchar_t* dst) {
    const std::uint64_t nonAscii = maskOf(block, [](__m128i bytes) { return bytes; });
    if (countBits(nonAscii) < kFewBytes) {
        return decodeByRuns(block, nonAscii, end, dst);
    }
    const std::uint64_t continuations = maskBelow(block, 0xC0);
    const std::uint64_t leads = nonAscii & ~continuations;
    const std::uint64_t longLeads = nonAscii & ~maskBelow(block, 0xE0);
    const std::uint64_t pairLeads = nonAscii & ~maskBelow(block, 0xF0);
    std::uint64_t suspicious = continuations ^ (leads << 1 | longLeads << 2 | pairLeads << 3);
    suspicious |= maskEqual(block, 0xFE, 0xC0);
    if (longLeads != 0) {
        suspicious |= maskEqual(block, 0xFF, 0xE0) << 1 & maskBelow(block, 0xA0);
    }
    if (pairLeads != 0) {
        const std::uint64_t below90 = maskBelow(block, 0x90);
        suspicious |= maskEqual(block, 0xFF, 0xF0) << 1 & below90;
        suspicious |= maskEqual(block, 0xFF, 0xF4) << 1 & ~below90;
        suspicious |= nonAscii & ~maskBelow(block, 0xF5);
    }
    if (suspicious != 0) {
        return decodeByRuns(block, nonAscii, end, dst);
    }
    // A character that reaches beyond the block is left for the next one.
    const std::uint64_t reaching = (leads & std::uint64_t{1} << 63) | (longLeads & std::uint64_t{3} << 62) |
                                   (pairLeads & std::uint64_t{7} << 61);
    const unsigned int consumed = reaching == 0 ? static_cast<unsigned int>(kBlock) : firstBit(reaching);
    const std::uint64_t starts =
        ~continuations & (reaching == 0 ? ~std::uint64_t{0} : (reaching & -reaching) - 1);
    dst = pairLeads != 0   ? decodeStarts<4>(block, starts, dst)
          : longLeads != 0 ? decodeStarts<3>(block, starts, dst)
                           : decodeStarts<2>(block, starts, dst);
    return {block + consumed, dst};
}

// An encoder block is 16 units; the branch-free loops write up to two bytes past the last character, so one
// unit more must follow.
constexpr std::ptrdiff_t kEncoderBlock = 16;

char* encodeUpToTwoBytes(const wchar_t* src, char* dst) {
    for (std::ptrdiff_t i = 0; i < kEncoderBlock; ++i) {
        const auto c = static_cast<std::uint32_t>(src[i]);
        const std::uint32_t two = 0x80C0U | c >> 6 | (c & 0x3FU) << 8;
        const std::uint32_t isTwo = c >= 0x80 ? 1 : 0;
        const auto bytes = static_cast<std::uint16_t>(c ^ ((c ^ two) & (0U - isTwo)));
        std::memcpy(dst, &bytes, sizeof(bytes));
        dst += 1 + isTwo;
    }
    return dst;
}

char* encodeUpToThreeBytes(const wchar_t* src, char* dst) {
    for (std::ptrdiff_t i = 0; i < kEncoderBlock; ++i) {
        const auto c = static_cast<std::uint32_t>(src[i]);
        const std::uint32_t two = 0x80C0U | c >> 6 | (c & 0x3FU) << 8;
        const std::uint32_t three = 0x8080E0U | c >> 12 | (c >> 6 & 0x3FU) << 8 | (c & 0x3FU) << 16;
        const std::uint32_t isTwo = c >= 0x80 ? 1 : 0;
        const std::uint32_t isThree = c >= 0x800 ? 1 : 0;
        std::uint32_t bytes = c ^ ((c ^ two) & (0U - isTwo));
        bytes ^= (bytes ^ three) & (0U - isThree);
        std::memcpy(dst, &bytes, sizeof(bytes));
        dst += 1 + isTwo + isThree;
    }
    return dst;
}

bool anyBits(__m128i value, int bits) {
    const __m128i none = _mm_cmpeq_epi32(_mm_and_si128(value, _mm_set1_epi32(bits)), _mm_setzero_si128());
    return _mm_movemask_epi8(none) != 0xFFFF;
}

__m128i surrogateLanes(__m128i units) {
    return _mm_cmpeq_epi32(_mm_and_si128(units, _mm_set1_epi32(~0x7FF)), _mm_set1_epi32(0xD800));
}

// Encodes a block when it has neither surrogates nor units above 0xFFFF; returns null otherwise.
char* encodeBlock(const wchar_t* src, char* dst) {
    const __m128i a = load16(src);
    const __m128i b = load16(src + 4);
    const __m128i c = load16(src + 8);
    const __m128i d = load16(src + 12);
    const __m128i all = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
    if (!anyBits(all, ~0x7F)) {
        store16(dst, _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d)));
        return dst + kEncoderBlock;
    }
    if (!anyBits(all, ~0x7FF)) {
        return encodeUpToTwoBytes(src, dst);
    }
    const __m128i surrogates = _mm_or_si128(_mm_or_si128(surrogateLanes(a), surrogateLanes(b)),
                                            _mm_or_si128(surrogateLanes(c), surrogateLanes(d)));
    if (anyBits(all, ~0xFFFF) || _mm_movemask_epi8(surrogates) != 0) {
        return nullptr;
    }
    return encodeUpToThreeBytes(src, dst);
}

} // namespace

DecodeProgress decodeUtf8(const char* src, const char* end, wchar_t* dst) noexcept {
    DecodeProgress at{src, dst};
    while (end - at.src >= kReadAhead) {
        at = decodeBlock(at.src, end, at.dst);
    }
    while (at.src != end) {
        if (end - at.src >= 16 && _mm_movemask_epi8(load16(at.src)) == 0) {
            widen16(at.src, at.dst);
            at.src += 16;
            at.dst += 16;
            continue;
        }
        const DecodedSequence sequence = decodeSequence(at.src, end);
        if (sequence.consumed == 0) {
            break;
        }
        at.src += sequence.consumed;
        at.dst = writeUnits(sequence.value, at.dst);
    }
    return at;
}

EncodeProgress encodeUtf8(const wchar_t* src, const wchar_t* end, char* dst) noexcept {
    const wchar_t* carefulUntil = src;
    while (src != end) {
        if (src >= carefulUntil && end - src > kEncoderBlock) {
            if (char* const next = encodeBlock(src, dst)) {
                src += kEncoderBlock;
                dst = next;
                continue;
            }
            carefulUntil = src + kEncoderBlock;
        }
        const auto unit = static_cast<char32_t>(*src);
        if (unit >= kFirstSupplementary || (isHighSurrogate(unit) && end - src == 1)) {
            break;
        }
        const EncodedCharacter character = encodeCharacter(src, end);
        std::memcpy(dst, character.bytes, character.length);
        dst += character.length;
        src += character.consumed;
    }
    return {src, dst};
}

std::size_t exactUtf8Size(const wchar_t* src, std::size_t srcLen) noexcept {
    std::size_t size = 0;
    for (std::size_t i = 0; i < srcLen; ++i) {
        const auto c = static_cast<char32_t>(src[i]);
        if (c < 0x80) {
            size += 1;
        } else if (c < 0x800) {
            size += 2;
        } else if (isHighSurrogate(c)) {
            const bool paired = i + 1 < srcLen && isLowSurrogate(static_cast<char32_t>(src[i + 1]));
            size += paired ? 4 : 1;
            i += paired ? 1 : 0;
        } else if (isLowSurrogate(c)) {
            size += c == 0xDFFF ? 3 : 1;
        } else if (c < kFirstSupplementary) {
            size += 3;
        } else {
            size += c <= kLastCodePoint ? 4 : 1;
        }
    }
    return size;
}

} // namespace sup::kernels
