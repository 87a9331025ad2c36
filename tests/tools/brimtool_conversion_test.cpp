// brimtool transcode: what becomes of the text.
#include "tool_runner.h"

#include "Utility/Generic/Portable/transcodercache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using namespace brimtest;
using namespace std::string_literals;

namespace {

struct Page {
    const char* number;
    const char* iconvName;
};

constexpr Page kPages[] = {
    {"65001", "UTF-8"},      {"1200", "UTF-16BE"},      {"1201", "UTF-16LE"},     {"28591", "ISO-8859-1"},
    {"28592", "ISO-8859-2"}, {"28593", "ISO-8859-3"},   {"28596", "ISO-8859-6"},  {"28597", "ISO-8859-7"},
    {"38598", "ISO-8859-8"}, {"285915", "ISO-8859-15"}, {"1252", "WINDOWS-1252"},
};
static_assert(std::size(kPages) == sup::transcodeimpl::knTables, "all pages of the registry");

// Characters that the library's 28597 and 38598 place elsewhere than iconv does, or lack.
const std::u32string kDepartures = U"\u2018\u2019\u02BC\u02BD\u20AF\u037A\u00AF\u203E\u200E\u200F";

std::string asUtf8(std::u32string_view text) {
    return systemIconv(
        "UTF-32LE", "UTF-8",
        std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char32_t)));
}

constexpr char32_t kFirstRows = 0x2200;

// The characters of the first rows of Unicode that a page has, by iconv and without departures.
std::vector<bool> charactersOf(const Page& page) {
    std::vector<bool> has(kFirstRows);
    for (char32_t c = 0; c < kFirstRows; ++c) {
        const bool departs =
            kDepartures.find(c) != std::u32string::npos || (c == U'\u20AC' && page.number == "28597"s);
        const bool isControl = c >= 0x80 && c < 0xA0;
        const std::string one(reinterpret_cast<const char*>(&c), sizeof(c));
        has[c] = !departs && !isControl && !systemIconv("UTF-32LE", page.iconvName, one).empty();
    }
    return has;
}

std::u32string randomCharacters(std::mt19937& random, std::size_t count) {
    std::u32string text;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t kind = static_cast<std::uint32_t>(random() % 5);
        const std::uint32_t value = static_cast<std::uint32_t>(random());
        text += kind == 0   ? value % 0x80
                : kind == 1 ? 0x80 + value % 0x780
                : kind == 2 ? 0x800 + value % 0xD000
                : kind == 3 ? 0xE000 + value % 0x2000
                            : 0x10000 + value % 0x100000;
    }
    return text;
}

void expectConverts(const char* from, const char* to, const std::string& input, const std::string& expected,
                    std::size_t readLength = 0) {
    ToolRun run = transcodeRun(from, to, input);
    run.readLength = readLength;
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << from << " to " << to << ": " << result;
    EXPECT_EQ(result.errors, "") << from << " to " << to;
    // Not EXPECT_EQ, which would print all of a long text.
    EXPECT_TRUE(result.output == expected) << from << " to " << to << ", reads of " << readLength << ": "
                                           << result.output.size() << " bytes and not " << expected.size();
}

} // namespace

TEST(BrimtoolTranscode, EveryPairOfPagesAgreesWithIconv) {
    std::map<const Page*, std::vector<bool>> characters;
    for (const Page& page : kPages) {
        characters[&page] = charactersOf(page);
    }
    for (const Page& from : kPages) {
        for (const Page& to : kPages) {
            std::u32string common;
            for (char32_t c = 0; c < kFirstRows; ++c) {
                if (characters[&from][c] && characters[&to][c]) {
                    common += {c, U'\n'};
                }
            }
            ASSERT_GE(common.size(), 2U * 128U);
            const std::string text = asUtf8(common);
            const std::string input = systemIconv("UTF-8", from.iconvName, text);
            const std::string expected = systemIconv("UTF-8", to.iconvName, text);
            ASSERT_FALSE(input.empty() || expected.empty());
            expectConverts(from.number, to.number, input, expected);
        }
    }
}

