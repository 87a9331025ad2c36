// The multi-byte transcoder at each processor level against a tree that grows as the rows say.
#include "kernels/mbtable.h"

#include "guarded_buffer.h"
#include "kernels/kernels.h"
#include "platform_page.h"
#include "usingtable_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

using namespace sup::transcodeimpl;
using brimtest::GuardedBuffer;
using brimtest::PlatformPage;
using brimtest::TableRow;
using brimtest::transcoderOf;
using brimtest::UsingTableModel;
using sup::kernels::Kernels;
using sup::kernels::kernelsOf;
using sup::kernels::Level;
using sup::kernels::MultibyteDecoding;
using sup::kernels::MultibyteEncoding;
using sup::kernels::MultibyteProgress;
using sup::kernels::overrideKernels;

namespace {

// The full sweeps take seconds; instrumented builds see a part of each.
#ifdef BRIM_SANITIZED
constexpr std::size_t kOffsetStep = 13;
constexpr std::size_t kLengthStep = 3;
#else
constexpr std::size_t kOffsetStep = 1;
constexpr std::size_t kLengthStep = 1;
#endif

constexpr std::size_t kLongestText = 260;
constexpr std::size_t kOffsets = 64;
constexpr std::size_t kMostBytes = 4; // of a unit
constexpr std::size_t kTooSmall = static_cast<std::size_t>(-1);
constexpr wchar_t kUnitFill = 0x5A5A5A5A;
constexpr char kByteFill = 0x5A;

// ---- Tables -----------------------------------------------------------------------------------------------

// Characters of one to four bytes, and units that no packed table holds.
std::deque<TableRow> mixedRows() {
    std::deque<TableRow> rows = {{0xE9, "\xE9", kCP_Either},
                                 {0x4E01, "\x82\x41\x42", kCP_Either},
                                 {0x4E02, "\x83\x40\x41\x42", kCP_Either},
                                 {0x4E03, "\x83\x43", kCP_Either},
                                 {0xFFFF, "\x81\x80", kCP_Either},
                                 {0x10000, "\x81\x81", kCP_MBToUnicode},
                                 {-2, "\x81\x82", kCP_MBToUnicode},
                                 {INT_MAX, "\xEA", kCP_MBToUnicode},
                                 {0xFFFE, "\x81\x84", kCP_Either},
                                 {0xD800, "\xFD", kCP_UnicodeToMB},
                                 {0xDC01, "\xFE", kCP_UnicodeToMB},
                                 {0, "\x81\x85", kCP_MBToUnicode}};
    for (int second = 0x90; second < 0x100; ++second) {
        rows.push_back(
            {static_cast<wchar_t>(0x5000 + second), {'\x81', static_cast<char>(second)}, kCP_Either});
        rows.push_back(
            {static_cast<wchar_t>(0x6000 + second), {'\xFF', static_cast<char>(second)}, kCP_Either});
    }
    return rows;
}

std::deque<TableRow> with(std::deque<TableRow> rows, const std::vector<TableRow>& more) {
    rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}

// Built when a test asks: most processes run one test.
constexpr struct {
    const char* name;
    unsigned int identityCount;
    std::deque<TableRow> (*rows)();
} kPages[] = {
    {"Nothing", 0, [] { return std::deque<TableRow>(); }},
    {"AsciiAlone", 128, [] { return std::deque<TableRow>(); }},
    {"Latin1", 256, [] { return std::deque<TableRow>(); }},
    {"Mixed", 128, mixedRows},
    {"MixedWithoutAscii", 0, mixedRows},
    {"OneLetterChanged", 128,
     [] {
         return with(mixedRows(), {{0x100, "~", kCP_MBToUnicode}});
     }},
    {"LetterThatLeads", 128,
     [] {
         return with(mixedRows(), {{0x101, "~~", kCP_MBToUnicode}});
     }},
    {"EucJp", 128, [] { return PlatformPage("EUC-JP").rows(); }},
    {"Cp932", 128, [] { return PlatformPage("CP932").rows(); }},
    {"Gbk", 128, [] { return PlatformPage("GBK").rows(); }},
};

struct Subject {
    explicit Subject(std::size_t page)
        : rows(kPages[page].rows()), model(rows, kPages[page].identityCount),
          transcoder(transcoderOf(rows, kPages[page].identityCount)) {}
    std::deque<TableRow> rows;
    UsingTableModel model;
    std::unique_ptr<TranscoderImplBase> transcoder;
};
const Subject& subject(std::size_t page) {
    static std::map<std::size_t, Subject> made;
    return made.try_emplace(page, page).first->second;
}

// ---- Texts ------------------------------------------------------------------------------------------------

class Texts {
public:
    Texts(const Subject& subject, std::uint32_t seed) : m_random(seed), m_rows(subject.rows) {
        m_rows.push_back({L'a', "a", kCP_Either});
    }

