#include "kernels/widths.h"

#include "guarded_buffer.h"
#include "kernels/kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

using brimtest::GuardedBuffer;
using sup::kernels::ByteOrder;
using sup::kernels::Kernels;
using sup::kernels::kernelsOf;
using sup::kernels::Level;

namespace {

// The full sweeps take seconds; instrumented builds see a part of each.
#ifdef BRIM_SANITIZED
constexpr std::size_t kOffsetStep = 13;
constexpr std::size_t kPlaceStep = 7;
#else
constexpr std::size_t kOffsetStep = 1;
constexpr std::size_t kPlaceStep = 1;
#endif

constexpr std::size_t kLongestText = 260;
constexpr std::size_t kOffsets = 64;
// Long texts are aligned first, and their loops take several steps at once.
constexpr std::size_t kLong[] = {1000, 1023, 1024, 1025, 1039, 1100, 2047, 5000};
constexpr std::size_t kRoom = 6000;
constexpr std::size_t kTargetRoom = 2 * kRoom;

constexpr std::uint32_t kOddUnits[] = {0x100,      0x17F,      0x7FFF,     0x8000,    0xD800,
                                       0xFFFF,     0x10000,    0x10041,    0x10FFFF,  0x7FFFFFFF,
                                       0x80000000, 0x80000041, 0xFFFFFF00, 0xFFFFFFFF};

// ---- The rules --------------------------------------------------------------------------------------------

std::uint32_t numberOf(wchar_t unit) { return static_cast<std::uint32_t>(unit); }
std::uint32_t numberOf(char byte) { return static_cast<unsigned char>(byte); }

std::wstring widened(std::string_view text) {
    std::wstring units;
    for (const char byte : text) {
        units += static_cast<wchar_t>(numberOf(byte));
    }
    return units;
}

std::string narrowed(std::wstring_view text) {
    std::string bytes;
    for (const wchar_t unit : text) {
        bytes += static_cast<char>(numberOf(unit) % 0x100);
    }
    return bytes;
}

std::size_t fittingUnits(std::wstring_view text) {
    const auto fits = [](wchar_t unit) { return numberOf(unit) <= 0xFF; };
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), fits) - text.begin());
}

std::wstring decodedUtf16(ByteOrder order, std::string_view text) {
    std::wstring units;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        const std::uint32_t first = numberOf(text[i]);
        const std::uint32_t second = numberOf(text[i + 1]);
        units +=
            static_cast<wchar_t>(order == ByteOrder::big ? first * 0x100 + second : second * 0x100 + first);
    }
    return units;
}

std::string encodedUtf16(ByteOrder order, std::wstring_view text) {
    std::string bytes;
    for (const wchar_t unit : text) {
        const auto low = static_cast<char>(numberOf(unit) % 0x100);
        const auto high = static_cast<char>(numberOf(unit) / 0x100 % 0x100);
        bytes += order == ByteOrder::big ? high : low;
        bytes += order == ByteOrder::big ? low : high;
    }
    return bytes;
}

// ---- Running the loops ------------------------------------------------------------------------------------

class WidthKernels : public testing::TestWithParam<Level> {
protected:
    void SetUp() override {
        m_kernels = kernelsOf(GetParam());
        if (m_kernels == nullptr) {
            GTEST_SKIP() << "the processor lacks this level";
        }
    }

