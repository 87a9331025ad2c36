// The built-in code pages, as the command line names and describes them.
#pragma once

#include <optional>
#include <span>
#include <string>

namespace brimtool {

struct BuiltInPage {
    int number;
    const char* name;
    const char* otherName; ///< another name that is understood; empty when there is none
    const char* description;
    bool isHouseNumber; ///< a number of this library's own
};

std::span<const BuiltInPage> builtInPages();

/// The code page of `text`: a number, a name of an encoding, "UTF8", or "ANSI" (as is 0) for the page of the
/// process's locale. Nothing for a text or number that the library has no transcoder for.
std::optional<int> findCodePage(const std::string& text);

/// The usual name of a built-in code page.
std::string nameOfCodePage(int codePage);

} // namespace brimtool
