// The component that a process is: its type, its name, and the directories that it gets.
#include "environment_test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

using brimtest::answers;
using brimtest::DirectoryOperation;
using brimtest::show;
using brimtest::SystemCalls;
using brimtest::Tree;
using brimtest::Variables;

namespace {

using WideString = sup::String<wchar_t>;

constexpr DirectoryOperation kType = SystemUtility::GetComponentType;
constexpr DirectoryOperation kName = SystemUtility::GetComponentName;

struct TypeRow {
    bool (*associate)();
    const char* type;
    const char* defaultName;
};

constexpr TypeRow kTypes[] = {
    {SUPEnvInit::KROS_TYPE, "KROS", "kros1"},
    {SUPEnvInit::KROPS_TYPE, "KROPS", "krops1"},
    {SUPEnvInit::CCS_TYPE, "KROCCS", "kroccs1"},
    {SUPEnvInit::KROSCH_TYPE, "KROSCH", "krosch1"},
    {SUPEnvInit::ODBC_COMP_TYPE, "ODBC", "kroodbc1"},
    {SUPEnvInit::SCHEDULER_CLIENT_TYPE, "KROSCHClient", "kroschclient1"},
    {SUPEnvInit::CCS_CLIENT_TYPE, "KROCCSClient", "kroccsclient1"},
    {SUPEnvInit::SYNC_TYPE, "KRODIS", "krodis1"},
};

void showComponentType() {
    const char* const value = std::getenv("COMPONENT_TYPE");
    std::printf("COMPONENT_TYPE %s\n", value == nullptr ? "(absent)" : value);
}

TEST(ComponentNames, GiveWhatTheyWereMadeFrom) {
    const ComponentNames names(L"TYPE", L"Instance");
    EXPECT_EQ(names.GetComponentType(), WideString(L"TYPE"));
    EXPECT_EQ(names.GetDefaultInstanceName(), WideString(L"Instance"));
}

TEST(Association, EachTypeHasItsNames) {
    for (const TypeRow& row : kTypes) {
        SCOPED_TRACE(row.type);
        const Tree tree;
        const std::string type = row.type;
        const std::string name = row.defaultName;
        EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T/d"}},
                          [&row] {
                              show(SUPEnvInit::getComponentNamesSet());
                              show(SUPEnvInit::getComponentType());
                              show(kType);
                              show(row.associate());
                              show(SUPEnvInit::getComponentNamesSet());
                              show(SUPEnvInit::getComponentType());
                              show(SUPEnvInit::getDefaultComponentName());
                              show(kType);
                              show(kName);
                              show(SystemUtility::GetConfigDirectory);
                              show(SystemUtility::GetComponentDirectory);
                              showComponentType();
                          }),
                  tree.expand("false\n\nfalse default\n"
                              "true\ntrue\n" +
                              type + "\n" + name + "\ntrue " + type + "\nfalse " + name +
                              "\ntrue $T/d/config/plxconfig/hxconfig/" + type + "\nfalse $T/d/servers/" +
                              name + "\nCOMPONENT_TYPE " + type + "\n"));
    }
}

TEST(Association, TheFirstOneWins) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T"}},
                      [] {
                          show(SUPEnvInit::KROS_TYPE());
                          show(SUPEnvInit::KROPS_TYPE());
                          show(kType);
                          show(kName);
                          showComponentType();
                      }),
              "true\ntrue\ntrue KROS\nfalse kros1\nCOMPONENT_TYPE KROS\n");
}

TEST(Association, ALaterOneStillSetsAnAbsentVariable) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T"}},
                      [] {
                          SUPEnvInit::KROS_TYPE();
                          ::unsetenv("COMPONENT_TYPE");
                          SUPEnvInit::KROPS_TYPE();
                          showComponentType();
                          show(kType);
                      }),
              "COMPONENT_TYPE KROPS\ntrue KROS\n");
}

TEST(Association, AVariableThatIsSetIsTheType) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T"}, {"COMPONENT_TYPE", "Mine"}},
                      [] {
                          SUPEnvInit::KROS_TYPE();
                          showComponentType();
                          show(kType);
                          show(kName);
                      }),
              "COMPONENT_TYPE Mine\ntrue Mine\nfalse kros1\n");
    EXPECT_TRUE(tree.hasDirectory("config/plxconfig/hxconfig/Mine"));
}

TEST(Association, AnEmptyVariableStaysAndDoesNotNameTheType) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T"}, {"COMPONENT_TYPE", ""}},
                      [] {
                          SUPEnvInit::KROS_TYPE();
                          showComponentType();
                          show(kType);
                      }),
              "COMPONENT_TYPE \ntrue KROS\n");
}

TEST(Association, DefaultNamesAreLowerCase) {
    const Tree tree;
    const auto defaultName = [&tree](const ComponentNames& names) {
        return answers(tree, {{"DOMAIN_HOME", "$T"}}, [&names] {
            show(SUPEnvInit::AssociateCompType(names));
            show(SUPEnvInit::getDefaultComponentName());
            show(kType);
        });
    };
    EXPECT_EQ(defaultName({L"TyPe", L"MyInstance7"}), "true\nmyinstance7\ntrue TyPe\n");
    EXPECT_EQ(defaultName({L"TyPe", L""}), "true\ncore_type1\ntrue TyPe\n");
    EXPECT_EQ(defaultName({L"", L""}), "true\ncore_1\ntrue \n");
}

