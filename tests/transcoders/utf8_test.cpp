#include "transcodingimplutf8.h"

#include "EncodingUTF8.h"
#include "Utility/Generic/Portable/transcodercache.h"
#include "guarded_buffer.h"
#include "utf8_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

using namespace sup::transcodeimpl;
using brimtest::GuardedBuffer;
using brimtest::HeldBytes;
using brimtest::ModelResult;
using brimtest::Utf8Model;
using testing::AssertionFailure;
using testing::AssertionResult;
using testing::AssertionSuccess;

namespace {

using Decoder = N2TEncodingUTF8<wchar_t, unsigned short>;
using Encoder = T2NEncodingUTF8<wchar_t, unsigned short>;

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr wchar_t kReplacement = 0xFFFD;

// The full sweeps take seconds; instrumented builds see a part of each.
#ifdef BRIM_SANITIZED
constexpr std::uint32_t kSweepStep = 61;
constexpr int kRounds = 200;
#else
constexpr std::uint32_t kSweepStep = 1;
constexpr int kRounds = 3000;
#endif

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

Decoder::State stateOf(const HeldBytes& held) {
    Decoder::State state;
    state.nCharByteLength = held.needed;
    state.nBytesStored = held.bytes.size();
    held.bytes.copy(state.aBytes, sizeof(state.aBytes));
    return state;
}

HeldBytes heldIn(const Decoder::State& state) {
    HeldBytes held;
    if (state.nBytesStored != 0) {
        held.bytes.assign(state.aBytes, std::min(state.nBytesStored, sizeof(state.aBytes)));
        held.needed = state.nCharByteLength;
    }
    return held;
}

constexpr std::size_t kLongestText = 2048;

// Compares the library with the model, source and destination each against a guard page.
class Comparison {
public:
    // One decoder call; `held` goes in and comes out as the state.
    AssertionResult decode(std::string_view text, std::size_t room, HeldBytes& held) {
        constexpr wchar_t kFill = 0x5A5A5A5A;
        char* const src = m_bytes.last(text.size());
        text.copy(src, text.size());
        wchar_t* const dst = m_units.lastFenced(room, kFill);
        const HeldBytes before = held;
        Decoder::State state = stateOf(held);

        const ModelResult<std::wstring> expected = Utf8Model::decode(text, room, held);
        const std::size_t result = Decoder().encode(src, text.size(), dst, room, state);
        const bool right = result == expected.value() &&
                           std::equal(expected.written.begin(), expected.written.end(), dst) &&
                           heldIn(state) == held && m_units.fenceIsWhole(room, kFill);
        if (right) {
            return AssertionSuccess();
        }
        const std::wstring_view written(dst, std::min(room, std::max(expected.written.size(), result)));
        return AssertionFailure() << "decoding" << hex(text) << " after" << hex(before.bytes) << " into room "
                                  << room << " gave " << static_cast<std::ptrdiff_t>(result) << ":"
                                  << hex(written) << ", held" << hex(heldIn(state).bytes) << "; should be "
                                  << static_cast<std::ptrdiff_t>(expected.value()) << ":"
                                  << hex(expected.written) << ", held" << hex(held.bytes);
    }
    AssertionResult decode(std::string_view text, std::size_t room) {
        HeldBytes held;
        return decode(text, room, held);
    }
    AssertionResult decodeIntoEveryRoom(std::string_view text, const HeldBytes& before = {}) {
        HeldBytes held = before;
        const std::size_t needed = Utf8Model::decode(text, kLongestText, held).written.size();
        for (std::size_t room = 0; room <= needed + 2; ++room) {
            held = before;
            if (AssertionResult result = decode(text, room, held); !result) {
                return result;
            }
        }
        return AssertionSuccess();
    }

