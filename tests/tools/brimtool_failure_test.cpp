// brimtool: usage, exit status and messages.
#include "tool_runner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

using namespace brimtest;
using namespace std::string_literals;

namespace {

ToolResult runWith(const std::vector<std::string>& arguments) {
    ToolRun run;
    run.arguments = arguments;
    return run.run();
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

void openAs(int descriptor, const char* path, int flags) {
    const int opened = ::open(path, flags);
    if (opened != descriptor) {
        ::dup2(opened, descriptor);
        ::close(opened);
    }
}

} // namespace

TEST(Brimtool, PrintsHelpAndVersionOnStandardOutput) {
    const ToolResult help = runWith({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(contains(help.output, "transcode")) << help.output;
    EXPECT_EQ(help.errors, "");

    const ToolResult more = runWith({"transcode", "--help"});
    EXPECT_EQ(more.exitCode, 0);
    for (const char* const part :
         {"--from", "--to", "--lossy", "--stats", "--quiet", "brimtool codepages", "ANSI", "iconv:NAME"}) {
        EXPECT_TRUE(contains(more.output, part)) << part << " is not in\n" << more.output;
    }

    const ToolResult version = runWith({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_TRUE(::testing::internal::RE::PartialMatch(
        version.output, "^brimtool, brimportable [0-9.]+ [0-9]+-[0-9]+-[0-9]+\n$"))
        << version.output;
    EXPECT_EQ(version.errors, "");
}

TEST(Brimtool, EverySubcommandHelpsWithAnExampleAndItsExitStatus) {
    const std::string help = runWith({"--help"}).output;
    for (const std::string name : {"transcode", "codepages", "escape", "unescape", "match", "layout", "env",
                                   "info", "doctor", "locale"}) {
        EXPECT_TRUE(contains(help, "\n  " + name + " ")) << help;
        const ToolResult result = runWith({name, "--help"});
        EXPECT_EQ(result.exitCode, 0) << result;
        EXPECT_EQ(result.errors, "");
        for (const std::string& part : {"\nUsage: brimtool " + name, "\nExamples:\n"s, "\nExit status: 0"s}) {
            EXPECT_TRUE(contains(result.output, part)) << part << " is not in\n" << result.output;
        }
    }
}

TEST(Brimtool, HelpThatCannotBeWrittenIsAFailure) {
    ToolRun run;
    run.arguments = {"--help"};
    run.setUp = [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); };
    EXPECT_EQ(run.run().exitCode, 2);
}

TEST(Brimtool, WrongUsageGivesTwoAndAMessage) {
    const std::vector<std::vector<std::string>> usages = {
        {},
        {"no-such-command"},
        {"transcode"},
        {"transcode", "--from", "UTF-8"},
        {"transcode", "--to", "UTF-8"},
        {"transcode", "--from", "UTF-8", "--to", "UTF-8", "--no-such-option"},
        {"transcode", "--from", "UTF-8", "--to"},
    };
    for (const auto& arguments : usages) {
        const ToolResult result = runWith(arguments);
        EXPECT_EQ(result.exitCode, 2) << result;
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors, "");
    }
}

TEST(Brimtool, UnknownCodePagesGiveTwoAndAreNamed) {
    for (const char* const page :
         {"28605", "no-such-page", "", "99999999999999999999", "-5", "utf-32", "1252x"}) {
        const ToolResult from = transcodeRun(page, "UTF-8").run();
        EXPECT_EQ(from.exitCode, 2) << page << ": " << from;
        const ToolResult to = runWith({"transcode", "--from=UTF-8", "--to="s + page});
        EXPECT_EQ(to.exitCode, 2) << page << ": " << to;
        EXPECT_EQ(to.output, "");
        if (*page != '\0') {
            EXPECT_EQ(to.errors, "brimtool: --to: there is no code page \""s + page +
                                     "\" (brimtool codepages lists them)\n");
        }
    }
}

TEST(BrimtoolTranscode, StopsAtWhatCannotBeConvertedAndTellsWhere) {
    struct Case {
        const char* from;
        const char* to;
        std::string input;
        std::string output; // what came before
        const char* message;
    };
    const Case cases[] = {
        {"UTF-8", "UTF-16BE", "\xFF", "", "byte 0, line 1: malformed UTF-8 (FF)"},
        {"UTF-8", "UTF-8", "one\ntwo\xC0\x80\n", "one\ntwo", "byte 7, line 2: malformed UTF-8 (C0)"},
        // The library's own decoder takes both.
        {"UTF-8", "UTF-8", "\n\n\xED\xA0\x80", "\n\n", "byte 2, line 3: malformed UTF-8 (ED)"},
        {"UTF-8", "UTF-8", "a\xE2\x28\xA1", "a", "byte 1, line 1: malformed UTF-8 (E2)"},
        {"UTF-8", "UTF-8", "a\xF0\x9F\x98z", "a", "byte 1, line 1: malformed UTF-8 (F0 9F 98)"},
        {"UTF-8", "UTF-8", "abc\xE2\x82", "abc",
         "byte 3, line 1: malformed UTF-8 (E2 82), cut off by the end of the text"},
        {"UTF-16BE", "UTF-8", "\0a\0\n\xD8\x3D\0b"s, "a\n", "byte 4, line 2: malformed UTF-16BE (D8 3D)"},
        {"UTF-16BE", "UTF-8", "\0a\xDE\0"s, "a", "byte 2, line 1: malformed UTF-16BE (DE 00)"},
        {"UTF-16LE", "UTF-16BE", "a\0\n\0\0\xDC"s, "\0a\0\n"s, "byte 4, line 2: malformed UTF-16LE (00 DC)"},
        {"UTF-16LE", "UTF-8", "a\0b"s, "a",
         "byte 2, line 1: malformed UTF-16LE (62), cut off by the end of the text"},
        {"UTF-16LE", "UTF-8", "a\0\x3D\xD8"s, "a",
         "byte 2, line 1: malformed UTF-16LE (3D D8), cut off by the end of the text"},
        {"UTF-16LE", "UTF-8", "\x3D\xD8\x3D\xD8\0\xDE"s, "", "byte 0, line 1: malformed UTF-16LE (3D D8)"},
        {"28596", "UTF-8", "ok\n\xA1", "ok\n", "byte 3, line 2: malformed ISO-8859-6 (A1)"},
        {"28597", "UTF-8", "\xA4", "", "byte 0, line 1: malformed ISO-8859-7 (A4)"},
        {"28593", "UTF-8", "\xA5", "", "byte 0, line 1: malformed ISO-8859-3 (A5)"},
        {"UTF-8", "28591", "\xC3\xBF\n\xC4\x80", "\xFF\n",
         "byte 3, line 2: U+0100 does not exist in ISO-8859-1"},
        {"UTF-8", "1252", "\xE2\x82\xAC\xF0\x9F\x98\x80z", "\x80",
         "byte 3, line 1: U+1F600 does not exist in Windows-1252"},
        {"UTF-16LE", "28597", "a\0\n\0\x18\x20"s, "a\n",
         "byte 4, line 2: U+2018 does not exist in ISO-8859-7"},
        {"1252", "28592", "a\xE3", "a", "byte 1, line 1: U+00E3 does not exist in ISO-8859-2"},
        // The first of two counts, whatever its kind.
        {"UTF-8", "1252", "\xE4\xBD\xA0\xFF", "", "byte 0, line 1: U+4F60 does not exist in Windows-1252"},
        {"UTF-8", "1252", "\xFF\xE4\xBD\xA0", "", "byte 0, line 1: malformed UTF-8 (FF)"},
    };
    for (const Case& c : cases) {
        for (const std::size_t readLength : {0U, 1U, 2U, 3U}) {
            ToolRun run = transcodeRun(c.from, c.to, c.input);
            run.readLength = readLength;
            const ToolResult result = run.run();
            EXPECT_EQ(result.exitCode, 1) << result;
            EXPECT_EQ(result.output, c.output) << result;
            EXPECT_EQ(result.errors, "brimtool: standard input: "s + c.message + "\n");
        }
    }
}

TEST(BrimtoolTranscode, TellsPlacesFarIntoLongTexts) {
    std::string input;
    while (input.size() < 1000000) {
        input += "\xC3\xA9\xE2\x82\xAC line\n";
    }
    const std::size_t lines = input.size() / 11;
    const std::string place = "byte " + std::to_string(input.size()) + ", line " + std::to_string(lines + 1);
    const ToolResult malformed = transcodeRun("UTF-8", "1252", input + "\xFF").run();
    EXPECT_EQ(malformed.exitCode, 1);
    EXPECT_EQ(malformed.errors, "brimtool: standard input: " + place + ": malformed UTF-8 (FF)\n");
    const ToolResult untranslatable = transcodeRun("UTF-8", "1252", input + "\xE4\xBD\xA0").run();
    EXPECT_EQ(untranslatable.exitCode, 1);
    EXPECT_EQ(untranslatable.errors,
              "brimtool: standard input: " + place + ": U+4F60 does not exist in Windows-1252\n");
}

// The text goes through buffers, whose lengths are some power of two.
TEST(BrimtoolTranscode, TellsPlacesWhereOneBufferEnds) {
    for (std::size_t length = 4096; length <= 262144; length *= 2) {
        for (std::size_t before = length - 3; before <= length; ++before) {
            const std::string good(before, 'a');
            for (const char* const rest : {"\xE2\x82\n", "\xE2\x82"}) {
                const ToolResult result = transcodeRun("UTF-8", "1252", good + rest).run();
                EXPECT_EQ(result.exitCode, 1) << before;
                EXPECT_EQ(result.output.size(), before);
                EXPECT_EQ(result.errors.rfind("brimtool: standard input: byte " + std::to_string(before) +
                                                  ", line 1: malformed UTF-8 (E2 82",
                                              0),
                          0U)
                    << result;
            }
        }
    }
}

TEST(BrimtoolTranscode, TellsTheFileAndThePlaceInIt) {
    const TemporaryDirectory directory;
    const std::string first = directory.path("first");
    const std::string second = directory.path("second");
    writeFile(first, "one\ntwo\n\xE2");
    writeFile(second, "\x82\xAC\nthree\n\xFF");
    const ToolResult inSecond = transcodeRun("UTF-8", "UTF-8", "", {first, second}).run();
    EXPECT_EQ(inSecond.exitCode, 1);
    EXPECT_EQ(inSecond.errors, "brimtool: " + second + ": byte 9, line 3: malformed UTF-8 (FF)\n");

    // A sequence that begins in one file and goes wrong in the next belongs to the first.
    const ToolResult inFirst = transcodeRun("UTF-8", "UTF-8", "", {first, first}).run();
    EXPECT_EQ(inFirst.exitCode, 1);
    EXPECT_EQ(inFirst.errors, "brimtool: " + first + ": byte 8, line 3: malformed UTF-8 (E2)\n");

    const ToolResult afterEmpty = transcodeRun("UTF-8", "UTF-8", "\xFF", {"/dev/null", "-"}).run();
    EXPECT_EQ(afterEmpty.errors, "brimtool: standard input: byte 0, line 1: malformed UTF-8 (FF)\n");
}

TEST(BrimtoolTranscode, InputsThatCannotBeReadGiveTwo) {
    const TemporaryDirectory directory;
    const std::string missing = directory.path("missing");
    const ToolResult noFile = transcodeRun("UTF-8", "1252", "", {missing}).run();
    EXPECT_EQ(noFile.exitCode, 2);
    EXPECT_EQ(noFile.errors, "brimtool: cannot open " + missing + ": No such file or directory\n");

    const ToolResult isDirectory = transcodeRun("UTF-8", "1252", "", {directory.path()}).run();
    EXPECT_EQ(isDirectory.exitCode, 2);
    EXPECT_EQ(isDirectory.errors,
              "brimtool: cannot read " + directory.path().string() + ": Is a directory\n");

    ToolRun closed = transcodeRun("UTF-8", "1252");
    closed.setUp = [] { ::close(STDIN_FILENO); };
    const ToolResult noInput = closed.run();
    EXPECT_EQ(noInput.exitCode, 2);
    EXPECT_EQ(noInput.errors, "brimtool: cannot read standard input: Bad file descriptor\n");
}

TEST(BrimtoolTranscode, AFullDiskGivesTwo) {
    const ToolResult named = transcodeRun("UTF-8", "1252", "text", {"-o", "/dev/full"}).run();
    EXPECT_EQ(named.exitCode, 2);
    EXPECT_EQ(named.errors, "brimtool: cannot write /dev/full: No space left on device\n");

    ToolRun redirected = transcodeRun("UTF-8", "1252", "text");
    redirected.setUp = [] { openAs(STDOUT_FILENO, "/dev/full", O_WRONLY); };
    const ToolResult standard = redirected.run();
    EXPECT_EQ(standard.exitCode, 2);
    EXPECT_EQ(standard.errors, "brimtool: cannot write standard output: No space left on device\n");
}

TEST(BrimtoolTranscode, AClosedPipeGivesTwo) {
    ToolRun run = transcodeRun("UTF-8", "1252", "text");
    run.setUp = [] {
        int ends[2] = {-1, -1};
        if (::pipe(ends) == 0) {
            ::close(ends[0]);
            ::dup2(ends[1], STDOUT_FILENO);
            ::close(ends[1]);
        }
    };
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.errors, "brimtool: cannot write standard output: Broken pipe\n");
}

TEST(BrimtoolTranscode, AClosedStandardOutputGivesTwo) {
    ToolRun run = transcodeRun("UTF-8", "1252", "text");
    run.setUp = [] { ::close(STDOUT_FILENO); };
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.errors, "brimtool: cannot write standard output: Bad file descriptor\n");
}

TEST(BrimtoolTranscode, MessagesStayOutOfTheDataWhenStandardErrorIsClosed) {
    const TemporaryDirectory directory;
    const std::string target = directory.path("target");
    ToolRun direct = transcodeRun("UTF-8", "1252", "text\xFF");
    direct.setUp = [] { ::close(STDERR_FILENO); };
    const ToolResult toPipe = direct.run();
    EXPECT_EQ(toPipe.exitCode, 1);
    EXPECT_EQ(toPipe.output, "text");

    ToolRun named = transcodeRun("UTF-8", "1252", "text", {"--stats", "-o", target});
    named.setUp = direct.setUp;
    EXPECT_EQ(named.run().exitCode, 0);
    EXPECT_EQ(readFile(target), "text");
}

TEST(BrimtoolTranscode, RefusesToReadTheFileThatItWritesTo) {
    const TemporaryDirectory directory;
    const std::string file = directory.path("file");
    writeFile(file, "text");
    ToolRun run = transcodeRun("UTF-8", "1252", "", {file});
    run.setUp = [&file] { openAs(STDOUT_FILENO, file.c_str(), O_WRONLY | O_APPEND); };
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(readFile(file), "text");
}

// One that is missing is no matter, as all the other tests show.
TEST(Brimtool, ALocaleFileThatDoesNotParseIsToldWithTheMessages) {
    const TemporaryDirectory home;
    const std::string directory = home.path("hxfoundation/server/locale");
    std::filesystem::create_directories(directory);
    writeFile(directory + "/BrimLocale.xml", "<BrimLocale>");
    ToolRun run = transcodeRun("UTF-8", "1252", "data");
    run.environment = {{"HX_PRODUCT_HOME", home.path()}};
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output, "data");
    EXPECT_TRUE(contains(result.errors, "Xml File Parse error")) << result;
}

