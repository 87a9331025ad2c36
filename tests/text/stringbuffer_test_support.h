// What the tests of string buffers share: the growth that they expect, and texts of both character types.
#pragma once

#include "Utility/Generic/Portable/StringBuffer.h"

#include "../string/string_test_support.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cwchar>
#include <limits>
#include <string>

namespace brimtest {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
constexpr const char* kBufferFile = "server/include/Utility/Generic/Portable/StringBufferBase.h";
constexpr int kBufferLine = 358;

template <class T>
using BufferBase = sup::StringBufferBaseTemplate<T>;

template <class T>
std::basic_string<T> textOf(const BufferBase<T>& buffer) {
    return std::basic_string<T>(buffer.begin(), buffer.end());
}

// The smallest 2^k - 1 from 63 upwards that holds `needed`.
inline std::size_t grownCapacity(std::size_t needed) {
    std::size_t capacity = 63;
    while (capacity < needed) {
        capacity = 2 * capacity + 1;
    }
    return capacity;
}

// The log must show one block, made for a buffer of `capacity`.
template <class T>
::testing::AssertionResult askedForCapacity(const AllocationLog& log, std::size_t capacity) {
    const auto requests = log.requests();
    if (requests.size() != 1) {
        return ::testing::AssertionFailure() << requests.size() << " blocks requested";
    }
    const AllocationRequest& request = requests.front();
    if (request.size != (capacity + 1) * sizeof(T) || std::string(request.file) != kBufferFile ||
        request.line != kBufferLine) {
        return ::testing::AssertionFailure()
               << request.size << " bytes for " << request.file << ", line " << request.line;
    }
    return ::testing::AssertionSuccess();
}

template <class T>
bool liesIn(const BufferBase<T>& buffer, const void* object, std::size_t size) {
    const auto* const p = reinterpret_cast<const unsigned char*>(buffer.begin());
    const auto* const first = static_cast<const unsigned char*>(object);
    return p >= first && p < first + size;
}
template <std::size_t N, class T>
bool isInline(const sup::StringBufferTemplate<N, T>& buffer) {
    return liesIn(buffer, &buffer, sizeof(buffer));
}

// What the C library formats.
template <class... Arguments>
std::wstring formatted(const wchar_t* format, Arguments... arguments) {
    wchar_t text[256];
    const int n = std::swprintf(text, 256, format, arguments...);
    return std::wstring(text, static_cast<std::size_t>(n));
}
template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
    char text[256];
    const int n = std::snprintf(text, 256, format, arguments...);
    return std::string(text, static_cast<std::size_t>(n));
}

} // namespace brimtest
