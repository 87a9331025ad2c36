#include "Utility/Generic/Portable/SUPDynamicLoader.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPExceptionSupport.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/StringBuffer.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <dlfcn.h>
#include <iterator>

namespace {

using String = sup::String<wchar_t>;

constexpr const wchar_t* kThisFile = L"server/Utility/Generic/Portable/Src/SUPDynamicLoader.cpp";
constexpr int kFailureLine = 37;

constexpr std::size_t kFileNameBytes = 256;
constexpr unsigned int kErrorTextLength = 1024;

void* fail(const String& name, DynamicLoader::OnError onError) {
    if (onError == DynamicLoader::kThrowException) {
        constexpr const wchar_t* kFormat = L"%ls. %ls";
        wchar_t error[kErrorTextLength];
        DynamicLoader::lastError(error, kErrorTextLength);
        sup::StringBufferTemplate<511, wchar_t> message;
        message.appendFormatted(name.length() + std::wcslen(error) + std::wcslen(kFormat), kFormat,
                                name.c_str(), error);
        BrimAssert::handleOSError(kThisFile, kFailureLine, message.c_str());
    }
    return nullptr;
}

void* findIn(void* library, const char* symbol, DynamicLoader::OnError onError) {
    void* const address = ::dlsym(library, symbol);
    return address != nullptr
               ? address
               : fail(BaseStringUtil::StringFrom(symbol, SystemUtility::GetMultiByteCodePage()), onError);
}

} // namespace

sup::String<wchar_t> DynamicLoader::makeLibName(const String& baseName, bool add64, const String& /*ignored*/,
                                                bool lowerCase) {
    String name(L"lib");
    name.append(lowerCase ? BaseStringUtil::ToLowerCase(baseName) : baseName);
    return name.append(add64 ? L"64" : L"").append(L".so");
}

void* DynamicLoader::loadLib(const String& fileName, bool /*ignored*/, bool global, OnError onError) {
    char narrow[kFileNameBytes] = {};
    const std::size_t bytes = std::wcstombs(narrow, fileName.c_str(), sizeof(narrow) - 1);
    // An empty name would stand for the program itself.
    void* const library = bytes == 0 || bytes == static_cast<std::size_t>(-1)
                              ? nullptr
                              : ::dlopen(narrow, RTLD_NOW | (global ? RTLD_GLOBAL : 0));
    return library != nullptr ? library : fail(fileName, onError);
}

void* DynamicLoader::loadSymbol(void* library, const char* symbol, OnError onError) {
    return library == nullptr ? nullptr : findIn(library, symbol, onError);
}

void* DynamicLoader::findSymbol(const char* symbol, OnError onError) {
    return findIn(RTLD_DEFAULT, symbol, onError);
}

bool DynamicLoader::unloadLib(void* library) { return library == nullptr || ::dlclose(library) == 0; }

unsigned int DynamicLoader::lastError(wchar_t* buffer, unsigned int length) {
    const String text = BaseStringUtil::StringFrom(::dlerror(), SystemUtility::GetMultiByteCodePage());
    if (length == 0) {
        return 0;
    }
    const std::size_t kept = std::min<std::size_t>(text.length(), length - 1);
    std::copy_n(text.begin(), kept, buffer);
    buffer[kept] = L'\0';
    return static_cast<unsigned int>(kept) + 1;
}
