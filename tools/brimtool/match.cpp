#include "match.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "texts.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(In PATTERN a * stands for any characters, also none, and a ? for one; there is no escape for them. All of the
text has to match. Upper and lower case do not differ.

Examples:
  brimtool match '*.txt' Report.TXT notes.doc     # Report.TXT
  ls | brimtool match 'r?port*'

Exit status: 0 when a text matches, 1 when none does, 2 for wrong usage and for files that cannot be read or
written.)";

struct Options {
    std::string pattern;
    std::vector<std::string> texts; // none means standard input
    bool quiet = false;
};

// A text that is malformed still matches as far as it can: it is not changed, only looked at.
BrimString wideText(std::string_view bytes) {
    BrimString text;
    BaseStringUtil::StdStringToString(bytes.data(), static_cast<unsigned int>(bytes.size()), text,
                                      SystemUtility::GetMultiByteCodePage());
    return text;
}

ExitStatus match(const Options& options) {
    const BrimString pattern = wideText(options.pattern);
    TextOutput output;
    bool any = false;
    forEachText(options.texts, "-", [&](const Text& text) {
        if (BaseStringUtil::IsWildcardCaseInsensitiveMatch(wideText(text.bytes), pattern)) {
            any = true;
            if (!options.quiet) {
                output.put(text.bytes, true);
            }
        }
        return !any || !options.quiet;
    });
    output.finish();
    return any ? kDone : kNoMatch;
}

} // namespace

Subcommand addMatch(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = *app.add_subcommand("match", "Print the texts that match a wildcard pattern.");
    addText(command, "PATTERN", options->pattern, "The pattern")->required()->type_name("");
    addTexts(command, "TEXT", options->texts, "Texts; without any, the lines of standard input")
        ->type_name("");
    command.add_flag("-q,--quiet", options->quiet, "Print nothing; the first match ends the work");
    command.footer(kFooter);
    return {&command, [options] { return match(*options); }};
}

} // namespace brimtool
