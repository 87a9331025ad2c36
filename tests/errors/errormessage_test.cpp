#include "SUPErrorMessage.h"

#include "child_process.h"
#include "recording_allocator.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <barrier>
#include <cstdio>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using Manager = UtilityPortableErrorMessageManager;
using DefaultManager = SingleThreadedUtilityPortableErrorMessageManager;
using brimtest::runInChild;

namespace {

static_assert(std::is_abstract_v<Manager>);
static_assert(std::has_virtual_destructor_v<Manager>);
static_assert(std::is_base_of_v<memalloc::MemAllocNewdel, Manager>);
static_assert(std::is_base_of_v<Manager, DefaultManager>);
static_assert(std::is_default_constructible_v<DefaultManager>);
static_assert(sizeof(Manager) == sizeof(void*));
static_assert(sizeof(DefaultManager) == sizeof(void*));
static_assert(std::is_same_v<decltype(Manager::Register(nullptr)), bool>);

class CountingManager : public Manager {
public:
    ~CountingManager() override { ++s_destroyed; }
    void ThrowErrorMessage(int code, const char* arg1, const char* arg2) override {
        ++calls;
        lastCode = code;
        lastArg1 = arg1;
        lastArg2 = arg2;
    }

    int calls = 0;
    int lastCode = 1;
    const char* lastArg1 = nullptr;
    const char* lastArg2 = nullptr;
    static inline int s_destroyed = 0;
};

class ThrowingManager : public Manager {
public:
    void ThrowErrorMessage(int, const char* arg1, const char*) override { throw std::runtime_error(arg1); }
};

// Every test starts and ends with the default manager.
class ErrorMessageManager : public testing::Test {
protected:
    void SetUp() override { Manager::Register(nullptr); }
    void TearDown() override { Manager::Register(nullptr); }
};

TEST(ErrCode, HasItsValues) {
    EXPECT_EQ(Manager::E_Portable_LackOfSpace, 0);
    EXPECT_EQ(Manager::E_Portable_EncodingUnsupported, -1);
    EXPECT_EQ(Manager::E_Portable_DefaultLocaleUnsupported, -2);
    EXPECT_EQ(Manager::E_Portable_LocaleUnavailable, -3);
    EXPECT_EQ(Manager::E_Portable_IncompleteCharOrShiftSeq, -4);
    EXPECT_EQ(Manager::E_Portable_IllegalCharOrShiftSeq, -5);
    EXPECT_EQ(Manager::E_Portable_BadF, -6);
    EXPECT_EQ(Manager::E_Portable_UnknownIconvErr, -7);
    EXPECT_EQ(Manager::E_Portable_UnknownHostname, -8);
    EXPECT_EQ(Manager::E_Portable_XmlFileNotFound, -9);
    EXPECT_EQ(Manager::E_Portable_XmlParserFailure, -10);
    EXPECT_EQ(Manager::E_Portable_WSAStartup, -11);
    EXPECT_EQ(Manager::E_Portable_GetHostByName, -12);
}

// ---- Get and Register

const brimtest::FreshProcess kBeforeAnyRegistration("BeforeAnyRegistration", [] {
    CountingManager mine;
    Manager* const first = Manager::Get(nullptr, false);
    std::printf("%d", first != nullptr && first == DefaultManager::Make() ? 1 : 0);
    std::printf("%d", Manager::Get(&mine, false) == first ? 1 : 0);
    std::printf("%d", Manager::Get(nullptr, false) == first ? 1 : 0);
});

TEST(ErrorMessageManagerGet, ReturnsTheDefaultBeforeAnyRegistration) {
    EXPECT_EQ(kBeforeAnyRegistration.run().output, "111");
}

const brimtest::FreshProcess kReplaceAtTheFirstCall("ReplaceAtTheFirstCall", [] {
    CountingManager mine;
    std::printf("%d", Manager::Get(&mine, true) == &mine ? 1 : 0);
    std::printf("%d", Manager::Get(nullptr, false) == &mine ? 1 : 0);
    std::printf("%d", Manager::Get(nullptr, true) == DefaultManager::Make() ? 1 : 0);
});

TEST(ErrorMessageManagerGet, ReplacesAtTheFirstCallToo) {
    EXPECT_EQ(kReplaceAtTheFirstCall.run().output, "111");
}

TEST_F(ErrorMessageManager, GetWithoutReplaceChangesNothing) {
    Manager* const standard = DefaultManager::Make();
    CountingManager mine;
    EXPECT_EQ(Manager::Get(nullptr, false), standard);
    EXPECT_EQ(Manager::Get(&mine, false), standard);
    EXPECT_EQ(Manager::Get(nullptr, false), standard);

    Manager::Register(&mine);
    EXPECT_EQ(Manager::Get(nullptr, false), &mine);
    EXPECT_EQ(Manager::Get(standard, false), &mine);
    EXPECT_EQ(Manager::Get(&mine, false), &mine);
}

TEST_F(ErrorMessageManager, GetWithReplaceInstallsAndReturns) {
    CountingManager first;
    CountingManager second;
    EXPECT_EQ(Manager::Get(&first, true), &first);
    EXPECT_EQ(Manager::Get(&first, true), &first) << "the current one again";
    EXPECT_EQ(Manager::Get(&second, true), &second);
    EXPECT_EQ(Manager::Get(nullptr, false), &second);
    EXPECT_EQ(Manager::Get(nullptr, true), DefaultManager::Make());
    EXPECT_EQ(Manager::Get(nullptr, true), DefaultManager::Make());
    EXPECT_EQ(Manager::Get(nullptr, false), DefaultManager::Make());
}

TEST_F(ErrorMessageManager, RegisterIsAlwaysOne) {
    CountingManager mine;
    EXPECT_EQ(Manager::Register(&mine), 1);
    EXPECT_EQ(Manager::Get(nullptr, false), &mine);
    EXPECT_EQ(Manager::Register(&mine), 1);
    EXPECT_EQ(Manager::Register(nullptr), 1);
    EXPECT_EQ(Manager::Get(nullptr, false), DefaultManager::Make());
    EXPECT_EQ(Manager::Register(nullptr), 1);
    EXPECT_EQ(Manager::Register(DefaultManager::Make()), 1);
    EXPECT_EQ(Manager::Get(nullptr, false), DefaultManager::Make());
}

TEST_F(ErrorMessageManager, ReportsGoToTheRegisteredOneWithTheArgumentsAsTheyAre) {
    CountingManager mine;
    Manager::Register(&mine);
    const char* const text = "text";
    Manager::Get(nullptr, false)->ThrowErrorMessage(-5, nullptr, text);
    EXPECT_EQ(mine.calls, 1);
    EXPECT_EQ(mine.lastCode, -5);
    EXPECT_EQ(mine.lastArg1, nullptr);
    EXPECT_EQ(mine.lastArg2, text);
    Manager::Register(nullptr);
    EXPECT_EQ(mine.calls, 1);
}

TEST_F(ErrorMessageManager, MayThrow) {
    ThrowingManager mine;
    Manager::Register(&mine);
    try {
        Manager::Get(nullptr, false)->ThrowErrorMessage(-1, "65001", nullptr);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "65001");
    }
    EXPECT_EQ(Manager::Get(nullptr, false), &mine) << "it stays registered";
}

