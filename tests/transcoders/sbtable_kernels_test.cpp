#include "kernels/sbtable.h"

#include "guarded_buffer.h"
#include "kernels/kernels.h"
#include "sbtable_pages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

using namespace sup::transcodeimpl;
using brimtest::GuardedBuffer;
using brimtest::kPages;
using brimtest::Owner;
using brimtest::Page;
using brimtest::page;
using brimtest::Reference;
using sup::kernels::Kernels;
using sup::kernels::kernelsOf;
using sup::kernels::Level;
using sup::kernels::overrideKernels;
using sup::kernels::SingleByteDecoding;
using sup::kernels::SingleByteEncoding;
using testing::AssertionFailure;
using testing::AssertionResult;
using testing::AssertionSuccess;

namespace {

// The full sweeps take seconds; instrumented builds see a part of each.
#ifdef BRIM_SANITIZED
constexpr std::size_t kOffsetStep = 13;
constexpr std::size_t kPlaceStep = 5;
constexpr int kRounds = 100;
#else
constexpr std::size_t kOffsetStep = 1;
constexpr std::size_t kPlaceStep = 1;
constexpr int kRounds = 1000;
#endif

constexpr std::size_t kLongestText = 260;
constexpr std::size_t kOffsets = 64;
constexpr std::size_t kFewOffsets = 16; // of units, in 64 bytes
// Long enough for what only large destinations get.
constexpr std::size_t kLargeText = 9000;

constexpr wchar_t kUnitFill = 0x5A5A5A5A;
constexpr char kByteFill = 0x5A;
constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);

constexpr Level kLevels[] = {Level::plain, Level::avx2, Level::avx512};
constexpr const char* kLevelNames[] = {"plain", "avx2", "avx512"};
const char* nameOf(Level level) { return kLevelNames[static_cast<std::size_t>(level)]; }

// ---- Tables of our own ------------------------------------------------------------------------------------

// Units that no plane and no page holds, in both directions.
const UnicodeMultibyteMapping kWideRows[] = {
    {-2, "\x81", 1, kCP_Either},     {0x10041, "\x82", 1, kCP_Either}, {0xFFFF, "\x83", 1, kCP_Either},
    {0x8000, "\x84", 1, kCP_Either}, {INT_MIN, "\x85", 1, kCP_Either}, {0x0100, "\xFF", 1, kCP_Either},
    {0, nullptr, 0, kCP_End}};
// Units of half an alphabet each, so far apart that no window holds them; the second pair maps to zero.
const UnicodeMultibyteMapping kScatteredRows[] = {
    {0x0100, "\x80", 1, kCP_Either},      {0x0180, "\x90", 1, kCP_Either},
    {0x1234, "\xA0", 1, kCP_Either},      {0x7EFF, "\xB0", 1, kCP_Either},
    {0x7F00, "\xC0", 1, kCP_Either},      {0x7FFE, "\xC1", 1, kCP_Either},
    {0x7FFF, "\xC2", 1, kCP_Either},      {0x8001, "\xD0", 1, kCP_Either},
    {0xD83D, "\xE0", 1, kCP_Either},      {0xDE00, "\xE1", 1, kCP_Either},
    {0x0101, "\0", 1, kCP_UnicodeToMB},   {0x2000, "\0", 1, kCP_UnicodeToMB},
    {0x00A0, " ", 1, kCP_UnicodeToMB},    {0x2019, "'", 1, kCP_UnicodeToMB},
    {0xFFFE, "\xF0", 1, kCP_MBToUnicode}, {0, nullptr, 0, kCP_End}};
// Every unit of a window, up to both of its ends.
const std::vector<UnicodeMultibyteMapping>& denseRows() {
    static const std::vector<UnicodeMultibyteMapping> rows = [] {
        static std::array<char, 512> bytes{};
        std::vector<UnicodeMultibyteMapping> result;
        for (unsigned i = 0; i < 256; ++i) {
            bytes[2 * i] = static_cast<char>(0x80 + i % 0x80);
            result.push_back({static_cast<wchar_t>(0x3000 + i), &bytes[2 * i], 1,
                              i < 0x80 ? kCP_Either : kCP_UnicodeToMB});
        }
        result.push_back({0, nullptr, 0, kCP_End});
        return result;
    }();
    return rows;
}

