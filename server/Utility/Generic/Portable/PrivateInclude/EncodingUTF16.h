// UTF-16 functors: one wchar_t per 16-bit unit, copied as it is. No pairing, no validation, no byte-order
// mark is looked for or written. A unit above 0xFFFF loses its upper half. All operations are thread-safe.
#pragma once

#include "EncodingFunctor.h"
#include "Utility/Generic/Portable/SUPExport.h"

#include <cstddef>

namespace sup::transcodeimpl {

template <class Wide, class Utf16Unit>
class N2TEncodingUTF16;
template <class Wide, class Utf16Unit>
class T2NEncodingUTF16;

template <>
class BRIMPORTABLE_API N2TEncodingUTF16<wchar_t, unsigned short>
    : public EncodingStatelessFunctor<char, wchar_t> {
public:
    enum Endian { kLITTLE_ENDIAN = 0, kBIG_ENDIAN = 1 };

    explicit constexpr N2TEncodingUTF16(Endian endian) noexcept : m_bBigEndian(endian == kBIG_ENDIAN) {}
    static Endian getPlatformEndian() noexcept { return kLITTLE_ENDIAN; }

    static std::size_t estimateEncodingSize(std::size_t n) noexcept { return n; }
    static std::size_t maxEncodingSize(std::size_t n) noexcept { return n; }
    static std::size_t maxExpansionFactor() noexcept { return 1; }
    static bool isChunkable() noexcept { return false; }

    /// Decodes whole units; an odd last byte is ignored. Returns srcLen / 2, or -1 when `dst` is smaller.
    std::size_t encode(const char* src, std::size_t srcLen, wchar_t* dst, std::size_t dstLen,
                       State& state) const;

private:
    bool m_bBigEndian;
};

template <>
class BRIMPORTABLE_API T2NEncodingUTF16<wchar_t, unsigned short>
    : public EncodingStatelessFunctor<wchar_t, char> {
public:
    enum Endian { kLITTLE_ENDIAN = 0, kBIG_ENDIAN = 1 };

    explicit constexpr T2NEncodingUTF16(Endian endian) noexcept : m_bBigEndian(endian == kBIG_ENDIAN) {}
    static Endian getPlatformEndian() noexcept { return kLITTLE_ENDIAN; }

    static std::size_t estimateEncodingSize(std::size_t n) noexcept { return 2 * n; }
    static std::size_t maxEncodingSize(std::size_t n) noexcept { return 2 * n; }
    static std::size_t maxExpansionFactor() noexcept { return 2; }
    static bool isChunkable() noexcept { return true; }

    /// Returns 2 * srcLen, or -1 when `dst` is smaller.
    std::size_t encode(const wchar_t* src, std::size_t srcLen, char* dst, std::size_t dstLen,
                       State& state) const;

private:
    bool m_bBigEndian;
};

} // namespace sup::transcodeimpl
