// brimtool layout.
#include "json_reader.h"
#include "tool_runner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace brimtest;

namespace {

using Variables = std::map<std::string, std::string>;

ToolRun layoutRun(const Variables& variables, const std::string& directory, bool isJson = true) {
    ToolRun run;
    run.arguments = {"layout"};
    if (isJson) {
        run.arguments.emplace_back("--json");
    }
    run.hasOwnEnvironment = true;
    run.environment.assign(variables.begin(), variables.end());
    run.setUp = [directory] { std::filesystem::current_path(directory); };
    return run;
}

Json layoutOf(const Variables& variables, const std::string& directory = "/") {
    const ToolResult result = layoutRun(variables, directory).run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.errors, "");
    return JsonReader::read(result.output);
}

const Json& row(const Json& layout, const std::string& name) {
    return layout.element("directories", "name", name);
}

// $ stands for a temporary directory.
std::string expanded(std::string text, const TemporaryDirectory& root) {
    for (std::size_t at = text.find('$'); at != std::string::npos; at = text.find('$')) {
        text.replace(at, 1, root.path().string());
    }
    return text;
}

struct Case {
    Variables variables;
    const char* name;
    const char* path;
    const char* from;
};

// In $: v/hx is a home by VANTA_HOME=$/v, w one by itself, both are directories.
const std::vector<Case> kCases = {
    {{}, "product home", "/vanta/home", "built in"},
    {{{"VANTA_HOME", "$/v"}}, "product home", "$/v/hx", "VANTA_HOME"},
    {{{"VANTA_HOME", "$/none"}}, "product home", "$/none", "VANTA_HOME"},
    {{{"VANTA_HX_HOME", "$/a"}, {"VANTA_HOME", "$/v"}}, "product home", "$/a", "VANTA_HX_HOME"},
    {{{"HX_PRODUCT_HOME", "$/b"}, {"VANTA_HX_HOME", "$/a"}, {"VANTA_HOME", "$/v"}},
     "product home",
     "$/b",
     "HX_PRODUCT_HOME"},
    {{}, "Vanta home", "/vanta/home", "built in"},
    {{{"VANTA_HOME", "$/w"}}, "Vanta home", "$/w", "VANTA_HOME"},
    {{{"VANTA_HX_HOME", "$/v/hx/"}}, "Vanta home", "$/v", "VANTA_HX_HOME"},
    {{{"VANTA_HOME", "$/none"}, {"VANTA_HX_HOME", "$/v/hx"}}, "Vanta home", "/vanta/home", "built in"},
    {{{"VANTA_HX_HOME", "$/none/hx"}}, "Vanta home", "/vanta/home", "built in"},
    {{}, "instance", "/tmp/vanta/instance", "built in"},
    {{{"TEMPDIR", "/c"}}, "instance", "/c/vanta/instance", "TEMPDIR"},
    {{{"TEMPDIR", "/c"}, {"TEMP", "/b"}}, "instance", "/b/vanta/instance", "TEMP"},
    {{{"TEMP", "/b"}, {"TMP", "/a"}}, "instance", "/a/vanta/instance", "TMP"},
    {{{"VANTA_INSTANCE", "/i//j/"}, {"TMP", "/a"}}, "instance", "/i/j", "VANTA_INSTANCE"},
    {{}, "domain home", "/tmp", "built in"},
    {{{"TEMP", "/b"}}, "domain home", "/b", "TEMP"},
    {{{"DOMAIN_HOME", "/d/"}, {"TMP", "/a"}}, "domain home", "/d", "DOMAIN_HOME"},
    {{{"VANTA_HOME", "$/v"}},
     "server programs",
     "$/v/hx/hxfoundation/server/bin",
     "product home (VANTA_HOME)"},
    {{{"HX_PRODUCT_HOME", "/h"}},
     "server locale",
     "/h/hxfoundation/server/locale",
     "product home (HX_PRODUCT_HOME)"},
    {{}, "root", "/vanta/home/hxfoundation", "product home (built in)"},
    {{{"VANTA_HX_ROOTDIR", "/r"}, {"HX_PRODUCT_HOME", "/h"}}, "root", "/r", "VANTA_HX_ROOTDIR"},
    {{{"VANTA_HX_ROOTDIR", "$/w/hxfoundation"}},
     "program",
     "$/w/hxfoundation/server",
     "root (VANTA_HX_ROOTDIR)"},
    {{{"HX_PRODUCT_HOME", "/h"}}, "program", "/h/hxfoundation", "root (HX_PRODUCT_HOME)"},
    {{{"TIMEZONE_PATH", "/x"}}, "time zone", "/x/timezone", "TIMEZONE_PATH"},
    {{{"VANTA_HX_ROOTDIR", "/r"}}, "time zone", "/r/timezone", "root (VANTA_HX_ROOTDIR)"},
    {{{"DOMAIN_HOME", "/d"}}, "domain servers", "/d/servers", "domain home (DOMAIN_HOME)"},
    {{{"TMP", "/a"}}, "KROCCS environment", "/a/config/plxconfig/hxenv/KROCCS", "domain home (TMP)"},
    {{}, "core environment", "/tmp/config/plxconfig/hxenv/core", "domain home (built in)"},
    {{{"DOMAIN_HOME", "/d"}}, "default data", "/d/hxdata", "domain home (DOMAIN_HOME)"},
    {{{"DOMAIN_HOME", "/d"}, {"VANTA_HX_CONFIG_DIR", ""}},
     "configuration",
     "/d/config/plxconfig/hxconfig",
     "domain home (DOMAIN_HOME)"},
    {{{"DOMAIN_HOME", "/d"}, {"VANTA_HX_CONFIG_DIR", "/c"}}, "configuration", "/c", "VANTA_HX_CONFIG_DIR"},
    {{{"TMP", "/a"}}, "configuration", "", "nothing"},
    {{}, "KROCCS configuration", "/KROCCS", "configuration (nothing)"},
    {{{"VANTA_HX_CONFIG_DIR", "/c"}},
     "KROCCS configuration",
     "/c/KROCCS",
     "configuration (VANTA_HX_CONFIG_DIR)"},
    {{{"DOMAIN_HOME", "/d"}},
     "shared configuration",
     "/d/config/plxconfig/hxconfig/core",
     "configuration (DOMAIN_HOME)"},
    {{}, "application group", "/core", "configuration (nothing)"},
    {{{"VANTA_HX_CONFIG_DIR", "/c"}},
     "component configuration",
     "/c/default",
     "configuration (VANTA_HX_CONFIG_DIR)"},
    {{}, "component configuration", "", "configuration (nothing)"},
    {{{"DOMAIN_HOME", "/d"}, {"COMPONENT_NAME", "n"}},
     "component",
     "/d/servers/n",
     "domain servers (DOMAIN_HOME), COMPONENT_NAME"},
    {{{"DOMAIN_HOME", "/d"}}, "component", "/d/servers", "domain servers (DOMAIN_HOME)"},
    {{{"DOMAIN_HOME", "/d"}, {"COMPONENT_NAME", "n"}}, "log", "/d/servers/n/logs", "component (DOMAIN_HOME)"},
    {{{"VANTA_HX_CACHEDIR", "/k"}, {"VANTA_HX_CACHE_BASE_DIR", "$/w"}}, "cache", "/k", "VANTA_HX_CACHEDIR"},
    {{{"VANTA_HX_CACHE_BASE_DIR", "$/w"}, {"COMPONENT_NAME", "n"}},
     "cache",
     "$/w/n/cache",
     "VANTA_HX_CACHE_BASE_DIR, COMPONENT_NAME"},
    {{{"VANTA_HX_CACHE_BASE_DIR", "$/none"}}, "cache", "", "VANTA_HX_CACHE_BASE_DIR"},
    {{}, "cache", "/tmp/servers/cache", "component (built in)"},
    {{{"VANTA_HX_TEMPDIR", "/t"}}, "temporary", "/t", "VANTA_HX_TEMPDIR"},
    {{{"VANTA_HX_TEMP_BASE_DIR", "$/w"}}, "temporary", "$/w/tmp", "VANTA_HX_TEMP_BASE_DIR"},
    {{{"DOMAIN_HOME", "/d"}}, "temporary", "/d/servers/tmp", "component (DOMAIN_HOME)"},
};