TEST_F(ErrorMessageManager, StaysTheCallersToDelete) {
    CountingManager::s_destroyed = 0;
    Manager* const mine = new CountingManager;
    Manager::Register(mine);
    Manager::Register(nullptr);
    EXPECT_EQ(CountingManager::s_destroyed, 0);
    delete mine;
    EXPECT_EQ(CountingManager::s_destroyed, 1);
}

TEST_F(ErrorMessageManager, ComesFromTheAllocatorGateway) {
    brimtest::AllocationLog log;
    const Manager* const mine = new ("some/source.cpp", 12) CountingManager;
    const Manager* const standard = new DefaultManager;
    ASSERT_EQ(log.requests().size(), 2U);
    EXPECT_GT(log.requests()[0].size, sizeof(CountingManager)) << "the size is remembered";
    EXPECT_STREQ(log.requests()[0].file, "some/source.cpp");
    EXPECT_EQ(log.requests()[0].line, 12);
    delete mine;
    delete standard;
    ASSERT_EQ(log.releases().size(), 2U);
    EXPECT_EQ(log.releases()[0].block, log.requests()[0].block);
    EXPECT_EQ(log.releases()[1].block, log.requests()[1].block);
}

TEST(DefaultErrorMessageManager, IsOneObject) {
    Manager* const made = DefaultManager::Make();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(DefaultManager::Make(), made);
    EXPECT_NE(dynamic_cast<DefaultManager*>(made), nullptr);
}

const brimtest::FreshProcess kFirstUseByManyThreads("FirstUseByManyThreads", [] {
    constexpr std::size_t kThreads = 8;
    std::barrier start(static_cast<std::ptrdiff_t>(kThreads));
    std::vector<Manager*> seen(kThreads);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&start, &seen, i] {
            start.arrive_and_wait();
            seen[i] = i % 2 == 0 ? Manager::Get(nullptr, false) : DefaultManager::Make();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const Manager* const manager : seen) {
        std::printf("%d", manager != nullptr && manager == seen[0] ? 1 : 0);
    }
});

TEST(ErrorMessageManagerGet, BuildsOneDefaultForManyThreads) {
    const brimtest::ChildResult result = kFirstUseByManyThreads.run();
    EXPECT_EQ(result.exitCode(), 0) << result;
    EXPECT_EQ(result.output, "11111111");
}

TEST(DefaultErrorMessageManager, HasNoGetterOfItsOwn) {
    const std::string prefix = "_ZN48SingleThreadedUtilityPortableErrorMessageManager";
    ASSERT_NE(dlsym(RTLD_DEFAULT, (prefix + "4MakeEv").c_str()), nullptr) << "how the names look";
    EXPECT_EQ(dlsym(RTLD_DEFAULT, (prefix + "37GetUtilityPortableErrorMessageManager"
                                            "EP34UtilityPortableErrorMessageManagerb")
                                      .c_str()),
              nullptr)
        << "declared, but never defined";
}

