// The rules, in plain loops without a branch inside, which the compiler turns into vector code.
#include "kernels/widths.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace sup::kernels {

namespace {

template <bool bSwapBytes>
std::uint16_t ordered(std::uint16_t unit) {
    return bSwapBytes ? __builtin_bswap16(unit) : unit;
}

template <bool bSwapBytes>
void decodeUnits(const char* src, std::size_t units, wchar_t* dst) {
    for (std::size_t i = 0; i < units; ++i) {
        std::uint16_t unit = 0;
        std::memcpy(&unit, src + 2 * i, sizeof(unit));
        dst[i] = ordered<bSwapBytes>(unit);
    }
}

template <bool bSwapBytes>
void encodeUnits(const wchar_t* src, std::size_t units, char* dst) {
    for (std::size_t i = 0; i < units; ++i) {
        const std::uint16_t unit = ordered<bSwapBytes>(static_cast<std::uint16_t>(src[i]));
        std::memcpy(dst + 2 * i, &unit, sizeof(unit));
    }
}

} // namespace

void widenPlain(const char* src, std::size_t length, wchar_t* dst) noexcept {
    for (std::size_t i = 0; i < length; ++i) {
        dst[i] = static_cast<unsigned char>(src[i]);
    }
}

void narrowPlain(const wchar_t* src, std::size_t length, char* dst) noexcept {
    for (std::size_t i = 0; i < length; ++i) {
        dst[i] = static_cast<char>(src[i]);
    }
}

// Looks at blocks, so that a unit near the front that does not fit ends it early.
bool fitsInBytePlain(const wchar_t* src, std::size_t length) noexcept {
    constexpr std::size_t kBlock = 256;
    for (std::size_t done = 0; done < length;) {
        const std::size_t end = done + std::min(length - done, kBlock);
        std::uint32_t all = 0;
        for (; done < end; ++done) {
            all |= static_cast<std::uint32_t>(src[done]);
        }
        if (all > 0xFF) {
            return false;
        }
    }
    return true;
}

std::size_t narrowFittingPlain(const wchar_t* src, std::size_t length, char* dst) noexcept {
    constexpr std::size_t kBlock = 256;
    std::size_t done = 0;
    while (done < length) {
        const std::size_t block = std::min(length - done, kBlock);
        if (!fitsInBytePlain(src + done, block)) {
            break;
        }
        narrowPlain(src + done, block, dst + done);
        done += block;
    }
    for (; done < length && static_cast<std::uint32_t>(src[done]) <= 0xFF; ++done) {
        dst[done] = static_cast<char>(src[done]);
    }
    return done;
}

void decodeUtf16Plain(ByteOrder order, const char* src, std::size_t units, wchar_t* dst) noexcept {
    if (order == ByteOrder::big) {
        decodeUnits<true>(src, units, dst);
    } else {
        decodeUnits<false>(src, units, dst);
    }
}

void encodeUtf16Plain(ByteOrder order, const wchar_t* src, std::size_t units, char* dst) noexcept {
    if (order == ByteOrder::big) {
        encodeUnits<true>(src, units, dst);
    } else {
        encodeUnits<false>(src, units, dst);
    }
}

} // namespace sup::kernels
