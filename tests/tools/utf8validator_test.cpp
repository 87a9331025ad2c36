#include "Utf8Validator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using sup::transcodeimpl::Utf8Validator;

namespace sup::transcodeimpl {

static bool operator==(const Utf8Validator::Scan& a, const Utf8Validator::Scan& b) {
    return a.wellFormed == b.wellFormed && a.rest == b.rest && a.cut == b.cut;
}

static std::ostream& operator<<(std::ostream& stream, const Utf8Validator::Scan& scan) {
    return stream << "well formed " << scan.wellFormed << ", rest " << scan.rest << (scan.cut ? ", cut" : "");
}

} // namespace sup::transcodeimpl

namespace {

// Table 3-7 of the Unicode standard, row by row.
struct Range {
    unsigned char from;
    unsigned char to;
};
const std::vector<std::vector<Range>> kWellFormed = {
    {{0x00, 0x7F}},
    {{0xC2, 0xDF}, {0x80, 0xBF}},
    {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}},
    {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}},
    {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}},
};

// What the table says of `text`: every row is tried at every sequence.
Utf8Validator::Scan model(std::string_view text) {
    std::size_t at = 0;
    while (at != text.size()) {
        std::size_t best = 0;
        bool complete = false;
        for (const std::vector<Range>& row : kWellFormed) {
            std::size_t n = 0;
            while (n < row.size() && at + n < text.size() &&
                   static_cast<unsigned char>(text[at + n]) >= row[n].from &&
                   static_cast<unsigned char>(text[at + n]) <= row[n].to) {
                ++n;
            }
            best = std::max(best, n);
            complete = complete || n == row.size();
        }
        if (!complete) {
            const bool cut = best != 0 && at + best == text.size();
            return {at, std::max<std::size_t>(best, 1), cut};
        }
        at += best;
    }
    return {at, 0, false};
}

Utf8Validator::Scan scan(std::string_view text) { return Utf8Validator::scan(text.data(), text.size()); }

std::string hex(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        char byte[4];
        std::snprintf(byte, sizeof(byte), "%02X ", static_cast<unsigned char>(c));
        shown += byte;
    }
    return shown;
}

// True, so that a test with millions of texts can stop at the first.
bool differs(std::string_view text) {
    const Utf8Validator::Scan found = scan(text);
    const Utf8Validator::Scan expected = model(text);
    if (found == expected) {
        return false;
    }
    ADD_FAILURE() << hex(text) << "gives " << found << " and not " << expected;
    return true;
}

constexpr std::array<unsigned char, 30> kBoundaryBytes = {
    0x00, 0x0A, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xAF, 0xB0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF,
    0xE0, 0xE1, 0xE2, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF7, 0xF8, 0xFF};

void appendCharacter(std::string& text, std::uint32_t c) {
    const auto put = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xC0 | c >> 6);
        put(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        put(0xE0 | c >> 12);
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    } else {
        put(0xF0 | c >> 18);
        put(0x80 | (c >> 12 & 0x3F));
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    }
}

// Mostly well formed, in runs of one script; at times a stray byte.
std::string randomText(std::mt19937& random, std::size_t characters, unsigned int strayOneIn) {
    const auto below = [&random](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    std::string text;
    std::uint32_t kind = 0;
    for (std::size_t i = 0; i < characters; ++i) {
        if (i % 20 == 0) {
            kind = below(5);
        }
        if (strayOneIn != 0 && below(strayOneIn) == 0) {
            text += static_cast<char>(below(256));
        }
        switch (kind) {
        case 0:
            text += below(8) == 0 ? '\n' : static_cast<char>('a' + below(26));
            break;
        case 1:
            appendCharacter(text, 0x80 + below(0x780));
            break;
        case 2:
            appendCharacter(text, 0x800 + below(0xD000));
            break;
        case 3:
            appendCharacter(text, 0xE000 + below(0x2000));
            break;
        default:
            appendCharacter(text, 0x10000 + below(0x100000));
        }
    }
    return text;
}

} // namespace

