#include "env.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "display_text.h"
#include "json.h"
#include "print_data.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <unistd.h>
#include <utility>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(Every variable whose name begins with VANTA_HXSECURITY_SYSUSER_CRED, in any case, shows as that name and
asterisks.

Examples:
  brimtool env
  brimtool env --json | jq -r '.variables[] | select(.name == "DOMAIN_HOME").value'

Exit status: 0, or 2 for wrong usage and for output that cannot be written.)";

// The library's dump of an environment of these entries alone.
BrimString dumpOf(char** entries) {
    char** const all = std::exchange(environ, entries);
    const BrimString dump = UtilityInitializer::DumpEnvVariablesToString();
    environ = all;
    return dump;
}

// Entry by entry, since a value may hold line feeds.
std::string asJson() {
    char* none[] = {nullptr};
    const std::size_t headingLength = dumpOf(none).length() + 1; // and a line feed
    JsonWriter json;
    json.beginObject().key("variables").beginArray();
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        char* one[] = {*entry, nullptr};
        const std::string shown = utf8Text(dumpOf(one).substr(headingLength));
        const std::size_t end = shown.find('=');
        json.beginObject().key("name").string(shown.substr(0, end)).key("value");
        end == std::string::npos ? json.null() : json.string(shown.substr(end + 1));
        json.endObject();
    }
    json.endArray().endObject();
    return json.text();
}

} // namespace

Subcommand addEnv(CLI::App& app) {
    const auto isJson = std::make_shared<bool>(false);
    CLI::App& command = *app.add_subcommand("env", "Show the environment with its credential masked.");
    command.add_flag("--json", *isJson, "As JSON");
    command.footer(kFooter);
    return {&command, [isJson] {
                printData(*isJson ? asJson()
                                  : processText(UtilityInitializer::DumpEnvVariablesToString()) + '\n');
                return kDone;
            }};
}

} // namespace brimtool
