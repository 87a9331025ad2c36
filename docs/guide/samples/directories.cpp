#include "Utility/Generic/Portable/SUPOS.h"

#include <cassert>

int main() {
    // Usually set by whoever starts the process. Before the first query: answers are cached.
    SystemUtility::Putenv(L"HX_PRODUCT_HOME", L"/opt/product");
    SystemUtility::Putenv(L"DOMAIN_HOME", L"/srv/domain/");
    SystemUtility::Putenv(L"COMPONENT_NAME", L"kros7");
    SystemUtility::Putenv(L"VANTA_HX_TEMPDIR", L"/var/tmp//kros7");

    BrimString path;
    assert(SystemUtility::GetServerLocaleDirectory(path));
    assert(path == L"/opt/product/hxfoundation/server/locale");

    assert(SystemUtility::GetLogDirectory(path));
    assert(path == L"/srv/domain/servers/kros7/logs");

    assert(SystemUtility::GetTempDirectory(path));
    assert(path == L"/var/tmp/kros7");

    // Nothing says where the instance is: false, and a place that works all the same.
    SystemUtility::Putenv(L"TMP", L"/tmp");
    assert(!SystemUtility::GetVantaInstanceDirectory(path));
    assert(path == L"/tmp/vanta/instance");

    SystemUtility::GetServerLogFileName(path);
    assert(path == L"kros7-diagnostic.log");
}
