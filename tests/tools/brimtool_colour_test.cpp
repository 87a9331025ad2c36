// Colours of brimtool: for a person at a terminal, and nowhere else.
#include "tool_runner.h"

#include <gtest/gtest.h>

#include <pty.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

using namespace brimtest;

namespace {

constexpr const char* kRed = "\033[31merror\033[0m: ";
constexpr const char* kYellow = "\033[33mwarning\033[0m: ";
using Variables = std::vector<std::pair<std::string, std::string>>;

// A server whose product home is missing (errors) and that shares the fallback directories (warnings).
ToolRun doctorRun(const Variables& variables) {
    ToolRun tool;
    tool.arguments = {"doctor"};
    tool.hasOwnEnvironment = true;
    tool.environment = variables;
    tool.environment.emplace_back("HX_PRODUCT_HOME", "/no such directory");
    return tool;
}

// What a terminal shows whose program's standard output it is.
std::string shownOnATerminal(ToolRun tool) {
    int master = -1;
    int slave = -1;
    if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) {
        ADD_FAILURE() << "no terminal";
        return {};
    }
    tool.setUp = [slave] { ::dup2(slave, STDOUT_FILENO); };
    EXPECT_EQ(tool.run().exitCode, 1);
    ::close(slave);
    std::string shown;
    char buffer[4096];
    for (ssize_t n = 0; (n = ::read(master, buffer, sizeof(buffer))) > 0;) {
        shown.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(master);
    return shown;
}

bool holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

} // namespace

TEST(BrimtoolColour, TheSeverityIsInColourOnATerminal) {
    for (const Variables& variables : {Variables{{"TERM", "xterm"}}, {{"TERM", "linux"}, {"NO_COLOR", ""}}}) {
        const std::string shown = shownOnATerminal(doctorRun(variables));
        EXPECT_TRUE(holds(shown, kRed)) << shown;
        EXPECT_TRUE(holds(shown, kYellow)) << shown;
    }
}

TEST(BrimtoolColour, ThereIsNoneForPipesAndForThoseWhoWantNone) {
    const ToolResult piped = doctorRun({{"TERM", "xterm"}}).run();
    EXPECT_TRUE(holds(piped.output, "error: ")) << piped;
    EXPECT_FALSE(holds(piped.output, "\033")) << piped;
    for (const Variables& variables :
         {Variables{{"TERM", "xterm"}, {"NO_COLOR", "1"}}, {{"TERM", "dumb"}}, {}}) {
        const std::string shown = shownOnATerminal(doctorRun(variables));
        EXPECT_TRUE(holds(shown, "error: ")) << shown;
        EXPECT_FALSE(holds(shown, "\033")) << shown;
    }
}

TEST(BrimtoolColour, JsonHasNone) {
    ToolRun tool = doctorRun({{"TERM", "xterm"}});
    tool.arguments.emplace_back("--json");
    EXPECT_FALSE(holds(shownOnATerminal(tool), "\033"));
}

TEST(BrimtoolColour, AProblemOfALocaleFileHasOne) {
    const TemporaryDirectory directory;
    writeFile(directory.path("f.xml"), "<BrimLocale><Locales/><Nothing/></BrimLocale>");
    ToolRun tool;
    tool.arguments = {"locale", "check", directory.path("f.xml")};
    tool.environment = {{"TERM", "xterm"}};
    const std::string shown = shownOnATerminal(tool);
    EXPECT_TRUE(holds(shown, ": \033[33mproblem\033[0m: ")) << shown;
    EXPECT_FALSE(holds(tool.run().output, "\033"));
}
