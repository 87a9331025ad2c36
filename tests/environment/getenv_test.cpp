// Reading and writing environment variables, and the trace of what is read.
#include "environment_test_support.h"

#include "recording_manager.h"

#include "Utility/Generic/Portable/UniversalLoggerBase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

using brimtest::ClientCodePage;
using brimtest::FreshProcess;
using brimtest::RecordingManager;

namespace {

using WideString = sup::String<wchar_t>;

constexpr const wchar_t* kVariable = L"BRIM_TEST_VARIABLE";
constexpr const char* kNarrowVariable = "BRIM_TEST_VARIABLE";

// Sets the variable while it lives, or removes it.
class TestVariable {
public:
    explicit TestVariable(const char* value) {
        if (value != nullptr) {
            ::setenv(kNarrowVariable, value, 1);
        } else {
            ::unsetenv(kNarrowVariable);
        }
    }
    ~TestVariable() { ::unsetenv(kNarrowVariable); }
    TestVariable(const TestVariable&) = delete;
    TestVariable& operator=(const TestVariable&) = delete;
};

std::wstring content(const WideString& text) { return {text.begin(), text.end()}; }

TEST(Getenv, GivesAVariableThatIsThere) {
    const ClientCodePage utf8(65001);
    const TestVariable variable("a value=with \xC3\xA4 \xF0\x9F\x98\x80");
    WideString value(L"before");
    EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
    EXPECT_EQ(content(value), L"a value=with \xE4 \xD83D\xDE00");
    EXPECT_TRUE(SystemUtility::hasEnv(kVariable));
}

TEST(Getenv, AnEmptyVariableIsPresent) {
    const TestVariable variable("");
    WideString value(L"before");
    EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
    EXPECT_TRUE(value.empty());
    EXPECT_TRUE(SystemUtility::hasEnv(kVariable));
}

TEST(Getenv, AnAbsentVariableLeavesNothing) {
    const TestVariable variable(nullptr);
    WideString value(L"before");
    EXPECT_FALSE(SystemUtility::Getenv(kVariable, value));
    EXPECT_TRUE(value.empty());
    EXPECT_FALSE(SystemUtility::hasEnv(kVariable));
}

TEST(Getenv, NoVariableHasAnEmptyNameOrOneWithAnEqualsSign) {
    const TestVariable variable("value");
    for (const wchar_t* const name : {L"", L"=", L"BRIM_TEST_VARIABLE=", L"BRIM_TEST_VARIABLE=value"}) {
        WideString value(L"before");
        EXPECT_FALSE(SystemUtility::Getenv(name, value));
        EXPECT_TRUE(value.empty());
        EXPECT_FALSE(SystemUtility::hasEnv(name));
    }
}

TEST(Getenv, TheNameMayBeTheResult) {
    const TestVariable variable("found");
    WideString both(kVariable);
    EXPECT_TRUE(SystemUtility::Getenv(both, both));
    EXPECT_EQ(content(both), L"found");
    EXPECT_FALSE(SystemUtility::Getenv(both, both));
    EXPECT_TRUE(both.empty());
}

TEST(Getenv, ANameOutsideTheCodePageIsThatOfItsSubstitute) {
    const ClientCodePage latin(1252);
    WideString value(L"before");
    EXPECT_FALSE(SystemUtility::Getenv(L"BRIM_TEST_\x6F22", value));
    EXPECT_TRUE(value.empty());
    EXPECT_FALSE(SystemUtility::hasEnv(L"BRIM_TEST_\xD800"));
}

TEST(Getenv, WithoutATranscoderNothingIsFound) {
    const TestVariable variable("value");
    RecordingManager manager;
    const ClientCodePage unknown(4711);
    WideString value(L"before");
    int number = 7;
    EXPECT_FALSE(SystemUtility::Getenv(kVariable, value));
    EXPECT_TRUE(value.empty());
    EXPECT_FALSE(SystemUtility::Getenv(kVariable, number));
    EXPECT_EQ(number, 7);
    EXPECT_FALSE(SystemUtility::hasEnv(kVariable));
    EXPECT_FALSE(SystemUtility::Putenv(kVariable, L"other"));
    EXPECT_FALSE(manager.reports().empty());
    EXPECT_STREQ(std::getenv(kNarrowVariable), "value");
}

// Values of any bytes: what the code page makes of them is the transcoders' business, told by what they give.
TEST(Getenv, TakesValuesOfAnyBytes) {
    std::vector<std::string> values = {"\xFF",
                                       "\xC3",
                                       "a\x80"
                                       "b",
                                       "\xE2\x82",
                                       "\xED\xA0\x80",
                                       "\xF4\x90\x80\x80"};
    std::string everyByte;
    for (int c = 1; c < 256; ++c) {
        everyByte += static_cast<char>(c);
    }
    values.push_back(everyByte);
    values.push_back(std::string(100'000, 'x'));
    std::string longText;
    for (int i = 0; i < 25'000; ++i) {
        longText += "\xF0\x9F\x98\x80";
    }
    values.push_back(longText);
    values.push_back(std::string(100'000, '\xFF'));
    for (const unsigned int codePage : {65001U, 1252U}) {
        const ClientCodePage page(codePage);
        for (const std::string& bytes : values) {
            SCOPED_TRACE(testing::Message() << "page " << codePage << ", " << bytes.size() << " bytes from "
                                            << static_cast<int>(bytes[0]));
            const TestVariable variable(bytes.c_str());
            std::vector<wchar_t> expected(bytes.size() * 2 + 1);
            const int length = SystemUtility::MultiByteToWideChar(
                bytes.c_str(), expected.data(), static_cast<int>(expected.size()), codePage);
            WideString value;
            EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
            EXPECT_TRUE(length > 0 && content(value) == std::wstring(expected.data(),
                                                                     static_cast<std::size_t>(length - 1)));
        }
    }
    const ClientCodePage latin(1252);
    const TestVariable variable(std::string(100'000, '\xE4').c_str());
    WideString value;
    EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
    EXPECT_EQ(content(value), std::wstring(100'000, L'\xE4'));
}

struct NumberRow {
    const char* value;
    int number;
};

TEST(Getenv, GivesNumbers) {
    for (const NumberRow& row :
         {NumberRow{"42", 42}, NumberRow{"-7", -7}, NumberRow{"'8080'", 8080}, NumberRow{"\" 9 \"", 9},
          NumberRow{"", 0}, NumberRow{"abc", 0}, NumberRow{"12abc", 12}, NumberRow{"4294967298", 2}}) {
        const TestVariable variable(row.value);
        int number = 1234;
        EXPECT_TRUE(SystemUtility::Getenv(kVariable, number)) << row.value;
        EXPECT_EQ(number, row.number) << row.value;
        EXPECT_EQ(SystemUtility::GetenvWithDefault(kVariable, 1234), row.number) << row.value;
    }
    const TestVariable absent(nullptr);
    int number = 1234;
    EXPECT_FALSE(SystemUtility::Getenv(kVariable, number));
    EXPECT_EQ(number, 1234);
    EXPECT_EQ(SystemUtility::GetenvWithDefault(kVariable, 1234), 1234);
    EXPECT_EQ(SystemUtility::GetenvWithDefault(kVariable, INT_MIN), INT_MIN);
}

TEST(Putenv, SetsAndOverwrites) {
    const ClientCodePage utf8(65001);
    const TestVariable variable(nullptr);
    EXPECT_TRUE(SystemUtility::Putenv(kVariable, L"one"));
    EXPECT_STREQ(std::getenv(kNarrowVariable), "one");
    EXPECT_TRUE(SystemUtility::Putenv(kVariable, L"=\xE4\xD83D\xDE00"));
    EXPECT_STREQ(std::getenv(kNarrowVariable), "=\xC3\xA4\xF0\x9F\x98\x80");
    EXPECT_TRUE(SystemUtility::Putenv(kVariable, L""));
    EXPECT_STREQ(std::getenv(kNarrowVariable), "");
}

TEST(Putenv, KeepsWhatItIsGiven) {
    const TestVariable variable(nullptr);
    for (const unsigned int codePage : {65001U, 1252U}) {
        const ClientCodePage page(codePage);
        std::wstring text;
        for (wchar_t c = 1; c < 256; ++c) {
            text += codePage == 1252 && c >= 0x80 && c < 0xA0 ? L'?' : c;
        }
        EXPECT_TRUE(SystemUtility::Putenv(kVariable, text.c_str()));
        WideString value;
        EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
        EXPECT_EQ(content(value), text);
    }
}

TEST(Putenv, RefusesNamesThatNoVariableCanHave) {
    for (const wchar_t* const name : {L"", L"=", L"A=B", L"BRIM_TEST_VARIABLE="}) {
        EXPECT_FALSE(SystemUtility::Putenv(name, L"value"));
    }
    EXPECT_EQ(std::getenv("A"), nullptr);
    EXPECT_EQ(std::getenv(kNarrowVariable), nullptr);
}

TEST(SetDllSearchPath, AppendsToThePath) {
    EXPECT_EQ(content(SystemUtility::GetPathVariableKeyWord()), L"LD_LIBRARY_PATH");
    const brimtest::Tree tree;
    EXPECT_EQ(brimtest::answers(tree, {},
                                [] {
                                    const auto append = [](const wchar_t* directory) {
                                        brimtest::show(SystemUtility::SetDllSearchPath(directory));
                                        std::printf("%s\n", std::getenv("LD_LIBRARY_PATH"));
                                    };
                                    append(L"/a");
                                    append(L"/\xE4");
                                    append(L"");
                                    ::setenv("LD_LIBRARY_PATH", "", 1);
                                    append(L"/b");
                                }),
              "true\n:/a\ntrue\n:/a:/\xC3\xA4\ntrue\n:/a:/\xC3\xA4:\ntrue\n:/b\n");
}

// ---- The trace --------------------------------------------------------------------------------------------

class TraceLogger : public sup::UniversalLoggerBase {
public:
    struct Message {
        LogType logTypes;
        MessageType type;
        int severity;
        std::wstring file;
        unsigned int line;
        std::wstring text;
    };

    bool isOn = true;
    int questions = 0;
    std::vector<Message> messages;

    bool calculateEnabledProviders(LogType logTypes, MessageType type, int severity, const wchar_t* file,
                                   unsigned int line, LogMessageAttributes& attrs) override {
        ++questions;
        populateLogMessageAttributes(attrs, file, line, logTypes, type, severity);
        m_asked = {logTypes, type, severity, file, line, L""};
        return isOn;
    }
    void logToEnabledProviders(LogMessageAttributes& attrs, const wchar_t* file, unsigned int line,
                               const wchar_t* text, unsigned int length) override {
        EXPECT_EQ(attrs.getMessageType(), m_asked.type);
        EXPECT_EQ(file, attrs.getFile());
        EXPECT_EQ(line, attrs.getLine());
        messages.push_back(m_asked);
        messages.back().text.assign(text, length);
    }
    using UniversalLoggerBase::logToEnabledProviders;

private:
    Message m_asked{};
};

// Installed while it lives.
class TraceGetter final : public sup::UniversalLoggerBase::ThreadLoggerGetter {
public:
    TraceGetter() { install(*this); }
    ~TraceGetter() { install(sup::UniversalLoggerBase::getDefaultGetter()); }
    TraceGetter(const TraceGetter&) = delete;
    TraceGetter& operator=(const TraceGetter&) = delete;

    sup::UniversalLoggerBase* get() override { return &logger; }
    bool isInitializedForTheThread() override { return true; }

    TraceLogger logger;

private:
    static void install(ThreadLoggerGetter& getter) {
        using Logger = sup::UniversalLoggerBase;
        Logger::setThreadLoggerGetter(Logger::kThisMustBeCalledOnlyByUniversalLoggerImplInUtilityGeneric,
                                      getter);
    }
};

TEST(GetenvTrace, TellsEachVariableThatIsFound) {
    TraceGetter getter;
    const TestVariable variable("42");
    WideString value;
    int number = 0;
    EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
    EXPECT_TRUE(SystemUtility::Getenv(kVariable, number));
    ASSERT_EQ(getter.logger.messages.size(), 2U);
    for (const TraceLogger::Message& message : getter.logger.messages) {
        EXPECT_EQ(message.logTypes, sup::LoggingEnums::kLogServer);
        EXPECT_EQ(message.type, sup::LoggingEnums::MESSAGE_TYPE_TRACE);
        EXPECT_EQ(message.severity, sup::LoggingEnums::kSeverityForDebugOnly);
        EXPECT_EQ(message.file, L"server/Utility/Generic/Portable/Src/SUPOS.cpp");
        EXPECT_GT(message.line, 0U);
        EXPECT_EQ(message.text, L"Environment variable BRIM_TEST_VARIABLE=42");
    }
}

TEST(GetenvTrace, SaysNothingOfAbsentVariablesNorOfLookingWhetherOneExists) {
    TraceGetter getter;
    const TestVariable variable("value");
    WideString value;
    EXPECT_TRUE(SystemUtility::hasEnv(kVariable));
    EXPECT_FALSE(SystemUtility::Getenv(L"BRIM_TEST_ABSENT", value));
    EXPECT_EQ(getter.logger.questions, 0);
}

TEST(GetenvTrace, IsNotFormattedForALoggerThatDeclines) {
    TraceGetter getter;
    getter.logger.isOn = false;
    const TestVariable variable("value");
    WideString value;
    EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
    EXPECT_EQ(getter.logger.questions, 1);
    EXPECT_TRUE(getter.logger.messages.empty());
    EXPECT_EQ(content(value), L"value");
}

TEST(GetenvTrace, HoldsValuesOfAnyLength) {
    TraceGetter getter;
    for (const std::size_t length : {0U, 1U, 460U, 470U, 471U, 472U, 480U, 511U, 512U, 100'000U}) {
        const TestVariable variable(std::string(length, 'x').c_str());
        WideString value;
        EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
        ASSERT_FALSE(getter.logger.messages.empty());
        EXPECT_EQ(getter.logger.messages.back().text,
                  L"Environment variable BRIM_TEST_VARIABLE=" + std::wstring(length, L'x'))
            << length;
    }
}

TEST(GetenvTrace, TakesNoValueForAFormat) {
    TraceGetter getter;
    const TestVariable variable("%s%n%ls %5000d");
    WideString value;
    EXPECT_TRUE(SystemUtility::Getenv(kVariable, value));
    ASSERT_EQ(getter.logger.messages.size(), 1U);
    EXPECT_EQ(getter.logger.messages[0].text, L"Environment variable BRIM_TEST_VARIABLE=%s%n%ls %5000d");
}

TEST(GetenvTrace, NamesTheVariableWhenTheNameIsTheResult) {
    TraceGetter getter;
    const TestVariable variable("found");
    WideString both(kVariable);
    EXPECT_TRUE(SystemUtility::Getenv(both, both));
    ASSERT_EQ(getter.logger.messages.size(), 1U);
    EXPECT_EQ(getter.logger.messages[0].text, L"Environment variable BRIM_TEST_VARIABLE=found");
}

const FreshProcess kAsksForItsInstance("asks for its instance", [] {
    WideString value;
    SystemUtility::GetInstanceName(value);
});

// The line without its number, which is the source's own business.
std::string withoutLineNumbers(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        result += text[i];
        if (text[i] == ':') {
            while (i + 1 < text.size() && text[i + 1] >= '0' && text[i + 1] <= '9') {
                ++i;
            }
        }
    }
    return result;
}

TEST(GetenvTrace, PrintsOnStandardOutputWhenTheThresholdIsRaised) {
    const brimtest::ChildResult result = kAsksForItsInstance.run(
        {{"HXS_STARTUP_LOG_TYPE", "4"}, {"INSTANCE_NAME", "i7"}, {"KROS_NUMBER_OF_PROCESSORS", "2"}});
    EXPECT_EQ(result.exitCode(), 0);
    EXPECT_THAT(withoutLineNumbers(result.atLoad),
                testing::HasSubstr("server/Utility/Generic/Portable/Src/SUPOS.cpp:. Environment variable "
                                   "KROS_NUMBER_OF_PROCESSORS=2\n"));
    EXPECT_EQ(withoutLineNumbers(result.output),
              "server/Utility/Generic/Portable/Src/SUPOS.cpp:. Environment variable INSTANCE_NAME=i7\n");
}

TEST(GetenvTrace, IsOffOtherwise) {
    for (const char* const threshold : {static_cast<const char*>(nullptr), "3", "1", "0", "off"}) {
        SCOPED_TRACE(threshold == nullptr ? "unset" : threshold);
        const brimtest::ChildResult result = kAsksForItsInstance.run({{"HXS_STARTUP_LOG_TYPE", threshold},
                                                                      {"INSTANCE_NAME", "i7"},
                                                                      {"KROS_NUMBER_OF_PROCESSORS", "2"}});
        EXPECT_EQ(result.exitCode(), 0);
        EXPECT_THAT(result.atLoad, testing::Not(testing::HasSubstr("Environment variable")));
        EXPECT_EQ(result.output, "");
    }
}

} // namespace
