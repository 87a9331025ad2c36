// The digits that buffers and print writers have in common, against the standard library's.
#include "NumberDigits.h"

#include "../string/string_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>

namespace {

using namespace brimtest;

std::string standardText(std::uint64_t value, int base) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, value, base).ptr);
}

// What `write` makes of `value` in `room` characters, of which none before or behind may change.
template <class T, class Write>
std::string writtenText(std::size_t room, Write write) {
    constexpr T kFence = 'z';
    T text[32];
    std::fill(std::begin(text), std::end(text), kFence);
    T* const end = write(text + 1);
    EXPECT_EQ(text[0], kFence);
    EXPECT_TRUE(std::all_of(text + 1 + room, std::end(text), [](T c) { return c == kFence; }));
    return std::string(text + 1, end);
}

template <class T>
void expectDigits(std::uint64_t value) {
    ASSERT_EQ(writtenText<T>(sup::kDecimalRoom, [value](T* to) { return sup::writeDecimal(to, value); }),
              standardText(value, 10));
    T room[sup::kDecimalRoom];
    ASSERT_EQ(std::string(sup::writeDecimalBefore(std::end(room), value), std::end(room)),
              standardText(value, 10));
    ASSERT_EQ(writtenText<T>(sup::kHexRoom, [value](T* to) { return sup::writeHex(to, value); }),
              standardText(value, 16));
}

template <class T>
class NumberDigits : public testing::Test {};
TYPED_TEST_SUITE(NumberDigits, CharacterTypes, CharacterTypeNames);

TYPED_TEST(NumberDigits, SmallNumbers) {
    for (std::uint64_t value = 0; value <= 20'000; ++value) {
        expectDigits<TypeParam>(value);
    }
}

TYPED_TEST(NumberDigits, AroundEachPower) {
    std::uint64_t decimal = 1;
    for (int i = 0; i < 20; ++i, decimal *= 10) {
        for (const std::uint64_t value : {decimal - 1, decimal, decimal + 1, 9 * decimal}) {
            expectDigits<TypeParam>(value);
        }
    }
    for (int bit = 0; bit < 64; ++bit) {
        for (const std::uint64_t less : {0U, 1U}) {
            expectDigits<TypeParam>((std::uint64_t{1} << bit) - less);
        }
    }
    expectDigits<TypeParam>(~std::uint64_t{0});
    expectDigits<TypeParam>(0x0123'4567'89AB'CDEF);
    expectDigits<TypeParam>(0x0FED'CBA9'0000'0001);
}

TYPED_TEST(NumberDigits, RandomNumbersOfEachLength) {
    constexpr unsigned kSeed = 200;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    std::mt19937_64 random(kSeed);
    for (int i = 0; i < 20'000; ++i) {
        expectDigits<TypeParam>(random() >> (i % 64));
    }
}

} // namespace
