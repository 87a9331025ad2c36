// brimtool doctor.
#include "json_reader.h"
#include "tool_runner.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

using namespace brimtest;

namespace {

using Variables = std::map<std::string, std::string>;

constexpr uid_t kNobody = 65534;

// A server's surroundings with nothing amiss, to be damaged.
class Surroundings : public testing::Test {
protected:
    Surroundings() {
        for (const char* const directory :
             {"v/hx/hxfoundation/server/bin", "v/hx/hxfoundation/server/locale", "v/hx/hxfoundation/timezone",
              "instance", "domain/servers/c1/logs", "domain/servers/c1/tmp", "domain/servers/c1/cache",
              "domain/hxdata", "domain/config/plxconfig/hxenv/KROCCS", "domain/config/plxconfig/hxenv/core",
              "domain/config/plxconfig/hxconfig/KROCCS", "domain/config/plxconfig/hxconfig/core", "lib"}) {
            std::filesystem::create_directories(root.path(directory));
        }
        // The program directory is root/server.
        std::filesystem::create_directories(root.path("v/hx/hxfoundation/server/timezone"));
        writeFile(localeFile(), "<BrimLocale><Locales/></BrimLocale>");
        variables = {{"VANTA_HX_HOME", root.path("v/hx")},  {"VANTA_INSTANCE", root.path("instance")},
                     {"DOMAIN_HOME", root.path("domain")},  {"COMPONENT_NAME", "c1"},
                     {"LD_LIBRARY_PATH", root.path("lib")}, {"LC_ALL", "C.UTF-8"}};
    }

    std::string localeFile() const { return root.path("v/hx/hxfoundation/server/locale/BrimLocale.xml"); }

    ToolRun run(std::vector<std::string> options = {"--json"}) const {
        ToolRun tool;
        tool.arguments = {"doctor"};
        tool.arguments.insert(tool.arguments.end(), options.begin(), options.end());
        tool.hasOwnEnvironment = true;
        tool.environment.assign(variables.begin(), variables.end());
        tool.setUp = [directory = root.path()] { std::filesystem::current_path(directory); };
        return tool;
    }

    // Every path, its permissions and its time of change.
    std::map<std::string, std::string> snapshot() const {
        std::map<std::string, std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root.path())) {
            struct stat status {};
            ::lstat(entry.path().c_str(), &status);
            found[entry.path()] = std::to_string(status.st_mode) + ' ' + std::to_string(status.st_size) +
                                  ' ' + std::to_string(status.st_mtim.tv_sec) + '.' +
                                  std::to_string(status.st_mtim.tv_nsec);
        }
        return found;
    }

    // The findings, with the promises that hold for all: the exit status, and that nothing is changed.
    std::vector<Json> findings() const {
        const auto before = snapshot();
        const ToolResult result = run().run();
        EXPECT_EQ(snapshot(), before);
        const Json json = JsonReader::read(result.output);
        std::vector<Json> found = json.at("findings").items;
        EXPECT_EQ(result.exitCode, found.empty() ? 0 : 1) << result << result.output;
        EXPECT_EQ(std::stoul(json.at("errors").text) + std::stoul(json.at("warnings").text), found.size());
        return found;
    }

    // That there is just one, with these texts in it.
    void expectOne(const std::string& severity, const std::string& variable, const std::string& part) const {
        const std::vector<Json> found = findings();
        EXPECT_EQ(found.size(), 1U) << run({}).run().output;
        expectAmong(found, severity, variable, part);
    }

    static void expectAmong(const std::vector<Json>& found, const std::string& severity,
                            const std::string& variable, const std::string& part) {
        std::string all;
        for (const Json& finding : found) {
            if (finding.at("severity").text == severity && finding.at("variable").text == variable &&
                finding.at("message").text.find(part) != std::string::npos) {
                EXPECT_NE(finding.at("remedy").text, "");
                return;
            }
            all += finding.at("severity").text + ", " + finding.at("variable").text + ": " +
                   finding.at("message").text + '\n';
        }
        ADD_FAILURE() << severity << ", " << variable << ": " << part << " is not in\n" << all;
    }

    TemporaryDirectory root;
    Variables variables;
};

} // namespace

using BrimtoolDoctor = Surroundings;

TEST_F(BrimtoolDoctor, FindsNothingInGoodSurroundings) {
    EXPECT_EQ(findings().size(), 0U) << run({}).run().output;
    const ToolResult text = run({}).run();
    EXPECT_EQ(text.exitCode, 0) << text;
    EXPECT_EQ(text.output, "Nothing is missing, unreadable or unsafe.\n");
    EXPECT_EQ(text.errors, "");
}

TEST_F(BrimtoolDoctor, TellsFindingsWithWhatToDo) {
    variables["VANTA_INSTANCE"] = root.path("none");
    const ToolResult text = run({}).run();
    EXPECT_EQ(text.exitCode, 1) << text;
    EXPECT_EQ(text.output, "warning: the instance directory " + root.path("none") +
                               " does not exist\n    Make it, or set VANTA_INSTANCE to where it is.\n\n"
                               "0 errors, 1 warning.\n");
}

