// Widening, narrowing and UTF-16 at each processor level next to the plain loops.
#include "fuzz_input.h"

#include "exact_buffer.h"
#include "kernel_levels.h"

#include <gtest/gtest.h>

using sup::kernels::ByteOrder;
using sup::kernels::Kernels;
using sup::kernels::kernelsInUse;
using sup::kernels::kernelsOf;
using sup::kernels::Level;

namespace {

std::wstring widened(const Kernels& kernels, const std::string& text) {
    ExactBuffer<char> source{std::string_view(text)};
    ExactBuffer<wchar_t> units(text.size());
    kernels.widen(source.data(), text.size(), units.data());
    return units.first(text.size());
}

std::wstring decodedUtf16(const Kernels& kernels, ByteOrder order, const std::string& text) {
    const std::size_t length = text.size() / 2;
    ExactBuffer<char> source{std::string_view(text)};
    ExactBuffer<wchar_t> units(length);
    kernels.decodeUtf16(order, source.data(), length, units.data());
    return units.first(length);
}

std::string encodedUtf16(const Kernels& kernels, ByteOrder order, const std::wstring& text) {
    ExactBuffer<wchar_t> source{std::wstring_view(text)};
    ExactBuffer<char> bytes(2 * text.size());
    kernels.encodeUtf16(order, source.data(), text.size(), bytes.data());
    return bytes.first(2 * text.size());
}

std::string narrowed(const Kernels& kernels, const std::wstring& text) {
    ExactBuffer<wchar_t> source{std::wstring_view(text)};
    ExactBuffer<char> bytes(text.size());
    kernels.narrow(source.data(), text.size(), bytes.data());
    return bytes.first(text.size());
}

// The part of a text that fits.
std::string fitting(const Kernels& kernels, const std::wstring& text) {
    ExactBuffer<wchar_t> source{std::wstring_view(text)};
    ExactBuffer<char> bytes(text.size());
    const std::size_t length = kernels.narrowFitting(source.data(), text.size(), bytes.data());
    EXPECT_EQ(kernels.fitsInByte(source.data(), text.size()), length == text.size());
    return bytes.first(length);
}

} // namespace

void fuzzOne(FuzzInput& input) {
    const bool fromBytes = input.flip();
    const std::string bytes = fromBytes ? input.rest() : std::string();
    const std::wstring units = input.restAsText();
    const Kernels& plain = *kernelsOf(Level::plain);
    brimtest::atEachLevel([&] {
        const Kernels& kernels = kernelsInUse();
        ASSERT_EQ(widened(kernels, bytes), widened(plain, bytes));
        ASSERT_EQ(narrowed(kernels, units), narrowed(plain, units));
        ASSERT_EQ(fitting(kernels, units), fitting(plain, units));
        for (const ByteOrder order : {ByteOrder::little, ByteOrder::big}) {
            ASSERT_EQ(decodedUtf16(kernels, order, bytes), decodedUtf16(plain, order, bytes));
            ASSERT_EQ(encodedUtf16(kernels, order, units), encodedUtf16(plain, order, units));
        }
    });
}
