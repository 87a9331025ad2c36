// The hash of bytes at each processor level, against the rule byte by byte.
#include "kernels/bytehash.h"

#include "guarded_buffer.h"
#include "kernel_levels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using brimtest::GuardedBuffer;
using sup::kernels::hashBytes;
using sup::kernels::hashBytesPlain;

TEST(ByteHash, PlainLoopIsTheRule) {
    EXPECT_EQ(hashBytesPlain(nullptr, 0), 0U);
    const unsigned char bytes[] = {1, 255, 0, 7};
    EXPECT_EQ(hashBytesPlain(bytes, 1), 1U);
    EXPECT_EQ(hashBytesPlain(bytes, 4), ((1U * 101 + 255) * 101 + 0) * 101 + 7);
}

TEST(ByteHash, EveryLengthAtEveryLevel) {
    constexpr unsigned kSeed = 101;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    std::mt19937 random(kSeed);
    GuardedBuffer<unsigned char> buffer(1200);
    brimtest::atEachLevel([&] {
        for (std::size_t n = 0; n <= 1100; ++n) {
            unsigned char* const bytes = buffer.last(n);
            std::generate_n(bytes, n, [&random] { return static_cast<unsigned char>(random()); });
            ASSERT_EQ(hashBytes(bytes, n), hashBytesPlain(bytes, n)) << n;
        }
    });
}

// The largest sums that the vectors have to hold.
TEST(ByteHash, HighestBytesAtEveryLevel) {
    const std::vector<unsigned char> bytes(3000, 0xFF);
    brimtest::atEachLevel([&bytes] {
        for (std::size_t n = 0; n <= bytes.size(); n += n < 300 ? 1 : 37) {
            ASSERT_EQ(hashBytes(bytes.data(), n), hashBytesPlain(bytes.data(), n)) << n;
        }
    });
}

TEST(ByteHash, AnyAlignment) {
    std::vector<unsigned char> bytes(400);
    std::mt19937 random(3);
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<unsigned char>(random()); });
    brimtest::atEachLevel([&bytes] {
        for (std::size_t offset = 0; offset < 64; ++offset) {
            ASSERT_EQ(hashBytes(bytes.data() + offset, 300), hashBytesPlain(bytes.data() + offset, 300));
        }
    });
}

} // namespace
