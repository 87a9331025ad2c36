#include "layout.h"

#include "directories.h"
#include "display_text.h"
#include "json.h"
#include "print_data.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(From tells the variable that decides the path, or the directory that the path derives from and, in
parentheses, what that comes from in the end; "built in" is a path that no variable has a say in. Nothing is
made. The component type is "default", since brimtool is no component; without COMPONENT_NAME a component has a
default name of its own. In JSON, fallback tells that the operation calls its path a fallback.

Examples:
  brimtool layout
  VANTA_HX_HOME=/opt/vanta/hx DOMAIN_HOME=/srv/domain brimtool layout --json

Exit status: 0, or 2 for wrong usage and for output that cannot be written.)";

std::string presenceOf(const ResolvedDirectory& row) {
    struct stat status {};
    if (::stat(row.systemPath().c_str(), &status) == 0) {
        return S_ISDIR(status.st_mode) ? "yes" : "no directory";
    }
    return errno == ENOENT || errno == ENOTDIR ? "no" : "unknown";
}

std::string asText() {
    std::vector<std::vector<std::string>> rows = {{"Name", "Path", "From", "Exists"}};
    for (const ResolvedDirectory& row : resolvedDirectories()) {
        rows.push_back(
            {row.directory->name, row.path.empty() ? "-" : utf8Text(row.path), row.from, presenceOf(row)});
    }
    return tableText(rows);
}

std::string asJson() {
    JsonWriter json;
    json.beginObject().key("directories").beginArray();
    for (const ResolvedDirectory& row : resolvedDirectories()) {
        json.beginObject();
        json.key("name").string(row.directory->name);
        json.key("operation").string(row.directory->operation);
        json.key("path").string(utf8Text(row.path));
        json.key("from").string(row.from);
        json.key("variables").beginArray();
        for (const std::string& variable : row.variables) {
            json.string(variable);
        }
        json.endArray();
        json.key("fallback").boolean(!row.isReal);
        json.key("exists").string(presenceOf(row));
        json.endObject();
    }
    json.endArray().endObject();
    return json.text();
}

} // namespace

Subcommand addLayout(CLI::App& app) {
    const auto isJson = std::make_shared<bool>(false);
    CLI::App& command =
        *app.add_subcommand("layout", "Show the directories of the product and what decides them.");
    command.add_flag("--json", *isJson, "As JSON");
    command.footer(kFooter);
    return {&command, [isJson] {
                printData(*isJson ? asJson() : terminalText(asText()));
                return kDone;
            }};
}

} // namespace brimtool
