#include "transcodingimplutf16.h"

#include "EncodingUTF16.h"
#include "Utility/Generic/Portable/transcodercache.h"
#include "guarded_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>

using namespace sup::transcodeimpl;
using brimtest::GuardedBuffer;

namespace {

using Decoder = N2TEncodingUTF16<wchar_t, unsigned short>;
using Encoder = T2NEncodingUTF16<wchar_t, unsigned short>;

constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr std::size_t kLongest = 200;

struct BigEndian {
    using Transcoder = TranscoderImplUTF16BE;
    static constexpr int kCodePage = 1200;
    static constexpr Decoder::Endian kDecoderEndian = Decoder::kBIG_ENDIAN;
    static constexpr Encoder::Endian kEncoderEndian = Encoder::kBIG_ENDIAN;

    static std::string bytesOf(std::uint32_t unit) {
        return {static_cast<char>(unit / 256 % 256), static_cast<char>(unit % 256)};
    }
    static wchar_t unitOf(char first, char second) {
        return static_cast<unsigned char>(first) * 256 + static_cast<unsigned char>(second);
    }
};

struct LittleEndian {
    using Transcoder = TranscoderImplUTF16LE;
    static constexpr int kCodePage = 1201;
    static constexpr Decoder::Endian kDecoderEndian = Decoder::kLITTLE_ENDIAN;
    static constexpr Encoder::Endian kEncoderEndian = Encoder::kLITTLE_ENDIAN;

    static std::string bytesOf(std::uint32_t unit) {
        return {static_cast<char>(unit % 256), static_cast<char>(unit / 256 % 256)};
    }
    static wchar_t unitOf(char first, char second) {
        return static_cast<unsigned char>(first) + static_cast<unsigned char>(second) * 256;
    }
};

template <class Order>
class Utf16 : public testing::Test {
protected:
    using Transcoder = typename Order::Transcoder;

    static std::wstring decoded(std::string_view bytes) {
        std::wstring units(bytes.size(), L'\0');
        units.resize(
            Transcoder::S_multibyteToUnicode(bytes.data(), bytes.size(), units.data(), units.size()));
        return units;
    }
    static std::string encoded(std::wstring_view units) {
        std::string bytes(2 * units.size(), '\0');
        bytes.resize(
            Transcoder::S_unicodeToMultibyte(units.data(), units.size(), bytes.data(), bytes.size()));
        return bytes;
    }
    static std::string modelBytes(std::wstring_view units) {
        std::string bytes;
        for (const wchar_t unit : units) {
            bytes += Order::bytesOf(static_cast<std::uint32_t>(unit));
        }
        return bytes;
    }
    static std::wstring modelUnits(std::string_view bytes) {
        std::wstring units;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            units += Order::unitOf(bytes[i], bytes[i + 1]);
        }
        return units;
    }
};

struct OrderName {
    template <class Order>
    static std::string GetName(int) {
        return std::is_same_v<Order, BigEndian> ? "BigEndian" : "LittleEndian";
    }
};
using Orders = testing::Types<BigEndian, LittleEndian>;
TYPED_TEST_SUITE(Utf16, Orders, OrderName);

TYPED_TEST(Utf16, CarriesEveryUnitBothWays) {
    for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
        const std::wstring text(1, static_cast<wchar_t>(unit));
        const std::string bytes = TypeParam::bytesOf(unit);
        ASSERT_EQ(this->encoded(text), bytes) << unit;
        ASSERT_EQ(this->decoded(bytes), text) << unit;
    }
}

TYPED_TEST(Utf16, KeepsSurrogatesAsTheyAre) {
    for (const std::wstring_view text :
         {L"\xD83D\xDE00", L"\xD800", L"\xDC00", L"\xDE00\xD83D", L"z\xDFFFz"}) {
        EXPECT_EQ(this->decoded(this->modelBytes(text)), text);
        EXPECT_EQ(this->encoded(text), this->modelBytes(text));
    }
}

TYPED_TEST(Utf16, NeitherLooksForAByteOrderMarkNorWritesOne) {
    EXPECT_EQ(this->decoded(TypeParam::bytesOf(0xFEFF) + TypeParam::bytesOf('z')), L"\xFEFFz");
    EXPECT_EQ(this->decoded(TypeParam::bytesOf(0xFFFE) + TypeParam::bytesOf('z')), L"\xFFFEz");
    EXPECT_EQ(this->encoded(L"a"), TypeParam::bytesOf('a'));
    EXPECT_EQ(this->encoded(L"\xFEFF"), TypeParam::bytesOf(0xFEFF));
}