    // Runs `convert` from a text to `expected`. At the ends of both lie pages that nobody may touch, or, with
    // an offset, both lie somewhere; what is around the destination must stay.
    template <class Source, class Target, class Convert>
    void expectConversion(std::basic_string_view<Source> text, std::basic_string_view<Target> expected,
                          Convert convert) {
        Source* const src = buffer<Source>().last(text.size());
        text.copy(src, text.size());
        Target* const dst = buffer<Target>().lastFenced(expected.size(), fill<Target>());
        convert(src, dst);
        ASSERT_EQ(std::basic_string_view<Target>(dst, expected.size()), expected);
        ASSERT_TRUE(buffer<Target>().fenceIsWhole(expected.size(), fill<Target>()));
    }
    template <class Source, class Target, class Convert>
    void expectConversionAt(std::size_t offset, std::basic_string_view<Source> text,
                            std::basic_string_view<Target> expected, Convert convert) {
        Source* const src = buffer<Source>().last(kRoom) + offset;
        text.copy(src, text.size());
        // Apart from each other, so that each meets every place of the other.
        Target* const dst = buffer<Target>().last(kTargetRoom) + 1 + (offset + text.size()) % kOffsets;
        std::fill(dst - 1, dst + expected.size() + 1, fill<Target>());
        convert(src, dst);
        ASSERT_EQ(std::basic_string_view<Target>(dst, expected.size()), expected);
        ASSERT_EQ(dst[-1], fill<Target>());
        ASSERT_EQ(dst[expected.size()], fill<Target>());
    }

    void checkWidening(std::string_view text, std::size_t offset) {
        const std::wstring wide = widened(text);
        const auto widen = [&](const char* src, wchar_t* dst) { m_kernels->widen(src, text.size(), dst); };
        expectBoth(text, std::wstring_view(wide), offset, widen);
        for (const ByteOrder order : {ByteOrder::little, ByteOrder::big}) {
            const std::wstring units = decodedUtf16(order, text);
            const auto decode = [&](const char* src, wchar_t* dst) {
                m_kernels->decodeUtf16(order, src, units.size(), dst);
            };
            expectBoth(text, std::wstring_view(units), offset, decode);
        }
    }
    void checkNarrowing(std::wstring_view text, std::size_t offset) {
        const std::string bytes = narrowed(text);
        const auto narrow = [&](const wchar_t* src, char* dst) { m_kernels->narrow(src, text.size(), dst); };
        expectBoth(text, std::string_view(bytes), offset, narrow);
        for (const ByteOrder order : {ByteOrder::little, ByteOrder::big}) {
            const std::string pairs = encodedUtf16(order, text);
            const auto encode = [&](const wchar_t* src, char* dst) {
                m_kernels->encodeUtf16(order, src, text.size(), dst);
            };
            expectBoth(text, std::string_view(pairs), offset, encode);
        }
        checkFitting(text, offset);
    }
    void checkFitting(std::wstring_view text, std::size_t offset) {
        const std::size_t fitting = fittingUnits(text);
        const std::string bytes = narrowed(text.substr(0, fitting));
        const auto narrow = [&](const wchar_t* src, char* dst) {
            ASSERT_EQ(m_kernels->narrowFitting(src, text.size(), dst), fitting);
            ASSERT_EQ(m_kernels->fitsInByte(src, text.size()), fitting == text.size());
        };
        expectBoth(text, std::string_view(bytes), offset, narrow);
    }

    const Kernels* m_kernels = nullptr;

private:
    template <class Source, class Target, class Convert>
    void expectBoth(std::basic_string_view<Source> text, std::basic_string_view<Target> expected,
                    std::size_t offset, Convert convert) {
        if (offset == 0) {
            expectConversion(text, expected, convert);
        }
        expectConversionAt(offset, text, expected, convert);
    }

    template <class T>
    static T fill() {
        return static_cast<T>(0x5A5A5A5A);
    }
    template <class T>
    GuardedBuffer<T>& buffer() {
        if constexpr (sizeof(T) == 1) {
            return m_bytes;
        } else {
            return m_units;
        }
    }

    GuardedBuffer<char> m_bytes{3 * kRoom};
    GuardedBuffer<wchar_t> m_units{3 * kRoom};
};

const char* nameOf(Level level) {
    return level == Level::plain ? "plain" : level == Level::avx2 ? "avx2" : "avx512";
}

