// The subcommand escape: texts with their special characters escaped.
#pragma once

#include "subcommand.h"

#include <string>
#include <vector>

namespace brimtool {

/// What escape and unescape share of the command line.
struct EscapeOptions {
    bool uri = false; // one of the three is set
    bool xml = false;
    bool base64 = false;
    std::vector<std::string> texts; // none means the input
    std::string input = "-";
};

void addEscapeOptions(CLI::App& command, EscapeOptions& options);

Subcommand addEscape(CLI::App& app);

} // namespace brimtool
