#include "kernels/kernels.h"

#include "Utility/Generic/Portable/transcodercache.h"
#include "child_process.h"
#include "guarded_buffer.h"
#include "kernels/utf8_wellformed.h"
#include "transcodingimplutf8.h"
#include "utf8_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

using brimtest::FreshProcess;
using brimtest::GuardedBuffer;
using brimtest::HeldBytes;
using brimtest::Utf8Model;
using sup::kernels::DecodeProgress;
using sup::kernels::EncodeProgress;
using sup::kernels::Kernels;
using sup::kernels::kernelsInUse;
using sup::kernels::kernelsOf;
using sup::kernels::Level;
using sup::kernels::overrideKernels;
using sup::kernels::SingleByteDecoding;
using sup::kernels::SingleByteEncoding;
using sup::transcodeimpl::TranscoderCache;
using sup::transcodeimpl::TranscoderImplBase;
using sup::transcodeimpl::TranscoderImplUTF8;
using testing::AssertionFailure;
using testing::AssertionResult;
using testing::AssertionSuccess;

namespace {

// The full sweeps take seconds; instrumented builds see a part of each.
#ifdef BRIM_SANITIZED
constexpr std::size_t kOffsetStep = 13;
constexpr std::size_t kPlaceStep = 3;
constexpr int kRounds = 1000;
#else
constexpr std::size_t kOffsetStep = 1;
constexpr std::size_t kPlaceStep = 1;
constexpr int kRounds = 20000;
#endif

constexpr std::size_t kLongestText = 260;
constexpr std::size_t kOffsets = 64;

constexpr struct {
    Level level;
    const char* name;
} kLevels[] = {{Level::plain, "plain"}, {Level::avx2, "avx2"}, {Level::avx512, "avx512"}};

const char* nameOf(Level level) { return kLevels[static_cast<std::size_t>(level)].name; }

template <class Text>
std::string hex(const Text& text) {
    std::ostringstream out;
    out << std::hex << std::uppercase;
    for (const auto element : text) {
        using Element = std::remove_const_t<decltype(element)>;
        out << ' ' << (static_cast<std::uint32_t>(element) & (sizeof(Element) == 1 ? 0xFFU : 0xFFFFFFFFU));
    }
    return out.str();
}

// ---- What a kernel must do --------------------------------------------------------------------------------

struct Decoded {
    std::size_t consumed;
    std::wstring units;
};

Decoded decodedByModel(std::string_view text) {
    HeldBytes held;
    std::wstring units = Utf8Model::decode(text, text.size(), held).written;
    return {text.size() - held.bytes.size(), units};
}

struct Encoded {
    std::size_t consumed;
    std::string bytes;
};

// The encoder stops before a unit above 0xFFFF and before a high surrogate at the very end.
Encoded encodedByModel(std::wstring_view text) {
    std::size_t length = 0;
    while (length < text.size() && static_cast<std::uint32_t>(text[length]) <= 0xFFFF) {
        ++length;
    }
    if (length == text.size() && length != 0 &&
        (static_cast<std::uint32_t>(text.back()) & ~0x3FFU) == 0xD800) {
        --length;
    }
    return {length, Utf8Model::encode(text.substr(0, length), 3 * text.size()).written};
}

// ---- Running one ------------------------------------------------------------------------------------------

constexpr wchar_t kUnitFill = 0x5A5A5A5A;
constexpr char kByteFill = 0x5A;

AssertionResult checkDecoder(const Kernels& kernels, std::string_view text, const char* src, wchar_t* dst,
                             const Decoded& expected) {
    const DecodeProgress at = kernels.decodeUtf8(src, src + text.size(), dst);
    const auto consumed = static_cast<std::size_t>(at.src - src);
    const auto written = static_cast<std::size_t>(at.dst - dst);
    if (consumed == expected.consumed && written == expected.units.size() &&
        std::equal(expected.units.begin(), expected.units.end(), dst)) {
        return AssertionSuccess();
    }
    return AssertionFailure() << nameOf(kernels.level) << ", decoding" << hex(text) << " took " << consumed
                              << " bytes:" << hex(std::wstring_view(dst, std::min(written, text.size())))
                              << "; should take " << expected.consumed << ":" << hex(expected.units);
}

AssertionResult checkEncoder(const Kernels& kernels, std::wstring_view text, const wchar_t* src, char* dst,
                             const Encoded& expected) {
    const EncodeProgress at = kernels.encodeUtf8(src, src + text.size(), dst);
    const auto consumed = static_cast<std::size_t>(at.src - src);
    const auto written = static_cast<std::size_t>(at.dst - dst);
    if (consumed == expected.consumed && written == expected.bytes.size() &&
        std::equal(expected.bytes.begin(), expected.bytes.end(), dst)) {
        return AssertionSuccess();
    }
    return AssertionFailure() << nameOf(kernels.level) << ", encoding" << hex(text) << " took " << consumed
                              << " units:" << hex(std::string_view(dst, std::min(written, 3 * text.size())))
                              << "; should take " << expected.consumed << ":" << hex(expected.bytes);
}

// A source or destination of exactly `count` elements at the end of a heap block, `offset` bytes behind an
// alignment of 64.
template <class T>
class HeapBuffer {
public:
    HeapBuffer(std::size_t count, std::size_t offset)
        : m_block(static_cast<char*>(::operator new (offset + count * sizeof(T), std::align_val_t{64}))),
          m_elements(reinterpret_cast<T*>(m_block.get() + offset)) {}
    T* get() const { return m_elements; }

private:
    struct Delete {
        void operator()(char* block) const { ::operator delete (block, std::align_val_t{64}); }
    };
    std::unique_ptr<char, Delete> m_block;
    T* m_elements;
};

class Utf8Kernels : public testing::TestWithParam<Level> {
protected:
    void SetUp() override {
        m_kernels = kernelsOf(GetParam());
        if (m_kernels == nullptr) {
            GTEST_SKIP() << "the processor has no " << nameOf(GetParam());
        }
    }

