// brimtool transcode with encodings of iconv's.
#include "tool_runner.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

using namespace brimtest;
using namespace std::string_literals;

namespace {

std::string asUtf8(const std::u32string& text) {
    return systemIconv(
        "UTF-32LE", "UTF-8",
        std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char32_t)));
}

// Lines of runs of ASCII, Cyrillic and (when asked) kana, which change shift states at random places.
std::string randomText(unsigned int seed, std::size_t characters, bool withKana) {
    std::mt19937 random(seed);
    std::u32string text;
    while (text.size() < characters) {
        const unsigned int script = static_cast<unsigned int>(random() % (withKana ? 3 : 2));
        const char32_t first = script == 0 ? U'a' : script == 1 ? U'\u0430' : U'\u3042';
        for (std::size_t left = 1 + random() % 40; left != 0; --left) {
            text += first + static_cast<char32_t>(random() % 26);
        }
        if (random() % 4 == 0) {
            text += U'\n';
        }
    }
    return asUtf8(text + U'\n');
}

void expectConverts(const std::string& from, const std::string& to, const std::string& input,
                    const std::string& expected, std::size_t readLength = 0) {
    ToolRun run = transcodeRun(from, to, input);
    run.readLength = readLength;
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << from << " to " << to << ": " << result;
    EXPECT_EQ(result.errors, "") << from << " to " << to;
    EXPECT_TRUE(result.output == expected) << from << " to " << to << ", reads of " << readLength << ": "
                                           << result.output.size() << " bytes and not " << expected.size();
}

const std::string kShiftedKana = "\x1B$B$\"$$\x1B(B"; // two kana in ISO-2022-JP
const std::string kKana = "\xE3\x81\x82\xE3\x81\x84";

} // namespace

// The text is several times longer than the buffer, and a shift state or a mark at its start holds to its
// end.
TEST(BrimtoolIconv, LongTextsAgreeWithIconvBothWays) {
    struct Case {
        const char* name;
        bool hasKana;
    };
    const Case cases[] = {
        {"ISO-2022-JP", true}, {"ISO-2022-KR", true}, {"ISO-2022-CN-EXT", true}, {"EUC-JP", true},
        {"CP932", true},       {"GB18030", true},     {"BIG5-HKSCS", true},      {"UTF-7", true},
        {"UTF-16", true},      {"UTF-32LE", true},    {"KOI8-R", false},         {"UTF-16BE", true},
    };
    unsigned int seed = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE("seed " + std::to_string(++seed));
        const std::string utf8 = randomText(seed, 100000, c.hasKana);
        const std::string encoded = systemIconv("UTF-8", c.name, utf8);
        ASSERT_FALSE(encoded.empty()) << c.name;
        expectConverts("UTF-8", "iconv:"s + c.name, utf8, encoded);
        expectConverts("iconv:"s + c.name, "UTF-8", encoded, utf8);
    }
}

TEST(BrimtoolIconv, ConvertsFromOneEncodingOfIconvToAnother) {
    constexpr unsigned int kSeed = 100;
    const std::string utf8 = randomText(kSeed, 100000, true);
    expectConverts("iconv:ISO-2022-JP", "iconv:EUC-KR", systemIconv("UTF-8", "ISO-2022-JP", utf8),
                   systemIconv("UTF-8", "EUC-KR", utf8));
}

TEST(BrimtoolIconv, CarriesCharactersAndShiftStatesOverReadsOfAnyLength) {
    const std::string utf8 = "a" + kKana + "b\n" + kKana + "\xD0\xB6\n";
    for (const char* const name : {"ISO-2022-JP", "CP932", "GB18030", "UTF-16", "UTF-7"}) {
        const std::string encoded = systemIconv("UTF-8", name, utf8);
        for (const std::size_t readLength : {1U, 2U, 3U, 5U, 7U}) {
            expectConverts("iconv:"s + name, "UTF-8", encoded, utf8, readLength);
            expectConverts("UTF-8", "iconv:"s + name, utf8, encoded, readLength);
        }
    }
}

// Wherever a surrogate pair falls on the way.
TEST(BrimtoolIconv, KeepsSurrogatePairsTogether) {
    std::u32string emoji;
    while (emoji.size() < 5000) {
        emoji += {U'\U0001F600', U'\U0001F64F'};
    }
    for (std::size_t shift = 0; shift < 2; ++shift) {
        const std::string utf8 = asUtf8(std::u32string(shift, U'-') + emoji);
        const std::string encoded = systemIconv("UTF-8", "GB18030", utf8);
        expectConverts("UTF-8", "iconv:GB18030", utf8, encoded);
        expectConverts("iconv:GB18030", "UTF-8", encoded, utf8);
    }
}

