// Settings from the environment: numbers, the language of messages, flags.
#include "environment_test_support.h"

#include "test_locale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

using brimtest::answers;
using brimtest::FreshProcess;
using brimtest::show;
using brimtest::SystemCalls;
using brimtest::Tree;

namespace {

using WideString = sup::String<wchar_t>;

// ---- Numbers ----------------------------------------------------------------------------------------------

struct NumberRow {
    const char* value;
    int number;
};

constexpr NumberRow kNumbers[] = {
    {"0", 0}, {"17", 17}, {"-3", -3}, {" 42xyz", 42}, {"", 0}, {"abc", 0}, {"4294967297", 1}, {"'8'", 0},
};

TEST(GetRPCTimeoutSeconds, IsReadOnEachCall) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {}, [] { show(SystemUtility::GetRPCTimeoutSeconds()); }), "540\n");
    EXPECT_EQ(answers(tree, {},
                      [] {
                          for (const NumberRow& row : kNumbers) {
                              ::setenv("QUAY_RPC_TIMEOUT", row.value, 1);
                              show(SystemUtility::GetRPCTimeoutSeconds() == row.number);
                          }
                          ::unsetenv("QUAY_RPC_TIMEOUT");
                          show(SystemUtility::GetRPCTimeoutSeconds());
                      }),
              "true\ntrue\ntrue\ntrue\ntrue\ntrue\ntrue\ntrue\n540\n");
}

void limitFiles(rlim_t soft) {
    struct rlimit limit {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = soft;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(GetMaximumFileHandles, IsTheSoftLimitReadOnEachCall) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {},
                      [] {
                          for (const rlim_t limit : {64U, 32U, 77U}) {
                              limitFiles(limit);
                              show(SystemUtility::GetMaximumFileHandles());
                          }
                      }),
              "64\n32\n77\n");
}

TEST(GetMaximumFileHandles, TheVariableComesFirst) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {},
                      [] {
                          limitFiles(64);
                          for (const NumberRow& row : kNumbers) {
                              ::setenv("FEN_MAX_FILE_HANDLES", row.value, 1);
                              show(SystemUtility::GetMaximumFileHandles() == row.number);
                          }
                          ::unsetenv("FEN_MAX_FILE_HANDLES");
                          show(SystemUtility::GetMaximumFileHandles());
                      }),
              "true\ntrue\ntrue\ntrue\ntrue\ntrue\ntrue\ntrue\n64\n");
}

TEST(GetMaximumFileHandles, AnUnknownOrUnlimitedLimitIs125) {
    const Tree tree;
    for (const rlim_t limit : {RLIM_INFINITY, rlim_t{0}}) {
        EXPECT_EQ(answers(tree, {},
                          [limit] {
                              SystemCalls::fileLimit = limit;
                              SystemCalls::fileLimitIsOurs = limit != 0;
                              SystemCalls::fileLimitFails = limit == 0;
                              show(SystemUtility::GetMaximumFileHandles());
                          }),
                  "125\n");
    }
}

TEST(GetMaximumFileHandles, AHugeLimitIsTheLargestNumber) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {},
                      [] {
                          SystemCalls::fileLimitIsOurs = true;
                          SystemCalls::fileLimit = rlim_t{1} << 40U;
                          show(SystemUtility::GetMaximumFileHandles());
                      }),
              std::to_string(INT_MAX) + "\n");
}

// ---- Processors: counted when the library is loaded, so each of these is a process of its own -------------

const FreshProcess kProcessors("processors", [] {
    show(SystemUtility::GetNumberOfProcessors());
    ::setenv("KROS_NUMBER_OF_PROCESSORS", "77", 1);
    show(SystemUtility::GetNumberOfProcessors());
});

TEST(GetNumberOfProcessors, TheVariableIsKeptFromLoadTimeOn) {
    EXPECT_EQ(kProcessors.run({{"KROS_NUMBER_OF_PROCESSORS", "4"}}).output, "4\n4\n");
    EXPECT_EQ(kProcessors.run({{"KROS_NUMBER_OF_PROCESSORS", "  5"}}).output, "5\n5\n");
}

