// Texts from outside that nobody would choose: values of the environment, names of files, hosts, locales,
// encodings and the program with any bytes and of any length. Nothing is overrun, nothing is taken for a
// format, and what was harmless in them comes out as it went in.
#include "SUPTranscodeIconv_UNIX.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPBuildMap.h"
#include "Utility/Generic/Portable/SUPDynamicLoader.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "Utility/Generic/Portable/SUPTranscode.h"
#include "child_process.h"
#include "recording_manager.h"
#include "scratch.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace brimtest;

namespace {

constexpr unsigned int kUtf8 = 65001;

constinit const char* g_hostName = nullptr;

} // namespace

extern "C" {

int gethostname(char* name, std::size_t length) noexcept {
    std::strncpy(name, g_hostName != nullptr ? g_hostName : "host", length);
    return 0;
}

// The timer is measured over a fiftieth of the time, which says as much here.
int nanosleep(const std::timespec* time, std::timespec* rest) {
    static auto* const real =
        reinterpret_cast<int (*)(const std::timespec*, std::timespec*)>(::dlsym(RTLD_NEXT, "nanosleep"));
    const std::timespec shorter{time->tv_sec / 50, time->tv_nsec / 50};
    return real(&shorter, rest);
}
}

namespace {

// `text` is what the value is in UTF-8; null for bytes that are none.
struct Nasty {
    std::string bytes;
    bool isText = true;
};

const std::vector<Nasty>& nastyTexts() {
    static const std::vector<Nasty> texts = {
        {"%s%n%d%99999999s"},
        {"%"},
        {"100%%"},
        {"a\nb\r\tc"},
        {"\x1B[2J\x07"},
        {"..."},
        {".../...."},
        {" "},
        {"'\";`$(reboot)|&<>*?"},
        {"\xF0\x9F\x98\x80\xE2\x80\xAE"},
        {std::string(255, 'n')},
        {std::string(2047, 'n')},
        {std::string(2048, 'n')},
        {std::string(50'000, 'n')}, // thirty such values fit an environment
        {"99999999999999999999999999"},
        {"-1"},
        {"\xFF\xFE\x80", false},
        {"cut \xE2\x82", false},
        {"\xC0\xAF\xED\xA0\x80", false},
    };
    return texts;
}

BrimString wide(const std::string& bytes) { return BaseStringUtil::StringFrom(bytes.c_str(), kUtf8); }
std::string narrow(const BrimString& text) {
    const sup::String<char> bytes = BaseStringUtil::StringToStdString(text.c_str(), kUtf8);
    return {bytes.begin(), bytes.length()};
}

// ---- The environment --------------------------------------------------------------------------------------

// Directories get the value below a directory of the test, all others the value itself.
constexpr const char* kDirectoryVariables[] = {"HX_PRODUCT_HOME",
                                               "VANTA_HX_HOME",
                                               "VANTA_HOME",
                                               "VANTA_HX_ROOTDIR",
                                               "VANTA_INSTANCE",
                                               "DOMAIN_HOME",
                                               "TMP",
                                               "TEMP",
                                               "TEMPDIR",
                                               "VANTA_HX_CONFIG_DIR",
                                               "VANTA_HX_TEMPDIR",
                                               "VANTA_HX_TEMP_BASE_DIR",
                                               "VANTA_HX_CACHEDIR",
                                               "VANTA_HX_CACHE_BASE_DIR",
                                               "TIMEZONE_PATH"};
constexpr const char* kOtherVariables[] = {"COMPONENT_NAME",
                                           "COMPONENT_TYPE",
                                           "INSTANCE_NAME",
                                           "VANTA_HX_LANG",
                                           "VANTA_HX_HALOMANAGED",
                                           "QUAY_RPC_TIMEOUT",
                                           "KROS_NUMBER_OF_PROCESSORS",
                                           "FEN_MAX_FILE_HANDLES",
                                           "KROS_CPUID_LOGGING",
                                           "HXS_STARTUP_LOG_TYPE",
                                           "VANTA_HX_SYSTEM_LOGGING",
                                           "LC_ALL",
                                           "LANG",
                                           "BRIM_KERNELS",
                                           "VANTA_HXSECURITY_SYSUSER_CRED"};

using DirectoryOperation = bool (*)(BrimString&);
constexpr DirectoryOperation kDirectories[] = {
    SystemUtility::GetVantaHXHomeDirectory,    SystemUtility::GetVantaHomeDirectory,
    SystemUtility::GetVantaInstanceDirectory,  SystemUtility::GetDomainHomeDirectory,
    SystemUtility::GetServerBinDirectory,      SystemUtility::GetServerLocaleDirectory,
    SystemUtility::GetRootDirectory,           SystemUtility::GetProgramDirectory,
    SystemUtility::GetTimeZoneDirectory,       SystemUtility::GetDomainServersDirectory,
    SystemUtility::GetEnvKROCCSDirectory,      SystemUtility::GetEnvCoreDirectory,
    SystemUtility::GetDefaultDataDirectory,    SystemUtility::GetVantaHXConfigDir,
    SystemUtility::GetConfigKROCCSDirectory,   SystemUtility::GetSharedConfigDirectory,
    SystemUtility::GetHXAppGroupDirectory,     SystemUtility::GetConfigDirectory,
    SystemUtility::GetComponentDirectory,      SystemUtility::GetLogDirectory,
    SystemUtility::GetComponentCacheDirectory, SystemUtility::GetTempDirectory};

// Twice: before and after the caches are filled.
void askForEverything() {
    BrimString text;
    for (int i = 0; i < 2; ++i) {
        for (const DirectoryOperation operation : kDirectories) {
            operation(text);
        }
        SystemUtility::GetInstanceName(text);
        SystemUtility::GetComponentType(text);
        SystemUtility::GetServerLogFileName(text);
        SystemUtility::GetQueryLogFileName(text);
        SystemUtility::GetErrorMessageLang(text);
        SystemUtility::GetRPCTimeoutSeconds();
        SystemUtility::GetNumberOfProcessors();
        SystemUtility::GetMaximumFileHandles();
        SystemUtility::AreWeHaloManagedComponent();
        SystemUtility::IsLegacyInstanceMode();
        SystemUtility::IsCCSAvailable();
        SystemUtility::SetDllSearchPath(text);
        PerfTimeSnap(true).Get();
        WRAP_wlogerror(false, L"");
        SUPEnvInit::KROS_TYPE();
    }
}

// Prints the component's name and whether the dump tells the credential.
const FreshProcess kAsks("asks for everything", [] {
    const char* const page = std::getenv("BRIM_TEST_CODE_PAGE");
    OSAbstraction::g_clientCodePage = static_cast<unsigned int>(std::atoi(page));
    askForEverything();
    const BrimString dump = UtilityInitializer::DumpEnvVariablesToString();
    const BrimString mask(L"VANTA_HXSECURITY_SYSUSER_CRED=******");
    const bool isMasked = BaseStringUtil::ForwardPatternMatch(dump, mask, 0) != dump.length();
    BrimString name;
    SystemUtility::GetComponentName(name);
    std::printf("%s%s", isMasked ? "masked " : "told ", narrow(name).c_str());
});

class HostileEnvironment : public testing::TestWithParam<int> {};

TEST_P(HostileEnvironment, IsReadAndNoMore) {
    for (const Nasty& nasty : nastyTexts()) {
        SCOPED_TRACE(testing::PrintToString(nasty.bytes.substr(0, 40)));
        const Scratch scratch;
        const std::string directory = scratch / nasty.bytes;
        std::vector<EnvironmentChange> changes{{"BRIM_TEST_CODE_PAGE", GetParam() == 0 ? "0" : "65001"}};
        // Later ones are asked where the first are absent.
        for (std::size_t i = 0; i < std::size(kDirectoryVariables); ++i) {
            const bool isAbsent = i < static_cast<std::size_t>(GetParam());
            changes.push_back({kDirectoryVariables[i], isAbsent ? nullptr : directory.c_str()});
        }
        for (const char* const variable : kOtherVariables) {
            changes.push_back({variable, nasty.bytes.c_str()});
        }
        const ChildResult child = kAsks.run(changes);
        EXPECT_EQ(child.exitCode(), 0) << child.output.substr(0, 1000) << child.atLoad.substr(0, 1000);
        EXPECT_NE(child.output.find("masked "), std::string::npos);
        if (nasty.isText && GetParam() != 0) {
            const std::string last = "masked " + nasty.bytes;
            EXPECT_TRUE(child.output.size() >= last.size() &&
                        child.output.compare(child.output.size() - last.size(), last.size(), last) == 0)
                << child.output.substr(0, 1000);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AbsentVariables, HostileEnvironment, testing::Values(0, 1, 2));

// Entries that no shell makes: without a name, without a value, twice.
TEST(HostileEnvironmentBlock, IsDumpedAsItStands) {
    const ClientCodePage utf8(kUtf8);
    const ChildResult child = runInChild([] {
        char noSign[] = "no sign";
        char noName[] = "=value";
        char empty[] = "";
        char first[] = "BRIM_TEST_TWICE=1";
        char second[] = "BRIM_TEST_TWICE=%n2";
        char credential[] = "vanta_hxsecurity_sysuser_cred";
        char* entries[] = {noSign, noName, empty, first, second, credential, nullptr};
        environ = entries;
        BrimString value;
        SystemUtility::Getenv(L"BRIM_TEST_TWICE", value);
        const BrimString dump = UtilityInitializer::DumpEnvVariablesToString();
        const std::string text = narrow(value) + "|" + narrow(dump);
        const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        ::_exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
    });
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_EQ(child.output, "1|Dumping all the environment variables:\nno sign\n=value\n\nBRIM_TEST_TWICE=1\n"
                            "BRIM_TEST_TWICE=%n2\nVANTA_HXSECURITY_SYSUSER_CRED=******");
}

// ---- Files ------------------------------------------------------------------------------------------------

bool isFileName(const Nasty& nasty) {
    return nasty.isText && nasty.bytes.size() <= 255 && nasty.bytes.find('/') == std::string::npos;
}

TEST(HostileFileNames, AreTheNamesOnDisk) {
    const ClientCodePage utf8(kUtf8);
    const Scratch scratch;
    scratch.addFile("source", "first line\nsecond");
    for (const Nasty& nasty : nastyTexts()) {
        SCOPED_TRACE(testing::PrintToString(nasty.bytes.substr(0, 40)));
        const std::string directory = scratch / nasty.bytes;
        const BrimString path = wide(directory);
        const std::string file = directory + "/" + nasty.bytes;
        const bool isMade = SystemUtility::MakeDirectories(path);
        const bool isCopied = SystemUtility::CopyFile(scratch.wide("source"), wide(file), false);
        struct stat record {};
        const bool isThere = ::stat(file.c_str(), &record) == 0;
        if (isFileName(nasty)) {
            EXPECT_TRUE(isMade && isCopied && isThere);
            EXPECT_TRUE(SystemUtility::IsValidDirectory(path));
            EXPECT_EQ(plain(SystemUtility::GetFirstLineFromFile(wide(file), false)), L"first line");
            BrimString full;
            EXPECT_TRUE(SystemUtility::GetFullDirectoryPath(BrimString(path).append(L"/../."), full));
            EXPECT_EQ(narrow(full), scratch.path());
            EXPECT_EQ(WRAP_wremove(wide(file).c_str()), 0);
        } else if (!nasty.isText) {
            EXPECT_FALSE(isThere); // each such byte is a replacement character, in the name too
        }
    }
}

TEST(HostileFileNames, AreToldInReports) {
    const ClientCodePage utf8(kUtf8);
    for (const Nasty& nasty : nastyTexts()) {
        const std::string name = "/dev/null/" + nasty.bytes;
        testing::internal::CaptureStdout();
        sup::SortLangMap map;
        SUPBuildMapFromXML(wide(name)).PopulateSortLocaleIdToLangMap(map);
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(printed, "Xml File Not Found error number -9, " + narrow(wide(name)) + "\n");
        EXPECT_EQ(DynamicLoader::loadLib(wide(name), false, false, DynamicLoader::kOnErrorReturn), nullptr);
        wchar_t error[64]; // of a name that the locale cannot express nothing is told
        EXPECT_GE(DynamicLoader::lastError(error, 64), 1U);
    }
}

TEST(HostileDocuments, AreToldInReports) {
    const ClientCodePage utf8(kUtf8);
    const Scratch scratch;
    scratch.addFile("%n%s", "<a><%n%s></a>");
    testing::internal::CaptureStdout();
    sup::SortLangMap map;
    SUPBuildMapFromXML(scratch.wide("%n%s")).PopulateSortLocaleIdToLangMap(map);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed.find("Xml File Parse error number -10, Error at file "), 0U) << printed;
    EXPECT_NE(printed.find("%n%s, line 1"), std::string::npos) << printed;
}

// ---- Names of hosts, locales, encodings and the program ---------------------------------------------------

TEST(HostileNames, OfTheHost) {
    const ClientCodePage utf8(kUtf8);
    for (const Nasty& nasty : nastyTexts()) {
        g_hostName = nasty.bytes.c_str();
        const BrimString name = SystemUtility::GetHostName();
        MachineIP machine;
        machine.RetrievingIP(); // which no resolver knows
        g_hostName = nullptr;
        const std::string whole = nasty.bytes.substr(0, 511);
        const std::string expected = narrow(wide(whole.substr(0, whole.find('.'))));
        EXPECT_EQ(narrow(name), expected);
    }
}

TEST(HostileNames, OfLocales) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    for (const Nasty& nasty : nastyTexts()) {
        RecordingManager manager;
        EXPECT_STREQ(SystemUtility::NCSetLocale(LC_NUMERIC, nasty.bytes.c_str()), "C");
        ASSERT_EQ(manager.reports().size(), 1U);
        EXPECT_EQ(manager.reports()[0].arg1, nasty.bytes);
        EXPECT_NE(Locale2CodePage(nasty.bytes.c_str()), 0U);
        EXPECT_EQ(Locale2CodePage(("xx." + nasty.bytes + "@" + nasty.bytes).c_str()), 1252U);
        EXPECT_EQ(SystemUtility::GetCodePageFromString(wide(nasty.bytes)), -1);
        EXPECT_FALSE(SystemUtility::IsValidCodePage(nasty.bytes.c_str()));
    }
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), before);
}

TEST(HostileNames, OfEncodings) {
    for (const Nasty& nasty : nastyTexts()) {
        RecordingManager manager;
        const std::unique_ptr<sup::transcodeimpl::TranscoderImplBase> transcoder(
            sup::transcodeimpl::CreateIconvTranscoder(("no such " + nasty.bytes).c_str()));
        EXPECT_EQ(transcoder, nullptr) << nasty.bytes.substr(0, 40);
        ASSERT_EQ(manager.reports().size(), 1U);
        EXPECT_EQ(manager.reports()[0].arg1, "no such " + nasty.bytes);
    }
}

TEST(HostileNames, OfTheProgram) {
    const ClientCodePage utf8(kUtf8);
    char* const before = program_invocation_short_name;
    for (const Nasty& nasty : nastyTexts()) {
        std::string name = nasty.bytes;
        program_invocation_short_name = name.data();
        EXPECT_EQ(plain(SystemUtility::GetCurrentProcessName()), plain(wide(name)));
    }
    program_invocation_short_name = before;
}

TEST(HostileNames, OfTags) {
    for (const Nasty& nasty : nastyTexts()) {
        BrimString tag = wide(nasty.bytes + "-" + nasty.bytes);
        BaseStringUtil::FormatErrorMsgLang(tag);
        SystemUtility::SetErrorMessageLang(tag);
        BrimString language;
        EXPECT_TRUE(SystemUtility::GetErrorMessageLang(language));
    }
}

} // namespace