    std::size_t below(std::size_t limit) { return m_random() % limit; }

    // Of 64 characters, `share` are of the table; of `period` one is whatever it may be, 0 for none.
    std::string bytes(std::size_t length, unsigned share, unsigned period) {
        std::string text;
        while (text.size() < length) {
            if (period != 0 && below(period) == 0) {
                text += static_cast<char>(m_random());
            } else if (below(64) < share) {
                text += m_rows[below(m_rows.size())].bytes;
            } else {
                text += static_cast<char>(below(0x80));
            }
        }
        text.resize(length);
        return text;
    }
    std::wstring units(std::size_t length, unsigned share, unsigned period) {
        static constexpr wchar_t kOdd[] = {0xD800, 0xD83D,  0xDC00, 0xDE00,  0xDFFF,  0xFFFD,
                                           0xFFFF, 0xA0,    0x80,   0x10000, 0x1F600, -1,
                                           -0x80,  INT_MIN, 0x7F,   0,       INT_MAX, 0xDC01};
        std::wstring text;
        while (text.size() < length) {
            if (period != 0 && below(period) == 0) {
                text += below(2) == 0 ? static_cast<wchar_t>(m_random()) : kOdd[below(std::size(kOdd))];
            } else if (below(64) < share) {
                text += m_rows[below(m_rows.size())].unit;
            } else {
                text += static_cast<wchar_t>(below(0x80));
            }
        }
        return text;
    }

private:
    std::mt19937 m_random;
    std::deque<TableRow> m_rows;
};

constexpr struct {
    unsigned share;
    unsigned period;
} kMixtures[] = {{0, 0}, {2, 0}, {30, 0}, {64, 0}, {30, 60}, {64, 7}, {0, 1}};

std::size_t writeTwo(void* /*param*/, const wchar_t* /*src*/, std::size_t /*srcLen*/, char* dst,
                     std::size_t dstLen) {
    constexpr std::string_view kAnswer = "##";
    return dstLen < kAnswer.size() ? kTooSmall : kAnswer.copy(dst, kAnswer.size());
}

// ---- At each level ----------------------------------------------------------------------------------------

class MultibyteLevels : public testing::TestWithParam<std::tuple<Level, std::size_t>> {
protected:
    void SetUp() override {
        const Kernels* const kernels = kernelsOf(std::get<Level>(GetParam()));
        if (kernels == nullptr) {
            GTEST_SKIP() << "the processor lacks this level";
        }
        overrideKernels(kernels);
    }
    void TearDown() override { overrideKernels(nullptr); }

    // Source and destination end `after` elements before a guard page.
    void expectDecoded(std::string_view text, std::wstring_view expected, std::size_t room,
                       std::size_t after) {
        char* const src = m_narrow.last(text.size() + after);
        text.copy(src, text.size());
        wchar_t* const dst = m_wide.lastFenced(room + after % 16, kUnitFill);
        const std::size_t written =
            m_subject.transcoder->multibyteToUnicode(src, text.size(), dst, room, nullptr);
        const std::size_t good = std::min(room, expected.size());
        ASSERT_EQ(written, room < expected.size() ? kTooSmall : expected.size());
        ASSERT_EQ(std::wstring_view(dst, good), expected.substr(0, good));
        ASSERT_TRUE(
            std::all_of(dst + good, dst + room + after % 16, [](wchar_t c) { return c == kUnitFill; }));
        ASSERT_TRUE(m_wide.fenceIsWhole(room + after % 16, kUnitFill));
    }
    void expectEncoded(std::wstring_view text, std::string_view expected, std::size_t room, std::size_t after,
                       SUPTranscodeUntranslatableCharCallback callback = nullptr) {
        wchar_t* const src = m_wide.last(text.size() + after % 16);
        text.copy(src, text.size());
        char* const dst = m_narrow.lastFenced(room + after, kByteFill);
        const std::size_t written =
            m_subject.transcoder->unicodeToMultibyte(src, text.size(), dst, room, nullptr, callback, nullptr);
        const std::size_t good = room < text.size() ? 0 : std::min(room, expected.size());
        ASSERT_EQ(written, good < expected.size() ? kTooSmall : expected.size());
        if (callback == nullptr || written != kTooSmall) {
            ASSERT_EQ(std::string_view(dst, good), expected.substr(0, good));
        }
        ASSERT_TRUE(std::all_of(dst + room, dst + room + after, [](char c) { return c == kByteFill; }));
        ASSERT_TRUE(m_narrow.fenceIsWhole(room + after, kByteFill));
    }