TEST_F(BrimtoolDoctor, WithoutVariablesNothingIsSetUp) {
    variables = {{"LC_ALL", "C.UTF-8"}};
    const std::vector<Json> found = findings();
    expectAmong(found, "error", "HX_PRODUCT_HOME", "product home directory /vanta/home does not exist");
    expectAmong(found, "error", "VANTA_HOME", "Vanta home directory /vanta/home does not exist");
    expectAmong(found, "warning", "DOMAIN_HOME", "DOMAIN_HOME is not set");
    expectAmong(found, "warning", "VANTA_INSTANCE", "VANTA_INSTANCE is not set");
    expectAmong(found, "warning", "HX_PRODUCT_HOME", "BrimLocale.xml does not exist");
    EXPECT_LE(found.size(), 6U); // what derives from these is not told too
}

TEST_F(BrimtoolDoctor, ARelativePathIsAnError) {
    variables["VANTA_INSTANCE"] = "instance";
    expectOne("error", "VANTA_INSTANCE", "is \"instance\", a relative path");
}

TEST_F(BrimtoolDoctor, AVariableSetToNothingIsAWarning) {
    variables["INSTANCE_NAME"] = "";
    expectOne("warning", "INSTANCE_NAME", "INSTANCE_NAME is set to nothing");
    variables.erase("INSTANCE_NAME");
    variables["DOMAIN_HOME"] = "";
    expectAmong(findings(), "warning", "DOMAIN_HOME", "DOMAIN_HOME is set to nothing");
}

TEST_F(BrimtoolDoctor, AnEmptyConfigurationVariableCountsAsUnset) {
    variables["VANTA_HX_CONFIG_DIR"] = "";
    EXPECT_EQ(findings().size(), 0U);
}

TEST_F(BrimtoolDoctor, ARootDirectoryLeavesNoPath) {
    variables["VANTA_INSTANCE"] = "/";
    expectOne("error", "VANTA_INSTANCE", "VANTA_INSTANCE is \"/\", which leaves no path");
}

TEST_F(BrimtoolDoctor, ANumberThatIsNoneIsAWarning) {
    variables["FEN_MAX_FILE_HANDLES"] = "many";
    expectOne("warning", "FEN_MAX_FILE_HANDLES", "\"many\", which is no number");
    variables["FEN_MAX_FILE_HANDLES"] = "100";
    EXPECT_EQ(findings().size(), 0U);
}

TEST_F(BrimtoolDoctor, AnEmptyElementOfTheLibraryPathIsTheCurrentDirectory) {
    for (const std::string path : {":/usr/lib", "/usr/lib:", "/usr/lib::/lib", ";/lib"}) {
        SCOPED_TRACE(path);
        variables["LD_LIBRARY_PATH"] = path;
        expectOne("error", "LD_LIBRARY_PATH", "has an empty element, which means the current directory");
    }
    for (const std::string path : {"", "/usr/lib:/lib", "$ORIGIN/../lib"}) {
        SCOPED_TRACE(path);
        variables["LD_LIBRARY_PATH"] = path;
        EXPECT_EQ(findings().size(), 0U);
    }
    variables["LD_LIBRARY_PATH"] = "/usr/lib:lib";
    expectOne("error", "LD_LIBRARY_PATH", "has the relative element \"lib\"");
}

TEST_F(BrimtoolDoctor, AMissingDirectoryIsToldOnceForAllInIt) {
    std::filesystem::remove_all(root.path("v/hx/hxfoundation"));
    const std::vector<Json> found = findings();
    expectAmong(found, "error", "VANTA_HX_HOME",
                "server programs directory " + root.path("v/hx/hxfoundation/server/bin"));
    expectAmong(found, "warning", "VANTA_HX_HOME", "BrimLocale.xml does not exist");

    variables["VANTA_HX_HOME"] = root.path("nowhere/hx");
    for (const Json& finding : findings()) {
        EXPECT_EQ(finding.at("message").text.find("server programs"), std::string::npos);
    }
}

TEST_F(BrimtoolDoctor, WhatAComponentMakesItselfMayBeMissing) {
    std::filesystem::remove_all(root.path("domain/servers"));
    std::filesystem::remove_all(root.path("domain/config/plxconfig/hxconfig/core"));
    EXPECT_EQ(findings().size(), 0U) << run({}).run().output;
}

TEST_F(BrimtoolDoctor, AFileInThePlaceOfADirectoryIsAnError) {
    std::filesystem::remove_all(root.path("domain/hxdata"));
    writeFile(root.path("domain/hxdata"), "");
    expectOne("error", "DOMAIN_HOME",
              "default data directory " + root.path("domain/hxdata") + " is no directory");
}