    AssertionResult encode(std::wstring_view text, std::size_t room) {
        constexpr char kFill = 0x5A;
        wchar_t* const src = m_units.last(text.size());
        text.copy(src, text.size());
        char* const dst = m_bytes.lastFenced(room, kFill);

        const ModelResult<std::string> expected = Utf8Model::encode(text, room);
        const std::size_t result = TranscoderImplUTF8::S_unicodeToMultibyte(src, text.size(), dst, room);
        if (result == expected.value() && std::equal(expected.written.begin(), expected.written.end(), dst) &&
            m_bytes.fenceIsWhole(room, kFill)) {
            return AssertionSuccess();
        }
        const std::string_view written(dst, std::min(room, std::max(expected.written.size(), result)));
        return AssertionFailure() << "encoding" << hex(text) << " into room " << room << " gave "
                                  << static_cast<std::ptrdiff_t>(result) << ":" << hex(written)
                                  << "; should be " << static_cast<std::ptrdiff_t>(expected.value()) << ":"
                                  << hex(expected.written);
    }
    AssertionResult encodeIntoEveryRoom(std::wstring_view text) {
        const std::size_t needed = Utf8Model::encode(text, kLongestText).written.size();
        for (std::size_t room = 0; room <= std::max(needed, 3 * text.size()) + 2; ++room) {
            if (AssertionResult result = encode(text, room); !result) {
                return result;
            }
        }
        return AssertionSuccess();
    }

private:
    GuardedBuffer<char> m_bytes{kLongestText};
    GuardedBuffer<wchar_t> m_units{kLongestText};
};

std::wstring decoded(std::string_view text) {
    std::wstring units(text.size(), L'\0');
    const std::size_t n =
        TranscoderImplUTF8::S_multibyteToUnicode(text.data(), text.size(), units.data(), units.size());
    EXPECT_LE(n, units.size());
    units.resize(std::min(n, units.size()));
    return units;
}

std::string encoded(std::wstring_view text) {
    std::string bytes(4 * text.size(), '\0');
    const std::size_t n =
        TranscoderImplUTF8::S_unicodeToMultibyte(text.data(), text.size(), bytes.data(), bytes.size());
    EXPECT_LE(n, bytes.size());
    bytes.resize(std::min(n, bytes.size()));
    return bytes;
}

// ---- Random texts
// ---------------------------------------------------------------------------------------------

class RandomTexts {
public:
    explicit RandomTexts(std::uint32_t seed) : m_random(seed) {}

    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random() % limit); }
    template <class T, std::size_t N>
    T oneOf(const T (&values)[N]) {
        return values[below(N)];
    }

    // A character of a script, as wide units.
    std::wstring character(int script) {
        const auto from = [this](std::uint32_t first, std::uint32_t last) {
            return std::wstring(1, static_cast<wchar_t>(first + below(last - first + 1)));
        };
        switch (script) {
        case 0:
            return from(0x20, 0x7E);
        case 1: // mostly ASCII, some Latin
            return below(8) != 0 ? from(0x20, 0x7E) : from(0xC0, 0x17F);
        case 2:
            return from(0x400, 0x45F);
        case 3:
            return below(16) != 0 ? from(0x4E00, 0x9FA5) : from(0x20, 0x7E);
        case 4: {
            const std::uint32_t offset = below(0x100000);
            return {static_cast<wchar_t>(0xD800 + (offset >> 10)),
                    static_cast<wchar_t>(0xDC00 + (offset & 0x3FF))};
        }
        case 5: // the ends of the encoded lengths
            return std::wstring(1, oneOf({L'\0', L'\x7F', L'\x80', L'\x7FF', L'\x800', L'\xD7FF', L'\xE000',
                                          L'\xFFFD', L'\xFFFF'}));
        default:
            return character(static_cast<int>(below(6)));
        }
    }
    static constexpr int kScripts = 7;

    std::wstring wellFormed(std::size_t atLeast, int script) {
        std::wstring text;
        while (text.size() < atLeast) {
            text += character(script);
        }
        return text;
    }
    std::wstring wellFormed(std::size_t atLeast) {
        return wellFormed(atLeast, static_cast<int>(below(kScripts)));
    }

    // Exactly `length` bytes; the last character may be cut.
    std::string bytes(std::size_t length) {
        return Utf8Model::encode(wellFormed(length), kLongestText * 2).written.substr(0, length);
    }

    void damage(std::string& text) {
        static constexpr std::string_view kTrouble[] = {"\x80",
                                                        "\xBF\xBF",
                                                        "\xC0\x80",
                                                        "\xC1\xBF",
                                                        "\xC3",
                                                        "\xE0\x80\x80",
                                                        "\xE0\x9F\xBF",
                                                        "\xE0\xA0\x80",
                                                        "\xED\xA0\x80",
                                                        "\xED\xBF\xBF",
                                                        "\xE2\x28\xA1",
                                                        "\xE2\x82",
                                                        "\xEF",
                                                        "\xF0\x80\x80\x80",
                                                        "\xF0\x8F\xBF\xBF",
                                                        "\xF0\x90\x80\x80",
                                                        "\xF0\x28\x28\xBF",
                                                        "\xF4\x8F\xBF\xBF",
                                                        "\xF4\x90\x80\x80",
                                                        "\xF5\x80\x80\x80",
                                                        "\xF7\xBF\xBF\xBF",
                                                        "\xF8",
                                                        "\xFB\xBF",
                                                        "\xFE",
                                                        "\xFF"};
        if (text.empty()) {
            return;
        }
        for (std::uint32_t times = 1 + below(4); times > 0; --times) {
            const std::size_t at = below(static_cast<std::uint32_t>(text.size()));
            switch (below(4)) {
            case 0:
                text[at] = static_cast<char>(below(256));
                break;
            case 1:
                text[at] = static_cast<char>(text[at] ^ (1 << below(8)));
                break;
            case 2: { // the length stays
                const std::size_t length = text.size();
                text.erase(at, 1 + below(3));
                text.resize(length, static_cast<char>(0x80 + below(128)));
                break;
            }
            default: {
                const std::string_view trouble = oneOf(kTrouble);
                text.replace(at, std::min(trouble.size(), text.size() - at),
                             trouble.substr(0, text.size() - at));
                break;
            }
            }
        }
    }
    std::string damaged(std::size_t length) {
        std::string text = bytes(length);
        damage(text);
        return text;
    }

    std::wstring units(std::size_t length) {
        static constexpr std::uint32_t kTrouble[] = {
            0xD800,   0xDBFF,  0xDC00,     0xDFFE,     0xDFFF,     0x10000,    0x1F600,   0x10FFFF,
            0x110000, 0x10041, 0x7FFFFFFF, 0x80000000, 0x80000041, 0xFFFFD83D, 0xFFFFFFFF};
        std::wstring text = wellFormed(length).substr(0, length);
        for (std::uint32_t times = length == 0 ? 0 : below(4); times > 0; --times) {
            text[below(static_cast<std::uint32_t>(length))] = static_cast<wchar_t>(oneOf(kTrouble));
        }
        return text;
    }

private:
    std::mt19937 m_random;
};

// ---- The decoder
// ----------------------------------------------------------------------------------------------

struct DecodedText {
    std::string_view bytes;
    std::wstring_view units;
};

