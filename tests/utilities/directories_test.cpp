// SystemUtility: environment variables, the product's home and what lies under it.
#include "Utility/Generic/Portable/SUPOS.h"

#include "child_process.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using brimtest::ChildResult;
using brimtest::ClientCodePage;
using brimtest::EnvironmentChange;
using brimtest::FreshProcess;
using brimtest::RecordingManager;
using WideString = sup::String<wchar_t>;

namespace {

constexpr unsigned int kUtf8 = 65001;

std::wstring_view viewOf(const WideString& s) { return {s.begin(), s.length()}; }

// A directory of its own, removed with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = std::filesystem::temp_directory_path() / "directories_test.XXXXXX";
        EXPECT_NE(::mkdtemp(name.data()), nullptr);
        m_path = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    WideString wide() const { return WideString(m_path.wstring().c_str()); }

private:
    std::filesystem::path m_path;
};

// The library may print when it is loaded; what a body prints begins here.
constexpr const char* kMark = "body:";

std::string outputOf(const FreshProcess& process, const std::vector<EnvironmentChange>& changes) {
    std::vector<EnvironmentChange> all = {
        {"HX_PRODUCT_HOME", nullptr}, {"VANTA_HX_HOME", nullptr}, {"VANTA_HOME", nullptr}};
    all.insert(all.end(), changes.begin(), changes.end());
    const ChildResult result = process.run(all);
    const std::size_t mark = result.output.find(kMark);
    EXPECT_NE(mark, std::string::npos) << result;
    EXPECT_EQ(result.exitCode(), 0) << result;
    return mark == std::string::npos ? std::string() : result.output.substr(mark + std::string(kMark).size());
}

void print(bool result, const WideString& path) {
    std::printf(" %d ", result ? 1 : 0);
    for (std::size_t i = 0; i < path.length(); ++i) {
        std::putchar(path[i] < 0x80 ? static_cast<char>(path[i]) : '?');
    }
}

// ---- Paths -----------------------------------------------------------------------------------------------

TEST(CleanupPath, MakesDoubledSeparatorsOneAndTakesOneOffTheEnd) {
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"", L""},
        {L"a", L"a"},
        {L"a//b/", L"a/b"},
        {L"/", L""},
        {L"//", L""},
        {L"///", L"/"},
        {L"////", L"/"},
        {L"a///b", L"a//b"},
        {L"a////b", L"a//b"},
        {L"a//", L"a"},
        {L"a///", L"a/"},
        {L"/a/b", L"/a/b"},
        {L"/a\xE9//\x20AC/", L"/a\xE9/\x20AC"},
        {L"a\\\\b\\", L"a\\\\b\\"},
    };
    for (const auto& [before, after] : rows) {
        WideString path(before);
        CleanupPath(path);
        EXPECT_EQ(viewOf(path), after) << testing::PrintToString(std::wstring(before));
    }
}

TEST(IsValidDirectory, IsTrueForDirectoriesAlone) {
    const TemporaryDirectory directory;
    const std::ofstream file(directory.path() / "file");
    std::filesystem::create_directory(directory.path() / "inside");
    const auto isValid = [&](const wchar_t* name) {
        return SystemUtility::IsValidDirectory(WideString(directory.wide()).append(name));
    };
    EXPECT_TRUE(isValid(L""));
    EXPECT_TRUE(isValid(L"/"));
    EXPECT_TRUE(isValid(L"/inside"));
    EXPECT_TRUE(isValid(L"/inside/.."));
    EXPECT_FALSE(isValid(L"/file"));
    EXPECT_FALSE(isValid(L"/missing"));
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L""));
    EXPECT_TRUE(SystemUtility::IsValidDirectory(L"."));
    EXPECT_TRUE(SystemUtility::IsValidDirectory(L"/"));
}

TEST(IsValidDirectory, LeavesTheWorkingDirectoryAsItWas) {
    const TemporaryDirectory directory;
    const std::filesystem::path before = std::filesystem::current_path();
    EXPECT_TRUE(SystemUtility::IsValidDirectory(directory.wide()));
    EXPECT_EQ(std::filesystem::current_path(), before);
    EXPECT_FALSE(SystemUtility::IsValidDirectory(WideString(directory.wide()).append(L"/missing")));
    EXPECT_EQ(std::filesystem::current_path(), before);
}

TEST(IsValidDirectory, ReadsPathsInTheClientCodePage) {
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory.path() / "\xE2\x82\xAC");
    const WideString path = WideString(directory.wide()).append(L"/\x20AC");
    const ClientCodePage client(kUtf8);
    EXPECT_TRUE(SystemUtility::IsValidDirectory(path));
    // More than three bytes a character: no path, and no failed assertion.
    EXPECT_FALSE(SystemUtility::IsValidDirectory(std::wstring(8, L'\x1F600').c_str()));
}

