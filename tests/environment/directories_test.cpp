// The directory layout: each variable, default, derivation and result, and what is kept for the process.
#include "environment_test_support.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "child_process.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using brimtest::answers;
using brimtest::DirectoryOperation;
using brimtest::setVariable;
using brimtest::show;
using brimtest::Tree;
using brimtest::Variables;

namespace {

using String = sup::String<wchar_t>;

constexpr DirectoryOperation kHome = SystemUtility::GetVantaHXHomeDirectory;
constexpr DirectoryOperation kVantaHome = SystemUtility::GetVantaHomeDirectory;
constexpr DirectoryOperation kInstance = SystemUtility::GetVantaInstanceDirectory;
constexpr DirectoryOperation kDomain = SystemUtility::GetDomainHomeDirectory;
constexpr DirectoryOperation kBin = SystemUtility::GetServerBinDirectory;
constexpr DirectoryOperation kLocale = SystemUtility::GetServerLocaleDirectory;
constexpr DirectoryOperation kRoot = SystemUtility::GetRootDirectory;
constexpr DirectoryOperation kProgram = SystemUtility::GetProgramDirectory;
constexpr DirectoryOperation kTimeZone = SystemUtility::GetTimeZoneDirectory;
constexpr DirectoryOperation kServers = SystemUtility::GetDomainServersDirectory;
constexpr DirectoryOperation kEnvKroccs = SystemUtility::GetEnvKROCCSDirectory;
constexpr DirectoryOperation kEnvCore = SystemUtility::GetEnvCoreDirectory;
constexpr DirectoryOperation kData = SystemUtility::GetDefaultDataDirectory;
constexpr DirectoryOperation kHxConfig = SystemUtility::GetVantaHXConfigDir;
constexpr DirectoryOperation kConfigKroccs = SystemUtility::GetConfigKROCCSDirectory;
constexpr DirectoryOperation kShared = SystemUtility::GetSharedConfigDirectory;
constexpr DirectoryOperation kAppGroup = SystemUtility::GetHXAppGroupDirectory;
constexpr DirectoryOperation kConfig = SystemUtility::GetConfigDirectory;
constexpr DirectoryOperation kComponent = SystemUtility::GetComponentDirectory;
constexpr DirectoryOperation kLog = SystemUtility::GetLogDirectory;
constexpr DirectoryOperation kCache = SystemUtility::GetComponentCacheDirectory;
constexpr DirectoryOperation kTemp = SystemUtility::GetTempDirectory;

struct Row {
    const char* name;
    DirectoryOperation operation;
    Variables variables;
    std::vector<const char*> directories; // in the tree, whose name is "$T"
    const char* expected;
};

// The product's home, Vanta's home, the instance and the domain.
const std::vector<Row> kBaseRows = {
    {"home: nothing set", kHome, {}, {}, "false /vanta/home"},
    {"home: HX_PRODUCT_HOME", kHome, {{"HX_PRODUCT_HOME", "/p"}}, {}, "true /p"},
    {"home: HX_PRODUCT_HOME is cleaned", kHome, {{"HX_PRODUCT_HOME", "/p//q/"}}, {}, "true /p/q"},
    {"home: HX_PRODUCT_HOME comes first",
     kHome,
     {{"VANTA_HX_HOME", "/v"}, {"HX_PRODUCT_HOME", "/p"}},
     {},
     "true /p"},
    {"home: an empty HX_PRODUCT_HOME counts",
     kHome,
     {{"HX_PRODUCT_HOME", ""}, {"VANTA_HX_HOME", "/v"}},
     {},
     "true "},
    {"home: the root of the file system", kHome, {{"HX_PRODUCT_HOME", "/"}}, {}, "true "},
    {"home: VANTA_HX_HOME", kHome, {{"VANTA_HX_HOME", "/v//hx/"}}, {}, "true /v/hx"},
    {"home: VANTA_HX_HOME before VANTA_HOME",
     kHome,
     {{"VANTA_HX_HOME", "/v"}, {"VANTA_HOME", "$T/v"}},
     {"v/hx/hxfoundation/server/bin"},
     "true /v"},
    {"home: VANTA_HOME with the product",
     kHome,
     {{"VANTA_HOME", "$T/v"}},
     {"v/hx/hxfoundation/server/bin"},
     "true $T/v/hx"},
    {"home: VANTA_HOME is cleaned",
     kHome,
     {{"VANTA_HOME", "$T//v/"}},
     {"v/hx/hxfoundation/server/bin"},
     "true $T/v/hx"},
    {"home: VANTA_HOME without the product is given as it is",
     kHome,
     {{"VANTA_HOME", "$T//v/"}},
     {"v/hx/hxfoundation/server"},
     "false $T//v/"},
    {"home: VANTA_HOME with the product in the wrong place",
     kHome,
     {{"VANTA_HOME", "$T/v"}},
     {"v/hxfoundation/server/bin"},
     "false $T/v"},
    {"home: an empty VANTA_HOME", kHome, {{"VANTA_HOME", ""}}, {}, "false "},

    {"Vanta home: nothing set", kVantaHome, {}, {}, "false /vanta/home"},
    {"Vanta home: VANTA_HOME with the product",
     kVantaHome,
     {{"VANTA_HOME", "$T//v/"}},
     {"v/hxfoundation/server/bin"},
     "true $T/v"},
    {"Vanta home: VANTA_HOME without the product",
     kVantaHome,
     {{"VANTA_HOME", "$T/v"}},
     {"v/hx/hxfoundation/server/bin"},
     "false /vanta/home"},
    {"Vanta home: VANTA_HX_HOME does not count beside a wrong VANTA_HOME",
     kVantaHome,
     {{"VANTA_HOME", "$T/w"}, {"VANTA_HX_HOME", "$T/v/hx"}},
     {"v/hx", "w"},
     "false /vanta/home"},
    {"Vanta home: VANTA_HX_HOME", kVantaHome, {{"VANTA_HX_HOME", "$T/v/hx"}}, {"v"}, "true $T/v"},
    {"Vanta home: VANTA_HX_HOME with a trailing slash",
     kVantaHome,
     {{"VANTA_HX_HOME", "$T/v/hx/"}},
     {"v"},
     "true $T/v"},
    {"Vanta home: VANTA_HX_HOME is cleaned before and after",
     kVantaHome,
     {{"VANTA_HX_HOME", "$T/v///hx"}},
     {"v"},
     "true $T/v"},
    {"Vanta home: three characters go, whatever they are",
     kVantaHome,
     {{"VANTA_HX_HOME", "$T/vabc"}},
     {"v"},
     "true $T/v"},
    {"Vanta home: two characters stay", kVantaHome, {{"VANTA_HX_HOME", "hx"}}, {"hx"}, "true hx"},
    {"Vanta home: nothing is left", kVantaHome, {{"VANTA_HX_HOME", "/hx"}}, {}, "false /vanta/home"},
    {"Vanta home: VANTA_HX_HOME in no directory",
     kVantaHome,
     {{"VANTA_HX_HOME", "$T/v/hx"}},
     {},
     "false /vanta/home"},
    {"Vanta home: HX_PRODUCT_HOME does not count",
     kVantaHome,
     {{"HX_PRODUCT_HOME", "$T/v/hx"}},
     {"v/hx"},
     "false /vanta/home"},

    {"instance: nothing set", kInstance, {}, {}, "false /tmp/vanta/instance"},
    {"instance: VANTA_INSTANCE", kInstance, {{"VANTA_INSTANCE", "/i//j/"}}, {}, "true /i/j"},
    {"instance: an empty one counts", kInstance, {{"VANTA_INSTANCE", ""}, {"TMP", "/t"}}, {}, "true "},
    {"instance: TMP",
     kInstance,
     {{"TEMPDIR", "/3"}, {"TEMP", "/2"}, {"TMP", "/1/"}},
     {},
     "false /1/vanta/instance"},
    {"instance: TEMP", kInstance, {{"TEMPDIR", "/3"}, {"TEMP", "/2"}}, {}, "false /2/vanta/instance"},
    {"instance: TEMPDIR", kInstance, {{"TEMPDIR", "/3"}}, {}, "false /3/vanta/instance"},
    {"instance: TMPDIR does not count", kInstance, {{"TMPDIR", "/4"}}, {}, "false /tmp/vanta/instance"},
    {"instance: an empty TMP counts", kInstance, {{"TMP", ""}, {"TEMP", "/2"}}, {}, "false /vanta/instance"},

    {"domain: nothing set", kDomain, {}, {}, "false /tmp"},
    {"domain: DOMAIN_HOME", kDomain, {{"DOMAIN_HOME", "/d//e/"}, {"TMP", "/1"}}, {}, "true /d/e"},
    {"domain: an empty one counts", kDomain, {{"DOMAIN_HOME", ""}, {"TMP", "/1"}}, {}, "true "},
    {"domain: TMP", kDomain, {{"TEMPDIR", "/3"}, {"TEMP", "/2"}, {"TMP", "/1//t/"}}, {}, "false /1/t"},
    {"domain: TEMP", kDomain, {{"TEMPDIR", "/3"}, {"TEMP", "/2"}}, {}, "false /2"},
    {"domain: TEMPDIR", kDomain, {{"TEMPDIR", "/3"}}, {}, "false /3"},
    {"domain: an empty TMP counts", kDomain, {{"TMP", ""}, {"TEMP", "/2"}}, {}, "false "},
};

// What lies under the product's home.
const std::vector<Row> kHomeRows = {
    {"bin: nothing set", kBin, {}, {}, "true /vanta/home/hxfoundation/server/bin"},
    {"bin", kBin, {{"HX_PRODUCT_HOME", "/p/"}}, {}, "true /p/hxfoundation/server/bin"},
    {"bin: an empty home", kBin, {{"HX_PRODUCT_HOME", ""}}, {}, "true /hxfoundation/server/bin"},
    {"bin: a home that is not cleaned",
     kBin,
     {{"VANTA_HOME", "$T//v/"}},
     {},
     "true $T/v/hxfoundation/server/bin"},
    {"locale: nothing set", kLocale, {}, {}, "true /vanta/home/hxfoundation/server/locale"},
    {"locale", kLocale, {{"VANTA_HX_HOME", "/p/"}}, {}, "true /p/hxfoundation/server/locale"},

    {"root: nothing set", kRoot, {}, {}, "false /vanta/home/hxfoundation"},
    {"root: VANTA_HX_ROOTDIR", kRoot, {{"VANTA_HX_ROOTDIR", "/r//s/"}}, {}, "true /r/s"},
    {"root: an empty one counts", kRoot, {{"VANTA_HX_ROOTDIR", ""}}, {}, "true "},
    {"root: a derived one is no real one", kRoot, {{"HX_PRODUCT_HOME", "/p"}}, {}, "false /p/hxfoundation"},

    {"program: nothing set", kProgram, {}, {}, "false /vanta/home/hxfoundation"},
    {"program: root/server", kProgram, {{"VANTA_HX_ROOTDIR", "$T/r"}}, {"r/server"}, "true $T/r/server"},
    {"program: no root/server", kProgram, {{"VANTA_HX_ROOTDIR", "$T/r"}}, {"r"}, "true $T/r"},
    {"program: a derived root",
     kProgram,
     {{"HX_PRODUCT_HOME", "$T/p"}},
     {"p/hxfoundation/server"},
     "false $T/p/hxfoundation/server"},

    {"time zone: nothing set", kTimeZone, {}, {}, "false /vanta/home/hxfoundation/timezone"},
    {"time zone: TIMEZONE_PATH", kTimeZone, {{"TIMEZONE_PATH", "/x"}}, {}, "true /x/timezone"},
    {"time zone: TIMEZONE_PATH is cleaned", kTimeZone, {{"TIMEZONE_PATH", "/x/"}}, {}, "true /x/timezone"},
    {"time zone: an empty one counts", kTimeZone, {{"TIMEZONE_PATH", ""}}, {}, "true /timezone"},
    {"time zone: a real root", kTimeZone, {{"VANTA_HX_ROOTDIR", "/r"}}, {}, "true /r/timezone"},
    {"time zone: a derived root",
     kTimeZone,
     {{"HX_PRODUCT_HOME", "/p"}},
     {},
     "false /p/hxfoundation/timezone"},
};

// What lies under the domain.
const std::vector<Row> kDomainRows = {
    {"servers", kServers, {{"DOMAIN_HOME", "/d/"}}, {}, "true /d/servers"},
    {"servers: a fallback", kServers, {}, {}, "false /tmp/servers"},
    {"environment of KROCCS",
     kEnvKroccs,
     {{"DOMAIN_HOME", "/d"}},
     {},
     "true /d/config/plxconfig/hxenv/KROCCS"},
    {"environment of KROCCS: a fallback",
     kEnvKroccs,
     {{"TMP", "/1"}},
     {},
     "false /1/config/plxconfig/hxenv/KROCCS"},
    {"environment of core", kEnvCore, {{"DOMAIN_HOME", "/d"}}, {}, "true /d/config/plxconfig/hxenv/core"},
    {"environment of core: a fallback", kEnvCore, {}, {}, "false /tmp/config/plxconfig/hxenv/core"},
    {"data", kData, {{"DOMAIN_HOME", "/d"}}, {}, "true /d/hxdata"},
    {"data: a fallback", kData, {}, {}, "false /tmp/hxdata"},

    {"configuration: nothing set", kHxConfig, {}, {}, "false "},
    {"configuration: VANTA_HX_CONFIG_DIR", kHxConfig, {{"VANTA_HX_CONFIG_DIR", "/c//f/"}}, {}, "true /c/f"},
    {"configuration: VANTA_HX_CONFIG_DIR before the domain",
     kHxConfig,
     {{"VANTA_HX_CONFIG_DIR", "/c"}, {"DOMAIN_HOME", "/d"}},
     {},
     "true /c"},
    {"configuration: an empty one does not count",
     kHxConfig,
     {{"VANTA_HX_CONFIG_DIR", ""}, {"DOMAIN_HOME", "/d/"}},
     {},
     "true /d/config/plxconfig/hxconfig"},
    {"configuration: of an empty domain",
     kHxConfig,
     {{"DOMAIN_HOME", "/"}},
     {},
     "true /config/plxconfig/hxconfig"},
    {"configuration: none under a fallback", kHxConfig, {{"TMP", "/1"}}, {}, "false "},

    {"configuration of KROCCS", kConfigKroccs, {{"VANTA_HX_CONFIG_DIR", "/c"}}, {}, "true /c/KROCCS"},
    {"configuration of KROCCS: none", kConfigKroccs, {}, {}, "false /KROCCS"},
    {"shared configuration", kShared, {{"VANTA_HX_CONFIG_DIR", "/c"}}, {}, "true /c/core"},
    {"shared configuration: of the domain",
     kShared,
     {{"DOMAIN_HOME", "/d"}},
     {},
     "true /d/config/plxconfig/hxconfig/core"},
    {"shared configuration: none", kShared, {}, {}, "false /core"},
    {"application group", kAppGroup, {{"VANTA_HX_CONFIG_DIR", "/c"}}, {}, "true /c/core"},
    {"application group: none", kAppGroup, {}, {}, "false /core"},

    {"configuration of the component", kConfig, {{"VANTA_HX_CONFIG_DIR", "/c"}}, {}, "true /c/default"},
    {"configuration of the component: of the domain",
     kConfig,
     {{"DOMAIN_HOME", "/d"}},
     {},
     "true /d/config/plxconfig/hxconfig/default"},
    {"configuration of the component: none", kConfig, {}, {}, "false "},
    {"configuration of the component: an empty one", kConfig, {{"VANTA_HX_CONFIG_DIR", "/"}}, {}, "false "},

    {"component", kComponent, {{"DOMAIN_HOME", "/d"}, {"COMPONENT_NAME", "c1"}}, {}, "true /d/servers/c1"},
    {"component: without a name", kComponent, {{"DOMAIN_HOME", "/d"}}, {}, "false /d/servers"},
    {"component: an empty name is a real one",
     kComponent,
     {{"DOMAIN_HOME", "/d"}, {"COMPONENT_NAME", ""}},
     {},
     "true /d/servers"},
    {"component: without a domain", kComponent, {{"COMPONENT_NAME", "c1"}}, {}, "false /tmp/servers/c1"},
    {"component: without either", kComponent, {{"TMP", "/1"}}, {}, "false /1/servers"},
    {"log", kLog, {{"DOMAIN_HOME", "/d"}, {"COMPONENT_NAME", "c1"}}, {}, "true /d/servers/c1/logs"},
    {"log: without a name", kLog, {{"DOMAIN_HOME", "/d"}}, {}, "false /d/servers/logs"},
    {"log: without a domain", kLog, {{"COMPONENT_NAME", "c1"}}, {}, "false /tmp/servers/c1/logs"},
    {"log: cleaned as a whole, and the domain before",
     kLog,
     {{"DOMAIN_HOME", "/d/////e"}, {"COMPONENT_NAME", "c1"}},
     {},
     "true /d//e/servers/c1/logs"},
};

// The component's working directories.
const std::vector<Row> kWorkRows = {
    {"cache: nothing set", kCache, {}, {}, "true /tmp/servers/cache"},
    {"cache: VANTA_HX_CACHEDIR",
     kCache,
     {{"VANTA_HX_CACHEDIR", "/c//d/"}, {"VANTA_HX_CACHE_BASE_DIR", "$T"}},
     {},
     "true /c/d"},
    {"cache: an empty one counts",
     kCache,
     {{"VANTA_HX_CACHEDIR", ""}, {"VANTA_HX_CACHE_BASE_DIR", "$T"}},
     {},
     "true "},
    {"cache: VANTA_HX_CACHE_BASE_DIR",
     kCache,
     {{"VANTA_HX_CACHE_BASE_DIR", "$T//b/"}, {"COMPONENT_NAME", "c1"}},
     {"b"},
     "true $T/b/c1/cache"},
    {"cache: VANTA_HX_CACHE_BASE_DIR without a component name",
     kCache,
     {{"VANTA_HX_CACHE_BASE_DIR", "$T/b"}},
     {"b"},
     "true $T/b/cache"},
    {"cache: VANTA_HX_CACHE_BASE_DIR is no directory",
     kCache,
     {{"VANTA_HX_CACHE_BASE_DIR", "$T/b"}, {"COMPONENT_NAME", "c1"}, {"DOMAIN_HOME", "/d"}},
     {},
     "false "},
    {"cache: an empty VANTA_HX_CACHE_BASE_DIR is no directory",
     kCache,
     {{"VANTA_HX_CACHE_BASE_DIR", ""}, {"DOMAIN_HOME", "/d"}},
     {},
     "false "},
    {"cache: of the component",
     kCache,
     {{"DOMAIN_HOME", "/d"}, {"COMPONENT_NAME", "c1"}},
     {},
     "true /d/servers/c1/cache"},
    {"cache: of the component by fallbacks is real", kCache, {{"TMP", "/1"}}, {}, "true /1/servers/cache"},
    {"cache: the temporary directory's variables do not count",
     kCache,
     {{"VANTA_HX_TEMPDIR", "/t"}, {"VANTA_HX_TEMP_BASE_DIR", "$T"}, {"DOMAIN_HOME", "/d"}},
     {},
     "true /d/servers/cache"},

    {"temp: nothing set", kTemp, {}, {}, "true /tmp/servers/tmp"},
    {"temp: VANTA_HX_TEMPDIR",
     kTemp,
     {{"VANTA_HX_TEMPDIR", "/c//d/"}, {"VANTA_HX_TEMP_BASE_DIR", "$T"}},
     {},
     "true /c/d"},
    {"temp: VANTA_HX_TEMP_BASE_DIR",
     kTemp,
     {{"VANTA_HX_TEMP_BASE_DIR", "$T//b/"}, {"COMPONENT_NAME", "c1"}},
     {"b"},
     "true $T/b/c1/tmp"},
    {"temp: VANTA_HX_TEMP_BASE_DIR is no directory",
     kTemp,
     {{"VANTA_HX_TEMP_BASE_DIR", "$T/b"}, {"COMPONENT_NAME", "c1"}, {"DOMAIN_HOME", "/d"}},
     {},
     "false "},
    {"temp: of the component",
     kTemp,
     {{"DOMAIN_HOME", "/d"}, {"COMPONENT_NAME", "c1"}},
     {},
     "true /d/servers/c1/tmp"},
    {"temp: the cache's variables do not count",
     kTemp,
     {{"VANTA_HX_CACHEDIR", "/t"}, {"VANTA_HX_CACHE_BASE_DIR", "$T"}, {"DOMAIN_HOME", "/d"}},
     {},
     "true /d/servers/tmp"},
};

void runRows(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Tree tree;
        for (const char* const directory : row.directories) {
            tree.addDirectory(directory);
        }
        const std::string before = tree.listing();
        EXPECT_EQ(answers(tree, row.variables, [&row] { show(row.operation); }),
                  tree.expand(row.expected) + "\n");
        EXPECT_EQ(tree.listing(), before) << "nothing is created";
    }
}

