// The subcommand codepages: the encodings that the other subcommands know.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addCodePages(CLI::App& app);

} // namespace brimtool
