// What loading the library makes of the locale file.
#include "SUPTranscodeIconv_UNIX.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPTranscode.h"
#include "child_process.h"
#include "xml_test_support.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

using brimtest::ChildResult;
using brimtest::EnvironmentChange;
using brimtest::FreshProcess;
using xmltest::TemporaryDirectory;

namespace {

constexpr const char* kPlace = "hxfoundation/server/locale/BrimLocale.xml";
constexpr const char* kBuiltIn = "C=(C,1252);";

const char kFile[] = "<r><Locales><Platform Name='LINUX'>"
                     "<Locale><QuayLocale>Deutsch</QuayLocale><SystemLocale>C.UTF-8</SystemLocale>"
                     "<SystemCodePage>65001</SystemCodePage></Locale>"
                     "<Locale><QuayLocale>Xish</QuayLocale><SystemLocale>xx_YY@z</SystemLocale>"
                     "<SystemCodePage>4711</SystemCodePage></Locale>"
                     "</Platform></Locales>"
                     "<SortLangs><SortLang Name='Deutsch'><SortId>1031</SortId></SortLang>"
                     "<SortLang Name='Xish'><SortId>5</SortId></SortLang></SortLangs></r>";

void printMaps() {
    for (const auto& entry : GetQuayLocale2SystemLocaleMap()) {
        std::printf("%s=(%s,%s);", entry.first.c_str(), entry.second.first.c_str(),
                    entry.second.second.c_str());
    }
    for (const auto& entry : GetSortLangMap()) {
        std::printf("%u=%s;", entry.first, entry.second.c_str());
    }
}

const FreshProcess kPrintsTheMaps("maps of the locale file", [] { printMaps(); });

ChildResult loadedFrom(const FreshProcess& process, const TemporaryDirectory& home,
                       std::vector<EnvironmentChange> changes = {}) {
    changes.insert(changes.begin(), {"HX_PRODUCT_HOME", home.path().c_str()});
    return process.run(changes);
}

std::string pathIn(const TemporaryDirectory& home) { return home.path() + "/" + kPlace; }

TEST(LoadTime, FillsTheMapsFromTheLocaleFile) {
    const TemporaryDirectory home;
    home.write(kPlace, kFile);
    const ChildResult result = loadedFrom(kPrintsTheMaps, home);
    EXPECT_EQ(result.atLoad, "");
    EXPECT_EQ(result.output,
              std::string(kBuiltIn) + "Deutsch=(C.UTF-8,65001);Xish=(xx_YY@z,4711);5=Xish;1031=Deutsch;");
}

const FreshProcess kNamesConverters("names of converters", [] {
    for (const int encoding : {4711, 4712, 932}) {
        const std::unique_ptr<sup::transcodeimpl::TranscoderImplBase> transcoder(
            sup::transcodeimpl::CreateIconvTranscoder(encoding));
        wchar_t unit[4] = L"";
        const bool isKanji = transcoder != nullptr &&
                             transcoder->multibyteToUnicode("\x93\xFA", 2, unit, 4, nullptr) == 1 &&
                             unit[0] == 0x65E5;
        std::printf("%d: %s\n", encoding, isKanji ? "kanji" : "no");
    }
});

TEST(LoadTime, NamesTheConvertersOfEncodings) {
    const TemporaryDirectory home;
    home.write(kPlace, "<r><IconvTranscode><Platform Name='LINUX'><QuayCode Name='4711'><IconvIdentifier>"
                       "SHIFT_JIS</IconvIdentifier></QuayCode></Platform></IconvTranscode></r>");
    EXPECT_EQ(loadedFrom(kNamesConverters, home).output, "4711: kanji\n"
                                                         "Encoding not supported error number -1, CP4712\n"
                                                         "4712: no\n"
                                                         "932: kanji\n");
}

TEST(LoadTime, LetsTheFileReplaceTheBuiltInEntry) {
    const TemporaryDirectory home;
    home.write(kPlace, "<r><Locales><Platform Name='UNIX'><Locale><QuayLocale>C</QuayLocale>"
                       "<SystemLocale>POSIX</SystemLocale><SystemCodePage>28591</SystemCodePage></Locale>"
                       "</Platform></Locales></r>");
    EXPECT_EQ(loadedFrom(kPrintsTheMaps, home).output, "C=(POSIX,28591);");
}

TEST(LoadTime, ReportsAMissingFileForEachMap) {
    const TemporaryDirectory home;
    const ChildResult result = loadedFrom(kPrintsTheMaps, home);
    EXPECT_EQ(result.atLoad,
              xmltest::repeated("Xml File Not Found error number -9, " + pathIn(home) + "\n", 2));
    EXPECT_EQ(result.output, kBuiltIn);
    EXPECT_EQ(result.exitCode(), 0);
}

TEST(LoadTime, ReportsAMalformedFileForEachMap) {
    const TemporaryDirectory home;
    home.write(kPlace, std::string(kFile) + "<more/>");
    const ChildResult result = loadedFrom(kPrintsTheMaps, home);
    const std::string report =
        xmltest::kParserFailure + ("Error at file " + pathIn(home)) + ", line 1, column ";
    EXPECT_EQ(result.atLoad.rfind(report, 0), 0U) << result.atLoad;
    const std::size_t second = result.atLoad.find('\n') + 1;
    EXPECT_EQ(result.atLoad.substr(second), result.atLoad.substr(0, second));
    EXPECT_EQ(result.output, kBuiltIn);
}

TEST(LoadTime, ReportsWhatTheParserThrows) {
    const TemporaryDirectory home;
    home.write(kPlace, "<!DOCTYPE r [<!ATTLIST r x: CDATA 'v'>]><r/>");
    const ChildResult result = loadedFrom(kPrintsTheMaps, home);
    EXPECT_EQ(result.atLoad.rfind(xmltest::kParserFailure, 0), 0U) << result.atLoad;
    EXPECT_EQ(result.output, kBuiltIn);
    EXPECT_EQ(result.exitCode(), 0);
}

TEST(LoadTime, SurvivesHostileFiles) {
    const std::string deep = xmltest::repeated("<a>", 100000);
    for (const std::string& document :
         {std::string(), std::string("\0\0\0\0", 4), deep, std::string("<r/>")}) {
        const TemporaryDirectory home;
        home.write(kPlace, document);
        const ChildResult result = loadedFrom(kPrintsTheMaps, home);
        EXPECT_EQ(result.output, kBuiltIn) << result.atLoad;
        EXPECT_EQ(result.exitCode(), 0);
        EXPECT_EQ(result.atLoad.empty(), document == "<r/>") << result.atLoad;
    }
}

TEST(LoadTime, TakesADirectoryInPlaceOfTheFileForMalformed) {
    const TemporaryDirectory home;
    std::filesystem::create_directories(pathIn(home));
    const ChildResult result = loadedFrom(kPrintsTheMaps, home);
    EXPECT_EQ(result.atLoad.rfind(xmltest::kParserFailure, 0), 0U) << result.atLoad;
    EXPECT_EQ(result.output, kBuiltIn);
}

TEST(LoadTime, FindsAHomeBeyondAsciiWhateverTheLocale) {
    const TemporaryDirectory directory;
    directory.write(std::string("gr\xc3\xb6\xc3\x9f"
                                "e-\xe4\xb8\xad-\xc3\x81-\xff/") +
                        kPlace,
                    kFile);
    const std::string home = directory.path() + "/gr\xc3\xb6\xc3\x9f"
                                                "e-\xe4\xb8\xad-\xc3\x81-\xff";
    for (const char* const locale : {"C", "C.UTF-8"}) {
        const ChildResult result =
            kPrintsTheMaps.run({{"HX_PRODUCT_HOME", home.c_str()}, {"LC_ALL", locale}});
        EXPECT_EQ(result.atLoad, "") << locale;
        EXPECT_NE(result.output.find("1031=Deutsch;"), std::string::npos) << locale;
    }
}

const FreshProcess kFindsItsCodePage("code page after loading", [] {
    std::printf("%d ", SystemUtility::GetCodePageFromString(L"ANSI"));
    std::setlocale(LC_CTYPE, "C.UTF-8");
    std::printf("%u", SystemUtility::GetACP());
});

TEST(LoadTime, LeavesTheCodePageToTheHost) {
    const TemporaryDirectory home;
    home.write(kPlace, kFile);
    EXPECT_EQ(loadedFrom(kFindsItsCodePage, home).output, "0 65001");
}

const FreshProcess kLooksUp("look-ups in the locale file", [] {
    std::printf("%u %u %u %s %s", Locale2CodePage("xx_YY@z"), Locale2CodePage("C.UTF-8"),
                Locale2CodePage("xx_YY"), SystemUtility::GetSystemLocaleFromCodePage(4711).c_str(),
                SystemUtility::NCSetLocale(LC_CTYPE, "Deutsch"));
});

TEST(LoadTime, ServesTheLookUps) {
    const TemporaryDirectory home;
    home.write(kPlace, kFile);
    EXPECT_EQ(loadedFrom(kLooksUp, home).output, "4711 65001 1252 xx_YY@z C.UTF-8");
}

const FreshProcess kPrintsItsLocale("locale after loading",
                                    [] { std::printf("%s", std::setlocale(LC_ALL, nullptr)); });

TEST(LoadTime, LeavesTheLocaleAlone) {
    const TemporaryDirectory home;
    home.write(kPlace, kFile);
    EXPECT_EQ(loadedFrom(kPrintsItsLocale, home, {{"LC_ALL", "C.UTF-8"}}).output, "C");
}

TEST(GetSortLangMap, ReadsTheGlobalMap) { EXPECT_EQ(&GetSortLangMap(), &g_sortLangMap); }

} // namespace
