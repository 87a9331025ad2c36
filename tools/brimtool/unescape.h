// The subcommand unescape: what the escapes in texts stand for.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addUnescape(CLI::App& app);

} // namespace brimtool