    const Subject& m_subject = subject(std::get<std::size_t>(GetParam()));

private:
    GuardedBuffer<char> m_narrow{kMostBytes * kLongestText + kOffsets};
    GuardedBuffer<wchar_t> m_wide{kLongestText + kOffsets};
};

TEST_P(MultibyteLevels, DecodeAtEveryLengthAndOffset) {
    constexpr std::uint32_t kSeed = 4411;
    Texts texts(m_subject, kSeed);
    for (const auto& [share, period] : kMixtures) {
        for (std::size_t length = 0; length <= kLongestText; length += kLengthStep) {
            SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", length " << length);
            const std::string text = texts.bytes(length, share, period);
            const std::wstring expected = m_subject.model.decoded(text);
            for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
                ASSERT_NO_FATAL_FAILURE(expectDecoded(text, expected, expected.size(), offset));
            }
            ASSERT_NO_FATAL_FAILURE(expectDecoded(text, expected, length, 0)) << "with room to spare";
        }
    }
}

TEST_P(MultibyteLevels, DecodeIntoAnyRoom) {
    constexpr std::uint32_t kSeed = 4412;
    Texts texts(m_subject, kSeed);
    for (const auto& [share, period] : kMixtures) {
        const std::string text = texts.bytes(kLongestText - texts.below(8), share, period);
        const std::wstring expected = m_subject.model.decoded(text);
        for (std::size_t room = 0; room <= expected.size(); ++room) {
            SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", room " << room);
            ASSERT_NO_FATAL_FAILURE(expectDecoded(text, expected, room, 0));
        }
    }
}

TEST_P(MultibyteLevels, DecodeRunsOfLeadBytesFromEveryPlace) {
    for (const std::string_view run : {"\x81", "\xFF", "\xA4", "\x82", "\x83", "\x8F", "~"}) {
        for (std::size_t before = 0; before < 70; ++before) {
            for (const std::size_t length : {1U, 2U, 3U, 63U, 64U, 65U, 130U}) {
                std::string text(before, 'a');
                for (std::size_t i = 0; i < length; ++i) {
                    text += run;
                }
                text += "bcdefghi";
                const std::wstring expected = m_subject.model.decoded(text);
                ASSERT_NO_FATAL_FAILURE(expectDecoded(text, expected, expected.size(), 0))
                    << "run of " << length << " from " << before;
            }
        }
    }
}

TEST_P(MultibyteLevels, EncodeAtEveryLengthAndOffset) {
    constexpr std::uint32_t kSeed = 4413;
    Texts texts(m_subject, kSeed);
    for (const auto& [share, period] : kMixtures) {
        for (std::size_t length = 0; length <= kLongestText; length += kLengthStep) {
            SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", length " << length);
            const std::wstring text = texts.units(length, share, period);
            const std::string expected = m_subject.model.encoded(text);
            const std::size_t room = std::max(expected.size(), length);
            for (std::size_t offset = 0; offset < kOffsets; offset += kOffsetStep) {
                ASSERT_NO_FATAL_FAILURE(expectEncoded(text, expected, room, offset));
            }
            ASSERT_NO_FATAL_FAILURE(expectEncoded(text, expected, kMostBytes * length, 0))
                << "with room to spare";
        }
    }
}