TEST(GetNumberOfProcessors, WhatIsNoNumberAboveZeroGivesTheSystemsCount) {
    const std::string count = std::to_string(::sysconf(_SC_NPROCESSORS_ONLN)) + "\n";
    for (const char* const value : {"0", "-1", "", "four", "4 ", "4x", "'4'", "4294967296"}) {
        EXPECT_EQ(kProcessors.run({{"KROS_NUMBER_OF_PROCESSORS", value}}).output, count + count) << value;
    }
    EXPECT_EQ(kProcessors.run({{"KROS_NUMBER_OF_PROCESSORS", nullptr}}).output, count + count);
}

const FreshProcess kUnknownProcessors("unknown processors", [] {
    const auto showCount = [] {
        try {
            show(SystemUtility::GetNumberOfProcessors());
        } catch (int value) {
            std::printf("int %d\n", value);
        }
    };
    showCount();
    ::setenv("KROS_NUMBER_OF_PROCESSORS", "0", 1);
    showCount();
    ::unsetenv(brimtest::kNoProcessorsVariable);
    SystemCalls::processorsAreOurs = true; // a count of 0
    showCount();
    SystemCalls::processors = 8;
    showCount();
});

TEST(GetNumberOfProcessors, AFailureIsAnIntOfZeroAndIsNotKept) {
    const brimtest::ChildResult result = kUnknownProcessors.run({{brimtest::kNoProcessorsVariable, "1"}});
    EXPECT_EQ(result.exitCode(), 0);
    EXPECT_EQ(result.output, "int 0\nint 0\n1\n1\n");
    EXPECT_THAT(result.atLoad, testing::HasSubstr("brimportable: start-up failed: processor count\n"));
}

TEST(GetNumberOfProcessors, TheVariableServesWhereTheSystemFails) {
    EXPECT_EQ(
        kProcessors.run({{brimtest::kNoProcessorsVariable, "1"}, {"KROS_NUMBER_OF_PROCESSORS", "3"}}).output,
        "3\n3\n");
}

// ---- The language of messages -----------------------------------------------------------------------------

bool language(WideString& lang) { return SystemUtility::GetErrorMessageLang(lang); }

TEST(GetErrorMessageLang, IsTheVariable) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"VANTA_HX_LANG", "fr"}, {"LC_ALL", "C.UTF-8"}},
                      [] {
                          show(language);
                          ::setenv("VANTA_HX_LANG", "de", 1);
                          show(language);
                      }),
              "true fr\ntrue fr\n");
    EXPECT_EQ(answers(tree, {{"VANTA_HX_LANG", ""}}, [] { show(language); }), "true \n");
}

TEST(GetErrorMessageLang, IsTheOneThatWasSet) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"VANTA_HX_LANG", "fr"}},
                      [] {
                          SystemUtility::SetErrorMessageLang(L"de");
                          show(language);
                          SystemUtility::SetErrorMessageLang(L"");
                          show(language);
                          SystemUtility::SetErrorMessageLang(L"ja");
                          show(language);
                      }),
              "true de\ntrue \ntrue ja\n");
}

