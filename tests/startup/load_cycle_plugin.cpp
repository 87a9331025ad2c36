// A plug-in that uses much of the library, on the thread that asks.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPPerfTimeInterval.h"
#include "Utility/Generic/Portable/SUPThreadLocalStorage.h"
#include "Utility/Generic/Portable/StringBuffer.h"
#include "Utility/Generic/Portable/UniversalLoggerBase.h"

#include <cstdlib>

namespace {

class PluginInitializer : public UtilityInitializer {};

void nothing() {}
void deleteText(void* text) { delete static_cast<sup::String<wchar_t>*>(text); }

} // namespace

extern "C" __attribute__((visibility("default"))) bool useTheLibrary() {
    sup::String<wchar_t> text;
    SystemUtility::GetComponentDirectory(text);
    SystemUtility::GetErrorMessageLang(text);
    text = BaseStringUtil::ToLowerCase(L"LOWER").append(UtilityInitializer::DumpEnvVariablesToString());
    sup::BStringBuffer::GetBuffer().GetNextBuffer(5000);
    PerfTimeSnap snap(false);
    snap.Set();
    sup::UniversalLoggerBase::getThreadLogger()->logString(sup::LoggingEnums::kLogServer,
                                                           sup::LoggingEnums::MESSAGE_TYPE_TRACE, 1, nullptr,
                                                           0, RefStringTemplate<wchar_t>(L"not printed"));
    for (const unsigned int codePage : {65001U, 1252U, 28597U}) {
        SystemUtility::MultiByteToWideChar("text", nullptr, 0, codePage);
    }
    ThreadLocalStorageManager& storage = *ThreadLocalStorageManager::Make();
    const int key = storage.CreateTls(new sup::String<wchar_t>(text), &deleteText);
    return storage.GetTlsValue(key) != nullptr;
}

/// Leaves an initialiser and a callback behind.
extern "C" __attribute__((visibility("default"))) void initializeTheLibrary() {
    UtilityInitializer::SetMappingInitializer(new PluginInitializer);
    UtilityInitializer::RegisterShutdownCallback(&nothing);
    UtilityInitializer::Initialize();
}

extern "C" __attribute__((visibility("default"))) void shutTheLibraryDown() {
    UtilityInitializer::Shutdown();
}
