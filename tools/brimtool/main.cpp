// brimtool: the library on the command line.
#include "code_pages.h"
#include "io.h"
#include "output_file.h"
#include "transcode.h"

#include <CLI/CLI.hpp>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <exception>
#include <sstream>
#include <string>

namespace {

// "brimtool 1.2.3 2024-05-06": the library's own words. Looked up at run time, so that the library can be
// replaced by one whose text has another length.
std::string versionText() {
    const auto* const text = static_cast<const char*>(::dlsym(RTLD_DEFAULT, "brimportable_version"));
    const std::string version = text == nullptr ? "unknown" : text;
    constexpr const char* kMark = "@(#)";
    return "brimtool, " + (version.rfind(kMark, 0) == 0 ? version.substr(4) : version);
}

std::string footer() {
    return "Code pages, by number or name:\n" + brimtool::listOfCodePages() +
           "    ANSI  the code page of the locale\n"
           "\n"
           "A byte-order mark is a character like any other: it is neither added nor taken away.\n"
           "\n"
           "Exit status: 0 when all was converted (or, with --lossy, replaced); 1 when the input is "
           "malformed or\n"
           "a character does not exist in the target page, the first one told with its file, byte (from 0) "
           "and\n"
           "line (from 1); 2 for wrong usage and for files that cannot be read or written. A file named with "
           "-o\n"
           "appears, or changes, only when all went well, so it may be one of the inputs.";
}

int run(int argc, char** argv) {
    CLI::App app("Tools of the brimportable library.", "brimtool");
    app.set_version_flag("--version", versionText());
    app.require_subcommand(1);

    brimtool::TranscodeOptions options;
    CLI::App& transcode = *app.add_subcommand("transcode", "Convert text from one code page to another.");
    transcode.add_option("-f,--from", options.from, "Code page of the input")
        ->required()
        ->type_name("CODEPAGE");
    transcode.add_option("-t,--to", options.to, "Code page of the output")->required()->type_name("CODEPAGE");
    transcode
        .add_option("-o,--output", options.output, "Where the text goes; - is standard output, the default")
        ->type_name("FILE");
    transcode
        .add_option("FILE", options.inputs, "Inputs, converted as one text; - is standard input, the default")
        ->type_name("");
    transcode.add_flag("-l,--lossy", options.lossy,
                       "Write replacement characters for what cannot be converted, and tell how many");
    transcode.add_flag("-q,--quiet", options.quiet, "No progress on the terminal, no count of replacements");
    transcode.add_flag("--stats,--verbose", options.stats,
                       "Tell characters, bytes, seconds and throughput at the end, on standard error");
    transcode.footer(footer());

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& outcome) {
        std::ostringstream out;
        std::ostringstream err;
        const bool asked = app.exit(outcome, out, err) == 0; // for help or the version
        std::fputs(err.str().c_str(), stderr);
        if (!asked) {
            return brimtool::kFailure;
        }
        brimtool::OutputFile output("-");
        output.write(out.str());
        output.commit();
        return brimtool::kDone;
    }
    return brimtool::transcode(options);
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is an error of write(2)
    std::setlocale(LC_CTYPE, "");
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brimtool: %s\n", error.what());
        return brimtool::kFailure;
    }
}
