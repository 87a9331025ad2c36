// Reads settings, one "name = value" a line, and prints them in their usual form: strings, searches, tokens
// and conversions.
//
//   read_settings < FILE
#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/SUPString.h"
#include "Utility/Generic/Portable/StringBuffer.h"

#include <cstdio>
#include <iostream>
#include <string>

namespace {

constexpr unsigned int kUtf8 = 65001;

// What a value looks like.
const wchar_t* kindOf(const BrimString& value) {
    if (BaseStringUtil::IsInteger(value)) {
        return L"number";
    }
    return value.find(L',') != value.length() ? L"list" : L"text"; // plain find gives length(), not npos
}

void appendItems(const BrimString& list, sup::StringBufferBaseTemplate<wchar_t>& out) {
    BrimStringVector items;
    BaseStringUtil::Tokenize(list, L",", items, false, false);
    for (const BrimString& item : items) {
        out.append(L" [").append(BaseStringUtil::TrimBoth(item)).append(L"]");
    }
}

bool printSetting(const BrimString& line) {
    const std::size_t equals = line.find(L'=', BrimString::kReturnNPosIfFail);
    if (equals == BrimString::npos) {
        return false;
    }
    const BrimString name = BaseStringUtil::ToLowerCase(BaseStringUtil::TrimBoth(line.substr(0, equals)));
    const BrimString value = BaseStringUtil::TrimBoth(line.substr(equals + 1));

    sup::StringBufferTemplate<511, wchar_t> out; // on the stack up to 511 characters
    out.append(name).append(L": ").append(kindOf(value));
    appendItems(value, out);
    std::puts(BaseStringUtil::StringToStdString(out.asString(), kUtf8).c_str());
    return true;
}

} // namespace

int main() {
    OSAbstraction::g_clientCodePage = kUtf8;
    std::string bytes;
    int number = 0;
    bool isGood = true;
    while (std::getline(std::cin, bytes)) {
        ++number;
        const BrimString line = BaseStringUtil::TrimBoth(BaseStringUtil::StringFrom(bytes.c_str(), kUtf8));
        if (!line.empty() && line.front() != L'#' && !printSetting(line)) {
            std::fprintf(stderr, "line %d: no \"=\"\n", number);
            isGood = false;
        }
    }
    return isGood ? 0 : 1;
}