TEST(Directories, BasesFollowTheTable) { runRows(kBaseRows); }
TEST(Directories, UnderTheHomeFollowTheTable) { runRows(kHomeRows); }
TEST(Directories, UnderTheDomainFollowTheTable) { runRows(kDomainRows); }
TEST(Directories, ForWorkFollowTheTable) { runRows(kWorkRows); }

TEST(Directories, AFileIsNoDirectory) {
    const Tree tree;
    tree.addFile("v/hx/hxfoundation/server/bin");
    tree.addFile("w/hxfoundation/server/bin");
    tree.addFile("r/server");
    tree.addFile("base");
    EXPECT_EQ(answers(tree, {{"VANTA_HOME", "$T/v"}}, [] { show(kHome); }), tree.expand("false $T/v\n"));
    EXPECT_EQ(answers(tree, {{"VANTA_HOME", "$T/w"}}, [] { show(kVantaHome); }), "false /vanta/home\n");
    EXPECT_EQ(answers(tree, {{"VANTA_HX_HOME", "$T/base/hx"}}, [] { show(kVantaHome); }),
              "false /vanta/home\n");
    EXPECT_EQ(answers(tree, {{"VANTA_HX_ROOTDIR", "$T/r"}}, [] { show(kProgram); }),
              tree.expand("true $T/r\n"));
    EXPECT_EQ(answers(tree, {{"VANTA_HX_CACHE_BASE_DIR", "$T/base"}}, [] { show(kCache); }), "false \n");
    EXPECT_EQ(answers(tree, {{"VANTA_HX_TEMP_BASE_DIR", "$T/base"}}, [] { show(kTemp); }), "false \n");
}

