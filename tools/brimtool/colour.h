// Colour for the words that a reader looks for first.
#pragma once

#include <string>
#include <string_view>

namespace brimtool {

/// The parameters of ECMA-48's "select graphic rendition".
enum class Colour { kRed = 31, kYellow = 33 };

/// `word` in colour where the data goes to a terminal that shows colours; as it is anywhere else, when TERM
/// is unset or "dumb", and when NO_COLOR is set to anything (https://no-color.org).
std::string coloured(std::string_view word, Colour colour);

} // namespace brimtool
