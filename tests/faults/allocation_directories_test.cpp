// The environment and the directory layout without memory, at first use in a process and later.
#include "fault_injection.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "scratch.h"
#include "wide_texts.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

using namespace brimtest;

namespace {

const BrimString kEnglish(L"en");

struct Texts {
    BrimString path{L"before"};
    int number = -7;
};

std::string picture(const Texts& t) {
    return testing::PrintToString(plain(t.path)) + std::to_string(t.number);
}

class DirectoriesWithoutMemory : public testing::Test {
protected:
    void SetUp() override {
        for (const char* const variable :
             {"HX_PRODUCT_HOME", "VANTA_HX_HOME", "VANTA_HOME", "VANTA_INSTANCE", "DOMAIN_HOME",
              "VANTA_HX_CACHE_BASE_DIR", "VANTA_HX_TEMP_BASE_DIR"}) {
            ::setenv(variable, m_scratch.path().c_str(), 1);
        }
        ::setenv("COMPONENT_NAME", "component", 1);
        ::setenv("BRIM_TEST_NUMBER", "17", 1);
        ::setenv("VANTA_HX_HALOMANAGED", "on", 1);
    }

    template <std::size_t N>
    static void expectHarmless(const FaultyOperation<Texts> (&operations)[N]) {
        expectHarmlessRefusalsAtFirstUse(operations);
        const ChildResult warm = runInChild([&] {
            expectHarmlessRefusals(operations);
            std::fflush(stdout);
            ::_exit(testing::Test::HasFailure() ? 1 : 0);
        });
        EXPECT_EQ(warm.exitCode(), 0) << warm;
    }

