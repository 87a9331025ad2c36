// The tool's reading of a locale file: it stores what the library stores, and finds what the library ignores.
#include "locale_file.h"
#include "tool_runner.h"

#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using namespace brimtest;
using brimtool::LocaleFile;
using brimtool::LocaleFileError;
using brimtool::LocaleFinding;
using brimtool::parseLocaleFile;

namespace {

BrimString wide(const std::string& text) {
    return BrimString(std::wstring(text.begin(), text.end()).c_str());
}
std::string narrow(const sup::String<char>& text) { return std::string(text.begin(), text.length()); }

// The entries, as lines that can be compared.
using Lines = std::vector<std::string>;

template <class Map>
Lines namesAndNumbers(const Map& map) {
    Lines lines;
    for (const auto& [key, entry] : map) {
        lines.push_back(entry.name + " = " + std::to_string(entry.number));
    }
    return lines;
}

Lines entriesOf(const LocaleFile& file) {
    Lines lines;
    // Of names that differ in case alone the library's key is the first one.
    const auto namedByKey = [](const LocaleFile::ByName& map) {
        Lines named;
        for (const auto& [key, entry] : map) {
            named.push_back(std::string(key.begin(), key.end()) + " = " + std::to_string(entry.number));
        }
        return named;
    };
    for (const auto& [key, locale] : file.locales) {
        lines.push_back(locale.name + " = " + locale.systemLocale + ", " + locale.codePage);
    }
    for (const Lines& more : {namedByKey(file.charsets), namesAndNumbers(file.sortLanguages),
                              namedByKey(file.sortNames), namesAndNumbers(file.iconvNames)}) {
        lines.emplace_back("--");
        lines.insert(lines.end(), more.begin(), more.end());
    }
    return lines;
}

// What the library stores of a file.
Lines libraryEntries(const std::string& path) {
    const SUPBuildMapFromXML reader(wide(path));
    sup::LocaleConversionMap locales;
    sup::CaseInsBrimStringMap charsets;
    sup::SortLangMap sortLanguages;
    sup::CaseInsBrimStringMap sortNames;
    sup::IconvIdentifierMap iconvNames;
    reader.PopulateLocaleConversionMap(locales);
    reader.PopulateCharsetToCodePageMap(charsets);
    reader.PopulateSortLocaleIdToLangMap(sortLanguages);
    reader.PopulateSortLangToLocaleIdMap(sortNames);
    reader.PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(iconvNames);
    Lines lines;
    for (const auto& [name, locale] : locales) {
        lines.push_back(narrow(name) + " = " + narrow(locale.first) + ", " + narrow(locale.second));
    }
    const auto addByName = [&lines](const sup::CaseInsBrimStringMap& map) {
        for (const auto& [name, number] : map) {
            lines.push_back(std::string(name.begin(), name.end()) + " = " + std::to_string(number));
        }
    };
    lines.emplace_back("--");
    addByName(charsets);
    lines.emplace_back("--");
    for (const auto& [number, name] : sortLanguages) {
        lines.push_back(narrow(name) + " = " + std::to_string(number));
    }
    lines.emplace_back("--");
    addByName(sortNames);
    lines.emplace_back("--");
    for (const auto& [number, name] : iconvNames) {
        lines.push_back(narrow(name) + " = " + std::to_string(number));
    }
    return lines;
}

void expectLibrarysEntries(const std::string& bytes) {
    static const TemporaryDirectory directory;
    const std::string path = directory.path("BrimLocale.xml");
    writeFile(path, bytes);
    EXPECT_EQ(entriesOf(parseLocaleFile(bytes)), libraryEntries(path)) << bytes;
}

// The findings as lines; notes about what is not installed left out.
std::string findingsOf(const std::string& bytes) {
    std::string text;
    for (const LocaleFinding& finding : parseLocaleFile(bytes).findings) {
        if (finding.kind != LocaleFinding::Kind::kNotInstalled) {
            text += std::to_string(finding.line) + ' ' +
                    (finding.kind == LocaleFinding::Kind::kNote ? "note " : "") + finding.text + '\n';
        }
    }
    return text;
}

struct Case {
    const char* body; // of the document element, from line 2 on
    const char* findings;
};

constexpr const char* kLocale = "<QuayLocale>a</QuayLocale><SystemLocale>C</SystemLocale>"
                                "<SystemCodePage>1252</SystemCodePage>";

const std::vector<Case> kCases = {
    {"<Locales>\n<Platform Name='LINUX'/>\n<Platform Name='UNIX'/>\n<Platform Name='WIN32'/>\n"
     "<Platform Name='linux'/>\n<Platform Name='MVS'/>\n<Platform/></Locales>",
     "5 note platform \"WIN32\" does not count here\n6 unknown platform \"linux\" does not count here\n"
     "7 unknown platform \"MVS\" does not count here\n8 Platform has no Name\n"},
    {"<IconvTranscode>\n<Platform Name='LINUX'/>\n<Platform Name='UNIX'/></IconvTranscode>",
     "4 note platform \"UNIX\" does not count here\n"},
    {"<CharsetToCodePage>\n<Charset Name='a'/>\n<Charset Name='b'><CodePage/></Charset>\n"
     "<Charset><CodePage>1</CodePage></Charset></CharsetToCodePage>",
     "3 Charset \"a\" has no CodePage, and is ignored\n4 Charset \"b\" has no CodePage, and is ignored\n"
     "5 Charset has no Name\n"},
    {"<CharsetToCodePage>\n<Charset Name='a'><CodePage>12x</CodePage></Charset>\n"
     "<Charset Name='b'><CodePage>-1</CodePage></Charset>\n"
     "<Charset Name='c'><CodePage> 7\n</CodePage></Charset>\n"
     "<Charset Name='d'><CodePage>4294967296</CodePage></Charset></CharsetToCodePage>",
     "3 CodePage \"12x\" is not a plain number; it counts as 12\n"
     "4 CodePage \"-1\" is not a plain number; it counts as 4294967295\n"
     "7 CodePage \"4294967296\" is not a plain number; it counts as 0\n"},
    {"<SortLangs>\n<SortLang Name='a'><SortId>0x10</SortId></SortLang>\n<SortLang Name='b'/></SortLangs>",
     "3 SortId \"0x10\" is not a plain number; it counts as 0\n4 SortLang has no SortId\n"
     "4 sort id 0 replaces that of line 3\n"},
    {"<CharsetToCodePage>\n<Charset Name='Utf-8'><CodePage>1</CodePage></Charset>\n"
     "<Charset Name='UTF-8'><CodePage>2</CodePage></Charset></CharsetToCodePage>",
     "4 character set \"UTF-8\" replaces that of line 3\n"},
    {"<SortLangs>\n<SortLang Name='a'><SortId>1</SortId></SortLang>\n"
     "<SortLang Name='b'><SortId>1</SortId></SortLang>\n<SortLang Name='A'><SortId>2</SortId></SortLang>"
     "</SortLangs>",
     "4 sort id 1 replaces that of line 3\n5 sort language \"A\" replaces that of line 3\n"},
    {"<IconvTranscode><Platform Name='LINUX'>\n"
     "<QuayCode Name='1'><IconvIdentifier>NO-SUCH</IconvIdentifier></QuayCode>\n"
     "<QuayCode Name='2'><IconvIdentifier>UTF-8</IconvIdentifier></QuayCode>\n"
     "<QuayCode Name='2'><IconvIdentifier>LATIN1</IconvIdentifier></QuayCode>\n"
     "<QuayCode Name='x'/>\n</Platform></IconvTranscode>",
     "3 iconv has no encoding \"NO-SUCH\"\n5 code page 2 replaces that of line 4\n"
     "6 Name \"x\" is not a plain number; it counts as 0\n6 QuayCode has no IconvIdentifier\n"},
    {"<Locales><Platform Name='LINUX'>\n<Locale/>\n</Platform></Locales>",
     "3 Locale has no QuayLocale\n3 Locale has no SystemLocale\n3 Locale has no SystemCodePage\n"},
    {"<Locales>\n<Locale/>\n<Platform Name='LINUX'>\n<Charset/>\n</Platform></Locales>",
     "3 element Locale in Locales is ignored\n5 element Charset in Platform is ignored\n"},
    {"<CharsetToCodePage>\nwords<Charset Name='a'><Codepage/>\n<CodePage>1</CodePage>\n<CodePage>2</CodePage>"
     "</Charset></CharsetToCodePage>",
     "2 text in CharsetToCodePage is ignored\n3 element Codepage in Charset is ignored\n"
     "5 a further CodePage in one Charset is ignored\n"},
    {"<CharsetToCodePage>\n<Charset Name='a'><CodePage>12<!-- -->52</CodePage></Charset>\n"
     "<Charset Name='b'><CodePage>1<![CDATA[2]]></CodePage></Charset>\n"
     "<Charset Name='c'><CodePage>&number;</CodePage></Charset>\n"
     "&charset;</CharsetToCodePage>",
     "2 entity charset in CharsetToCodePage is ignored\n"
     "3 of CodePage only the last piece of plain text counts\n"
     "4 of CodePage only the last piece of plain text counts\n"
     "5 of CodePage only the last piece of plain text counts\n"
     "5 Charset \"c\" has no CodePage, and is ignored\n"},
    {"<Extra>\n<SortLangs/>\n<Sortlangs><x/></Sortlangs></Extra>\n<other/>",
     "4 element Sortlangs is no section, and holds none\n5 element other is no section, and holds none\n"},
    {"<SortLangs>\n<Locales/>\n</SortLangs>", ""}, // found anywhere
};

std::string documentOf(const std::string& body) {
    return "<!DOCTYPE BrimLocale [<!ENTITY number '5'><!ENTITY charset '<Charset Name=\"e\"/>'>]>"
           "<BrimLocale>\n" +
           body + "</BrimLocale>";
}

// Documents of all that may stand in one, mostly at its place.
class RandomDocument {
public:
    explicit RandomDocument(unsigned int seed) : m_random(seed) {}