constexpr DecodedText kDecodedTexts[] = {
    {"", L""},
    {"abc", L"abc"},
    {{"a\0b", 3}, {L"a\0b", 3}},
    {"\x7F", L"\x7F"},
    {"\xC3\xA9", L"\xE9"},
    {"\xC2\x80", L"\x80"},
    {"\xDF\xBF", L"\x7FF"},
    {"\xE0\xA0\x80", L"\x800"},
    {"\xE2\x82\xAC", L"\x20AC"},
    {"\xEF\xBF\xBF", L"\xFFFF"},
    {"\xEF\xBB\xBF", L"\xFEFF"},
    {"\xF0\x90\x80\x80", L"\xD800\xDC00"},
    {"\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
    {"\xF4\x8F\xBF\xBF", L"\xDBFF\xDFFF"},
    // Overlong forms: one replacement, all bytes taken.
    {"\xC0\x80", L"\xFFFD"},
    {"\xC1\xBF", L"\xFFFD"},
    {"\xE0\x9F\xBF", L"\xFFFD"},
    {"\xF0\x8F\xBF\xBF", L"\xFFFD"},
    // Beyond the last code point: the same.
    {"\xF4\x90\x80\x80", L"\xFFFD"},
    {"\xF7\xBF\xBF\xBF", L"\xFFFD"},
    // A lead whose next byte is no continuation is rejected alone.
    {"\xC3(", L"\xFFFD("},
    {"\xC3\xC3\xA9", L"\xFFFD\xE9"},
    {"\xE2((", L"\xFFFD(("},
    {"\xF0(((", L"\xFFFD((("},
    // What leads nothing is rejected alone.
    {"\x80\xBF", L"\xFFFD\xFFFD"},
    {"\xF8\x80", L"\xFFFD\xFFFD"},
    {"\xFE\xFF", L"\xFFFD\xFFFD"},
};

TEST(Utf8Decode, GivesTheUnitsOfTheTable) {
    for (const DecodedText& row : kDecodedTexts) {
        EXPECT_EQ(decoded(row.bytes), row.units) << hex(row.bytes);
    }
}

TEST(Utf8Decode, TakesALongSequenceWithOneContinuationByte) {
    EXPECT_EQ(decoded("\xE2\x28\xA1"), std::wstring(1, 0x2000 | 0x28 << 6 | 0x21));
    EXPECT_EQ(decoded("\xE2\xA1\x28"), std::wstring(1, 0x2000 | 0x21 << 6 | 0x28));
    EXPECT_EQ(decoded("\xE2\xA1\xC3"), std::wstring(1, 0x2000 | 0x21 << 6 | 0x03));
    // 0x1 << 18 | 0x1 << 12 | ...: beyond U+FFFF, so a pair.
    EXPECT_EQ(decoded("\xF1\x41\x41\x81"), L"\xD8C4\xDC41");
    EXPECT_EQ(decoded("\xF1\x81\x41\x41"), L"\xD8C4\xDC41");
    EXPECT_EQ(decoded("\xF1\x41\x81\x41"), L"\xD8C4\xDC41");
    // Lenient, but still overlong.
    EXPECT_EQ(decoded("\xE0\x41\x81"), L"\xFFFD");
}

TEST(Utf8Decode, LetsEncodedSurrogatesPass) {
    EXPECT_EQ(decoded("\xED\xA0\x80"), L"\xD800");
    EXPECT_EQ(decoded("\xED\xBF\xBF"), L"\xDFFF");
    EXPECT_EQ(decoded("\xED\xA0\xBD\xED\xB8\x80"), L"\xD83D\xDE00");
}

TEST(Utf8Decode, DropsACutSequenceAtTheEndSilently) {
    EXPECT_EQ(decoded("abc\xE2\x82"), L"abc");
    // What follows a lead is not looked at when the end cuts it.
    for (const std::string_view cut :
         {"\xC3", "\xE2", "\xE2\x82", "\xE2(", "\xF0", "\xF0\x9F", "\xF0\x9F\x98", "\xF0(("}) {
        EXPECT_EQ(decoded(cut), L"") << hex(cut);
        EXPECT_EQ(TranscoderImplUTF8::S_multibyteToUnicode(cut.data(), cut.size(), nullptr, 0), 0U)
            << hex(cut);
    }
}

TEST(Utf8Decode, NeedsTwoFreeUnitsForAPair) {
    wchar_t units[2] = {L'x', L'x'};
    EXPECT_EQ(TranscoderImplUTF8::S_multibyteToUnicode("\xF0\x9F\x98\x80", 4, units, 1), kTooSmall);
    EXPECT_EQ(units[0], L'x');
    EXPECT_EQ(TranscoderImplUTF8::S_multibyteToUnicode("\xF0\x9F\x98\x80", 4, units, 2), 2U);
    EXPECT_EQ(units[0], 0xD83D);
    EXPECT_EQ(units[1], 0xDE00);
}

TEST(Utf8Decode, LeavesWhatItHasWrittenWhenTheRoomEnds) {
    wchar_t units[3] = {L'x', L'x', L'x'};
    EXPECT_EQ(TranscoderImplUTF8::S_multibyteToUnicode("a\xC3\xA9yz", 5, units, 3), kTooSmall);
    EXPECT_EQ(std::wstring_view(units, 3), L"a\xE9y");
}

TEST(Utf8Decode, AnEmptySourceGivesNothing) {
    EXPECT_EQ(TranscoderImplUTF8::S_multibyteToUnicode(nullptr, 0, nullptr, 0), 0U);
    wchar_t unit = L'x';
    EXPECT_EQ(TranscoderImplUTF8::S_multibyteToUnicode("", 0, &unit, 1), 0U);
    EXPECT_EQ(unit, L'x');
}

TEST(Utf8Decode, AgreesWithTheModelOnEveryOneAndTwoByteText) {
    Comparison comparison;
    for (std::uint32_t value = 0; value < 0x10000; ++value) {
        const char bytes[2] = {static_cast<char>(value >> 8), static_cast<char>(value)};
        ASSERT_TRUE(comparison.decodeIntoEveryRoom({bytes, 2}));
        if (value < 0x100) {
            ASSERT_TRUE(comparison.decodeIntoEveryRoom({bytes + 1, 1}));
        }
    }
}

TEST(Utf8Decode, AgreesWithTheModelOnEveryThreeByteText) {
    Comparison comparison;
    for (std::uint32_t value = 0; value < 0x1000000; value += kSweepStep) {
        const char bytes[3] = {static_cast<char>(value >> 16), static_cast<char>(value >> 8),
                               static_cast<char>(value)};
        ASSERT_TRUE(comparison.decode({bytes, 3}, 3));
    }
}

// The first and last bytes of every class, and their neighbours.
constexpr unsigned char kBoundaryBytes[] = {
    0x00, 0x28, 0x3F, 0x40, 0x7F, 0x80, 0x81, 0x8F, 0x90, 0x91, 0x9F, 0xA0, 0xA1, 0xBF, 0xC0, 0xC1, 0xC2,
    0xC3, 0xDF, 0xE0, 0xE1, 0xED, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF7, 0xF8, 0xFB, 0xFC, 0xFE, 0xFF};

template <class Body>
void forEachFourBoundaryBytes(Body body) {
    constexpr std::uint32_t kBytes = std::size(kBoundaryBytes);
    for (std::uint32_t index = 0; index < kBytes * kBytes * kBytes * kBytes; index += kSweepStep) {
        const char bytes[4] = {static_cast<char>(kBoundaryBytes[index / (kBytes * kBytes * kBytes)]),
                               static_cast<char>(kBoundaryBytes[index / (kBytes * kBytes) % kBytes]),
                               static_cast<char>(kBoundaryBytes[index / kBytes % kBytes]),
                               static_cast<char>(kBoundaryBytes[index % kBytes])};
        body(index, std::string_view(bytes, 4));
        if (testing::Test::HasFatalFailure()) {
            return;
        }
    }
}

TEST(Utf8Decode, AgreesWithTheModelOnFourBoundaryBytes) {
    Comparison comparison;
    forEachFourBoundaryBytes([&](std::uint32_t, std::string_view bytes) {
        ASSERT_TRUE(comparison.decode(bytes, 4));
        ASSERT_TRUE(comparison.decode(bytes, 1));
    });
}

// Long dense texts take other paths than short ones; four odd bytes at a place of theirs must not be seen
// otherwise.
TEST(Utf8Decode, AgreesWithTheModelOnFourBoundaryBytesInsideALongText) {
    std::string fillers[4];
    for (std::size_t i = 0; i < 180; ++i) {
        fillers[0] += "a";
        fillers[1] += "\xD0\xB6";
        fillers[2] += "\xE4\xB8\xAD";
        fillers[3] += "\xF0\x9F\x98\x80";
    }
    Comparison comparison;
    forEachFourBoundaryBytes([&](std::uint32_t index, std::string_view bytes) {
        const std::size_t width = 1 + index % 4;
        const std::string_view filler = fillers[width - 1];
        // At a character or inside one, around the first and the second block.
        const std::size_t at = index / 4 % 140;
        std::string text(filler.substr(0, at));
        text += bytes;
        text += filler.substr(0, 200 - at - index % 7);
        ASSERT_TRUE(comparison.decode(text, text.size()));
    });
}

// The bytes that long runs of one character meet at the ends of a block.
TEST(Utf8Decode, AgreesWithTheModelOnEveryPhaseAndLengthOfARun) {
    Comparison comparison;
    for (const std::string_view character : {"a", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\xA0\x80",
                                             "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        std::string run;
        while (run.size() < 320) {
            run += character;
        }
        for (std::size_t ascii = 0; ascii < 4; ++ascii) {
            const std::string text = std::string(ascii, 'a') + run;
            for (std::size_t length = 0; length <= 300; ++length) {
                ASSERT_TRUE(comparison.decode(std::string_view(text).substr(0, length), length));
            }
        }
    }
}

TEST(Utf8Decode, AgreesWithTheModelOnEveryLengthAndEveryRoom) {
    constexpr std::uint32_t kSeed = 4201;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (std::size_t length = 0; length <= 300; length += kSweepStep == 1 ? 1 : 7) {
        ASSERT_TRUE(comparison.decodeIntoEveryRoom(texts.bytes(length))) << "seed " << kSeed;
        ASSERT_TRUE(comparison.decodeIntoEveryRoom(texts.damaged(length))) << "seed " << kSeed;
    }
}

TEST(Utf8Decode, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint32_t kSeed = 4202;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (int round = 0; round < 20 * kRounds; ++round) {
        const std::size_t length = texts.below(301);
        std::string text = texts.bytes(length);
        if (round % 2 == 1) {
            texts.damage(text);
        }
        if (round % 16 == 15) {
            std::generate(text.begin(), text.end(), [&] { return static_cast<char>(texts.below(256)); });
        }
        ASSERT_TRUE(comparison.decode(text, length)) << "seed " << kSeed << ", round " << round;
        ASSERT_TRUE(comparison.decode(text, texts.below(static_cast<std::uint32_t>(length) + 3)))
            << "seed " << kSeed << ", round " << round;
    }
}

// Heap buffers of the exact size, at every offset from the allocator's alignment: for the address sanitizer.
TEST(Utf8Decode, StaysInsideItsBuffersAtEveryOffset) {
    constexpr std::uint32_t kSeed = 4203;
    RandomTexts texts(kSeed);
    for (std::size_t length = 0; length <= 300; ++length) {
        const std::string text = length % 3 == 0 ? texts.damaged(length) : texts.bytes(length);
        for (std::size_t offset = 0; offset < 16; ++offset) {
            const auto src = std::make_unique<char[]>(offset + length);
            text.copy(src.get() + offset, length);
            const std::size_t room = offset % 4 == 3 ? length / 2 : length;
            const auto dst = std::make_unique<wchar_t[]>(offset % 4 + room);
            const ModelResult<std::wstring> expected = Utf8Model::decode(text, room);
            ASSERT_EQ(TranscoderImplUTF8::S_multibyteToUnicode(src.get() + offset, length,
                                                               dst.get() + offset % 4, room),
                      expected.value())
                << "seed " << kSeed << ":" << hex(text);
            ASSERT_TRUE(std::equal(expected.written.begin(), expected.written.end(), dst.get() + offset % 4))
                << "seed " << kSeed << ":" << hex(text);
        }
    }
}

// ---- The decoder's state
// --------------------------------------------------------------------------------------

// Decodes `text` cut at `cuts` piece by piece: each piece into every smaller room first, which must change
// nothing, then into a room that does.
AssertionResult decodesInPieces(Comparison& comparison, std::string_view text,
                                const std::vector<std::size_t>& cuts, std::wstring* whole = nullptr) {
    HeldBytes held;
    std::size_t from = 0;
    for (std::size_t i = 0; i <= cuts.size(); ++i) {
        const std::size_t to = i < cuts.size() ? cuts[i] : text.size();
        const std::string_view piece = text.substr(from, to - from);
        HeldBytes after = held;
        const std::wstring units = Utf8Model::decode(piece, kLongestText, after).written;
        for (std::size_t room = units.size() > 8 ? units.size() - 8 : 0; room <= units.size(); ++room) {
            HeldBytes state = held;
            if (AssertionResult result = comparison.decode(piece, room, state); !result) {
                return result;
            }
        }
        HeldBytes state = held;
        if (AssertionResult result = comparison.decode(piece, units.size() + 1, state); !result) {
            return result;
        }
        held = after;
        from = to;
        if (whole != nullptr) {
            *whole += units;
        }
    }
    return AssertionSuccess();
}

TEST(Utf8DecoderState, IsFreshWithNothingStored) {
    const Decoder::State state;
    EXPECT_EQ(state.nBytesStored, 0U);
    EXPECT_EQ(sizeof(state.aBytes), 4U);
}

TEST(Utf8DecoderState, HoldsTheCutSequence) {
    struct Row {
        std::string_view text;
        std::size_t length;
        std::string_view held;
    };
    for (const Row& row :
         {Row{"a\xC3", 2, "\xC3"}, Row{"\xE2", 3, "\xE2"}, Row{"ab\xE2\x82", 3, "\xE2\x82"},
          Row{"\xF0", 4, "\xF0"}, Row{"\xF0\x9F", 4, "\xF0\x9F"}, Row{"\xF0\x9F\x98", 4, "\xF0\x9F\x98"},
          // What follows the lead is not looked at.
          Row{"\xE2(", 3, "\xE2("}, Row{"\xF7((", 4, "\xF7(("}}) {
        Decoder::State state;
        wchar_t units[8];
        const std::size_t n = row.text.size() - row.held.size();
        EXPECT_EQ(Decoder().encode(row.text.data(), row.text.size(), units, n, state), n) << hex(row.text);
        EXPECT_EQ(state.nCharByteLength, row.length) << hex(row.text);
        ASSERT_EQ(state.nBytesStored, row.held.size()) << hex(row.text);
        EXPECT_EQ(std::string_view(state.aBytes, state.nBytesStored), row.held) << hex(row.text);
    }
}

TEST(Utf8DecoderState, AgreesWithTheModelOnEveryCutOfAShortText) {
    constexpr std::uint32_t kSeed = 4204;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (int round = 0; round < kRounds; ++round) {
        const std::string text =
            round % 2 == 0 ? texts.damaged(1 + texts.below(12)) : texts.bytes(1 + texts.below(12));
        for (std::size_t first = 0; first <= text.size(); ++first) {
            for (std::size_t second = first; second <= text.size(); ++second) {
                ASSERT_TRUE(decodesInPieces(comparison, text, {first, second}))
                    << "seed " << kSeed << ", round " << round << ":" << hex(text);
            }
        }
    }
}

TEST(Utf8DecoderState, AgreesWithTheModelOnRandomCuts) {
    constexpr std::uint32_t kSeed = 4205;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (int round = 0; round < kRounds; ++round) {
        const std::string text =
            round % 2 == 0 ? texts.damaged(texts.below(301)) : texts.bytes(texts.below(301));
        std::vector<std::size_t> cuts(texts.below(12));
        for (std::size_t& cut : cuts) {
            cut = texts.below(static_cast<std::uint32_t>(text.size()) + 1);
        }
        std::sort(cuts.begin(), cuts.end());
        ASSERT_TRUE(decodesInPieces(comparison, text, cuts))
            << "seed " << kSeed << ", round " << round << ":" << hex(text);
    }
}

TEST(Utf8DecoderState, AgreesWithTheModelByteByByte) {
    constexpr std::uint32_t kSeed = 4206;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (int round = 0; round < kRounds / 10; ++round) {
        const std::string text = texts.damaged(1 + texts.below(100));
        std::vector<std::size_t> cuts;
        for (std::size_t cut = 1; cut < text.size(); ++cut) {
            cuts.push_back(cut);
        }
        ASSERT_TRUE(decodesInPieces(comparison, text, cuts)) << "seed " << kSeed << ", round " << round;
    }
}

TEST(Utf8DecoderState, GivesWellFormedTextWhereverItIsCut) {
    constexpr std::uint32_t kSeed = 4207;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (int script = 0; script < RandomTexts::kScripts; ++script) {
        const std::wstring wide = texts.wellFormed(60, script);
        const std::string text = encoded(wide);
        for (std::size_t cut = 0; cut <= text.size(); ++cut) {
            std::wstring whole;
            ASSERT_TRUE(decodesInPieces(comparison, text, {cut}, &whole)) << "seed " << kSeed;
            ASSERT_EQ(whole, wide) << "seed " << kSeed << ", cut " << cut << ":" << hex(text);
        }
    }
}

TEST(Utf8DecoderState, AgreesWithTheModelAfterEveryHeldSequence) {
    constexpr std::uint32_t kSeed = 4208;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (const HeldBytes& held :
         {HeldBytes{"\xC3", 2}, HeldBytes{"\xC0", 2}, HeldBytes{"\xE2", 3}, HeldBytes{"\xE2\x82", 3},
          HeldBytes{"\xE2(", 3}, HeldBytes{"\xE0\x80", 3}, HeldBytes{"\xED\xA0", 3}, HeldBytes{"\xF0", 4},
          HeldBytes{"\xF0\x9F", 4}, HeldBytes{"\xF0\x9F\x98", 4}, HeldBytes{"\xF0((", 4},
          HeldBytes{"\xF7\xBF\xBF", 4}}) {
        for (int lead = 0; lead < 256; ++lead) {
            std::string text(1, static_cast<char>(lead));
            ASSERT_TRUE(comparison.decodeIntoEveryRoom(text, held));
            text += texts.damaged(1 + texts.below(5));
            ASSERT_TRUE(comparison.decodeIntoEveryRoom(text, held)) << "seed " << kSeed;
        }
        for (std::size_t length = 0; length < 200; length += 1 + length / 8) {
            ASSERT_TRUE(comparison.decodeIntoEveryRoom("\x80\x80" + texts.bytes(length), held))
                << "seed " << kSeed;
        }
    }
}

TEST(Utf8DecoderState, NeedsRoomWhenBytesArePendingEvenForAnEmptySource) {
    Decoder::State state = stateOf({"\xE2\x82", 3});
    EXPECT_EQ(Decoder().encode("", 0, nullptr, 0, state), kTooSmall);
    EXPECT_EQ(Decoder().encode("\xAC", 1, nullptr, 0, state), kTooSmall);
    EXPECT_EQ(heldIn(state), (HeldBytes{"\xE2\x82", 3}));
    wchar_t unit = L'x';
    EXPECT_EQ(Decoder().encode("", 0, &unit, 1, state), 0U);
    EXPECT_EQ(heldIn(state), (HeldBytes{"\xE2\x82", 3}));
    EXPECT_EQ(unit, L'x');
    EXPECT_EQ(Decoder().encode("\xAC", 1, &unit, 1, state), 1U);
    EXPECT_EQ(unit, 0x20AC);
    EXPECT_EQ(state.nBytesStored, 0U);
}

TEST(Utf8DecoderState, WritesTwoUnitsForTheByteThatCompletesAPair) {
    GuardedBuffer<wchar_t> units(16);
    Decoder::State state = stateOf({"\xF0\x9F\x98", 4});
    EXPECT_EQ(Decoder().encode("\x80", 1, units.last(1), 1, state), kTooSmall);
    EXPECT_EQ(heldIn(state), (HeldBytes{"\xF0\x9F\x98", 4}));
    // As many units as bytes, and still one too few.
    EXPECT_EQ(Decoder().encode("\x80stuvwxy", 8, units.last(8), 8, state), kTooSmall);
    EXPECT_EQ(heldIn(state), (HeldBytes{"\xF0\x9F\x98", 4}));
    ASSERT_EQ(Decoder().encode("\x80stuvwxy", 8, units.last(9), 9, state), 9U);
    EXPECT_EQ(std::wstring_view(units.last(9), 9), L"\xD83D\xDE00stuvwxy");
    EXPECT_EQ(state.nBytesStored, 0U);
}

TEST(Utf8DecoderState, ReplacesAHeldSequenceOnceWhenItIsNotContinued) {
    Decoder::State state = stateOf({"\xF0\x9F", 4});
    wchar_t units[4];
    ASSERT_EQ(Decoder().encode("\x98z\xC3", 3, units, 4, state), 2U);
    EXPECT_EQ(std::wstring_view(units, 2), L"\xFFFDz");
    EXPECT_EQ(heldIn(state), (HeldBytes{"\xC3", 2}));
}

TEST(Utf8DecoderState, JudgesACompletedSequenceByTheRule) {
    const auto completed = [](const HeldBytes& held, std::string_view rest) {
        Decoder::State state = stateOf(held);
        std::wstring units(8, L'\0');
        units.resize(Decoder().encode(rest.data(), rest.size(), units.data(), units.size(), state));
        EXPECT_EQ(state.nBytesStored, 0U);
        return units;
    };
    EXPECT_EQ(completed({"\xC0", 2}, "\x80"), L"\xFFFD");
    EXPECT_EQ(completed({"\xE0\x9F", 3}, "\xBF"), L"\xFFFD");
    EXPECT_EQ(completed({"\xED\xA0", 3}, "\x80"), L"\xD800");
    EXPECT_EQ(completed({"\xF4\x90\x80", 4}, "\x80"), L"\xFFFD");
    EXPECT_EQ(completed({"\xE2(", 3}, "\xA1"), std::wstring(1, 0x2000 | 0x28 << 6 | 0x21));
}

TEST(Utf8DecoderState, IsAsBeforeWhenTheRoomEndsSoTheSourceCanBeTriedAgain) {
    Decoder::State state = stateOf({"\xC3", 2});
    const std::string_view text = "\xA9xyz\xE2\x82";
    wchar_t units[8] = {};
    for (std::size_t room = 0; room < 4; ++room) {
        ASSERT_EQ(Decoder().encode(text.data(), text.size(), units, room, state), kTooSmall) << room;
        ASSERT_EQ(heldIn(state), (HeldBytes{"\xC3", 2})) << room;
    }
    ASSERT_EQ(Decoder().encode(text.data(), text.size(), units, 4, state), 4U);
    EXPECT_EQ(std::wstring_view(units, 4), L"\xE9xyz");
    EXPECT_EQ(heldIn(state), (HeldBytes{"\xE2\x82", 3}));
}

TEST(Utf8DecoderState, EstimatesWhatThePendingBytesBecome) {
    EXPECT_EQ(Decoder::estimateStateEncodingSize(Decoder::State()), 0U);
    EXPECT_EQ(Decoder::estimateStateEncodingSize(stateOf({"\xC3", 2})), 1U);
    EXPECT_EQ(Decoder::estimateStateEncodingSize(stateOf({"\xE2\x82", 3})), 1U);
    EXPECT_EQ(Decoder::estimateStateEncodingSize(stateOf({"\xF0", 4})), 2U);
    EXPECT_EQ(Decoder::estimateStateEncodingSize(stateOf({"\xF0\x9F\x98", 4})), 2U);
}

TEST(Utf8DecoderFinalize, WritesNothingWhenNothingIsPending) {
    wchar_t unit = L'x';
    EXPECT_EQ(Decoder().finalize(&unit, 1, Decoder::State()), 0U);
    EXPECT_EQ(Decoder().finalize(nullptr, 0, Decoder::State()), 0U);
    EXPECT_EQ(unit, L'x');
}

TEST(Utf8DecoderFinalize, WritesOneReplacementForPendingBytes) {
    for (const HeldBytes& held :
         {HeldBytes{"\xC3", 2}, HeldBytes{"\xE2\x82", 3}, HeldBytes{"\xF0\x9F\x98", 4}}) {
        wchar_t units[2] = {L'x', L'x'};
        EXPECT_EQ(Decoder().finalize(units, 2, stateOf(held)), 1U);
        EXPECT_EQ(units[0], kReplacement);
        EXPECT_EQ(units[1], L'x');
    }
}

TEST(Utf8DecoderFinalize, NeedsRoomForPendingBytes) {
    EXPECT_EQ(Decoder().finalize(nullptr, 0, stateOf({"\xC3", 2})), kTooSmall);
}

TEST(Utf8DecoderFinalize, DoesNotResetTheState) {
    Decoder::State state = stateOf({"\xE2\x82", 3});
    wchar_t unit = 0;
    EXPECT_EQ(Decoder().finalize(&unit, 1, state), 1U);
    EXPECT_EQ(heldIn(state), (HeldBytes{"\xE2\x82", 3}));
    EXPECT_EQ(Decoder().encode("\xAC", 1, &unit, 1, state), 1U);
    EXPECT_EQ(unit, 0x20AC);
}

// ---- The encoder
// ----------------------------------------------------------------------------------------------

struct EncodedText {
    std::wstring_view units;
    std::string_view bytes;
};

constexpr EncodedText kEncodedTexts[] = {
    {L"", ""},
    {L"abc", "abc"},
    {{L"a\0b", 3}, {"a\0b", 3}},
    {L"\x7F\x80", "\x7F\xC2\x80"},
    {L"\xE9\x7FF\x800", "\xC3\xA9\xDF\xBF\xE0\xA0\x80"},
    {L"\xD7FF\xE000\xFFFF", "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
    {L"\xD83D\xDE00", "\xF0\x9F\x98\x80"},
    {L"\xD800\xDC00\xDBFF\xDFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
    // Surrogates without a partner.
    {L"\xD800", "\xED\xA0\x80"},
    {L"\xDBFFz", "\xED\xAF\xBFz"},
    {L"\xDC00\xDFFF", "\xED\xB0\x80\xED\xBF\xBF"},
    {L"\xDC00\xD800", "\xED\xB0\x80\xED\xA0\x80"},
    {L"\xD800\xD83D\xDE00", "\xED\xA0\x80\xF0\x9F\x98\x80"},
    // Whole code points.
    {L"\x10000\x1F600\x10FFFF", "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"},
    {L"\xD800\x10000", "\xED\xA0\x80\xF0\x90\x80\x80"},
    // Beyond the last.
    {L"\x110000", "?"},
    {L"\x7FFFFFFF", "?"},
};

TEST(Utf8Encode, GivesTheBytesOfTheTable) {
    for (const EncodedText& row : kEncodedTexts) {
        EXPECT_EQ(encoded(row.units), row.bytes) << hex(row.units);
    }
}

TEST(Utf8Encode, WritesAQuestionMarkForNegativeUnits) {
    for (const wchar_t unit : {wchar_t{-1}, wchar_t{-0x80}, wchar_t{WCHAR_MIN}, wchar_t{WCHAR_MIN + 0x41}}) {
        EXPECT_EQ(encoded(std::wstring(1, unit)), "?") << static_cast<long>(unit);
        EXPECT_EQ(encoded(std::wstring(40, unit)), std::string(40, '?')) << static_cast<long>(unit);
    }
}

TEST(Utf8Encode, AnEmptySourceGivesNothing) {
    EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(nullptr, 0, nullptr, 0), 0U);
    char byte = 'x';
    EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(L"", 0, &byte, 1), 0U);
    EXPECT_EQ(byte, 'x');
}

TEST(Utf8Encode, FailsAtOnceWithLessThanAByteAUnit) {
    char bytes[2] = {'x', 'x'};
    EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(L"abc", 3, bytes, 2), kTooSmall);
    EXPECT_EQ(bytes[0], 'x');
}

TEST(Utf8Encode, LeavesWhatItHasWrittenWhenTheRoomEnds) {
    char bytes[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(L"a\xE9\x20AC", 3, bytes, 4), kTooSmall);
    EXPECT_EQ(std::string_view(bytes, 3), "a\xC3\xA9");
}

TEST(Utf8Encode, AgreesWithTheModelOnEveryUnit) {
    Comparison comparison;
    for (std::uint32_t unit = 0; unit <= 0x110100; unit += kSweepStep) {
        const auto wide = static_cast<wchar_t>(unit);
        ASSERT_TRUE(comparison.encode({&wide, 1}, 4));
        ASSERT_TRUE(comparison.encode({&wide, 1}, 3));
    }
    for (std::uint32_t unit = 0; unit < 0xFFFFFFFF - 0x10001; unit += 0x10001) {
        const auto wide = static_cast<wchar_t>(unit);
        ASSERT_TRUE(comparison.encode({&wide, 1}, 4));
    }
}

TEST(Utf8Encode, AgreesWithTheModelOnEveryUnitAmongItsNeighbours) {
    constexpr std::uint32_t kUnits = 40;
    Comparison comparison;
    wchar_t run[kUnits];
    for (std::uint32_t first = 0; first <= 0x110100;
         first += first < 0x11000 ? kSweepStep : 16 * kSweepStep) {
        for (std::uint32_t i = 0; i < kUnits; ++i) {
            run[i] = static_cast<wchar_t>(first + i);
        }
        ASSERT_TRUE(comparison.encode({run, kUnits}, std::size_t{4} * kUnits));
    }
}

TEST(Utf8Encode, AgreesWithTheModelOnSurrogatesAtEveryPlace) {
    constexpr std::wstring_view kCases[] = {L"\xD800",
                                            L"\xDBFF",
                                            L"\xDC00",
                                            L"\xDFFF",
                                            L"\xD83D\xDE00",
                                            L"\xDE00\xD83D",
                                            L"\xD83D\xD83D\xDE00",
                                            L"\xD83D\xDE00\xDE00",
                                            L"\x1F600",
                                            L"\xD83D\x1F600",
                                            L"\x110000"};
    Comparison comparison;
    for (const wchar_t filler : {L'a', L'\xE9', L'\x4E2D'}) {
        for (const std::wstring_view odd : kCases) {
            for (std::size_t length = 0; length <= 36; length += kSweepStep == 1 ? 1 : 3) {
                for (std::size_t at = 0; at <= length; ++at) {
                    std::wstring text(length, filler);
                    text.insert(at, odd);
                    const std::size_t needed = Utf8Model::encode(text, kLongestText).written.size();
                    for (const std::size_t room :
                         {needed - 1, needed, needed + 1, 3 * text.size(), 4 * text.size()}) {
                        ASSERT_TRUE(comparison.encode(text, room));
                    }
                }
            }
        }
    }
}

TEST(Utf8Encode, AgreesWithTheModelOnEveryLengthAndEveryRoom) {
    constexpr std::uint32_t kSeed = 4209;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (std::size_t length = 0; length <= 130; length += kSweepStep == 1 ? 1 : 5) {
        for (int script = 0; script < RandomTexts::kScripts; ++script) {
            ASSERT_TRUE(comparison.encodeIntoEveryRoom(texts.wellFormed(length, script).substr(0, length)))
                << "seed " << kSeed;
        }
        ASSERT_TRUE(comparison.encodeIntoEveryRoom(texts.units(length))) << "seed " << kSeed;
    }
}

TEST(Utf8Encode, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint32_t kSeed = 4210;
    RandomTexts texts(kSeed);
    Comparison comparison;
    for (int round = 0; round < 20 * kRounds; ++round) {
        const std::wstring text = texts.units(texts.below(300));
        const std::size_t needed = Utf8Model::encode(text, kLongestText).written.size();
        ASSERT_TRUE(comparison.encode(text, needed)) << "seed " << kSeed << ", round " << round;
        ASSERT_TRUE(comparison.encode(text, 3 * text.size())) << "seed " << kSeed << ", round " << round;
        ASSERT_TRUE(comparison.encode(text, texts.below(static_cast<std::uint32_t>(needed) + 3)))
            << "seed " << kSeed << ", round " << round;
    }
}

TEST(Utf8Encode, StaysInsideItsBuffersAtEveryOffset) {
    constexpr std::uint32_t kSeed = 4211;
    RandomTexts texts(kSeed);
    for (std::size_t length = 0; length <= 130; ++length) {
        const std::wstring text = texts.units(length);
        const std::size_t needed = Utf8Model::encode(text, kLongestText).written.size();
        for (std::size_t offset = 0; offset < 16; ++offset) {
            const auto src = std::make_unique<wchar_t[]>(offset % 4 + length);
            text.copy(src.get() + offset % 4, length);
            const std::size_t room = offset % 3 == 2 && needed > 0 ? needed - 1 : needed;
            const auto dst = std::make_unique<char[]>(offset + room);
            const ModelResult<std::string> expected = Utf8Model::encode(text, room);
            ASSERT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(src.get() + offset % 4, length,
                                                               dst.get() + offset, room),
                      expected.value())
                << "seed " << kSeed << ":" << hex(text);
            ASSERT_TRUE(std::equal(expected.written.begin(), expected.written.end(), dst.get() + offset))
                << "seed " << kSeed << ":" << hex(text);
        }
    }
}

