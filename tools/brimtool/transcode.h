// The subcommand transcode: files in one code page become a text in another.
#pragma once

#include <string>
#include <vector>

namespace brimtool {

enum ExitStatus {
    kDone = 0,
    kNotConverted = 1, ///< malformed input, or a character that the target page lacks
    kFailure = 2       ///< wrong usage, or a file that cannot be read or written
};

struct TranscodeOptions {
    std::string from;
    std::string to;
    std::string output = "-";
    std::vector<std::string> inputs; ///< none means standard input
    bool lossy = false;
    bool quiet = false;
    bool stats = false;
};

/// Runs the subcommand. Messages go to standard error; throws IoError.
ExitStatus transcode(const TranscodeOptions& options);

} // namespace brimtool
