#include "encoding.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "iconv_coders.h"
#include "page_coders.h"
#include "page_table.h"

#include <cstdio>
#include <string_view>

namespace brimtool {

namespace {

constexpr std::string_view kIconvPrefix = "iconv:";

bool namesIconv(const std::string& text) { return text.compare(0, kIconvPrefix.size(), kIconvPrefix) == 0; }

} // namespace

Encoding::Encoding(int codePage) : m_codePage(codePage), m_name(nameOfCodePage(codePage)) {}

std::optional<Encoding> Encoding::find(const std::string& text) {
    if (namesIconv(text)) {
        const std::string name = text.substr(kIconvPrefix.size());
        return isKnownToIconv(name) ? std::optional(Encoding(name)) : std::nullopt;
    }
    const std::optional<int> codePage = findCodePage(text);
    return codePage ? std::optional(Encoding(*codePage)) : std::nullopt;
}

std::string Encoding::explainUnknown(const std::string& text) {
    if (namesIconv(text)) {
        return "iconv knows no encoding \"" + text.substr(kIconvPrefix.size()) +
               "\" (iconv --list names them)";
    }
    return "there is no code page \"" + text + "\" (brimtool codepages lists them)";
}

Encoding Encoding::ofProcess() {
    const unsigned int codePage = SystemUtility::GetMultiByteCodePage();
    return Encoding(static_cast<int>(codePage == 0 ? SystemUtility::GetACP() : codePage));
}

std::unique_ptr<Decoder> Encoding::makeDecoder(bool tellsBytes) const {
    return m_codePage ? makePageDecoder(*m_codePage) : makeIconvDecoder(m_name, tellsBytes);
}

std::unique_ptr<Encoder> Encoding::makeEncoder() const {
    return m_codePage ? makePageEncoder(*m_codePage) : makeIconvEncoder(m_name);
}

std::string Encoding::describeMalformed(const char* sequence, std::size_t length, bool cut) const {
    std::string text = "malformed " + m_name + " (";
    for (std::size_t i = 0; i < length; ++i) {
        char hex[4];
        std::snprintf(hex, sizeof(hex), i == 0 ? "%02X" : " %02X", static_cast<unsigned char>(sequence[i]));
        text += hex;
    }
    return text + (cut ? "), cut off by the end of the text" : ")");
}

std::string Encoding::describeLacking(const wchar_t* character, std::size_t units) const {
    return codePointText(character, units) + " does not exist in " + m_name;
}

std::string codePointText(const wchar_t* character, std::size_t units) {
    auto value = static_cast<unsigned int>(character[0]);
    if (units == 2) {
        value = 0x10000U + ((value & 0x3FFU) << 10) + (static_cast<unsigned int>(character[1]) & 0x3FFU);
    }
    char text[16];
    std::snprintf(text, sizeof(text), "U+%04X", value);
    return text;
}

} // namespace brimtool
