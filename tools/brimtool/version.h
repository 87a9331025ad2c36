// The version of the library in use.
#pragma once

#include <string>

namespace brimtool {

/// "brimportable 1.2.3 2024-05-06": the library's own words.
std::string libraryVersion();

} // namespace brimtool