TEST(GetErrorMessageLang, ALongerOneThanTheCacheIsGivenWholeAndNotKept) {
    const Tree tree;
    for (const std::size_t length : {254U, 255U, 256U, 10'000U}) {
        SCOPED_TRACE(testing::Message() << length << " characters");
        const std::string value(length, 'x');
        EXPECT_EQ(answers(tree, {{"VANTA_HX_LANG", value}},
                          [] {
                              show(language);
                              ::setenv("VANTA_HX_LANG", "de", 1);
                              show(language);
                          }),
                  "true " + value + "\ntrue " + (length < 256 ? value : "de") + "\n");
    }
}

std::string languageOfLocale(const char* variable, const char* name) {
    const Tree tree;
    brimtest::Variables variables{{variable, name}};
    if (const char* const path = std::getenv("LOCPATH")) {
        variables.emplace_back("LOCPATH", path);
    }
    return answers(tree, variables, [] {
        show(language);
        ::setenv("VANTA_HX_LANG", "kept", 1);
        show(language);
    });
}

TEST(GetErrorMessageLang, WithoutALocaleItIsEnglish) {
    for (const char* const name : {"C", "POSIX", "", "no_SUCH.locale"}) {
        EXPECT_EQ(languageOfLocale("LC_ALL", name), "true en\ntrue en\n") << name;
    }
}

TEST(GetErrorMessageLang, OfTheLocaleCUtf8ItIsItsFirstTwoCharacters) {
    EXPECT_EQ(languageOfLocale("LC_ALL", "C.UTF-8"), "true C.\ntrue C.\n");
}

TEST(GetErrorMessageLang, FollowsTheCharacterTypeLocale) {
    EXPECT_EQ(languageOfLocale("LC_CTYPE", "C.UTF-8"), "true C.\ntrue C.\n");
    EXPECT_EQ(languageOfLocale("LANG", "C.UTF-8"), "true C.\ntrue C.\n");
    EXPECT_EQ(languageOfLocale("LC_MESSAGES", "C.UTF-8"), "true en\ntrue en\n");
}

struct LocaleRow {
    const char* source;
    const char* language;
};

TEST(GetErrorMessageLang, ChineseHasItsTerritory) {
    for (const LocaleRow& row : {LocaleRow{"zh_CN", "zh-CN"}, LocaleRow{"zh_TW", "zh-TW"},
                                 LocaleRow{"zh_HK", "zh"}, LocaleRow{"de_DE", "de"}}) {
        const brimtest::CompiledLocale locale(row.source);
        BRIM_SKIP_WITHOUT(locale);
        const std::string answer = std::string("true ") + row.language + "\n";
        EXPECT_EQ(languageOfLocale("LC_ALL", (std::string(row.source) + ".UTF-8").c_str()), answer + answer);
    }
}

TEST(GetErrorMessageLang, ShortLocaleNamesAreTakenAsTheyAre) {
    const brimtest::CompiledLocale locale("zh_CN");
    BRIM_SKIP_WITHOUT(locale);
    const std::filesystem::path directory = std::getenv("LOCPATH");
    for (const char* const name : {"z", "zh", "zh_", "zh_C", "zh-CN"}) {
        std::filesystem::copy(directory / "zh_CN.UTF-8", directory / name,
                              std::filesystem::copy_options::recursive);
        const std::string expected = name == std::string("z")       ? "z"
                                     : name == std::string("zh-CN") ? "zh-CN"
                                                                    : "zh";
        EXPECT_EQ(languageOfLocale("LC_ALL", name), "true " + expected + "\ntrue " + expected + "\n") << name;
    }
}

// ---- Flags ------------------------------------------------------------------------------------------------

TEST(AreWeHaloManagedComponent, IsKeptOnceItIsSet) {
    const Tree tree;
    const auto ask = [] { show(SystemUtility::AreWeHaloManagedComponent()); };
    EXPECT_EQ(answers(tree, {},
                      [ask] {
                          ask();
                          ::setenv("VANTA_HX_HALOMANAGED", "yes", 1);
                          ask();
                          ::setenv("VANTA_HX_HALOMANAGED", "no", 1);
                          ask();
                          ::unsetenv("VANTA_HX_HALOMANAGED");
                          ask();
                      }),
              "false\ntrue\ntrue\ntrue\n");
    EXPECT_EQ(answers(tree, {{"VANTA_HX_HALOMANAGED", "no"}},
                      [ask] {
                          ask();
                          ::setenv("VANTA_HX_HALOMANAGED", "yes", 1);
                          ask();
                      }),
              "false\nfalse\n");
}

TEST(AreWeHaloManagedComponent, TakesTruthWords) {
    const Tree tree;
    for (const char* const value : {"True", "yes", " ON ", "1", "+", "ok", "1.0", "t", "Y"}) {
        EXPECT_EQ(answers(tree, {{"VANTA_HX_HALOMANAGED", value}},
                          [] { show(SystemUtility::AreWeHaloManagedComponent()); }),
                  "true\n")
            << value;
    }
    for (const char* const value : {"", "False", "no", "0", "o", "2", "unknown", "truely"}) {
        EXPECT_EQ(answers(tree, {{"VANTA_HX_HALOMANAGED", value}},
                          [] { show(SystemUtility::AreWeHaloManagedComponent()); }),
                  "false\n")
            << value;
    }
}

TEST(FeatureFlags, AreFilesThatAreLookedForOnEachCall) {
    const Tree tree;
    EXPECT_EQ(answers(tree, {{"HX_PRODUCT_HOME", "$T/p"}},
                      [&tree] {
                          const auto ask = [] {
                              show(SystemUtility::IsFeatureEnabled(L"some"));
                              show(SystemUtility::IsCCSAvailable());
                              show(SystemUtility::IsFSSv2Available());
                          };
                          ask();
                          tree.addFile("p/featureflags/some");
                          ask();
                          tree.addFile("p/featureflags/contentstorage");
                          ask();
                          std::filesystem::remove_all(tree.root() + "/p");
                          ask();
                      }),
              "false\nfalse\nfalse\ntrue\nfalse\nfalse\ntrue\ntrue\ntrue\nfalse\nfalse\nfalse\n");
}

TEST(FeatureFlags, MayBeDirectoriesAndPaths) {
    const Tree tree;
    tree.addDirectory("featureflags/directory");
    tree.addFile("featureflags/a/b");
    EXPECT_EQ(answers(tree, {{"HX_PRODUCT_HOME", "$T"}},
                      [] {
                          for (const wchar_t* const feature : {L"directory", L"a/b", L"", L"b", L"../none"}) {
                              show(SystemUtility::IsFeatureEnabled(feature));
                          }
                      }),
              "true\ntrue\ntrue\nfalse\nfalse\n");
}

TEST(FeatureFlags, LieInAHomeThatIsAFallbackToo) {
    const Tree tree;
    tree.addFile("v/featureflags/some");
    EXPECT_EQ(
        answers(tree, {{"VANTA_HOME", "$T/v/"}}, [] { show(SystemUtility::IsFeatureEnabled(L"some")); }),
        "true\n");
}

TEST(IsLegacyInstanceMode, IsLookedForOnce) {
    const Tree tree;
    tree.addFile("p/featureflags/noninstancemode");
    tree.addDirectory("q");
    const auto ask = [] { show(SystemUtility::IsLegacyInstanceMode()); };
    EXPECT_EQ(answers(tree, {{"HX_PRODUCT_HOME", "$T/p"}},
                      [&] {
                          ask();
                          std::filesystem::remove_all(tree.root() + "/p");
                          ask();
                      }),
              "true\ntrue\n");
    EXPECT_EQ(answers(tree, {{"HX_PRODUCT_HOME", "$T/q"}},
                      [&] {
                          ask();
                          tree.addFile("q/featureflags/noninstancemode");
                          ask();
                          show(SystemUtility::IsFeatureEnabled(L"noninstancemode"));
                      }),
              "false\nfalse\ntrue\n");
}

TEST(IsLegacyInstanceMode, TakesAHomeThatEndsInASlash) {
    const Tree tree;
    tree.addFile("v/featureflags/noninstancemode");
    EXPECT_EQ(answers(tree, {{"VANTA_HOME", "$T/v/"}}, [] { show(SystemUtility::IsLegacyInstanceMode()); }),
              "true\n");
    EXPECT_EQ(answers(tree, {{"VANTA_HOME", "$T/v"}}, [] { show(SystemUtility::IsLegacyInstanceMode()); }),
              "true\n");
}

} // namespace
