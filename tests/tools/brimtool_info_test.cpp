// brimtool info.
#include "json_reader.h"
#include "tool_runner.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "kernels/kernels.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <sys/resource.h>

using namespace brimtest;

namespace {

ToolRun infoRun(const std::vector<std::pair<std::string, std::string>>& variables) {
    ToolRun run;
    run.arguments = {"info", "--json"};
    run.hasOwnEnvironment = true;
    run.environment = variables;
    return run;
}

Json infoOf(const ToolRun& run) {
    const ToolResult result = run.run();
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.errors, "");
    return JsonReader::read(result.output);
}

} // namespace

TEST(BrimtoolInfo, TellsTheSettingsOfTheLibrary) {
    const Json info = infoOf(infoRun({{"LC_ALL", "C.UTF-8"},
                                      {"VANTA_HX_LANG", "fr"},
                                      {"KROS_NUMBER_OF_PROCESSORS", "7"},
                                      {"FEN_MAX_FILE_HANDLES", "123"},
                                      {"QUAY_RPC_TIMEOUT", "45"},
                                      {"BRIM_KERNELS", "plain"}}));
    EXPECT_EQ(info.at("version").text.rfind("brimportable ", 0), 0U);
    EXPECT_EQ(info.at("locale").text, "C.UTF-8");
    EXPECT_EQ(info.at("clientCodePage").text, "65001");
    EXPECT_EQ(info.at("systemCodePage").text, "65001");
    EXPECT_EQ(info.at("messageLanguage").text, "fr");
    EXPECT_EQ(info.at("processors").text, "7");
    EXPECT_EQ(info.at("maximumFileHandles").text, "123");
    EXPECT_EQ(info.at("rpcTimeoutSeconds").text, "45");
    EXPECT_EQ(info.at("kernels").text, "plain");
}

TEST(BrimtoolInfo, TellsTheDefaults) {
    ToolRun run = infoRun({{"LC_ALL", "C"}});
    run.setUp = [] {
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 99;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    };
    const Json info = infoOf(run);
    EXPECT_EQ(info.at("locale").text, "C");
    EXPECT_EQ(info.at("clientCodePage").text, "0");
    EXPECT_EQ(info.at("systemCodePage").text, "1252");
    EXPECT_EQ(info.at("messageLanguage").text, "en");
    EXPECT_EQ(info.at("processors").text, std::to_string(SystemUtility::GetNumberOfLogicalProcessors()));
    EXPECT_EQ(info.at("maximumFileHandles").text, "99");
    EXPECT_EQ(info.at("rpcTimeoutSeconds").text, "540");
    using sup::kernels::kernelsOf;
    using sup::kernels::Level;
    EXPECT_EQ(info.at("kernels").text, kernelsOf(Level::avx512) != nullptr ? "avx512"
                                       : kernelsOf(Level::avx2) != nullptr ? "avx2"
                                                                           : "plain");
}

// The timer is measured over 100 ms at load, and all of the load lies within the run.
TEST(BrimtoolInfo, TheLoadTimeHoldsTheMeasurementOfTheTimer) {
    const auto start = std::chrono::steady_clock::now();
    const Json info = infoOf(infoRun({}));
    const auto run = std::chrono::steady_clock::now() - start;
    const std::chrono::microseconds load(std::stoll(info.at("loadMicroseconds").text));
    EXPECT_GE(load, std::chrono::milliseconds(99));
    EXPECT_LE(load, run);
}

TEST(BrimtoolInfo, TellsTheTimerAndTheAllocator) {
    const Json info = infoOf(infoRun({}));
    const double ticks = std::stod(info.at("timerTicksPerSecond").text);
    const auto own = static_cast<double>(g_TicksPerSecond);
    EXPECT_GT(ticks, own / 2);
    EXPECT_LT(ticks, own * 2);
    ASSERT_FALSE(info.at("allocator").items.empty());
    for (const std::string& line : info.at("allocator").texts()) {
        EXPECT_EQ(line.find("%%"), std::string::npos) << line;
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    }
}

TEST(BrimtoolInfo, PrintsALineForEachFigure) {
    ToolRun run = infoRun({{"LC_ALL", "C.UTF-8"}, {"QUAY_RPC_TIMEOUT", "45"}});
    run.arguments = {"info"};
    const std::string output = run.run().output;
    for (const char* const part : {"Version ", "\nClient code page       65001, UTF-8\n", "\nRPC time-out ",
                                   "  45 s\n", " ticks/s\n", "\nLoad time ", " ms\n", "\nAllocator\n  "}) {
        EXPECT_NE(output.find(part), std::string::npos) << part << " is not in\n" << output;
    }
}
