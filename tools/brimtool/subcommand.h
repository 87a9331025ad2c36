// What main() knows of a subcommand, and what all subcommands share of the command line.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace brimtool {

enum ExitStatus {
    kDone = 0,
    kNotConverted = 1, ///< input that cannot be converted as it stands
    kNoMatch = 1,      ///< nothing found, which is an answer too
    kFindings = 1,     ///< something is not as it should be
    kFailure = 2       ///< wrong usage, or a file that cannot be read or written
};

/// One subcommand: its place in the command line, and what it does once the command line has been read.
/// Messages go to standard error; what it throws main() reports as kFailure.
struct Subcommand {
    CLI::App* app;
    std::function<ExitStatus()> run;
};

/// The arguments of main() but the program's name, ready for CLI::App::parse() (which wants the last one
/// first), with every argument kept whole: CLI11 takes one in brackets for a list.
std::vector<std::string> parsableArguments(int argc, const char* const* argv);

/// Add an option or positional argument of one value, or of any number. All that takes text is to be added
/// with these, which undo what parsableArguments() did. `value` must live as long as the application.
CLI::Option* addText(CLI::App& app, const std::string& name, std::string& value,
                     const std::string& description);
CLI::Option* addTexts(CLI::App& app, const std::string& name, std::vector<std::string>& values,
                      const std::string& description);

/// `message` of CLI11, without the marks that parsableArguments() has put into it.
std::string readableMessage(std::string message);

} // namespace brimtool
