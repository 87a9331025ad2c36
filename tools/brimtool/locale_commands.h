// The subcommand locale: what a locale configuration file holds.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addLocale(CLI::App& app);

} // namespace brimtool
