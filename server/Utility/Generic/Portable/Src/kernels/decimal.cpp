// The algorithm of Eisel and Lemire ("Number parsing at a gigabyte per second"): a product with a power of
// five of 128 bits tells the double of every integer of 64 bits, as Mushtak and Lemire have proved.
#include "kernels/decimal.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace sup::kernels {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr int kLeastPower = -342; // 10^64 times the next one is less than half of the least double
constexpr int kGreatestPower = 308;

// An integer of so many bits, the lowest word first.
class LongInteger {
public:
    static constexpr int kWords = 17;

    constexpr LongInteger() : m_words{} {}
    constexpr void setBit(int bit) { m_words[bit / 64] |= std::uint64_t{1} << bit % 64; }
    constexpr void multiply(std::uint64_t factor) {
        Wide carry = 0;
        for (std::uint64_t& word : m_words) {
            carry += Wide{word} * factor;
            word = static_cast<std::uint64_t>(carry);
            carry >>= 64;
        }
    }
    // Drops the remainder.
    constexpr void divide(std::uint64_t divisor) {
        Wide rest = 0;
        for (int i = kWords; i-- != 0;) {
            rest = rest << 64 | m_words[i];
            m_words[i] = static_cast<std::uint64_t>(rest / divisor);
            rest %= divisor;
        }
    }
    // The 128 bits from the highest one that is set on.
    constexpr Wide top() const {
        int high = kWords - 1;
        while (m_words[high] == 0) {
            --high;
        }
        const int zeros = __builtin_clzll(m_words[high]);
        Wide bits = Wide{m_words[high]} << 64 | wordAt(high - 1);
        if (zeros != 0) {
            bits = bits << zeros | wordAt(high - 2) >> (64 - zeros);
        }
        return bits;
    }

private:
    constexpr std::uint64_t wordAt(int i) const { return i < 0 ? 0 : m_words[i]; }

    std::uint64_t m_words[kWords];
};

// The powers of five from 5^kLeastPower on, each shifted so that it has 128 bits; cut off, except that the
// inverses which fit nearly are rounded up.
struct PowersOfFive {
    std::array<Wide, kGreatestPower - kLeastPower + 1> values;
    constexpr PowersOfFive() : values() {
        LongInteger power;
        power.setBit(0);
        for (int q = 0; q <= kGreatestPower; ++q, power.multiply(5)) {
            values[static_cast<std::size_t>(q - kLeastPower)] = power.top();
        }
        LongInteger inverse;
        inverse.setBit(64 * LongInteger::kWords - 1);
        for (int q = -1; q >= kLeastPower; --q) {
            inverse.divide(5);
            values[static_cast<std::size_t>(q - kLeastPower)] = inverse.top() + (q >= -27 ? 1 : 0);
        }
    }
};
constexpr PowersOfFive kPowersOfFive;

// The bits of a double.
constexpr int kMantissaBits = 52;
constexpr int kExponentBias = 1023;
constexpr int kMostBiased = 0x7FE;

// The upper half of the product, and the lower one, of `digits` and a power of five; the upper half is exact
// enough for the rounding.
Wide productOf(std::uint64_t digits, Wide powerOfFive) {
    constexpr std::uint64_t kUnsure = (1U << (64 - kMantissaBits - 3)) - 1;
    Wide product = Wide{digits} * static_cast<std::uint64_t>(powerOfFive >> 64);
    if ((static_cast<std::uint64_t>(product >> 64) & kUnsure) == kUnsure) {
        product += Wide{digits} * static_cast<std::uint64_t>(powerOfFive) >> 64;
    }
    return product;
}

} // namespace

bool decimalToDouble(unsigned long digits, int power, double& value) noexcept {
    if (digits == 0) {
        value = 0;
        return true;
    }
    if (power < kLeastPower || power > kGreatestPower) {
        return false;
    }
    const int zeros = __builtin_clzl(digits);
    const Wide product =
        productOf(digits << zeros, kPowersOfFive.values[static_cast<std::size_t>(power - kLeastPower)]);
    const auto high = static_cast<std::uint64_t>(product >> 64);
    const auto low = static_cast<std::uint64_t>(product);
    const int upper = static_cast<int>(high >> 63);
    const int surplus = upper + 64 - kMantissaBits - 3;
    // With one bit more, which decides on the rounding.
    std::uint64_t mantissa = high >> surplus;
    // log2(10) is nearly 217706 / 65536.
    int biased = (217706 * power >> 16) + 63 + upper - zeros + kExponentBias;
    // Exactly between two doubles, which only small powers can be: the even one.
    if (low <= 1 && power >= -4 && power <= 23 && (mantissa & 3) == 1 && mantissa << surplus == high) {
        mantissa &= ~std::uint64_t{1};
    }
    mantissa = (mantissa + (mantissa & 1)) >> 1;
    if (mantissa >> (kMantissaBits + 1) != 0) {
        mantissa >>= 1;
        ++biased;
    }
    if (biased <= 0 || biased > kMostBiased) {
        return false;
    }
    constexpr std::uint64_t kHidden = std::uint64_t{1} << kMantissaBits;
    const std::uint64_t bits = (mantissa & (kHidden - 1)) | static_cast<std::uint64_t>(biased)
                                                                << kMantissaBits;
    std::memcpy(&value, &bits, sizeof(value));
    return true;
}

} // namespace sup::kernels
