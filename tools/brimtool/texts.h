// Texts as the subcommands take them, from the command line or line by line from a file, and give them back,
// each on a line of its own.
#pragma once

#include "output_file.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace brimtool {

/// One text, valid while it is looked at.
struct Text {
    std::string_view bytes;  ///< without its line feed
    bool endsLine;           ///< a line feed is to follow what becomes of it
    const std::string& from; ///< the file's name; empty for an argument
    std::size_t number;      ///< of the argument or line, from 1

    /// "argument 2" or "standard input, line 3", for messages.
    std::string place() const;
};

/// Shows `look` each of `arguments`, or, when there are none, each line of the file `name` ("-" is standard
/// input), until it returns false.
void forEachText(const std::vector<std::string>& arguments, const std::string& name,
                 const std::function<bool(const Text&)>& look);

/// All of the file; throws IoError when it is longer than the library's 32-bit lengths allow for.
std::string readWhole(const std::string& name);

/// Standard output, written in large pieces.
class TextOutput {
public:
    /// Adds what became of a text that ends a line, or does not.
    void put(std::string_view bytes, bool endsLine);
    /// Writes what is left. Nothing may be put afterwards.
    void finish();

private:
    OutputFile m_file{"-"};
    std::string m_pending;
};

} // namespace brimtool