// ---- the default manager's lines

struct Texts {
    int code;
    const char* noArgument;
    const char* oneArgument;
    const char* twoArguments;
};

// With "a" and "b" for the arguments.
constexpr Texts kTexts[] = {
    {-1, "Encoding not supported error number -1\n", "Encoding not supported error number -1, a\n",
     "Encoding not supported error number  -1, a, b\n"},
    {-2, "Unable to restore Default Locale error number -2\n",
     "Unable to restore Default Locale error number -2, a\n", "Unable to restore Default Locale -2, a, b\n"},
    {-3, "Locale not installed error number -3\n", "Locale not installed error number -3, a\n",
     "Locale not installed error number -3, a, b\n"},
    {-9, "Xml File Not Found error number -9\n", "Xml File Not Found error number -9, a\n",
     "Xml File Not Found error number -9, a, b\n"},
    {-10, "Xml File Parse error number -10\n", "Xml File Parse error number -10, a\n",
     "Xml File Parse error number -10, a, b\n"},
    {-12, "GetHostByName() failed -12\n", "GetHostByName() failed -12, a\n", "GetHostByName() -12, a, b\n"},
};

std::string reportOf(int code, const char* arg1, const char* arg2) {
    const brimtest::ChildResult result = runInChild([&] {
        Manager::Register(nullptr);
        Manager::Get(nullptr, false)->ThrowErrorMessage(code, arg1, arg2);
    });
    EXPECT_EQ(result.exitCode(), 0) << "it prints and returns: " << result;
    return result.output;
}

TEST(DefaultErrorMessageManager, HasATextForSixCodes) {
    for (const Texts& texts : kTexts) {
        EXPECT_EQ(reportOf(texts.code, nullptr, nullptr), texts.noArgument);
        EXPECT_EQ(reportOf(texts.code, "a", nullptr), texts.oneArgument);
        EXPECT_EQ(reportOf(texts.code, "a", "b"), texts.twoArguments);
    }
}

TEST(DefaultErrorMessageManager, HasOneTextForAllOtherCodes) {
    for (const int code : {0, -4, -5, -6, -7, -8, -11, -13, 1, 2, 12, 100, 2147483647, -2147483647 - 1}) {
        const std::string start = "Transcoding error number " + std::to_string(code);
        EXPECT_EQ(reportOf(code, nullptr, nullptr), start + "\n");
        EXPECT_EQ(reportOf(code, "a", nullptr), start + ", a\n");
        EXPECT_EQ(reportOf(code, "a", "b"), start + ", a, b\n");
    }
}

TEST(DefaultErrorMessageManager, IgnoresTheSecondArgumentWithoutTheFirst) {
    for (const Texts& texts : kTexts) {
        EXPECT_EQ(reportOf(texts.code, nullptr, "b"), texts.noArgument);
    }
    EXPECT_EQ(reportOf(-5, nullptr, "b"), "Transcoding error number -5\n");
}

TEST(DefaultErrorMessageManager, PrintsArgumentsAsTheyAre) {
    EXPECT_EQ(reportOf(-1, "65001", nullptr), "Encoding not supported error number -1, 65001\n");
    EXPECT_EQ(reportOf(-3, "", nullptr), "Locale not installed error number -3, \n");
    EXPECT_EQ(reportOf(-3, "", ""), "Locale not installed error number -3, , \n");
    EXPECT_EQ(reportOf(-9, "100%d%s%n", "\xFF\xFE"),
              "Xml File Not Found error number -9, 100%d%s%n, \xFF\xFE\n");
    const std::string longText(10000, 'x');
    EXPECT_EQ(reportOf(-10, longText.c_str(), nullptr),
              "Xml File Parse error number -10, " + longText + "\n");
}

TEST(DefaultErrorMessageManager, AsksTheAllocatorForNothing) {
    const brimtest::ChildResult result = runInChild([] {
        Manager* const manager = DefaultManager::Make();
        brimtest::AllocationLog log;
        manager->ThrowErrorMessage(-1, "a", "b");
        ::_exit(log.empty() ? 0 : 1);
    });
    EXPECT_EQ(result.exitCode(), 0) << result;
}

const brimtest::FreshProcess kReportsOfManyThreads("ReportsOfManyThreads", [] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int k = 0; k < 250; ++k) {
                Manager::Get(nullptr, false)
                    ->ThrowErrorMessage(-3, std::to_string(i).c_str(), std::to_string(k).c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
});

TEST(DefaultErrorMessageManager, MayBeCalledByManyThreads) {
    const brimtest::ChildResult result = kReportsOfManyThreads.run();
    ASSERT_EQ(result.exitCode(), 0) << result;
    std::map<std::string, int> lines;
    std::istringstream stream(result.output);
    for (std::string line; std::getline(stream, line);) {
        ++lines[line];
    }
    EXPECT_EQ(lines.size(), 1000U);
    EXPECT_EQ(lines["Locale not installed error number -3, 3, 249"], 1);
}

} // namespace
