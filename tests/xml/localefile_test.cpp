// The locale file that comes with the library, against this machine.
#include "CodePageNames.h"
#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "xml_test_support.h"

#include <gtest/gtest.h>

#include <clocale>
#include <fstream>
#include <iconv.h>
#include <regex>
#include <set>
#include <sstream>
#include <string>

using xmltest::plain;
using xmltest::wide;

namespace {

const SUPBuildMapFromXML& file() {
    static const SUPBuildMapFromXML instance(wide(BRIM_TEST_LOCALE_FILE));
    return instance;
}

const std::string& text() {
    static const std::string content = [] {
        std::ostringstream stream;
        stream << std::ifstream(BRIM_TEST_LOCALE_FILE).rdbuf();
        return stream.str();
    }();
    return content;
}

// The texts that `pattern` captures, all of them.
std::multiset<std::string> captured(const char* pattern) {
    const std::regex expression(pattern);
    std::multiset<std::string> result;
    for (std::sregex_iterator i(text().begin(), text().end(), expression); i != std::sregex_iterator(); ++i) {
        result.insert((*i)[1]);
    }
    return result;
}

void expectNoDuplicates(const char* pattern, std::size_t sizeOfMap) {
    const std::multiset<std::string> names = captured(pattern);
    EXPECT_EQ(names.size(), sizeOfMap) << pattern; // the map would hold fewer
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size()) << pattern;
}

TEST(LocaleFile, HasNoDuplicateKeys) {
    sup::LocaleConversionMap locales;
    sup::CaseInsBrimStringMap charsets;
    sup::SortLangMap sortLanguages;
    sup::CaseInsBrimStringMap sortIds;
    sup::IconvIdentifierMap iconv;
    file().PopulateLocaleConversionMap(locales);
    file().PopulateCharsetToCodePageMap(charsets);
    file().PopulateSortLocaleIdToLangMap(sortLanguages);
    file().PopulateSortLangToLocaleIdMap(sortIds);
    file().PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(iconv);
    expectNoDuplicates("<QuayLocale>([^<]*)<", locales.size());
    expectNoDuplicates("<SystemLocale>([^<]*)<", locales.size());
    expectNoDuplicates("<Charset Name=\"([^\"]*)\"", charsets.size());
    expectNoDuplicates("<SortLang Name=\"([^\"]*)\"", sortIds.size());
    expectNoDuplicates("<SortId>([^<]*)<", sortLanguages.size());
    expectNoDuplicates("<QuayCode Name=\"([^\"]*)\"", iconv.size());
    EXPECT_GT(locales.size(), 400U);
    EXPECT_GT(charsets.size(), 200U);
    EXPECT_GT(sortIds.size(), 200U);
    EXPECT_GT(iconv.size(), 150U);
}

// Every locale that `locale -a` lists and the file names, by its name and by that without punctuation.
TEST(LocaleFile, NamesLocalesThatCanBeSet) {
    std::set<std::string> installed;
    FILE* const pipe = ::popen("locale -a", "r");
    ASSERT_NE(pipe, nullptr);
    char line[256];
    const auto folded = [](const std::string& name) {
        std::string result;
        for (const char c : name) {
            if (c != '-' && c != '\n') {
                result += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
            }
        }
        return result;
    };
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        installed.insert(folded(line));
    }
    ::pclose(pipe);
    int tried = 0;
    sup::LocaleConversionMap locales;
    file().PopulateLocaleConversionMap(locales);
    for (const auto& entry : locales) {
        if (installed.count(folded(entry.second.first.c_str())) != 0) {
            EXPECT_NE(std::setlocale(LC_ALL, entry.second.first.c_str()), nullptr)
                << entry.second.first.c_str();
            ++tried;
        }
    }
    std::setlocale(LC_ALL, "C");
    EXPECT_GE(tried, 2); // C.UTF-8 and POSIX are everywhere
}