std::vector<Page> allPages() {
    std::vector<Page> all(std::begin(kPages), std::end(kPages));
    all.push_back(page<128, 300, true>("Wide", "", kWideRows, 0));
    all.push_back(page<128, 300, true>("Scattered", "", kScatteredRows, 0));
    all.push_back(page<128, 300, false>("ScatteredWithoutExtras", "", kScatteredRows, 0));
    all.push_back(page<128, 0xDA00, true>("ScatteredWithIndexedSurrogates", "", kScatteredRows, 0));
    all.push_back(page<128, 0x3080, true>("Dense", "", denseRows().data(), 0));
    all.push_back(page<64, 300, true>("LessThanAscii", "", kScatteredRows, 0));
    all.push_back(page<1, 1, true>("ZeroAlone", "", kScatteredRows, 0));
    return all;
}

// ---- Running a kernel -------------------------------------------------------------------------------------

// The tables of a page, as its transcoder packs them.
struct Packed {
    std::array<wchar_t, 256> units;
    SingleByteDecoding decoding;
    SingleByteEncoding encoding;

    Packed(const Page& of, const Reference& reference) : units(), decoding(), encoding(of.identityLimit) {
        for (unsigned byte = 0; byte < 256; ++byte) {
            units[byte] = reference.unitOf(static_cast<char>(byte));
        }
        decoding.pack(units, of.identityLimit);
        for (const auto& mapping : reference.mappings()) {
            const auto unit = static_cast<std::uint32_t>(mapping.first);
            const bool mayBeginPair = unit >= of.primaryLimit && unit >= 0xD800 && unit <= 0xDBFF;
            const std::optional<char> byte = reference.byteAt({mapping.first}, 0);
            if (byte && unit >= of.identityLimit && !mayBeginPair) {
                encoding.set(unit, *byte);
            }
        }
        encoding.chooseWindow();
    }
};

class Texts {
public:
    Texts(const Page& of, std::uint32_t seed) : m_random(seed), m_identityLimit(of.identityLimit) {
        for (const UnicodeMultibyteMapping* row = of.table; row->eDirection != kCP_End; ++row) {
            m_mapped.push_back(row->wUnicodeChar);
        }
        m_mapped.push_back(static_cast<wchar_t>(of.identityLimit - 1));
    }

    std::uint32_t below(std::size_t limit) { return static_cast<std::uint32_t>(m_random() % limit); }

    // Of 64 characters, `share` are not ASCII.
    std::string bytes(std::size_t length, unsigned share) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) {
            text += static_cast<char>(below(64) < share ? 0x80 + below(128) : below(128));
        }
        return text;
    }
    // Of 64 units, `share` are mapped; of `period` units one is whatever it may be, 0 for none.
    std::wstring units(std::size_t length, unsigned share, unsigned period) {
        std::wstring text;
        for (std::size_t i = 0; i < length; ++i) {
            if (period != 0 && below(period) == 0) {
                text += odd();
            } else {
                text += below(64) < share ? m_mapped[below(m_mapped.size())]
                                          : static_cast<wchar_t>(below(std::min(m_identityLimit, 128U)));
            }
        }
        return text;
    }
    wchar_t odd() {
        static constexpr wchar_t kOdd[] = {0xD800, 0xDBFF, 0xDC00, 0xDFFF,  0xD83D, 0xDE00,  0xFFFD, 0xFFFF,
                                           0x4E00, 0x8000, 0x7FFF, 0x10000, -1,     -0x8000, -129,   INT_MAX,
                                           0x00A0, 0x00A4, 0x00FF, 0x0100,  0x7F,   0x80,    0,      INT_MIN};
        const std::uint32_t kind = below(4);
        return kind == 0   ? static_cast<wchar_t>(m_random()) // any 32 bits
               : kind == 1 ? static_cast<wchar_t>(below(0x10000))
                           : kOdd[below(std::size(kOdd))];
    }

