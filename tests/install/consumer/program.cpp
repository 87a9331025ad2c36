// Strings, a conversion through a code page, and the locale file of the product home in HX_PRODUCT_HOME.
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/SUPTranscode.h"

#include <cstdio>
#include <cstring>

namespace {

int s_failures = 0;

void expect(bool condition, const char* what) {
    if (!condition) {
        std::printf("not so: %s\n", what);
        ++s_failures;
    }
}

} // namespace

int main() {
    BrimString text(L"ab");
    const BrimString copy = text;
    text.append(L"\u0394");
    expect(copy == BrimString(L"ab"), "a copy keeps its text");
    expect(text.find(L'x') == text.length(), "plain find returns the length");

    const sup::String<char> greek = BaseStringUtil::StringToStdString(text, 28597);
    expect(std::strcmp(greek.c_str(), "ab\xC4") == 0, "text converts to ISO-8859-7");
    expect(BaseStringUtil::StdStringToString(greek, 28597) == text, "and back");

    expect(GetQuayLocale2SystemLocaleMap().count("de-DE") == 1, "the installed locale file is read");
    std::printf("C++%ld, %zu locales\n", __cplusplus / 100 % 100, GetQuayLocale2SystemLocaleMap().size());
    return s_failures == 0 ? 0 : 1;
}