    // Source and destination each end at a guard page; what lies before the destination must stay.
    AssertionResult decode(std::string_view text) {
        char* const src = m_bytes.last(text.size());
        text.copy(src, text.size());
        wchar_t* const dst = m_units.lastFenced(text.size(), kUnitFill);
        AssertionResult result = checkDecoder(*m_kernels, text, src, dst, decodedByModel(text));
        if (result && !m_units.fenceIsWhole(text.size(), kUnitFill)) {
            return AssertionFailure() << "wrote before the destination:" << hex(text);
        }
        return result ? judge(src, text.size()) : result;
    }
    AssertionResult judge(const char* src, std::size_t length) {
        const std::size_t wellFormed = m_kernels->wellFormedUtf8(src, length);
        const auto expected = static_cast<std::size_t>(sup::kernels::skipWellFormed(src, src + length) - src);
        if (wellFormed == expected) {
            return AssertionSuccess();
        }
        return AssertionFailure() << nameOf(GetParam()) << " finds " << wellFormed << " well-formed bytes in"
                                  << hex(std::string_view(src, length)) << "; should find " << expected;
    }
    AssertionResult encode(std::wstring_view text) {
        wchar_t* const src = m_units.last(text.size());
        text.copy(src, text.size());
        char* const dst = m_bytes.lastFenced(3 * text.size(), kByteFill);
        AssertionResult result = checkEncoder(*m_kernels, text, src, dst, encodedByModel(text));
        if (result && !m_bytes.fenceIsWhole(3 * text.size(), kByteFill)) {
            return AssertionFailure() << "wrote before the destination:" << hex(text);
        }
        return result;
    }
    AssertionResult count(std::wstring_view text) {
        wchar_t* const src = m_units.last(text.size());
        text.copy(src, text.size());
        const std::size_t size = m_kernels->exactUtf8Size(src, text.size());
        const std::size_t expected = Utf8Model::exactSize(text);
        if (size == expected) {
            return AssertionSuccess();
        }
        return AssertionFailure() << nameOf(GetParam()) << ", size of" << hex(text) << " is " << size
                                  << "; should be " << expected;
    }
    AssertionResult encodeAndCount(std::wstring_view text) {
        AssertionResult result = encode(text);
        return result ? count(text) : result;
    }