TEST(BrimtoolTranscode, RandomTextsAgreeWithIconvBetweenUtf8AndUtf16) {
    for (unsigned int seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const std::string utf8 = asUtf8(randomCharacters(random, random() % 120000));
        const std::string utf16be = systemIconv("UTF-8", "UTF-16BE", utf8);
        const std::string utf16le = systemIconv("UTF-8", "UTF-16LE", utf8);
        expectConverts("UTF-8", "UTF-16BE", utf8, utf16be);
        expectConverts("UTF-8", "UTF-16LE", utf8, utf16le);
        expectConverts("UTF-16BE", "UTF-8", utf16be, utf8);
        expectConverts("UTF-16LE", "UTF-8", utf16le, utf8);
        expectConverts("UTF-16LE", "UTF-16BE", utf16le, utf16be);
    }
}

// Whatever the length of the buffer: the text is several times longer, and shifts against its end.
TEST(BrimtoolTranscode, CarriesCharactersOverTheEndOfTheBufferAtEveryAlignment) {
    const std::u32string units[] = {U"\u00E9", U"\u20AC", U"\U0001F600", U"x\U0001F600\u20AC"};
    for (const std::u32string& unit : units) {
        std::u32string text;
        while (text.size() < 150000) {
            text += unit;
        }
        for (std::size_t shift = 0; shift < 8; ++shift) {
            SCOPED_TRACE("shift " + std::to_string(shift));
            const std::string utf8 = asUtf8(std::u32string(shift, U'-') + text);
            const std::string utf16be = systemIconv("UTF-8", "UTF-16BE", utf8);
            const std::string utf16le = systemIconv("UTF-8", "UTF-16LE", utf8);
            expectConverts("UTF-8", "UTF-16LE", utf8, utf16le);
            expectConverts("UTF-16BE", "UTF-8", utf16be, utf8);
            expectConverts("UTF-16LE", "UTF-16BE", utf16le, utf16be);
        }
    }
}

TEST(BrimtoolTranscode, CarriesCharactersOverReadsOfAnyLength) {
    const std::string utf8 = asUtf8(U"a\u00E9\u20AC\U0001F600z\U0010FFFF\u0416\n");
    const std::string utf16be = systemIconv("UTF-8", "UTF-16BE", utf8);
    const std::string utf16le = systemIconv("UTF-8", "UTF-16LE", utf8);
    for (std::size_t readLength = 1; readLength <= utf16be.size(); ++readLength) {
        expectConverts("UTF-8", "UTF-16BE", utf8, utf16be, readLength);
        expectConverts("UTF-16BE", "UTF-8", utf16be, utf8, readLength);
        expectConverts("UTF-16LE", "UTF-8", utf16le, utf8, readLength);
        expectConverts("1252", "UTF-8", "na\xEFve", "na\xC3\xAFve", readLength);
    }
}

TEST(BrimtoolTranscode, OddReadsLeaveAnOddByteForTheNextOne) {
    constexpr unsigned int kSeed = 3;
    std::mt19937 random(kSeed);
    const std::string utf8 = asUtf8(randomCharacters(random, 50000));
    const std::string utf16le = systemIconv("UTF-8", "UTF-16LE", utf8);
    for (const std::size_t readLength : {4095U, 4097U, 4098U, 4099U}) {
        expectConverts("UTF-16LE", "UTF-8", utf16le, utf8, readLength);
    }
}

TEST(BrimtoolTranscode, EmptyInputGivesEmptyOutput) {
    for (const Page& from : kPages) {
        expectConverts(from.number, "65001", "", "");
    }
}

TEST(BrimtoolTranscode, KeepsByteOrderMarksAndZeros) {
    expectConverts("UTF-8", "UTF-16LE", "\xEF\xBB\xBF\0\0a"s, "\xFF\xFE\0\0\0\0a\0"s);
    expectConverts("UTF-16BE", "UTF-8", "\xFE\xFF\0\0"s, "\xEF\xBB\xBF\0"s);
}

