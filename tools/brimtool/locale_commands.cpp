#include "locale_commands.h"

#include "Utility/Generic/Portable/SUPOS.h"
#include "colour.h"
#include "display_text.h"
#include "io.h"
#include "json.h"
#include "locale_file.h"
#include "page_table.h"
#include "print_data.h"
#include "texts.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace brimtool {

namespace {

using Kind = LocaleFinding::Kind;

constexpr const char* kFooter =
    R"(Examples:
  brimtool locale check share/locale/BrimLocale.xml
  brimtool locale show de-DE

Exit status: 0; 1 when check finds problems and when show finds nothing; 2 for wrong usage and for files that
cannot be read or written.)";

constexpr const char* kCheckFooter =
    R"(Problems are what the library would ignore, or take otherwise than it is written: elements, platforms and
repeated texts that do not count, numbers that are none, what a later entry replaces, converters that iconv
does not know. A system locale that is not installed here is a note, no problem. An entry's line is the one
where its start tag ends.

Examples:
  brimtool locale check share/locale/BrimLocale.xml
  brimtool locale check --list --json BrimLocale.xml

Exit status: 0 when there are no problems; 1 when there are, and for a file that is no XML document; 2 for
wrong usage and for files that cannot be read or written.)";

constexpr const char* kShowFooter =
    R"(NAME is a product locale (as it is written), a character set or sort language (in any case), or the number of
a code page or sort language. Without --file the server's locale file is looked up, as brimtool layout tells.
The locale "C" is built in.

Examples:
  brimtool locale show de-DE
  brimtool locale show --file share/locale/BrimLocale.xml shift_jis

Exit status: 0; 1 when nothing has this name, and for a file that is no XML document; 2 for wrong usage and
for files that cannot be read or written.)";

constexpr std::size_t kBuiltIn = 0; // in the place of a line

struct CheckOptions {
    std::string file;
    bool isList = false;
    bool isJson = false;
};

struct ShowOptions {
    std::string name;
    std::string file; // empty for the server's
    bool isJson = false;
};

ExitStatus tellNoDocument(const std::string& file, const LocaleFileError& error) {
    std::fprintf(stderr, "brimtool: %s: %s\n", InputFile::displayNameOf(file).c_str(),
                 terminalText(error.what()).c_str());
    return kNotConverted;
}

// ---- check ------------------------------------------------------------------------------------------------

const char* severityOf(Kind kind) { return kind == Kind::kProblem ? "problem" : "note"; }

std::string lineText(const LocaleFinding& finding) {
    const std::string severity = severityOf(finding.kind);
    return "line " + std::to_string(finding.line) + ": " +
           (finding.kind == Kind::kProblem ? coloured(severity, Colour::kYellow) : severity) + ": " +
           finding.text + '\n';
}

template <class Map>
std::string listText(const char* heading, const Map& entries) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& [key, entry] : entries) {
        rows.push_back(
            {"  " + entry.name, std::to_string(entry.number), "line " + std::to_string(entry.line)});
    }
    return std::string("\n") + heading + '\n' + tableText(rows);
}

std::string listText(const LocaleFile& file) {
    std::vector<std::vector<std::string>> rows;
    for (const auto& [key, locale] : file.locales) {
        rows.push_back({"  " + locale.name, locale.systemLocale, locale.codePage,
                        "line " + std::to_string(locale.line)});
    }
    return "\nLocales\n" + tableText(rows) + listText("Character sets", file.charsets) +
           listText("Sort languages", file.sortNames) + listText("iconv's encodings", file.iconvNames);
}

std::string findingsText(const LocaleFile& file, bool isList) {
    std::string text;
    const LocaleFinding* firstNotInstalled = nullptr;
    std::size_t notInstalled = 0;
    for (const LocaleFinding& finding : file.findings) {
        if (finding.kind == Kind::kNotInstalled && !isList) {
            ++notInstalled;
            firstNotInstalled = firstNotInstalled == nullptr ? &finding : firstNotInstalled;
        } else {
            text += lineText(finding);
        }
    }
    if (notInstalled > 1) {
        text += "line " + std::to_string(firstNotInstalled->line) +
                " and others: note: " + countText(notInstalled, "system locale") +
                " are not installed (--list names them)\n";
    } else if (notInstalled == 1) {
        text += lineText(*firstNotInstalled);
    }
    return text;
}

