// The dump of the environment, whose credential nobody may see.
#include "Utility/Generic/Portable/SUPOS.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include "recording_manager.h"
#include "test_locale.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>
#include <vector>

using brimtest::ClientCodePage;

namespace {

constexpr const wchar_t* kHeading = L"Dumping all the environment variables:";
constexpr const wchar_t* kMasked = L"VANTA_HXSECURITY_SYSUSER_CRED=******";

// Is the process's environment while it lives.
class Environment {
public:
    explicit Environment(const std::vector<std::string>& entries) : m_entries(entries), m_before(environ) {
        for (std::string& entry : m_entries) {
            m_block.push_back(entry.data());
        }
        m_block.push_back(nullptr);
        environ = m_block.data();
    }
    ~Environment() { environ = m_before; }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    std::vector<std::string> m_entries;
    std::vector<char*> m_block;
    char** m_before;
};

std::wstring dump() {
    const sup::String<wchar_t> text = UtilityInitializer::DumpEnvVariablesToString();
    return {text.begin(), text.end()};
}

std::wstring dumpOf(const std::vector<std::string>& entries) {
    const Environment environment(entries);
    return dump();
}

TEST(DumpEnvVariablesToString, FollowsTheOrderOfTheBlock) {
    EXPECT_EQ(dumpOf({"B=2", "A=1", "C=", "B=again"}), std::wstring(kHeading) + L"\nB=2\nA=1\nC=\nB=again");
}

TEST(DumpEnvVariablesToString, OfNoVariablesIsTheHeading) {
    EXPECT_EQ(dumpOf({}), kHeading);
    char** const before = environ;
    environ = nullptr;
    const std::wstring text = dump();
    environ = before;
    EXPECT_EQ(text, kHeading);
}

TEST(DumpEnvVariablesToString, GivesEntriesAsTheyStand) {
    EXPECT_EQ(dumpOf({"", "no equals sign", "=", "a=b=c", "line=\n\nfeeds", " =%s%n"}),
              std::wstring(kHeading) + L"\n\nno equals sign\n=\na=b=c\nline=\n\nfeeds\n =%s%n");
}

TEST(DumpEnvVariablesToString, MasksTheCredentialInEverySpelling) {
    for (const char* const entry : {
             "VANTA_HXSECURITY_SYSUSER_CRED=secret",
             "vanta_hxsecurity_sysuser_cred=secret",
             "Vanta_HxSecurity_SysUser_Cred=secret",
             "vanta_hxsecurity_sysuser_cred_2=secret",
             "VANTA_HXSECURITY_SYSUSER_CREDENTIALS=secret",
             "VANTA_HXSECURITY_SYSUSER_CRED=",
             "VANTA_HXSECURITY_SYSUSER_CRED",
             "VANTA_HXSECURITY_SYSUSER_CRED=secret\nsecret",
             "VANTA_HXSECURITY_SYSUSER_CRED=\xFFsecret\xC3",
         }) {
        EXPECT_EQ(dumpOf({"A=1", entry, "B=2"}), std::wstring(kHeading) + L"\nA=1\n" + kMasked + L"\nB=2")
            << entry;
    }
    EXPECT_EQ(dumpOf({"VANTA_HXSECURITY_SYSUSER_CRED=1", "Vanta_HXSecurity_Sysuser_Cred=2"}),
              std::wstring(kHeading) + L"\n" + kMasked + L"\n" + kMasked);
}

TEST(DumpEnvVariablesToString, MasksNothingElse) {
    for (const char* const entry :
         {"VANTA_HXSECURITY_SYSUSER_CRE=shown", "XVANTA_HXSECURITY_SYSUSER_CRED=shown",
          " VANTA_HXSECURITY_SYSUSER_CRED=shown", "A=VANTA_HXSECURITY_SYSUSER_CRED=shown",
          "VANTA-HXSECURITY_SYSUSER_CRED=shown", "V=shown"}) {
        const std::string text = entry;
        EXPECT_EQ(dumpOf({text}), std::wstring(kHeading) + L"\n" + std::wstring(text.begin(), text.end()));
    }
}

TEST(DumpEnvVariablesToString, MasksInATurkishLocale) {
    // There "i" is the small letter of a dotted capital, and "I" the capital of a dotless one.
    const brimtest::CompiledLocale locale("tr_TR");
    BRIM_SKIP_WITHOUT(locale);
    for (const unsigned int codePage : {65001U, 1252U}) {
        const ClientCodePage page(codePage);
        for (const char* const entry :
             {"VANTA_HXSECURITY_SYSUSER_CRED=secret", "vanta_hxsecurity_sysuser_cred=secret",
              "VANTA_HXSECURiTY_SYSUSER_CRED=secret", "vanta_hxsecurIty_sysuser_cred=secret"}) {
            EXPECT_EQ(dumpOf({entry}), std::wstring(kHeading) + L"\n" + kMasked) << entry;
        }
    }
}

TEST(DumpEnvVariablesToString, ConvertsFromTheProcessesCodePage) {
    {
        const ClientCodePage utf8(65001);
        EXPECT_EQ(dumpOf({"A=\xC3\xA4\xE6\xBC\xA2\xF0\x9F\x98\x80"}),
                  std::wstring(kHeading) + L"\nA=\xE4\x6F22\xD83D\xDE00");
    }
    const ClientCodePage latin(1252);
    EXPECT_EQ(dumpOf({"A=\xE4\x80"}), std::wstring(kHeading) + L"\nA=\xE4\x20AC");
}

TEST(DumpEnvVariablesToString, ConvertsInvalidBytesEntryByEntry) {
    const ClientCodePage utf8(65001);
    for (const char* const bytes : {"\xFF", "\xC3", "\xE6\xBC", "\xF4\x90\x80\x80", "\x80\x80"}) {
        const std::string entry = std::string("A=before") + bytes;
        const sup::String<wchar_t> converted = BaseStringUtil::StringFrom(entry.c_str(), 65001);
        EXPECT_EQ(dumpOf({entry, "B=2"}), std::wstring(kHeading) + L"\n" + converted.c_str() + L"\nB=2");
    }
}

TEST(DumpEnvVariablesToString, TakesLongEntriesAndManyOfThem) {
    std::vector<std::string> entries{"LONG=" + std::string(100'000, 'x')};
    std::wstring expected = std::wstring(kHeading) + L"\nLONG=" + std::wstring(100'000, L'x');
    for (int i = 0; i < 3000; ++i) {
        entries.push_back("N" + std::to_string(i) + "=" + std::to_string(i));
        expected += L"\nN" + std::to_wstring(i) + L"=" + std::to_wstring(i);
    }
    EXPECT_TRUE(dumpOf(entries) == expected);
}

TEST(DumpEnvVariablesToString, ShowsNoEntryWhoseCodePageIsUnknown) {
    brimtest::RecordingManager manager;
    const ClientCodePage unknown(4711);
    EXPECT_EQ(dumpOf({"VANTA_HXSECURITY_SYSUSER_CRED=secret"}), std::wstring(kHeading) + L"\n");
    EXPECT_FALSE(manager.reports().empty());
}

} // namespace
