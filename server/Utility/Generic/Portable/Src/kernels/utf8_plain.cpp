// The level that every x86-64 processor has: blocks with SSE2, everything else by the rule.
#include "kernels/utf8_runs.h"
#include "kernels/utf8_wellformed.h"

#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace sup::kernels {

namespace {

// The decoder's blocks are those of the runs.
constexpr std::ptrdiff_t kBlock = kRunsBlock;
constexpr std::ptrdiff_t kReadAhead = kRunsReadAhead;

__m128i load16(const void* p) { return loadBytes16(p); }
void store16(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

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

// By the upper half of the lead byte: the bits of the lead that carry payload, and how far a four-byte value
// is shifted down to give the character of a shorter one.
constexpr unsigned char kLeadMask[16] = {0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F,
                                         0,    0,    0,    0,    0x1F, 0x1F, 0x0F, 0x07};
constexpr unsigned char kShift[16] = {18, 18, 18, 18, 18, 18, 18, 18, 0, 0, 0, 0, 12, 12, 6, 0};

// A mask of ones for 1, of zeros for 0.
std::uint32_t onesIf(std::uint32_t bit) {
    return static_cast<std::uint32_t>(-static_cast<std::int32_t>(bit));
}

// Decodes the characters of a block of well-formed sequences whose first bytes are the bits of `starts`,
// without a branch on what they are: the only branch is the loop's.
template <std::size_t kLongest>
BRIM_WRAPS wchar_t* decodeStarts(const char* block, std::uint64_t starts, wchar_t* dst) {
    for (; starts != 0; starts &= starts - 1) {
        const auto* const p = reinterpret_cast<const unsigned char*>(block) + firstBit(starts);
        const std::uint32_t lead = p[0];
        if constexpr (kLongest == 2) {
            const std::uint32_t two = (lead & 0x1FU) << 6 | (p[1] & 0x3FU);
            const std::uint32_t isTwo = onesIf(lead >> 7);
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
            dst[0] = static_cast<wchar_t>(value ^ ((value ^ high) & onesIf(isPair)));
            // Overwritten by the next character when this one is no pair.
            dst[1] = static_cast<wchar_t>(static_cast<std::uint32_t>(kFirstLowSurrogate) + (value & 0x3FFU));
            dst += 1 + isPair;
        }
    }
    return dst;
}

// Blocks with more places that need care than this go by runs at once.
constexpr unsigned int kManyWrong = 4;

// Decodes at least a character from `block`, which has kReadAhead bytes; `dst` has room for a unit a byte.
// The fast way is for well-formed sequences and encoded surrogates, which every rule decodes alike; it ends
// at the first place that is anything else, and the rule takes one character there.
BRIM_WRAPS DecodeProgress decodeBlock(const char* block, const char* end, wchar_t* dst) {
    const std::uint64_t nonAscii = nonAsciiMask(block);
    if (countMaskBits(nonAscii) < kFewBytes) {
        return decodeByRuns(block, nonAscii, end, dst);
    }
    const std::uint64_t continuations = maskBelow(block, 0xC0);
    const std::uint64_t leads = nonAscii & ~continuations;
    const std::uint64_t longLeads = nonAscii & ~maskBelow(block, 0xE0);
    const std::uint64_t pairLeads = nonAscii & ~maskBelow(block, 0xF0);
    std::uint64_t wrong = continuations ^ (leads << 1 | longLeads << 2 | pairLeads << 3);
    wrong |= maskEqual(block, 0xFE, 0xC0);
    if (longLeads != 0) {
        wrong |= maskEqual(block, 0xFF, 0xE0) << 1 & maskBelow(block, 0xA0);
    }
    if (pairLeads != 0) {
        const std::uint64_t below90 = maskBelow(block, 0x90);
        wrong |= maskEqual(block, 0xFF, 0xF0) << 1 & below90;
        wrong |= maskEqual(block, 0xFF, 0xF4) << 1 & ~below90;
        wrong |= nonAscii & ~maskBelow(block, 0xF5);
    }
    if (wrong != 0 && countMaskBits(wrong) > kManyWrong) {
        return decodeByRuns(block, nonAscii, end, dst);
    }
    const std::uint64_t right = wrong == 0 ? ~std::uint64_t{0} : (wrong & -wrong) - 1;
    // A character that reaches beyond what is right is left where it starts.
    const std::uint64_t last = right ^ right >> 1;
    const std::uint64_t reaching =
        (leads & last) | (longLeads & (last | last >> 1)) | (pairLeads & (last | last >> 1 | last >> 2));
    const std::uint64_t whole = reaching == 0 ? right : (reaching & -reaching) - 1;
    const std::uint64_t starts = ~continuations & whole;
    const unsigned int consumed = ~whole == 0 ? static_cast<unsigned int>(kBlock) : firstBit(~whole);
    dst = pairLeads != 0   ? decodeStarts<4>(block, starts, dst)
          : longLeads != 0 ? decodeStarts<3>(block, starts, dst)
                           : decodeStarts<2>(block, starts, dst);
    DecodeProgress at{block + consumed, dst};
    if (wrong != 0) {
        decodeByRule(at, at.src + 1, end); // kReadAhead: nothing is cut here
    }
    return at;
}

// An encoder block is 16 units, with room for 48 bytes.
constexpr std::ptrdiff_t kEncoderBlock = 16;

// Units below 0x800: writes at most 32 bytes.
char* encodeUpToTwoBytes(const wchar_t* src, char* dst) {
    for (std::ptrdiff_t i = 0; i < kEncoderBlock; ++i) {
        const auto c = static_cast<std::uint32_t>(src[i]);
        const std::uint32_t two = 0x80C0U | c >> 6 | (c & 0x3FU) << 8;
        const std::uint32_t isTwo = c >= 0x80 ? 1 : 0;
        const auto bytes = static_cast<std::uint16_t>(c ^ ((c ^ two) & onesIf(isTwo)));
        std::memcpy(dst, &bytes, sizeof(bytes));
        dst += 1 + isTwo;
    }
    return dst;
}

// The steps write four bytes each, of which three count at most: the last character is written exactly.
char* encodeUpToThreeBytes(const wchar_t* src, char* dst) {
    for (std::ptrdiff_t i = 0; i < kEncoderBlock - 1; ++i) {
        const auto c = static_cast<std::uint32_t>(src[i]);
        const std::uint32_t two = 0x80C0U | c >> 6 | (c & 0x3FU) << 8;
        const std::uint32_t three = 0x8080E0U | c >> 12 | (c >> 6 & 0x3FU) << 8 | (c & 0x3FU) << 16;
        const std::uint32_t isTwo = c >= 0x80 ? 1 : 0;
        const std::uint32_t isThree = c >= 0x800 ? 1 : 0;
        std::uint32_t bytes = c ^ ((c ^ two) & onesIf(isTwo));
        bytes ^= (bytes ^ three) & onesIf(isThree);
        std::memcpy(dst, &bytes, sizeof(bytes));
        dst += 1 + isTwo + isThree;
    }
    const wchar_t* const last = src + kEncoderBlock - 1;
    return writeCharacter(encodeCharacter(last, last + 1), dst);
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

// ---- Well-formed text -------------------------------------------------------------------------------------

// The bytes of complete sequences in the block, which starts with a lead byte; 0 when anything in it is
// malformed. Reads the block only.
unsigned int wellFormedInBlock(const char* block) {
    const std::uint64_t nonAscii = nonAsciiMask(block);
    if (nonAscii == 0) {
        return kBlock;
    }
    const std::uint64_t continuations = maskBelow(block, 0xC0);
    const std::uint64_t leads = nonAscii & ~continuations;
    const std::uint64_t longLeads = nonAscii & ~maskBelow(block, 0xE0);
    const std::uint64_t longestLeads = longLeads == 0 ? 0 : longLeads & ~maskBelow(block, 0xF0);
    std::uint64_t malformed = continuations ^ (leads << 1 | longLeads << 2 | longestLeads << 3);
    malformed |= maskBelow(block, 0xC2) & ~continuations;
    if (longLeads != 0) {
        const std::uint64_t belowA0 = maskBelow(block, 0xA0);
        malformed |= maskEqual(block, 0xFF, 0xE0) << 1 & belowA0;
        malformed |= maskEqual(block, 0xFF, 0xED) << 1 & ~belowA0;
    }
    if (longestLeads != 0) {
        const std::uint64_t below90 = maskBelow(block, 0x90);
        malformed |= maskEqual(block, 0xFF, 0xF0) << 1 & below90;
        malformed |= maskEqual(block, 0xFF, 0xF4) << 1 & ~below90;
        malformed |= nonAscii & ~maskBelow(block, 0xF5);
    }
    if (malformed != 0) {
        return 0;
    }
    // A sequence that reaches beyond the block is left for the next one.
    const std::uint64_t reaching = (leads & std::uint64_t{1} << 63) | (longLeads & std::uint64_t{3} << 62) |
                                   (longestLeads & std::uint64_t{7} << 61);
    return reaching == 0 ? kBlock : static_cast<unsigned int>(__builtin_ctzll(reaching));
}

} // namespace

DecodeProgress decodeUtf8Plain(const char* src, const char* end, wchar_t* dst) noexcept {
    DecodeProgress at{src, dst};
    while (end - at.src >= kReadAhead) {
        at = decodeBlock(at.src, end, at.dst);
    }
    while (end - at.src >= 16) {
        if (_mm_movemask_epi8(load16(at.src)) == 0) {
            widenBytes16(at.src, at.dst);
            at.src += 16;
            at.dst += 16;
        } else {
            decodeByRule(at, at.src + 8, end); // at most 11 bytes: nothing is cut here
        }
    }
    decodeByRule(at, end, end);
    return at;
}

EncodeProgress encodeUtf8Plain(const wchar_t* src, const wchar_t* end, char* dst) noexcept {
    EncodeProgress at{src, dst};
    while (end - at.src >= kEncoderBlock) {
        if (char* const next = encodeBlock(at.src, at.dst)) {
            at.src += kEncoderBlock;
            at.dst = next;
        } else if (!encodeByRule(at, at.src + kEncoderBlock, end)) {
            return at;
        }
    }
    encodeByRule(at, end, end);
    return at;
}

std::size_t exactUtf8SizePlain(const wchar_t* src, std::size_t srcLen) noexcept {
    const wchar_t* const end = src + srcLen;
    std::size_t size = 0;
    while (end - src >= kEncoderBlock) {
        const __m128i two = _mm_set1_epi32(0x7F);
        const __m128i three = _mm_set1_epi32(0x7FF);
        __m128i all = _mm_setzero_si128();
        __m128i surrogates = all;
        __m128i more = all; // minus the bytes beyond one a unit, by lane
        for (std::ptrdiff_t i = 0; i < kEncoderBlock; i += 4) {
            const __m128i units = load16(src + i);
            all = _mm_or_si128(all, units);
            surrogates = _mm_or_si128(surrogates, surrogateLanes(units));
            more = _mm_add_epi32(more, _mm_cmpgt_epi32(units, two));
            more = _mm_add_epi32(more, _mm_cmpgt_epi32(units, three));
        }
        if (anyBits(all, ~0xFFFF) || _mm_movemask_epi8(surrogates) != 0) {
            size += countByRule(src, src + kEncoderBlock, end);
            continue;
        }
        more = _mm_add_epi32(more, _mm_shuffle_epi32(more, 0x4E));
        more = _mm_add_epi32(more, _mm_shuffle_epi32(more, 0xB1));
        size += static_cast<std::size_t>(kEncoderBlock - _mm_cvtsi128_si32(more));
        src += kEncoderBlock;
    }
    return size + countByRule(src, end, end);
}

std::size_t wellFormedUtf8Plain(const char* src, std::size_t length) noexcept {
    const char* const end = src + length;
    const char* at = src;
    while (end - at >= kBlock) {
        const unsigned int good = wellFormedInBlock(at);
        if (good == 0) {
            break;
        }
        at += good;
    }
    return static_cast<std::size_t>(skipWellFormed(at, end) - src);
}

} // namespace sup::kernels