    const Kernels* m_kernels = nullptr;

private:
    GuardedBuffer<char> m_bytes{16 * kLongestText};
    GuardedBuffer<wchar_t> m_units{16 * kLongestText};
};

INSTANTIATE_TEST_SUITE_P(Levels, Utf8Kernels, testing::Values(Level::plain, Level::avx2, Level::avx512),
                         [](const testing::TestParamInfo<Level>& row) {
                             return std::string(nameOf(row.param));
                         });

// ---- Texts ------------------------------------------------------------------------------------------------

// Sequences that need care somewhere, or just not: overlong, too large, cut, stray, surrogates, lenient ones.
constexpr std::string_view kTroubleBytes[] = {"\x80",
                                              "\xBF\xBF",
                                              "\xC0\x80",
                                              "\xC1\xBF",
                                              "\xC3",
                                              "\xC3\x28",
                                              "\xE0\x80\x80",
                                              "\xE0\x9F\xBF",
                                              "\xE0\xA0\x80",
                                              "\xED\xA0\x80",
                                              "\xED\xBF\xBF",
                                              "\xE2\x28\xA1",
                                              "\xE2\x82\x28",
                                              "\xE2\x82",
                                              "\xE2\xC3\xA9",
                                              "\xEF",
                                              "\xF0\x80\x80\x80",
                                              "\xF0\x8F\xBF\xBF",
                                              "\xF0\x90\x80\x80",
                                              "\xF0\x28\x28\xBF",
                                              "\xF0\x9F\x98",
                                              "\xF0\x9F",
                                              "\xF0\x9F\x98\x28",
                                              "\xF0\x9F\xE2\x82",
                                              "\xF4\x8F\xBF\xBF",
                                              "\xF4\x90\x80\x80",
                                              "\xF5\x80\x80\x80",
                                              "\xF7\xBF\xBF\xBF",
                                              "\xF8\x88\x80\x80",
                                              "\xFB\xBF",
                                              "\xFE",
                                              "\xFF"};

constexpr std::uint32_t kTroubleUnits[] = {
    0x7F,     0x80,     0x7FF,   0x800,      0xD7FF,     0xD800,     0xDBFF,     0xDC00,
    0xDFFE,   0xDFFF,   0xE000,  0xFFFD,     0xFFFF,     0x10000,    0x10041,    0x1F600,
    0x10FFFF, 0x110000, 0x1D800, 0x7FFFFFFF, 0x80000000, 0x80000041, 0xFFFFD83D, 0xFFFFFFFF};

class Texts {
public:
    explicit Texts(std::uint32_t seed) : m_random(seed) {}

    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random() % limit); }

    static constexpr int kScripts = 8;

    // A character of a script, as wide units.
    std::wstring character(int script) {
        switch (script) {
        case 0:
            return one(0, 0x7F);
        case 1: // mostly ASCII
            return below(12) != 0 ? one(0x20, 0x7E) : one(0xC0, 0x17F);
        case 2:
            return one(0x80, 0x7FF);
        case 3: // words of a two-byte script
            return below(5) != 0 ? one(0x400, 0x45F) : one(0x20, 0x2F);
        case 4:
            return below(8) != 0 ? one(0x800, 0xD7FF) : one(0xE000, 0xFFFF);
        case 5: {
            const std::uint32_t offset = below(0x100000);
            return {static_cast<wchar_t>(0xD800 + (offset >> 10)),
                    static_cast<wchar_t>(0xDC00 + (offset & 0x3FF))};
        }
        case 6: // some pairs in ASCII
            return character(below(20) != 0 ? 0 : 5);
        default:
            return character(static_cast<int>(below(7)));
        }
    }
    // Exactly `length` units; a pair may be cut.
    std::wstring units(int script, std::size_t length) {
        std::wstring text;
        while (text.size() < length) {
            text += character(script);
        }
        return text.substr(0, length);
    }
    // Exactly `length` bytes, a sequence cut at the end.
    std::string bytes(int script, std::size_t length) {
        std::wstring text = units(script, length);
        text += character(script);
        return Utf8Model::encode(text, 4 * text.size()).written.substr(0, length);
    }

    // About one byte in `period` replaced.
    std::string damaged(std::string text, std::uint32_t period) {
        for (char& byte : text) {
            if (below(period) == 0) {
                const std::string_view trouble = kTroubleBytes[below(std::size(kTroubleBytes))];
                byte = below(2) != 0 ? static_cast<char>(below(256)) : trouble[below(2) % trouble.size()];
            }
        }
        return text;
    }
    std::wstring damaged(std::wstring text, std::uint32_t period) {
        for (wchar_t& unit : text) {
            if (below(period) == 0) { // surrogates most, so that the encoder goes on
                unit = below(4) != 0 ? static_cast<wchar_t>(0xD800 + below(0x800))
                                     : static_cast<wchar_t>(kTroubleUnits[below(std::size(kTroubleUnits))]);
            }
        }
        return text;
    }