// Three bytes a unit is what most units need; a whole code point in one unit needs four.
TEST(Utf8Encode, KeepsTheBoundForWholeCodePointsWithThreeBytesAUnit) {
    GuardedBuffer<char> bytes(512);
    for (std::size_t n = 1; n <= 100; ++n) {
        const std::wstring text(n, 0x1F600);
        EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(text.data(), n, bytes.last(3 * n), 3 * n),
                  kTooSmall)
            << n;
        EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(text.data(), n, bytes.last(4 * n - 1), 4 * n - 1),
                  kTooSmall)
            << n;
        ASSERT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(text.data(), n, bytes.last(4 * n), 4 * n), 4 * n)
            << n;
        EXPECT_EQ(std::string_view(bytes.last(4), 4), "\xF0\x9F\x98\x80") << n;
        // Where the others leave a byte, it fits.
        const std::wstring mixed = text + std::wstring(n, L'\xE9');
        EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(mixed.data(), 2 * n, bytes.last(6 * n), 6 * n),
                  6 * n)
            << n;
    }
}

TEST(Utf8Encode, GivesBackWellFormedText) {
    constexpr std::uint32_t kSeed = 4212;
    RandomTexts texts(kSeed);
    for (int round = 0; round < kRounds; ++round) {
        const std::wstring text = texts.wellFormed(texts.below(300));
        ASSERT_EQ(decoded(encoded(text)), text) << "seed " << kSeed << ", round " << round;
    }
}

