// brimtool escape and unescape.
#include "tool_runner.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using namespace brimtest;
using namespace std::string_literals;

namespace {

ToolResult runWith(const std::vector<std::string>& arguments, const std::string& input = {},
                   const char* locale = "C.UTF-8") {
    ToolRun run;
    run.arguments = arguments;
    run.input = input;
    run.environment = {{"LC_ALL", locale}};
    return run.run();
}

void expectGives(const std::vector<std::string>& arguments, const std::string& input,
                 const std::string& output) {
    const ToolResult result = runWith(arguments, input);
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output, output) << arguments[0] << ' ' << arguments[1];
    EXPECT_EQ(result.errors, "");
}

void expectFails(const std::vector<std::string>& arguments, const std::string& input,
                 const std::string& output, const std::string& errors) {
    const ToolResult result = runWith(arguments, input);
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(result.errors, errors);
}

std::string randomBytes(unsigned int seed, std::size_t length) {
    std::mt19937 random(seed);
    std::string bytes;
    while (bytes.size() < length) {
        bytes += static_cast<char>(random());
    }
    return bytes;
}

} // namespace

TEST(BrimtoolEscape, GivesALineForEachArgument) {
    expectGives({"escape", "--uri", "a b&c", "50%", "a-b_c.d~e!", "/:", "\xC3\xA9"}, "",
                "a+b%26c\n50%25\na-b_c.d~e!\n%2F%3A\n\xC3\xA9\n");
    expectGives({"escape", "--xml", R"(a<b & "c")", "it's", "", "\xF0\x9F\x98\x80>"}, "",
                "a&lt;b &amp; &quot;c&quot;\nit&apos;s\n\n\xF0\x9F\x98\x80&gt;\n");
    expectGives({"escape", "--base64", "f", "fo", "foo", "", "\xFF\xFE"}, "", "Zg==\nZm8=\nZm9v\n\n//4=\n");
}

TEST(BrimtoolEscape, TakesTheLinesOfStandardInputWithoutArguments) {
    expectGives({"escape", "--uri"}, "a b\n\nc&d\n", "a+b\n\nc%26d\n");
    expectGives({"escape", "--uri"}, "a b\nc&d", "a+b\nc%26d"); // the last line stays without an end
    expectGives({"escape", "--xml"}, "<a>\n<b>\n", "&lt;a&gt;\n&lt;b&gt;\n");
    expectGives({"escape", "--xml"}, "", "");
    expectGives({"escape", "--xml"}, "a\0<"s, "a\0&lt;"s);
}

TEST(BrimtoolEscape, KeepsLinesThatPiecesOfTheInputCut) {
    std::string input;
    std::string output;
    for (int i = 0; i < 3; ++i) {
        const std::string line(50000, 'x');
        input += line + "<" + line + "\n";
        output += line + "&lt;" + line + "\n";
    }
    const ToolResult result = runWith({"escape", "--xml"}, input);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.output == output) << result;
}

TEST(BrimtoolEscape, Base64OfStandardInputIsTheCodeOfItsBytes) {
    expectGives({"escape", "--base64"}, "", "");
    expectGives({"escape", "--base64"}, "\0\xFF\n\n"s, "AP8KCg==");
    expectGives({"escape", "--base64", "--wrap"}, std::string(57, 'a') + "b",
                "YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh\r\nYg==");
}

TEST(BrimtoolEscape, Base64ComesBackByteForByte) {
    for (const std::size_t length : {1U, 2U, 3U, 255U, 65536U, 200001U}) {
        SCOPED_TRACE("seed " + std::to_string(length));
        const std::string bytes = randomBytes(static_cast<unsigned int>(length), length);
        for (const std::vector<std::string>& options : {std::vector<std::string>{}, {"--wrap"}}) {
            std::vector<std::string> arguments = {"escape", "--base64"};
            arguments.insert(arguments.end(), options.begin(), options.end());
            const ToolResult code = runWith(arguments, bytes);
            EXPECT_EQ(code.exitCode, 0) << code;
            const ToolResult back = runWith({"unescape", "--base64"}, code.output + "\n");
            EXPECT_EQ(back.exitCode, 0) << back;
            EXPECT_TRUE(back.output == bytes) << back;
        }
    }
}

TEST(BrimtoolEscape, ReadsANamedFile) {
    const TemporaryDirectory directory;
    writeFile(directory.path("[a,b]"), "a b\n"); // a name that must not be taken apart
    expectGives({"escape", "--uri", "--input", directory.path("[a,b]")}, "", "a+b\n");
    expectGives({"escape", "--base64", "-i", directory.path("[a,b]")}, "", "YSBiCg==");
    const ToolResult missing = runWith({"unescape", "--base64", "-i", directory.path("none")});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.errors,
              "brimtool: cannot open " + directory.path("none") + ": No such file or directory\n");
}

TEST(BrimtoolEscape, StopsAtWhatHasNoEscape) {
    expectFails({"escape", "--uri", "a b", "x\xE2\x82\xAC", "c d"}, "", "a+b\n",
                "brimtool: argument 2: U+20AC has no URI escape\n");
    expectFails({"escape", "--uri"}, "a\n\xF0\x9F\x98\x80\n", "a\n",
                "brimtool: standard input, line 2: U+1F600 has no URI escape\n");
}

TEST(BrimtoolEscape, StopsAtMalformedText) {
    expectFails({"escape", "--xml", "<", "a\xFF"}, "", "&lt;\n",
                "brimtool: argument 2: byte 1: malformed UTF-8 (FF)\n");
    expectFails(
        {"unescape", "--uri"}, "a+b\n+\xE2\x82\n", "a b\n",
        "brimtool: standard input, line 2: byte 1: malformed UTF-8 (E2 82), cut off by the end of the "
        "text\n");
}