class Products : public testing::Test {
protected:
    Products() {
        for (const char* const directory : {"v/hx/hxfoundation/server/bin", "w/hxfoundation/server/bin"}) {
            std::filesystem::create_directories(root.path(directory));
        }
    }

    Variables inRoot(const Variables& variables) const {
        Variables result;
        for (const auto& [name, value] : variables) {
            result[name] = expanded(value, root);
        }
        return result;
    }

    TemporaryDirectory root;
};

constexpr const char* kVariables[] = {
    "HX_PRODUCT_HOME",
    "VANTA_HX_HOME",
    "VANTA_HOME",
    "VANTA_HX_ROOTDIR",
    "VANTA_INSTANCE",
    "DOMAIN_HOME",
    "TMP",
    "TEMP",
    "TEMPDIR",
    "VANTA_HX_CONFIG_DIR",
    "COMPONENT_NAME",
    "TIMEZONE_PATH",
    "VANTA_HX_CACHEDIR",
    "VANTA_HX_TEMPDIR",
    "VANTA_HX_CACHE_BASE_DIR",
    "VANTA_HX_TEMP_BASE_DIR",
};

} // namespace

using BrimtoolLayout = Products;

TEST_F(BrimtoolLayout, TellsWhatEachDirectoryComesFrom) {
    for (const Case& expected : kCases) {
        const Variables variables = inRoot(expected.variables);
        SCOPED_TRACE(testing::PrintToString(variables) + expected.name);
        const Json layout = layoutOf(variables);
        const Json& found = row(layout, expected.name);
        EXPECT_EQ(found.at("path").text, expanded(expected.path, root));
        EXPECT_EQ(found.at("from").text, expected.from);
    }
}

