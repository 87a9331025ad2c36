#include "page_table.h"

#include "CodePageNames.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace brimtool {

namespace {

constexpr BuiltInPage kPages[] = {
    {65001, "UTF-8", "CP65001", "Unicode, 1 to 4 bytes a character", false},
    {1200, "UTF-16BE", "", "Unicode, big-endian (little-endian in the usual Windows list)", false},
    {1201, "UTF-16LE", "", "Unicode, little-endian (big-endian in the usual Windows list)", false},
    {28591, "ISO-8859-1", "Latin-1", "Western European", false},
    {28592, "ISO-8859-2", "Latin-2", "Central European", false},
    {28593, "ISO-8859-3", "Latin-3", "South European, Esperanto", false},
    {28596, "ISO-8859-6", "Arabic", "Arabic", false},
    {28597, "ISO-8859-7", "Greek", "Greek", false},
    {38598, "ISO-8859-8-I", "Hebrew", "Hebrew in logical order", true},
    {285915, "ISO-8859-15", "Latin-9", "Western European with the euro sign", true},
    {1252, "Windows-1252", "CP1252", "Western European of Windows", false},
};
static_assert(std::size(kPages) == sup::transcodeimpl::knTables, "a row for each built-in page");

// The page that `text` means, whether there is a transcoder for it or not; -1 for none.
int meaningOf(const std::string& text) {
    const char* const end = text.data() + text.size();
    int number = -1;
    if (const auto [stop, error] = std::from_chars(text.data(), end, number); stop == end) {
        return error != std::errc() ? -1 : number == 0 ? static_cast<int>(SystemUtility::GetACP()) : number;
    }
    SystemUtility::GetACP(); // "ANSI" is what this has found
    const std::wstring wide(text.begin(), text.end());
    const int special = SystemUtility::GetCodePageFromString(wide.c_str());
    return special != -1 ? special : sup::codePageOfName(text);
}

} // namespace

std::span<const BuiltInPage> builtInPages() { return kPages; }

std::optional<int> findCodePage(const std::string& text) {
    const int codePage = meaningOf(text);
    if (sup::transcodeimpl::GetTranscoderCache()->Find(codePage) == nullptr) {
        return std::nullopt;
    }
    return codePage;
}

std::string nameOfCodePage(int codePage) {
    const auto* const page = std::find_if(std::begin(kPages), std::end(kPages),
                                          [codePage](const auto& row) { return row.number == codePage; });
    return page == std::end(kPages) ? "code page " + std::to_string(codePage) : page->name;
}

} // namespace brimtool