private:
    std::mt19937 m_random;
    unsigned m_identityLimit;
    std::vector<wchar_t> m_mapped;
};

constexpr unsigned kShares[] = {0, 1, 8, 40, 64};

class Override {
public:
    explicit Override(const Kernels* table) { overrideKernels(table); }
    ~Override() { overrideKernels(nullptr); }
    Override(const Override&) = delete;
    Override& operator=(const Override&) = delete;
};

class SingleByteKernels : public testing::TestWithParam<std::tuple<Level, Page>> {
protected:
    void SetUp() override {
        if (m_kernels == nullptr) {
            GTEST_SKIP() << "the processor has no " << nameOf(std::get<Level>(GetParam()));
        }
    }

    // Source and destination end `after` elements before a guard page; these elements and those before the
    // destination must stay.
    AssertionResult decode(std::string_view text, std::size_t offset = 0, std::size_t after = 0) {
        char* const src = m_bytes.last(text.size() + offset);
        text.copy(src, text.size());
        wchar_t* const dst = m_units.lastFenced(text.size() + after, kUnitFill);
        m_kernels->decodeSingleByte(m_packed.decoding, src, text.size(), dst);
        for (std::size_t i = 0; i < text.size(); ++i) {
            const wchar_t expected = m_packed.units[static_cast<unsigned char>(text[i])];
            if (dst[i] != expected) {
                return AssertionFailure()
                       << "byte " << i << " of " << text.size() << " is " << static_cast<long>(dst[i])
                       << ", not " << static_cast<long>(expected);
            }
        }
        return untouched(m_units, dst, text.size(), after, kUnitFill);
    }

    // The kernel stops at the first unit without a packed byte.
    AssertionResult encode(const std::wstring& text, std::size_t offset = 0, std::size_t after = 0) {
        wchar_t* const src = m_units.last(text.size() + offset);
        text.copy(src, text.size());
        char* const dst = m_bytes.lastFenced(text.size() + after, kByteFill);
        const std::size_t done = m_kernels->encodeSingleByte(m_packed.encoding, src, text.size(), dst);
        std::string expected;
        for (const wchar_t unit : text) {
            const char byte = m_packed.encoding.byteOf(static_cast<std::uint32_t>(unit));
            if (byte == 0 && unit != 0) {
                break;
            }
            expected += byte;
        }
        if (done != expected.size() || std::string(dst, done) != expected) {
            return AssertionFailure() << "took " << done << " of " << text.size() << " units, should take "
                                      << expected.size() << ", or wrote other bytes";
        }
        return untouched(m_bytes, dst, done, text.size() - done + after, kByteFill);
    }

    const Page& m_page = std::get<Page>(GetParam());
    const Kernels* m_kernels = kernelsOf(std::get<Level>(GetParam()));
    Reference m_reference{m_page};
    Packed m_packed{m_page, m_reference};

private:
    template <class T>
    static AssertionResult untouched(GuardedBuffer<T>& buffer, const T* dst, std::size_t length,
                                     std::size_t after, T fill) {
        if (!buffer.fenceIsWhole(length + after, fill)) {
            return AssertionFailure() << "wrote before the destination of " << length;
        }
        if (!std::all_of(dst + length, dst + length + after, [fill](T x) { return x == fill; })) {
            return AssertionFailure() << "wrote behind the destination of " << length;
        }
        return AssertionSuccess();
    }

    GuardedBuffer<char> m_bytes{kLargeText + kOffsets};
    GuardedBuffer<wchar_t> m_units{kLargeText + kOffsets};
};

INSTANTIATE_TEST_SUITE_P(Levels, SingleByteKernels,
                         testing::Combine(testing::ValuesIn(kLevels), testing::ValuesIn(allPages())),
                         [](const testing::TestParamInfo<std::tuple<Level, Page>>& row) {
                             return std::string(nameOf(std::get<Level>(row.param))) + "_" +
                                    std::get<Page>(row.param).name;
                         });