TEST(Association, ANameFromTheEnvironmentComesFirst) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T"}, {"COMPONENT_NAME", "Name"}},
                      [] {
                          SUPEnvInit::KROS_TYPE();
                          show(kName);
                          show(SystemUtility::GetUniqueIdentifier);
                          show(SystemUtility::GetLogDirectory);
                      }),
              tree.expand("true Name\ntrue Name\ntrue $T/servers/Name/logs\n"));
}

// ---- The directories --------------------------------------------------------------------------------------

TEST(Association, CreatesTheDirectoriesInOrder) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T/d"}, {"COMPONENT_NAME", "c1"}},
                      [] {
                          SystemCalls::printDirectories = true;
                          SUPEnvInit::KROS_TYPE();
                      }),
              tree.expand("mkdir $T/d\nmkdir $T/d/servers\nmkdir $T/d/servers/c1\n"
                          "mkdir $T/d/servers/c1/tmp\n"
                          "mkdir $T/d/config\nmkdir $T/d/config/plxconfig\n"
                          "mkdir $T/d/config/plxconfig/hxconfig\nmkdir $T/d/config/plxconfig/hxconfig/KROS\n"
                          "mkdir $T/d/servers/c1/logs\n"
                          "mkdir $T/d/config/plxconfig/hxconfig/core\n"));
    EXPECT_EQ(tree.listing(), "d\nd/config\nd/config/plxconfig\nd/config/plxconfig/hxconfig\n"
                              "d/config/plxconfig/hxconfig/KROS\nd/config/plxconfig/hxconfig/core\n"
                              "d/servers\nd/servers/c1\nd/servers/c1/logs\nd/servers/c1/tmp\n");
}

TEST(Association, LeavesDirectoriesThatAreThere) {
    const Tree tree;
    for (const char* const directory : {"servers/kros1/tmp", "servers/kros1/logs",
                                        "config/plxconfig/hxconfig/KROS", "config/plxconfig/hxconfig/core"}) {
        tree.addDirectory(directory);
    }
    tree.addFile("servers/kros1/logs/kept");
    const std::string before = tree.listing();
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T"}},
                      [] {
                          SystemCalls::printDirectories = true;
                          SUPEnvInit::KROS_TYPE();
                      }),
              "");
    EXPECT_EQ(tree.listing(), before);
}

TEST(Association, CreatesThemWhereTheVariablesSay) {
    const Tree tree;
    tree.addDirectory("base");
    EXPECT_EQ(answers(tree,
                      {{"DOMAIN_HOME", "$T/d"},
                       {"VANTA_HX_CONFIG_DIR", "$T/conf"},
                       {"VANTA_HX_TEMP_BASE_DIR", "$T/base"}},
                      [] { SUPEnvInit::KROS_TYPE(); }),
              "");
    EXPECT_EQ(tree.listing(), "base\nbase/kros1\nbase/kros1/tmp\nconf\nconf/KROS\nconf/core\nd\nd/servers\n"
                              "d/servers/kros1\nd/servers/kros1/logs\n");
}

TEST(Association, ATemporaryDirectoryWithoutABaseIsNotMade) {
    const Tree tree;
    answers(tree, {{"DOMAIN_HOME", "$T"}, {"VANTA_HX_TEMP_BASE_DIR", "$T/missing"}},
            [] { SUPEnvInit::KROS_TYPE(); });
    EXPECT_TRUE(tree.hasDirectory("servers/kros1/logs"));
    EXPECT_FALSE(tree.hasDirectory("missing"));
    EXPECT_FALSE(tree.hasDirectory("servers/kros1/tmp"));
}

TEST(Association, NothingIsMadeOfAConfigurationThatFailed) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"TMP", "$T"}},
                      [] {
                          SystemCalls::printDirectories = true;
                          SUPEnvInit::KROS_TYPE();
                          show(SystemUtility::GetHXAppGroupDirectory);
                      }),
              tree.expand("mkdir $T/servers\nmkdir $T/servers/kros1\nmkdir $T/servers/kros1/tmp\n"
                          "mkdir $T/servers/kros1/logs\nfalse /core\n"));
    EXPECT_FALSE(std::filesystem::exists("/core"));
    EXPECT_FALSE(std::filesystem::exists("/KROS"));
}

TEST(Association, FailuresToMakeDirectoriesAreNotReported) {
    const Tree tree;
    tree.addFile("d");
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T/d"}},
                      [] {
                          show(SUPEnvInit::KROS_TYPE());
                          show(kType);
                      }),
              "true\ntrue KROS\n");
    EXPECT_EQ(tree.listing(), "d\n");
}

