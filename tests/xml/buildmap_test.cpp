// The locale file's five maps.
#include "Utility/Generic/Portable/SUPBuildMap.h"

#include "recording_manager.h"
#include "xml_test_support.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

using xmltest::plain;
using xmltest::TemporaryDirectory;
using xmltest::wide;

namespace {

using NarrowString = sup::String<char>;
using Locales = std::map<std::string, std::pair<std::string, std::string>>;
using Names = std::map<std::wstring, unsigned int>;
using Ids = std::map<unsigned int, std::string>;
using Codes = std::map<int, std::string>;

// One of each map, with an entry from before.
struct Maps {
    sup::LocaleConversionMap locales{{NarrowString("old"), {NarrowString("old_OLD"), NarrowString("1")}}};
    sup::CaseInsBrimStringMap charsets{{BrimString(L"Old"), 1}};
    sup::SortLangMap sortLanguages{{1, NarrowString("old")}};
    sup::CaseInsBrimStringMap sortIds{{BrimString(L"Old"), 1}};
    sup::IconvIdentifierMap iconv{{1, NarrowString("OLD")}};

    void fillFrom(const BrimString& path) {
        const SUPBuildMapFromXML file(path);
        file.PopulateLocaleConversionMap(locales);
        file.PopulateCharsetToCodePageMap(charsets);
        file.PopulateSortLocaleIdToLangMap(sortLanguages);
        file.PopulateSortLangToLocaleIdMap(sortIds);
        file.PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(iconv);
    }

