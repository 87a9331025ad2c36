// What the tables of sbtables.h are written with: row() and kEndRow, and the checks that a table makes of
// itself at compile time. Everything here is constant data; nothing runs when the library is loaded.
#pragma once

#include "Utility/Generic/Portable/transcoderbase.h"

#include <array>
#include <cstddef>

namespace sup::transcodeimpl::sbtablerows {

/// 256 one-byte strings, each with its terminating zero: the bytes of all rows of all tables.
inline constexpr std::array<char, 512> kBytePool = [] {
    std::array<char, 512> pool{};
    for (std::size_t byte = 0; byte < 256; ++byte) {
        pool[2 * byte] = static_cast<char>(byte);
    }
    return pool;
}();

/// The row of `byte`, which is `codePoint` in both directions.
constexpr UnicodeMultibyteMapping row(unsigned char byte, wchar_t codePoint) {
    return {codePoint, &kBytePool[2 * std::size_t{byte}], 1, kCP_Either};
}

inline constexpr UnicodeMultibyteMapping kEndRow = {0, nullptr, 0, kCP_End};

/// Rows before the terminator.
template <std::size_t N>
constexpr std::size_t rowCount(const UnicodeMultibyteMapping (&table)[N]) {
    std::size_t count = 0;
    while (count < N && table[count].eDirection != kCP_End) {
        ++count;
    }
    return count;
}

/// One byte a row, bytes ascending, no code point twice, and a terminator that is the last element.
template <std::size_t N>
constexpr bool isWellFormed(const UnicodeMultibyteMapping (&table)[N]) {
    for (std::size_t i = 0; i + 1 < N; ++i) {
        const UnicodeMultibyteMapping& current = table[i];
        if (current.eDirection != kCP_Either || current.nMBChars != 1) {
            return false;
        }
        for (std::size_t j = 0; j < i; ++j) {
            const bool bAscending = static_cast<unsigned char>(table[j].cMBChars[0]) <
                                    static_cast<unsigned char>(current.cMBChars[0]);
            if (!bAscending || table[j].wUnicodeChar == current.wUnicodeChar) {
                return false;
            }
        }
    }
    const UnicodeMultibyteMapping& last = table[N - 1];
    return last.eDirection == kCP_End && last.wUnicodeChar == 0 && last.cMBChars == nullptr &&
           last.nMBChars == 0;
}

/// True when these are the arguments of the table's TranscoderSBTable: no row below IdentityLimit,
/// PrimaryLimit one above the largest code point that is indexed directly, and code points beyond it exactly
/// when bAnyExtras.
template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras, std::size_t N>
constexpr bool fitsTranscoder(const UnicodeMultibyteMapping (&table)[N]) {
    unsigned directLimit = IdentityLimit;
    bool bFoundExtras = false;
    for (std::size_t i = 0; i < rowCount(table); ++i) {
        const auto codePoint = static_cast<unsigned>(table[i].wUnicodeChar);
        if (static_cast<unsigned char>(table[i].cMBChars[0]) < IdentityLimit || codePoint < IdentityLimit) {
            return false;
        }
        if (codePoint >= PrimaryLimit) {
            bFoundExtras = true;
        } else if (codePoint >= directLimit) {
            directLimit = codePoint + 1;
        }
    }
    return directLimit == PrimaryLimit && bFoundExtras == bAnyExtras;
}

} // namespace sup::transcodeimpl::sbtablerows