TEST(BrimtoolIconv, EndsInTheFirstShiftState) {
    expectConverts("UTF-8", "iconv:ISO-2022-JP", kKana, kShiftedKana);
    expectConverts("UTF-8", "iconv:UTF-7", "\xC3\xA9", "+AOk-");
}

TEST(BrimtoolIconv, GivesWhatADecoderHoldsBackAtTheEnd) {
    // A combining mark could follow.
    expectConverts("iconv:BIG5-HKSCS", "UTF-8", "\x88\x66", "\xC3\x8A");
    expectConverts("iconv:TCVN5712-1", "UTF-8", "A", "A");
}

TEST(BrimtoolIconv, EmptyInputGivesEmptyOutput) {
    expectConverts("iconv:ISO-2022-JP", "UTF-8", "", "");
    expectConverts("UTF-8", "iconv:ISO-2022-JP", "", "");
}

TEST(BrimtoolIconv, TakesMarksAfterTheName) {
    expectConverts("UTF-8", "iconv:ASCII//IGNORE", "a\xC3\xA9z", "az");
}

TEST(BrimtoolIconv, UnknownEncodingsGiveTwoAndAreNamed) {
    for (const std::string name : {"no-such-encoding", ""}) {
        const std::string message = "iconv knows no encoding \"" + name + "\" (iconv --list names them)\n";
        const ToolResult from = transcodeRun("iconv:" + name, "UTF-8", "text").run();
        EXPECT_EQ(from.exitCode, 2) << from;
        EXPECT_EQ(from.output, "");
        EXPECT_EQ(from.errors, "brimtool: --from: " + message);
        const ToolResult to = transcodeRun("UTF-8", "iconv:" + name, "text").run();
        EXPECT_EQ(to.exitCode, 2) << to;
        EXPECT_EQ(to.errors, "brimtool: --to: " + message);
    }
}

TEST(BrimtoolIconv, StopsAtWhatCannotBeConvertedAndTellsWhere) {
    struct Case {
        const char* from;
        const char* to;
        std::string input;
        std::string output; // what came before
        const char* message;
    };
    const Case cases[] = {
        {"iconv:CP932", "UTF-8", "ok\n\x82", "ok\n",
         "byte 3, line 2: malformed CP932 (82), cut off by the end of the text"},
        {"iconv:EUC-JP", "UTF-8", "a\n\xA4\xA2\xFFz", "a\n\xE3\x81\x82",
         "byte 4, line 2: malformed EUC-JP (FF)"},
        {"iconv:UTF-32LE", "UTF-8", "A\0\0\0\0\0\x11\0B\0\0\0"s, "A",
         "byte 4, line 1: malformed UTF-32LE (00 00 11 00)"},
        {"iconv:UTF-16", "UTF-8", "\xFE\xFF\0A\xD8\x3D"s, "A",
         "byte 4, line 1: malformed UTF-16 (D8 3D), cut off by the end of the text"},
        {"UTF-8", "iconv:KOI8-R", "\xD0\xB6\n\xD0\xB6\xE3\x81\x82z", "\xD6\n\xD6",
         "byte 5, line 2: U+3042 does not exist in KOI8-R"},
        {"UTF-8", "iconv:EUC-JP", "a\xF0\x9F\x98\x80z", "a",
         "byte 1, line 1: U+1F600 does not exist in EUC-JP"},
        {"UTF-8", "iconv:KOI8-R", "\xD0\xB6\xFF", "\xD6", "byte 2, line 1: malformed UTF-8 (FF)"},
        {"iconv:ISO-2022-JP", "iconv:ISO-8859-5", "\x1B$B'Q'R$\"\x1B(B", "\xD0\xD1",
         "byte 7, line 1: U+3042 does not exist in ISO-8859-5"},
        {"iconv:GB18030", "iconv:KOI8-R", "\x94\x39\xFC\x36", "",
         "byte 0, line 1: U+1F600 does not exist in KOI8-R"},
    };
    for (const Case& c : cases) {
        for (const std::size_t readLength : {0U, 1U, 3U}) {
            ToolRun run = transcodeRun(c.from, c.to, c.input);
            run.readLength = readLength;
            const ToolResult result = run.run();
            EXPECT_EQ(result.exitCode, 1) << result;
            EXPECT_EQ(result.output, c.output) << result;
            EXPECT_EQ(result.errors, "brimtool: standard input: "s + c.message + "\n");
        }
    }
}

