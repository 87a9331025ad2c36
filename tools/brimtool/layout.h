// The subcommand layout: where a process with this environment finds its directories.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addLayout(CLI::App& app);

} // namespace brimtool
