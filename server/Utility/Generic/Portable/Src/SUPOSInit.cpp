// Start-up and shutdown: the one table of what happens when the library is loaded, read from top to bottom,
// and the initialiser of the process. Everything that the table does not name initialises itself on first
// use.
#include "Utility/Generic/Portable/SUPOS.h"

#include "DefaultEventSource.h"
#include "DiagnosticOutput.h"
#include "LoadTime.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPHeapOwner.h"

#include <algorithm>
#include <functional>
#include <set>
#include <unistd.h>

namespace {

struct LoadTimeStep {
    const char* name;
    void (*run)();
};

constexpr LoadTimeStep kLoadTimeSteps[] = {
    {"logger threshold", sup::loadtime::readLoggerThreshold},
    {"locale maps", sup::loadtime::buildLocaleMaps},
    {"thread-local storage", sup::loadtime::initializeThreadLocalStorage},
    {"performance timer", sup::loadtime::calibratePerfTimer},
    {"default event source", sup::loadtime::nameDefaultEventSource},
    {"processor count", sup::loadtime::countProcessors},
    {"random seed", sup::loadtime::seedRandomNumbers},
    {"allocation padding", sup::loadtime::computeAllocationPadding},
    // Last: the others convert texts, and their locale is not yet the host's.
    {"system code page", sup::loadtime::forgetSystemCodePage},
    {"home directory", sup::loadtime::forgetHomeDirectory},
};

// A step that fails leaves its defaults: whoever loads the library gets it.
__attribute__((constructor)) void runLoadTimeSteps() {
    for (const LoadTimeStep& step : kLoadTimeSteps) {
        try {
            step.run();
        } catch (...) {
            sup::DiagnosticLine().text("brimportable: start-up failed: ").text(step.name).text("\n");
        }
    }
}

constexpr const wchar_t* kDumpHeading = L"Dumping all the environment variables:";
constexpr const wchar_t* kCredential = L"VANTA_HXSECURITY_SYSUSER_CRED";
constexpr const wchar_t* kMaskedCredential = L"VANTA_HXSECURITY_SYSUSER_CRED=******";

using ShutdownCallback = void (*)();
using ShutdownCallbacks =
    std::set<ShutdownCallback, std::less<ShutdownCallback>, BrimStlAllocator<ShutdownCallback>>;

// One process-wide state, with no lock: its operations belong to the main thread. The callbacks come first,
// so that an initialiser which is deleted at the end of the process can still take its own back.
ShutdownCallbacks shutdownCallbacks;
constinit Heap<UtilityInitializer> singletonUtility_Initializer;
constinit int g_countUtilityInitializerObjects = 0;
constinit int g_initCountDown = 0;
constinit bool b_initialized = false;

wchar_t asciiUpper(wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; }

bool isCredential(const sup::String<wchar_t>& entry) {
    const sup::String<wchar_t> name(kCredential);
    // By ASCII as well: in some locales "i" is not the small "I".
    return BaseStringUtil::IsCaseInsensitiveMatch(entry.substr(0, name.length()), name) ||
           (entry.length() >= name.length() &&
            std::equal(name.begin(), name.end(), entry.begin(),
                       [](wchar_t a, wchar_t b) { return a == asciiUpper(b); }));
}

} // namespace

UtilityInitializer::UtilityInitializer() noexcept { ++g_countUtilityInitializerObjects; }

UtilityInitializer::~UtilityInitializer() { --g_countUtilityInitializerObjects; }

void UtilityInitializer::Initialize() {
    if (!IsInitialized()) {
        singletonUtility_Initializer.reset(new UtilityInitializer);
    }
    singletonUtility_Initializer->InitializeMapping();
    ++g_initCountDown;
}

void UtilityInitializer::Shutdown() {
    if (!IsInitialized() || --g_initCountDown > 0) {
        return;
    }
    for (const ShutdownCallback callback : shutdownCallbacks) {
        callback();
    }
    singletonUtility_Initializer.reset();
}

bool UtilityInitializer::IsInitialized() noexcept { return static_cast<bool>(singletonUtility_Initializer); }

void UtilityInitializer::SetMappingInitializer(UtilityInitializer* p) {
    singletonUtility_Initializer.reset(p);
}

void UtilityInitializer::RegisterShutdownCallback(void (*fn)()) { shutdownCallbacks.insert(fn); }

void UtilityInitializer::UnregisterShutdownCallback(void (*fn)()) { shutdownCallbacks.erase(fn); }

void UtilityInitializer::InitializeMapping() {
    if (!b_initialized) {
        b_initialized = true;
        RegisterEventSource(DefaultEventSource::m_sDefaultSolaceEventSource);
    }
}

bool UtilityInitializer::IsWithinEscalatingInitialization() noexcept {
    return g_countUtilityInitializerObjects > 1;
}

void UtilityInitializer::RegisterEventSource(const sup::String<char>& /*name*/) {}

sup::String<wchar_t> UtilityInitializer::DumpEnvVariablesToString() {
    const unsigned int codePage = SystemUtility::GetMultiByteCodePage();
    sup::String<wchar_t> dump(kDumpHeading);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const sup::String<wchar_t> text = BaseStringUtil::StringFrom(*entry, codePage);
        dump.append(L"\n").append(isCredential(text) ? kMaskedCredential : text.c_str());
    }
    return dump;
}
