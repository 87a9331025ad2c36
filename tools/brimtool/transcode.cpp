#include "transcode.h"

#include "code_pages.h"
#include "io.h"
#include "output_file.h"
#include "progress.h"
#include "text_converter.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>
#include <unistd.h>

namespace brimtool {

namespace {

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

std::optional<int> findOrExplain(const std::string& page, const char* option) {
    const std::optional<int> found = findCodePage(page);
    if (!found) {
        std::fprintf(stderr,
                     "brimtool: %s: there is no code page \"%s\" (brimtool transcode --help lists them)\n",
                     option, page.c_str());
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

} // namespace

ExitStatus transcode(const TranscodeOptions& options) {
    const std::optional<int> from = findOrExplain(options.from, "--from");
    const std::optional<int> to = findOrExplain(options.to, "--to");
    if (!from || !to) {
        return kFailure;
    }
    const std::vector<std::string> inputs =
        options.inputs.empty() ? std::vector<std::string>{"-"} : options.inputs;

    TextConverter converter(*from, *to, options.lossy);
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

} // namespace brimtool
