// Which UTF-8 is well formed: the Unicode standard's table of byte sequences (Unicode 15, table 3-7). It is
// stricter than the rules of utf8.h.
#pragma once

#include <array>
#include <cstddef>

namespace sup::kernels {

/// The table by lead byte: the length, 0 for bytes that lead nothing, and the range
/// of the second byte. All further bytes are 80..BF.
struct WellFormedLead {
    unsigned char length;
    unsigned char secondFrom;
    unsigned char secondTo;
};

constexpr std::array<WellFormedLead, 256> makeWellFormedLeads() {
    std::array<WellFormedLead, 256> leads{};
    const auto fill = [&leads](std::size_t from, std::size_t to, WellFormedLead lead) {
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

inline constexpr std::array<WellFormedLead, 256> kWellFormedLeads = makeWellFormedLeads();

/// What is at the beginning of a text: a well-formed sequence of `wellFormed` bytes, or none and `rest` bytes
/// that are not one. `cut` tells that the end cuts them, so that more bytes could complete them.
struct ScannedSequence {
    std::size_t wellFormed;
    std::size_t rest;
    bool cut;
};

/// Judges the one sequence at `src`, which is not `end`.
inline ScannedSequence scanSequence(const char* src, const char* end) noexcept {
    const auto at = [src](std::size_t i) { return static_cast<unsigned char>(src[i]); };
    const auto available = static_cast<std::size_t>(end - src);
    const WellFormedLead lead = kWellFormedLeads[at(0)];
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

/// Goes to the first sequence from `src` on that is not well formed, or to `end`.
inline const char* skipWellFormed(const char* src, const char* end) noexcept {
    while (src != end) {
        const std::size_t length = scanSequence(src, end).wellFormed;
        if (length == 0) {
            break;
        }
        src += length;
    }
    return src;
}

} // namespace sup::kernels
