#include "Utility/Generic/Portable/SUPExceptionSupport.h"

#include "child_process.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

using brimtest::runInChild;
using sup::SUPExceptionSupport;
using WideString = sup::String<wchar_t>;

namespace {

constexpr const wchar_t* kFile = L"server/some/Source.cpp";
constexpr int kLine = 321;
constexpr auto kOsError = SUPExceptionSupport::k_E_Utility_OperatingSystemError;

static_assert(std::is_abstract_v<SUPExceptionSupport>);
static_assert(sizeof(SUPExceptionSupport) == sizeof(void*));
static_assert(!std::is_default_constructible_v<BrimAssert>);
static_assert(kOsError == 0);

struct Call {
    enum Operation { kErrorMessage, kInternalMessage, kAssertError, kLogicError };

    Operation operation;
    const wchar_t* file;
    int line;
    std::wstring text;                // the message or condition, or the text argument
    const wchar_t* pointer = nullptr; // of the condition
    int id = -1;
    long code = 0; // the number argument
};

// Installed while it lives; records its calls and, when told, throws.
class Handler : public SUPExceptionSupport {
public:
    Handler() : m_pPrevious(m_pSUPExceptionSupport) { m_pSUPExceptionSupport = this; }
    ~Handler() { m_pSUPExceptionSupport = m_pPrevious; }
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    static const SUPExceptionSupport* installed() { return m_pSUPExceptionSupport; }
    static void uninstall() { m_pSUPExceptionSupport = nullptr; }

    void throwErrorMessageImpl(const wchar_t* file, int line, const WideString& message) override {
        record({Call::kErrorMessage, file, line, message.c_str()});
    }
    void throwInternalMessageImpl(const wchar_t* file, int line, InternalMessageID id,
                                  va_list* args) override {
        Call call{Call::kInternalMessage, file, line, L""};
        call.id = id;
        if (readArguments) {
            call.code = va_arg(*args, long);
            call.text = va_arg(*args, const wchar_t*);
        }
        record(call);
    }
    void throwAssertErrorImpl(const wchar_t* file, int line, const wchar_t* condition) override {
        Call call{Call::kAssertError, file, line, condition == nullptr ? L"(null)" : condition};
        call.pointer = condition;
        record(call);
    }
    void throwLogicErrorImpl(const wchar_t* file, int line, const WideString& message) override {
        record({Call::kLogicError, file, line, message.c_str()});
    }

    std::vector<Call> calls;
    bool readArguments = true;
    bool bThrows = false;

private:
    void record(const Call& call) {
        calls.push_back(call);
        if (bThrows) {
            throw std::runtime_error("handler");
        }
    }

