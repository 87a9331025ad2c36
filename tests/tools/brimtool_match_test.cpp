// brimtool match.
#include "tool_runner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

using namespace brimtest;
using namespace std::string_literals;

namespace {

ToolResult match(const std::vector<std::string>& arguments, const std::string& input = {}) {
    ToolRun run;
    run.arguments = {"match"};
    run.arguments.insert(run.arguments.end(), arguments.begin(), arguments.end());
    run.input = input;
    run.environment = {{"LC_ALL", "C.UTF-8"}};
    return run.run();
}

} // namespace

TEST(BrimtoolMatch, PrintsTheTextsThatMatch) {
    struct Case {
        std::vector<std::string> arguments;
        std::string output;
    };
    const Case cases[] = {
        {{"*.txt", "Report.TXT", "notes.doc", "a.txt"}, "Report.TXT\na.txt\n"},
        {{"r?port*", "Report.TXT"}, "Report.TXT\n"},
        {{"*.doc", "Report.TXT"}, ""},
        {{"*", "", "x"}, "\nx\n"},
        {{"", "", "x"}, "\n"},
        {{"?", "\xC3\xA9"}, "\xC3\xA9\n"}, // one character of two bytes
        {{"\xC3\x89*", "\xC3\xA9t\xC3\xA9"}, "\xC3\xA9t\xC3\xA9\n"},
        {{"a\xFF*", "b"}, ""},
        {{"*b", "\xFF\x62"}, "\xFF\x62\n"}, // malformed, and printed as it was
        {{"[*]", "[a,b]", "{}", "[]"}, "[a,b]\n[]\n"},
        {{"{}", "{}"}, "{}\n"},
        {{"--", "-*", "-5", "--help"}, "-5\n--help\n"},
        {{"match", "transcode", "match"}, "match\n"},
        {{"\x1F*", "\x1F["}, "\x1F[\n"},
    };
    for (const Case& c : cases) {
        const ToolResult result = match(c.arguments);
        EXPECT_EQ(result.output, c.output) << result;
        EXPECT_EQ(result.exitCode, c.output.empty() ? 1 : 0) << result;
        EXPECT_EQ(result.errors, "");
    }
}

TEST(BrimtoolMatch, TakesTheLinesOfStandardInputWithoutTexts) {
    const ToolResult result = match({"b*"}, "abc\nBCD\n\nbc");
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output, "BCD\nbc\n");
    EXPECT_EQ(match({"*"}).exitCode, 1); // no line, no match
    EXPECT_EQ(match({"x"}, "y\n").exitCode, 1);
}

TEST(BrimtoolMatch, QuietOnlyAnswers) {
    for (const char* const option : {"-q", "--quiet"}) {
        const ToolResult yes = match({option, "a*", "abc"});
        EXPECT_EQ(yes.exitCode, 0);
        EXPECT_EQ(yes.output, "");
        EXPECT_EQ(match({option, "a*", "b"}).exitCode, 1);
    }
}

TEST(BrimtoolMatch, WrongUsageAndFailuresGiveTwo) {
    EXPECT_EQ(match({}).exitCode, 2);
    EXPECT_EQ(match({"--no-such-option", "a", "b"}).exitCode, 2);
    ToolRun full;
    full.arguments = {"match", "*", "text"};
    full.setUp = [] { ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); };
    const ToolResult result = full.run();
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.errors, "brimtool: cannot write standard output: No space left on device\n");
}