// ---- The exact size
// -------------------------------------------------------------------------------------------

struct ExactSize {
    std::wstring_view units;
    std::size_t size;
};

constexpr ExactSize kExactSizes[] = {
    {L"", 0},
    {{L"\0", 1}, 1},
    {L"\x7F", 1},
    {L"\x80", 2},
    {L"\x7FF", 2},
    {L"\x800", 3},
    {L"\xD7FF", 3},
    {L"\xE000", 3},
    {L"\xFFFF", 3},
    {L"\x10000", 4},
    {L"\x10FFFF", 4},
    {L"\x110000", 1},
    {L"\xD83D\xDE00", 4},
    {L"\xD800\xDFFF", 4},
    {L"a\xE9\x20AC\xD83D\xDE00z", 11},
};

TEST(Utf8ExactSize, IsWhatTheEncoderWrites) {
    for (const ExactSize& row : kExactSizes) {
        EXPECT_EQ(Encoder::calculateExactSize(row.units.data(), row.units.size()), row.size)
            << hex(row.units);
        EXPECT_EQ(encoded(row.units).size(), row.size) << hex(row.units);
    }
    const wchar_t negative = -1;
    EXPECT_EQ(Encoder::calculateExactSize(&negative, 1), 1U);
    EXPECT_EQ(Encoder::calculateExactSize(nullptr, 0), 0U);
}