    SUPExceptionSupport* m_pPrevious;
};

void expectCall(const Handler& handler, Call::Operation operation, const std::wstring& text) {
    ASSERT_EQ(handler.calls.size(), 1U);
    const Call& call = handler.calls[0];
    EXPECT_EQ(call.operation, operation);
    EXPECT_EQ(call.file, kFile) << "the pointer itself";
    EXPECT_EQ(call.line, kLine);
    EXPECT_EQ(call.text, text);
}

// The first text of the system builds what later ones use, so the tests that count blocks start with one.
void fetchOneSystemText() {
    const Handler handler;
    BrimAssert::handleOSError(kFile, kLine, WideString());
}

template <class Body>
brimtest::ChildResult withoutHandler(Body body) {
    return runInChild([&] {
        Handler::uninstall();
        body();
    });
}

// ---- without a handler

const brimtest::FreshProcess kNoHandlerAtFirst("NoHandlerAtFirst", [] {
    std::puts(Handler::installed() == nullptr ? "none" : "one");
});

TEST(SUPExceptionSupport, HasNoHandlerAtFirst) { EXPECT_EQ(kNoHandlerAtFirst.run().output, "none\n"); }

// Reports of a program that has not reached main() yet.
const brimtest::FreshProcess kReportBeforeMain("ReportBeforeMain", [] {
    SUPExceptionSupport::throwErrorMessage(kFile, kLine, WideString(L"too early"));
});

TEST(SUPExceptionSupport, PrintsAndAbortsDuringStaticInitialisation) {
    const brimtest::ChildResult result = kReportBeforeMain.run();
    EXPECT_EQ(result.signal(), SIGABRT) << result;
    EXPECT_EQ(result.output,
              "File server/some/Source.cpp, line 321. Error during static initilaization. Aborting\n"
              "too early\n");
}

// Not constant, so that compilers do not check the arguments against them.
const char* g_emptyFormat = "";
const char* g_noFormat = nullptr;

struct Fallback {
    const char* name;
    void (*report)();
    const char* output;
};

constexpr Fallback kFallbacks[] = {
    {"message", [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, WideString(L"what\nhappened")); },
     "File server/some/Source.cpp, line 321. Error during static initilaization. Aborting\nwhat\nhappened\n"},
    {"empty message", [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, WideString()); },
     "File server/some/Source.cpp, line 321. Error during static initilaization. Aborting\n\n"},
    {"message with percent signs",
     [] { SUPExceptionSupport::throwErrorMessage(L"%d%s", -1, WideString(L"%n%d%%")); },
     "File %d%s, line -1. Error during static initilaization. Aborting\n%n%d%%\n"},
    {"message without a file",
     [] { SUPExceptionSupport::throwErrorMessage(nullptr, INT_MIN, WideString(L"m")); },
     "File (null), line -2147483648. Error during static initilaization. Aborting\nm\n"},
    {"format without directives",
     [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, "plain", kOsError); },
     "File server/some/Source.cpp, line 321. Error during static initilaization.\nplain"},
    {"empty format", [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, g_emptyFormat, kOsError, 0); },
     "File server/some/Source.cpp, line 321. Error during static initilaization.\n"},
    {"format with arguments",
     [] {
         SUPExceptionSupport::throwErrorMessage(kFile, INT_MAX, "%d %s %ls %.1f 100%%\n", kOsError, 5, "five",
                                                L"V", 5.0);
     },
     "File server/some/Source.cpp, line 2147483647. Error during static initilaization.\n5 five V 5.0 "
     "100%\n"},
    {"assertion", [] { SUPExceptionSupport::throwAssertError(kFile, kLine, L"a < b-1"); },
     "Internal Assertion: Condition a < b-1, file server/some/Source.cpp, line 321\n"},
    {"assertion with percent signs", [] { SUPExceptionSupport::throwAssertError(L"100%s", 0, L"a % b"); },
     "Internal Assertion: Condition a % b, file 100%s, line 0\n"},
    {"assertion of nothing", [] { SUPExceptionSupport::throwAssertError(nullptr, 1, nullptr); },
     "Internal Assertion: Condition (null), file (null), line 1\n"},
    {"logic error", [] { SUPExceptionSupport::throwLogicError(kFile, kLine, WideString(L"impossible")); },
     ""},
    {"front end: assertion", [] { BrimAssert::handleAssert(kFile, kLine, L"p != NULL"); },
     "Internal Assertion: Condition p != NULL, file server/some/Source.cpp, line 321\n"},
    {"front end: logic error", [] { BrimAssert::handleLogicError(kFile, kLine, WideString()); }, ""},
    {"front end: operating-system error",
     [] {
         errno = ENOENT;
         BrimAssert::handleOSError(kFile, kLine, WideString());
     },
     "File server/some/Source.cpp, line 321. Error during static initilaization.\n"
     "Operating system error. code: 2, message: No such file or directory"},
    {"front end: operating-system error with a message",
     [] {
         errno = EACCES;
         BrimAssert::handleOSError(kFile, kLine, WideString(L"cannot open %s"));
     },
     "File server/some/Source.cpp, line 321. Error during static initilaization.\n"
     "Operating system error. code: 13, message: cannot open %s"},
    {"front end: operating-system error below zero",
     [] {
         errno = -5;
         BrimAssert::handleOSError(kFile, kLine, WideString(L"m"));
     },
     "File server/some/Source.cpp, line 321. Error during static initilaization.\n"
     "Operating system error. code: 4294967291, message: m"},
};

TEST(WithoutAHandler, EveryReportPrintsItsTextAndAborts) {
    for (const Fallback& fallback : kFallbacks) {
        const brimtest::ChildResult result = withoutHandler(fallback.report);
        EXPECT_EQ(result.output, fallback.output) << fallback.name;
        EXPECT_EQ(result.signal(), SIGABRT) << fallback.name << ": " << result;
    }
}

TEST(WithoutAHandler, ANullFormatPrintsABackspaceAndFaults) {
    const brimtest::ChildResult result = withoutHandler(
        [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, g_noFormat, kOsError, 1L, L"x"); });
    EXPECT_EQ(result.output,
              "File server/some/Source.cpp, line 321. Error during static initilaization.\n\bAborting.\n");
    EXPECT_TRUE(result.signal() == SIGILL || result.signal() == SIGTRAP || result.signal() == SIGSEGV)
        << "a fault, and not the abort of the others: " << result;
}