TEST(Association, ASecondOneMakesNoDirectories) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T"}},
                      [&tree] {
                          SUPEnvInit::KROS_TYPE();
                          std::filesystem::remove_all(tree.root() + "/servers");
                          SystemCalls::printDirectories = true;
                          SUPEnvInit::KROS_TYPE();
                          SUPEnvInit::KROPS_TYPE();
                      }),
              "");
}

// ---- ODBC -------------------------------------------------------------------------------------------------

TEST(Association, ForOdbcAMissingDomainCountsAsNoFailure) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"TMP", "$T"}, {"COMPONENT_NAME", "c1"}},
                      [] {
                          show(SUPEnvInit::ODBC_COMP_TYPE());
                          show(SystemUtility::GetDomainHomeDirectory);
                          show(SystemUtility::GetComponentDirectory);
                          show(SystemUtility::GetVantaHXConfigDir);
                      }),
              tree.expand("true\ntrue $T\ntrue $T/servers/c1\ntrue $T/config/plxconfig/hxconfig\n"));
    EXPECT_TRUE(tree.hasDirectory("config/plxconfig/hxconfig/ODBC")) << "its configuration has not failed";
}

TEST(Association, ForOtherTypesItDoes) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"TMP", "$T"}},
                      [] {
                          SUPEnvInit::KROS_TYPE();
                          show(SystemUtility::GetDomainHomeDirectory);
                      }),
              tree.expand("false $T\n"));
}

TEST(Association, ForOdbcTheDomainCountsEvenWhenItIsNotTheFirst) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"TMP", "$T"}},
                      [] {
                          SUPEnvInit::KROS_TYPE();
                          SUPEnvInit::ODBC_COMP_TYPE();
                          show(kType);
                          show(SystemUtility::GetDomainHomeDirectory);
                      }),
              tree.expand("true KROS\ntrue $T\n"));
}

// ---- Names ------------------------------------------------------------------------------------------------

using LogFileName = void (*)(WideString& name);

WideString logFile(LogFileName operation) {
    WideString name(L"left from before");
    operation(name);
    return name;
}

void showLogFiles() {
    show(logFile(SystemUtility::GetServerLogFileName));
    show(logFile(SystemUtility::GetQueryLogFileName));
    show(logFile(SystemUtility::GetClusterLogFileName));
}

TEST(ComponentNames, LogFilesAreNamedForTheComponent) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"COMPONENT_NAME", "c1"}}, [] { showLogFiles(); }),
              "c1-diagnostic.log\nc1-query.log\nc1-diagnostic.log\n");
    EXPECT_EQ(answers(tree, {}, [] { showLogFiles(); }), "-diagnostic.log\n-query.log\n-diagnostic.log\n");
    EXPECT_EQ(answers(tree, {{"TMP", "$T"}},
                      [] {
                          SUPEnvInit::KROS_TYPE();
                          showLogFiles();
                      }),
              "kros1-diagnostic.log\nkros1-query.log\nkros1-diagnostic.log\n");
}

TEST(ComponentNames, TheClusterLogIsTheServerLog) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"COMPONENT_NAME", "c1"}},
                      [] {
                          show(logFile(SystemUtility::GetServerLogFileName) ==
                               logFile(SystemUtility::GetClusterLogFileName));
                      }),
              "true\n");
}

TEST(ComponentNames, InstanceGroupAndIdentifier) {
    const Tree tree;
    const auto showNames = [] {
        show(SystemUtility::GetInstanceName);
        show(SystemUtility::GetHXApplicationGroup);
        show(SystemUtility::GetUniqueIdentifier);
    };
    EXPECT_EQ(answers(tree, {}, showNames), "false instance1\ntrue core\ntrue \n");
    EXPECT_EQ(answers(tree, {{"INSTANCE_NAME", "i7"}, {"COMPONENT_NAME", "c1"}}, showNames),
              "true i7\ntrue core\ntrue c1\n");
    EXPECT_EQ(answers(tree, {{"INSTANCE_NAME", ""}}, showNames), "true \ntrue core\ntrue \n");
}

// ---- Threads ----------------------------------------------------------------------------------------------

TEST(Association, ThreadsThatRaceAgree) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", "$T"}, {"COMPONENT_TYPE", "KROS"}, {"COMPONENT_NAME", "c1"}},
                      [] {
                          std::vector<std::thread> threads;
                          for (int i = 0; i < 4; ++i) {
                              threads.emplace_back([] {
                                  WideString text;
                                  SystemUtility::GetComponentDirectory(text);
                                  SystemUtility::GetVantaHXHomeDirectory(text);
                                  SystemUtility::GetComponentType(text);
                                  SUPEnvInit::KROS_TYPE();
                                  SystemUtility::GetComponentType(text);
                                  if (!(text == WideString(L"KROS"))) {
                                      ::_exit(1);
                                  }
                                  SystemUtility::GetErrorMessageLang(text);
                                  SystemUtility::IsLegacyInstanceMode();
                                  SystemUtility::AreWeHaloManagedComponent();
                              });
                          }
                          for (std::thread& thread : threads) {
                              thread.join();
                          }
                          show(kType);
                          show(SystemUtility::GetComponentDirectory);
                      }),
              tree.expand("true KROS\ntrue $T/servers/c1\n"));
}

} // namespace