// Letters are those of the locale: there are none beyond ASCII in "C".
TEST(BrimtoolEscape, UriGoesByTheLocale) {
    const ToolResult result = runWith({"escape", "--uri", "\xC3\xA9"}, "", "C");
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output, "%C3%A9\n");
    const ToolResult lacking = runWith({"unescape", "--xml", "&#x4F60;"}, "", "C");
    EXPECT_EQ(lacking.exitCode, 1) << lacking;
    EXPECT_EQ(lacking.errors, "brimtool: argument 1: U+4F60 does not exist in Windows-1252\n");
}

TEST(BrimtoolUnescape, GivesALineForEachArgument) {
    expectGives({"unescape", "--uri", "a%20b+c", "%C3%A9", "%u20AC", "URI-ENCODED<x%3Dy>tail", "a>b",
                 "%uD83D%uDE00", "%61%00%62"},
                "", "a b c\n\xC3\xA9\n\xE2\x82\xAC\nx=y\na\n\xF0\x9F\x98\x80\nab\n");
    expectGives(
        {"unescape", "--xml", "&lt;b&gt; &amp;amp; &quot;&apos;", "&#8364;&#x20ac;&#x1F600;", "plain"}, "",
        "<b> &amp; \"'\n\xE2\x82\xAC\xE2\x82\xAC\xF0\x9F\x98\x80\nplain\n");
    expectGives({"unescape", "--base64", "Zg==", "Zg", "Zm8=", "Zm9v", "Z m\t9\nv", ""}, "",
                "f\nf\nfo\nfoo\nfoo\n\n");
}

TEST(BrimtoolUnescape, TakesStandardInputWithoutArguments) {
    expectGives({"unescape", "--uri"}, "a+b\n%41", "a b\nA");
    expectGives({"unescape", "--xml"}, "&lt;\n&gt;\n", "<\n>\n");
    expectGives({"unescape", "--base64"}, "AP8K\r\nCg==\r\n", "\0\xFF\n\n"s);
}

TEST(BrimtoolUnescape, TellsWhatIsNoEscapeAndGoesOn) {
    expectFails({"unescape", "--uri", "100%zz", "%A7", "%", "%u12", "ok%21", "%C3%A9%FFx"}, "",
                "100zz\n\xEF\xBF\xBD\n\nu12\nok!\n\xC3\xA9\xEF\xBF\xBDx\n",
                "brimtool: argument 1: byte 3: a % that begins no escape\n"
                "brimtool: argument 2: byte 0: the escaped bytes are no UTF-8\n"
                "brimtool: argument 3: byte 0: a % that begins no escape\n"
                "brimtool: argument 4: byte 0: a % that begins no escape\n"
                "brimtool: argument 6: byte 0: the escaped bytes are no UTF-8\n");
    const std::string noReference = ": an & that begins no reference known here\n";
    expectFails(
        {"unescape", "--xml", "\xC3\xA9&nbsp;&lt;", "a & b", "&#0;", "&#xD800;", "&#x110000;", "&#;", "&lt"},
        "", "\xC3\xA9&nbsp;<\na & b\n&#0;\n&#xD800;\n&#x110000;\n&#;\n&lt\n",
        "brimtool: argument 1: byte 2" + noReference + "brimtool: argument 2: byte 2" + noReference +
            "brimtool: argument 3: byte 0" + noReference + "brimtool: argument 4: byte 0" + noReference +
            "brimtool: argument 5: byte 0" + noReference + "brimtool: argument 6: byte 0" + noReference +
            "brimtool: argument 7: byte 0" + noReference);
    expectFails({"unescape", "--base64", "Zm9v*Zm9v", "Z", "Zm8=Zm8=", "Zg=", "Zg===", "="}, "",
                "foo\n\nfo\nf\nf\n\n",
                "brimtool: argument 1: byte 4: not a character of Base64\n"
                "brimtool: argument 2: byte 1: the Base64 text has a wrong length\n"
                "brimtool: argument 3: byte 4: a character after the padding\n"
                "brimtool: argument 4: byte 3: the Base64 text has a wrong length\n"
                "brimtool: argument 5: byte 5: the Base64 text has a wrong length\n"
                "brimtool: argument 6: byte 1: the Base64 text has a wrong length\n");
    expectFails({"unescape", "--base64"}, "Zm9v\n*", "foo",
                "brimtool: standard input: byte 5: not a character of Base64\n");
}

TEST(BrimtoolUnescape, RefusesHalfASurrogatePair) {
    expectFails({"unescape", "--uri", "%uD83D"}, "", "",
                "brimtool: argument 1: half a surrogate pair cannot be written\n");
}

TEST(BrimtoolEscape, WrongUsageGivesTwo) {
    for (const char* const command : {"escape", "unescape"}) {
        const std::vector<std::vector<std::string>> usages = {
            {command, "text"},
            {command, "--uri", "--xml", "text"},
            {command, "--uri", "--input", "/dev/null", "text"},
            {command, "--no-such-escape"},
        };
        for (const auto& arguments : usages) {
            const ToolResult result = runWith(arguments);
            EXPECT_EQ(result.exitCode, 2) << result;
            EXPECT_EQ(result.output, "");
            EXPECT_NE(result.errors, "");
        }
    }
    EXPECT_EQ(runWith({"escape", "--uri", "--wrap", "text"}).exitCode, 2);
}
