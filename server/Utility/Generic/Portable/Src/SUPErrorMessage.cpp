#include "SUPErrorMessage.h"

#include <atomic>
#include <cstdio>

namespace {

// The texts of a failure: printf formats for the number alone, with one text, with two.
struct MessageFormats {
    int code;
    const char* noArgument;
    const char* oneArgument;
    const char* twoArguments;
};

// The wording is fixed to the byte, the uneven two-argument forms included: logs are searched for it.
constexpr MessageFormats kMessages[] = {
    {UtilityPortableErrorMessageManager::E_Portable_EncodingUnsupported,
     "Encoding not supported error number %d\n", "Encoding not supported error number %d, %s\n",
     "Encoding not supported error number  %d, %s, %s\n"},
    {UtilityPortableErrorMessageManager::E_Portable_DefaultLocaleUnsupported,
     "Unable to restore Default Locale error number %d\n",
     "Unable to restore Default Locale error number %d, %s\n",
     "Unable to restore Default Locale %d, %s, %s\n"},
    {UtilityPortableErrorMessageManager::E_Portable_LocaleUnavailable,
     "Locale not installed error number %d\n", "Locale not installed error number %d, %s\n",
     "Locale not installed error number %d, %s, %s\n"},
    {UtilityPortableErrorMessageManager::E_Portable_XmlFileNotFound, "Xml File Not Found error number %d\n",
     "Xml File Not Found error number %d, %s\n", "Xml File Not Found error number %d, %s, %s\n"},
    {UtilityPortableErrorMessageManager::E_Portable_XmlParserFailure, "Xml File Parse error number %d\n",
     "Xml File Parse error number %d, %s\n", "Xml File Parse error number %d, %s, %s\n"},
    {UtilityPortableErrorMessageManager::E_Portable_GetHostByName, "GetHostByName() failed %d\n",
     "GetHostByName() failed %d, %s\n", "GetHostByName() %d, %s, %s\n"},
};
constexpr MessageFormats kOtherMessage = {0, "Transcoding error number %d\n",
                                          "Transcoding error number %d, %s\n",
                                          "Transcoding error number %d, %s, %s\n"};

const MessageFormats& formatsOf(int code) {
    for (const MessageFormats& formats : kMessages) {
        if (formats.code == code) {
            return formats;
        }
    }
    return kOtherMessage;
}

} // namespace

SingleThreadedUtilityPortableErrorMessageManager::~SingleThreadedUtilityPortableErrorMessageManager() =
    default;

void SingleThreadedUtilityPortableErrorMessageManager::ThrowErrorMessage(int code, const char* arg1,
                                                                         const char* arg2) {
    const MessageFormats& formats = formatsOf(code);
    if (arg1 == nullptr) {
        std::printf(formats.noArgument, code);
    } else if (arg2 == nullptr) {
        std::printf(formats.oneArgument, code, arg1);
    } else {
        std::printf(formats.twoArguments, code, arg1, arg2);
    }
    std::fflush(stdout);
}

UtilityPortableErrorMessageManager* SingleThreadedUtilityPortableErrorMessageManager::Make() {
    static SingleThreadedUtilityPortableErrorMessageManager manager;
    return &manager;
}

UtilityPortableErrorMessageManager*
UtilityPortableErrorMessageManager::Get(UtilityPortableErrorMessageManager* mgr, bool replace) {
    static UtilityPortableErrorMessageManager* const defaultManager =
        SingleThreadedUtilityPortableErrorMessageManager::Make();
    // Atomic: documents that are parsed at once each install the default one before they report.
    static std::atomic<UtilityPortableErrorMessageManager*> g_utilityPortableErrorMessageManager{
        defaultManager};
    if (replace) {
        g_utilityPortableErrorMessageManager.store(mgr != nullptr ? mgr : defaultManager,
                                                   std::memory_order_release);
    }
    return g_utilityPortableErrorMessageManager.load(std::memory_order_acquire);
}

bool UtilityPortableErrorMessageManager::Register(UtilityPortableErrorMessageManager* mgr) {
    Get(mgr, true);
    return true;
}
