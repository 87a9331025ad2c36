// Names, addresses and ports taken apart, next to plain statements of the rules.
#include "fuzz_input.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "wide_texts.h"

#include <gtest/gtest.h>

#include <cwchar>

using brimtest::brim;
using brimtest::plain;

namespace {

constexpr std::size_t kNone = std::wstring::npos;

struct HostAndPort {
    bool isSplit = false;
    std::wstring host = L"h";
    std::wstring port = L"p";
};

HostAndPort modelHostAndPort(const std::wstring& text) {
    const std::size_t colon = text.rfind(L':');
    if (colon == kNone || colon == 0) {
        return {};
    }
    std::wstring host = text.substr(0, colon);
    if (host.front() == L'[' && host.back() == L']' && host.find(L':', 1) != kNone) {
        host = host.substr(1, host.size() - 2);
    }
    return {true, host, text.substr(colon + 1)};
}

bool modelIsIPv4Address(const std::wstring& text) {
    std::size_t parts = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t dot = std::min(text.find(L'.', at), text.size());
        const std::wstring part = text.substr(at, dot - at);
        at = dot + 1;
        if (part.empty()) {
            continue;
        }
        wchar_t* end = nullptr;
        const long value = std::wcstol(part.c_str(), &end, 10);
        if (*end != L'\0' || value < 0 || value > 255) {
            return false;
        }
        ++parts;
    }
    return parts == 4;
}

} // namespace

void fuzzOne(FuzzInput& input) {
    const std::wstring text = input.flip() ? input.restAsText() : input.text(L"[:].0125h%- +", 255);
    const HostAndPort expected = modelHostAndPort(text);
    BrimString host(L"h");
    BrimString port(L"p");
    ASSERT_EQ(SystemUtility::ExtractHostAndPort(brim(text), host, port), expected.isSplit);
    ASSERT_EQ(plain(host), expected.host);
    ASSERT_EQ(plain(port), expected.port);

    const bool isAddress = modelIsIPv4Address(text);
    ASSERT_EQ(SystemUtility::IsIPv4Address(brim(text)), isAddress);
    ASSERT_EQ(SystemUtility::IsFullyQualifiedDomainName(brim(text)), !isAddress && text.find(L'.') != kNone);
    ASSERT_EQ(plain(SystemUtility::GetHostNameFromFQDN(brim(text))), text.substr(0, text.find(L'.')));
}
