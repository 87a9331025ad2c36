// TranscoderUsingTable against a tree that grows as the rows say, and against whole published code pages.
#include "transcoderusingtable.h"

#include "usingtable_model.h"

#include <gtest/gtest.h>

#include <iconv.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>

using namespace sup::transcodeimpl;
using brimtest::decoded;
using brimtest::encoded;
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

// One direction of the platform's converter, a character at a time.
class Iconv {
public:
    Iconv(const char* to, const char* from) : m_converter(::iconv_open(to, from)) {}
    ~Iconv() {
        if (isOpen()) {
            ::iconv_close(m_converter);
        }
    }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    bool isOpen() const { return m_converter != reinterpret_cast<iconv_t>(-1); }
    /// Nothing when the bytes are not exactly one character.
    std::optional<std::string> convert(std::string bytes) {
        char* in = bytes.data();
        std::size_t inLeft = bytes.size();
        char buffer[16];
        char* out = buffer;
        std::size_t outLeft = sizeof(buffer);
        ::iconv(m_converter, nullptr, nullptr, nullptr, nullptr);
        if (::iconv(m_converter, &in, &inLeft, &out, &outLeft) != 0) { // not reversible ones either
            return std::nullopt;
        }
        return std::string(buffer, out);
    }

private:
    iconv_t m_converter;
};

std::string utf16Of(wchar_t unit) { return {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)}; }

class PublishedPage : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        Iconv decoder("UTF-16LE", GetParam());
        Iconv encoder(GetParam(), "UTF-16LE");
        ASSERT_TRUE(decoder.isOpen() && encoder.isOpen());
        const auto add = [&](const std::string& bytes) {
            const auto utf16 = decoder.convert(bytes);
            if (utf16 && utf16->size() == 2) {
                m_units[bytes] =
                    static_cast<unsigned char>((*utf16)[0]) | static_cast<unsigned char>((*utf16)[1]) << 8;
            }
        };
        for (int first = 0x80; first < 0x100; ++first) {
            const std::string lead(1, static_cast<char>(first));
            add(lead);
            for (int second = 0x30; m_units.count(lead) == 0 && second < 0x100; ++second) {
                add(lead + static_cast<char>(second));
            }
        }
        for (wchar_t unit = 0x80; unit <= 0xFFFF; ++unit) {
            const auto bytes = encoder.convert(utf16Of(unit));
            if (bytes && bytes->size() <= 3) {
                m_bytes[unit] = *bytes;
                add(*bytes);
            }
        }
        ASSERT_GT(m_units.size(), 6000U);
        ASSERT_GT(m_bytes.size(), 6000U);
        for (const auto& [bytes, unit] : m_units) {
            const auto back = m_bytes.find(unit);
            const bool either = back != m_bytes.end() && back->second == bytes;
            m_rows.push_back({unit, bytes, either ? kCP_Either : kCP_MBToUnicode});
        }
        for (const auto& [unit, bytes] : m_bytes) {
            const auto back = m_units.find(bytes);
            if (back == m_units.end() || back->second != unit) {
                m_rows.push_back({unit, bytes, kCP_UnicodeToMB});
            }
        }
        m_transcoder = transcoderOf(m_rows, 128);
    }

    std::map<std::string, wchar_t> m_units;
    std::map<wchar_t, std::string> m_bytes;
    std::deque<TableRow> m_rows;
    std::unique_ptr<TranscoderImplBase> m_transcoder;
};

TEST_P(PublishedPage, DecodesEverySequence) {
    std::string all;
    std::wstring allUnits;
    for (const auto& [bytes, unit] : m_units) {
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
        const auto known = m_bytes.find(unit);
        const std::string bytes = unit < 0x80              ? std::string(1, static_cast<char>(unit))
                                  : known == m_bytes.end() ? "?"
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
