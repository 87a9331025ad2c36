#include "subcommand.h"

#include <CLI/CLI.hpp>

namespace brimtool {

namespace {

// Before an argument, it hides the bracket that would make a list of it.
constexpr char kWhole = '\x1F';

std::string withoutMark(std::string text) {
    if (!text.empty() && text.front() == kWhole) {
        text.erase(0, 1);
    }
    return text;
}

} // namespace

std::vector<std::string> parsableArguments(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    for (int i = argc - 1; i > 0; --i) {
        const char first = argv[i][0];
        arguments.emplace_back(first == '[' || first == kWhole ? kWhole + std::string(argv[i]) : argv[i]);
    }
    return arguments;
}

CLI::Option* addText(CLI::App& app, const std::string& name, std::string& value,
                     const std::string& description) {
    return app.add_option(name, value, description)->transform(withoutMark);
}

CLI::Option* addTexts(CLI::App& app, const std::string& name, std::vector<std::string>& values,
                      const std::string& description) {
    return app.add_option(name, values, description)->transform(withoutMark);
}

std::string readableMessage(std::string message) {
    std::erase(message, kWhole);
    return message;
}

} // namespace brimtool
