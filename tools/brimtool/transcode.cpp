#include "transcode.h"

#include "encoding.h"
#include "io.h"
#include "output_file.h"
#include "progress.h"
#include "text_converter.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(A code page is a number or a name, as brimtool codepages lists them; ANSI is the code page of the locale.
iconv:NAME is an encoding of the system's iconv, as iconv --list names them. A byte-order mark is a character
like any other: it is neither added nor taken away, except by encodings of iconv's that do so.

Examples:
  brimtool transcode --from iso-8859-7 --to utf-8 greek.txt -o greek.utf8.txt
  brimtool transcode --from iconv:ISO-2022-JP --to utf-8 < mail.txt

Exit status: 0 when all was converted (or, with --lossy, replaced); 1 when the input is malformed or
a character does not exist in the target page, the first one told with its file, byte (from 0) and
line (from 1); 2 for wrong usage and for files that cannot be read or written. A file named with -o
appears, or changes, only when all went well, so it may be one of the inputs.)";

struct Options {
    std::string from;
    std::string to;
    std::string output = "-";
    std::vector<std::string> inputs; // none means standard input
    bool lossy = false;
    bool quiet = false;
    bool stats = false;
};

// Where each input starts in the concatenation of all.
struct InputStart {
    std::string displayName;
    Position at;
};

std::string describe(const Problem& problem, const std::vector<InputStart>& starts) {
    // A character that begins in one file and ends in the next counts for the first.
    const auto after = std::find_if(starts.rbegin(), starts.rend(), [&problem](const InputStart& start) {
        return start.at.bytes <= problem.at.bytes;
    });
    const InputStart& start = after == starts.rend() ? starts.front() : *after;
    return start.displayName + ": byte " + std::to_string(problem.at.bytes - start.at.bytes) + ", line " +
           std::to_string(problem.at.lines - start.at.lines + 1) + ": " + problem.description;
}

// 0 when the size of any input is not known.
std::uint64_t totalSize(const std::vector<std::string>& inputs) {
    std::uint64_t total = 0;
    for (const std::string& name : inputs) {
        const std::uint64_t size = sizeOfInput(name);
        if (size == 0) {
            return 0;
        }
        total += size;
    }
    return total;
}

std::optional<Encoding> findOrExplain(const std::string& text, const char* option) {
    std::optional<Encoding> found = Encoding::find(text);
    if (!found) {
        std::fprintf(stderr, "brimtool: %s: %s\n", option, Encoding::explainUnknown(text).c_str());
    }
    return found;
}

void printReplacements(const TextConverter& converter, const std::string& first) {
    std::fprintf(stderr,
                 "brimtool: %" PRIu64 " replaced (%" PRIu64 " malformed, %" PRIu64
                 " not in the target page), the first at %s\n",
                 converter.malformed() + converter.unconvertible(), converter.malformed(),
                 converter.unconvertible(), first.c_str());
}

void printStats(std::uint64_t characters, std::uint64_t bytesIn, std::uint64_t bytesOut, double seconds) {
    std::fprintf(stderr,
                 "brimtool: %" PRIu64 " characters, %" PRIu64 " bytes in, %" PRIu64
                 " bytes out, %.6f seconds, %.1f MB/s\n",
                 characters, bytesIn, bytesOut, seconds,
                 seconds > 0 ? static_cast<double>(bytesIn) / seconds / 1e6 : 0.0);
}

ExitStatus transcode(const Options& options) {
    const std::optional<Encoding> from = findOrExplain(options.from, "--from");
    const std::optional<Encoding> to = findOrExplain(options.to, "--to");
    if (!from || !to) {
        return kFailure;
    }
    const std::vector<std::string> inputs =
        options.inputs.empty() ? std::vector<std::string>{"-"} : options.inputs;

    TextConverter converter(*from, *to, options.lossy, options.stats);
    OutputFile output(options.output);
    const bool showsProgress = !options.quiet && ::isatty(STDERR_FILENO) == 1 && !output.isTerminal();
    Progress progress(showsProgress, showsProgress ? totalSize(inputs) : 0);

    std::vector<InputStart> starts;
    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;
    const auto writeOutput = [&] {
        output.write(converter.output());
        bytesOut += converter.output().size();
    };

    const auto begin = std::chrono::steady_clock::now();
    bool going = true;
    for (const std::string& name : inputs) {
        InputFile input(name);
        if (output.writesInto(input.status())) {
            throw IoError(input.displayName() + " is both input and standard output", EINVAL);
        }
        starts.push_back({input.displayName(), {bytesIn, converter.position().lines}});
        while (going) {
            const std::size_t length = input.read(converter.room(), converter.roomLength());
            if (length == 0) {
                break;
            }
            bytesIn += length;
            going = converter.convert(length);
            writeOutput();
            progress.update(bytesIn);
        }
    }
    if (going) {
        going = converter.finish();
        writeOutput();
    }
    const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - begin;

    if (going) {
        output.commit();
    }
    progress.erase();
    if (!going) {
        std::fprintf(stderr, "brimtool: %s\n", describe(*converter.problem(), starts).c_str());
    } else if (converter.problem() && !options.quiet) {
        printReplacements(converter, describe(*converter.problem(), starts));
    }
    if (options.stats) {
        printStats(converter.characters(), bytesIn, bytesOut, duration.count());
    }
    return going ? kDone : kNotConverted;
}

} // namespace

Subcommand addTranscode(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = *app.add_subcommand("transcode", "Convert text from one code page to another.");
    addText(command, "-f,--from", options->from, "Code page of the input")->required()->type_name("CODEPAGE");
    addText(command, "-t,--to", options->to, "Code page of the output")->required()->type_name("CODEPAGE");
    addText(command, "-o,--output", options->output, "Where the text goes; - is standard output, the default")
        ->type_name("FILE");
    addTexts(command, "FILE", options->inputs,
             "Inputs, converted as one text; - is standard input, the default")
        ->type_name("");
    command.add_flag("-l,--lossy", options->lossy,
                     "Write replacement characters for what cannot be converted, and tell how many");
    command.add_flag("-q,--quiet", options->quiet, "No progress on the terminal, no count of replacements");
    command.add_flag("--stats,--verbose", options->stats,
                     "Tell characters, bytes, seconds and throughput at the end, on standard error");
    command.footer(kFooter);
    return {&command, [options] { return transcode(*options); }};
}

} // namespace brimtool
