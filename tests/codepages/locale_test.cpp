#include "Utility/Generic/Portable/SUPTranscode.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "child_process.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using brimtest::ChildResult;
using brimtest::EnvironmentChange;
using brimtest::FreshProcess;
using brimtest::RecordingManager;

namespace {

int g_changes = 0;                     // calls that set a locale
const char* g_missingLocale = nullptr; // cannot be set

} // namespace

// Stands in front of the C library's.
extern "C" char* setlocale(int category, const char* locale) noexcept {
    using Function = char* (*)(int, const char*);
    static const auto cLibrarys = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "setlocale"));
    g_changes += locale != nullptr ? 1 : 0;
    const bool isMissing =
        locale != nullptr && g_missingLocale != nullptr && std::strcmp(locale, g_missingLocale) == 0;
    return isMissing ? nullptr : cLibrarys(category, locale);
}

namespace {

// The library may print when it is loaded; what a body prints begins here.
constexpr const char* kMark = "body: ";

std::string bodyOutput(const ChildResult& result) {
    const std::size_t mark = result.output.find(kMark);
    EXPECT_NE(mark, std::string::npos) << result;
    EXPECT_EQ(result.exitCode(), 0) << result;
    return mark == std::string::npos ? std::string() : result.output.substr(mark + std::string(kMark).size());
}

// A fresh process that has no locale file but the one that `changes` lead to, and no locale of its own.
std::string outputOf(const FreshProcess& process, const std::vector<EnvironmentChange>& changes = {}) {
    std::vector<EnvironmentChange> all = {{"HX_PRODUCT_HOME", nullptr}, {"VANTA_HX_HOME", nullptr},
                                          {"VANTA_HOME", nullptr},      {"LC_ALL", nullptr},
                                          {"LC_CTYPE", nullptr},        {"LANG", nullptr}};
    all.insert(all.end(), changes.begin(), changes.end());
    return bodyOutput(process.run(all));
}

// ---- The map ---------------------------------------------------------------------------------------------

TEST(GetQuayLocale2SystemLocaleMap, HasTheBuiltInEntry) {
    const sup::LocaleConversionMap& map = GetQuayLocale2SystemLocaleMap();
    const auto entry = map.find(sup::String<char>("C"));
    ASSERT_NE(entry, map.end());
    EXPECT_STREQ(entry->second.first.c_str(), "C");
    EXPECT_STREQ(entry->second.second.c_str(), "1252");
}

TEST(GetQuayLocale2SystemLocaleMap, IsOneMap) {
    EXPECT_EQ(&GetQuayLocale2SystemLocaleMap(), &GetQuayLocale2SystemLocaleMap());
}

const FreshProcess kPrintsTheMap("locale map", [] {
    std::printf("%s", kMark);
    for (const auto& entry : GetQuayLocale2SystemLocaleMap()) {
        std::printf("%s=(%s,%s)", entry.first.c_str(), entry.second.first.c_str(),
                    entry.second.second.c_str());
    }
});

TEST(GetQuayLocale2SystemLocaleMap, HasNothingElseWithoutALocaleFile) {
    EXPECT_EQ(outputOf(kPrintsTheMap, {{"HX_PRODUCT_HOME", "/no/such/directory"}}), "C=(C,1252)");
}

// ---- Code page of a locale -------------------------------------------------------------------------------

TEST(Locale2CodePage, LooksAtNoPartButTheCodeSet) {
    for (const char* name :
         {"de_DE.ISO-8859-15", "de_DE.ISO-8859-15@euro", "de.ISO-8859-15@euro", "_.ISO-8859-15@",
          ".ISO-8859-15", "C.ISO-8859-15", "no such language.iso885915@@"}) {
        EXPECT_EQ(Locale2CodePage(name), 285915U) << name;
    }
}

TEST(Locale2CodePage, TakesAModifierForNoCodeSet) {
    for (const char* name : {"C@euro", "de_DE@euro", "de_DE@UTF-8", "@UTF-8", "de_DE.@UTF-8"}) {
        EXPECT_EQ(Locale2CodePage(name), 1252U) << name;
    }
}

TEST(Locale2CodePage, ReadsPartsOfAnyLength) {
    const std::string longPart(100000, 'x');
    EXPECT_EQ(Locale2CodePage((longPart + "_" + longPart + ".UTF-8@" + longPart).c_str()), 65001U);
    EXPECT_EQ(Locale2CodePage((longPart + "_" + longPart + "." + longPart + "@" + longPart).c_str()), 1252U);
    EXPECT_EQ(Locale2CodePage(longPart.c_str()), 1252U);
}

TEST(Locale2CodePage, ReportsNothing) {
    const RecordingManager manager;
    Locale2CodePage("xx_YY.no-such-code-set");
    Locale2CodePage(nullptr);
    EXPECT_TRUE(manager.reports().empty());
}

// ---- Setting the locale ----------------------------------------------------------------------------------

void printLocales() {
    std::printf(" LC_CTYPE=%s LC_NUMERIC=%s;", std::setlocale(LC_CTYPE, nullptr),
                std::setlocale(LC_NUMERIC, nullptr));
}

void printReports(const RecordingManager& manager) {
    for (const RecordingManager::Report& report : manager.reports()) {
        std::printf(" [%d %s %s]", report.code, report.arg1.c_str(), report.arg2.c_str());
    }
}

void setAndPrint(int category, const char* locale) {
    RecordingManager manager;
    const char* const result = SystemUtility::NCSetLocale(category, locale);
    std::printf("%s", result == nullptr ? "(null)" : result);
    printReports(manager);
    printLocales();
}

const FreshProcess kSetsASystemLocale("NCSetLocale of a system locale", [] {
    std::printf("%s", kMark);
    setAndPrint(LC_CTYPE, "C.utf8");
    setAndPrint(LC_CTYPE, "C");
});

TEST(NCSetLocale, SetsASystemLocaleForItsCategory) {
    EXPECT_EQ(outputOf(kSetsASystemLocale), "C.utf8 LC_CTYPE=C.utf8 LC_NUMERIC=C;C LC_CTYPE=C LC_NUMERIC=C;");
}

const FreshProcess kSetsAllCategories("NCSetLocale of all categories", [] {
    std::printf("%s", kMark);
    setAndPrint(LC_ALL, "C.utf8");
});

TEST(NCSetLocale, SetsAllCategories) {
    EXPECT_EQ(outputOf(kSetsAllCategories), "C.utf8 LC_CTYPE=C.utf8 LC_NUMERIC=C.utf8;");
}

const FreshProcess kSetsAMissingLocale("NCSetLocale of a missing locale", [] {
    std::printf("%s", kMark);
    std::setlocale(LC_ALL, "C.utf8");
    setAndPrint(LC_CTYPE, "xx_YY.UTF-8");
});

TEST(NCSetLocale, ReportsAMissingLocaleAndSetsC) {
    EXPECT_EQ(outputOf(kSetsAMissingLocale), "C [-3 xx_YY.UTF-8 C] LC_CTYPE=C LC_NUMERIC=C.utf8;");
}

const FreshProcess kSetsTheEnvironments("NCSetLocale of the environment's locale", [] {
    std::printf("%s", kMark);
    setAndPrint(LC_CTYPE, nullptr);
    setAndPrint(LC_NUMERIC, "");
});

TEST(NCSetLocale, TakesNullAndTheEmptyNameForTheEnvironmentsLocale) {
    EXPECT_EQ(outputOf(kSetsTheEnvironments, {{"LC_ALL", "C.utf8"}}),
              "C.utf8 LC_CTYPE=C.utf8 LC_NUMERIC=C;C.utf8 LC_CTYPE=C.utf8 LC_NUMERIC=C.utf8;");
    EXPECT_EQ(outputOf(kSetsTheEnvironments, {{"LC_ALL", "xx_YY"}}),
              "C [-3  C] LC_CTYPE=C LC_NUMERIC=C;C [-3  C] LC_CTYPE=C LC_NUMERIC=C;");
}

const FreshProcess kSetsAnUnknownCategory("NCSetLocale of an unknown category", [] {
    std::printf("%s", kMark);
    std::setlocale(LC_ALL, "C.utf8");
    setAndPrint(4711, "C.utf8");
});

TEST(NCSetLocale, SetsNothingForAnUnknownCategory) {
    EXPECT_EQ(outputOf(kSetsAnUnknownCategory), "(null) [-3 C.utf8 C] LC_CTYPE=C.utf8 LC_NUMERIC=C.utf8;");
}

TEST(GetSystemLocaleFromCodePage, IsThatOfTheEntryWithThePage) {
    EXPECT_STREQ(SystemUtility::GetSystemLocaleFromCodePage(1252).c_str(), "C");
}

TEST(GetSystemLocaleFromCodePage, IsEmptyForAPageWithoutAnEntry) {
    for (const unsigned int page : {0U, 1U, 4711U, 4294967295U}) {
        EXPECT_TRUE(SystemUtility::GetSystemLocaleFromCodePage(page).empty()) << page;
    }
}

// ---- The locale file -------------------------------------------------------------------------------------

std::string narrow(const sup::String<wchar_t>& text) {
    std::string result;
    for (std::size_t i = 0; i < text.length(); ++i) {
        result += text[i] < 0x80 ? static_cast<char>(text[i]) : '?';
    }
    return result;
}

const FreshProcess kPrintsTheLocaleFile("locale file", [] {
    std::printf("%s%s", kMark, narrow(GetLocaleFile()).c_str());
    std::printf(" %s", std::setlocale(LC_ALL, nullptr));
});

TEST(GetLocaleFile, LiesInTheServersLocaleDirectory) {
    EXPECT_EQ(outputOf(kPrintsTheLocaleFile), "/vanta/home/hxfoundation/server/locale/BrimLocale.xml C");
    EXPECT_EQ(outputOf(kPrintsTheLocaleFile, {{"HX_PRODUCT_HOME", "/no/such/a//b/"}}),
              "/no/such/a/b/hxfoundation/server/locale/BrimLocale.xml C");
    EXPECT_EQ(outputOf(kPrintsTheLocaleFile, {{"VANTA_HX_HOME", "/no/such/c"}}),
              "/no/such/c/hxfoundation/server/locale/BrimLocale.xml C");
    EXPECT_EQ(outputOf(kPrintsTheLocaleFile, {{"VANTA_HOME", "/no/such/d/"}}),
              "/no/such/d/hxfoundation/server/locale/BrimLocale.xml C");
}

const FreshProcess kAsksInALocale("locale file in a locale", [] {
    std::setlocale(LC_ALL, "C.utf8");
    RecordingManager manager;
    std::printf("%s%s %zu", kMark, narrow(GetLocaleFile()).c_str(), manager.reports().size());
    printLocales();
});

TEST(GetLocaleFile, PutsTheLocaleBack) {
    EXPECT_EQ(outputOf(kAsksInALocale, {{"HX_PRODUCT_HOME", "/no/such/h"}}),
              "/no/such/h/hxfoundation/server/locale/BrimLocale.xml 0 LC_CTYPE=C.utf8 LC_NUMERIC=C.utf8;");
}

const FreshProcess kCannotLeaveItsLocale("locale file without C", [] {
    std::setlocale(LC_CTYPE, "C.utf8");
    RecordingManager manager;
    g_missingLocale = "C";
    std::printf("%s%s", kMark, narrow(GetLocaleFile()).c_str());
    printReports(manager);
    printLocales();
});
const FreshProcess kCannotReturnToItsLocale("locale file without the way back", [] {
    std::setlocale(LC_CTYPE, "C.utf8");
    RecordingManager manager;
    g_missingLocale = "C.utf8";
    std::printf("%s%s", kMark, narrow(GetLocaleFile()).c_str());
    printReports(manager);
    printLocales();
});

TEST(GetLocaleFile, ReportsALocaleThatCannotBeSetAndGivesThePathAllTheSame) {
    EXPECT_EQ(outputOf(kCannotLeaveItsLocale, {{"HX_PRODUCT_HOME", "/no/such/h"}}),
              "/no/such/h/hxfoundation/server/locale/BrimLocale.xml [-3 C (null)] LC_CTYPE=C.utf8 "
              "LC_NUMERIC=C;");
    EXPECT_EQ(outputOf(kCannotReturnToItsLocale, {{"HX_PRODUCT_HOME", "/no/such/h"}}),
              "/no/such/h/hxfoundation/server/locale/BrimLocale.xml [-2 C.utf8 (null)] LC_CTYPE=C "
              "LC_NUMERIC=C;");
}

// ---- Nothing else changes the locale ---------------------------------------------------------------------

const FreshProcess kUsesTheLibrary("use of the library in a locale", [] {
    std::printf("%s", kMark);
    printLocales(); // as loading left it
    std::setlocale(LC_CTYPE, "C.utf8");
    g_changes = 0;
    wchar_t units[8];
    char bytes[8];
    SystemUtility::GetACP();
    SystemUtility::MultiByteToWideChar("\xC3\xA9", units, 8, 0);
    SystemUtility::WideCharToMultiByte(L"\xE9", bytes, 8, 1252);
    Locale2CodePage("de_DE.ISO-8859-15@euro");
    SystemUtility::GetSystemLocaleFromCodePage(1252);
    GetQuayLocale2SystemLocaleMap();
    sup::String<wchar_t> path;
    SystemUtility::GetServerLocaleDirectory(path);
    std::printf("%d changes;", g_changes);
    printLocales();
});

TEST(TheLocale, IsLeftAloneByLoadingAndByUse) {
    EXPECT_EQ(outputOf(kUsesTheLibrary, {{"LC_ALL", "C.utf8"}}),
              " LC_CTYPE=C LC_NUMERIC=C;0 changes; LC_CTYPE=C.utf8 LC_NUMERIC=C;");
}

} // namespace