std::string checkText(const LocaleFile& file, const CheckOptions& options) {
    std::string text = tableText({
        {"Section", "Holds"},
        {"Locales", countText(file.locales.size(), "locale")},
        {"CharsetToCodePage", countText(file.charsets.size(), "character set")},
        {"SortLangs", countText(file.sortNames.size(), "sort language") + " by " +
                          countText(file.sortLanguages.size(), "id")},
        {"IconvTranscode", countText(file.iconvNames.size(), "code page")},
    });
    text += options.isList ? listText(file) : "";
    const std::string findings = findingsText(file, options.isList);
    text += findings.empty() ? "" : '\n' + findings;
    text += '\n' + (file.problems() == 0 ? "No problems" : countText(file.problems(), "problem")) + ".\n";
    return text;
}

template <class Map>
void writeEntries(JsonWriter& json, const char* key, const char* numberKey, const Map& entries) {
    json.key(key).beginArray();
    for (const auto& [ignored, entry] : entries) {
        json.beginObject().key("name").string(entry.name).key(numberKey).number(entry.number);
        json.key("line").number(static_cast<std::int64_t>(entry.line)).endObject();
    }
    json.endArray();
}

void writeLocale(JsonWriter& json, const LocaleFile::Locale& locale) {
    json.beginObject().key("name").string(locale.name).key("systemLocale").string(locale.systemLocale);
    json.key("codePage").string(locale.codePage).key("installed").boolean(locale.isInstalled);
    json.key("line").number(static_cast<std::int64_t>(locale.line)).endObject();
}

std::string checkJson(const LocaleFile& file, const CheckOptions& options) {
    JsonWriter json;
    json.beginObject();
    json.key("counts").beginObject();
    const auto count = [&json](const char* key, std::size_t value) {
        json.key(key).number(static_cast<std::int64_t>(value));
    };
    count("locales", file.locales.size());
    count("charsets", file.charsets.size());
    count("sortLanguages", file.sortNames.size());
    count("sortIds", file.sortLanguages.size());
    count("iconvNames", file.iconvNames.size());
    json.endObject();
    if (options.isList) {
        json.key("locales").beginArray();
        for (const auto& [key, locale] : file.locales) {
            writeLocale(json, locale);
        }
        json.endArray();
        writeEntries(json, "charsets", "codePage", file.charsets);
        writeEntries(json, "sortLanguages", "sortId", file.sortNames);
        writeEntries(json, "iconvNames", "codePage", file.iconvNames);
    }
    json.key("findings").beginArray();
    for (const LocaleFinding& finding : file.findings) {
        json.beginObject();
        json.key("severity").string(severityOf(finding.kind));
        json.key("line").number(static_cast<std::int64_t>(finding.line));
        json.key("message").string(finding.text);
        json.endObject();
    }
    json.endArray();
    count("problems", file.problems());
    json.endObject();
    return json.text();
}

ExitStatus check(const CheckOptions& options) {
    try {
        const LocaleFile file = parseLocaleFile(readWhole(options.file));
        printData(options.isJson ? checkJson(file, options) : terminalText(checkText(file, options)));
        return file.problems() == 0 ? kDone : kFindings;
    } catch (const LocaleFileError& error) {
        return tellNoDocument(options.file, error);
    }
}

// ---- show -------------------------------------------------------------------------------------------------

template <class Map, class Key>
const typename Map::mapped_type* lookUp(const Map& map, const Key& key) {
    const auto found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
}

template <class T>
std::optional<T> numberOf(const std::string& text) {
    T number{};
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return stop == text.data() + text.size() && error == std::errc() ? std::optional(number) : std::nullopt;
}

// All that has the name or number. The locale file's entries live as long as it does.
struct Meanings {
    const LocaleFile::Locale* locale = nullptr;
    const LocaleFile::NameAndNumber* charset = nullptr;
    const LocaleFile::NameAndNumber* sortLanguage = nullptr;
    const LocaleFile::NameAndNumber* iconvName = nullptr;
    std::optional<int> codePage; // one of the library's own

    Meanings(const LocaleFile& file, const std::string& name) {
        locale = lookUp(file.locales, sup::String<char>(name.c_str()));
        const BrimString wide = wideArgument(name);
        charset = lookUp(file.charsets, wide);
        sortLanguage = lookUp(file.sortNames, wide);
        if (const auto id = numberOf<unsigned int>(name); id && sortLanguage == nullptr) {
            sortLanguage = lookUp(file.sortLanguages, *id);
        }
        if (const auto number = numberOf<int>(name)) {
            iconvName = lookUp(file.iconvNames, *number);
            codePage = *number == 0 ? std::nullopt : findCodePage(name);
        }
    }

    bool isAny() const {
        return locale != nullptr || charset != nullptr || sortLanguage != nullptr || iconvName != nullptr ||
               codePage;
    }
};

