#include "display_text.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"

#include <algorithm>
#include <cstddef>

namespace brimtool {

namespace {

constexpr unsigned int kUtf8 = 65001;

std::string narrowText(const BrimString& text, unsigned int codePage) {
    const sup::String<char> narrow = BaseStringUtil::StringToStdString(text, codePage);
    return std::string(narrow.begin(), narrow.length());
}

BrimString wideFrom(std::string_view text, unsigned int codePage) {
    BrimString wide;
    BaseStringUtil::StdStringToString(text.data(), static_cast<unsigned int>(text.size()), wide, codePage);
    return wide;
}

// The characters of a UTF-8 text.
std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

} // namespace

std::string utf8Text(const BrimString& text) { return narrowText(text, kUtf8); }

std::string utf8Text(const sup::String<char>& text) {
    return utf8Text(BaseStringUtil::StdStringToString(text, SystemUtility::GetMultiByteCodePage()));
}

std::string processText(const BrimString& text) {
    return narrowText(text, SystemUtility::GetMultiByteCodePage());
}

BrimString wideText(std::string_view utf8) { return wideFrom(utf8, kUtf8); }

BrimString wideArgument(const std::string& argument) {
    return wideFrom(argument, SystemUtility::GetMultiByteCodePage());
}

std::string terminalText(std::string_view utf8) { return processText(wideText(utf8)); }

std::string tableText(const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> widths(rows.empty() ? 0 : rows.front().size());
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], widthOf(row[i]));
        }
    }
    std::string text;
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            text += row[i];
            if (i + 1 != row.size()) {
                text.append(widths[i] - widthOf(row[i]) + 2, ' ');
            }
        }
        text += '\n';
    }
    return text;
}

std::string quotedText(std::string_view text) { return '"' + std::string(text) + '"'; }

std::string countText(std::size_t count, const std::string& word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

} // namespace brimtool