TEST(BrimtoolTranscode, KnowsPagesByNumberAndName) {
    const std::map<std::string, std::string> outputs = {
        {"65001", "\xC3\xA9"}, {"UTF-8", "\xC3\xA9"},   {"utf8", "\xC3\xA9"},     {"Utf8", "\xC3\xA9"},
        {"1200", "\0\xE9"s},   {"utf-16be", "\0\xE9"s}, {"1201", "\xE9\0"s},      {"UTF_16LE", "\xE9\0"s},
        {"latin1", "\xE9"},    {"ISO-8859-15", "\xE9"}, {"windows-1252", "\xE9"}, {"28592", "\xE9"},
        {"001252", "\xE9"},
    };
    for (const auto& [page, expected] : outputs) {
        expectConverts("UTF-8", page.c_str(), "\xC3\xA9", expected);
    }
}

TEST(BrimtoolTranscode, AnsiIsThePageOfTheLocale) {
    struct Case {
        const char* locale;
        const char* output;
    };
    for (const Case& c : {Case{"C.UTF-8", "\xC3\xA9"}, Case{"C", "\xE9"}}) {
        for (const char* const name : {"ANSI", "ansi", "0"}) {
            ToolRun run = transcodeRun("UTF-16BE", name, "\0\xE9"s);
            run.environment = {{"LC_ALL", c.locale}};
            const ToolResult result = run.run();
            EXPECT_EQ(result.exitCode, 0) << result;
            EXPECT_EQ(result.output, c.output) << c.locale << ' ' << name;
        }
    }
}

TEST(BrimtoolTranscode, ConcatenatesItsInputs) {
    const TemporaryDirectory directory;
    writeFile(directory.path("a"), "first \xE2");
    writeFile(directory.path("b"), "\x82"); // the euro sign is spread over three inputs
    const ToolResult result =
        transcodeRun("UTF-8", "UTF-16BE", "\xAC.", {directory.path("a"), directory.path("b"), "-"}).run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output, systemIconv("UTF-8", "UTF-16BE", "first \xE2\x82\xAC."));
}

TEST(BrimtoolTranscode, TakesFileNamesInBracketsAsTheyAre) {
    const TemporaryDirectory directory;
    writeFile(directory.path("[a,b]"), "in");
    ToolRun run = transcodeRun("UTF-8", "1252", "", {"-o", "[out]", "[a,b]"});
    run.setUp = [&directory] { ASSERT_EQ(::chdir(directory.path().c_str()), 0); };
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(readFile(directory.path("[out]")), "in");
}

TEST(BrimtoolTranscode, TakesFileNamesThatLookLikeOptionsAfterADoubleDash) {
    const TemporaryDirectory directory;
    writeFile(directory.path("--lossy"), "text");
    ToolRun run = transcodeRun("UTF-8", "1252", "", {"--", "--lossy"});
    run.setUp = [&directory] { ASSERT_EQ(::chdir(directory.path().c_str()), 0); };
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output, "text");
}

