// CpuId: the answer about RDTSCP and its line.
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include "child_process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <fstream>
#include <sstream>
#include <string>

using brimtest::FreshProcess;

namespace {

constexpr const char* kVariable = "KROS_CPUID_LOGGING";

// What the kernel says of the processor.
bool processorHas(const std::string& feature) {
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.rfind("flags", 0) == 0) {
            std::istringstream words(line);
            for (std::string word; words >> word;) {
                if (word == feature) {
                    return true;
                }
            }
            return false;
        }
    }
    return false;
}

std::string line() {
    return std::string("isRdtscpSupported() = ") + (processorHas("rdtscp") ? "true" : "false") + "\n";
}

struct Setting {
    const char* value; // of the variable; null: not set
    int state;
};
constexpr Setting kSettings[] = {
    {nullptr, -1}, {"true", 1}, {"TRUE", 1}, {" yes ", 1}, {"on", 1},     {"1", 1},
    {"+", 1},      {"1.0", 1},  {"ok", 1},   {"", -1},     {"false", -1}, {"0", -1},
    {"no", -1},    {"o", -1},   {"off", -1}, {"2", -1},    {"-", -1},     {"trueish", -1},
};

const FreshProcess kReadings("Readings", [] {
    std::printf("%d\n", CpuId::s_logging);
    const PerfTimeSnap first(true);
    const PerfTimeSnap second(true);
    std::printf("%d\n", CpuId::s_logging);
});

TEST(CpuIdLogging, FirstReadingOfTheProcessPrintsTheLineWhenAskedTo) {
    for (const Setting& setting : kSettings) {
        SCOPED_TRACE(setting.value == nullptr ? "not set" : setting.value);
        EXPECT_EQ(kReadings.run({{kVariable, setting.value}}).output,
                  setting.state > 0 ? "0\n" + line() + "1\n" : "0\n-1\n");
    }
}

const FreshProcess kNoReading("NoReading", [] { const PerfTimeSnap none(false); });

TEST(CpuIdLogging, LoadingTheLibraryAndAnEmptySnapPrintNothing) {
    const brimtest::ChildResult result = kNoReading.run({{kVariable, "true"}});
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.atLoad.find("isRdtscp"), std::string::npos) << result.atLoad;
}

const FreshProcess kPresetOn("PresetOn", [] {
    CpuId::s_logging = 1;
    const PerfTimeSnap snap(true);
});
const FreshProcess kPresetOff("PresetOff", [] {
    CpuId::s_logging = -1;
    const PerfTimeSnap snap(true);
});

TEST(CpuIdLogging, AStateThatIsThereAlreadyWins) {
    EXPECT_EQ(kPresetOn.run({{kVariable, "false"}}).output, line());
    EXPECT_EQ(kPresetOff.run({{kVariable, "true"}}).output, "");
}

const FreshProcess kWide("Wide", [] {
    brimtest::renewStandardOutput();
    std::wprintf(L"wide\n");
    const PerfTimeSnap snap(true);
    std::wprintf(L"wide again\n");
});

TEST(CpuIdLogging, LineAppearsOnAWideStreamToo) {
    EXPECT_EQ(kWide.run({{kVariable, "true"}}).output, "wide\n" + line() + "wide again\n");
}

TEST(CpuId, InitLoggingReadsTheVariableEachTime) {
    for (const Setting& setting : kSettings) {
        SCOPED_TRACE(setting.value == nullptr ? "not set" : setting.value);
        if (setting.value == nullptr) {
            ::unsetenv(kVariable);
        } else {
            ::setenv(kVariable, setting.value, 1);
        }
        EXPECT_EQ(CpuId::initLogging(), setting.state);
    }
    ::unsetenv(kVariable);
}

TEST(CpuId, AgreesWithTheKernelAboutRdtscp) { EXPECT_EQ(CpuId::isRdtscpSupported(), processorHas("rdtscp")); }

} // namespace
