// The subcommand match: the texts that match a wildcard pattern.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addMatch(CLI::App& app);

} // namespace brimtool