INSTANTIATE_TEST_SUITE_P(Levels, WidthKernels, testing::Values(Level::plain, Level::avx2, Level::avx512),
                         [](const testing::TestParamInfo<Level>& row) {
                             return std::string(nameOf(row.param));
                         });

// ---- Texts ------------------------------------------------------------------------------------------------

constexpr std::uint32_t kSeed = 4401;

class Texts {
public:
    std::string bytes(std::size_t length) {
        std::string text(length, '\0');
        for (char& byte : text) {
            byte = static_cast<char>(m_random());
        }
        return text;
    }
    // Up to `limit`, and about one in `period` anything at all.
    std::wstring units(std::size_t length, std::uint32_t limit, std::uint32_t period) {
        std::wstring text(length, L'\0');
        for (wchar_t& unit : text) {
            const std::uint32_t value = static_cast<std::uint32_t>(m_random());
            unit = static_cast<wchar_t>(period != 0 && m_random() % period == 0 ? value : value % limit);
        }
        return text;
    }

private:
    std::mt19937 m_random{kSeed};
};

// ---- The tests --------------------------------------------------------------------------------------------

TEST_P(WidthKernels, WidenEveryLengthAtEveryOffset) {
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    Texts texts;
    for (std::size_t length = 0; length <= kLongestText; ++length) {
        const std::string text = texts.bytes(length);
        for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
            ASSERT_NO_FATAL_FAILURE(checkWidening(text, offset)) << length << " bytes at " << offset;
        }
    }
}

TEST_P(WidthKernels, NarrowEveryLengthAtEveryOffset) {
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    Texts texts;
    for (std::size_t length = 0; length <= kLongestText; ++length) {
        for (const std::uint32_t period : {0U, 100U}) {
            const std::wstring text = texts.units(length, 0x100, period);
            for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
                ASSERT_NO_FATAL_FAILURE(checkNarrowing(text, offset)) << length << " units at " << offset;
            }
        }
    }
}

TEST_P(WidthKernels, TakeLongTextsAtEveryOffset) {
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    Texts texts;
    for (const std::size_t length : kLong) {
        const std::string bytes = texts.bytes(length);
        const std::wstring units = texts.units(length, 0x10000, 7);
        const std::wstring fitting = texts.units(length, 0x100, 0);
        for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
            ASSERT_NO_FATAL_FAILURE(checkWidening(bytes, offset)) << length << " bytes at " << offset;
            ASSERT_NO_FATAL_FAILURE(checkNarrowing(units, offset)) << length << " units at " << offset;
            ASSERT_NO_FATAL_FAILURE(checkFitting(fitting, offset)) << length << " units at " << offset;
        }
    }
}

TEST_P(WidthKernels, StopAtTheFirstUnitThatDoesNotFit) {
    SCOPED_TRACE(testing::Message() << "seed " << kSeed);
    Texts texts;
    const std::wstring text = texts.units(600, 0x100, 0);
    for (std::size_t place = 0; place < text.size(); place += kPlaceStep) {
        for (const std::uint32_t odd : kOddUnits) {
            std::wstring other = text;
            other[place] = static_cast<wchar_t>(odd);
            ASSERT_NO_FATAL_FAILURE(checkFitting(other, 0)) << std::hex << odd << " at " << place;
            other.resize(place + 1);
            ASSERT_NO_FATAL_FAILURE(checkFitting(other, 0)) << std::hex << odd << " at the end";
        }
    }
}

TEST_P(WidthKernels, TakeNothingFromNothing) {
    m_kernels->widen(nullptr, 0, nullptr);
    m_kernels->narrow(nullptr, 0, nullptr);
    m_kernels->decodeUtf16(ByteOrder::big, nullptr, 0, nullptr);
    m_kernels->encodeUtf16(ByteOrder::little, nullptr, 0, nullptr);
    EXPECT_TRUE(m_kernels->fitsInByte(nullptr, 0));
    EXPECT_EQ(m_kernels->narrowFitting(nullptr, 0, nullptr), 0U);
}

} // namespace