// The claim is tried out: a variable that is not named has no influence, the first one that is has.
TEST_F(BrimtoolLayout, TheVariablesNamedAreThoseThatDecide) {
    for (unsigned int seed = 1; seed <= 3; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const std::vector<std::string> values = {"$/v", "$/w", "$/v/hx", "$/none", "/elsewhere", "$/w//x/"};
        Variables variables;
        for (const char* const name : kVariables) {
            if (random() % 2 == 0) {
                variables[name] = expanded(values[random() % values.size()], root);
            }
        }
        SCOPED_TRACE(testing::PrintToString(variables));
        const Json layout = layoutOf(variables);
        for (const auto& [name, value] : variables) {
            SCOPED_TRACE(name);
            Variables without = variables;
            without.erase(name);
            Variables changed = variables;
            changed[name] = "/changed/hx";
            const Json layoutWithout = layoutOf(without);
            const Json layoutChanged = layoutOf(changed);
            for (const Json& found : layout.at("directories").items) {
                const std::string directory = found.at("name").text;
                SCOPED_TRACE(directory);
                const std::vector<std::string> named = found.at("variables").texts();
                if (std::find(named.begin(), named.end(), name) == named.end()) {
                    // VANTA_HOME keeps VANTA_HX_HOME from being asked, even where it leads nowhere.
                    if (directory != "Vanta home" || found.at("from").text != "built in") {
                        EXPECT_EQ(row(layoutWithout, directory).at("path").text, found.at("path").text);
                    }
                } else if (named.front() == name && !found.at("path").text.empty()) {
                    EXPECT_NE(row(layoutChanged, directory).at("path").text, found.at("path").text);
                }
            }
        }
    }
}

