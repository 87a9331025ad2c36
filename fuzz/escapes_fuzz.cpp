// URI, Base64, XML and quote escapes next to their models, and there and back.
#include "fuzz_input.h"

#include "escapes_model.h"

#include <gtest/gtest.h>

#include <algorithm>

using brimtest::brim;
using brimtest::Bytes;
using brimtest::plain;

namespace {

void escapeUri(const std::wstring& text) {
    const std::wstring escaped = plain(BaseStringUtil::UriEncode(brim(text)));
    ASSERT_EQ(escaped, brimtest::modelUriEncode(text));
    for (const bool requireMarker : {false, true}) {
        for (const std::wstring& given : {text, escaped, L"URI-ENCODED<" + escaped + L">"}) {
            ASSERT_EQ(plain(BaseStringUtil::UriDecode(brim(given), requireMarker)),
                      brimtest::modelUriDecode(given, requireMarker));
        }
    }
    if (std::all_of(text.begin(), text.end(), [](wchar_t c) { return c >= 0x20 && c < 0x80; })) {
        ASSERT_EQ(plain(BaseStringUtil::UriDecode(brim(escaped), false)), text);
    }
}

void encodeBase64(const std::string& data) {
    const Bytes bytes(data.begin(), data.end());
    const std::wstring encoded = plain(BaseStringUtil::EncodeBase64(bytes, false));
    ASSERT_EQ(encoded, brimtest::modelBase64(bytes, false));
    ASSERT_EQ(plain(BaseStringUtil::EncodeBase64(bytes, true)), brimtest::modelBase64(bytes, true));
    Bytes narrow(encoded.begin(), encoded.end());
    Bytes back;
    BaseStringUtil::Base64Decode(narrow.data(), static_cast<int>(narrow.size()), back);
    ASSERT_EQ(back, bytes);
    Bytes given = bytes;
    Bytes decoded(3, 0x55);
    BaseStringUtil::Base64Decode(given.data(), static_cast<int>(given.size()), decoded);
    ASSERT_EQ(decoded, brimtest::modelBase64Decode(bytes));
}

void encodeTextAsBase64(const std::wstring& text) {
    BrimString out(L"before");
    const int length = BaseStringUtil::EncodeBase64(brim(text), out);
    if (text.empty() || text[0] == 0) {
        ASSERT_EQ(length, -1);
        ASSERT_EQ(plain(out), L"before");
        return;
    }
    ASSERT_EQ(static_cast<std::size_t>(length), out.length());
    ASSERT_EQ(out.length() % 4, 0U);
}

void quote(const std::wstring& text) {
    BrimString quoted = brim(text);
    BaseStringUtil::QuoteAround(quoted, L"'");
    if (text.find(L'\0') == std::wstring::npos) {
        BrimString back;
        std::size_t end = 0;
        ASSERT_TRUE(BaseStringUtil::GetQuotedString(quoted, 1, back, end));
        ASSERT_EQ(plain(back), text);
        ASSERT_EQ(end, quoted.length());
    }
}

} // namespace

void fuzzOne(FuzzInput& input) {
    switch (input.below(3)) {
    case 0:
        encodeBase64(input.rest());
        break;
    case 1:
        escapeUri(input.text(L"%u0123456789abcdefABCDEF+>zC3A9E2\u00E9URI-ENCODED<", 255));
        break;
    default: {
        const std::wstring text = input.restAsText();
        escapeUri(text);
        encodeTextAsBase64(text);
        quote(text);
        ASSERT_EQ(plain(BaseStringUtil::EscapeXMLChars(brim(text))), brimtest::modelEscapeXml(text));
        break;
    }
    }
}
