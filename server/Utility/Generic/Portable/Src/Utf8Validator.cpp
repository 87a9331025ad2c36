#include "Utf8Validator.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <emmintrin.h>

namespace sup::transcodeimpl {

namespace {

// The table of well-formed sequences by lead byte: the length, 0 for bytes that lead nothing, and the range
// of the second byte. All further bytes are 80..BF.
struct Lead {
    unsigned char length;
    unsigned char secondFrom;
    unsigned char secondTo;
};

constexpr std::array<Lead, 256> makeLeads() {
    std::array<Lead, 256> leads{};
    const auto fill = [&leads](std::size_t from, std::size_t to, Lead lead) {
        for (std::size_t byte = from; byte <= to; ++byte) {
            leads[byte] = lead;
        }
    };
    fill(0x00, 0x7F, {1, 0, 0});
    fill(0xC2, 0xDF, {2, 0x80, 0xBF});
    fill(0xE0, 0xE0, {3, 0xA0, 0xBF});
    fill(0xE1, 0xEC, {3, 0x80, 0xBF});
    fill(0xED, 0xED, {3, 0x80, 0x9F});
    fill(0xEE, 0xEF, {3, 0x80, 0xBF});
    fill(0xF0, 0xF0, {4, 0x90, 0xBF});
    fill(0xF1, 0xF3, {4, 0x80, 0xBF});
    fill(0xF4, 0xF4, {4, 0x80, 0x8F});
    return leads;
}

constexpr std::array<Lead, 256> kLeads = makeLeads();

constexpr std::ptrdiff_t kBlock = 64;

// One bit for each byte of a block: the top bit of what `test` makes of it.
template <class Test>
std::uint64_t maskOf(const char* block, Test test) {
    std::uint64_t mask = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 16 * i));
        const auto bits = static_cast<unsigned int>(_mm_movemask_epi8(test(bytes)));
        mask |= static_cast<std::uint64_t>(bits) << (16 * i);
    }
    return mask;
}

// Bytes from 0x80 to `limit` - 1; the comparison is of signed bytes.
std::uint64_t maskFrom80Below(const char* block, unsigned char limit) {
    const __m128i limits = _mm_set1_epi8(static_cast<char>(limit));
    return maskOf(block, [limits](__m128i bytes) { return _mm_cmplt_epi8(bytes, limits); });
}
std::uint64_t maskEqual(const char* block, unsigned char value) {
    const __m128i values = _mm_set1_epi8(static_cast<char>(value));
    return maskOf(block, [values](__m128i bytes) { return _mm_cmpeq_epi8(bytes, values); });
}

// The bytes of complete sequences in the block, which starts with a lead byte; 0 when anything in it is
// malformed. Reads the block only.
unsigned int wellFormedInBlock(const char* block) {
    const std::uint64_t nonAscii = maskOf(block, [](__m128i bytes) { return bytes; });
    if (nonAscii == 0) {
        return kBlock;
    }
    const std::uint64_t continuations = maskFrom80Below(block, 0xC0);
    const std::uint64_t leads = nonAscii & ~continuations;
    const std::uint64_t longLeads = nonAscii & ~maskFrom80Below(block, 0xE0);
    const std::uint64_t longestLeads = longLeads == 0 ? 0 : longLeads & ~maskFrom80Below(block, 0xF0);
    std::uint64_t malformed = continuations ^ (leads << 1 | longLeads << 2 | longestLeads << 3);
    malformed |= maskFrom80Below(block, 0xC2) & ~continuations;
    if (longLeads != 0) {
        const std::uint64_t belowA0 = maskFrom80Below(block, 0xA0);
        malformed |= maskEqual(block, 0xE0) << 1 & belowA0;
        malformed |= maskEqual(block, 0xED) << 1 & ~belowA0;
    }
    if (longestLeads != 0) {
        const std::uint64_t below90 = maskFrom80Below(block, 0x90);
        malformed |= maskEqual(block, 0xF0) << 1 & below90;
        malformed |= maskEqual(block, 0xF4) << 1 & ~below90;
        malformed |= nonAscii & ~maskFrom80Below(block, 0xF5);
    }
    if (malformed != 0) {
        return 0;
    }
    // A sequence that reaches beyond the block is left for the next one.
    const std::uint64_t reaching = (leads & std::uint64_t{1} << 63) | (longLeads & std::uint64_t{3} << 62) |
                                   (longestLeads & std::uint64_t{7} << 61);
    return reaching == 0 ? kBlock : static_cast<unsigned int>(__builtin_ctzll(reaching));
}

// Judges the one sequence at `src`, which is not `end`.
Utf8Validator::Scan scanSequence(const char* src, const char* end) {
    const auto at = [src](std::size_t i) { return static_cast<unsigned char>(src[i]); };
    const auto available = static_cast<std::size_t>(end - src);
    const Lead lead = kLeads[at(0)];
    if (lead.length == 0) {
        return {0, 1, false};
    }
    for (std::size_t i = 1; i < lead.length; ++i) {
        if (i == available) {
            return {0, available, true};
        }
        const unsigned char from = i == 1 ? lead.secondFrom : 0x80;
        const unsigned char to = i == 1 ? lead.secondTo : 0xBF;
        if (at(i) < from || at(i) > to) {
            return {0, i, false};
        }
    }
    return {lead.length, 0, false};
}

} // namespace

Utf8Validator::Scan Utf8Validator::scan(const char* src, std::size_t length) noexcept {
    const char* const start = src;
    const char* const end = src + length;
    // After a block that is not all well formed, its bytes are judged one sequence at a time.
    const char* carefulUntil = src;
    while (src != end) {
        if (src >= carefulUntil && end - src >= kBlock) {
            if (const unsigned int good = wellFormedInBlock(src)) {
                src += good;
                continue;
            }
            carefulUntil = src + kBlock;
        }
        const Scan sequence = scanSequence(src, end);
        if (sequence.wellFormed == 0) {
            return {static_cast<std::size_t>(src - start), sequence.rest, sequence.cut};
        }
        src += sequence.wellFormed;
    }
    return {length, 0, false};
}

bool Utf8Validator::feed(const char* src, std::size_t length) noexcept {
    if (!m_wellFormed || length == 0) {
        return m_wellFormed;
    }
    if (m_pendingLength != 0) {
        char joined[sizeof(m_pending)];
        const std::size_t added = std::min(sizeof(joined) - m_pendingLength, length);
        std::memcpy(joined, m_pending, m_pendingLength);
        std::memcpy(joined + m_pendingLength, src, added);
        const Scan sequence = scanSequence(joined, joined + m_pendingLength + added);
        if (sequence.wellFormed == 0) {
            m_wellFormed = sequence.cut;
            m_pendingLength = sequence.rest;
            std::memcpy(m_pending, joined, sequence.rest);
            return m_wellFormed;
        }
        const std::size_t taken = sequence.wellFormed - m_pendingLength;
        src += taken;
        length -= taken;
        m_offset += sequence.wellFormed;
        m_pendingLength = 0;
    }
    const Scan found = scan(src, length);
    m_offset += found.wellFormed;
    m_line += static_cast<std::uint64_t>(std::count(src, src + found.wellFormed, '\n'));
    m_wellFormed = found.rest == 0 || found.cut;
    if (found.cut) {
        m_pendingLength = found.rest;
        std::memcpy(m_pending, src + found.wellFormed, found.rest);
    }
    return m_wellFormed;
}

bool Utf8Validator::finish() noexcept {
    if (m_pendingLength != 0) {
        m_wellFormed = false;
    }
    return m_wellFormed;
}

} // namespace sup::transcodeimpl