TEST_F(BrimtoolLayout, HasEveryDirectoryOperation) {
    std::vector<std::string> operations;
    const Json layout = layoutOf({});
    for (const Json& found : layout.at("directories").items) {
        operations.push_back(found.at("operation").text);
    }
    std::sort(operations.begin(), operations.end());
    EXPECT_EQ(operations,
              (std::vector<std::string>{
                  "GetComponentCacheDirectory", "GetComponentDirectory",   "GetConfigDirectory",
                  "GetConfigKROCCSDirectory",   "GetDefaultDataDirectory", "GetDomainHomeDirectory",
                  "GetDomainServersDirectory",  "GetEnvCoreDirectory",     "GetEnvKROCCSDirectory",
                  "GetHXAppGroupDirectory",     "GetLogDirectory",         "GetProgramDirectory",
                  "GetRootDirectory",           "GetServerBinDirectory",   "GetServerLocaleDirectory",
                  "GetSharedConfigDirectory",   "GetTempDirectory",        "GetTimeZoneDirectory",
                  "GetVantaHXConfigDir",        "GetVantaHXHomeDirectory", "GetVantaHomeDirectory",
                  "GetVantaInstanceDirectory"}));
}

TEST_F(BrimtoolLayout, TellsWhetherADirectoryExistsAndIsOne) {
    writeFile(root.path("file"), "");
    const Json layout = layoutOf({{"VANTA_HX_HOME", root.path("w")},
                                  {"DOMAIN_HOME", root.path("file")},
                                  {"VANTA_INSTANCE", root.path("none")},
                                  {"TIMEZONE_PATH", "w"}},
                                 root.path());
    EXPECT_EQ(row(layout, "product home").at("exists").text, "yes");
    EXPECT_EQ(row(layout, "server locale").at("exists").text, "no");
    EXPECT_EQ(row(layout, "domain home").at("exists").text, "no directory");
    EXPECT_EQ(row(layout, "domain servers").at("exists").text, "no");
    EXPECT_EQ(row(layout, "instance").at("exists").text, "no");
    EXPECT_EQ(row(layout, "time zone").at("path").text, "w/timezone");
}

TEST_F(BrimtoolLayout, TellsFallbacksAsTheOperationsDo) {
    const Json layout = layoutOf({{"VANTA_HX_HOME", "/h"}});
    for (const auto& [name, isFallback] :
         std::map<std::string, std::string>{{"product home", "false"},
                                            {"root", "true"}, // even though a path is given
                                            {"server programs", "false"},
                                            {"domain home", "true"},
                                            {"log", "true"},
                                            {"cache", "false"}}) {
        EXPECT_EQ(row(layout, name).at("fallback").text, isFallback) << name;
    }
}

TEST_F(BrimtoolLayout, TheTableHasALineForEach) {
    const ToolResult result = layoutRun({{"DOMAIN_HOME", "/d"}, {"LC_ALL", "C"}}, "/", false).run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output.rfind("Name  ", 0), 0U) << result.output;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 23);
    EXPECT_NE(result.output.find("\ndomain servers           /d/servers"), std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("  domain home (DOMAIN_HOME)"), std::string::npos) << result.output;
}

TEST_F(BrimtoolLayout, PathsKeepTheirCharacters) {
    const std::string name = "/m\xC3\xA4\xE2\x82\xAC"; // an umlaut, the euro sign
    for (const char* const locale : {"C", "C.UTF-8"}) {
        const ToolResult result = layoutRun({{"DOMAIN_HOME", name}, {"LC_ALL", locale}}, "/", false).run();
        EXPECT_NE(result.output.find("  " + name + "  "), std::string::npos) << locale << result.output;
    }
    EXPECT_EQ(row(layoutOf({{"DOMAIN_HOME", name}, {"LC_ALL", "C.UTF-8"}}), "domain home").at("path").text,
              name);
}
