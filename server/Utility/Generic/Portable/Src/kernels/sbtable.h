// What the loops of the single-byte encodings look up, packed from the tables of a transcoder, and these
// loops at each level. All levels agree on every text.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sup::kernels {

/// A plane of 128 bytes for look-ups by shuffles of rows of 16 (sbtable_avx2.cpp): from `begin` on, each row
/// is exclusive-ored with the one before. Outside the rows from `begin` to `end` the plane is zero.
struct SingleByteSteps {
    static constexpr std::size_t kRow = 16;
    static constexpr std::size_t kPlane = 128;

    /// Packs `plane`. Without rows of the caller's choice takes those that are not zero.
    void pack(const unsigned char* plane) noexcept;
    void pack(const unsigned char* plane, std::size_t beginOfRows, std::size_t endOfRows) noexcept;

    std::array<unsigned char, kPlane> rows;
    std::size_t begin;
    std::size_t end;
};

/// Bytes to units.
struct BRIMPORTABLE_API SingleByteDecoding {
    static constexpr std::size_t kUpperHalf = 128;

    /// Packs `units`, which must outlive the object. Bytes below `identityLimit` are units of the same value.
    void pack(const std::array<wchar_t, 256>& units, unsigned identityLimit) noexcept;

    const wchar_t* units;   ///< of all 256 bytes
    unsigned identityLimit; ///< 1 to 256
    /// Whether the planes hold all there is: ASCII is itself, and no unit of another byte needs more than 16
    /// bits. The vector loops want that.
    bool isPlanar;
    std::array<unsigned char, kUpperHalf> low; ///< of the units of the bytes from 0x80 on
    std::array<unsigned char, kUpperHalf> high;
    SingleByteSteps lowSteps; ///< of the planes, less the identity part; both have the same rows
    SingleByteSteps highSteps;
};

/// Units to bytes, of the units up to 0xFFFF: pages of 256, and a window on those that are most used.
class BRIMPORTABLE_API SingleByteEncoding {
public:
    static constexpr std::size_t kPage = 256;
    static constexpr std::size_t kWindow = 256;

    /// Code points below `identityLimit` are bytes of the same value.
    explicit SingleByteEncoding(unsigned identityLimit);

    /// Sets the byte of a unit; a unit above 0xFFFF is left out. Zero makes the loops stop at the unit.
    void set(std::uint32_t unit, char byte);
    /// To be called after the last set().
    void chooseWindow();

    /// The byte of a unit; 0 when the loops do not know it.
    char byteOf(std::uint32_t unit) const noexcept {
        if (unit > kLastUnit) {
            return 0;
        }
        return static_cast<char>(m_pages[m_pageOf[unit / kPage] * kPage + unit % kPage]);
    }

    unsigned identityLimit() const noexcept { return m_identityLimit; }
    const std::uint16_t* pageOf() const noexcept { return m_pageOf.data(); }
    const unsigned char* pages() const noexcept { return m_pages.data(); }

    /// The window has the byte of the unit windowBase() + i at i. 0 and 255 hold zeros, so that an index may
    /// saturate there; its units are below 0x7FFF. ASCII is not in it: the vector loops want that to be
    /// itself.
    const unsigned char* window() const noexcept { return m_window.data(); }
    const SingleByteSteps& windowSteps(std::size_t half) const noexcept { return m_windowSteps[half]; }
    std::int16_t windowBase() const noexcept { return m_windowBase; }
    bool hasAscii() const noexcept { return m_identityLimit >= 0x80; }

private:
    static constexpr std::uint32_t kLastUnit = 0xFFFF;

    unsigned m_identityLimit;
    std::int16_t m_windowBase;
    std::array<unsigned char, kWindow> m_window;
    std::array<SingleByteSteps, 2> m_windowSteps;
    std::array<std::uint16_t, kPage> m_pageOf; ///< page 0 is empty
    std::vector<unsigned char, BrimStlAllocator<unsigned char>> m_pages;
};

/// For loops that know only a part of a block of `length` units: the place of the first unit, of those whose
/// bits are set in `others`, that byteOf() does not know; `length` when there is none.
inline std::size_t firstUnknown(const SingleByteEncoding& table, std::uint64_t others, const wchar_t* src,
                                std::size_t length) noexcept {
    for (; others != 0; others &= others - 1) {
        const auto i = static_cast<std::size_t>(__builtin_ctzll(others));
        if (table.byteOf(static_cast<std::uint32_t>(src[i])) == 0) {
            return i;
        }
    }
    return length;
}
/// Writes the bytes of these units up to `end`.
inline void writeOthers(const SingleByteEncoding& table, std::uint64_t others, const wchar_t* src,
                        std::size_t end, char* dst) noexcept {
    for (; others != 0; others &= others - 1) {
        const auto i = static_cast<std::size_t>(__builtin_ctzll(others));
        if (i >= end) {
            return;
        }
        dst[i] = table.byteOf(static_cast<std::uint32_t>(src[i]));
    }
}

/// Decodes `length` bytes; `dst` has room for as many units.
void decodeSingleBytePlain(const SingleByteDecoding& table, const char* src, std::size_t length,
                           wchar_t* dst) noexcept;
void decodeSingleByteAvx2(const SingleByteDecoding& table, const char* src, std::size_t length,
                          wchar_t* dst) noexcept;
void decodeSingleByteAvx512(const SingleByteDecoding& table, const char* src, std::size_t length,
                            wchar_t* dst) noexcept;

/// Encodes up to the first unit that byteOf() does not know; returns the units encoded, which is also the
/// bytes written. `dst` has room for `length` bytes.
std::size_t encodeSingleBytePlain(const SingleByteEncoding& table, const wchar_t* src, std::size_t length,
                                  char* dst) noexcept;
std::size_t encodeSingleByteAvx2(const SingleByteEncoding& table, const wchar_t* src, std::size_t length,
                                 char* dst) noexcept;
std::size_t encodeSingleByteAvx512(const SingleByteEncoding& table, const wchar_t* src, std::size_t length,
                                   char* dst) noexcept;

} // namespace sup::kernels
