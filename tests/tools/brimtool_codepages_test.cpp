// brimtool codepages.
#include "tool_runner.h"

#include "CodePageNames.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include <gtest/gtest.h>

#include <iterator>
#include <regex>
#include <set>
#include <string>

using namespace brimtest;

namespace {

ToolResult list(const std::vector<std::string>& options, const char* locale = "C.UTF-8") {
    ToolRun run;
    run.arguments = {"codepages"};
    run.arguments.insert(run.arguments.end(), options.begin(), options.end());
    run.environment = {{"LC_ALL", locale}};
    return run.run();
}

} // namespace

TEST(BrimtoolCodePages, ListsEveryPageOfTheRegistryWithNamesThatAreUnderstood) {
    const ToolResult result = list({"--json"});
    ASSERT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.errors, "");
    std::set<int> listed;
    const std::regex page(R"re("number": ([0-9]+),\s*"names": \[([^\]]*)\])re");
    const std::regex name(R"re("([^"]+)")re");
    const std::sregex_iterator end;
    for (std::sregex_iterator p(result.output.begin(), result.output.end(), page); p != end; ++p) {
        const int number = std::stoi((*p)[1]);
        listed.insert(number);
        EXPECT_NE(sup::transcodeimpl::GetTranscoderCache()->Find(number), nullptr) << number;
        const std::string names = (*p)[2];
        EXPECT_TRUE(std::regex_search(names, name)) << number;
        for (std::sregex_iterator n(names.begin(), names.end(), name); n != end; ++n) {
            EXPECT_EQ(sup::codePageOfName((*n)[1].str()), number) << (*n)[1];
        }
    }
    EXPECT_EQ(listed.size(), sup::transcodeimpl::knTables);
}

TEST(BrimtoolCodePages, TellsWhatIsUnusualAboutTheNumbers) {
    const ToolResult text = list({});
    EXPECT_EQ(text.exitCode, 0) << text;
    for (const char* const line : {
             "\n    65001  UTF-8  ",
             "\n     1200  UTF-16BE ",
             "\n     1201  UTF-16LE ",
             "1200 is big-endian and 1201 little-endian, the reverse of the usual Windows list.",
             "285915 and 38598 are\nhouse numbers",
             "iconv:NAME",
         }) {
        EXPECT_NE(text.output.find(line), std::string::npos) << line << " is not in\n" << text.output;
    }
    const ToolResult json = list({"--json"});
    const std::regex house(R"re("number": ([0-9]+),[^}]*"houseNumber": true)re");
    std::set<std::string> houseNumbers;
    for (std::sregex_iterator p(json.output.begin(), json.output.end(), house), end; p != end; ++p) {
        houseNumbers.insert((*p)[1]);
    }
    EXPECT_EQ(houseNumbers, (std::set<std::string>{"285915", "38598"}));
}

TEST(BrimtoolCodePages, TellsThePageOfTheLocale) {
    EXPECT_NE(list({}).output.find("now 65001."), std::string::npos);
    EXPECT_NE(list({"--json"}).output.find("\"localeCodePage\": 65001\n"), std::string::npos);
    EXPECT_NE(list({"--json"}, "C").output.find("\"localeCodePage\": 1252\n"), std::string::npos);
}
