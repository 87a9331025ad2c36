#include "codepages.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "json.h"
#include "output_file.h"
#include "page_table.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(Each page is known by its number and its names; case and punctuation of a name do not matter.

Examples:
  brimtool codepages
  brimtool codepages --json

Exit status: 0, or 2 for wrong usage and for output that cannot be written.)";

std::string asText() {
    std::string text = "Code page  Name          Also called  What it is\n";
    for (const BuiltInPage& page : builtInPages()) {
        char line[128];
        std::snprintf(line, sizeof(line), "%9d  %-12s  %-11s  %s%s\n", page.number, page.name, page.otherName,
                      page.description, page.isHouseNumber ? "; a house number" : "");
        text += line;
    }
    text +=
        "\n"
        "1200 is big-endian and 1201 little-endian, the reverse of the usual Windows list. 285915 and 38598 "
        "are\n"
        "house numbers: other programs may know these pages by others, or not at all.\n"
        "0 and ANSI stand for the code page of the locale, now " +
        std::to_string(SystemUtility::GetACP()) +
        ".\n"
        "iconv:NAME stands for any encoding of the system's iconv, as iconv:KOI8-R; iconv --list names "
        "them.\n";
    return text;
}

std::string asJson() {
    JsonWriter json;
    json.beginObject().key("codePages").beginArray();
    for (const BuiltInPage& page : builtInPages()) {
        json.beginObject();
        json.key("number").number(page.number);
        json.key("names").beginArray().string(page.name);
        if (*page.otherName != '\0') {
            json.string(page.otherName);
        }
        json.endArray();
        json.key("description").string(page.description);
        json.key("houseNumber").boolean(page.isHouseNumber);
        json.endObject();
    }
    json.endArray();
    json.key("localeCodePage").number(SystemUtility::GetACP());
    json.endObject();
    return json.text();
}

} // namespace

Subcommand addCodePages(CLI::App& app) {
    const auto isJson = std::make_shared<bool>(false);
    CLI::App& command = *app.add_subcommand("codepages", "List the code pages.");
    command.add_flag("--json", *isJson, "As JSON");
    command.footer(kFooter);
    return {&command, [isJson] {
                OutputFile output("-");
                output.write(*isJson ? asJson() : asText());
                output.commit();
                return kDone;
            }};
}

} // namespace brimtool