// ---- Kernels ----------------------------------------------------------------------------------------------

TEST_P(SingleByteKernels, PackWhatTheReferenceKnows) {
    for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
        const bool mayBeginPair = unit >= m_page.primaryLimit && unit >= 0xD800 && unit <= 0xDBFF;
        const char byte = m_reference.byteAt({static_cast<wchar_t>(unit)}, 0).value_or('\0');
        ASSERT_EQ(m_packed.encoding.byteOf(unit), mayBeginPair ? '\0' : byte) << unit;
    }
    for (const std::uint32_t unit : {0x10000U, 0x10041U, 0x10FFFFU, 0x7FFFFFFFU, 0x80000041U, 0xFFFFFFFFU}) {
        EXPECT_EQ(m_packed.encoding.byteOf(unit), 0) << unit;
    }
    EXPECT_EQ(m_packed.encoding.window()[0], 0);
    EXPECT_EQ(m_packed.encoding.window()[255], 0);
}

TEST_P(SingleByteKernels, DecodeAtEveryLengthAndOffset) {
    constexpr std::uint32_t kSeed = 4401;
    Texts texts(m_page, kSeed);
    for (const unsigned share : kShares) {
        for (std::size_t length = 0; length <= kLongestText; ++length) {
            const std::string text = texts.bytes(length, share);
            ASSERT_TRUE(decode(text)) << "seed " << kSeed;
            for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
                ASSERT_TRUE(decode(text, offset, (offset + length) % kFewOffsets))
                    << "seed " << kSeed << ", offset " << offset;
            }
        }
    }
}

TEST_P(SingleByteKernels, EncodeAtEveryLengthAndOffset) {
    constexpr std::uint32_t kSeed = 4402;
    Texts texts(m_page, kSeed);
    for (const unsigned share : kShares) {
        for (std::size_t length = 0; length <= kLongestText; ++length) {
            const std::wstring text = texts.units(length, share, length % 3 == 0 ? 200 : 0);
            ASSERT_TRUE(encode(text)) << "seed " << kSeed;
            for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
                ASSERT_TRUE(encode(text, (offset + length) % kFewOffsets, offset))
                    << "seed " << kSeed << ", offset " << offset;
            }
        }
    }
}

TEST_P(SingleByteKernels, ConvertLargeTextsAtEveryAlignment) {
    constexpr std::uint32_t kSeed = 4403;
    Texts texts(m_page, kSeed);
    for (std::size_t after = 0; after < kFewOffsets; ++after) {
        for (const std::size_t length :
             {std::size_t{4095}, std::size_t{4096}, kLargeText - texts.below(70)}) {
            ASSERT_TRUE(decode(texts.bytes(length, 8), after, after)) << "seed " << kSeed;
            ASSERT_TRUE(encode(texts.units(length, 8, 0), after, after)) << "seed " << kSeed;
        }
    }
}

TEST_P(SingleByteKernels, DecodeEveryByteAtEveryPlace) {
    for (std::size_t place = 0; place < 140; place += kPlaceStep) {
        for (unsigned byte = 0; byte < 256; ++byte) {
            std::string text(140, 'a');
            text[place] = static_cast<char>(byte);
            ASSERT_TRUE(decode(text));
            std::fill(text.begin(), text.end(), '\xE1');
            text[place] = static_cast<char>(byte);
            ASSERT_TRUE(decode(text));
        }
    }
}

TEST_P(SingleByteKernels, StopAtAnyUnitAtAnyPlace) {
    constexpr std::uint32_t kSeed = 4404;
    Texts texts(m_page, kSeed);
    for (std::size_t place = 0; place < 140; place += kPlaceStep) {
        for (int round = 0; round < 40; ++round) {
            std::wstring text = texts.units(140, kShares[texts.below(std::size(kShares))], 0);
            text[place] = texts.odd();
            ASSERT_TRUE(encode(text)) << "seed " << kSeed << ", place " << place;
            text.resize(place + 1);
            ASSERT_TRUE(encode(text)) << "seed " << kSeed << ", place " << place;
        }
    }
}