TEST(Directories, LeaveTheWorkingDirectoryAlone) {
    const Tree tree;
    tree.addDirectory("r/server");
    tree.addDirectory("sub");
    EXPECT_EQ(answers(tree, {{"VANTA_HX_ROOTDIR", "r"}, {"VANTA_HX_TEMP_BASE_DIR", "sub"}},
                      [] {
                          show(kProgram);
                          show(kTemp);
                          show(SystemUtility::GetCurrentWorkingDirectory);
                      }),
              tree.expand("true r/server\ntrue sub/tmp\ntrue $T\n"));
}

TEST(Directories, KeepCharactersOutsideAscii) {
    const Tree tree;
    tree.addDirectory("\xC3\xA4/\xE6\xBC\xA2/\xF0\x9F\x98\x80/server");
    EXPECT_EQ(answers(tree, {{"VANTA_HX_ROOTDIR", "$T/\xC3\xA4/\xE6\xBC\xA2/\xF0\x9F\x98\x80"}},
                      [] { show(kProgram); }),
              tree.expand("true $T/\xC3\xA4/\xE6\xBC\xA2/\xF0\x9F\x98\x80/server\n"));
}

// ---- What is kept for the process -------------------------------------------------------------------------

// Asks, changes the variable, removes it, and asks each time.
std::string askedAgain(DirectoryOperation operation, const char* variable, const std::string& value) {
    const Tree tree;
    return answers(tree, {{variable, value}}, [&] {
        show(operation);
        ::setenv(variable, "/other", 1);
        show(operation);
        ::unsetenv(variable);
        show(operation);
    });
}