TEST(BrimtoolTranscode, LossyWritesReplacementCharactersAndTellsHowMany) {
    struct Case {
        const char* from;
        const char* to;
        std::string input;
        std::string output;
        std::string note; // between "brimtool: " and the end of the line; empty for none
    };
    const Case cases[] = {
        {"UTF-8", "UTF-8", "fine", "fine", ""},
        {"UTF-8", "UTF-8", "a\xFF\xE2\x28\xA1z", "a\xEF\xBF\xBD\xEF\xBF\xBD(\xEF\xBF\xBDz",
         "3 replaced (3 malformed, 0 not in the target page), the first at standard input: byte 1, line 1: "
         "malformed UTF-8 (FF)"},
        // One for each longest part that could begin a sequence.
        {"UTF-8", "UTF-16BE", "\xF0\x90\x80\x41\xED\xA0\x80", "\xFF\xFD\0A\xFF\xFD\xFF\xFD\xFF\xFD"s,
         "4 replaced (4 malformed, 0 not in the target page), the first at standard input: byte 0, line 1: "
         "malformed UTF-8 (F0 90 80)"},
        {"UTF-8", "1252", "\n\xE4\xBD\xA0\xF0\x9F\x98\x80\xE2\x82\xAC\x80", "\n??\x80?",
         "3 replaced (1 malformed, 2 not in the target page), the first at standard input: byte 1, line 2: "
         "U+4F60 "
         "does not exist in Windows-1252"},
        {"UTF-8", "1252", "\xEF\xBF\xBD", "?",
         "1 replaced (0 malformed, 1 not in the target page), the first at standard input: byte 0, line 1: "
         "U+FFFD "
         "does not exist in Windows-1252"},
        {"UTF-8", "UTF-8", "\xEF\xBF\xBD", "\xEF\xBF\xBD", ""}, // as well formed as any other
        {"UTF-8", "UTF-16LE", "a\xE2\x82", "a\0\xFD\xFF"s,
         "1 replaced (1 malformed, 0 not in the target page), the first at standard input: byte 1, line 1: "
         "malformed UTF-8 (E2 82), cut off by the end of the text"},
        {"UTF-16LE", "UTF-8", "\x3D\xD8\0\xDE\0\xDE\x3D\xD8\x41\0\x42"s,
         "\xF0\x9F\x98\x80\xEF\xBF\xBD\xEF\xBF\xBD"
         "A\xEF\xBF\xBD",
         "3 replaced (3 malformed, 0 not in the target page), the first at standard input: byte 4, line 1: "
         "malformed UTF-16LE (00 DE)"},
        // A high surrogate and half a unit at the end are two.
        {"UTF-16BE", "UTF-16BE", "\0\x41\xD8\x3D\xDE"s, "\0\x41\xFF\xFD\xFF\xFD"s,
         "2 replaced (2 malformed, 0 not in the target page), the first at standard input: byte 2, line 1: "
         "malformed UTF-16BE (D8 3D), cut off by the end of the text"},
        {"28596", "UTF-8", "a\xA1z", "a\xEF\xBF\xBDz",
         "1 replaced (1 malformed, 0 not in the target page), the first at standard input: byte 1, line 1: "
         "malformed ISO-8859-6 (A1)"},
    };
    for (const Case& c : cases) {
        for (const std::size_t readLength : {0U, 1U, 2U, 3U}) {
            ToolRun run = transcodeRun(c.from, c.to, c.input, {"--lossy"});
            run.readLength = readLength;
            const ToolResult result = run.run();
            EXPECT_EQ(result.exitCode, 0) << result;
            EXPECT_EQ(result.output, c.output) << result;
            EXPECT_EQ(result.errors, c.note.empty() ? "" : "brimtool: " + c.note + "\n");
        }
    }
}

TEST(BrimtoolTranscode, LossyIsSilentWhenQuiet) {
    const ToolResult result = transcodeRun("UTF-8", "UTF-8", "\xFF", {"--lossy", "--quiet"}).run();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "\xEF\xBF\xBD");
    EXPECT_EQ(result.errors, "");
}

TEST(BrimtoolTranscode, LossyConvertsATextOfNothingButFaults) {
    const std::string input(200000, '\xFF');
    const ToolResult result = transcodeRun("UTF-8", "UTF-8", input, {"--lossy", "--quiet"}).run();
    EXPECT_EQ(result.exitCode, 0) << result;
    std::string expected;
    for (std::size_t i = 0; i < input.size(); ++i) {
        expected += "\xEF\xBF\xBD";
    }
    EXPECT_TRUE(result.output == expected) << result;
}

TEST(BrimtoolTranscode, TellsCountsWhenAsked) {
    for (const char* const option : {"--stats", "--verbose"}) {
        const ToolResult result =
            transcodeRun("UTF-8", "UTF-16LE", "a\xC3\xA9\xF0\x9F\x98\x80", {option}).run();
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_TRUE(::testing::internal::RE::PartialMatch(
            result.errors,
            "^brimtool: 3 characters, 7 bytes in, 8 bytes out, [0-9.]+ seconds, [0-9.]+ MB/s\n$"))
            << result;
    }
}

TEST(BrimtoolTranscode, CountsWhatCameBeforeAFailureToo) {
    const ToolResult result = transcodeRun("UTF-8", "1252", "ab\xC3\xA9\xE4\xBD\xA0 more", {"--stats"}).run();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "ab\xE9");
    EXPECT_NE(result.errors.find("brimtool: 3 characters, 12 bytes in, 3 bytes out, "), std::string::npos)
        << result;
}
