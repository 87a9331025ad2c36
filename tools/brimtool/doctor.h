// The subcommand doctor: what is missing, unreadable or unsafe in the surroundings of the library.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addDoctor(CLI::App& app);

} // namespace brimtool
