// The transcoder of the single-byte encodings. Bytes and code points below IdentityLimit are each other; the
// rest go through tables that are built once from the rows of a mapping table:
//   forward   256 code points, indexed by byte
//   reverse   PrimaryLimit bytes, indexed by code point; a hash map holds the few code points from
//   PrimaryLimit on
// Text is one pass: blocks of 16 identity characters at a time, one array index for any other character.
#pragma once

#include "Utility/Generic/Portable/BrimNodeAlloc.h"
#include "Utility/Generic/Portable/SUPExport.h"
#include "Utility/Generic/Portable/transcoderbase.h"

#include <array>
#include <cstddef>
#include <emmintrin.h>
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
constexpr std::size_t kBlock = 16;

constexpr bool isHighSurrogate(wchar_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isLowSurrogate(wchar_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

/// Widens bytes below `Limit`, whole blocks only, and stops at the first block that holds another byte.
/// Returns the bytes widened, a multiple of 16. Reads and writes only complete blocks inside the first
/// `length` elements.
template <unsigned Limit>
std::size_t widenIdentityBlocks(const char* src, std::size_t length, wchar_t* dst) noexcept {
    const __m128i zero = _mm_setzero_si128();
    std::size_t done = 0;
    for (; length - done >= kBlock; done += kBlock) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + done));
        if constexpr (Limit < 256) {
            // Saturating subtraction leaves zero exactly for the bytes up to Limit - 1.
            const __m128i excess = _mm_subs_epu8(bytes, _mm_set1_epi8(static_cast<char>(Limit - 1)));
            if (_mm_movemask_epi8(_mm_cmpeq_epi8(excess, zero)) != 0xFFFF) {
                break;
            }
        }
        const __m128i low = _mm_unpacklo_epi8(bytes, zero);
        const __m128i high = _mm_unpackhi_epi8(bytes, zero);
        auto* const out = reinterpret_cast<__m128i*>(dst + done);
        _mm_storeu_si128(out, _mm_unpacklo_epi16(low, zero));
        _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(low, zero));
        _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(high, zero));
        _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(high, zero));
    }
    return done;
}

/// Narrows units from 0 to `Limit` - 1 in the same manner. Returns the units narrowed, a multiple of 16.
template <unsigned Limit>
std::size_t narrowIdentityBlocks(const wchar_t* src, std::size_t length, char* dst) noexcept {
    const __m128i zero = _mm_setzero_si128();
    const __m128i largest = _mm_set1_epi16(static_cast<short>(Limit - 1));
    std::size_t done = 0;
    for (; length - done >= kBlock; done += kBlock) {
        const auto* const in = reinterpret_cast<const __m128i*>(src + done);
        // Signed saturation keeps every unit that is out of range out of range: negative or above Limit - 1.
        const __m128i low = _mm_packs_epi32(_mm_loadu_si128(in), _mm_loadu_si128(in + 1));
        const __m128i high = _mm_packs_epi32(_mm_loadu_si128(in + 2), _mm_loadu_si128(in + 3));
        const __m128i above = _mm_or_si128(_mm_cmpgt_epi16(low, largest), _mm_cmpgt_epi16(high, largest));
        const __m128i below = _mm_cmplt_epi16(_mm_or_si128(low, high), zero);
        if (_mm_movemask_epi8(_mm_or_si128(above, below)) != 0) {
            break;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + done), _mm_packus_epi16(low, high));
    }
    return done;
}

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

    template <bool bWithCallback>
    size_type encode(const wide_char* src, size_type srcLen, char* dst, size_type dstLen, callback cb,
                     callbackParam cbParam) const;

    // Both arrays hold the identity part as well, so that one index serves every character.
    std::array<char, PrimaryLimit> m_vPrimaryUnicode; ///< 0: no mapping, except for U+0000
    ExtrasMap m_mSecondaryUnicode;                    ///< code points from PrimaryLimit on
    std::array<wchar_t, 256> m_vMB2Unicode;
};

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::TranscoderSBTable(
    const UnicodeMultibyteMapping* table)
    : m_vPrimaryUnicode{} {
    m_vMB2Unicode.fill(sbtable_details::kUndefined);
    for (unsigned value = 0; value < IdentityLimit; ++value) {
        m_vPrimaryUnicode[value] = static_cast<char>(value);
        m_vMB2Unicode[value] = static_cast<wchar_t>(value);
    }
    for (const UnicodeMultibyteMapping* row = table; row->eDirection != kCP_End; ++row) {
        if (row->eDirection != kCP_MBToUnicode) {
            AddUnicodeMapping(*row);
        }
        const auto byte = static_cast<unsigned char>(row->cMBChars[0]);
        if (row->eDirection != kCP_UnicodeToMB && byte >= IdentityLimit) {
            m_vMB2Unicode[byte] = row->wUnicodeChar;
        }
    }
}

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
TranscoderImplBase* TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::CreateTranscoderTable(
    const UnicodeMultibyteMapping* table, std::size_t /*param*/) {
    return new (sbtable_details::kThisFile, sbtable_details::kAllocationLine) TranscoderSBTable(table);
}

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
void TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::AddUnicodeMapping(
    const UnicodeMultibyteMapping& row) {
    // Unsigned, so that a negative value belongs to the map, where encode() looks for it.
    const auto codePoint = static_cast<unsigned>(row.wUnicodeChar);
    if (codePoint >= PrimaryLimit) {
        m_mSecondaryUnicode[row.wUnicodeChar] = row.cMBChars[0];
    } else if (codePoint >= IdentityLimit) {
        m_vPrimaryUnicode[codePoint] = row.cMBChars[0];
    }
}

template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
auto TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::multibyteToUnicode(
    const char* src, size_type srcLen, wide_char* dst, size_type dstLen, state* /*ctx*/) const -> size_type {
    if (dstLen < srcLen) {
        return sbtable_details::kTooSmall;
    }
    size_type done = 0;
    while (done != srcLen) {
        done += sbtable_details::widenIdentityBlocks<IdentityLimit>(src + done, srcLen - done, dst + done);
        const size_type stop =
            srcLen - done > sbtable_details::kBlock ? done + sbtable_details::kBlock : srcLen;
        for (; done != stop; ++done) {
            dst[done] = m_vMB2Unicode[static_cast<unsigned char>(src[done])];
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
    return cb == nullptr ? encode<false>(src, srcLen, dst, dstLen, cb, cbParam)
                         : encode<true>(src, srcLen, dst, dstLen, cb, cbParam);
}

// There is at least as much room in `dst` as there is source left, at every turn of the loops.
template <unsigned IdentityLimit, unsigned PrimaryLimit, bool bAnyExtras>
template <bool bWithCallback>
auto TranscoderSBTable<IdentityLimit, PrimaryLimit, bAnyExtras>::encode(
    const wide_char* src, size_type srcLen, char* dst, size_type dstLen, [[maybe_unused]] callback cb,
    [[maybe_unused]] callbackParam cbParam) const -> size_type {
    size_type read = 0;
    size_type written = 0;
    while (read < srcLen) {
        const size_type run =
            sbtable_details::narrowIdentityBlocks<IdentityLimit>(src + read, srcLen - read, dst + written);
        read += run;
        written += run;
        const size_type stop =
            srcLen - read > sbtable_details::kBlock ? read + sbtable_details::kBlock : srcLen;
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