private:
    std::wstring one(std::uint32_t first, std::uint32_t last) {
        return std::wstring(1, static_cast<wchar_t>(first + below(last - first + 1)));
    }

    std::mt19937 m_random;
};

// ---- The decoder ------------------------------------------------------------------------------------------

TEST_P(Utf8Kernels, DecodeEveryScriptAtEveryLengthAndOffset) {
    constexpr std::uint32_t kSeed = 4301;
    Texts texts(kSeed);
    for (int script = 0; script < Texts::kScripts; ++script) {
        for (const std::uint32_t period : {0U, 50U, 5U}) {
            for (std::size_t length = 0; length <= kLongestText; ++length) {
                std::string text = texts.bytes(script, length);
                if (period != 0) {
                    text = texts.damaged(text, period);
                }
                ASSERT_TRUE(decode(text)) << "seed " << kSeed;
                const Decoded expected = decodedByModel(text);
                for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
                    const HeapBuffer<char> src(length, offset);
                    text.copy(src.get(), length);
                    const HeapBuffer<wchar_t> dst(length, 4 * ((offset + length) % 16));
                    ASSERT_TRUE(checkDecoder(*m_kernels, text, src.get(), dst.get(), expected))
                        << "seed " << kSeed << ", script " << script << ", offset " << offset;
                }
            }
        }
    }
}

TEST_P(Utf8Kernels, DecodeTroubleAtEveryPlaceOfABlock) {
    constexpr std::uint32_t kSeed = 4302;
    Texts texts(kSeed);
    for (int script = 0; script < Texts::kScripts; ++script) {
        for (std::size_t place = 0; place <= 140; place += kPlaceStep) {
            std::wstring before = texts.units(script, place);
            const std::string head = Utf8Model::encode(before, 4 * before.size() + 1).written;
            for (const std::string_view trouble : kTroubleBytes) {
                const std::string tail = texts.bytes(script, 90);
                ASSERT_TRUE(decode(head + std::string(trouble) + tail)) << "seed " << kSeed;
                ASSERT_TRUE(decode(head.substr(0, place) + std::string(trouble) + tail)) << "seed " << kSeed;
                ASSERT_TRUE(decode(head + std::string(trouble))) << "seed " << kSeed;
            }
        }
    }
}

// What a sequence at the edge of two blocks may be followed by.
TEST_P(Utf8Kernels, DecodeEveryPairOfBytesAcrossBlockEdges) {
    for (const std::size_t edge : {16U, 32U, 61U, 64U}) {
        for (std::uint32_t lead = 0x80; lead <= 0xFF; ++lead) {
            for (std::uint32_t next = 0x70; next <= 0xFF; next += 0x08) {
                std::string text(edge - 1, 'a');
                text += static_cast<char>(lead);
                text += static_cast<char>(next);
                text += "\x80\x80 and so on, for as long as any block is: 64 bytes, or eighty with what is "
                        "read ahead";
                ASSERT_TRUE(decode(text));
                text.replace(0, 3, "\xE2\x82\xAC");
                ASSERT_TRUE(decode(text));
            }
        }
    }
}

TEST_P(Utf8Kernels, DecodeRandomBytes) {
    constexpr std::uint32_t kSeed = 4303;
    Texts texts(kSeed);
    for (int round = 0; round < kRounds; ++round) {
        std::string text(texts.below(500), '\0');
        for (char& byte : text) {
            byte = static_cast<char>(texts.below(256));
        }
        ASSERT_TRUE(decode(text)) << "seed " << kSeed;
        const int script = static_cast<int>(texts.below(Texts::kScripts));
        ASSERT_TRUE(decode(texts.damaged(texts.bytes(script, texts.below(500)), 1 + texts.below(100))))
            << "seed " << kSeed;
    }
}

