// What all levels do where the rules must be asked; with nothing but SSE2, which every x86-64 processor has.
#pragma once

#include "Wraps.h"
#include "kernels/utf8.h"

#include <cstddef>
#include <cstdint>
#include <emmintrin.h>

namespace sup::kernels {

inline __m128i loadBytes16(const void* p) noexcept { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

/// Widens 16 bytes: reads 16 bytes, writes 16 units.
inline void widenBytes16(const char* src, wchar_t* dst) noexcept {
    const __m128i zero = _mm_setzero_si128();
    const __m128i bytes = loadBytes16(src);
    const __m128i low = _mm_unpacklo_epi8(bytes, zero);
    const __m128i high = _mm_unpackhi_epi8(bytes, zero);
    auto* const to = reinterpret_cast<__m128i*>(dst);
    _mm_storeu_si128(to, _mm_unpacklo_epi16(low, zero));
    _mm_storeu_si128(to + 1, _mm_unpackhi_epi16(low, zero));
    _mm_storeu_si128(to + 2, _mm_unpacklo_epi16(high, zero));
    _mm_storeu_si128(to + 3, _mm_unpackhi_epi16(high, zero));
}

/// A block of runs is 64 bytes, one bit of a mask each; reading 16 bytes from any byte of it must be
/// possible, and as many units must have room.
constexpr std::ptrdiff_t kRunsBlock = 64;
constexpr std::ptrdiff_t kRunsReadAhead = kRunsBlock + 16;

/// A bit for every byte of a block from 0x80 on.
inline std::uint64_t nonAsciiMask(const char* block) noexcept {
    std::uint64_t mask = 0;
    for (unsigned int i = 0; i < 4; ++i) {
        const auto bits = static_cast<unsigned int>(_mm_movemask_epi8(loadBytes16(block + 16 * i)));
        mask |= static_cast<std::uint64_t>(bits) << (16 * i);
    }
    return mask;
}

BRIM_WRAPS inline unsigned int countMaskBits(std::uint64_t mask) noexcept {
    mask -= mask >> 1 & 0x5555555555555555U;
    mask = (mask & 0x3333333333333333U) + (mask >> 2 & 0x3333333333333333U);
    mask = (mask + (mask >> 4)) & 0x0F0F0F0F0F0F0F0FU;
    return static_cast<unsigned int>(mask * 0x0101010101010101U >> 56);
}

/// With fewer bytes beyond ASCII than this in a block, runs are the fast way, whatever these bytes are.
constexpr unsigned int kFewBytes = 10;

/// Decodes a block of which kRunsReadAhead bytes are there: widens the ASCII runs 16 bytes at a step, and
/// decodes what is between them by the rule. `nonAscii` is the block's mask.
inline DecodeProgress decodeByRuns(const char* block, std::uint64_t nonAscii, const char* end,
                                   wchar_t* dst) noexcept {
    const char* const blockEnd = block + kRunsBlock;
    DecodeProgress at{block, dst};
    for (;;) {
        const auto done = static_cast<unsigned int>(at.src - block);
        const std::uint64_t rest = nonAscii >> done;
        const unsigned int run = rest == 0 ? static_cast<unsigned int>(kRunsBlock) - done
                                           : static_cast<unsigned int>(__builtin_ctzll(rest));
        for (unsigned int i = 0; i < run; i += 16) {
            widenBytes16(at.src + i, at.dst + i);
        }
        at.src += run;
        at.dst += run;
        if (at.src == blockEnd) {
            return at;
        }
        do {
            const DecodedSequence sequence = decodeSequence(at.src, end);
            at.dst = writeUnits(sequence.value, at.dst);
            at.src += sequence.consumed;
        } while (at.src < blockEnd && (nonAscii >> (at.src - block) & 1U) != 0);
        if (at.src >= blockEnd) {
            return at;
        }
    }
}

/// The start of the character that a continuation byte at `at` would belong to.
inline const char* startBefore(const char* at) noexcept {
    do {
        --at;
    } while (isContinuation(static_cast<unsigned char>(*at)));
    return at;
}

/// Goes back from within a character to its start. The third byte of four has given its high surrogate.
inline DecodeProgress takeBack(const DecodeProgress& at) noexcept {
    const char* const lead = startBefore(at.src);
    return {lead, at.src - lead == 3 ? at.dst - 1 : at.dst};
}

/// Goes on where a vector loop that began at `start` has asked for the rules. Mostly ASCII goes by runs for a
/// few blocks, as damage seldom comes alone; otherwise the rule takes one character, or more when the vector
/// loop came too short a way to be worth its price. False when `end` cuts the next sequence.
inline bool decodeDamage(DecodeProgress& at, const char* start, const char* end) noexcept {
    constexpr std::ptrdiff_t kTooShort = 12;
    constexpr std::ptrdiff_t kMore = 64;
    constexpr int kBlocks = 4;
    const bool tooShort = at.src - start < kTooShort;
    for (int block = 0; block < kBlocks && end - at.src >= kRunsReadAhead; ++block) {
        const std::uint64_t nonAscii = nonAsciiMask(at.src);
        if (nonAscii == 0 || countMaskBits(nonAscii) >= kFewBytes) {
            break;
        }
        at = decodeByRuns(at.src, nonAscii, end, at.dst);
        if (block == kBlocks - 1) {
            return true;
        }
    }
    const std::ptrdiff_t some = tooShort ? kMore : 1;
    return decodeByRule(at, end - at.src < some ? end : at.src + some, end);
}

} // namespace sup::kernels