TEST(Utf8ExactSize, CountsALoneSurrogateAsOneByte) {
    struct Row {
        std::wstring_view units;
        std::size_t counted;
        std::size_t written;
    };
    for (const Row& row : {Row{L"\xD800", 1, 3}, Row{L"\xDBFF", 1, 3}, Row{L"\xDC00", 1, 3},
                           Row{L"\xDFFE", 1, 3}, Row{L"\xD800z", 2, 4}, Row{L"\xD800\xD800\xDC00", 5, 7},
                           Row{L"\xDC00\xD800", 2, 6}, Row{L"\xD800\x20AC", 4, 6}}) {
        EXPECT_EQ(Encoder::calculateExactSize(row.units.data(), row.units.size()), row.counted)
            << hex(row.units);
        char bytes[16];
        EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyte(row.units.data(), row.units.size(), bytes, 16),
                  row.written)
            << hex(row.units);
        // A buffer of the counted size is too small.
        EXPECT_EQ(
            TranscoderImplUTF8::S_unicodeToMultibyte(row.units.data(), row.units.size(), bytes, row.counted),
            kTooSmall)
            << hex(row.units);
    }
}

TEST(Utf8ExactSize, CountsTheLastLowSurrogateAsThreeBytes) {
    EXPECT_EQ(Encoder::calculateExactSize(L"\xDFFF", 1), 3U);
    EXPECT_EQ(Encoder::calculateExactSize(L"\xDFFE\xDFFF", 2), 4U);
}