TYPED_TEST(Utf16, EncodesOnlyTheLowHalfOfAUnit) {
    for (const std::uint32_t unit : {0x10000U, 0x1F600U, 0x10FFFFU, 0x110041U, 0x80001234U, 0xFFFFFFFFU}) {
        // Alone and where several units are handled at a step.
        for (const std::size_t n : {std::size_t{1}, std::size_t{35}}) {
            EXPECT_EQ(this->encoded(std::wstring(n, static_cast<wchar_t>(unit))),
                      this->modelBytes(std::wstring(n, static_cast<wchar_t>(unit & 0xFFFF))))
                << unit;
        }
    }
}

TYPED_TEST(Utf16, IgnoresAnOddLastByte) {
    const std::string bytes = TypeParam::bytesOf('A') + "B";
    EXPECT_EQ(this->decoded(bytes), L"A");
    wchar_t unit = L'x';
    EXPECT_EQ(TypeParam::Transcoder::S_multibyteToUnicode(bytes.data(), 3, &unit, 1), 1U);
    EXPECT_EQ(unit, L'A');
}

TYPED_TEST(Utf16, ASourceOfLessThanTwoBytesGivesNothing) {
    wchar_t unit = L'x';
    EXPECT_EQ(TypeParam::Transcoder::S_multibyteToUnicode("a", 1, &unit, 1), 0U);
    EXPECT_EQ(unit, L'x');
    EXPECT_EQ(TypeParam::Transcoder::S_multibyteToUnicode("a", 1, nullptr, 0), 0U);
    EXPECT_EQ(TypeParam::Transcoder::S_multibyteToUnicode(nullptr, 0, nullptr, 0), 0U);
}

TYPED_TEST(Utf16, AnEmptyWideSourceGivesNothing) {
    char byte = 'x';
    EXPECT_EQ(TypeParam::Transcoder::S_unicodeToMultibyte(L"", 0, &byte, 1), 0U);
    EXPECT_EQ(TypeParam::Transcoder::S_unicodeToMultibyte(nullptr, 0, nullptr, 0), 0U);
    EXPECT_EQ(byte, 'x');
}

TYPED_TEST(Utf16, DecodesRandomBytesIntoEveryRoom) {
    constexpr std::uint32_t kSeed = 4214;
    std::mt19937 random(kSeed);
    GuardedBuffer<char> bytes(kLongest);
    GuardedBuffer<wchar_t> units(kLongest);
    for (std::size_t length = 0; length <= 130; ++length) {
        char* const src = bytes.last(length);
        std::generate(src, src + length, [&] { return static_cast<char>(random()); });
        const std::wstring expected = this->modelUnits({src, length});
        for (std::size_t room = 0; room <= length / 2 + 2; ++room) {
            wchar_t* const dst = units.lastFenced(room, L'x');
            const std::size_t result = TypeParam::Transcoder::S_multibyteToUnicode(src, length, dst, room);
            ASSERT_TRUE(units.fenceIsWhole(room, L'x')) << "seed " << kSeed;
            if (room < length / 2) {
                ASSERT_EQ(result, kTooSmall) << "seed " << kSeed << ", length " << length;
            } else {
                ASSERT_EQ(result, length / 2) << "seed " << kSeed << ", length " << length;
                ASSERT_EQ(std::wstring_view(dst, result), expected) << "seed " << kSeed;
            }
        }
    }
}