    std::string make() {
        std::string body;
        for (std::size_t i = upTo(6); i != 0; --i) {
            body += section();
        }
        return documentOf(body);
    }

private:
    std::size_t upTo(std::size_t most) { return m_random() % (most + 1); }
    bool rarely() { return upTo(7) == 0; }

    std::string oneOf(const std::vector<std::string>& texts) { return texts[upTo(texts.size() - 1)]; }

    std::string noise() {
        return rarely() ? oneOf({"<!-- c -->", "words", "<x>1</x>", "&number;", "&charset;", "<![CDATA[7]]>",
                                 "<?pi?>", "\n", " <Locales/> "})
                        : "";
    }
    std::string number() {
        return oneOf({"1252", "65001", "3", "4", "5", "12x", "0x10", "", " ", "-1", "+6", "99999999999",
                      "4294967297", " 8 ", "x"});
    }
    std::string name() { return oneOf({"a", "A", "b", "B", "de-DE", "", "1", "x&amp;y", "&lt;"}); }
    std::string attribute(const std::string& value) {
        return rarely() ? oneOf({"", " name='a'"}) : " Name='" + value + "'";
    }
    std::string element(std::string tag, const std::string& attributes, const std::string& content) {
        if (rarely()) {
            tag = oneOf({"Locale", "Charset", "CodePage", "SortLang", "Platform", "QuayCode", "x"});
        }
        return "<" + tag + attributes + ">" + noise() + content + noise() + "</" + tag + ">\n" + noise();
    }
    std::string many(std::string (RandomDocument::*entry)()) {
        std::string text;
        for (std::size_t i = upTo(6); i != 0; --i) {
            text += (this->*entry)();
        }
        return text;
    }

