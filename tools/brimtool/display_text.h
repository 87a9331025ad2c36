// Texts of the library on their way out. Inside the tool they are UTF-8, which is what JSON wants; a terminal
// gets them in the encoding of the locale.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

#include <string>
#include <string_view>
#include <vector>

namespace brimtool {

/// In UTF-8; half a surrogate pair becomes a replacement character.
std::string utf8Text(const BrimString& text);
std::string utf8Text(const sup::String<char>& text); // of the process's code page
/// In the process's code page, as the library hands a path to the system.
std::string processText(const BrimString& text);

BrimString wideText(std::string_view utf8);
/// A text of the command line.
BrimString wideArgument(const std::string& argument);

/// `utf8` in the encoding of the locale, with replacement characters for what that lacks.
std::string terminalText(std::string_view utf8);

/// Rows of cells as columns, two blanks between them; all rows have as many cells as the first.
std::string tableText(const std::vector<std::vector<std::string>>& rows);

/// The text between quotation marks.
std::string quotedText(std::string_view text);

/// "1 word", or "2 words".
std::string countText(std::size_t count, const std::string& word);

} // namespace brimtool