TEST_P(Utf8Kernels, StopBeforeACutSequence) {
    for (const std::string_view cut :
         {"\xC3", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9F", "\xF0\x9F\x98", "\xF7"}) {
        for (std::size_t length = 0; length <= 140; ++length) {
            const std::string text = std::string(length, 'x') + std::string(cut);
            ASSERT_EQ(decodedByModel(text).consumed, length);
            ASSERT_TRUE(decode(text));
        }
    }
}

// ---- The encoder and the exact size -----------------------------------------------------------------------

TEST_P(Utf8Kernels, EncodeEveryScriptAtEveryLengthAndOffset) {
    constexpr std::uint32_t kSeed = 4304;
    Texts texts(kSeed);
    for (int script = 0; script < Texts::kScripts; ++script) {
        for (const std::uint32_t period : {0U, 40U, 3U}) {
            for (std::size_t length = 0; length <= kLongestText; ++length) {
                std::wstring text = texts.units(script, length);
                if (period != 0) {
                    text = texts.damaged(text, period);
                }
                ASSERT_TRUE(encodeAndCount(text)) << "seed " << kSeed;
                const Encoded expected = encodedByModel(text);
                const std::size_t expectedSize = Utf8Model::exactSize(text);
                for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
                    const HeapBuffer<wchar_t> src(length, 4 * ((offset + length) % 16));
                    text.copy(src.get(), length);
                    const HeapBuffer<char> dst(3 * length, offset);
                    ASSERT_TRUE(checkEncoder(*m_kernels, text, src.get(), dst.get(), expected))
                        << "seed " << kSeed << ", script " << script << ", offset " << offset;
                    ASSERT_EQ(m_kernels->exactUtf8Size(src.get(), length), expectedSize)
                        << "seed " << kSeed << hex(text);
                }
            }
        }
    }
}

TEST_P(Utf8Kernels, EncodeTroubleAtEveryPlaceOfABlock) {
    constexpr std::uint32_t kSeed = 4305;
    Texts texts(kSeed);
    for (int script = 0; script < Texts::kScripts; ++script) {
        for (std::size_t place = 0; place <= 140; place += kPlaceStep) {
            const std::wstring head = texts.units(script, place);
            for (const std::uint32_t trouble : kTroubleUnits) {
                const std::wstring unit(1, static_cast<wchar_t>(trouble));
                const std::wstring tail = texts.units(script, 90);
                ASSERT_TRUE(encodeAndCount(head + unit + tail)) << "seed " << kSeed;
                ASSERT_TRUE(encodeAndCount(head + unit)) << "seed " << kSeed;
            }
        }
    }
}

TEST_P(Utf8Kernels, EncodeSurrogatesAcrossBlockEdges) {
    const std::wstring kSurrogates[] = {
        L"\xD83D\xDE00",             // a pair
        L"\xD83D\xDE00\xD83D\xDE01", // two
        L"\xD83D\xD83D\xDE00",       // a lone high one, a pair
        L"\xD83D\xDE00\xDE00",       // a pair, a lone low one
        L"\xDE00\xD83D",             // the wrong way round
        L"\xDFFF\xDBFF\xDFFF",       // the last of each
        L"\xD83D" + std::wstring(1, static_cast<wchar_t>(0x1DE00)),
        L"\xD83D" + std::wstring(1, static_cast<wchar_t>(0xFFFFDE00)),
    };
    for (const std::wstring& surrogates : kSurrogates) {
        for (const wchar_t filler : {L'a', L'\x44F', L'\x3042'}) {
            for (std::size_t place = 0; place <= 140; ++place) {
                const std::wstring text = std::wstring(place, filler) + surrogates;
                ASSERT_TRUE(encodeAndCount(text));
                ASSERT_TRUE(encodeAndCount(text + std::wstring(80, filler)));
                ASSERT_TRUE(encodeAndCount(text + std::wstring(8, filler) + static_cast<wchar_t>(0x1F600) +
                                           std::wstring(30, filler)));
            }
        }
    }
}

