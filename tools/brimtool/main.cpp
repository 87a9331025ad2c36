// brimtool: the library on the command line.
#include "CodePageNames.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "codepages.h"
#include "doctor.h"
#include "env.h"
#include "escape.h"
#include "info.h"
#include "layout.h"
#include "locale_commands.h"
#include "match.h"
#include "output_file.h"
#include "standard_streams.h"
#include "subcommand.h"
#include "transcode.h"
#include "unescape.h"
#include "version.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <langinfo.h>
#include <sstream>
#include <string>
#include <vector>

namespace {

// In the order of the help text.
constexpr brimtool::Subcommand (*kAdders[])(CLI::App&) = {
    brimtool::addTranscode, brimtool::addCodePages, brimtool::addEscape, brimtool::addUnescape,
    brimtool::addMatch,     brimtool::addLayout,    brimtool::addEnv,    brimtool::addInfo,
    brimtool::addDoctor,    brimtool::addLocale,
};

constexpr const char* kFooter =
    R"(Each subcommand has a --help of its own, with examples. Data goes to standard output, messages to standard error.
Colours show on a terminal only, and not when NO_COLOR is set.

Examples:
  brimtool doctor
  brimtool transcode --from iso-8859-7 --to utf-8 greek.txt -o greek.utf8.txt
  brimtool locale show --help

Exit status of all: 0; 1 for an answer that is no (nothing matches, something is amiss, input that cannot be
converted); 2 for wrong usage and for files that cannot be read or written.)";

// For help, the version, and errors in the command line.
brimtool::ExitStatus answer(const CLI::App& app, const CLI::ParseError& outcome) {
    std::ostringstream out;
    std::ostringstream err;
    const bool asked = app.exit(outcome, out, err) == 0;
    std::fputs(brimtool::readableMessage(err.str()).c_str(), stderr);
    if (!asked) {
        return brimtool::kFailure;
    }
    brimtool::OutputFile output("-");
    output.write(out.str());
    output.commit();
    return brimtool::kDone;
}

int run(int argc, char** argv) {
    CLI::App app("Tools of the brimportable library.", "brimtool");
    app.set_version_flag("--version", "brimtool, " + brimtool::libraryVersion());
    app.require_subcommand(1);
    app.footer(kFooter);
    std::vector<brimtool::Subcommand> subcommands;
    for (const auto& add : kAdders) {
        subcommands.push_back(add(app));
    }
    try {
        app.parse(brimtool::parsableArguments(argc, argv));
    } catch (const CLI::ParseError& outcome) {
        return answer(app, outcome);
    }
    return std::find_if(subcommands.begin(), subcommands.end(),
                        [](const brimtool::Subcommand& command) { return command.app->parsed(); })
        ->run();
}

// The host's part of the library's start-up.
void adoptLocale() {
    constexpr int kUtf8 = 65001;
    std::setlocale(LC_CTYPE, "");
    if (sup::codePageOfName(::nl_langinfo(CODESET)) == kUtf8) {
        OSAbstraction::g_clientCodePage = kUtf8;
    }
}

} // namespace

int main(int argc, char** argv) {
    brimtool::showLoadMessages();
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is an error of write(2)
    adoptLocale();
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brimtool: %s\n", error.what());
        return brimtool::kFailure;
    }
}
