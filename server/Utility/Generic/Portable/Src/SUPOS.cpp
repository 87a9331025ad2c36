// The environment and the directory layout.
#include "Utility/Generic/Portable/SUPOS.h"

#include "ServerLocaleDirectory.h"
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <iterator>

namespace {

using String = sup::String<wchar_t>;

constexpr const wchar_t* kDefaultHome = L"/vanta/home";

// A value that does not change once it was found. Two threads that race find the same.
struct CachedPath {
    wchar_t text[2048];
    bool isSet = false;

    void set(const String& value) {
        const std::size_t n = std::min(value.length(), std::size(text) - 1);
        std::copy_n(value.begin(), n, text);
        text[n] = L'\0';
        isSet = true;
    }
};

CachedPath g_sHXHomeDir;

} // namespace

void CleanupPath(sup::String<wchar_t>& path) {
    path = BaseStringUtil::ReplacePatternInString(path, L"//", L"/");
    if (!path.empty() && path.back() == L'/') {
        path.pop_back();
    }
}

bool SystemUtility::Getenv(const String& name, String& value) {
    const unsigned int codePage = GetMultiByteCodePage();
    sup::String<char> narrowName;
    const char* const found = BaseStringUtil::TryStringToStdString(name, narrowName, codePage)
                                  ? std::getenv(narrowName.c_str())
                                  : nullptr;
    value = BaseStringUtil::StringFrom(found, codePage);
    return found != nullptr;
}

bool SystemUtility::GetVantaHXHomeDirectory(String& path) {
    if (g_sHXHomeDir.isSet) {
        path = g_sHXHomeDir.text;
        return true;
    }
    if (!Getenv(L"HX_PRODUCT_HOME", path) && !Getenv(L"VANTA_HX_HOME", path)) {
        if (!Getenv(L"VANTA_HOME", path)) {
            path = kDefaultHome;
            return false;
        }
        String bin(path);
        bin.append(L"/hx/hxfoundation/server/bin");
        if (!IsValidDirectory(bin)) {
            return false;
        }
        path.append(L"/hx");
    }
    CleanupPath(path);
    g_sHXHomeDir.set(path);
    return true;
}

bool SystemUtility::GetServerLocaleDirectory(String& path) {
    GetVantaHXHomeDirectory(path);
    path.append(L"/hxfoundation/server/locale");
    CleanupPath(path);
    return !path.empty();
}

sup::String<wchar_t> sup::serverLocaleDirectory() {
    String<wchar_t> path;
    SystemUtility::GetServerLocaleDirectory(path);
    return path;
}