namespace {

// A run of the tool with the noisy library loaded into it.
ToolRun noisyRun() {
    const char* const options = std::getenv("ASAN_OPTIONS");
    ToolRun run = transcodeRun("UTF-8", "1252", "data");
    run.environment = {
        {"LD_PRELOAD", NOISY_LIBRARY_PATH},
        {"ASAN_OPTIONS", (options == nullptr ? ""s : options + ":"s) + "verify_asan_link_order=0"},
    };
    return run;
}

} // namespace

// What the tool loads may print when it is loaded and unloaded.
TEST(Brimtool, WhatLibrariesPrintStaysOutOfTheData) {
    const ToolResult result = noisyRun().run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output, "data");
    for (const char* const printed : {"buffered at load", "direct at load", "buffered at unload"}) {
        EXPECT_TRUE(contains(result.errors, printed)) << printed << ": " << result;
    }
}

TEST(Brimtool, WhatALibraryPrintsBeforeItAbortsAtLoadIsNotLost) {
    ToolRun run = noisyRun();
    run.environment.emplace_back("NOISY_ABORT", "1");
    const ToolResult result = run.run();
    EXPECT_EQ(result.signal, SIGABRT) << result;
    EXPECT_EQ(result.output, "");
    EXPECT_TRUE(contains(result.errors, "direct at load")) << result;
}