TEST(Utf8ExactSize, AgreesWithTheModelOnEveryUnit) {
    for (std::uint32_t unit = 0; unit <= 0x110100; ++unit) {
        const wchar_t text[3] = {static_cast<wchar_t>(unit), 0xDC00, static_cast<wchar_t>(unit)};
        for (const std::size_t n : {std::size_t{1}, std::size_t{2}, std::size_t{3}}) {
            ASSERT_EQ(Encoder::calculateExactSize(text, n), Utf8Model::exactSize({text, n}))
                << unit << ", " << n;
        }
    }
}

TEST(Utf8ExactSize, AgreesWithTheModelOnRandomTexts) {
    constexpr std::uint32_t kSeed = 4213;
    RandomTexts texts(kSeed);
    for (int round = 0; round < kRounds; ++round) {
        const std::wstring text = texts.units(texts.below(300));
        const auto exact = std::make_unique<wchar_t[]>(text.size());
        text.copy(exact.get(), text.size());
        const std::size_t expected = Utf8Model::exactSize(text);
        ASSERT_EQ(Encoder::calculateExactSize(exact.get(), text.size()), expected)
            << "seed " << kSeed << hex(text);
        ASSERT_EQ(TranscoderImplUTF8::S_unicodeToMultibyteCalculateExactSize(exact.get(), text.size()),
                  expected)
            << "seed " << kSeed << hex(text);
    }
    EXPECT_EQ(TranscoderImplUTF8::S_unicodeToMultibyteCalculateExactSize(nullptr, 0), 0U);
}

