// The transcoder of the single-byte encodings. Bytes and code points below IdentityLimit are each other; the
// rest go through tables that are built once from the rows of a mapping table:
//   forward   256 code points, indexed by byte
//   reverse   PrimaryLimit bytes, indexed by code point; a hash map holds the few code points from
//   PrimaryLimit on
// Text is one pass over copies of these tables, packed for the loops of kernels/sbtable.h. What a loop does
// not know, such as a surrogate pair or an unmappable unit, is decided here, by the tables.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/transcoderbase.h"
#include "kernels/sbtable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <unordered_map>
#include <utility>

namespace sup::transcodeimpl {

namespace sbtable_details {

// Here and not in the class, whose members are exported for each instantiation.
constexpr const char* kThisFile = "server/Utility/Generic/Portable/PrivateInclude/transcodersbtable.h";
constexpr int kAllocationLine = 117;

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr wchar_t kUndefined = 0xFFFD;
constexpr char kUnmappable = '?';
// Texts up to these lengths are converted here: choosing a loop would take longer.
constexpr std::size_t kShortBytes = 8;
constexpr std::size_t kShortUnits = 5;
// What a loop does not know seldom comes alone: so many units go by the tables.
constexpr std::size_t kByTables = 16;

constexpr bool isHighSurrogate(wchar_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isLowSurrogate(wchar_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

/// The loops in use (kernels/kernels.h), for instantiations outside the library too.
BRIMPORTABLE_API void decodeRun(const kernels::SingleByteDecoding& table, const char* src, std::size_t length,
                                wchar_t* dst) noexcept;
BRIMPORTABLE_API std::size_t encodeRun(const kernels::SingleByteEncoding& table, const wchar_t* src,
                                       std::size_t length, char* dst) noexcept;

} // namespace sbtable_details

/// Immutable once shared; then any number of threads may convert through one object.
///
/// Decoding writes U+FFFD for a byte that no row defines. Encoding writes "?" for what the encoding lacks,
/// one for a surrogate pair, or asks the callback; a callback that reports more bytes than there is room for
/// ends the conversion with -1. Both conversions want at least as much room as there is source, and return -1
/// with nothing written otherwise. The thread context is ignored.
template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
class BRIMPORTABLE_API TranscoderSBTable : public TranscoderImplBase {
    static_assert(IdentityLimit >= 1 && IdentityLimit <= 256, "U+0000 is always the byte 0");
    static_assert(IdentityLimit <= PrimaryLimit, "the reverse table holds the identity part too");

public:
    /// `table` ends with a kCP_End row. Of rows with the same key the last one counts; rows for the identity
    /// part have no effect.
    explicit TranscoderSBTable(const UnicodeMultibyteMapping* table);
    /// The packed tables refer to the object.
    TranscoderSBTable(const TranscoderSBTable&) = delete;
    TranscoderSBTable& operator=(const TranscoderSBTable&) = delete;

    /// The caller owns the result. The second argument is ignored.
    static TranscoderImplBase* CreateTranscoderTable(const UnicodeMultibyteMapping* table, std::size_t param);

    /// Adds the wide-to-byte direction of `row`, whatever the row's direction. Only before the object is
    /// shared.
    void AddUnicodeMapping(const UnicodeMultibyteMapping& row);

    size_type multibyteToUnicode(const char* src, size_type srcLen, wide_char* dst, size_type dstLen,
                                 state* ctx) const override;
    size_type unicodeToMultibyte(const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                                 state* ctx, callback cb, callbackParam cbParam) const override;
    size_type getMultibyteFactor() const override { return 1; }
    /// Always false: even the identity encoding holds no more than 256 code points.
    bool isUnicodeCompletelyRepresentable() const override { return false; }

private:
    using ExtrasMap = std::unordered_map<wchar_t, char, std::hash<wchar_t>, std::equal_to<wchar_t>,
                                         BrimStlAllocator<std::pair<const wchar_t, char>>>;

    void addReverse(const UnicodeMultibyteMapping& row);

    template <bool bWithCallback>
    size_type encode(size_type done, const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
                     callback cb, callbackParam cbParam) const;

    // Both arrays hold the identity part as well, so that one index serves every character.
    std::array<char, PrimaryLimit> m_vPrimaryUnicode; ///< 0: no mapping, except for U+0000
    ExtrasMap m_mSecondaryUnicode;                    ///< code points from PrimaryLimit on
    std::array<wchar_t, 256> m_vMB2Unicode;

    // What the loops see of them.
    kernels::SingleByteDecoding m_decoding;
    kernels::SingleByteEncoding m_encoding;
};

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::TranscoderSBTable(
    const UnicodeMultibyteMapping* table)
    : m_vPrimaryUnicode{}, m_encoding(IdentityLimit) {
    m_vMB2Unicode.fill(sbtable_details::kUndefined);
    for (unsigned value = 0; value < IdentityLimit; ++value) {
        m_vPrimaryUnicode[value] = static_cast<char>(value);
        m_vMB2Unicode[value] = static_cast<wchar_t>(value);
    }
    for (const UnicodeMultibyteMapping* row = table; row->eDirection != kCP_End; ++row) {
        if (row->eDirection != kCP_MBToUnicode) {
            addReverse(*row);
        }
        const auto byte = static_cast<unsigned char>(row->cMBChars[0]);
        if (row->eDirection != kCP_UnicodeToMB && byte >= IdentityLimit) {
            m_vMB2Unicode[byte] = row->wUnicodeChar;
        }
    }
    m_decoding.pack(m_vMB2Unicode, IdentityLimit);
    m_encoding.chooseWindow();
}

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
TranscoderImplBase* TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::CreateTranscoderTable(
    const UnicodeMultibyteMapping* table, std::size_t /*param*/) {
    return new (sbtable_details::kThisFile, sbtable_details::kAllocationLine) TranscoderSBTable(table);
}

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
void TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::AddUnicodeMapping(
    const UnicodeMultibyteMapping& row) {
    addReverse(row);
    m_encoding.chooseWindow();
}

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
void TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::addReverse(
    const UnicodeMultibyteMapping& row) {
    // Unsigned, so that a negative value belongs to the map, where encode() looks for it.
    const auto codePoint = static_cast<unsigned>(row.wUnicodeChar);
    if (codePoint >= PrimaryLimit) {
        m_mSecondaryUnicode[row.wUnicodeChar] = row.cMBChars[0];
        // A high surrogate may begin a pair, which comes before the map.
        if (bAnyExtras && !sbtable_details::isHighSurrogate(row.wUnicodeChar)) {
            m_encoding.set(codePoint, row.cMBChars[0]);
        }
    } else if (codePoint >= IdentityLimit) {
        m_vPrimaryUnicode[codePoint] = row.cMBChars[0];
        m_encoding.set(codePoint, row.cMBChars[0]);
    }
}

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
auto TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::multibyteToUnicode(
    const char* src, size_type srcLen, wide_char* dst, size_type dstLen, state* /*ctx*/) const -> size_type {
    if (dstLen < srcLen) {
        return sbtable_details::kTooSmall;
    }
    if (srcLen > sbtable_details::kShortBytes) {
        sbtable_details::decodeRun(m_decoding, src, srcLen, dst);
    } else {
        for (size_type i = 0; i != srcLen; ++i) {
            dst[i] = m_vMB2Unicode[static_cast<unsigned char>(src[i])];
        }
    }
    return srcLen;
}

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
auto TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::unicodeToMultibyte(
    const wide_char* src, size_type srcLen, char* dst, size_type dstLen, state* /*ctx*/, callback cb,
    callbackParam cbParam) const -> size_type {
    if (dstLen < srcLen) {
        return sbtable_details::kTooSmall;
    }
    const size_type run =
        srcLen > sbtable_details::kShortUnits ? sbtable_details::encodeRun(m_encoding, src, srcLen, dst) : 0;
    if (run == srcLen) {
        return srcLen;
    }
    return cb == nullptr ? encode<false>(run, src, srcLen, dst, dstLen, cb, cbParam)
                         : encode<true>(run, src, srcLen, dst, dstLen, cb, cbParam);
}

// Goes on after `done` characters of a byte each. There is at least as much room in `dst` as there is source
// left, at every turn of the loops.
template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
template <bool bWithCallback>
auto TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::encode(
    size_type done, const wide_char* src, size_type srcLen, char* dst, size_type dstLen,
    [[maybe_unused]] callback cb, [[maybe_unused]] callbackParam cbParam) const -> size_type {
    size_type read = done;
    size_type written = done;
    while (read < srcLen) {
        const size_type stop = read + std::min(srcLen - read, sbtable_details::kByTables);
        while (read < stop) {
            const wchar_t unit = src[read];
            const auto index = static_cast<unsigned>(unit);
            size_type units = 1;
            if (index < PrimaryLimit) [[likely]] {
                const char byte = m_vPrimaryUnicode[index];
                if (byte != 0 || index == 0) [[likely]] {
                    dst[written++] = byte;
                    ++read;
                    continue;
                }
            } else if (sbtable_details::isHighSurrogate(unit) && srcLen - read > 1 &&
                       sbtable_details::isLowSurrogate(src[read + 1])) {
                units = 2;
            } else if constexpr (bAnyExtras) {
                const auto found = m_mSecondaryUnicode.find(unit);
                if (found != m_mSecondaryUnicode.end()) {
                    dst[written++] = found->second;
                    ++read;
                    continue;
                }
            }
            if constexpr (bWithCallback) {
                const size_type given = cb(cbParam, src + read, units, dst + written, dstLen - written);
                if (given > dstLen - written) { // -1 too
                    return sbtable_details::kTooSmall;
                }
                written += given;
                read += units;
                if (dstLen - written < srcLen - read) {
                    return sbtable_details::kTooSmall;
                }
            } else {
                dst[written++] = sbtable_details::kUnmappable;
                read += units;
            }
        }
        if (srcLen - read > sbtable_details::kShortUnits) {
            const size_type run =
                sbtable_details::encodeRun(m_encoding, src + read, srcLen - read, dst + written);
            read += run;
            written += run;
        }
    }
    return written;
}

extern template class TranscoderSBTable<256, 256, false>;  // ISO-8859-1
extern template class TranscoderSBTable<161, 734, false>;  // ISO-8859-2
extern template class TranscoderSBTable<161, 730, false>;  // ISO-8859-3
extern template class TranscoderSBTable<161, 1619, false>; // ISO-8859-6
extern template class TranscoderSBTable<161, 975, true>;   // ISO-8859-7
extern template class TranscoderSBTable<164, 8365, false>; // ISO-8859-15
extern template class TranscoderSBTable<128, 733, true>;   // Windows 1252
extern template class TranscoderSBTable<161, 1515, true>;  // ISO-8859-8-i

} // namespace sup::transcodeimpl