const brimtest::FreshProcess kReadsItsHomeInItsOwnLocale("ReadsItsHomeInItsOwnLocale", [] {
    std::setlocale(LC_ALL, "C.UTF-8");
    String path;
    SystemUtility::GetVantaHXHomeDirectory(path);
    std::puts(path == String(L"/tmp/gr\u00F6\u00DFe") ? "whole" : "broken");
});

// Loading the library reads the home too, when the process is still in the locale "C".
TEST(DirectoryCaches, LoadingFillsNone) {
    const brimtest::ChildResult child =
        kReadsItsHomeInItsOwnLocale.run({{"HX_PRODUCT_HOME", "/tmp/gr\xC3\xB6\xC3\x9F"
                                                             "e"}});
    EXPECT_EQ(child.output, "whole\n") << child;
}

TEST(DirectoryCaches, KeepTheFirstValue) {
    EXPECT_EQ(askedAgain(kHome, "HX_PRODUCT_HOME", "/p/"), "true /p\ntrue /p\ntrue /p\n");
    EXPECT_EQ(askedAgain(kHome, "VANTA_HX_HOME", "/v/"), "true /v\ntrue /v\ntrue /v\n");
    EXPECT_EQ(askedAgain(kDomain, "DOMAIN_HOME", "/d/"), "true /d\ntrue /d\ntrue /d\n");
    EXPECT_EQ(askedAgain(kInstance, "VANTA_INSTANCE", "/i"), "true /i\ntrue /i\ntrue /i\n");
    EXPECT_EQ(askedAgain(SystemUtility::GetComponentName, "COMPONENT_NAME", "c1"),
              "true c1\ntrue c1\ntrue c1\n");
}

