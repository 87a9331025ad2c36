// The digits of unsigned numbers, wide or narrow, written straight to where they belong.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace sup {

/// The room that writeDecimal() and writeHex() ask for.
inline constexpr std::size_t kDecimalRoom = 20;
inline constexpr std::size_t kHexRoom = 16;

namespace number_digits_details {

// ---- Decimal ----------------------------------------------------------------------------------------------

// The digits of 0 to 99.
template <class T>
struct DigitPairs {
    T digits[100][2] = {};
    constexpr DigitPairs() {
        for (int i = 0; i < 100; ++i) {
            digits[i][0] = static_cast<T>('0' + i / 10);
            digits[i][1] = static_cast<T>('0' + i % 10);
        }
    }
};
template <class T>
inline constexpr DigitPairs<T> kDigitPairs;

template <class T>
void writePair(T* to, unsigned int pair) noexcept {
    std::memcpy(to, kDigitPairs<T>.digits[pair], 2 * sizeof(T));
}

// Eight digits, in which few divisions wait for the result of another.
inline constexpr std::uint64_t kEightDigits = 100'000'000;
template <class T>
void writeEight(T* to, std::uint64_t value) noexcept {
    const auto eight = static_cast<std::uint32_t>(value % kEightDigits);
    const std::uint32_t high = eight / 10000;
    const std::uint32_t low = eight % 10000;
    writePair(to, high / 100);
    writePair(to + 2, high % 100);
    writePair(to + 4, low / 100);
    writePair(to + 6, low % 100);
}

struct PowersOfTen {
    std::uint64_t values[kDecimalRoom] = {1};
    constexpr PowersOfTen() {
        for (std::size_t n = 1; n < kDecimalRoom; ++n) {
            values[n] = values[n - 1] * 10;
        }
    }
};
inline constexpr PowersOfTen kPowersOfTen;

// ---- Hexadecimal ------------------------------------------------------------------------------------------

constexpr std::uint64_t inEachByte(std::uint64_t byte) { return byte * 0x0101'0101'0101'0101; }

// The eight digits as text, each in a byte of the result, the first in its lowest byte.
inline std::uint64_t hexText(std::uint32_t value) noexcept {
    std::uint64_t digits = value;
    digits = (digits << 16 | digits) & 0x0000'FFFF'0000'FFFF;
    digits = (digits << 8 | digits) & 0x00FF'00FF'00FF'00FF;
    digits = (digits << 4 | digits) & 0x0F0F'0F0F'0F0F'0F0F;
    const std::uint64_t isLetter = (digits + inEachByte(6)) >> 4 & inEachByte(1);
    return __builtin_bswap64(digits + inEachByte('0') + isLetter * ('a' - 10 - '0'));
}

inline void storeEight(char* to, std::uint64_t text) noexcept { std::memcpy(to, &text, sizeof text); }
inline void storeEight(wchar_t* to, std::uint64_t text) noexcept {
    const __m128i zero = _mm_setzero_si128();
    const __m128i units = _mm_unpacklo_epi8(_mm_cvtsi64_si128(static_cast<long long>(text)), zero);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_unpacklo_epi16(units, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 4), _mm_unpackhi_epi16(units, zero));
}

} // namespace number_digits_details

/// 10^n for n below kDecimalRoom.
inline std::uint64_t powerOfTen(std::size_t n) noexcept {
    return number_digits_details::kPowersOfTen.values[n];
}

/// How many digits `value` has; 0 has one.
inline std::size_t countOfDecimalDigits(std::uint64_t value) noexcept {
    // 1233 / 4096 is the logarithm of 2: what it guesses is one too small or right. The odd one of two
    // neighbours has as many digits, and is not 0.
    const auto bits = 64U - static_cast<unsigned int>(__builtin_clzl(value | 1));
    const std::size_t guess = bits * 1233U >> 12U;
    return guess + ((value | 1) >= powerOfTen(guess) ? 1 : 0);
}

/// The number without its sign.
constexpr std::uint64_t magnitudeOf(std::int64_t value) noexcept {
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? ~bits + 1 : bits;
}

/// Writes the last `count` digits of `value` in front of `end`; zeros where it has none.
template <class T>
void writeDigitsBefore(T* end, std::size_t count, std::uint64_t value) noexcept {
    using namespace number_digits_details;
    for (; count >= 8; count -= 8, value /= kEightDigits) {
        writeEight(end -= 8, value);
    }
    auto rest = static_cast<std::uint32_t>(value % kEightDigits);
    for (; count >= 2; count -= 2, rest /= 100) {
        writePair(end -= 2, rest % 100);
    }
    if (count != 0) {
        end[-1] = static_cast<T>('0' + rest % 10);
    }
}

/// Writes the digits of `value` in front of `end`, where there is room for kDecimalRoom characters, and
/// returns their beginning.
template <class T>
T* writeDecimalBefore(T* end, std::uint64_t value) noexcept {
    using namespace number_digits_details;
    T* p = end;
    for (; value >= kEightDigits; value /= kEightDigits) {
        writeEight(p -= 8, value);
    }
    auto rest = static_cast<std::uint32_t>(value);
    for (; rest >= 100; rest /= 100) {
        p -= 2;
        writePair(p, rest % 100);
    }
    if (rest >= 10) {
        p -= 2;
        writePair(p, rest);
    } else {
        *--p = static_cast<T>('0' + rest);
    }
    return p;
}

/// Writes the digits of `value` to `to`, which has room for kDecimalRoom characters, and returns their end.
template <class T>
T* writeDecimal(T* to, std::uint64_t value) noexcept {
    T* const end = to + countOfDecimalDigits(value);
    writeDecimalBefore(end, value);
    return end;
}

/// The same in lower-case hexadecimal digits; the room, all of which may be written, is kHexRoom characters.
template <class T>
T* writeHex(T* to, std::uint64_t value) noexcept {
    using number_digits_details::hexText;
    using number_digits_details::storeEight;
    const auto high = static_cast<std::uint32_t>(value >> 32);
    const auto low = static_cast<std::uint32_t>(value);
    const std::uint32_t first = high != 0 ? high : low;
    const auto zeros = static_cast<unsigned int>(__builtin_clz(first | 1)) / 4;
    storeEight(to, hexText(first) >> (8 * zeros));
    to += 8 - zeros;
    if (high != 0) {
        storeEight(to, hexText(low));
        to += 8;
    }
    return to;
}

} // namespace sup
