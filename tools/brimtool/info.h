// The subcommand info: the library in this process, in figures.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addInfo(CLI::App& app);

} // namespace brimtool