TEST(DirectoryCaches, KeepAnEmptyValue) {
    EXPECT_EQ(askedAgain(kHome, "HX_PRODUCT_HOME", ""), "true \ntrue \ntrue \n");
    EXPECT_EQ(askedAgain(kDomain, "DOMAIN_HOME", "/"), "true \ntrue \ntrue \n");
    EXPECT_EQ(askedAgain(kInstance, "VANTA_INSTANCE", ""), "true \ntrue \ntrue \n");
    EXPECT_EQ(askedAgain(SystemUtility::GetComponentName, "COMPONENT_NAME", ""), "true \ntrue \ntrue \n");
}

TEST(DirectoryCaches, TheHomeUnderVantaHomeIsKept) {
    const Tree tree;
    tree.addDirectory("v/hx/hxfoundation/server/bin");
    EXPECT_EQ(answers(tree, {{"VANTA_HOME", "$T/v"}},
                      [] {
                          show(kHome);
                          ::setenv("HX_PRODUCT_HOME", "/p", 1);
                          show(kHome);
                      }),
              tree.expand("true $T/v/hx\ntrue $T/v/hx\n"));
}

TEST(DirectoryCaches, TheInstanceIsKeptAsItWasRead) {
    EXPECT_EQ(askedAgain(kInstance, "VANTA_INSTANCE", "/i//j/"), "true /i/j\ntrue /i//j/\ntrue /i//j/\n");
}