// ---- The functors and the transcoder
// --------------------------------------------------------------------------

static_assert(std::is_base_of_v<EncodingFunctor<char, wchar_t>, Decoder>);
static_assert(std::is_same_v<Decoder::source_char, char> && std::is_same_v<Decoder::target_char, wchar_t>);
static_assert(std::is_base_of_v<EncodingStatelessFunctor<wchar_t, char>, Encoder>);
static_assert(std::is_same_v<Encoder::source_char, wchar_t> && std::is_same_v<Encoder::target_char, char>);
static_assert(std::is_empty_v<Decoder> && std::is_empty_v<Encoder> && std::is_empty_v<Encoder::State>);

TEST(Utf8Functors, AnswerForSizes) {
    for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{1000}}) {
        EXPECT_EQ(Decoder::estimateEncodingSize(n), n);
        EXPECT_EQ(Encoder::estimateEncodingSize(n), 3 * n);
    }
    EXPECT_EQ(Decoder::maxExpansionFactor(), 1U);
    EXPECT_EQ(Encoder::maxExpansionFactor(), 3U);
    EXPECT_TRUE(Decoder::isChunkable());
    EXPECT_TRUE(Encoder::isChunkable());
}

TEST(TranscoderImplUTF8, ForwardsToTheStaticConversions) {
    const std::unique_ptr<TranscoderImplBase> transcoder(
        TranscoderImplUTF8::CreateTranscoderTable(nullptr, 0));
    SUPTranscodeThreadContext context{};
    for (const DecodedText& row : kDecodedTexts) {
        wchar_t units[16];
        ASSERT_EQ(transcoder->multibyteToUnicode(row.bytes.data(), row.bytes.size(), units, 16, &context),
                  row.units.size());
        EXPECT_EQ(std::wstring_view(units, row.units.size()), row.units);
    }
    // No character is untranslatable, so the callback is never asked.
    const auto callback = [](void*, const wchar_t*, std::size_t, char*, std::size_t) -> std::size_t {
        ADD_FAILURE() << "callback";
        return 0;
    };
    for (const EncodedText& row : kEncodedTexts) {
        char bytes[32];
        ASSERT_EQ(transcoder->unicodeToMultibyte(row.units.data(), row.units.size(), bytes, 32, &context,
                                                 callback, &context),
                  row.bytes.size());
        EXPECT_EQ(std::string_view(bytes, row.bytes.size()), row.bytes);
    }
    EXPECT_EQ(transcoder->multibyteToUnicode("ab", 2, nullptr, 0, nullptr), kTooSmall);
    EXPECT_EQ(transcoder->unicodeToMultibyte(L"ab", 2, nullptr, 0, nullptr, nullptr, nullptr), kTooSmall);
    EXPECT_TRUE(std::all_of(std::begin(context.nInternals), std::end(context.nInternals),
                            [](unsigned int word) { return word == 0; }));
}

TEST(TranscoderImplUTF8, FactoryIgnoresItsArguments) {
    constexpr UnicodeMultibyteMapping kRows[] = {{L'a', "b", 1, kCP_Either}, {0, nullptr, 0, kCP_End}};
    const std::unique_ptr<TranscoderImplBase> transcoder(
        TranscoderImplUTF8::CreateTranscoderTable(kRows, 77));
    ASSERT_NE(dynamic_cast<TranscoderImplUTF8*>(transcoder.get()), nullptr);
    wchar_t unit = 0;
    EXPECT_EQ(transcoder->multibyteToUnicode("b", 1, &unit, 1, nullptr), 1U);
    EXPECT_EQ(unit, L'b');
}

TEST(TranscoderImplUTF8, TellsItsFactorAndThatItRepresentsEverything) {
    const TranscoderImplUTF8 transcoder;
    EXPECT_EQ(transcoder.getMultibyteFactor(), 3U);
    EXPECT_TRUE(transcoder.isUnicodeCompletelyRepresentable());
}

TEST(TranscoderImplUTF8, IsTheTranscoderOfItsCodePage) {
    EXPECT_NE(dynamic_cast<TranscoderImplUTF8*>(TranscoderCache::getTranscoder(65001)), nullptr);
}

} // namespace