TEST(BrimtoolIconv, EscapeSequencesCountAsBytes) {
    const ToolResult result = transcodeRun("iconv:ISO-2022-JP", "1252", "a\x1B(B\nbc" + kShiftedKana).run();
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_EQ(result.output, "a\nbc");
    EXPECT_EQ(result.errors,
              "brimtool: standard input: byte 7, line 2: U+3042 does not exist in Windows-1252\n");
}

TEST(BrimtoolIconv, TellsPlacesFarIntoLongTexts) {
    constexpr unsigned int kSeed = 200;
    std::string input = systemIconv("UTF-8", "ISO-2022-JP", randomText(kSeed, 150000, false));
    const auto lines = std::count(input.begin(), input.end(), '\n');
    const std::string place = "byte " + std::to_string(input.size()) + ", line " + std::to_string(lines + 1);
    const ToolResult lacking = transcodeRun("iconv:ISO-2022-JP", "iconv:KOI8-R", input + kShiftedKana).run();
    EXPECT_EQ(lacking.exitCode, 1);
    EXPECT_EQ(lacking.errors, "brimtool: standard input: " + place + ": U+3042 does not exist in KOI8-R\n");
    const ToolResult malformed = transcodeRun("iconv:ISO-2022-JP", "UTF-8", input + "\xFF").run();
    EXPECT_EQ(malformed.exitCode, 1);
    EXPECT_EQ(malformed.errors, "brimtool: standard input: " + place + ": malformed ISO-2022-JP (FF)\n");
}

TEST(BrimtoolIconv, LossyReplacesInTheShiftStateOfTheText) {
    struct Case {
        const char* from;
        const char* to;
        std::string input;
        std::string output;
        const char* counts;
    };
    const Case cases[] = {
        {"UTF-8", "iconv:ISO-2022-JP", "\xE3\x81\x82\xE2\x82\xAC\xE3\x81\x84",
         "\x1B$B$\"\x1B(B?\x1B$B$$\x1B(B", "1 replaced (0 malformed, 1 not in the target page)"},
        {"UTF-8", "iconv:KOI8-R", "\xFF\xF0\x9F\x98\x80z", "??z",
         "2 replaced (1 malformed, 1 not in the target page)"},
        {"iconv:EUC-JP", "UTF-8", "a\xFF\xA4\xA2\xA4", "a\xEF\xBF\xBD\xE3\x81\x82\xEF\xBF\xBD",
         "2 replaced (2 malformed, 0 not in the target page)"},
        {"iconv:UTF-32LE", "UTF-8", "A\0\0\0\0\0\x11\0B\0\0\0"s,
         "A\xEF\xBF\xBD"
         "B",
         "1 replaced (1 malformed, 0 not in the target page)"},
        {"iconv:ISO-2022-JP", "1252", kShiftedKana + "z", "??z",
         "2 replaced (0 malformed, 2 not in the target page)"},
    };
    for (const Case& c : cases) {
        for (const std::size_t readLength : {0U, 1U}) {
            ToolRun run = transcodeRun(c.from, c.to, c.input, {"--lossy"});
            run.readLength = readLength;
            const ToolResult result = run.run();
            EXPECT_EQ(result.exitCode, 0) << result;
            EXPECT_EQ(result.output, c.output) << c.from << " to " << c.to;
            EXPECT_EQ(result.errors.find("brimtool: "s + c.counts), 0U) << result;
        }
    }
}

TEST(BrimtoolIconv, NeedsNoMoreMemoryForLongerTexts) {
    const TemporaryDirectory directory;
    const std::string file = directory.path("zeros");
    const auto residentFor = [&file](off_t length) {
        writeFile(file, "");
        EXPECT_EQ(::truncate(file.c_str(), length), 0);
        const ToolResult result =
            transcodeRun("iconv:CP932", "iconv:UTF-7", "", {"-o", "/dev/null", file}).run();
        EXPECT_EQ(result.exitCode, 0) << result;
        return result.maxResidentKilobytes;
    };
    const long forShort = residentFor(off_t{1} << 20);
    const long forLong = residentFor(off_t{1} << 25);
    EXPECT_LT(forLong - forShort, 8 * 1024);
}