TEST(DirectoryCaches, FallbacksAreNotKept) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"VANTA_HOME", "/nowhere"}, {"TMP", "/1"}},
                      [] {
                          for (const DirectoryOperation operation :
                               {kHome, kInstance, DirectoryOperation{SystemUtility::GetComponentName}}) {
                              show(operation);
                          }
                          ::setenv("VANTA_HX_HOME", "/v", 1);
                          ::setenv("VANTA_INSTANCE", "/i", 1);
                          ::setenv("COMPONENT_NAME", "c1", 1);
                          show(kHome);
                          show(kInstance);
                          show(SystemUtility::GetComponentName);
                      }),
              "false /nowhere\nfalse /1/vanta/instance\nfalse \ntrue /v\ntrue /i\ntrue c1\n");
}

TEST(DirectoryCaches, TheDomainsFallbackIsKept) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"TMP", "/1/"}},
                      [] {
                          show(kDomain);
                          ::setenv("TMP", "/2", 1);
                          ::setenv("DOMAIN_HOME", "/d", 1);
                          show(kDomain);
                          show(kData);
                          show(kHxConfig);
                      }),
              "false /1\nfalse /1\nfalse /1/hxdata\nfalse \n");
}

TEST(DirectoryCaches, VantaHomeAndTheRestAreReadEachTime) {
    const Tree tree;
    tree.addDirectory("1/hxfoundation/server/bin");
    tree.addDirectory("2/hxfoundation/server/bin");
    EXPECT_EQ(answers(tree, {},
                      [&tree] {
                          for (const char* const value : {"1", "2"}) {
                              for (const char* const variable :
                                   {"VANTA_HOME", "VANTA_HX_ROOTDIR", "TIMEZONE_PATH", "VANTA_HX_CONFIG_DIR",
                                    "VANTA_HX_CACHEDIR", "VANTA_HX_TEMPDIR", "INSTANCE_NAME"}) {
                                  setVariable(variable, tree.expand("$T/") + value);
                              }
                              for (const DirectoryOperation operation :
                                   {kVantaHome, kRoot, kTimeZone, kHxConfig, kCache, kTemp,
                                    DirectoryOperation{SystemUtility::GetInstanceName}}) {
                                  show(operation);
                              }
                          }
                      }),
              tree.expand("true $T/1\ntrue $T/1\ntrue $T/1/timezone\ntrue $T/1\ntrue $T/1\ntrue $T/1\n"
                          "true $T/1\ntrue $T/2\ntrue $T/2\ntrue $T/2/timezone\ntrue $T/2\ntrue $T/2\n"
                          "true $T/2\ntrue $T/2\n"));
}