TEST(LocaleFile, NamesConvertersThatOpen) {
    sup::IconvIdentifierMap iconv;
    file().PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(iconv);
    for (const auto& entry : iconv) {
        for (const bool decode : {true, false}) {
            const char* const name = entry.second.c_str();
            const iconv_t converter = decode ? ::iconv_open("UTF-8", name) : ::iconv_open(name, "UTF-8");
            EXPECT_NE(converter, reinterpret_cast<iconv_t>(-1)) << entry.first << ' ' << name;
            if (converter != reinterpret_cast<iconv_t>(-1)) {
                ::iconv_close(converter);
            }
        }
    }
}

TEST(LocaleFile, NumbersEncodingsAsTheLibraryDoes) {
    sup::CaseInsBrimStringMap charsets;
    file().PopulateCharsetToCodePageMap(charsets);
    int known = 0;
    for (const auto& entry : charsets) {
        std::string name;
        for (const wchar_t c : plain(entry.first)) {
            name += static_cast<char>(c);
        }
        const int page = sup::codePageOfName(name);
        if (page >= 0) {
            EXPECT_EQ(entry.second, static_cast<unsigned int>(page)) << name;
            ++known;
        }
    }
    EXPECT_GT(known, 20);
    sup::IconvIdentifierMap iconv;
    file().PopulateQUAYEncoding2ICONVTrancodingIdentifierMap(iconv);
    EXPECT_STREQ(iconv[1200].c_str(), "UTF-16BE");
    EXPECT_STREQ(iconv[1201].c_str(), "UTF-16LE");
    EXPECT_STREQ(iconv[285915].c_str(), "ISO-8859-15");
    EXPECT_STREQ(iconv[38598].c_str(), "ISO-8859-8");
    EXPECT_STREQ(iconv[1252].c_str(), "CP1252");
    EXPECT_STREQ(iconv[65001].c_str(), "UTF-8");
}

TEST(LocaleFile, HasTheUsualEntries) {
    sup::LocaleConversionMap locales;
    file().PopulateLocaleConversionMap(locales);
    struct Row {
        const char* quay;
        const char* system;
        const char* page;
    };
    for (const Row& row :
         {Row{"en-US", "en_US.UTF-8", "65001"}, Row{"de-DE", "de_DE.UTF-8", "65001"},
          Row{"de-DE.ISO-8859-1", "de_DE", "28591"}, Row{"C.UTF-8", "C.UTF-8", "65001"},
          Row{"de-DE-x-euro.ISO-8859-15", "de_DE@euro", "285915"},
          Row{"ru-RU.KOI8-R", "ru_RU.KOI8-R", "20866"}, Row{"sr-Latn-RS", "sr_RS@latin", "65001"},
          Row{"ja-JP.EUC-JP", "ja_JP.EUC-JP", "51932"}, Row{"zh-CN", "zh_CN.UTF-8", "65001"}}) {
        const auto entry = locales.find(sup::String<char>(row.quay));
        ASSERT_NE(entry, locales.end()) << row.quay;
        EXPECT_STREQ(entry->second.first.c_str(), row.system);
        EXPECT_STREQ(entry->second.second.c_str(), row.page);
    }
    sup::CaseInsBrimStringMap sortIds;
    file().PopulateSortLangToLocaleIdMap(sortIds);
    EXPECT_EQ(sortIds[L"en-us"], 1033U);
    EXPECT_EQ(sortIds[L"de-DE"], 1031U);
    EXPECT_EQ(sortIds[L"de-DE-u-co-phonebk"], 0x10407U);
    EXPECT_EQ(sortIds[L"zh-CN"], 2052U);
}

// A sort language is looked up among the locales by its name.
TEST(LocaleFile, NamesMostSortLanguagesAsItsLocales) {
    sup::LocaleConversionMap locales;
    sup::SortLangMap languages;
    file().PopulateLocaleConversionMap(locales);
    file().PopulateSortLocaleIdToLangMap(languages);
    std::size_t found = 0;
    for (const auto& entry : languages) {
        found += locales.count(entry.second);
    }
    EXPECT_GT(found, languages.size() / 2);
}

} // namespace
