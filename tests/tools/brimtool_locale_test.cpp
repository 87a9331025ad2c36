// brimtool locale check and brimtool locale show.
#include "json_reader.h"
#include "tool_runner.h"

#include "Utility/Generic/Portable/SUPBuildMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

using namespace brimtest;

namespace {

constexpr const char* kFile = R"(<BrimLocale>
<Locales>
<Platform Name="LINUX">
<Locale><QuayLocale>en</QuayLocale><SystemLocale>C.UTF-8</SystemLocale><SystemCodePage>65001</SystemCodePage></Locale>
<Locale><QuayLocale>xx</QuayLocale><SystemLocale>xx_YY.none</SystemLocale><SystemCodePage>1252</SystemCodePage></Locale>
<Locale><QuayLocale>yy</QuayLocale><SystemLocale>yy_YY.none</SystemLocale><SystemCodePage>1252</SystemCodePage></Locale>
</Platform>
</Locales>
<CharsetToCodePage>
<Charset Name="Greek"><CodePage>28597</CodePage></Charset>
</CharsetToCodePage>
<SortLangs>
<SortLang Name="en"><SortId>1033</SortId></SortLang>
</SortLangs>
<IconvTranscode>
<Platform Name="LINUX">
<QuayCode Name="932"><IconvIdentifier>SJIS</IconvIdentifier></QuayCode>
</Platform>
</IconvTranscode>
</BrimLocale>
)";

ToolRun localeRun(const std::vector<std::string>& arguments) {
    ToolRun run;
    run.arguments = {"locale"};
    run.arguments.insert(run.arguments.end(), arguments.begin(), arguments.end());
    run.hasOwnEnvironment = true;
    run.environment = {{"LC_ALL", "C.UTF-8"}};
    return run;
}

class WithFile : public testing::Test {
protected:
    WithFile() { write(kFile); }

    void write(const std::string& content) const { writeFile(path(), content); }
    std::string path() const { return directory.path("BrimLocale.xml"); }

    ToolResult check(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"check", path()});
        return localeRun(options).run();
    }
    ToolResult show(const std::string& name, std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"show", "--file", path(), name});
        return localeRun(options).run();
    }

    TemporaryDirectory directory;
};

std::string lineWith(const std::string& text, const std::string& part) {
    const std::size_t at = text.find(part);
    if (at == std::string::npos) {
        return "no " + part + " in\n" + text;
    }
    const std::size_t begin = text.rfind('\n', at) + 1;
    return text.substr(begin, text.find('\n', at) - begin);
}

} // namespace

using BrimtoolLocaleCheck = WithFile;
using BrimtoolLocaleShow = WithFile;

TEST_F(BrimtoolLocaleCheck, TellsWhatTheSectionsHold) {
    const ToolResult result = check();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, R"(Section            Holds
Locales            3 locales
CharsetToCodePage  1 character set
SortLangs          1 sort language by 1 id
IconvTranscode     1 code page

line 5 and others: note: 2 system locales are not installed (--list names them)

No problems.
)");
}

TEST_F(BrimtoolLocaleCheck, ListsTheEntriesWithTheirLines) {
    const std::string output = check({"--list"}).output;
    EXPECT_EQ(lineWith(output, "C.UTF-8"), "  en  C.UTF-8     65001  line 4");
    EXPECT_EQ(lineWith(output, "Greek"), "  Greek  28597  line 10");
    EXPECT_EQ(lineWith(output, "1033"), "  en  1033  line 13");
    EXPECT_EQ(lineWith(output, "SJIS"), "  SJIS  932  line 17");
    EXPECT_EQ(lineWith(output, "\"yy_YY.none\""),
              "line 6: note: system locale \"yy_YY.none\" is not installed");
}

TEST_F(BrimtoolLocaleCheck, ProblemsGiveOne) {
    write("<BrimLocale>\n<SortLangs>\n<SortLang Name='a'><SortId>x</SortId></SortLang>\n<oops/></SortLangs>"
          "</BrimLocale>");
    const ToolResult result = check();
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_NE(result.output.find("\n\nline 3: problem: SortId \"x\" is not a plain number; it counts as 0\n"
                                 "line 4: problem: element oops in SortLangs is ignored\n\n2 problems.\n"),
              std::string::npos)
        << result.output;
    const ToolResult asJson = check({"--json"});
    EXPECT_EQ(asJson.exitCode, 1) << asJson;
    const Json json = JsonReader::read(asJson.output);
    EXPECT_EQ(json.at("problems").text, "2");
    const Json& finding = json.element("findings", "line", "4");
    EXPECT_EQ(finding.at("severity").text, "problem");
    EXPECT_EQ(finding.at("message").text, "element oops in SortLangs is ignored");
}

