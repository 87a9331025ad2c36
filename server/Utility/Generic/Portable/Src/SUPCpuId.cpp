// What the time-stamp counter of this processor can do.
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"

#include "DiagnosticOutput.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <cpuid.h>

namespace {

bool hasRdtscp() {
    constexpr unsigned int kExtendedFeatures = 0x80000001;
    constexpr unsigned int kRdtscpBit = 1U << 27U; // of EDX
    unsigned int eax = 0;
    unsigned int ebx = 0;
    unsigned int ecx = 0;
    unsigned int edx = 0;
    return __get_cpuid_count(kExtendedFeatures, 0, &eax, &ebx, &ecx, &edx) != 0 && (edx & kRdtscpBit) != 0;
}

} // namespace

signed char CpuId::s_logging = 0;

signed char CpuId::initLogging() {
    sup::String<wchar_t> value;
    const bool isOn =
        SystemUtility::Getenv(L"KROS_CPUID_LOGGING", value) && BaseStringUtil::BooleanFrom(value, false);
    return isOn ? 1 : -1;
}

bool CpuId::isRdtscpSupported() {
    const bool isSupported = hasRdtscp();
    if (s_logging == 0) {
        s_logging = initLogging();
    }
    if (s_logging > 0) {
        sup::DiagnosticLine().text("isRdtscpSupported() = ").text(isSupported ? "true\n" : "false\n");
    }
    return isSupported;
}
