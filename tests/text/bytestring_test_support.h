// What the tests of sup::ByteString share: the sizes that blocks must have, strings in each state of width
// and sharing, and a check that a block is whole.
#pragma once

#include "Utility/Generic/Portable/SUPBString.h"

#include "../string/string_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace brimtest {

template <class T>
std::basic_string<T> copyOf(const sup::ByteString<T>& b) {
    std::basic_string<T> text;
    for (std::size_t i = 0; i < b.length(); ++i) {
        text += b.at(i);
    }
    return text;
}

template <class T>
std::string show(const sup::ByteString<T>& b) {
    return show(copyOf(b));
}

template <class T>
bool fitsInBytes(const std::basic_string<T>& text) {
    return sizeof(T) == 1 || std::all_of(text.begin(), text.end(), [](T c) { return c >= 0 && c <= 255; });
}

// The bytes that a character of `text` takes when a block is made for it.
template <class T>
unsigned int widthOf(const std::basic_string<T>& text) {
    return fitsInBytes(text) ? 1U : static_cast<unsigned int>(sizeof(T));
}

constexpr std::size_t byteBlockSize(std::size_t capacity, unsigned int width) {
    return 32 + width * capacity + (width == 4 ? 3 : 0);
}

// The plain formula, over the numbers that the characters stand for.
template <class T>
std::uint32_t hashOf(const std::basic_string<T>& text) {
    std::uint32_t h = 0;
    for (const T c : text) {
        h = h * 101U + static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<T>>(c));
    }
    return h;
}

/// Expects `text` in one block of this width and capacity, with count `references` and a zero behind it.
template <class T>
::testing::AssertionResult isBlockOf(const sup::ByteString<T>& b, const std::basic_string<T>& text,
                                     unsigned int width, std::size_t capacity, int references = 1) {
    const auto* const block = b.diagnosticGetSharedRepresentation();
    if (block == nullptr) {
        return ::testing::AssertionFailure() << "null";
    }
    if (block->m_nLength != text.size() || copyOf(b) != text) {
        return ::testing::AssertionFailure() << show(b) << " instead of " << show(text);
    }
    if (block->m_nBytesPerChar != width || b.getBytesPerChar() != width) {
        return ::testing::AssertionFailure() << show(b) << " has width " << int{block->m_nBytesPerChar};
    }
    if (block->m_nCapacity != capacity || b.capacity() != capacity) {
        return ::testing::AssertionFailure() << show(b) << " has capacity " << block->m_nCapacity;
    }
    if (block->m_refCount.get() != references || b.isUnique() != (references == 1)) {
        return ::testing::AssertionFailure() << show(b) << " has count " << block->m_refCount.get();
    }
    static const char kZero[4] = {};
    if (std::memcmp(block->m_pStart + width * text.size(), kZero, width) != 0) {
        return ::testing::AssertionFailure() << show(b) << " does not end in a zero";
    }
    return ::testing::AssertionSuccess();
}

template <class T>
::testing::AssertionResult isFreshBlockOf(const sup::ByteString<T>& b, const std::basic_string<T>& text) {
    return isBlockOf(b, text, widthOf(text), text.size());
}

template <class T>
::testing::AssertionResult isNull(const sup::ByteString<T>& b) {
    return b.diagnosticGetSharedRepresentation() == nullptr
               ? ::testing::AssertionSuccess()
               : ::testing::AssertionFailure() << "a block: " << show(b);
}

template <class T>
bool shareOneBlock(const sup::ByteString<T>& a, const sup::ByteString<T>& b) {
    return a.diagnosticGetSharedRepresentation() != nullptr &&
           a.diagnosticGetSharedRepresentation() == b.diagnosticGetSharedRepresentation();
}

template <class T>
sup::ByteString<T> byteString(const std::basic_string<T>& text) {
    return sup::ByteString<T>(text.data(), text.size());
}

// The text in a block of the full width, whatever its characters. Made through the block itself, as no
// operation of the string stores narrow text so.
template <class T>
sup::ByteString<T> inFullWidth(const std::basic_string<T>& text) {
    sup::ByteString<T> b(text.size(), sizeof(T));
    const_cast<sup::string_details::ByteStringData<T>*>(b.diagnosticGetSharedRepresentation())
        ->append(text.data(), text.size());
    return b;
}

// A string without characters that has a block.
template <class T>
sup::ByteString<T> emptyWithBlock(unsigned int width = 1) {
    return sup::ByteString<T>(std::size_t{5}, width);
}

// Characters of all kinds: of one byte only, or of any value when `narrow` is false (which may happen to
// fit). `random` gives numbers up to 255 or more.
template <class T, class Random>
std::basic_string<T> randomText(Random& random, std::size_t n, bool narrow = true) {
    static constexpr std::int64_t kWide[] = {0x100, 0x130, 0x20AC, 0xFFFF, 0x10FFFF, 0x7FFFFFFF, -1, -256};
    std::basic_string<T> text;
    for (std::size_t i = 0; i < n; ++i) {
        const bool wide = !narrow && random() % 4 == 0;
        text += static_cast<T>(wide ? kWide[random() % std::size(kWide)]
                                    : static_cast<std::int64_t>(random() % 256));
    }
    return text;
}

// Each request of the log must be for the block of a byte string.
inline std::size_t byteStringBlocks(const AllocationLog& log) {
    for (const AllocationRequest& request : log.requests()) {
        EXPECT_STREQ(request.file, "server/include/Utility/Generic/Portable/SUPBStringImpl.h");
        EXPECT_EQ(request.line, 104);
    }
    return log.requests().size();
}

inline ::testing::AssertionResult askedForByteBlock(const AllocationLog& log, std::size_t capacity,
                                                    unsigned int width) {
    if (byteStringBlocks(log) != 1) {
        return ::testing::AssertionFailure() << byteStringBlocks(log) << " blocks requested";
    }
    if (log.requests().front().size != byteBlockSize(capacity, width)) {
        return ::testing::AssertionFailure() << "a block of " << log.requests().front().size << " bytes";
    }
    return ::testing::AssertionSuccess();
}

template <class T>
class ByteStringTestOf : public BalancedTest {};

// Tests of the wide instantiation alone, which chooses between two widths.
class WideByteStringTest : public BalancedTest {
protected:
    using B = sup::ByteString<wchar_t>;
    using Text = std::wstring;
};

} // namespace brimtest