TEST(Utf8ValidatorScan, AcceptsEveryScalarValueAndNothingElse) {
    for (std::uint32_t c = 0; c <= 0x11FFFF; ++c) {
        std::string text;
        appendCharacter(text, c);
        const bool isScalar = c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
        ASSERT_EQ(scan(text).wellFormed == text.size(), isScalar) << std::hex << c;
    }
}

TEST(Utf8ValidatorScan, AgreesWithTheTableOnAllTextsOfOneAndTwoBytes) {
    EXPECT_EQ(scan(""), (Utf8Validator::Scan{0, 0, false}));
    for (unsigned int a = 0; a < 256; ++a) {
        const char text[2] = {static_cast<char>(a), 0};
        ASSERT_FALSE(differs({text, 1}));
        for (unsigned int b = 0; b < 256; ++b) {
            const char two[2] = {static_cast<char>(a), static_cast<char>(b)};
            ASSERT_FALSE(differs({two, 2}));
        }
    }
}

// Sanitizers make every step dear; a step prime to 256 still meets every byte in every place.
#ifdef BRIM_SANITIZED
constexpr unsigned int kStep = 11;
constexpr std::size_t kPlaces[] = {10, 62};
#else
constexpr unsigned int kStep = 1;
constexpr std::size_t kPlaces[] = {0, 10, 58, 60, 62, 64, 126};
#endif

TEST(Utf8ValidatorScan, AgreesWithTheTableOnAllTextsOfThreeBytes) {
    for (unsigned int value = 0; value < 1U << 24; value += kStep) {
        const char text[3] = {static_cast<char>(value >> 16), static_cast<char>(value >> 8 & 0xFF),
                              static_cast<char>(value & 0xFF)};
        if (differs({text, 3})) {
            return;
        }
    }
}

TEST(Utf8ValidatorScan, AgreesWithTheTableOnFourBytesOfAllBoundaryValues) {
    for (const unsigned char a : kBoundaryBytes) {
        for (const unsigned char b : kBoundaryBytes) {
            for (const unsigned char c : kBoundaryBytes) {
                for (const unsigned char d : kBoundaryBytes) {
                    const char text[4] = {static_cast<char>(a), static_cast<char>(b), static_cast<char>(c),
                                          static_cast<char>(d)};
                    if (differs({text, 4})) {
                        return;
                    }
                }
            }
        }
    }
}

TEST(Utf8ValidatorScan, AgreesWithTheTableOnSampledFourBytes) {
    constexpr unsigned int kSeed = 20240501;
    std::mt19937 random(kSeed);
    for (int i = 0; i < 1000000; ++i) {
        const std::uint32_t value = static_cast<std::uint32_t>(random());
        const char text[4] = {static_cast<char>(0xC0 | (value & 0x3F)), static_cast<char>(value >> 8 & 0xFF),
                              static_cast<char>(value >> 16 & 0xFF), static_cast<char>(value >> 24)};
        if (differs({text, 4})) {
            return;
        }
    }
}

// What stands around a sequence decides which loop judges it.
TEST(Utf8ValidatorScan, JudgesSequencesAlikeAtEveryPlaceOfALongText) {
    const std::string backgrounds[] = {std::string(192, 'a'), [] {
                                           std::string text;
                                           while (text.size() < 192) {
                                               text += "\xD0\xB6";
                                           }
                                           return text;
                                       }()};
    for (const std::string& background : backgrounds) {
        for (const std::size_t at : kPlaces) {
            for (const unsigned char a : kBoundaryBytes) {
                for (const unsigned char b : kBoundaryBytes) {
                    for (const unsigned char c : kBoundaryBytes) {
                        const char middle[3] = {static_cast<char>(a), static_cast<char>(b),
                                                static_cast<char>(c)};
                        for (const std::string_view tail : {"", "\x80", "\xBF"}) {
                            std::string text = background.substr(0, at);
                            text.append(middle, sizeof(middle));
                            text += tail;
                            text += background.substr(0, 192 - at);
                            if (differs(text)) {
                                return;
                            }
                        }
                    }
                }
            }
        }
    }
}