TEST(WithoutAHandler, TextThatTheLocaleCannotShowComesOutWithQuestionMarks) {
    const auto report = [] {
        SUPExceptionSupport::throwErrorMessage(L"\xE4.cpp", 1,
                                               WideString(L"\x20AC, \xD83D\xDE00 and \xD83D."));
    };
    EXPECT_EQ(withoutHandler(report).output,
              "File ?.cpp, line 1. Error during static initilaization. Aborting\n?, ? and ?.\n");
    EXPECT_EQ(withoutHandler([&] {
                  std::setlocale(LC_ALL, "C.UTF-8");
                  report();
              }).output,
              "File \xC3\xA4.cpp, line 1. Error during static initilaization. Aborting\n"
              "\xE2\x82\xAC, \xF0\x9F\x98\x80 and ?.\n");
    EXPECT_EQ(withoutHandler([] { BrimAssert::handleAssert(L"f", 1, L"c != L'\x20AC'"); }).output,
              "Internal Assertion: Condition c != L'?', file f, line 1\n");
}

TEST(WithoutAHandler, WhatTheHostPrintedBeforeComesFirst) {
    const brimtest::ChildResult result = withoutHandler([] {
        std::printf("host; ");
        SUPExceptionSupport::throwErrorMessage(kFile, kLine, WideString(L"m"));
    });
    EXPECT_EQ(result.output.rfind("host; File ", 0), 0U) << result;
}

TEST(WithoutAHandler, ReportsAskTheAllocatorForNothing) {
    static const WideString message(L"m");
    constexpr void (*kReports[])() = {
        [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, message); },
        [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, "%ld %ls", kOsError, 1L, L"x"); },
        [] { BrimAssert::handleAssert(kFile, kLine, L"c"); },
        [] { BrimAssert::handleLogicError(kFile, kLine, message); },
        [] { BrimAssert::handleOSError(kFile, kLine, message); },
    };
    for (const auto report : kReports) {
        const brimtest::ChildResult result = withoutHandler([report] {
            // The report does not return: the signal that it ends in looks at the log.
            static const brimtest::AllocationLog log;
            std::signal(SIGABRT, [](int) { ::_exit(log.empty() ? 0 : 1); });
            report();
        });
        EXPECT_EQ(result.exitCode(), 0) << result;
    }
}

// ---- with a handler

TEST(WithAHandler, MessagesGoToIt) {
    Handler handler;
    SUPExceptionSupport::throwErrorMessage(kFile, kLine, WideString(L"what happened"));
    expectCall(handler, Call::kErrorMessage, L"what happened");
}

TEST(WithAHandler, InternalMessagesGoToItWithTheArgumentsAfterTheId) {
    Handler handler;
    SUPExceptionSupport::throwErrorMessage(kFile, kLine, "%ld %ls", kOsError, 77L, L"text");
    expectCall(handler, Call::kInternalMessage, L"text");
    EXPECT_EQ(handler.calls[0].id, kOsError);
    EXPECT_EQ(handler.calls[0].code, 77);
}

TEST(WithAHandler, TheFormatOfAnInternalMessageIsNotLookedAt) {
    for (const char* const format : {static_cast<const char*>(nullptr), "", "%s%n%s", "%d"}) {
        const brimtest::ChildResult result = runInChild([format] {
            Handler handler;
            SUPExceptionSupport::throwErrorMessage(kFile, kLine, format, kOsError, 1L, L"text");
            std::fflush(stdout);
            ::_exit(handler.calls.size() == 1 && handler.calls[0].text == L"text" ? 0 : 1);
        });
        EXPECT_EQ(result.exitCode(), 0) << result;
        EXPECT_EQ(result.output, "") << "nothing is printed";
    }
}

