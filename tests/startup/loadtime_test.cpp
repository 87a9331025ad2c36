// What is ready when the library is loaded, before main().
#include "Utility/Generic/Portable/SUPOS.h"

#include "DefaultEventSource.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include "child_process.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>

using brimtest::FreshProcess;

namespace {

const FreshProcess kBeforeMain("before main", [] {
    std::printf("timer %d, ticks %d\n", PerfTimeInterval::s_inited, g_TicksPerMilli > 0);
    std::printf("source %s\n", DefaultEventSource::m_sDefaultSolaceEventSource.c_str());
    ::setenv("KROS_NUMBER_OF_PROCESSORS", "9", 1);
    std::printf("processors %d\n", SystemUtility::GetNumberOfProcessors());
    std::printf("initialised %d, associated %d\n", UtilityInitializer::IsInitialized(),
                SUPEnvInit::getComponentNamesSet());
});

TEST(LoadTime, LeavesTheLibraryReady) {
    const brimtest::ChildResult result = kBeforeMain.run({{"KROS_NUMBER_OF_PROCESSORS", "3"}});
    EXPECT_EQ(result.exitCode(), 0);
    EXPECT_EQ(result.output, "timer 1, ticks 1\nsource Vanta HX Utility\nprocessors 3\n"
                             "initialised 0, associated 0\n");
}

TEST(LoadTime, StepsRunInTheOrderOfTheirTable) {
    // The threshold is read first, so the reads behind it are traced: the home for the locale file, then the
    // processors.
    const brimtest::ChildResult result = kBeforeMain.run(
        {{"HXS_STARTUP_LOG_TYPE", "4"}, {"HX_PRODUCT_HOME", "/nowhere"}, {"KROS_NUMBER_OF_PROCESSORS", "3"}});
    const std::size_t threshold = result.atLoad.find("HXS_STARTUP_LOG_TYPE=");
    const std::size_t home = result.atLoad.find("Environment variable HX_PRODUCT_HOME=/nowhere\n");
    const std::size_t processors = result.atLoad.find("Environment variable KROS_NUMBER_OF_PROCESSORS=3\n");
    EXPECT_EQ(threshold, std::string::npos);
    ASSERT_NE(home, std::string::npos) << result.atLoad;
    ASSERT_NE(processors, std::string::npos) << result.atLoad;
    EXPECT_LT(home, processors);
}

const FreshProcess kChoosesItsLocale("chooses its locale", [] {
    std::setlocale(LC_ALL, "C.UTF-8");
    std::printf("%d ", SystemUtility::GetCodePageFromString(L"ANSI")); // does not look for it
    std::printf("%u\n", SystemUtility::GetACP());
});

TEST(LoadTime, LeavesTheCodePageToTheLocaleThatTheProcessChooses) {
    EXPECT_EQ(kChoosesItsLocale.run().output, "0 65001\n");
}

} // namespace
