// What the loops of the multi-byte encodings look up, packed from the tables of a transcoder, and these loops
// at each level. All levels agree on every text.
//
// The loops know characters of one byte and of two, and stop at what they do not know: longer sequences, and
// units beyond 16 bits. Encoding looks units up in the transcoder's own table.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Wraps.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace sup::kernels {

/// Bytes to units: rows of 256, of which row 0 has the characters of one byte and the others those that begin
/// with the same lead byte.
class BRIMPORTABLE_API MultibyteDecoding {
public:
    static constexpr std::size_t kRow = 256;
    static constexpr std::size_t kUpperHalf = 128;
    /// Stands for a character that the loops do not know.
    static constexpr std::uint16_t kUnknown = 0xFFFF;

    /// `rows` rows, 256 at most, of unknown characters.
    void reset(std::size_t rows);
    void setUnit(std::size_t row, std::size_t byte, std::uint32_t unit);
    /// `row`, which is not 0, is that of the bytes that follow `lead`.
    void setLead(std::size_t lead, std::size_t row);
    /// To be called last.
    void finish() noexcept;

    /// The row that a byte leads to; 0 when it is no lead byte.
    const unsigned char* rowOf() const noexcept { return m_rowOf.data(); }
    /// Byte i of row r at r * kRow + i. Four bytes may be read at each.
    const std::uint16_t* units() const noexcept { return m_units.data(); }

    /// Whether ASCII is itself; and whether that is so at least for the bytes that lead: these are all beyond
    /// ASCII. The vector loops want the latter.
    bool hasAscii() const noexcept { return m_hasAscii; }
    bool hasUpperLeads() const noexcept { return m_hasUpperLeads; }
    /// At a low half of a byte: bit i is set when that byte with the upper half 8 + i leads.
    const unsigned char* leadBits() const noexcept { return m_leadBits.data(); }

private:
    std::array<unsigned char, kRow> m_rowOf{};
    std::array<unsigned char, 16> m_leadBits{};
    bool m_hasAscii = false;
    bool m_hasUpperLeads = false;
    std::vector<std::uint16_t, BrimStlAllocator<std::uint16_t>> m_units;
};

/// Units to bytes: kBytes bytes for each of the units up to 0xFFFF, ended by the first zero, all that follow
/// it being zero; the loops do not know a unit whose bytes are all zero. Units below 0x80 are their low byte
/// whatever is here; a loop need not know negative ones.
struct MultibyteEncoding {
    static constexpr std::size_t kBytes = 4;
    static constexpr std::size_t kUnits = 0x10000;

    const char* bytes;
};

/// What a loop took from the source and wrote.
struct MultibyteProgress {
    std::size_t read;
    std::size_t written;
};

/// Of a text that starts with a character, the bytes that are the first of two. `candidates` has a bit for
/// each byte that leads when it is the first: in a run of such bytes every second one is.
BRIM_WRAPS inline std::uint64_t leadsAmong(std::uint64_t candidates) noexcept {
    constexpr std::uint64_t kEven = 0x5555555555555555U;
    const std::uint64_t firsts = candidates & ~(candidates << 1);
    // The carry runs through those runs that start at an even place.
    const std::uint64_t evenRuns = candidates & ~(candidates + (firsts & kEven));
    return (evenRuns & kEven) | (candidates & ~evenRuns & ~kEven);
}

/// The bytes of a unit up to 0xFFFF, the first one lowest; 0 for one that is not known, and for U+0000. Texts
/// change between ASCII and the rest too often for a branch.
inline std::uint32_t bytesOf(const MultibyteEncoding& table, std::uint32_t unit) noexcept {
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, table.bytes + unit * MultibyteEncoding::kBytes, sizeof(bytes));
    const std::uint32_t isAscii = unit < 0x80 ? ~0U : 0U;
    return (unit & isAscii) | (bytes & ~isAscii);
}

/// Encodes `count` units, less when there is one that is not known or fewer than kBytes bytes of room; these
/// may all be written. False then.
inline bool encodeOneByOne(const MultibyteEncoding& table, const wchar_t* src, std::size_t count, char* dst,
                           std::size_t room, MultibyteProgress& at) noexcept {
    for (; count != 0; --count) {
        const auto unit = static_cast<std::uint32_t>(src[at.read]);
        if (unit >= MultibyteEncoding::kUnits || room - at.written < MultibyteEncoding::kBytes) {
            return false;
        }
        const std::uint32_t bytes = bytesOf(table, unit);
        if (bytes == 0 && unit != 0) {
            return false;
        }
        std::memcpy(dst + at.written, &bytes, sizeof(bytes));
        // The last byte that is not zero ends them.
        at.written += 1 + (31U - static_cast<unsigned int>(__builtin_clz(bytes | 1))) / 8;
        ++at.read;
    }
    return true;
}

/// Decodes whole characters as long as they are known and there is room; nothing is written but their units.
/// A loop may stop up to 64 bytes before the character that makes it stop.
MultibyteProgress decodeMultibytePlain(const MultibyteDecoding& table, const char* src, std::size_t length,
                                       wchar_t* dst, std::size_t room) noexcept;
MultibyteProgress decodeMultibyteAvx2(const MultibyteDecoding& table, const char* src, std::size_t length,
                                      wchar_t* dst, std::size_t room) noexcept;
MultibyteProgress decodeMultibyteAvx512(const MultibyteDecoding& table, const char* src, std::size_t length,
                                        wchar_t* dst, std::size_t room) noexcept;

/// Encodes whole units as long as they are known and there is room. Beyond their bytes those in the room may
/// change. A loop may stop up to 64 units before the one that makes it stop.
MultibyteProgress encodeMultibytePlain(const MultibyteEncoding& table, const wchar_t* src, std::size_t length,
                                       char* dst, std::size_t room) noexcept;
MultibyteProgress encodeMultibyteAvx2(const MultibyteEncoding& table, const wchar_t* src, std::size_t length,
                                      char* dst, std::size_t room) noexcept;
MultibyteProgress encodeMultibyteAvx512(const MultibyteEncoding& table, const wchar_t* src,
                                        std::size_t length, char* dst, std::size_t room) noexcept;

} // namespace sup::kernels
