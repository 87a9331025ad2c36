// What the tests of sup::String share: texts of both character types, the sizes that blocks must have, and
// strings in each state of sharing.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <type_traits>

namespace brimtest {

using CharacterTypes = ::testing::Types<wchar_t, char>;

struct CharacterTypeNames {
    template <class T>
    static std::string GetName(int /*index*/) {
        return std::is_same<T, wchar_t>::value ? "Wide" : "Narrow";
    }
};

template <class T>
constexpr const T* chooseText(const char* narrow, const wchar_t* wide) {
    if constexpr (std::is_same<T, char>::value) {
        return narrow;
    } else {
        return wide;
    }
}

// The text `literal` in characters of the test's type, TypeParam; it may hold zeros.
#define TEXT(literal) (::brimtest::chooseText<TypeParam>(literal, L##literal))
#define CHARACTER(literal) (static_cast<TypeParam>(literal))
// The text with its zeros, as a standard string.
#define FULL_TEXT(literal) (std::basic_string<TypeParam>(TEXT(literal), sizeof(literal) - 1))

// A readable and complete picture of a text: what is not printable ASCII appears as its number.
template <class T>
std::string show(const T* first, const T* last) {
    std::string shown;
    for (; first != last; ++first) {
        const auto value = static_cast<unsigned long>(static_cast<std::make_unsigned_t<T>>(*first));
        if (value >= 0x20 && value < 0x7F) {
            shown += static_cast<char>(value);
        } else {
            char number[24];
            std::snprintf(number, sizeof(number), "<%lX>", value);
            shown += number;
        }
    }
    return shown;
}
template <class T>
std::string show(const std::basic_string<T>& text) {
    return show(text.data(), text.data() + text.size());
}
// Also tells when the characters do not end in a zero.
template <class T>
std::string show(const sup::String<T>& s) {
    return show(s.begin(), s.end()) + (*s.end() == T() ? "" : " without its zero");
}

template <class T>
std::basic_string<T> copyOf(const sup::String<T>& s) {
    return std::basic_string<T>(s.begin(), s.end());
}

// `n` characters a, b, ... z, a, ...
template <class T>
std::basic_string<T> alphabet(std::size_t n) {
    std::basic_string<T> text;
    for (std::size_t i = 0; i < n; ++i) {
        text += static_cast<T>('a' + static_cast<int>(i % 26));
    }
    return text;
}
template <class T>
sup::String<T> alphabetString(std::size_t n) {
    const std::basic_string<T> text = alphabet<T>(n);
    return sup::String<T>(text.data(), text.size());
}

constexpr std::size_t kHeaderSize = 24;

// The size of the block that is made for `n` characters, and how many fit into it.
template <class T>
std::size_t blockSize(std::size_t n) {
    const std::size_t bytes = std::is_same<T, char>::value ? n + 8 : 4 * n + 11;
    return kHeaderSize + bytes / 8 * 8;
}
template <class T>
std::size_t blockCapacity(std::size_t n) {
    return (blockSize<T>(n) - kHeaderSize) / sizeof(T) - 1;
}

// Counts the requests of the log, each of which must be for the block of a string.
inline std::size_t stringBlocks(const AllocationLog& log) {
    for (const AllocationRequest& request : log.requests()) {
        EXPECT_STREQ(request.file, "server/include/Utility/Generic/Portable/SUPStringImpl.h");
        EXPECT_EQ(request.line, 68);
    }
    return log.requests().size();
}

// Expects what an operation requested: one block made for `n` characters, or nothing.
template <class T>
::testing::AssertionResult askedForOneBlock(const AllocationLog& log, std::size_t n) {
    if (stringBlocks(log) != 1) {
        return ::testing::AssertionFailure() << stringBlocks(log) << " blocks requested";
    }
    const std::size_t size = log.requests().front().size;
    if (size != blockSize<T>(n)) {
        return ::testing::AssertionFailure()
               << "a block of " << size << " bytes instead of " << blockSize<T>(n);
    }
    return ::testing::AssertionSuccess();
}
inline ::testing::AssertionResult askedForNothing(const AllocationLog& log) {
    return log.requests().empty()
               ? ::testing::AssertionSuccess()
               : ::testing::AssertionFailure() << log.requests().size() << " blocks requested";
}

// Every block of a test must be gone at its end.
class BalancedTest : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(RecordingAllocator::liveBlocks(), m_liveBlocks) << "blocks at the end";
    }

private:
    const long m_liveBlocks = RecordingAllocator::liveBlocks();
};

template <class T>
class StringTestOf : public BalancedTest {};

} // namespace brimtest
