#include "Utility/Generic/Portable/SUPOSBase.h"

#include "child_process.h"
#include "recording_manager.h"

#include <gtest/gtest.h>

#include <syslog.h>
#include <unistd.h>

#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>

// ---- The system log: the program's definitions win over the C library's for the library under test --------

namespace {

// What reached the log, call by call.
std::string& logged() {
    static std::string calls;
    return calls;
}

void logText(int priority, const char* format, va_list args) {
    char text[4096];
    const int length = std::vsnprintf(text, sizeof(text), format, args);
    logged() += "[log " + std::to_string(priority) + " " +
                (length < 0 ? std::string("error") : std::string(text)) + "]";
}

} // namespace

extern "C" {

void openlog(const char* identity, int options, int facility) {
    logged() += std::string("[open ") + identity + " " + std::to_string(options) + " " +
                std::to_string(facility) + "]";
}

void closelog() { logged() += "[close]"; }

__attribute__((format(printf, 2, 3))) void syslog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logText(priority, format, args);
    va_end(args);
}

// What syslog() is when its format is checked.
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logText(priority, format, args);
    va_end(args);
}
}

namespace {

constexpr const char* kVariable = "VANTA_HX_SYSTEM_LOGGING";

std::string inTheLog(const std::string& text) {
    return "[open Solace " + std::to_string(LOG_PID | LOG_CONS) + " " + std::to_string(LOG_DAEMON) +
           "][log " + std::to_string(LOG_ERR) + " " + text + "][close]";
}

struct Written {
    std::string standardError;
    std::string log;
};

// What `body` writes in a child, where the code page is UTF-8 and the variable is as given.
template <class Body>
Written written(Body body, const char* value = nullptr) {
    const brimtest::ChildResult result = brimtest::runInChild([&] {
        ::dup2(STDOUT_FILENO, STDERR_FILENO);
        if (value == nullptr) {
            ::unsetenv(kVariable);
        } else {
            ::setenv(kVariable, value, 1);
        }
        const brimtest::ClientCodePage utf8(65001);
        body();
        std::fflush(stderr);
        const std::string report = "\x1E" + logged();
        [[maybe_unused]] const ssize_t n = ::write(STDOUT_FILENO, report.data(), report.size());
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    const std::size_t end = result.output.find('\x1E');
    if (end == std::string::npos) {
        ADD_FAILURE() << "no report: " << result;
        return {};
    }
    return {result.output.substr(0, end), result.output.substr(end + 1)};
}

Written writtenFor(bool toSystemLog, const wchar_t* message, const char* value = nullptr) {
    return written([&] { OSAbstraction::g_wlogerrorFuncPtr(toSystemLog, message); }, value);
}

TEST(SystemLog, GetsTheMessageOnRequest) {
    const Written both = writtenFor(true, L"disk full");
    EXPECT_EQ(both.standardError, "disk full\n");
    EXPECT_EQ(both.log, inTheLog("disk full"));

    const Written errorOnly = writtenFor(false, L"disk full");
    EXPECT_EQ(errorOnly.standardError, "disk full\n");
    EXPECT_EQ(errorOnly.log, "");
}

TEST(SystemLog, IsWrittenByTheWrapperItself) {
    const Written both = written([] {
        WRAP_wlogerror(true, L"one");
        WRAP_wlogerror(false, L"two");
        WRAP_wlogerror(true, L"three");
    });
    EXPECT_EQ(both.standardError, "one\ntwo\nthree\n");
    EXPECT_EQ(both.log, inTheLog("one") + inTheLog("three"));
}

TEST(SystemLog, GetsNothingForAnEmptyMessage) {
    for (const wchar_t* const message : {static_cast<const wchar_t*>(nullptr), L""}) {
        const Written nothing = writtenFor(true, message);
        EXPECT_EQ(nothing.standardError, "");
        EXPECT_EQ(nothing.log, "");
    }
}

TEST(SystemLog, DoesNotTakeAMessageForAFormat) {
    for (const wchar_t* const message :
         {L"100%", L"%", L"%s %s %s %d", L"%n%n%n", L"50%% of it", L"%m", L"%1$s", L"%*c", L"%500000d"}) {
        const std::wstring text = message;
        const std::string bytes(text.begin(), text.end());
        const Written both = writtenFor(true, message);
        EXPECT_EQ(both.standardError, bytes + "\n");
        EXPECT_EQ(both.log, inTheLog(bytes));
    }
}

TEST(SystemLog, GetsTheFirst1023Bytes) {
    for (const std::size_t length : {1022U, 1023U, 1024U, 1025U, 3000U}) {
        const std::wstring message(length, L'm');
        const std::string bytes(length, 'm');
        const Written both = writtenFor(true, message.c_str());
        EXPECT_EQ(both.standardError, bytes + "\n") << "whole there: " << length;
        EXPECT_EQ(both.log, inTheLog(bytes.substr(0, 1023))) << length;
    }
}

TEST(SystemLog, IsCutInsideACharacterToo) {
    const std::wstring message = std::wstring(1021, L'm') + L"\x20AC!";
    const std::string bytes = std::string(1021, 'm') + "\xE2\x82\xAC!";
    const Written both = writtenFor(true, message.c_str());
    EXPECT_EQ(both.standardError, bytes + "\n");
    EXPECT_EQ(both.log, inTheLog(bytes.substr(0, 1023)));
}

TEST(SystemLog, IsSwitchedOffByTheVariable) {
    constexpr struct {
        const char* value;
        bool isOn;
    } kCases[] = {
        {nullptr, true}, {"true", true},   {"TRUE", true},   {"Yes", true},    {"on", true},
        {"1", true},     {"+", true},      {"ok", true},     {"1.0", true},    {"t", true},
        {"y", true},     {" true ", true}, {"false", false}, {"FALSE", false}, {"No", false},
        {"off", false},  {"0", false},     {"-", false},     {"0.0", false},   {"f", false},
        {"n", false},    {" off ", false}, {"", false},      {"  ", false},    {"perhaps", false},
        {"o", false},    {"2", false},     {"truee", false},
    };
    for (const auto& one : kCases) {
        SCOPED_TRACE(testing::Message() << '"' << (one.value == nullptr ? "(unset)" : one.value) << '"');
        const Written both = writtenFor(true, L"message", one.value);
        EXPECT_EQ(both.standardError, one.isOn ? "message\n" : "");
        EXPECT_EQ(both.log, one.isOn ? inTheLog("message") : "");
        EXPECT_EQ(writtenFor(false, L"message", one.value).standardError, one.isOn ? "message\n" : "");
    }
}

TEST(SystemLog, ReadsTheVariableAnewEachTime) {
    const Written both = written([] {
        WRAP_wlogerror(true, L"one");
        ::setenv(kVariable, "off", 1);
        WRAP_wlogerror(true, L"two");
        ::setenv(kVariable, "on", 1);
        WRAP_wlogerror(true, L"three");
    });
    EXPECT_EQ(both.standardError, "one\nthree\n");
    EXPECT_EQ(both.log, inTheLog("one") + inTheLog("three"));
}

TEST(SystemLog, AppearsOnAStandardErrorOfEitherWidthInOrder) {
    const Written narrow = written([] {
        std::fprintf(stderr, "before ");
        WRAP_wlogerror(false, L"gr\xFC\xDF");
        std::fprintf(stderr, "after %d", std::fwide(stderr, 0) < 0 ? 1 : 0);
    });
    EXPECT_EQ(narrow.standardError, "before gr\xC3\xBC\xC3\x9F\nafter 1");

    const Written wide = written([] {
        std::setlocale(LC_ALL, "C.UTF-8");
        stderr = ::fdopen(::dup(STDERR_FILENO), "w");
        static char buffer[1000];
        std::setvbuf(stderr, buffer, _IOFBF, sizeof(buffer));
        std::fwide(stderr, 1);
        std::fwprintf(stderr, L"before ");
        WRAP_wlogerror(false, L"gr\xFC\xDF");
        std::fwprintf(stderr, L"after %d", std::fwide(stderr, 0) > 0 ? 1 : 0);
    });
    EXPECT_EQ(wide.standardError, "before gr\xC3\xBC\xC3\x9F\nafter 1");
}

TEST(SystemLog, LeavesAnUnusedStandardErrorWithoutOrientation) {
    const Written unused = written([] {
        stderr = ::fdopen(::dup(STDERR_FILENO), "w");
        WRAP_wlogerror(false, L"message");
        std::fprintf(stderr, "%d", std::fwide(stderr, 0));
    });
    EXPECT_EQ(unused.standardError, "message\n0");
}

TEST(SystemLog, FallsBackToUtf8WhereTheCodePageIsUnknown) {
    const Written both = written([] {
        const brimtest::RecordingManager manager;
        const brimtest::ClientCodePage unknown(4711);
        WRAP_wlogerror(true, L"gr\xFC\xDF");
    });
    EXPECT_EQ(both.standardError, "gr\xC3\xBC\xC3\x9F\n");
    EXPECT_EQ(both.log, inTheLog("gr\xC3\xBC\xC3\x9F"));
}

} // namespace