TEST_P(Utf8Kernels, EncodeRandomUnits) {
    constexpr std::uint32_t kSeed = 4306;
    Texts texts(kSeed);
    for (int round = 0; round < kRounds; ++round) {
        const int script = static_cast<int>(texts.below(Texts::kScripts));
        ASSERT_TRUE(
            encodeAndCount(texts.damaged(texts.units(script, texts.below(500)), 1 + texts.below(200))))
            << "seed " << kSeed;
    }
}

TEST_P(Utf8Kernels, CountMostLoneSurrogatesAsOneByte) {
    EXPECT_EQ(m_kernels->exactUtf8Size(L"\xD800", 1), 1U);
    EXPECT_EQ(m_kernels->exactUtf8Size(L"\xDFFE", 1), 1U);
    EXPECT_EQ(m_kernels->exactUtf8Size(L"\xDFFF", 1), 3U);
    const std::wstring lows(200, L'\xDFFF');
    EXPECT_EQ(m_kernels->exactUtf8Size(lows.data(), lows.size()), 600U);
    const std::wstring highs(200, L'\xDBFF');
    EXPECT_EQ(m_kernels->exactUtf8Size(highs.data(), highs.size()), 200U);
}

TEST_P(Utf8Kernels, TakeNothingFromNothing) {
    EXPECT_EQ(m_kernels->decodeUtf8(nullptr, nullptr, nullptr).dst, nullptr);
    EXPECT_EQ(m_kernels->encodeUtf8(nullptr, nullptr, nullptr).dst, nullptr);
    EXPECT_EQ(m_kernels->exactUtf8Size(nullptr, 0), 0U);
    EXPECT_EQ(m_kernels->wellFormedUtf8(nullptr, 0), 0U);
}