TEST_P(SingleByteKernels, EncodeEveryUnitUpTo0xFFFF) {
    for (wchar_t unit = 0; unit <= 0xFFFF; ++unit) {
        std::wstring text(70, L'a');
        text[static_cast<std::size_t>(unit) % text.size()] = unit;
        ASSERT_TRUE(encode(text)) << static_cast<int>(unit);
    }
}

TEST_P(SingleByteKernels, TakeNothingFromNothing) {
    m_kernels->decodeSingleByte(m_packed.decoding, nullptr, 0, nullptr);
    EXPECT_EQ(m_kernels->encodeSingleByte(m_packed.encoding, nullptr, 0, nullptr), 0U);
}

// ---- Transcoders at each level ----------------------------------------------------------------------------

struct Call {
    std::wstring units;
    std::size_t read;
    std::size_t written;
    std::size_t room;
    bool operator==(const Call& other) const {
        return units == other.units && read == other.read && written == other.written && room == other.room;
    }
};
void PrintTo(const Call& call, std::ostream* out) {
    *out << call.units.size() << " units at " << call.read << ", written " << call.written << ", room "
         << call.room;
}

// Answers with 0 to `most` bytes, by what it is asked; with -1 once in `failsOnceIn` questions.
struct Responder {
    std::size_t most;
    unsigned failsOnceIn;
    const wchar_t* src;
    const char* dst;
    std::vector<Call> calls;

    std::optional<std::string> answer(const std::wstring& units) const {
        const auto key = static_cast<unsigned>(units[0]) * 2654435761U >> 8;
        if (failsOnceIn != 0 && key % failsOnceIn == 0) {
            return std::nullopt;
        }
        return std::string(key % (most + 1), static_cast<char>('A' + units.size()));
    }
    static std::size_t call(void* param, const wchar_t* src, std::size_t srcLen, char* dst,
                            std::size_t dstLen) {
        auto& self = *static_cast<Responder*>(param);
        self.calls.push_back({std::wstring(src, srcLen), static_cast<std::size_t>(src - self.src),
                              static_cast<std::size_t>(dst - self.dst), dstLen});
        const std::optional<std::string> bytes = self.answer({src, srcLen});
        if (!bytes) {
            return kTooSmall;
        }
        std::memcpy(dst, bytes->data(), std::min(bytes->size(), dstLen));
        return bytes->size();
    }
};

struct Encoded {
    std::size_t result = 0;
    std::string bytes;
    std::vector<Call> calls;
};

// What encoding into `room` bytes with a callback gives.
Encoded encodedByRule(const Reference& reference, const std::wstring& units, std::size_t room,
                      const Responder& responder) {
    Encoded all;
    for (std::size_t i = 0; i < units.size();) {
        const std::size_t count = reference.unitsAt(units, i);
        if (const std::optional<char> byte = reference.byteAt(units, i)) {
            all.bytes += *byte;
            i += count;
            continue;
        }
        all.calls.push_back({units.substr(i, count), i, all.bytes.size(), room - all.bytes.size()});
        const std::optional<std::string> given = responder.answer(units.substr(i, count));
        if (!given || given->size() > room - all.bytes.size()) {
            all.result = kTooSmall;
            return all;
        }
        all.bytes += *given;
        i += count;
        if (room - all.bytes.size() < units.size() - i) {
            all.result = kTooSmall;
            return all;
        }
    }
    all.result = all.bytes.size();
    return all;
}