TEST_F(BrimtoolDoctor, AFileInTheWayOfWhatHasToBeMadeIsAnError) {
    std::filesystem::remove_all(root.path("domain/servers"));
    writeFile(root.path("domain/servers"), "");
    expectAmong(findings(), "error", "DOMAIN_HOME",
                "domain servers directory " + root.path("domain/servers") + " is no directory");
}

TEST_F(BrimtoolDoctor, ABaseDirectoryThatIsNoneIsAnError) {
    variables["VANTA_HX_CACHE_BASE_DIR"] = root.path("none");
    expectOne("error", "VANTA_HX_CACHEDIR",
              "VANTA_HX_CACHE_BASE_DIR is \"" + root.path("none") + "\", which is no directory");
}

TEST_F(BrimtoolDoctor, ADirectoryOpenToAllIsUnsafe) {
    std::filesystem::permissions(root.path("domain"), std::filesystem::perms::all);
    expectOne("error", "DOMAIN_HOME",
              root.path("domain") + " is a directory that everybody may write into, without the sticky bit");
    ASSERT_EQ(::chmod(root.path("domain").c_str(), 01777), 0);
    EXPECT_EQ(findings().size(), 0U) << run({}).run().output;
}

TEST_F(BrimtoolDoctor, TheWayToADirectoryCountsAndLinksAreFollowed) {
    std::filesystem::create_directories(root.path("open/real"));
    std::filesystem::permissions(root.path("open"), std::filesystem::perms::all);
    std::filesystem::create_symlink(root.path("open/real"), root.path("link"));
    variables["VANTA_INSTANCE"] = root.path("link");
    expectOne("error", "VANTA_INSTANCE", root.path("open") + " is a directory that everybody may write into");
    variables["LD_LIBRARY_PATH"] = root.path("open/real");
    expectOne("error", "VANTA_INSTANCE", root.path("open") + " is a directory"); // told once
    variables["VANTA_INSTANCE"] = root.path("instance");
    expectOne("error", "LD_LIBRARY_PATH", root.path("open") + " is a directory");
}

TEST_F(BrimtoolDoctor, ADirectoryOfSomebodyElseUnderTmpIsUnsafe) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can make one";
    }
    ASSERT_EQ(::chmod(root.path("domain").c_str(), 01777), 0);
    ASSERT_EQ(::chown(root.path("domain/servers").c_str(), kNobody, kNobody), 0);
    expectOne("error", "DOMAIN_HOME", root.path("domain/servers") + " belongs to ");
    ASSERT_EQ(::chmod(root.path("domain").c_str(), 0755), 0); // nobody else could have put it there
    EXPECT_EQ(findings().size(), 0U);
}

TEST_F(BrimtoolDoctor, ALocaleFileThatEverybodyMayWriteIsUnsafe) {
    std::filesystem::permissions(localeFile(), std::filesystem::perms(0666));
    expectOne("error", "VANTA_HX_HOME", localeFile() + " is a file that everybody may write");
}

TEST_F(BrimtoolDoctor, WhatThisUserMayNotReadOrWriteIsAnError) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    std::filesystem::permissions(root.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(root.path("v/hx/hxfoundation/server/bin"), std::filesystem::perms(0700));
    std::filesystem::permissions(root.path("domain/hxdata"), std::filesystem::perms(0755));
    std::filesystem::remove_all(root.path("domain/servers/c1/logs"));
    std::filesystem::permissions(localeFile(), std::filesystem::perms(0600));
    ToolRun tool = run();
    tool.setUp = [] {
        if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) {
            ::_exit(98);
        }
    };
    const ToolResult result = tool.run();
    if (result.exitCode == 97) {
        GTEST_SKIP() << "the tool lies where that user cannot reach it";
    }
    ASSERT_EQ(result.exitCode, 1) << result;
    const Json json = JsonReader::read(result.output);
    const std::vector<Json>& found = json.at("findings").items;
    expectAmong(found, "error", "VANTA_HX_HOME",
                "server programs directory " + root.path("v/hx/hxfoundation/server/bin") + " cannot be read");
    expectAmong(found, "error", "DOMAIN_HOME",
                "default data directory " + root.path("domain/hxdata") + " cannot be written");
    expectAmong(found, "error", "DOMAIN_HOME",
                "log directory " + root.path("domain/servers/c1/logs") +
                    " does not exist and cannot be made");
    expectAmong(found, "error", "VANTA_HX_HOME", "BrimLocale.xml cannot be read");
}

TEST_F(BrimtoolDoctor, ALocaleFileIsLookedAt) {
    writeFile(localeFile(), "<BrimLocale>\n<Locales></BrimLocale>");
    expectOne("error", "VANTA_HX_HOME", "BrimLocale.xml does not parse: line 2, column ");
    writeFile(localeFile(), "<BrimLocale><Locales><Lokale/></Locales></BrimLocale>");
    expectOne("warning", "VANTA_HX_HOME", "BrimLocale.xml has 1 problem");
    std::filesystem::remove(localeFile());
    expectOne("warning", "VANTA_HX_HOME", "BrimLocale.xml does not exist");
}