// Whatever comes before, the first malformed sequence is found where it begins.
TEST_P(Utf8Kernels, FindTheFirstMalformedSequence) {
    constexpr std::uint32_t kSeed = 4307;
    Texts texts(kSeed);
    for (const int script : {0, 2, 3, 4}) {
        for (std::size_t place = 0; place <= 200; place += kPlaceStep) {
            const std::wstring before = texts.units(script, place);
            const std::string head = Utf8Model::encode(before, 4 * before.size() + 1).written;
            for (const std::string_view malformed :
                 {"\x80", "\xC0\x80", "\xC3", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80", "\xED\xBF\xBF",
                  "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
                const std::string text = head + std::string(malformed) + "and more of it";
                ASSERT_EQ(m_kernels->wellFormedUtf8(text.data(), text.size()), head.size())
                    << "seed " << kSeed << hex(text);
                ASSERT_EQ(m_kernels->wellFormedUtf8(text.data(), head.size() + malformed.size()), head.size())
                    << "seed " << kSeed << hex(text);
                ASSERT_EQ(m_kernels->wellFormedUtf8(text.data(), head.size()), head.size())
                    << "seed " << kSeed << hex(head);
            }
        }
    }
}

TEST_P(Utf8Kernels, KnowTheirLevel) { EXPECT_EQ(m_kernels->level, GetParam()); }

// ---- The choice -------------------------------------------------------------------------------------------

// The choice of a process, made while its objects are still being initialised.
const FreshProcess kPrintsItsLevel("PrintsItsLevel",
                                   [] { std::fputs(nameOf(kernelsInUse().level), stdout); });

Level bestLevel() {
    return kernelsOf(Level::avx512) != nullptr ? Level::avx512
           : kernelsOf(Level::avx2) != nullptr ? Level::avx2
                                               : Level::plain;
}

TEST(KernelChoice, TakesTheBestLevelOfTheProcessor) {
    EXPECT_EQ(kPrintsItsLevel.run({{"BRIM_KERNELS", nullptr}}).output, nameOf(bestLevel()));
}

TEST(KernelChoice, TakesTheLevelThatTheEnvironmentNames) {
    for (const auto& row : kLevels) {
        const Level expected = kernelsOf(row.level) != nullptr ? row.level : bestLevel();
        EXPECT_EQ(kPrintsItsLevel.run({{"BRIM_KERNELS", row.name}}).output, nameOf(expected)) << row.name;
    }
}

TEST(KernelChoice, IgnoresUnknownNames) {
    for (const char* const name : {"", "AVX2", "avx", "avx2 ", "sse2", "avx5120", "plain,avx2"}) {
        EXPECT_EQ(kPrintsItsLevel.run({{"BRIM_KERNELS", name}}).output, nameOf(bestLevel())) << name;
    }
}

TEST(KernelChoice, AlwaysHasThePlainLevel) {
    ASSERT_NE(kernelsOf(Level::plain), nullptr);
    // Whoever has a level has those below it.
    EXPECT_TRUE(kernelsOf(Level::avx512) == nullptr || kernelsOf(Level::avx2) != nullptr);
    EXPECT_EQ(kernelsOf(static_cast<Level>(3)), nullptr);
}

TEST(KernelChoice, IsTheSameInEveryThread) {
    constexpr int kThreads = 8;
    constexpr int kTimes = 50;
    const Kernels* const expected = &kernelsInUse();
    std::barrier start(kThreads, []() noexcept { overrideKernels(nullptr); });
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int time = 0; time < kTimes; ++time) {
                start.arrive_and_wait(); // nothing is chosen now
                wrong += &kernelsInUse() != expected ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

// ---- Overriding -------------------------------------------------------------------------------------------

class Override {
public:
    explicit Override(const Kernels* table) { overrideKernels(table); }
    ~Override() { overrideKernels(nullptr); }
    Override(const Override&) = delete;
    Override& operator=(const Override&) = delete;
};

int g_decoded = 0;
int g_encoded = 0;
int g_counted = 0;
int g_singleBytesDecoded = 0;
int g_singleBytesEncoded = 0;

// The plain level, with some of its loops counted.
Kernels countingKernels() {
    Kernels counting = *kernelsOf(Level::plain);
    counting.decodeUtf8 = [](const char* src, const char* end, wchar_t* dst) noexcept {
        ++g_decoded;
        return kernelsOf(Level::plain)->decodeUtf8(src, end, dst);
    };
    counting.encodeUtf8 = [](const wchar_t* src, const wchar_t* end, char* dst) noexcept {
        ++g_encoded;
        return kernelsOf(Level::plain)->encodeUtf8(src, end, dst);
    };
    counting.exactUtf8Size = [](const wchar_t* src, std::size_t srcLen) noexcept {
        ++g_counted;
        return kernelsOf(Level::plain)->exactUtf8Size(src, srcLen);
    };
    counting.decodeSingleByte = [](const SingleByteDecoding& table, const char* src, std::size_t length,
                                   wchar_t* dst) noexcept {
        ++g_singleBytesDecoded;
        kernelsOf(Level::plain)->decodeSingleByte(table, src, length, dst);
    };
    counting.encodeSingleByte = [](const SingleByteEncoding& table, const wchar_t* src, std::size_t length,
                                   char* dst) noexcept {
        ++g_singleBytesEncoded;
        return kernelsOf(Level::plain)->encodeSingleByte(table, src, length, dst);
    };
    return counting;
}

TEST(KernelChoice, CanBeOverriddenForTheTranscoder) {
    const Kernels* const chosen = &kernelsInUse();
    {
        const Kernels table = countingKernels();
        const Override counting(&table);
        EXPECT_EQ(&kernelsInUse(), &table);
        wchar_t units[8];
        char bytes[24];
        EXPECT_EQ(TranscoderImplUTF8::S_multibyteToUnicode("\xC3\xA9t\xC3\xA9", 5, units, 8), 3U);
        EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(units, 3, bytes, 24), 5U);
        EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyteCalculateExactSize(units, 3), 5U);
        EXPECT_EQ(g_decoded, 1);
        EXPECT_EQ(g_encoded, 1);
        EXPECT_EQ(g_counted, 1);
        const TranscoderImplBase& greek = *TranscoderCache::getTranscoder(28597);
        wchar_t wide[17];
        char narrow[17];
        EXPECT_EQ(greek.multibyteToUnicode("\xE1\xE2 and so on, up", 17, wide, 17, nullptr), 17U);
        EXPECT_EQ(wide[0], L'\x3B1');
        EXPECT_EQ(greek.unicodeToMultibyte(wide, 17, narrow, 17, nullptr, nullptr, nullptr), 17U);
        EXPECT_EQ(narrow[0], '\xE1');
        EXPECT_EQ(g_singleBytesDecoded, 1);
        EXPECT_EQ(g_singleBytesEncoded, 1);
    }
    EXPECT_EQ(&kernelsInUse(), chosen);
}

} // namespace
