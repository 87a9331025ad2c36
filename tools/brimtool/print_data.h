// Data of a subcommand that has all of it at once.
#pragma once

#include <string_view>

namespace brimtool {

/// Writes it to standard output. Throws IoError.
void printData(std::string_view bytes);

} // namespace brimtool
