// TranscoderUsingTable against a tree that grows as the rows say, and against whole published code pages.
#include "transcoderusingtable.h"

#include "platform_page.h"
#include "usingtable_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <string_view>

using namespace sup::transcodeimpl;
using brimtest::decoded;
using brimtest::encoded;
using brimtest::PlatformPage;
using brimtest::TableRow;
using brimtest::transcoderOf;
using brimtest::UsingTableModel;

namespace {

// Few bytes and units, so that rows collide.
TEST(TranscoderUsingTableModel, AgreesOnRandomTables) {
    constexpr std::string_view kBytes = "\x01"
                                        "a\x81\x82\xFE";
    constexpr wchar_t kUnits[] = {L'a', L'b', 0x80, 0xFF, 0x4E00, 0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0xFFFF};
    for (unsigned int seed = 4401; seed < 4601; ++seed) {
        std::mt19937 random(seed);
        const auto someBytes = [&](std::size_t length) {
            std::string bytes(length, '\0');
            std::generate(bytes.begin(), bytes.end(), [&] { return kBytes[random() % kBytes.size()]; });
            return bytes;
        };
        std::deque<TableRow> rows;
        for (std::size_t count = random() % 30; count > 0; --count) {
            rows.push_back({kUnits[random() % std::size(kUnits)], someBytes(1 + random() % 4),
                            static_cast<UMBMDirection>(random() % 3)});
        }
        const unsigned int identityCount = random() % 2 == 0 ? 128 : static_cast<unsigned>(random() % 257);
        const UsingTableModel model(rows, identityCount);
        const auto transcoder = transcoderOf(rows, identityCount);
        for (int text = 0; text < 50; ++text) {
            const std::string bytes = someBytes(random() % 20);
            ASSERT_EQ(decoded(*transcoder, bytes), model.decoded(bytes)) << "seed " << seed;
            std::wstring units(random() % 20, L'\0');
            std::generate(units.begin(), units.end(), [&] { return kUnits[random() % std::size(kUnits)]; });
            ASSERT_EQ(encoded(*transcoder, units), model.encoded(units)) << "seed " << seed;
        }
    }
}

class PublishedPage : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        ASSERT_GT(m_page.units().size(), 6000U);
        ASSERT_GT(m_page.bytes().size(), 6000U);
    }

    const PlatformPage m_page{GetParam()};
    const std::deque<TableRow> m_rows = m_page.rows();
    const std::unique_ptr<TranscoderImplBase> m_transcoder = transcoderOf(m_rows, 128);
};

TEST_P(PublishedPage, DecodesEverySequence) {
    std::string all;
    std::wstring allUnits;
    for (const auto& [bytes, unit] : m_page.units()) {
        ASSERT_EQ(decoded(*m_transcoder, bytes), std::wstring(1, unit));
        all += bytes + "z";
        allUnits += {unit, L'z'};
    }
    EXPECT_EQ(decoded(*m_transcoder, all), allUnits);
    for (int byte = 0; byte < 0x80; ++byte) {
        EXPECT_EQ(decoded(*m_transcoder, std::string(1, static_cast<char>(byte))),
                  std::wstring(1, static_cast<wchar_t>(byte)));
    }
}

TEST_P(PublishedPage, EncodesEveryUnit) {
    std::string all;
    std::wstring allUnits;
    for (wchar_t unit = 0; unit <= 0xFFFF; ++unit) {
        const auto known = m_page.bytes().find(unit);
        const std::string bytes = unit < 0x80                     ? std::string(1, static_cast<char>(unit))
                                  : known == m_page.bytes().end() ? "?"
                                                                  : known->second;
        ASSERT_EQ(encoded(*m_transcoder, std::wstring(1, unit)), bytes) << static_cast<int>(unit);
        all += bytes + "z";
        allUnits += {unit, L'z'};
    }
    EXPECT_EQ(encoded(*m_transcoder, allUnits), all);
}

TEST_P(PublishedPage, AgreesWithTheModelOnRandomBytes) {
    const UsingTableModel model(m_rows, 128);
    constexpr unsigned int kSeed = 4402;
    std::mt19937 random(kSeed);
    for (int round = 0; round < 300; ++round) {
        std::string bytes(random() % 200, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        ASSERT_EQ(decoded(*m_transcoder, bytes), model.decoded(bytes))
            << "seed " << kSeed << ", round " << round;
    }
}

std::string alphanumeric(const testing::TestParamInfo<const char*>& info) {
    std::string name(info.param);
    std::erase(name, '-');
    return name;
}

// The last one has characters of three bytes.
INSTANTIATE_TEST_SUITE_P(All, PublishedPage, testing::Values("CP932", "GBK", "BIG5", "EUC-JP"), alphanumeric);

} // namespace