TEST(Utf8ValidatorScan, ReadsNothingBeyondTheText) {
    constexpr unsigned int kSeed = 7;
    std::mt19937 random(kSeed);
    for (std::size_t length = 0; length <= 130; ++length) {
        for (std::size_t offset = 0; offset < 16; ++offset) {
            const std::string text = randomText(random, length, 40).substr(0, length);
            const std::unique_ptr<char[]> exact(new char[offset + text.size()]);
            std::copy(text.begin(), text.end(), exact.get() + offset);
            ASSERT_EQ(Utf8Validator::scan(exact.get() + offset, text.size()), model(text))
                << "seed " << kSeed << ": " << hex(text);
        }
    }
}

TEST(Utf8Validator, TellsOffsetAndLineOfTheFirstMalformedSequence) {
    struct Case {
        std::string text;
        bool wellFormed;
        std::uint64_t offset;
        std::uint64_t line;
    };
    const Case cases[] = {
        {"", true, 0, 1},
        {"plain\ntext\n", true, 11, 3},
        {"\xFF", false, 0, 1},
        {"\n\n\xC0\x80", false, 2, 3},
        {"ab\nc\xED\xA0\x80\n\xFF", false, 4, 2},
        {"\xF4\x90\x80\x80", false, 0, 1},
        {"a\xE2\x82", false, 1, 1},   // cut at the end
        {"a\xE2\x82\n", false, 1, 1}, // the LF ends it
        {"\xF0\x9F\x98\x80\n\xF0\x9F\x98", false, 5, 2},
        {std::string(1000, '\n') + "\x80", false, 1000, 1001},
    };
    for (const Case& c : cases) {
        Utf8Validator validator;
        validator.feed(c.text.data(), c.text.size());
        EXPECT_EQ(validator.finish(), c.wellFormed) << hex(c.text);
        EXPECT_EQ(validator.isWellFormed(), c.wellFormed) << hex(c.text);
        EXPECT_EQ(validator.errorOffset(), c.offset) << hex(c.text);
        EXPECT_EQ(validator.errorLine(), c.line) << hex(c.text);
    }
}

TEST(Utf8Validator, LooksAtNothingAfterTheFirstMalformedSequence) {
    Utf8Validator validator;
    EXPECT_TRUE(validator.feed("ok\n", 3));
    EXPECT_FALSE(validator.feed("\xFF\n", 2));
    EXPECT_FALSE(validator.feed("fine\n", 5));
    EXPECT_FALSE(validator.finish());
    EXPECT_EQ(validator.errorOffset(), 3U);
    EXPECT_EQ(validator.errorLine(), 2U);
}

TEST(Utf8Validator, CarriesACutSequenceOverPiecesOfEveryLength) {
    const std::string text = "z\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\n";
    for (std::size_t step = 1; step <= text.size(); ++step) {
        Utf8Validator validator;
        for (std::size_t at = 0; at < text.size(); at += step) {
            EXPECT_TRUE(validator.feed(text.data() + at, std::min(step, text.size() - at)));
            EXPECT_TRUE(validator.feed(nullptr, 0)); // an empty piece changes nothing
        }
        EXPECT_TRUE(validator.finish());
        EXPECT_EQ(validator.errorOffset(), text.size());
        EXPECT_EQ(validator.errorLine(), 2U);
    }
}

TEST(Utf8Validator, FindsTheSameInRandomPieces) {
    for (unsigned int seed = 1; seed <= 2000; ++seed) {
        std::mt19937 random(seed);
        const std::string text = randomText(random, random() % 400, seed % 3 == 0 ? 0 : 150);
        const Utf8Validator::Scan expected = model(text);
        const auto lines =
            std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(expected.wellFormed), '\n');
        Utf8Validator validator;
        const std::size_t longest = 1 + random() % 100;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t length = std::min<std::size_t>(random() % (longest + 1), text.size() - at);
            validator.feed(text.data() + at, length);
            at += length;
        }
        ASSERT_EQ(validator.finish(), expected.rest == 0) << "seed " << seed;
        ASSERT_EQ(validator.errorOffset(), expected.wellFormed) << "seed " << seed;
        ASSERT_EQ(validator.errorLine(), static_cast<std::uint64_t>(lines) + 1) << "seed " << seed;
    }
}