TEST_P(MultibyteLevels, EncodeWithACallbackAtEveryLength) {
    constexpr std::uint32_t kSeed = 4414;
    Texts texts(m_subject, kSeed);
    for (const auto& [share, period] : kMixtures) {
        for (std::size_t length = 0; length <= kLongestText; length += kLengthStep) {
            SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", length " << length);
            const std::wstring text = texts.units(length, share, period);
            const std::string expected = m_subject.model.encoded(text, "##");
            ASSERT_NO_FATAL_FAILURE(expectEncoded(text, expected, kMostBytes * length, 0, writeTwo));
        }
    }
}

TEST_P(MultibyteLevels, EncodeIntoAnyRoom) {
    constexpr std::uint32_t kSeed = 4415;
    Texts texts(m_subject, kSeed);
    for (const auto& [share, period] : kMixtures) {
        const std::wstring text = texts.units(kLongestText - texts.below(8), share, period);
        const std::string expected = m_subject.model.encoded(text);
        for (std::size_t room = text.size() - 1; room <= expected.size(); ++room) {
            SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", room " << room);
            ASSERT_NO_FATAL_FAILURE(expectEncoded(text, expected, room, 0));
        }
    }
}

TEST_P(MultibyteLevels, EncodeEveryUnitUpTo0xFFFF) {
    for (wchar_t unit = 0; unit <= 0xFFFF; ++unit) {
        std::wstring text(40, L'a');
        text[static_cast<std::size_t>(unit) % text.size()] = unit;
        const std::string expected = m_subject.model.encoded(text);
        ASSERT_NO_FATAL_FAILURE(expectEncoded(text, expected, std::max(expected.size(), text.size()), 0))
            << static_cast<int>(unit);
    }
}

constexpr Level kLevels[] = {Level::plain, Level::avx2, Level::avx512};
constexpr const char* kLevelNames[] = {"plain", "avx2", "avx512"};

INSTANTIATE_TEST_SUITE_P(All, MultibyteLevels,
                         testing::Combine(testing::ValuesIn(kLevels),
                                          testing::Range(std::size_t{0}, std::size(kPages))),
                         [](const testing::TestParamInfo<std::tuple<Level, std::size_t>>& row) {
                             return std::string(kLevelNames[static_cast<int>(std::get<Level>(row.param))]) +
                                    "_" + kPages[std::get<std::size_t>(row.param)].name;
                         });

// ---- The loops themselves ---------------------------------------------------------------------------------

TEST(MultibyteMasks, EverySecondByteOfARunLeads) {
    constexpr std::uint32_t kSeed = 4416;
    std::mt19937_64 random(kSeed);
    for (int round = 0; round < 20000; ++round) {
        std::uint64_t candidates = random();
        for (int more = round % 4; more > 0; --more) { // longer runs
            candidates |= random();
        }
        std::uint64_t expected = 0;
        for (unsigned i = 0; i < 64; ++i) {
            const bool follows = i != 0 && (expected >> (i - 1) & 1U) != 0;
            expected |= follows ? 0 : candidates & std::uint64_t{1} << i;
        }
        ASSERT_EQ(sup::kernels::leadsAmong(candidates), expected) << "seed " << kSeed << ": " << candidates;
    }
    EXPECT_EQ(sup::kernels::leadsAmong(~std::uint64_t{0}), 0x5555555555555555U);
    EXPECT_EQ(sup::kernels::leadsAmong(0), 0U);
}

class MultibyteKernels : public testing::TestWithParam<Level> {
protected:
    void SetUp() override {
        if (m_kernels == nullptr) {
            GTEST_SKIP() << "the processor lacks this level";
        }
        m_table.reset(3);
        for (std::size_t byte = 0; byte < 256; ++byte) {
            m_table.setUnit(0, byte, static_cast<std::uint32_t>(byte));
            m_table.setUnit(1, byte, static_cast<std::uint32_t>(0x3000 + byte));
            m_table.setUnit(2, byte, static_cast<std::uint32_t>(byte == 0xC0 ? 0x12345 : 0x4E00 + byte));
        }
        m_table.setLead(0xA4, 1);
        m_table.setLead(0xFE, 2);
        m_table.finish();
    }

    const Kernels* m_kernels = kernelsOf(GetParam());
    MultibyteDecoding m_table;
};