TEST(IsValidDirectory, IsFalseWithoutAWorkingDirectory) {
    const ChildResult result = brimtest::runInChild([] {
        const TemporaryDirectory directory;
        const bool isGone = ::chdir(directory.path().c_str()) == 0 && ::rmdir(directory.path().c_str()) == 0;
        ::_exit(isGone && !SystemUtility::IsValidDirectory(L"/") ? 0 : 1);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
}

std::vector<std::wstring> g_visited;

int recordVisit(const wchar_t* path) {
    g_visited.emplace_back(path);
    return g_visited.size() == 1 ? 0 : -1;
}
wchar_t* giveDirectory(wchar_t* buffer, int length) {
    std::copy_n(L"/where/we/were", 15, buffer);
    return length == 8192 ? buffer : nullptr;
}
wchar_t* giveNoDirectory(wchar_t*, int) { return nullptr; }

TEST(IsValidDirectory, GoesThereAndBackThroughTheReplaceableCalls) {
    const auto chdirBefore = std::exchange(OSAbstraction::g_wchdirFuncPtr, recordVisit);
    const auto getcwdBefore = std::exchange(OSAbstraction::g_wgetcwdFuncPtr, giveDirectory);
    g_visited.clear();
    EXPECT_TRUE(SystemUtility::IsValidDirectory(L"/some/where"));
    EXPECT_EQ(g_visited, (std::vector<std::wstring>{L"/some/where", L"/where/we/were"}));
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"/else/where")) << "the third visit fails";
    EXPECT_EQ(g_visited.size(), 3U) << "no way back is needed";
    OSAbstraction::g_wgetcwdFuncPtr = giveNoDirectory;
    EXPECT_FALSE(SystemUtility::IsValidDirectory(L"/some/where"));
    EXPECT_EQ(g_visited.size(), 3U) << "there would be no way back";
    OSAbstraction::g_wchdirFuncPtr = chdirBefore;
    OSAbstraction::g_wgetcwdFuncPtr = getcwdBefore;
}

// ---- Environment variables -------------------------------------------------------------------------------

const FreshProcess kReadsVariables("environment variables", [] {
    std::printf("%s", kMark);
    for (const wchar_t* const name : {L"DT_SET", L"DT_EMPTY", L"DT_ABSENT", L"dt_set", L""}) {
        WideString value(L"before");
        const bool isSet = SystemUtility::Getenv(name, value);
        print(isSet, value);
    }
});

TEST(Getenv, GivesTheValueAndWhetherThereIsOne) {
    EXPECT_EQ(outputOf(kReadsVariables, {{"DT_SET", "a=b c"}, {"DT_EMPTY", ""}, {"DT_ABSENT", nullptr}}),
              " 1 a=b c 1  0  0  0 ");
}

const FreshProcess kReadsInACodePage("environment variables in a code page", [] {
    std::printf("%s", kMark);
    for (const unsigned int page : {kUtf8, 28591U}) {
        OSAbstraction::g_clientCodePage = page;
        WideString value;
        SystemUtility::Getenv(L"DT_VALUE", value);
        std::printf(" %zu", value.length());
        print(SystemUtility::Getenv(L"DT_\xE9", value), value);
    }
});

TEST(Getenv, ConvertsTheNameAndTheValueInTheClientCodePage) {
    EXPECT_EQ(outputOf(kReadsInACodePage, {{"DT_VALUE", "\xE2\x82\xAC"}, {"DT_\xC3\xA9", "named"}}),
              " 1 1 named 3 0 ");
}

TEST(Getenv, IsFalseForANameThatCannotBeConverted) {
    const ClientCodePage client(kUtf8);
    WideString value(L"before");
    EXPECT_FALSE(SystemUtility::Getenv(std::wstring(8, L'\x1F600').c_str(), value));
    EXPECT_TRUE(value.empty());
}

TEST(Getenv, ReadsAnew) {
    WideString value;
    ::setenv("DT_CHANGING", "one", 1);
    EXPECT_TRUE(SystemUtility::Getenv(L"DT_CHANGING", value));
    EXPECT_EQ(viewOf(value), L"one");
    ::setenv("DT_CHANGING", std::string(5000, 'x').c_str(), 1);
    EXPECT_TRUE(SystemUtility::Getenv(L"DT_CHANGING", value));
    EXPECT_EQ(viewOf(value), std::wstring(5000, L'x'));
    ::unsetenv("DT_CHANGING");
    EXPECT_FALSE(SystemUtility::Getenv(L"DT_CHANGING", value));
    EXPECT_TRUE(value.empty());
}

// ---- The home --------------------------------------------------------------------------------------------