    std::string locale() {
        return element("Locale", "",
                       element("QuayLocale", "", name()) + element("SystemLocale", "", name()) +
                           element("SystemCodePage", "", number()));
    }
    std::string charset() { return element("Charset", attribute(name()), element("CodePage", "", number())); }
    std::string sortLanguage() {
        return element("SortLang", attribute(name()), element("SortId", "", number()));
    }
    std::string quayCode() {
        return element("QuayCode", attribute(number()), element("IconvIdentifier", "", name()));
    }
    std::string platform(const std::string& content) {
        return element("Platform", attribute(oneOf({"LINUX", "UNIX", "WIN32", "linux", ""})), content);
    }
    std::string section() {
        switch (upTo(3)) {
        case 0:
            return element("Locales", "",
                           platform(many(&RandomDocument::locale)) + platform(many(&RandomDocument::locale)));
        case 1:
            return element("CharsetToCodePage", "", many(&RandomDocument::charset));
        case 2:
            return element("SortLangs", "", many(&RandomDocument::sortLanguage));
        default:
            return element("IconvTranscode", "",
                           platform(many(&RandomDocument::quayCode)) +
                               platform(many(&RandomDocument::quayCode)));
        }
    }

    std::mt19937 m_random;
};

} // namespace

TEST(LocaleFile, TheShippedFileHasNoProblems) {
    const std::string bytes = readFile(SHIPPED_LOCALE_FILE);
    EXPECT_EQ(findingsOf(bytes), "");
    EXPECT_GT(parseLocaleFile(bytes).locales.size(), 100U);
    expectLibrarysEntries(bytes);
}

