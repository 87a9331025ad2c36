// brimtool env.
#include "json_reader.h"
#include "tool_runner.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

using namespace brimtest;

namespace {

ToolResult envOf(const std::vector<std::pair<std::string, std::string>>& variables, bool isJson) {
    ToolRun run;
    run.arguments = {"env"};
    if (isJson) {
        run.arguments.emplace_back("--json");
    }
    run.hasOwnEnvironment = true;
    run.environment = variables;
    ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << result;
    return result;
}

const std::vector<std::pair<std::string, std::string>> kVariables = {
    {"LC_ALL", "C.UTF-8"},
    {"PLAIN", "value"},
    {"EMPTY", ""},
    {"TWO_LINES", "first\nSECOND=x"},
    {"EQUALS", "a=b"},
    {"QUOTES", "\"\\"},
    {"VANTA_HXSECURITY_SYSUSER_CRED", "secret1"},
    {"vanta_hxsecurity_sysuser_cred_2", "secret2"},
    {"VANTA_HXSECURITY_SYSUSER_CRe", "shown"},
};

} // namespace

TEST(BrimtoolEnv, PrintsTheDumpOfTheLibrary) {
    const std::string output = envOf(kVariables, false).output;
    EXPECT_EQ(output.rfind("Dumping all the environment variables:\n", 0), 0U) << output;
    for (const char* const line :
         {"\nPLAIN=value\n", "\nEMPTY=\n", "\nTWO_LINES=first\nSECOND=x\n",
          "\nVANTA_HXSECURITY_SYSUSER_CRED=******\n", "\nVANTA_HXSECURITY_SYSUSER_CRe=shown\n"}) {
        EXPECT_NE(output.find(line), std::string::npos) << line << " is not in\n" << output;
    }
    EXPECT_EQ(output.find("secret"), std::string::npos) << output;
    EXPECT_EQ(output.find("cred_2"), std::string::npos) << output;
}

TEST(BrimtoolEnv, TheJsonHasAnObjectForEachVariableMaskedTheSameWay) {
    const std::string output = envOf(kVariables, true).output;
    std::multimap<std::string, std::string> found;
    const Json json = JsonReader::read(output);
    for (const Json& variable : json.at("variables").items) {
        found.emplace(variable.at("name").text, variable.at("value").text);
    }
    for (const auto& [name, value] : kVariables) {
        if (value.rfind("secret", 0) != 0) {
            EXPECT_EQ(found.count(name), 1U) << name;
            EXPECT_EQ(found.find(name)->second, value) << name;
        }
    }
    const auto masked = found.equal_range("VANTA_HXSECURITY_SYSUSER_CRED");
    EXPECT_EQ(std::distance(masked.first, masked.second), 2);
    EXPECT_EQ(masked.first->second, "******");
    EXPECT_EQ(output.find("secret"), std::string::npos) << output;
}

TEST(BrimtoolEnv, TextThatIsNoUtf8GivesValidJson) {
    const Json json = JsonReader::read(envOf({{"LC_ALL", "C.UTF-8"}, {"BAD", "a\xFFz"}}, true).output);
    EXPECT_EQ(json.element("variables", "name", "BAD").at("value").text, "a\xEF\xBF\xBDz");
}