// A path of so many characters, all of which count.
std::string longPath(std::size_t length) {
    std::string path = "/";
    while (path.size() < length) {
        path += path.size() % 100 == 0 && path.size() + 1 < length
                    ? '/'
                    : static_cast<char>('a' + path.size() % 26);
    }
    return path;
}

struct CachedVariable {
    const char* variable;
    DirectoryOperation operation;
    const char* fallback; // after the variable is gone
};

const std::vector<CachedVariable> kCachedVariables = {
    {"HX_PRODUCT_HOME", kHome, "false /vanta/home"},
    {"VANTA_HX_HOME", kHome, "false /vanta/home"},
    {"DOMAIN_HOME", kDomain, "false /tmp"},
    {"VANTA_INSTANCE", kInstance, "false /tmp/vanta/instance"},
    {"COMPONENT_NAME", SystemUtility::GetComponentName, "false "},
};

TEST(DirectoryCaches, AValueThatDoesNotFitIsGivenWholeAndNotKept) {
    for (const CachedVariable& cached : kCachedVariables) {
        for (const std::size_t length : {2046U, 2047U, 2048U, 2049U, 10'000U}) {
            SCOPED_TRACE(testing::Message() << cached.variable << " of " << length << " characters");
            const std::string value = longPath(length);
            ASSERT_EQ(value.size(), length);
            const Tree tree;
            const std::string kept =
                length < 2048 ? "true " + value + "\n" : cached.fallback + std::string("\n");
            const std::string given = answers(tree, {{cached.variable, value}}, [&cached] {
                show(cached.operation);
                show(cached.operation);
                ::unsetenv(cached.variable);
                show(cached.operation);
            });
            // Whole texts of this length would hide a failure.
            EXPECT_TRUE(given == "true " + value + "\ntrue " + value + "\n" + kept)
                << given.size() << " characters, at last "
                << given.substr(given.rfind('\n', given.size() - 2));
        }
    }
}

TEST(DirectoryCaches, ALongValueThatCleaningShortensIsKept) {
    const std::string slashes = "/d" + std::string(2100, '/') + "e";
    const std::string cleaned = "/d" + std::string(1050, '/') + "e";
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"DOMAIN_HOME", slashes}},
                      [] {
                          show(kDomain);
                          ::unsetenv("DOMAIN_HOME");
                          show(kDomain);
                      }),
              "true " + cleaned + "\ntrue " + cleaned + "\n");
    // The instance is kept before it is cleaned.
    EXPECT_EQ(answers(tree, {{"VANTA_INSTANCE", slashes}},
                      [] {
                          show(kInstance);
                          ::unsetenv("VANTA_INSTANCE");
                          show(kInstance);
                      }),
              "true " + cleaned + "\nfalse /tmp/vanta/instance\n");
}