    Locales localeEntries() const {
        Locales result;
        for (const auto& entry : locales) {
            result[entry.first.c_str()] = {entry.second.first.c_str(), entry.second.second.c_str()};
        }
        return result;
    }
    static Names nameEntries(const sup::CaseInsBrimStringMap& map) {
        Names result;
        for (const auto& entry : map) {
            result[plain(entry.first)] = entry.second;
        }
        return result;
    }
    Ids idEntries() const {
        Ids result;
        for (const auto& entry : sortLanguages) {
            result[entry.first] = entry.second.c_str();
        }
        return result;
    }
    Codes codeEntries() const {
        Codes result;
        for (const auto& entry : iconv) {
            result[entry.first] = entry.second.c_str();
        }
        return result;
    }
};

Maps mapsOf(const std::string& document) {
    const TemporaryDirectory directory;
    Maps maps;
    maps.fillFrom(wide(directory.write("BrimLocale.xml", document)));
    return maps;
}

std::string locale(const std::string& quay, const std::string& system, const std::string& page) {
    return "<Locale><QuayLocale>" + quay + "</QuayLocale><SystemLocale>" + system +
           "</SystemLocale><SystemCodePage>" + page + "</SystemCodePage></Locale>";
}

std::string platform(const std::string& section, const std::string& name, const std::string& content) {
    return "<" + section + "><Platform Name='" + name + "'>" + content + "</Platform></" + section + ">";
}

std::string code(const std::string& name, const std::string& identifier) {
    return "<QuayCode Name='" + name + "'><IconvIdentifier>" + identifier + "</IconvIdentifier></QuayCode>";
}

TEST(CaseInsBrimStringLessFunctor, IgnoresCase) {
    const CaseInsBrimStringLessFunctor less;
    EXPECT_TRUE(less(L"a", L"B"));
    EXPECT_TRUE(less(L"A", L"b"));
    EXPECT_FALSE(less(L"b", L"A"));
    EXPECT_FALSE(less(L"utf-8", L"UTF-8"));
    EXPECT_FALSE(less(L"UTF-8", L"utf-8"));
    EXPECT_TRUE(less(L"", L"a"));
    EXPECT_FALSE(less(L"", L""));
}

TEST(SUPBuildMapFromXML, AddsEachSectionToItsMap) {
    const Maps maps = mapsOf(
        "<any>" + platform("Locales", "LINUX", locale("de-DE", "de_DE.UTF-8", "65001")) +
        "<CharsetToCodePage><Charset Name='UTF-8'><CodePage>65001</CodePage></Charset></CharsetToCodePage>"
        "<SortLangs><SortLang Name='de-DE'><SortId>1031</SortId></SortLang></SortLangs>" +
        platform("IconvTranscode", "LINUX", code("65001", "UTF-8")) + "</any>");
    EXPECT_EQ(maps.localeEntries(),
              (Locales{{"old", {"old_OLD", "1"}}, {"de-DE", {"de_DE.UTF-8", "65001"}}}));
    EXPECT_EQ(Maps::nameEntries(maps.charsets), (Names{{L"Old", 1}, {L"UTF-8", 65001}}));
    EXPECT_EQ(maps.idEntries(), (Ids{{1, "old"}, {1031, "de-DE"}}));
    EXPECT_EQ(Maps::nameEntries(maps.sortIds), (Names{{L"Old", 1}, {L"de-DE", 1031}}));
    EXPECT_EQ(maps.codeEntries(), (Codes{{1, "OLD"}, {65001, "UTF-8"}}));
}

TEST(SUPBuildMapFromXML, LeavesMapsWithoutTheirSection) {
    for (const char* const document :
         {"<BrimLocale/>", "<Locale/>", "<locales><Platform Name='LINUX'/></locales>"}) {
        const Maps maps = mapsOf(document);
        EXPECT_EQ(maps.locales.size(), 1U);
        EXPECT_EQ(maps.charsets.size(), 1U);
        EXPECT_EQ(maps.sortLanguages.size(), 1U);
        EXPECT_EQ(maps.sortIds.size(), 1U);
        EXPECT_EQ(maps.iconv.size(), 1U);
    }
}

TEST(SUPBuildMapFromXML, ReplacesOldEntriesAndTakesTheLast) {
    const Maps maps = mapsOf(
        "<r>" + platform("Locales", "LINUX", locale("old", "first", "2") + locale("old", "last", "3")) +
        "<SortLangs><SortLang Name='a'><SortId>1</SortId></SortLang><SortLang "
        "Name='b'><SortId>1</SortId></SortLang>"
        "<SortLang Name='A'><SortId>2</SortId></SortLang></SortLangs>" +
        platform("IconvTranscode", "LINUX", code("1", "X") + code("1", "Y")) + "</r>");
    EXPECT_EQ(maps.localeEntries(), (Locales{{"old", {"last", "3"}}}));
    EXPECT_EQ(maps.idEntries(), (Ids{{1, "b"}, {2, "A"}}));
    EXPECT_EQ(Maps::nameEntries(maps.sortIds), (Names{{L"Old", 1}, {L"a", 2}, {L"b", 1}}));
    EXPECT_EQ(maps.codeEntries(), (Codes{{1, "Y"}}));
}

TEST(SUPBuildMapFromXML, TakesCharsetsThatDifferInCaseForOne) {
    const Maps maps =
        mapsOf("<r><CharsetToCodePage><Charset Name='Utf-8'><CodePage>1</CodePage></Charset>"
               "<Charset Name='UTF-8'><CodePage>2</CodePage></Charset></CharsetToCodePage></r>");
    EXPECT_EQ(Maps::nameEntries(maps.charsets), (Names{{L"Old", 1}, {L"Utf-8", 2}}));
}

TEST(SUPBuildMapFromXML, ComparesLocaleNamesExactly) {
    const Maps maps = mapsOf("<r>" + platform("Locales", "LINUX", locale("OLD", "x", "2")) + "</r>");
    EXPECT_EQ(maps.localeEntries(), (Locales{{"old", {"old_OLD", "1"}}, {"OLD", {"x", "2"}}}));
}

TEST(SUPBuildMapFromXML, UsesThePlatformsOfThisSystem) {
    struct Row {
        const char* name;
        bool hasLocales;
        bool hasIconv;
    };
    for (const Row& row : {Row{"LINUX", true, true}, Row{"UNIX", true, false}, Row{"WIN32", false, false},
                           Row{"", false, false}, Row{"linux", false, false}, Row{"LINUX ", false, false}}) {
        const Maps maps = mapsOf("<r>" + platform("Locales", row.name, locale("new", "x", "2")) +
                                 platform("IconvTranscode", row.name, code("2", "X")) + "</r>");
        EXPECT_EQ(maps.locales.size(), row.hasLocales ? 2U : 1U) << row.name;
        EXPECT_EQ(maps.iconv.size(), row.hasIconv ? 2U : 1U) << row.name;
    }
    EXPECT_EQ(mapsOf("<r><Locales><Platform>" + locale("new", "x", "2") + "</Platform></Locales></r>")
                  .locales.size(),
              1U);
}

TEST(SUPBuildMapFromXML, FindsSectionsAnywhereAndAllOfThem) {
    const std::string section = platform("Locales", "LINUX", locale("one", "x", "2"));
    const Maps maps = mapsOf("<Locales><deep><deeper>" + section + "</deeper></deep>" +
                             platform("Locales", "UNIX", locale("two", "y", "3")) +
                             "<Platform Name='LINUX'>" + locale("three", "z", "4") + "</Platform></Locales>");
    EXPECT_EQ(
        maps.localeEntries(),
        (Locales{
            {"old", {"old_OLD", "1"}}, {"one", {"x", "2"}}, {"two", {"y", "3"}}, {"three", {"z", "4"}}}));
}

TEST(SUPBuildMapFromXML, LooksAtChildrenOnly) {
    const Maps maps =
        mapsOf("<r><Locales><x>" + platform("y", "LINUX", locale("a", "x", "2")) +
               "</x><Platform Name='LINUX'><z>" + locale("b", "x", "2") + "</z></Platform></Locales>" +
               "<CharsetToCodePage><x><Charset "
               "Name='n'><CodePage>2</CodePage></Charset></x></CharsetToCodePage></r>");
    EXPECT_EQ(maps.locales.size(), 1U);
    EXPECT_EQ(maps.charsets.size(), 1U);
}

TEST(SUPBuildMapFromXML, SkipsCharsetsWithoutACodePage) {
    const Maps maps =
        mapsOf("<r><CharsetToCodePage><Charset Name='a'/><Charset Name='b'><CodePage/></Charset>"
               "<Charset Name='c'><CodePage></CodePage></Charset>"
               "<Charset Name='d'><CodePage>x</CodePage></Charset>"
               "<Charset><CodePage>5</CodePage></Charset></CharsetToCodePage></r>");
    EXPECT_EQ(Maps::nameEntries(maps.charsets), (Names{{L"", 5}, {L"Old", 1}, {L"d", 0}}));
}

TEST(SUPBuildMapFromXML, ReadsDecimalNumbersAsFarAsTheyGo) {
    const Maps maps =
        mapsOf("<r><SortLangs><SortLang Name='a'><SortId>0x10</SortId></SortLang>"
               "<SortLang Name='b'><SortId> 12abc</SortId></SortLang><SortLang "
               "Name='c'><SortId>7ld</SortId></SortLang>"
               "<SortLang Name='d'><SortId>4294967295</SortId></SortLang></SortLangs>" +
               platform("IconvTranscode", "LINUX", code("-5", "X") + code("abc", "Y")) + "</r>");
    EXPECT_EQ(Maps::nameEntries(maps.sortIds),
              (Names{{L"Old", 1}, {L"a", 0}, {L"b", 12}, {L"c", 7}, {L"d", 4294967295}}));
    EXPECT_EQ(maps.idEntries(), (Ids{{0, "a"}, {1, "old"}, {7, "c"}, {12, "b"}, {4294967295, "d"}}));
    EXPECT_EQ(maps.codeEntries(), (Codes{{-5, "X"}, {0, "Y"}, {1, "OLD"}}));
}

TEST(SUPBuildMapFromXML, KeepsEntriesWithMissingParts) {
    const Maps maps =
        mapsOf("<r><Locales><Platform Name='LINUX'><Locale/></Platform></Locales>"
               "<SortLangs><SortLang/></SortLangs>"
               "<IconvTranscode><Platform Name='LINUX'><QuayCode/></Platform></IconvTranscode></r>");
    EXPECT_EQ(maps.localeEntries(), (Locales{{"", {"", ""}}, {"old", {"old_OLD", "1"}}}));
    EXPECT_EQ(maps.idEntries(), (Ids{{0, ""}, {1, "old"}}));
    EXPECT_EQ(maps.codeEntries(), (Codes{{0, ""}, {1, "OLD"}}));
}

TEST(SUPBuildMapFromXML, TakesTheLastPieceOfAText) {
    const Maps maps =
        mapsOf("<r>" + platform("Locales", "LINUX", locale("a<!--c-->b", "x<![CDATA[y]]>z", "2")) + "</r>");
    EXPECT_EQ(maps.localeEntries(), (Locales{{"b", {"z", "2"}}, {"old", {"old_OLD", "1"}}}));
}

TEST(SUPBuildMapFromXML, KeepsWhiteSpaceWithinTexts) {
    const Maps maps =
        mapsOf("<r>\n " + platform("Locales", "LINUX", "\n " + locale(" a ", "\nx", "2") + "\n") + " </r>");
    EXPECT_EQ(maps.localeEntries(), (Locales{{" a ", {"\nx", "2"}}, {"old", {"old_OLD", "1"}}}));
}

TEST(SUPBuildMapFromXML, MakesNarrowTextsInTheClientCodePage) {
    const std::string document =
        "<r>" + platform("Locales", "LINUX", locale("\xc3\xa9", "\xe2\x82\xac", "2")) + "</r>";
    {
        const brimtest::ClientCodePage client(65001);
        EXPECT_EQ(mapsOf(document).localeEntries().at("\xc3\xa9").first, "\xe2\x82\xac");
    }
    const brimtest::ClientCodePage client(1252);
    EXPECT_EQ(mapsOf(document).localeEntries().at("\xe9").first, "\x80");
}

TEST(SUPBuildMapFromXML, ReportsAMissingFileAndLeavesTheMaps) {
    Maps maps;
    const std::string printed = xmltest::printedBy([&] { maps.fillFrom(L"/no/such/BrimLocale.xml"); });
    EXPECT_EQ(printed, xmltest::repeated("Xml File Not Found error number -9, /no/such/BrimLocale.xml\n", 5));
    EXPECT_EQ(maps.localeEntries(), (Locales{{"old", {"old_OLD", "1"}}}));
    EXPECT_EQ(Maps::nameEntries(maps.charsets), (Names{{L"Old", 1}}));
    EXPECT_EQ(maps.idEntries(), (Ids{{1, "old"}}));
    EXPECT_EQ(Maps::nameEntries(maps.sortIds), (Names{{L"Old", 1}}));
    EXPECT_EQ(maps.codeEntries(), (Codes{{1, "OLD"}}));
}

TEST(SUPBuildMapFromXML, ReportsAMalformedFileAndLeavesTheMaps) {
    const TemporaryDirectory directory;
    const std::string path = directory.write(
        "BrimLocale.xml", "<r>" + platform("Locales", "LINUX", locale("new", "x", "2")) + "<unclosed></r>");
    Maps maps;
    const std::string printed = xmltest::printedBy([&] { maps.fillFrom(wide(path)); });
    EXPECT_EQ(printed.rfind(xmltest::kParserFailure + ("Error at file " + path) + ", line 1, column ", 0), 0U)
        << printed;
    EXPECT_EQ(maps.locales.size(), 1U);
    EXPECT_EQ(maps.iconv.size(), 1U);
}

TEST(SUPBuildMapFromXML, ReadsTheFileAnewEachTime) {
    const TemporaryDirectory directory;
    const SUPBuildMapFromXML file(wide(directory.write(
        "BrimLocale.xml", "<r>" + platform("Locales", "LINUX", locale("a", "x", "2")) + "</r>")));
    Maps maps;
    file.PopulateLocaleConversionMap(maps.locales);
    directory.write("BrimLocale.xml", "<r>" + platform("Locales", "LINUX", locale("b", "y", "3")) + "</r>");
    file.PopulateLocaleConversionMap(maps.locales);
    EXPECT_EQ(maps.localeEntries(),
              (Locales{{"a", {"x", "2"}}, {"b", {"y", "3"}}, {"old", {"old_OLD", "1"}}}));
}

TEST(SUPBuildMapFromXML, GivesItsMemoryBack) {
    const TemporaryDirectory directory;
    const BrimString good = wide(directory.write("good.xml", "<r/>"));
    const BrimString bad = wide(directory.write("bad.xml", "<r>"));
    xmltest::printedBy([&] {
        Maps().fillFrom(good);
        Maps().fillFrom(bad);
        const long before = brimtest::RecordingAllocator::liveBlocks();
        Maps().fillFrom(good);
        Maps().fillFrom(bad);
        Maps().fillFrom(L"/no/such/file");
        EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), before);
    });
}

} // namespace