TYPED_TEST(Utf16, EncodesRandomUnitsIntoEveryRoom) {
    constexpr std::uint32_t kSeed = 4215;
    std::mt19937 random(kSeed);
    GuardedBuffer<char> bytes(2 * kLongest);
    GuardedBuffer<wchar_t> units(kLongest);
    for (std::size_t length = 0; length <= 130; ++length) {
        wchar_t* const src = units.last(length);
        std::generate(src, src + length, [&] { return static_cast<wchar_t>(random()); });
        const std::string expected = this->modelBytes({src, length});
        for (std::size_t room = 0; room <= 2 * length + 2; ++room) {
            char* const dst = bytes.lastFenced(room, 'x');
            const std::size_t result = TypeParam::Transcoder::S_unicodeToMultibyte(src, length, dst, room);
            ASSERT_TRUE(bytes.fenceIsWhole(room, 'x')) << "seed " << kSeed;
            if (room < 2 * length) {
                ASSERT_EQ(result, kTooSmall) << "seed " << kSeed << ", length " << length;
            } else {
                ASSERT_EQ(result, 2 * length) << "seed " << kSeed << ", length " << length;
                ASSERT_EQ(std::string_view(dst, result), expected) << "seed " << kSeed;
            }
        }
    }
}

// Bytes need not lie as 16-bit units do.
TYPED_TEST(Utf16, ConvertsAtEveryOffset) {
    constexpr std::uint32_t kSeed = 4216;
    std::mt19937 random(kSeed);
    for (std::size_t length = 0; length <= 130; ++length) {
        for (std::size_t offset = 0; offset < 16; ++offset) {
            const auto bytes = std::make_unique<char[]>(offset + 2 * length);
            std::generate_n(bytes.get(), offset + 2 * length, [&] { return static_cast<char>(random()); });
            const std::string source(bytes.get() + offset, 2 * length);
            const auto units = std::make_unique<wchar_t[]>(offset % 4 + length);
            wchar_t* const wide = units.get() + offset % 4;
            ASSERT_EQ(
                TypeParam::Transcoder::S_multibyteToUnicode(bytes.get() + offset, 2 * length, wide, length),
                length);
            ASSERT_EQ(std::wstring_view(wide, length), this->modelUnits(source)) << "seed " << kSeed;
            std::fill_n(bytes.get(), offset + 2 * length, '\0');
            ASSERT_EQ(
                TypeParam::Transcoder::S_unicodeToMultibyte(wide, length, bytes.get() + offset, 2 * length),
                2 * length);
            ASSERT_EQ(std::string_view(bytes.get() + offset, 2 * length), source) << "seed " << kSeed;
        }
    }
}

TYPED_TEST(Utf16, FunctorsConvertInTheirOrder) {
    const Decoder decoder(TypeParam::kDecoderEndian);
    const Encoder encoder(TypeParam::kEncoderEndian);
    const std::string bytes = TypeParam::bytesOf(0x1234) + TypeParam::bytesOf(0xD83D);
    Decoder::State decoderState;
    wchar_t units[2] = {};
    ASSERT_EQ(decoder.encode(bytes.data(), 4, units, 2, decoderState), 2U);
    EXPECT_EQ(std::wstring_view(units, 2), L"\x1234\xD83D");
    EXPECT_EQ(decoder.encode(bytes.data(), 4, units, 1, decoderState), kTooSmall);
    Encoder::State encoderState;
    char back[4] = {};
    ASSERT_EQ(encoder.encode(units, 2, back, 4, encoderState), 4U);
    EXPECT_EQ(std::string_view(back, 4), bytes);
    EXPECT_EQ(encoder.encode(units, 2, back, 3, encoderState), kTooSmall);
}

TYPED_TEST(Utf16, TranscoderForwardsToTheStaticConversions) {
    const std::unique_ptr<TranscoderImplBase> transcoder(
        TypeParam::Transcoder::CreateTranscoderTable(nullptr, 0));
    SUPTranscodeThreadContext context{};
    const std::string bytes = TypeParam::bytesOf(0x1234);
    wchar_t unit = 0;
    EXPECT_EQ(transcoder->multibyteToUnicode(bytes.data(), 2, &unit, 1, &context), 1U);
    EXPECT_EQ(unit, 0x1234);
    EXPECT_EQ(transcoder->multibyteToUnicode(bytes.data(), 2, &unit, 0, nullptr), kTooSmall);
    // Nothing is untranslatable, so the callback is never asked.
    const auto callback = [](void*, const wchar_t*, std::size_t, char*, std::size_t) -> std::size_t {
        ADD_FAILURE() << "callback";
        return 0;
    };
    char back[2] = {};
    const wchar_t wide = 0x111234;
    EXPECT_EQ(transcoder->unicodeToMultibyte(&wide, 1, back, 2, &context, callback, &context), 2U);
    EXPECT_EQ(std::string_view(back, 2), bytes);
    EXPECT_EQ(transcoder->unicodeToMultibyte(&wide, 1, back, 1, nullptr, nullptr, nullptr), kTooSmall);
    EXPECT_TRUE(std::all_of(std::begin(context.nInternals), std::end(context.nInternals),
                            [](unsigned int word) { return word == 0; }));
}