TEST(DirectoryCaches, ALongFallbackOfTheDomainIsNotKept) {
    const Tree tree;
    const std::string value = longPath(3000);
    EXPECT_EQ(answers(tree, {{"TMP", value}},
                      [] {
                          show(kDomain);
                          ::setenv("DOMAIN_HOME", "/d", 1);
                          show(kDomain);
                      }),
              "false " + value + "\ntrue /d\n");
}

// ---- CleanupPath ------------------------------------------------------------------------------------------

TEST(CleanupPath, JoinsPairsOfSlashesAndTakesOneOffTheEnd) {
    const struct {
        const wchar_t* path;
        const wchar_t* cleaned;
    } kRows[] = {
        {L"", L""},
        {L"/", L""},
        {L"//", L""},
        {L"///", L"/"},
        {L"////", L"/"},
        {L"/////", L"//"},
        {L"a", L"a"},
        {L"/a", L"/a"},
        {L"a/", L"a"},
        {L"a//", L"a"},
        {L"a///", L"a/"},
        {L"a//b/", L"a/b"},
        {L"a///b", L"a//b"},
        {L"a////b", L"a//b"},
        {L"a/////b", L"a///b"},
        {L"//a//b//c//", L"/a/b/c"},
        {L"/a/./../b/", L"/a/./../b"},
        {L"\\\\a\\", L"\\\\a\\"},
        {L" / ", L" / "},
        {L"\xD83D\xDE00//\x6F22/", L"\xD83D\xDE00/\x6F22"},
    };
    for (const auto& row : kRows) {
        sup::String<wchar_t> path(row.path);
        CleanupPath(path);
        EXPECT_EQ(std::wstring(path.c_str()), row.cleaned);
    }
}

TEST(CleanupPath, LeavesACopyAlone) {
    sup::String<wchar_t> path(L"/a//b/");
    const sup::String<wchar_t> copy(path);
    CleanupPath(path);
    EXPECT_EQ(std::wstring(copy.c_str()), L"/a//b/");
    EXPECT_EQ(std::wstring(path.c_str()), L"/a/b");
}

TEST(CleanupPath, TakesPathsOfAnyLength) {
    std::wstring path;
    std::wstring cleaned;
    for (int i = 0; i < 30'000; ++i) {
        path += L"//x";
        cleaned += L"/x";
    }
    sup::String<wchar_t> text(path.c_str());
    CleanupPath(text);
    EXPECT_EQ(std::wstring(text.c_str()), cleaned);
}

} // namespace