TEST(LocaleFile, FindsWhatTheLibraryIgnores) {
    for (const Case& expected : kCases) {
        const std::string document = documentOf(expected.body);
        SCOPED_TRACE(document);
        EXPECT_EQ(findingsOf(document), expected.findings);
        expectLibrarysEntries(document);
    }
}

TEST(LocaleFile, ASystemLocaleThatIsNotInstalledIsANote) {
    const LocaleFile file =
        parseLocaleFile("<Locales><Platform Name='UNIX'>\n<Locale>" + std::string(kLocale) +
                        "</Locale>\n<Locale><QuayLocale>b</QuayLocale>"
                        "<SystemLocale>xx_YY.none</SystemLocale>"
                        "<SystemCodePage>1</SystemCodePage></Locale></Platform></Locales>");
    ASSERT_EQ(file.findings.size(), 1U);
    EXPECT_EQ(file.findings[0].kind, LocaleFinding::Kind::kNotInstalled);
    EXPECT_EQ(file.findings[0].line, 3U);
    EXPECT_EQ(file.findings[0].text, "system locale \"xx_YY.none\" is not installed");
    EXPECT_EQ(file.problems(), 0U);
    EXPECT_TRUE(file.locales.at("a").isInstalled);
    EXPECT_FALSE(file.locales.at("b").isInstalled);
}

TEST(LocaleFile, StoresWhatTheLibraryStoresOfRandomDocuments) {
    std::size_t problems = 0;
    for (unsigned int seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        const std::string document = RandomDocument(seed).make();
        expectLibrarysEntries(document);
        problems += parseLocaleFile(document).problems();
        if (HasFailure()) {
            return;
        }
    }
    EXPECT_GT(problems, 400U);
}

TEST(LocaleFile, WhatIsNoDocumentIsAnErrorWithItsPlace) {
    const auto errorOf = [](const std::string& bytes) -> std::string {
        try {
            parseLocaleFile(bytes);
        } catch (const LocaleFileError& error) {
            return error.what();
        }
        return "none";
    };
    EXPECT_EQ(errorOf("<a>\n<b></a>").rfind("line 2, column ", 0), 0U) << errorOf("<a>\n<b></a>");
    EXPECT_EQ(errorOf("").rfind("line ", 0), 0U) << errorOf("");
    EXPECT_EQ(errorOf("text").rfind("line 1, column ", 0), 0U) << errorOf("text");
    EXPECT_EQ(errorOf("<a>\xFF</a>").find("none"), std::string::npos);
    std::string deep;
    for (int i = 0; i < 5000; ++i) {
        deep += "<a>";
    }
    EXPECT_EQ(errorOf(deep).rfind("line 1, column ", 0), 0U);
}

TEST(LocaleFile, NothingThatADocumentNamesIsOpened) {
    const TemporaryDirectory directory;
    writeFile(directory.path("secret"), "<Charset Name='secret'><CodePage>1</CodePage></Charset>");
    EXPECT_THROW(parseLocaleFile("<!DOCTYPE a [<!ENTITY secret SYSTEM '" + directory.path("secret") +
                                 "'>]><a><CharsetToCodePage>&secret;</CharsetToCodePage></a>"),
                 LocaleFileError);
    const LocaleFile file =
        parseLocaleFile("<!DOCTYPE SortLangs SYSTEM '" + directory.path("secret") + "'><SortLangs/>");
    EXPECT_TRUE(file.findings.empty());
}