std::string placeText(std::size_t line) {
    return line == kBuiltIn ? "built in" : "line " + std::to_string(line);
}

std::string showText(const Meanings& meanings) {
    std::vector<std::vector<std::string>> rows;
    if (const auto* const locale = meanings.locale) {
        rows.push_back({"Locale",
                        locale->systemLocale + ", code page " + locale->codePage + ", " +
                            (locale->isInstalled ? "installed" : "not installed"),
                        placeText(locale->line)});
    }
    if (const auto* const charset = meanings.charset) {
        rows.push_back({"Character set", charset->name + ", code page " + std::to_string(charset->number),
                        placeText(charset->line)});
    }
    if (const auto* const language = meanings.sortLanguage) {
        rows.push_back({"Sort language", language->name + ", id " + std::to_string(language->number),
                        placeText(language->line)});
    }
    if (meanings.codePage) {
        rows.push_back({"Code page", nameOfCodePage(*meanings.codePage), "built in"});
    }
    if (const auto* const name = meanings.iconvName) {
        rows.push_back({"Code page", "iconv's " + name->name, placeText(name->line)});
    }
    return tableText(rows);
}

std::string showJson(const std::string& name, const Meanings& meanings) {
    JsonWriter json;
    json.beginObject().key("name").string(utf8Text(wideArgument(name)));
    if (meanings.locale != nullptr) {
        json.key("locale");
        writeLocale(json, *meanings.locale);
    }
    const auto write = [&json](const char* key, const char* numberKey, const auto* entry) {
        if (entry != nullptr) {
            json.key(key).beginObject().key("name").string(entry->name);
            json.key(numberKey).number(entry->number);
            json.key("line").number(static_cast<std::int64_t>(entry->line)).endObject();
        }
    };
    write("charset", "codePage", meanings.charset);
    write("sortLanguage", "sortId", meanings.sortLanguage);
    if (meanings.codePage) {
        json.key("builtInCodePage").string(nameOfCodePage(*meanings.codePage));
    }
    write("iconvName", "codePage", meanings.iconvName);
    json.endObject();
    return json.text();
}

// The server's locale file; nothing but what is built in when there is none.
LocaleFile readServersFile() {
    const std::string name = processText(GetLocaleFile());
    try {
        return parseLocaleFile(readWhole(name));
    } catch (const IoError& error) {
        std::fprintf(stderr, "brimtool: %s (brimtool doctor tells more)\n", error.what());
        return {};
    }
}

ExitStatus show(const ShowOptions& options) {
    try {
        LocaleFile file = options.file.empty() ? readServersFile() : parseLocaleFile(readWhole(options.file));
        file.locales.try_emplace("C", LocaleFile::Locale{"C", "C", "1252", kBuiltIn, true});
        const Meanings meanings(file, options.name);
        if (!meanings.isAny()) {
            std::fprintf(stderr, "brimtool: nothing is called \"%s\"\n", options.name.c_str());
            return kNoMatch;
        }
        printData(options.isJson ? showJson(options.name, meanings) : terminalText(showText(meanings)));
        return kDone;
    } catch (const LocaleFileError& error) {
        return tellNoDocument(options.file.empty() ? processText(GetLocaleFile()) : options.file, error);
    }
}

} // namespace

Subcommand addLocale(CLI::App& app) {
    const auto checkOptions = std::make_shared<CheckOptions>();
    const auto showOptions = std::make_shared<ShowOptions>();
    CLI::App& command = *app.add_subcommand("locale", "Check a locale file, or look a name up in it.");
    command.require_subcommand(1);
    command.footer(kFooter);

    CLI::App& checkCommand =
        *command.add_subcommand("check", "Find what the library would ignore in a locale file.");
    addText(checkCommand, "FILE", checkOptions->file, "The file; - is standard input")
        ->required()
        ->type_name("");
    checkCommand.add_flag("-l,--list", checkOptions->isList, "All entries too");
    checkCommand.add_flag("--json", checkOptions->isJson, "As JSON");
    checkCommand.footer(kCheckFooter);

    CLI::App& showCommand =
        *command.add_subcommand("show", "Tell what a name stands for in the locale file.");
    addText(showCommand, "NAME", showOptions->name, "A name or number")->required()->type_name("");
    addText(showCommand, "-f,--file", showOptions->file, "Another file than the server's")->type_name("FILE");
    showCommand.add_flag("--json", showOptions->isJson, "As JSON");
    showCommand.footer(kShowFooter);

    return {&command, [&checkCommand, checkOptions, showOptions] {
                return checkCommand.parsed() ? check(*checkOptions) : show(*showOptions);
            }};
}

} // namespace brimtool
