// The subcommand env: the environment as the library shows it, its credential masked.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addEnv(CLI::App& app);

} // namespace brimtool
