// The subcommand transcode: files in one encoding become a text in another.
#pragma once

#include "subcommand.h"

namespace brimtool {

Subcommand addTranscode(CLI::App& app);

} // namespace brimtool