    const Scratch m_scratch;
};

TEST_F(DirectoriesWithoutMemory, Environment) {
    expectHarmless<>({
        {"Getenv", [](Texts& t) { SystemUtility::Getenv(L"HX_PRODUCT_HOME", t.path); }},
        {"Getenv(number)", [](Texts& t) { SystemUtility::Getenv(L"BRIM_TEST_NUMBER", t.number); }},
        {"GetenvWithDefault",
         [](Texts& t) { t.number = SystemUtility::GetenvWithDefault(L"BRIM_TEST_NUMBER", 5); }},
        {"hasEnv", [](Texts& t) { t.number = SystemUtility::hasEnv(L"HX_PRODUCT_HOME") ? 1 : 2; }},
        {"Putenv", [](Texts& t) { t.number = SystemUtility::Putenv(L"BRIM_TEST_PUT", L"value") ? 1 : 2; }},
        {"GetPathVariableKeyWord", [](Texts& t) { t.path = SystemUtility::GetPathVariableKeyWord(); }},
        {"SetDllSearchPath", [](Texts&) { SystemUtility::SetDllSearchPath(L"/directory"); }},
        {"DumpEnvVariablesToString",
         [](Texts& t) {
             t.number = static_cast<int>(UtilityInitializer::DumpEnvVariablesToString().length()) > 9 ? 1 : 2;
         }},
    });
}

TEST_F(DirectoriesWithoutMemory, Settings) {
    expectHarmless<>({
        {"GetRPCTimeoutSeconds", [](Texts& t) { t.number = SystemUtility::GetRPCTimeoutSeconds(); }},
        {"GetNumberOfProcessors", [](Texts& t) { t.number = SystemUtility::GetNumberOfProcessors(); },
         Promise::noRequest},
        {"GetMaximumFileHandles", [](Texts& t) { t.number = SystemUtility::GetMaximumFileHandles(); }},
        {"SetErrorMessageLang", [](Texts&) { SystemUtility::SetErrorMessageLang(kEnglish); },
         Promise::noRequest},
        {"IsFeatureEnabled",
         [](Texts& t) { t.number = SystemUtility::IsFeatureEnabled(L"feature") ? 1 : 2; }},
        {"IsCCSAvailable", [](Texts& t) { t.number = SystemUtility::IsCCSAvailable() ? 1 : 2; }},
        {"IsFSSv2Available", [](Texts& t) { t.number = SystemUtility::IsFSSv2Available() ? 1 : 2; }},
        {"GetInstanceName", [](Texts& t) { SystemUtility::GetInstanceName(t.path); }, Promise::usable},
        {"GetComponentType", [](Texts& t) { SystemUtility::GetComponentType(t.path); }},
        {"GetComponentName", [](Texts& t) { SystemUtility::GetComponentName(t.path); }, Promise::usable},
        {"GetUniqueIdentifier", [](Texts& t) { SystemUtility::GetUniqueIdentifier(t.path); },
         Promise::usable},
        {"GetServerLogFileName", [](Texts& t) { SystemUtility::GetServerLogFileName(t.path); },
         Promise::usable},
        {"GetQueryLogFileName", [](Texts& t) { SystemUtility::GetQueryLogFileName(t.path); },
         Promise::usable},
        {"GetClusterLogFileName", [](Texts& t) { SystemUtility::GetClusterLogFileName(t.path); },
         Promise::usable},
        {"GetHXApplicationGroup",
         [](Texts& t) {
             BrimString group;
             SystemUtility::GetHXApplicationGroup(group);
             t.path = group;
         }},
        {"ComponentNames", [](Texts& t) { t.path = ComponentNames(L"TYPE", L"name").GetComponentType(); }},
    });
}

// Values that are looked up once.
TEST_F(DirectoriesWithoutMemory, ValuesThatAreKept) {
    expectHarmlessRefusalsAtFirstUse<Texts>({
        {"GetErrorMessageLang", [](Texts& t) { SystemUtility::GetErrorMessageLang(t.path); },
         Promise::usable},
        {"AreWeHaloManagedComponent",
         [](Texts& t) { t.number = SystemUtility::AreWeHaloManagedComponent() ? 1 : 2; }},
        {"IsLegacyInstanceMode", [](Texts& t) { t.number = SystemUtility::IsLegacyInstanceMode() ? 1 : 2; }},
    });
}

template <bool (*operation)(BrimString&)>
void into(Texts& t) {
    operation(t.path);
}

TEST_F(DirectoriesWithoutMemory, Directories) {
    using S = SystemUtility;
    // Which directory of a base is the right one is asked by going there; the way back can do without memory.
    expectHarmless<>({
        {"GetVantaHXHomeDirectory", into<S::GetVantaHXHomeDirectory>, Promise::usable},
        {"GetVantaHomeDirectory", into<S::GetVantaHomeDirectory>, Promise::served},
        {"GetVantaInstanceDirectory", into<S::GetVantaInstanceDirectory>, Promise::usable},
        {"GetDomainHomeDirectory", into<S::GetDomainHomeDirectory>, Promise::usable},
        {"GetServerBinDirectory", into<S::GetServerBinDirectory>, Promise::usable},
        {"GetServerLocaleDirectory", into<S::GetServerLocaleDirectory>, Promise::usable},
        {"GetRootDirectory", into<S::GetRootDirectory>, Promise::usable},
        {"GetProgramDirectory", into<S::GetProgramDirectory>, Promise::served},
        {"GetTimeZoneDirectory", into<S::GetTimeZoneDirectory>, Promise::usable},
        {"GetDomainServersDirectory", into<S::GetDomainServersDirectory>, Promise::usable},
        {"GetEnvKROCCSDirectory", into<S::GetEnvKROCCSDirectory>, Promise::usable},
        {"GetEnvCoreDirectory", into<S::GetEnvCoreDirectory>, Promise::usable},
        {"GetDefaultDataDirectory", into<S::GetDefaultDataDirectory>, Promise::usable},
        {"GetVantaHXConfigDir", into<S::GetVantaHXConfigDir>, Promise::usable},
        {"GetConfigKROCCSDirectory", into<S::GetConfigKROCCSDirectory>, Promise::usable},
        {"GetSharedConfigDirectory", into<S::GetSharedConfigDirectory>, Promise::usable},
        {"GetHXAppGroupDirectory", into<S::GetHXAppGroupDirectory>, Promise::usable},
        {"GetConfigDirectory", into<S::GetConfigDirectory>, Promise::usable},
        {"GetComponentDirectory", into<S::GetComponentDirectory>, Promise::usable},
        {"GetLogDirectory", into<S::GetLogDirectory>, Promise::usable},
        {"GetComponentCacheDirectory", into<S::GetComponentCacheDirectory>, Promise::served},
        {"GetTempDirectory", into<S::GetTempDirectory>, Promise::served},
    });
}

TEST_F(DirectoriesWithoutMemory, CleanupPathLeavesThePath) {
    expectHarmlessRefusals<Texts>({
        {"two slashes",
         [](Texts& t) {
             BrimString path(L"/a//b/");
             CleanupPath(path);
             t.path = path;
         }},
        {"a shared text",
         [](Texts& t) {
             static const BrimString kShared(L"/a/b/");
             BrimString path(kShared);
             CleanupPath(path);
             t.path = path;
         }},
    });
}

// The first association makes the directories; one that memory fails leaves that to the next.
TEST_F(DirectoriesWithoutMemory, AnAssociationIsWholeOrCanBeRepeated) {
    constexpr int kComplete = 7;
    int exitCode = 0;
    long n = 0;
    while (exitCode == 0 && n < 1000) {
        const Scratch domain;
        ::setenv("DOMAIN_HOME", domain.path().c_str(), 1);
        const ChildResult child = runInChild([&] {
            const RefusedRun run(n + 1, [] { SUPEnvInit::KROS_TYPE(); });
            // The way back from a directory can do without.
            EXPECT_NE(run.isBadAlloc, SUPEnvInit::getComponentNamesSet());
            SUPEnvInit::KROS_TYPE();
            BrimString path;
            for (bool (*const directory)(BrimString&) :
                 {SystemUtility::GetComponentDirectory, SystemUtility::GetTempDirectory,
                  SystemUtility::GetConfigDirectory, SystemUtility::GetLogDirectory,
                  SystemUtility::GetHXAppGroupDirectory}) {
                directory(path);
                EXPECT_TRUE(SystemUtility::IsValidDirectory(path)) << testing::PrintToString(plain(path));
            }
            EXPECT_EQ(plain(SUPEnvInit::getComponentType()), L"KROS");
            std::fflush(stdout);
            ::_exit(testing::Test::HasFailure() ? 1 : run.isRefused ? 0 : kComplete);
        });
        ++n;
        exitCode = child.exitCode();
        EXPECT_TRUE(exitCode == 0 || exitCode == kComplete) << "request " << n << ": " << child;
    }
    EXPECT_GT(n, 20);
}

} // namespace