TEST(WithAHandler, AnInternalMessageMayHaveNoArgumentsOrMany) {
    class Sum : public Handler {
    public:
        explicit Sum(int n) : m_n(n) {}
        void throwInternalMessageImpl(const wchar_t*, int, InternalMessageID, va_list* args) override {
            for (int i = 0; i < m_n; ++i) {
                longs += va_arg(*args, long);
                doubles += va_arg(*args, double);
            }
        }
        long longs = 0;
        double doubles = 0;

    private:
        int m_n;
    };
    Sum none(0);
    SUPExceptionSupport::throwErrorMessage(kFile, kLine, "none", kOsError);
    EXPECT_EQ(none.longs, 0);
    Sum ten(10);
    SUPExceptionSupport::throwErrorMessage(kFile, kLine, g_emptyFormat, kOsError, 1L, .5, 2L, .5, 3L, .5, 4L,
                                           .5, 5L, .5, 6L, .5, 7L, .5, 8L, .5, 9L, .5, 10L, .5);
    EXPECT_EQ(ten.longs, 55);
    EXPECT_EQ(ten.doubles, 5.0);
}

TEST(WithAHandler, AssertionsGoToIt) {
    Handler handler;
    const wchar_t* const condition = L"attrs.n < MAX-1";
    const brimtest::ChildResult result = runInChild([&] {
        SUPExceptionSupport::throwAssertError(kFile, kLine, condition);
        const Call& call = handler.calls.at(0);
        ::_exit(handler.calls.size() == 1 && call.operation == Call::kAssertError && call.file == kFile &&
                        call.line == kLine && call.pointer == condition
                    ? 0
                    : 1);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output,
              "Internal Assertion: Condition attrs.n < MAX-1, file server/some/Source.cpp, line 321\n");
}

TEST(WithAHandler, AssertionsPrintTheirLineBeforeItIsCalled) {
    class Printing : public Handler {
    public:
        void throwAssertErrorImpl(const wchar_t*, int, const wchar_t*) override {
            std::printf("handler\n");
            std::fflush(stdout);
            throw std::runtime_error("handler");
        }
    };
    const brimtest::ChildResult result = runInChild([] {
        const Printing handler;
        try {
            BrimAssert::handleAssert(L"f.cpp", 5, L"c");
        } catch (const std::runtime_error&) {
            std::printf("caught\n");
            std::fflush(stdout);
        }
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "Internal Assertion: Condition c, file f.cpp, line 5\nhandler\ncaught\n");
}

TEST(WithAHandler, LogicErrorsGoToIt) {
    Handler handler;
    SUPExceptionSupport::throwLogicError(kFile, kLine, WideString(L"impossible"));
    expectCall(handler, Call::kLogicError, L"impossible");
}

TEST(WithAHandler, TheFrontEndForwards) {
    Handler handler;
    BrimAssert::handleLogicError(kFile, kLine, WideString());
    expectCall(handler, Call::kLogicError, L"");
    handler.calls.clear();

    testing::internal::CaptureStdout();
    BrimAssert::handleAssert(kFile, kLine, L"c");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Internal Assertion: Condition c, file server/some/Source.cpp, line 321\n");
    expectCall(handler, Call::kAssertError, L"c");
}

TEST(WithAHandler, NothingButAssertionsPrints) {
    const brimtest::ChildResult result = runInChild([] {
        const Handler handler;
        SUPExceptionSupport::throwErrorMessage(kFile, kLine, WideString(L"m"));
        SUPExceptionSupport::throwErrorMessage(kFile, kLine, "%ld %ls", kOsError, 1L, L"x");
        SUPExceptionSupport::throwLogicError(kFile, kLine, WideString(L"m"));
        BrimAssert::handleOSError(kFile, kLine, WideString());
        std::fflush(stdout);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "");
}

TEST(WithAHandler, ItsExceptionsPassThrough) {
    const std::function<void()> reports[] = {
        [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, WideString(L"m")); },
        [] { SUPExceptionSupport::throwErrorMessage(kFile, kLine, "%ld %ls", kOsError, 1L, L"x"); },
        [] { SUPExceptionSupport::throwLogicError(kFile, kLine, WideString(L"m")); },
        [] { BrimAssert::handleLogicError(kFile, kLine, WideString(L"m")); },
        [] { BrimAssert::handleOSError(kFile, kLine, WideString(L"m")); },
        [] { BrimAssert::handleOSError(kFile, kLine, WideString()); },
    };
    fetchOneSystemText();
    Handler handler;
    handler.bThrows = true;
    const long live = brimtest::RecordingAllocator::liveBlocks();
    for (const std::function<void()>& report : reports) {
        EXPECT_THROW(report(), std::runtime_error);
    }
    EXPECT_EQ(handler.calls.size(), std::size(reports));
    EXPECT_EQ(brimtest::RecordingAllocator::liveBlocks(), live) << "nothing is left behind";
}

TEST(WithAHandler, OneThatReturnsReturnsToTheCaller) {
    Handler handler;
    SUPExceptionSupport::throwErrorMessage(kFile, kLine, WideString(L"m"));
    SUPExceptionSupport::throwLogicError(kFile, kLine, WideString(L"m"));
    BrimAssert::handleOSError(kFile, kLine, WideString(L"m"));
    EXPECT_EQ(handler.calls.size(), 3U);
    EXPECT_EQ(Handler::installed(), &handler) << "the library never writes the pointer";
}

TEST(WithAHandler, TheLatestIsTheOne) {
    Handler first;
    {
        Handler second;
        SUPExceptionSupport::throwLogicError(kFile, kLine, WideString(L"2"));
        EXPECT_EQ(second.calls.size(), 1U);
        EXPECT_TRUE(first.calls.empty());
    }
    SUPExceptionSupport::throwLogicError(kFile, kLine, WideString(L"1"));
    EXPECT_EQ(first.calls.size(), 1U);
}

// ---- operating-system errors

TEST(HandleOSError, PassesTheErrorNumberAndTheSystemsText) {
    for (const int error : {0, 1, ENOENT, EACCES, EINVAL, ENOSYS, 99999, -5, INT_MIN, INT_MAX}) {
        Handler handler;
        char buffer[256] = {};
        const std::string text = ::strerror_r(error, buffer, sizeof(buffer));
        errno = error;
        BrimAssert::handleOSError(kFile, kLine, WideString());
        expectCall(handler, Call::kInternalMessage, std::wstring(text.begin(), text.end()));
        EXPECT_EQ(handler.calls[0].id, kOsError);
        EXPECT_EQ(handler.calls[0].code, static_cast<long>(static_cast<unsigned int>(error)))
            << "32 bits without a sign";
    }
}

TEST(HandleOSError, PassesAMessageInsteadOfTheSystemsText) {
    for (const wchar_t* const message : {L"cannot open", L" ", L"%ls %d", L"\x20AC"}) {
        Handler handler;
        errno = ENOENT;
        BrimAssert::handleOSError(kFile, kLine, WideString(message));
        expectCall(handler, Call::kInternalMessage, message);
        EXPECT_EQ(handler.calls[0].code, ENOENT);
    }
}

TEST(HandleOSError, FetchesNoSystemTextForAMessage) {
    fetchOneSystemText();
    Handler handler;
    const WideString message(L"cannot open");
    brimtest::AllocationLog log;
    BrimAssert::handleOSError(kFile, kLine, message);
    EXPECT_TRUE(log.empty()) << "the copy shares the message's block";

    BrimAssert::handleOSError(kFile, kLine, WideString());
    EXPECT_FALSE(log.requests().empty()) << "this one fetches it";
    EXPECT_EQ(log.requests().size(), log.releases().size()) << "and lets it go";
}

TEST(HandleOSError, LeavesTheMessageAsItWas) {
    const Handler handler;
    const WideString empty;
    BrimAssert::handleOSError(kFile, kLine, empty);
    EXPECT_TRUE(empty.empty());
    const WideString message(L"cannot open");
    BrimAssert::handleOSError(kFile, kLine, message);
    EXPECT_STREQ(message.c_str(), L"cannot open");
}

// ---- the service flag

const brimtest::FreshProcess kServiceFlag("ServiceFlag", [] {
    std::printf("%d", BrimAssert::IsSystemServiceMode() ? 1 : 0);
    BrimAssert::InitAsSystemServiceMode();
    std::printf("%d", BrimAssert::IsSystemServiceMode() ? 1 : 0);
    BrimAssert::InitAsSystemServiceMode();
    std::printf("%d", BrimAssert::IsSystemServiceMode() ? 1 : 0);
});

TEST(SystemServiceMode, IsOffAtLoadAndOnForGood) { EXPECT_EQ(kServiceFlag.run().output, "011"); }

TEST(SystemServiceMode, ChangesNoReport) {
    const brimtest::ChildResult result = withoutHandler([] {
        BrimAssert::InitAsSystemServiceMode();
        BrimAssert::handleAssert(L"f", 1, L"c");
    });
    EXPECT_EQ(result.signal(), SIGABRT) << result;
    EXPECT_EQ(result.output, "Internal Assertion: Condition c, file f, line 1\n");
}

} // namespace