TEST_F(BrimtoolLocaleCheck, TheCountsAreThoseOfTheLibrary) {
    write(readFile(SHIPPED_LOCALE_FILE));
    const ToolResult result = check({"--json"});
    EXPECT_EQ(result.exitCode, 0) << result;
    const Json json = JsonReader::read(result.output);
    const std::string name = path();
    const SUPBuildMapFromXML reader(BrimString(std::wstring(name.begin(), name.end()).c_str()));
    const auto count = [&reader](auto map, auto populate) {
        (reader.*populate)(map);
        return std::to_string(map.size());
    };
    const Json& counts = json.at("counts");
    EXPECT_EQ(counts.at("locales").text,
              count(sup::LocaleConversionMap(), &SUPBuildMapFromXML::PopulateLocaleConversionMap));
    EXPECT_EQ(counts.at("charsets").text,
              count(sup::CaseInsBrimStringMap(), &SUPBuildMapFromXML::PopulateCharsetToCodePageMap));
    EXPECT_EQ(counts.at("sortIds").text,
              count(sup::SortLangMap(), &SUPBuildMapFromXML::PopulateSortLocaleIdToLangMap));
    EXPECT_EQ(counts.at("sortLanguages").text,
              count(sup::CaseInsBrimStringMap(), &SUPBuildMapFromXML::PopulateSortLangToLocaleIdMap));
    EXPECT_EQ(counts.at("iconvNames").text,
              count(sup::IconvIdentifierMap(),
                    &SUPBuildMapFromXML::PopulateQUAYEncoding2ICONVTrancodingIdentifierMap));
}

TEST_F(BrimtoolLocaleCheck, WhatIsNoDocumentIsToldWithLineAndColumn) {
    write("<BrimLocale>\n<Locales></BrimLocale>");
    const ToolResult result = check();
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors.rfind("brimtool: " + path() + ": line 2, column ", 0), 0U) << result;
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result;
}

TEST_F(BrimtoolLocaleCheck, ReadsStandardInput) {
    ToolRun run = localeRun({"check", "-", "--json"});
    run.input = kFile;
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(JsonReader::read(result.output).at("counts").at("locales").text, "3");
}

TEST_F(BrimtoolLocaleCheck, AFileThatCannotBeReadGivesTwo) {
    const ToolResult result = localeRun({"check", directory.path("none")}).run();
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.errors,
              "brimtool: cannot open " + directory.path("none") + ": No such file or directory\n");
    EXPECT_EQ(localeRun({"check"}).run().exitCode, 2);
    EXPECT_EQ(localeRun({}).run().exitCode, 2);
}

TEST_F(BrimtoolLocaleShow, TellsAllThatHasTheName) {
    struct Case {
        const char* name;
        const char* output;
    };
    for (const Case& expected : {
             Case{"en", "Locale         C.UTF-8, code page 65001, installed  line 4\n"
                        "Sort language  en, id 1033                          line 13\n"},
             Case{"xx", "Locale  xx_YY.none, code page 1252, not installed  line 5\n"},
             Case{"C", "Locale  C, code page 1252, installed  built in\n"},
             Case{"gREEK", "Character set  Greek, code page 28597  line 10\n"},
             Case{"1033", "Sort language  en, id 1033  line 13\n"},
             Case{"932", "Code page  iconv's SJIS  line 17\n"},
             Case{"28597", "Code page  ISO-8859-7  built in\n"},
         }) {
        const ToolResult result = show(expected.name);
        EXPECT_EQ(result.exitCode, 0) << result;
        EXPECT_EQ(result.output, expected.output);
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(BrimtoolLocaleShow, AnUnknownNameGivesOne) {
    for (const char* const name : {"EN-us", "Xx", "0", "7"}) {
        const ToolResult result = show(name);
        EXPECT_EQ(result.exitCode, 1) << result;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "brimtool: nothing is called \"" + std::string(name) + "\"\n");
    }
}

TEST_F(BrimtoolLocaleShow, HasJson) {
    const Json json = JsonReader::read(show("en", {"--json"}).output);
    EXPECT_EQ(json.at("name").text, "en");
    EXPECT_EQ(json.at("locale").at("systemLocale").text, "C.UTF-8");
    EXPECT_EQ(json.at("locale").at("codePage").text, "65001");
    EXPECT_EQ(json.at("locale").at("installed").text, "true");
    EXPECT_EQ(json.at("sortLanguage").at("sortId").text, "1033");
    EXPECT_FALSE(json.has("charset"));
}

TEST_F(BrimtoolLocaleShow, LooksIntoTheServersFileByDefault) {
    ToolRun run = localeRun({"show", "en"});
    const std::string locale = directory.path("hx/hxfoundation/server/locale");
    std::filesystem::create_directories(locale);
    writeFile(locale + "/BrimLocale.xml", kFile);
    run.environment.emplace_back("HX_PRODUCT_HOME", directory.path("hx"));
    EXPECT_EQ(lineWith(run.run().output, "Locale "),
              "Locale         C.UTF-8, code page 65001, installed  line 4");

    ToolRun without = localeRun({"show", "C"});
    without.environment.emplace_back("HX_PRODUCT_HOME", directory.path("none"));
    const ToolResult result = without.run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.output, "Locale  C, code page 1252, installed  built in\n");
    EXPECT_NE(result.errors.find("cannot open " + directory.path("none")), std::string::npos) << result;
}