TEST_P(SingleByteKernels, ConvertForTheTranscoder) {
    constexpr std::uint32_t kSeed = 4405;
    const Override level(m_kernels);
    const Owner transcoder = m_page.make();
    Texts texts(m_page, kSeed);
    GuardedBuffer<char> narrow(3 * kLongestText);
    GuardedBuffer<wchar_t> wide(kLongestText);
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", round " << round);
        const std::size_t length = texts.below(kLongestText + 1);
        const unsigned share = kShares[texts.below(std::size(kShares))];

        const std::string bytes = texts.bytes(length, share);
        char* src = narrow.last(length);
        bytes.copy(src, length);
        wchar_t* dst = wide.last(length);
        ASSERT_EQ(transcoder->multibyteToUnicode(src, length, dst, length, nullptr), length);
        ASSERT_EQ(std::wstring(dst, length), m_reference.decode(bytes));

        const std::wstring units = texts.units(length, share, 1 + texts.below(100));
        wchar_t* const unitsSrc = wide.last(length);
        units.copy(unitsSrc, length);
        char* to = narrow.last(length);
        const std::string marked = m_reference.encode(units, "?");
        ASSERT_EQ(transcoder->unicodeToMultibyte(unitsSrc, length, to, length, nullptr, nullptr, nullptr),
                  marked.size());
        ASSERT_EQ(std::string(to, marked.size()), marked);

        const std::size_t room = length + texts.below(2 * length + 1);
        to = narrow.last(room);
        Responder responder{texts.below(4), texts.below(4) == 0 ? 10U : 0U, unitsSrc, to, {}};
        const Encoded expected = encodedByRule(m_reference, units, room, responder);
        ASSERT_EQ(
            transcoder->unicodeToMultibyte(unitsSrc, length, to, room, nullptr, Responder::call, &responder),
            expected.result);
        ASSERT_EQ(responder.calls, expected.calls);
        if (expected.result != kTooSmall) {
            ASSERT_EQ(std::string(to, expected.result), expected.bytes);
        }
    }
}

class AddUnicodeMappingAtLevel : public testing::TestWithParam<Level> {};
INSTANTIATE_TEST_SUITE_P(Levels, AddUnicodeMappingAtLevel, testing::ValuesIn(kLevels),
                         [](const testing::TestParamInfo<Level>& row) {
                             return std::string(nameOf(row.param));
                         });

template <class Transcoder>
std::string encodedLong(const Transcoder& transcoder, wchar_t unit) {
    const std::wstring text(200, unit);
    std::string bytes(200, '\0');
    bytes.resize(transcoder.unicodeToMultibyte(text.data(), text.size(), bytes.data(), bytes.size(), nullptr,
                                               nullptr, nullptr));
    return bytes;
}

TEST_P(AddUnicodeMappingAtLevel, ReachesTheLoops) {
    const Kernels* const kernels = kernelsOf(GetParam());
    if (kernels == nullptr) {
        GTEST_SKIP() << "the processor has no " << nameOf(GetParam());
    }
    const Override level(kernels);
    TranscoderSBTable<161, 975, true> transcoder(cpISO8859_7);
    const auto expect = [&transcoder](wchar_t unit, char byte) {
        EXPECT_EQ(encodedLong(transcoder, unit), std::string(200, byte)) << static_cast<int>(unit);
    };
    const struct {
        wchar_t unit;
        const char* byte;
    } kAdded[] = {
        {0x03B1, "a"}, // an entry of the window replaced
        {0x0386, "\xFA"}, {0x00C0, "A"},     {0x2019, "'"}, {0x20AC, "\xA4"},
        {0x2015, "-"},    {0x10041, "\xF1"}, {-5, "\xF2"},  {0xDE00, "\xF3"},
        {0xD83D, "\xF4"}, {0x03B1, "\0"}, // and taken away
    };
    for (const auto& row : kAdded) {
        transcoder.AddUnicodeMapping({row.unit, row.byte, 1, kCP_Either});
        expect(row.unit, row.byte[0] != 0 ? row.byte[0] : '?');
        expect(0x03B2, '\xE2');
    }
    expect(L'a', 'a');
    transcoder.AddUnicodeMapping({L'a', "b", 1, kCP_Either});
    expect(L'a', 'a');
    // So many letters elsewhere that the window moves there.
    for (wchar_t unit = 0x0400; unit < 0x0500; ++unit) {
        transcoder.AddUnicodeMapping({unit, "\xC8", 1, kCP_Either});
    }
    expect(0x0400, '\xC8');
    expect(0x04FF, '\xC8');
    expect(0x03B2, '\xE2');
    expect(0x2019, '\'');
}

} // namespace