// Otherwise everything would still be right, but slow.
TEST_P(MultibyteKernels, DecodeKnownTextToItsEnd) {
    for (std::size_t length = 0; length <= kLongestText; ++length) {
        std::string text;
        std::wstring expected;
        while (text.size() + 4 <= length) {
            text += "a\xA4\xFE\xE0";
            expected += {L'a', 0x30FE, 0xE0};
        }
        for (const std::string_view cut : {"", "\xA4", "\xFE"}) {
            std::wstring units(text.size() + 1, kUnitFill);
            const std::string whole = text + std::string(cut);
            const MultibyteProgress done =
                m_kernels->decodeMultibyte(m_table, whole.data(), whole.size(), units.data(), units.size());
            ASSERT_EQ(done.read, text.size()) << length;
            ASSERT_EQ(done.written, expected.size()) << length;
            ASSERT_EQ(units.substr(0, done.written), expected);
        }
    }
}

TEST_P(MultibyteKernels, StopCloseBeforeAnUnknownCharacter) {
    for (std::size_t before = 0; before < 200; ++before) {
        const std::string text = std::string(before, 'a') + "\xFE\xC0" + std::string(100, 'b');
        std::wstring units(text.size(), kUnitFill);
        const MultibyteProgress done =
            m_kernels->decodeMultibyte(m_table, text.data(), text.size(), units.data(), units.size());
        ASSERT_LE(done.read, before);
        ASSERT_LE(before - done.read, 64U);
        ASSERT_EQ(done.written, done.read);
    }
}

TEST_P(MultibyteKernels, EncodeKnownTextToItsEnd) {
    std::string bytes(MultibyteEncoding::kUnits * MultibyteEncoding::kBytes, '\0');
    bytes.replace(0x4E00 * MultibyteEncoding::kBytes, 2, "\xFE\x40");
    bytes.replace(0x4E01 * MultibyteEncoding::kBytes, 3, "\x8F\xA1\xA2");
    bytes.replace(0xE9 * MultibyteEncoding::kBytes, 1, "\xE9");
    const MultibyteEncoding table{bytes.data()};
    std::wstring text;
    std::string expected;
    for (std::size_t length = 0; length <= kLongestText; ++length) {
        // The loops want room for four bytes a unit.
        std::string encoded(MultibyteEncoding::kBytes * text.size(), kByteFill);
        const MultibyteProgress done =
            m_kernels->encodeMultibyte(table, text.data(), text.size(), encoded.data(), encoded.size());
        ASSERT_EQ(done.read, text.size());
        ASSERT_EQ(encoded.substr(0, done.written), expected);
        const bool isLong = length % 29 == 7;
        text += length % 3 == 0 ? L'\0' : isLong ? L'\x4E01' : length % 2 == 0 ? L'\x4E00' : L'\xE9';
        expected += length % 3 == 0   ? std::string(1, '\0')
                    : isLong          ? "\x8F\xA1\xA2"
                    : length % 2 == 0 ? "\xFE\x40"
                                      : "\xE9";
    }
}

TEST_P(MultibyteKernels, TakeNothingFromNothing) {
    const MultibyteProgress decoded = m_kernels->decodeMultibyte(m_table, nullptr, 0, nullptr, 0);
    EXPECT_EQ(decoded.read + decoded.written, 0U);
    const MultibyteProgress encoded =
        m_kernels->encodeMultibyte(MultibyteEncoding{nullptr}, nullptr, 0, nullptr, 0);
    EXPECT_EQ(encoded.read + encoded.written, 0U);
}

// The loops know no zero byte inside of a mapping.
TEST_P(MultibyteKernels, LeaveMappingsWithAZeroByteToTheTable) {
    overrideKernels(m_kernels);
    const auto transcoder =
        transcoderOf({{0x4E00, {"\x81\0\x82", 3}, kCP_Either}, {0x4E01, "\x83\x84", kCP_Either}}, 128);
    std::wstring text;
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        text += i % 3 == 0 ? L'\x4E00' : i % 3 == 1 ? L'\x4E01' : L'a';
        expected += i % 3 == 0 ? "\x81" : i % 3 == 1 ? "\x83\x84" : "a";
    }
    EXPECT_EQ(brimtest::encoded(*transcoder, text), expected);
    overrideKernels(nullptr);
}

INSTANTIATE_TEST_SUITE_P(All, MultibyteKernels, testing::ValuesIn(kLevels),
                         [](const testing::TestParamInfo<Level>& row) {
                             return std::string(kLevelNames[static_cast<int>(row.param)]);
                         });

} // namespace