TYPED_TEST(Utf16, FactoryIgnoresItsArguments) {
    constexpr UnicodeMultibyteMapping kRows[] = {{L'a', "b", 1, kCP_Either}, {0, nullptr, 0, kCP_End}};
    const std::unique_ptr<TranscoderImplBase> transcoder(
        TypeParam::Transcoder::CreateTranscoderTable(kRows, 77));
    EXPECT_NE(dynamic_cast<typename TypeParam::Transcoder*>(transcoder.get()), nullptr);
}

TYPED_TEST(Utf16, TranscoderTellsItsFactorAndThatItRepresentsEverything) {
    const typename TypeParam::Transcoder transcoder;
    EXPECT_EQ(transcoder.getMultibyteFactor(), 2U);
    EXPECT_TRUE(transcoder.isUnicodeCompletelyRepresentable());
}

TYPED_TEST(Utf16, IsTheTranscoderOfItsCodePage) {
    EXPECT_NE(
        dynamic_cast<typename TypeParam::Transcoder*>(TranscoderCache::getTranscoder(TypeParam::kCodePage)),
        nullptr);
}

// The orders in plain bytes, apart from the model above.
TEST(Utf16Orders, PutTheHighByteFirstOrLast) {
    wchar_t unit = 0;
    ASSERT_EQ(TranscoderImplUTF16LE::S_multibyteToUnicode("\x41\x00\x42", 3, &unit, 1), 1U);
    EXPECT_EQ(unit, 0x41);
    ASSERT_EQ(TranscoderImplUTF16BE::S_multibyteToUnicode("\x12\x34", 2, &unit, 1), 1U);
    EXPECT_EQ(unit, 0x1234);
    const wchar_t emoji = 0x1F600;
    char bytes[2] = {};
    ASSERT_EQ(TranscoderImplUTF16BE::S_unicodeToMultibyte(&emoji, 1, bytes, 2), 2U);
    EXPECT_EQ(std::string_view(bytes, 2), std::string_view("\xF6\x00", 2));
    ASSERT_EQ(TranscoderImplUTF16LE::S_unicodeToMultibyte(&emoji, 1, bytes, 2), 2U);
    EXPECT_EQ(std::string_view(bytes, 2), std::string_view("\x00\xF6", 2));
}

static_assert(std::is_base_of_v<EncodingStatelessFunctor<char, wchar_t>, Decoder>);
static_assert(std::is_base_of_v<EncodingStatelessFunctor<wchar_t, char>, Encoder>);
static_assert(std::is_empty_v<Decoder::State> && std::is_empty_v<Encoder::State>);
static_assert(Decoder::kLITTLE_ENDIAN == 0 && Decoder::kBIG_ENDIAN == 1);
static_assert(Encoder::kLITTLE_ENDIAN == 0 && Encoder::kBIG_ENDIAN == 1);
static_assert(sizeof(Decoder) == sizeof(bool) && sizeof(Encoder) == sizeof(bool));

TEST(Utf16Functors, AnswerForSizes) {
    for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{1000}}) {
        EXPECT_EQ(Decoder::estimateEncodingSize(n), n);
        EXPECT_EQ(Decoder::maxEncodingSize(n), n);
        EXPECT_EQ(Encoder::estimateEncodingSize(n), 2 * n);
        EXPECT_EQ(Encoder::maxEncodingSize(n), 2 * n);
    }
    EXPECT_EQ(Decoder::maxExpansionFactor(), 1U);
    EXPECT_EQ(Encoder::maxExpansionFactor(), 2U);
    EXPECT_FALSE(Decoder::isChunkable());
    EXPECT_TRUE(Encoder::isChunkable());
}

TEST(Utf16Functors, KnowThePlatformsOrder) {
    EXPECT_EQ(Decoder::getPlatformEndian(), Decoder::kLITTLE_ENDIAN);
    EXPECT_EQ(Encoder::getPlatformEndian(), Encoder::kLITTLE_ENDIAN);
}

} // namespace
