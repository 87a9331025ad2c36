// The logging facade: what is let through, what is printed, and loggers of a host.
#include "Utility/Generic/Portable/UniversalLoggerBase.h"

#include "child_process.h"
#include "guarded_buffer.h"
#include "recording_allocator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using brimtest::FreshProcess;
using brimtest::runInChild;
using sup::LoggingEnums;
using sup::UniversalLoggerBase;
using sup::UniversalLoggerProviderBase;
using Attributes = UniversalLoggerBase::LogMessageAttributes;
using View = RefStringTemplate<wchar_t>;
using WideString = sup::String<wchar_t>;

namespace {

constexpr const wchar_t* kFile = L"server/Source.cpp";
constexpr unsigned int kLine = 321;

// ---- The interface ----------------------------------------------------------------------------------------

TEST(LoggingEnums, HaveTheirValues) {
    EXPECT_EQ(LoggingEnums::MESSAGE_TYPE_INCIDENT_ERROR, 0);
    EXPECT_EQ(LoggingEnums::MESSAGE_TYPE_ERROR, 1);
    EXPECT_EQ(LoggingEnums::MESSAGE_TYPE_WARNING, 2);
    EXPECT_EQ(LoggingEnums::MESSAGE_TYPE_NOTIFICATION, 3);
    EXPECT_EQ(LoggingEnums::MESSAGE_TYPE_TRACE, 4);
    EXPECT_EQ(LoggingEnums::kNotSure, 0U);
    EXPECT_EQ(LoggingEnums::kLogServer, 1U);
    EXPECT_EQ(LoggingEnums::kLogQuery, 2U);
    EXPECT_EQ(LoggingEnums::kLogAll, 0xFFFFFFFFU);
    EXPECT_EQ(LoggingEnums::kSeverityUnknown, 1);
    EXPECT_EQ(LoggingEnums::kSeverityDefault, 1);
    EXPECT_EQ(LoggingEnums::kSeverityUser, 100);
    EXPECT_EQ(LoggingEnums::kSeverityForEndUser, 1);
    EXPECT_EQ(LoggingEnums::kSeverityForVantaSupport, 16);
    EXPECT_EQ(LoggingEnums::kSeverityForDebugOnly, 32);
    EXPECT_EQ(UniversalLoggerBase::kThisMustBeCalledOnlyByUniversalLoggerImplInUtilityGeneric, 0);
    EXPECT_EQ(UNIVERSALLOGER_MAX_PROVIDERS, 16);
}

static_assert(offsetof(Attributes, m_FILE) == 0);
static_assert(offsetof(Attributes, m_line) == 8);
static_assert(offsetof(Attributes, m_logTypes) == 12);
static_assert(offsetof(Attributes, m_MessageType) == 16);
static_assert(offsetof(Attributes, m_MessageSeverity) == 20);
static_assert(offsetof(Attributes, m_UniversalLoggerProviderBase) == 24);
static_assert(offsetof(Attributes, m_nProviders) == 24 + 16 * sizeof(void*));
static_assert(sizeof(UniversalLoggerBase) == sizeof(void*), "no data of its own");
static_assert(sizeof(UniversalLoggerProviderBase) == sizeof(void*));
static_assert(std::has_virtual_destructor_v<UniversalLoggerBase>);
static_assert(std::has_virtual_destructor_v<UniversalLoggerProviderBase>);
static_assert(std::is_abstract_v<UniversalLoggerBase::ThreadLoggerGetter>);

TEST(LogMessageAttributes, ArePopulatedWithoutTouchingTheProviders) {
    UniversalLoggerProviderBase provider;
    Attributes attrs;
    UniversalLoggerBase::addProviderToAttrs(attrs, &provider);
    UniversalLoggerBase::populateLogMessageAttributes(attrs, kFile, 4'000'000'000U, LoggingEnums::kLogAll,
                                                      LoggingEnums::MESSAGE_TYPE_NOTIFICATION, -7);
    EXPECT_EQ(attrs.getFile(), kFile);
    EXPECT_EQ(attrs.getLine(), 4'000'000'000U);
    EXPECT_EQ(attrs.getLogTypes(), 0xFFFFFFFFU);
    EXPECT_EQ(attrs.getMessageType(), LoggingEnums::MESSAGE_TYPE_NOTIFICATION);
    EXPECT_EQ(attrs.getMessageSeverity(), -7);
    EXPECT_EQ(attrs.getProviderCount(), 1U);
    EXPECT_EQ(attrs.getProvider(0), &provider);
    UniversalLoggerBase::populateLogMessageAttributes(attrs, nullptr, 0, 0,
                                                      LoggingEnums::MESSAGE_TYPE_INCIDENT_ERROR, 0);
    EXPECT_EQ(attrs.getFile(), nullptr);
    EXPECT_EQ(attrs.getProviderCount(), 1U);
}

// ---- Providers --------------------------------------------------------------------------------------------

TEST(AddProviderToAttrs, KeepsTheOrderOfFifteen) {
    std::array<UniversalLoggerProviderBase, 15> providers;
    Attributes attrs;
    EXPECT_EQ(attrs.m_nProviders, 0U);
    for (UniversalLoggerProviderBase& provider : providers) {
        UniversalLoggerBase::addProviderToAttrs(attrs, &provider);
    }
    EXPECT_EQ(attrs.m_nProviders, 15U);
    for (unsigned int i = 0; i < 15; ++i) {
        EXPECT_EQ(attrs.getProvider(i), &providers[i]);
    }
    EXPECT_EQ(attrs.getProvider(15), nullptr);
}

TEST(AddProviderToAttrs, TheSixteenthEndsTheProcess) {
    for (const unsigned int alreadyUsed : {15U, 16U, 0xFFFFFFFFU}) {
        const brimtest::ChildResult result = runInChild([alreadyUsed] {
            UniversalLoggerProviderBase provider;
            Attributes attrs;
            attrs.m_nProviders = alreadyUsed;
            UniversalLoggerBase::addProviderToAttrs(attrs, &provider);
        });
        EXPECT_EQ(result.signal(), SIGABRT) << result;
        EXPECT_THAT(result.output,
                    testing::HasSubstr("server/Utility/Generic/Portable/Src/UniversalLoggerBase.cpp"));
        EXPECT_THAT(result.output, testing::HasSubstr("163"));
        EXPECT_THAT(result.output, testing::HasSubstr("attrs.m_nProviders < UNIVERSALLOGER_MAX_PROVIDERS-1"));
    }
}

// ---- The built-in output ----------------------------------------------------------------------------------

// What `body` prints in a child.
template <class Body>
std::string printed(Body body) {
    const brimtest::ChildResult result = runInChild(body);
    EXPECT_EQ(result.exitCode(), 0) << result;
    return result.output;
}

std::string cout(const wchar_t* file, int line, const wchar_t* text, unsigned int length) {
    return printed([&] { UniversalLoggerBase::logToCout(Attributes(), file, line, text, length); });
}

TEST(LogToCout, PrintsFileLineAndText) {
    EXPECT_EQ(cout(kFile, 321, L"some text", 9), "server/Source.cpp:321. some text\n");
    EXPECT_EQ(cout(L"", 0, L"", 0), ":0. \n");
    EXPECT_EQ(cout(kFile, -1, L"x", 1), "server/Source.cpp:-1. x\n");
}

TEST(LogToCout, WithoutAFilePrintsTheTextAlone) {
    EXPECT_EQ(cout(nullptr, 321, L"some text", 9), "some text\n");
    EXPECT_EQ(cout(nullptr, 321, L"", 0), "\n");
    EXPECT_EQ(cout(nullptr, 0, nullptr, 0), "\n");
}

TEST(LogToCout, TakesTheFileOfTheCallNotOfTheAttributes) {
    EXPECT_EQ(printed([] {
                  Attributes attrs;
                  attrs.m_FILE = L"another";
                  attrs.m_line = 1;
                  UniversalLoggerBase::logToCout(attrs, nullptr, 2, L"text", 4);
                  UniversalLoggerBase::logToCout(attrs, kFile, 2, View(L"view"));
              }),
              "text\nserver/Source.cpp:2. view\n");
}

TEST(LogToCout, PrintsExactlyTheLengthOfTheText) {
    EXPECT_EQ(cout(nullptr, 0, L"abcdef", 3), "abc\n");
    EXPECT_EQ(cout(nullptr, 0, L"abcdef", 0), "\n");
    EXPECT_EQ(printed([] {
                  UniversalLoggerBase::logToCout(Attributes(), nullptr, 0, View(L"abcdef", 5));
                  UniversalLoggerBase::logToCout(Attributes(), nullptr, 0, View());
              }),
              "abcde\n\n");
}

TEST(LogToCout, AZeroInsideEndsTheText) {
    EXPECT_EQ(cout(kFile, 1, L"ab\0cd", 5), "server/Source.cpp:1. ab\n");
}

TEST(LogToCout, TakesNoTextForAFormat) {
    EXPECT_EQ(cout(L"%s%n", 1, L"%d %ls %n %5000d", 16), "%s%n:1. %d %ls %n %5000d\n");
}

TEST(LogToCout, NeverReadsBehindTheText) {
    for (const unsigned int length : {0U, 1U, 63U, 510U, 511U, 512U, 513U, 1023U, 1024U, 100'000U}) {
        brimtest::GuardedBuffer<wchar_t> buffer(length + 1);
        wchar_t* const text = buffer.last(length);
        std::wmemset(text, L'x', length);
        EXPECT_TRUE(cout(nullptr, 0, text, length) == std::string(length, 'x') + "\n") << length;
        EXPECT_TRUE(printed([&] {
                        UniversalLoggerBase logger;
                        Attributes attrs;
                        logger.logToEnabledProviders(attrs, nullptr, 0, View(text, length));
                    }) == std::string(length, 'x') + "\n")
            << length;
    }
}

TEST(LogToCout, ShowsWideCharactersInTheLocale) {
    EXPECT_EQ(printed([] {
                  std::setlocale(LC_ALL, "C.UTF-8");
                  UniversalLoggerBase::logToCout(Attributes(), L"\xE4", 1, L"\x6F22\xD83D\xDE00", 3);
              }),
              "\xC3\xA4:1. \xE6\xBC\xA2\xF0\x9F\x98\x80\n");
    EXPECT_EQ(printed([] {
                  std::setlocale(LC_ALL, "C");
                  UniversalLoggerBase::logToCout(Attributes(), kFile, 1, L"a\x6F22z", 3);
              }),
              "server/Source.cpp:1. a?z\n")
        << "nothing behind the character is lost";
}

TEST(LogToCout, AllocatesNothingUpTo511Characters) {
    const std::wstring text(600, L'x');
    for (const unsigned int length : {0U, 100U, 511U}) {
        EXPECT_EQ(printed([&] {
                      brimtest::AllocationLog log;
                      UniversalLoggerBase::logToCout(Attributes(), nullptr, 0, text.c_str(), length);
                      if (!log.empty()) {
                          ::_exit(1);
                      }
                  }).size(),
                  length + 1);
    }
}

TEST(LogToCout, LosesTheMessageOnlyByAnExceptionWhenMemoryRunsOut) {
    const std::wstring text(512, L'x');
    EXPECT_EQ(printed([&] {
                  const long blocks = brimtest::RecordingAllocator::liveBlocks();
                  try {
                      const brimtest::AllocationRefusal refusal(1);
                      UniversalLoggerBase::logToCout(Attributes(), nullptr, 0, text.c_str(), 512);
                      ::_exit(1);
                  } catch (const std::bad_alloc&) {
                  }
                  if (brimtest::RecordingAllocator::liveBlocks() != blocks) {
                      ::_exit(2);
                  }
              }),
              "");
}

// ---- The threshold: read when the library is loaded -------------------------------------------------------

const FreshProcess kLogsAllTypes("logs all types", [] {
    UniversalLoggerBase* const logger = UniversalLoggerBase::getThreadLogger();
    for (int type = 0; type <= 4; ++type) {
        const std::wstring text = L"type " + std::to_wstring(type);
        logger->logString(LoggingEnums::kLogServer, static_cast<LoggingEnums::MessageType>(type),
                          LoggingEnums::kSeverityDefault, nullptr, 0, View(text.c_str()));
    }
    ::setenv("HXS_STARTUP_LOG_TYPE", "4", 1); // too late
    logger->logString(LoggingEnums::kLogServer, LoggingEnums::MESSAGE_TYPE_TRACE, 1, nullptr, 0,
                      View(L"late"));
});

TEST(StartupLogType, LetsErrorsThroughWhenItIsUnset) {
    EXPECT_EQ(kLogsAllTypes.run({{"HXS_STARTUP_LOG_TYPE", nullptr}}).output, "type 0\ntype 1\n");
}

TEST(StartupLogType, LetsTypesThroughUpToItsNumber) {
    EXPECT_EQ(kLogsAllTypes.run({{"HXS_STARTUP_LOG_TYPE", "-1"}}).output, "");
    EXPECT_EQ(kLogsAllTypes.run({{"HXS_STARTUP_LOG_TYPE", "0"}}).output, "type 0\n");
    EXPECT_EQ(kLogsAllTypes.run({{"HXS_STARTUP_LOG_TYPE", "2"}}).output, "type 0\ntype 1\ntype 2\n");
    EXPECT_EQ(kLogsAllTypes.run({{"HXS_STARTUP_LOG_TYPE", "3"}}).output, "type 0\ntype 1\ntype 2\ntype 3\n");
    for (const char* const all : {"4", "5", "2147483647", "'4'"}) {
        EXPECT_EQ(kLogsAllTypes.run({{"HXS_STARTUP_LOG_TYPE", all}}).output,
                  "type 0\ntype 1\ntype 2\ntype 3\ntype 4\nlate\n")
            << all;
    }
}

TEST(StartupLogType, WhatIsNoNumberIsZero) {
    EXPECT_EQ(kLogsAllTypes.run({{"HXS_STARTUP_LOG_TYPE", ""}}).output, "type 0\n");
    EXPECT_EQ(kLogsAllTypes.run({{"HXS_STARTUP_LOG_TYPE", "trace"}}).output, "type 0\n");
}

TEST(CalculateEnabledProviders, FillsTheAttributesOfAMessageThatPasses) {
    UniversalLoggerBase logger;
    UniversalLoggerProviderBase provider;
    Attributes attrs;
    UniversalLoggerBase::addProviderToAttrs(attrs, &provider);
    EXPECT_TRUE(logger.calculateEnabledProviders(LoggingEnums::kLogQuery, LoggingEnums::MESSAGE_TYPE_ERROR,
                                                 LoggingEnums::kSeverityForVantaSupport, kFile, kLine,
                                                 attrs));
    EXPECT_EQ(attrs.m_logTypes, LoggingEnums::kLogQuery);
    EXPECT_EQ(attrs.m_MessageType, LoggingEnums::MESSAGE_TYPE_ERROR);
    EXPECT_EQ(attrs.m_MessageSeverity, 16);
    EXPECT_EQ(attrs.m_FILE, kFile);
    EXPECT_EQ(attrs.m_line, kLine);
    EXPECT_EQ(attrs.m_nProviders, 1U);
    EXPECT_EQ(attrs.getProvider(0), &provider);
}

TEST(CalculateEnabledProviders, LeavesTheAttributesOfOneThatDoesNot) {
    UniversalLoggerBase logger;
    Attributes attrs;
    UniversalLoggerBase::populateLogMessageAttributes(attrs, kFile, kLine, 2,
                                                      LoggingEnums::MESSAGE_TYPE_NOTIFICATION, 77);
    EXPECT_FALSE(logger.calculateEnabledProviders(LoggingEnums::kLogAll, LoggingEnums::MESSAGE_TYPE_WARNING,
                                                  1, nullptr, 0, attrs));
    EXPECT_EQ(attrs.m_FILE, kFile);
    EXPECT_EQ(attrs.m_line, kLine);
    EXPECT_EQ(attrs.m_logTypes, 2U);
    EXPECT_EQ(attrs.m_MessageType, LoggingEnums::MESSAGE_TYPE_NOTIFICATION);
    EXPECT_EQ(attrs.m_MessageSeverity, 77);
}

// ---- Formatting -------------------------------------------------------------------------------------------

// Records instead of printing.
class RecordingLogger : public UniversalLoggerBase {
public:
    struct Message {
        const wchar_t* file;
        unsigned int line;
        std::wstring text;
        bool isTerminated;
    };

    bool isOn = true;
    unsigned int providersInAttrs = 99;
    std::vector<Message> messages;
    std::vector<std::wstring> properties;

    void pushProperty(const WideString& name, const WideString& value) override {
        properties.push_back(std::wstring(name.c_str()) + L"=" + value.c_str());
    }
    void popProperty(const WideString& name) override { properties.push_back(name.c_str()); }
    bool calculateEnabledProviders(LogType logTypes, MessageType type, int severity, const wchar_t* file,
                                   unsigned int line, LogMessageAttributes& attrs) override {
        providersInAttrs = attrs.m_nProviders;
        populateLogMessageAttributes(attrs, file, line, logTypes, type, severity);
        return isOn;
    }
    void logToEnabledProviders(LogMessageAttributes& /*attrs*/, const wchar_t* file, unsigned int line,
                               const wchar_t* text, unsigned int length) override {
        messages.push_back({file, line, std::wstring(text, length), text[length] == L'\0'});
    }
    using UniversalLoggerBase::logToEnabledProviders;
};

TEST(LogFmtToEnabledProviders, FormatsWideText) {
    RecordingLogger logger;
    Attributes attrs;
    logger.logFmtToEnabledProviders(attrs, kFile, kLine, L"%ls=%d %.2f %lc", 100, L"a\x6F22", -5, 1.5,
                                    L'\xE4');
    ASSERT_EQ(logger.messages.size(), 1U);
    EXPECT_EQ(logger.messages[0].text, L"a\x6F22=-5 1.50 \xE4");
    EXPECT_TRUE(logger.messages[0].isTerminated);
    EXPECT_EQ(logger.messages[0].file, kFile);
    EXPECT_EQ(logger.messages[0].line, kLine);
}

TEST(LogFmtToEnabledProviders, PrintsWhenItIsNotOverridden) {
    EXPECT_EQ(printed([] {
                  UniversalLoggerBase logger;
                  Attributes attrs;
                  logger.logFmtToEnabledProviders(attrs, kFile, kLine, L"%ls %d", 100, L"text", 7);
                  logger.logFmtToEnabledProviders(attrs, nullptr, kLine, L"%ls %d", 100, L"text", 8);
              }),
              "server/Source.cpp:321. text 7\ntext 8\n");
}

// The text of `length` characters, formatted with room for `room`.
std::wstring formatted(std::size_t length, unsigned int room) {
    RecordingLogger logger;
    Attributes attrs;
    const std::wstring text(length, L'x');
    logger.logFmtToEnabledProviders(attrs, kFile, kLine, L"%ls", room, text.c_str());
    EXPECT_EQ(logger.messages.size(), 1U);
    EXPECT_TRUE(logger.messages.at(0).isTerminated);
    return logger.messages.at(0).text;
}

TEST(LogFmtToEnabledProviders, TextsThatFitAreWhole) {
    for (const unsigned int room : {1U, 2U, 63U, 510U, 511U, 512U, 513U, 1023U, 1024U, 100'001U}) {
        EXPECT_TRUE(formatted(room - 1, room) == std::wstring(room - 1, L'x')) << room;
    }
}

TEST(LogFmtToEnabledProviders, TextsThatDoNotFitAreCutAndTerminated) {
    for (const unsigned int room : {0U, 1U, 2U, 63U, 510U, 511U, 512U, 513U, 1023U, 1024U, 100'000U}) {
        const std::size_t expected = room == 0 ? 0 : room - 1;
        EXPECT_TRUE(formatted(room, room) == std::wstring(expected, L'x')) << room;
        EXPECT_TRUE(formatted(room + 5000U, room) == std::wstring(expected, L'x')) << room;
    }
}

TEST(LogFmtToEnabledProviders, ADirectiveThatFailsKeepsWhatWasWritten) {
    // A narrow character that is none of the locale's stops the formatter.
    RecordingLogger logger;
    Attributes attrs;
    const char* const broken = "\xFF\xFE";
    logger.logFmtToEnabledProviders(attrs, kFile, kLine, L"before %s after", 100, broken);
    ASSERT_EQ(logger.messages.size(), 1U);
    EXPECT_TRUE(logger.messages[0].isTerminated);
    EXPECT_EQ(logger.messages[0].text.substr(0, 7), L"before ");
    EXPECT_LT(logger.messages[0].text.size(), 100U);
}

TEST(LogFmtToEnabledProviders, ARequestForTooMuchRoomIsBadAlloc) {
    RecordingLogger logger;
    Attributes attrs;
    EXPECT_THROW(logger.logFmtToEnabledProviders(attrs, kFile, kLine, L"x", 0xFFFFFFFFU), std::bad_alloc);
    {
        const brimtest::AllocationRefusal refusal(1);
        EXPECT_THROW(logger.logFmtToEnabledProviders(attrs, kFile, kLine, L"x", 512), std::bad_alloc);
    }
    EXPECT_TRUE(logger.messages.empty());
}

std::vector<std::size_t> blocksOf(unsigned int room) {
    RecordingLogger logger;
    Attributes attrs;
    std::vector<std::size_t> sizes;
    const brimtest::AllocationLog log;
    logger.logFmtToEnabledProviders(attrs, kFile, kLine, L"x", room);
    for (const brimtest::AllocationRequest& request : log.requests()) {
        sizes.push_back(request.size);
    }
    EXPECT_EQ(log.releases().size(), sizes.size()) << "the buffer is freed afterwards";
    return sizes;
}

TEST(LogFmtToEnabledProviders, AllocatesFrom512On) {
    EXPECT_TRUE(blocksOf(100).empty());
    EXPECT_TRUE(blocksOf(511).empty());
    // The smallest 2^k - 1 characters that will do, and the zero.
    for (const auto& [room, characters] : {std::pair{512U, 1024U}, {1023U, 1024U}, {1024U, 2048U}}) {
        const std::vector<std::size_t> sizes = blocksOf(room);
        ASSERT_EQ(sizes.size(), 1U) << room;
        EXPECT_GE(sizes[0], characters * sizeof(wchar_t)) << room;
        EXPECT_LT(sizes[0], (characters + 16) * sizeof(wchar_t)) << room;
    }
}

class ThrowingLogger : public UniversalLoggerBase {
public:
    void logToEnabledProviders(LogMessageAttributes&, const wchar_t*, unsigned int, const wchar_t*,
                               unsigned int) override {
        throw std::runtime_error("no room on the disk");
    }
    using UniversalLoggerBase::logToEnabledProviders;
};

TEST(LogFmtToEnabledProviders, FreesItsBufferWhenTheLoggerThrows) {
    ThrowingLogger logger;
    Attributes attrs;
    const long blocks = brimtest::RecordingAllocator::liveBlocks();
    EXPECT_THROW(logger.logFmtToEnabledProviders(attrs, kFile, kLine, L"x", 5000), std::runtime_error);
    EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), blocks);
}

// ---- Loggers of a host ------------------------------------------------------------------------------------

TEST(UniversalLoggerBase, IgnoresProperties) {
    EXPECT_EQ(printed([] {
                  UniversalLoggerBase logger;
                  logger.pushProperty(L"name", L"value");
                  logger.popProperty(L"name");
                  logger.popProperty(L"never pushed");
              }),
              "");
}

TEST(LogString, AsksTheLoggerAndHandsOverTheText) {
    RecordingLogger logger;
    logger.logString(LoggingEnums::kLogAll, LoggingEnums::MESSAGE_TYPE_TRACE, 1, kFile, kLine,
                     View(L"text and more", 4));
    EXPECT_EQ(logger.providersInAttrs, 0U) << "fresh attributes";
    ASSERT_EQ(logger.messages.size(), 1U);
    EXPECT_EQ(logger.messages[0].text, L"text");
    EXPECT_FALSE(logger.messages[0].isTerminated) << "the caller's own characters";
    EXPECT_EQ(logger.messages[0].file, kFile);
    EXPECT_EQ(logger.messages[0].line, kLine);
    logger.isOn = false;
    logger.logString(LoggingEnums::kLogAll, LoggingEnums::MESSAGE_TYPE_INCIDENT_ERROR, 1, kFile, kLine,
                     View(L"text"));
    EXPECT_EQ(logger.messages.size(), 1U);
}

TEST(LogString, PrintsWhatPassesTheThreshold) {
    EXPECT_EQ(printed([] {
                  UniversalLoggerBase* const logger = UniversalLoggerBase::getThreadLogger();
                  logger->logString(LoggingEnums::kLogServer, LoggingEnums::MESSAGE_TYPE_ERROR, 1, kFile,
                                    kLine, View(L"an error"));
                  logger->logString(LoggingEnums::kLogServer, LoggingEnums::MESSAGE_TYPE_WARNING, 1, kFile,
                                    kLine, View(L"a warning"));
                  logger->logString(LoggingEnums::kLogServer, LoggingEnums::MESSAGE_TYPE_INCIDENT_ERROR, 1,
                                    nullptr, kLine, View());
              }),
              "server/Source.cpp:321. an error\n\n");
}

TEST(LogToEnabledProviders, AViewIsHandedOnAsPointerAndLength) {
    RecordingLogger logger;
    Attributes attrs;
    UniversalLoggerBase& base = logger;
    base.logToEnabledProviders(attrs, kFile, kLine, View(L"abcdef", 2));
    ASSERT_EQ(logger.messages.size(), 1U);
    EXPECT_EQ(logger.messages[0].text, L"ab");
}

class OneLoggerAThread final : public UniversalLoggerBase::ThreadLoggerGetter {
public:
    UniversalLoggerBase* get() override {
        thread_local RecordingLogger logger;
        return &logger;
    }
    bool isInitializedForTheThread() override { return false; }
};

void install(UniversalLoggerBase::ThreadLoggerGetter& getter) {
    UniversalLoggerBase::setThreadLoggerGetter(
        UniversalLoggerBase::kThisMustBeCalledOnlyByUniversalLoggerImplInUtilityGeneric, getter);
}

TEST(GetThreadLogger, IsTheDefaultOneForEachThread) {
    UniversalLoggerBase::ThreadLoggerGetter& getter = UniversalLoggerBase::getDefaultGetter();
    EXPECT_EQ(&getter, &UniversalLoggerBase::getDefaultGetter());
    EXPECT_TRUE(getter.isInitializedForTheThread());
    EXPECT_EQ(UniversalLoggerBase::getThreadLogger(), getter.get());
    std::vector<UniversalLoggerBase*> loggers(8, nullptr);
    std::vector<std::thread> threads;
    for (UniversalLoggerBase*& logger : loggers) {
        threads.emplace_back([&logger] { logger = UniversalLoggerBase::getThreadLogger(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(loggers, testing::Each(getter.get()));
}

TEST(GetThreadLogger, IsThatOfTheInstalledGetter) {
    OneLoggerAThread getter;
    install(getter);
    UniversalLoggerBase* const mine = UniversalLoggerBase::getThreadLogger();
    UniversalLoggerBase* others = nullptr;
    std::thread([&others] {
        others = UniversalLoggerBase::getThreadLogger();
        EXPECT_EQ(others, UniversalLoggerBase::getThreadLogger());
    }).join();
    EXPECT_EQ(mine, getter.get());
    EXPECT_NE(mine, others);
    mine->pushProperty(L"name", L"value");
    mine->popProperty(L"name");
    EXPECT_THAT(static_cast<RecordingLogger*>(mine)->properties,
                testing::ElementsAre(L"name=value", L"name"));
    install(UniversalLoggerBase::getDefaultGetter());
    EXPECT_EQ(UniversalLoggerBase::getThreadLogger(), UniversalLoggerBase::getDefaultGetter().get());
}

const FreshProcess kInstallsFirst("installs a getter before the first logger", [] {
    static OneLoggerAThread getter;
    install(getter);
    std::printf("%d\n", UniversalLoggerBase::getThreadLogger() == getter.get());
    std::printf("%d\n", UniversalLoggerBase::getThreadLogger() == getter.get());
});

TEST(GetThreadLogger, DoesNotReplaceAGetterThatWasInstalledFirst) {
    EXPECT_EQ(kInstallsFirst.run().output, "1\n1\n");
}

// ---- Threads ----------------------------------------------------------------------------------------------

TEST(UniversalLoggerBase, LinesOfThreadsStayWhole) {
    constexpr int kThreads = 4;
    constexpr int kMessages = 200;
    const std::string output = printed([] {
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([i] {
                UniversalLoggerBase* const logger = UniversalLoggerBase::getThreadLogger();
                const std::wstring text(static_cast<std::size_t>(600), static_cast<wchar_t>(L'a' + i));
                Attributes attrs;
                for (int n = 0; n < kMessages; ++n) {
                    logger->logFmtToEnabledProviders(attrs, kFile, kLine, L"%ls", 700, text.c_str());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    std::size_t lines = 0;
    for (std::size_t start = 0; start < output.size(); ++lines) {
        const std::size_t end = output.find('\n', start);
        const std::string line = output.substr(start, end - start);
        const std::string expected = "server/Source.cpp:321. " + std::string(600, line.back());
        ASSERT_EQ(line, expected);
        start = end + 1;
    }
    EXPECT_EQ(lines, static_cast<std::size_t>(kThreads * kMessages));
}

} // namespace
