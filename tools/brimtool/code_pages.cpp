#include "code_pages.h"

#include "CodePageNames.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "Utility/Generic/Portable/transcodercache.h"

#include <charconv>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace brimtool {

namespace {

struct KnownPage {
    int codePage;
    const char* name;
};

constexpr KnownPage kPages[] = {
    {65001, "UTF-8"},        {1200, "UTF-16BE"},      {1201, "UTF-16LE"},     {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},   {28593, "ISO-8859-3"},   {28596, "ISO-8859-6"},  {28597, "ISO-8859-7"},
    {38598, "ISO-8859-8-I"}, {285915, "ISO-8859-15"}, {1252, "Windows-1252"},
};
static_assert(std::size(kPages) == sup::transcodeimpl::knTables, "one name for each built-in page");

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

std::optional<int> findCodePage(const std::string& text) {
    const int codePage = meaningOf(text);
    if (sup::transcodeimpl::GetTranscoderCache()->Find(codePage) == nullptr) {
        return std::nullopt;
    }
    return codePage;
}

std::string nameOfCodePage(int codePage) {
    for (const KnownPage& page : kPages) {
        if (page.codePage == codePage) {
            return page.name;
        }
    }
    return "code page " + std::to_string(codePage);
}

std::string listOfCodePages() {
    std::string list;
    for (const KnownPage& page : kPages) {
        char line[64];
        std::snprintf(line, sizeof(line), "  %6d  %s\n", page.codePage, page.name);
        list += line;
    }
    return list;
}

} // namespace brimtool
