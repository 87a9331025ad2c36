// Code pages as the command line names them.
#pragma once

#include <optional>
#include <string>

namespace brimtool {

/// The code page of `text`: a number, a name of an encoding, "UTF8", or "ANSI" (as is 0) for the page of the
/// process's locale. Nothing for a text or number that the library has no transcoder for.
std::optional<int> findCodePage(const std::string& text);

/// The usual name of a built-in code page.
std::string nameOfCodePage(int codePage);

/// A table of the built-in pages, a line each, for the help text.
std::string listOfCodePages();

} // namespace brimtool