const FreshProcess kPrintsTheHome("product home", [] {
    std::printf("%s", kMark);
    for (int call = 0; call < 2; ++call) {
        WideString path(L"before");
        const bool isReal = SystemUtility::GetVantaHXHomeDirectory(path);
        print(isReal, path);
    }
    WideString path(L"before");
    const bool isReal = SystemUtility::GetServerLocaleDirectory(path);
    print(isReal, path);
});

// What the process above prints for a home that it gives the same twice.
std::string homeOutput(const std::string& home) {
    return home + home + " 1 " + home.substr(3) + "/hxfoundation/server/locale";
}

TEST(GetVantaHXHomeDirectory, IsTheDefaultWithoutVariables) {
    EXPECT_EQ(outputOf(kPrintsTheHome, {}), homeOutput(" 0 /vanta/home"));
}

TEST(GetVantaHXHomeDirectory, TakesTheFirstVariableCleaned) {
    EXPECT_EQ(outputOf(kPrintsTheHome, {{"HX_PRODUCT_HOME", "/no/such//a/"},
                                        {"VANTA_HX_HOME", "/no/such/b"},
                                        {"VANTA_HOME", "/no/such/c"}}),
              homeOutput(" 1 /no/such/a"));
    EXPECT_EQ(outputOf(kPrintsTheHome, {{"VANTA_HX_HOME", "/no/such//b/"}, {"VANTA_HOME", "/no/such/c"}}),
              homeOutput(" 1 /no/such/b"));
}

TEST(GetVantaHXHomeDirectory, TakesAVariableThatIsSetToNothing) {
    EXPECT_EQ(outputOf(kPrintsTheHome, {{"HX_PRODUCT_HOME", ""}, {"VANTA_HX_HOME", "/no/such/b"}}),
              homeOutput(" 1 "));
    EXPECT_EQ(outputOf(kPrintsTheHome, {{"HX_PRODUCT_HOME", "/"}}), homeOutput(" 1 "));
}

TEST(GetVantaHXHomeDirectory, IsUnderTheVantaHomeThatHoldsTheServer) {
    const TemporaryDirectory directory;
    std::filesystem::create_directories(directory.path() / "hx/hxfoundation/server/bin");
    const std::string vantaHome = directory.path();
    EXPECT_EQ(outputOf(kPrintsTheHome, {{"VANTA_HOME", vantaHome.c_str()}}),
              homeOutput(" 1 " + vantaHome + "/hx"));
    EXPECT_EQ(outputOf(kPrintsTheHome, {{"VANTA_HOME", (vantaHome + "/").c_str()}}),
              homeOutput(" 1 " + vantaHome + "/hx"));
}

TEST(GetVantaHXHomeDirectory, IsTheBareVantaHomeWithoutTheServer) {
    EXPECT_EQ(outputOf(kPrintsTheHome, {{"VANTA_HOME", "/no/such//c/"}}),
              " 0 /no/such//c/ 0 /no/such//c/ 1 /no/such/c/hxfoundation/server/locale");
}

const FreshProcess kChangesTheHome("product home that changes", [] {
    std::printf("%s", kMark);
    for (const char* const home : {"/no/such/a", "/no/such/b"}) {
        ::setenv("VANTA_HX_HOME", home, 1);
        WideString path;
        const bool isReal = SystemUtility::GetVantaHXHomeDirectory(path);
        print(isReal, path);
    }
});

TEST(GetVantaHXHomeDirectory, StaysOnceItIsFound) {
    EXPECT_EQ(outputOf(kChangesTheHome, {{"HX_PRODUCT_HOME", "/no/such/first"}}),
              " 1 /no/such/first 1 /no/such/first");
    // A fallback does not stay.
    EXPECT_EQ(outputOf(kChangesTheHome, {}), " 1 /no/such/a 1 /no/such/a");
    EXPECT_EQ(outputOf(kChangesTheHome, {{"VANTA_HOME", "/no/such/c"}}), " 1 /no/such/a 1 /no/such/a");
}

const FreshProcess kPrintsLengths("length of the product home", [] {
    std::printf("%s", kMark);
    WideString path;
    SystemUtility::GetVantaHXHomeDirectory(path);
    SystemUtility::GetVantaHXHomeDirectory(path);
    std::printf(" %zu", path.length());
});

TEST(GetVantaHXHomeDirectory, KeepsAsMuchAsTheCacheHolds) {
    for (const std::size_t length : {2046U, 2047U, 2048U, 5000U}) {
        const std::string home = "/" + std::string(length - 1, 'x');
        EXPECT_EQ(outputOf(kPrintsLengths, {{"HX_PRODUCT_HOME", home.c_str()}}),
                  " " + std::to_string(std::min<std::size_t>(length, 2047)));
    }
}

} // namespace
