#include "doctor.h"

#include "Utility/Generic/Portable/SUPBaseStringUtil.h"
#include "Utility/Generic/Portable/SUPOS.h"
#include "colour.h"
#include "directories.h"
#include "display_text.h"
#include "io.h"
#include "json.h"
#include "locale_file.h"
#include "path_safety.h"
#include "print_data.h"
#include "texts.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace brimtool {

namespace {

constexpr const char* kFooter =
    R"(It looks at the variables that the library reads, at the directories that brimtool layout shows, at who may
write to them, at the library path and at the locale file. It makes and changes nothing.

Examples:
  brimtool doctor
  brimtool doctor --json | jq -r '.findings[].message'

Exit status: 0 when nothing was found, 1 when something was, 2 for wrong usage and for output that cannot be
written.)";

enum class Severity { kError, kWarning };

struct Finding {
    Severity severity;
    std::string variable; // to set or change; empty for none
    std::string message;
    std::string remedy;
};

using Findings = std::vector<Finding>;

// What the library reads besides the variables of the directories. An empty COMPONENT_TYPE counts as none.
constexpr const char* kOtherVariables[] = {
    "COMPONENT_NAME",          "INSTANCE_NAME",        "VANTA_HX_LANG",
    "VANTA_HX_HALOMANAGED",    "KROS_CPUID_LOGGING",   "VANTA_HX_ALLOCATION_PADDING",
    "VANTA_HX_SYSTEM_LOGGING", "HXS_STARTUP_LOG_TYPE",
};
constexpr const char* kNumbers[] = {"QUAY_RPC_TIMEOUT", "FEN_MAX_FILE_HANDLES", "KROS_NUMBER_OF_PROCESSORS"};

std::string valueOf(const std::string& variable) {
    BrimString value;
    SystemUtility::Getenv(wideText(variable), value);
    return utf8Text(value);
}

bool isSet(const std::string& variable) { return SystemUtility::hasEnv(wideText(variable)); }

// ---- Variables --------------------------------------------------------------------------------------------

// The variables of the directories, each once.
std::vector<const Source*> variableSources() {
    std::set<std::string_view> seen;
    std::vector<const Source*> found;
    for (const Directory& directory : allDirectories()) {
        for (const Source& source : directory.sources) {
            if (source.variable != nullptr && seen.insert(source.variable).second) {
                found.push_back(&source);
            }
        }
    }
    return found;
}

void lookAtEmptiness(const char* variable, Findings& findings) {
    if (isSet(variable) && valueOf(variable).empty()) {
        findings.push_back({Severity::kWarning, variable,
                            std::string(variable) + " is set to nothing, which counts as a value",
                            "Unset it, or give it a value"});
    }
}

void lookAtVariables(Findings& findings) {
    for (const Source* const source : variableSources()) {
        const std::string value = valueOf(source->variable);
        if (!value.empty() && value.front() != '/') {
            findings.push_back({Severity::kError, source->variable,
                                std::string(source->variable) + " is " + quotedText(value) +
                                    ", a relative path: what it names depends on the working directory",
                                "Set it to an absolute path"});
        }
        if (!source->mustBeReal) { // else an empty one counts as none
            lookAtEmptiness(source->variable, findings);
        }
    }
    for (const char* const variable : kOtherVariables) {
        lookAtEmptiness(variable, findings);
    }
    for (const char* const variable : kNumbers) {
        lookAtEmptiness(variable, findings);
        const std::string value = valueOf(variable);
        if (!value.empty() && !BaseStringUtil::IsInteger(wideText(value))) {
            findings.push_back({Severity::kWarning, variable,
                                std::string(variable) + " is " + quotedText(value) + ", which is no number",
                                "Unset it, or set it to a number"});
        }
    }
}

// ---- Directories ------------------------------------------------------------------------------------------

class DirectoryCheck {
public:
    explicit DirectoryCheck(Findings& findings) : m_findings(findings) {}

    void run() {
        for (const ResolvedDirectory& row : resolvedDirectories()) {
            lookAt(row);
        }
    }

    void lookAtSafety(const std::string& path, const std::string& what, const std::string& variable) {
        for (UnsafePlace& place : findUnsafePlaces(path)) {
            if (m_unsafe.insert(place.path).second) {
                add(Severity::kError, variable, place.path + " " + place.why + "; " + what + " depends on it",
                    std::move(place.remedy));
            }
        }
    }

private:
    void lookAt(const ResolvedDirectory& row) {
        const std::string path = row.systemPath();
        const std::string variable = settingOf(row);
        if (path.empty()) {
            lookAtNoPath(row, variable);
            return;
        }
        if (row.base == nullptr && !row.isReal && row.directory->use == Use::kData) {
            markBad(row);
            add(Severity::kWarning, variable,
                variable + " is not set: the " + describe(row) +
                    " is a fallback that other programs and users share",
                "Set " + variable + " to a directory of this server's own");
        }
        if (path.front() == '/') {
            lookAtSafety(path, "the " + describe(row), variable);
        }
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) {
            lookAtUnknown(row, path, variable, errno);
        } else if (!S_ISDIR(status.st_mode)) {
            markBad(row);
            add(Severity::kError, variable, "the " + describe(row) + " is no directory",
                "Move it away, or set " + variable + " to a directory");
        } else {
            lookAtAccess(row, path, variable);
        }
    }

    void lookAtNoPath(const ResolvedDirectory& row, const std::string& variable) {
        const bool isEmptyVariable =
            row.base == nullptr && !row.variables.empty() && valueOf(row.variables.front()).empty();
        if (!isBaseBad(row) && !isEmptyVariable && !row.variables.empty()) {
            add(Severity::kError, variable,
                std::string("there is no ") + row.directory->name + " directory: " + row.variables.front() +
                    " is " + quotedText(valueOf(row.variables.front())) +
                    (row.isReal ? ", which leaves no path" : ", which is no directory"),
                "Set " + variable + " to a directory");
        }
        markBad(row);
    }

    void lookAtUnknown(const ResolvedDirectory& row, const std::string& path, const std::string& variable,
                       int error) {
        if (error != ENOENT && error != ENOTDIR) {
            markBad(row);
            add(Severity::kError, variable, "the " + describe(row) + ": " + std::strerror(error),
                "Let this user reach it, or set " + variable);
        } else if (row.directory->use == Use::kMade) {
            lookWhetherItCanBeMade(row, path, variable);
        } else {
            if (!isBaseBad(row) && m_bad.count(&row) == 0) {
                add(row.directory->use == Use::kInstalled ? Severity::kError : Severity::kWarning, variable,
                    "the " + describe(row) + " does not exist",
                    "Make it, or set " + variable + " to where it is");
            }
            markBad(row);
        }
    }

    void lookWhetherItCanBeMade(const ResolvedDirectory& row, const std::string& path,
                                const std::string& variable) {
        std::string parent = path;
        do {
            const std::size_t end = parent.find_last_of('/');
            parent = end == std::string::npos ? "." : end == 0 ? "/" : parent.substr(0, end);
        } while (::faccessat(AT_FDCWD, parent.c_str(), F_OK, AT_EACCESS) != 0 && parent.size() > 1);
        struct stat status {};
        const bool isDirectory = ::stat(parent.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        if ((!isDirectory || ::faccessat(AT_FDCWD, parent.c_str(), W_OK | X_OK, AT_EACCESS) != 0) &&
            !isBaseBad(row) && m_unmakeable.insert(parent).second) {
            add(Severity::kError, variable,
                "the " + describe(row) + " does not exist and cannot be made: " + parent +
                    (isDirectory ? " cannot be written" : " is no directory"),
                "Make it, or set " + variable);
        }
    }

    void lookAtAccess(const ResolvedDirectory& row, const std::string& path, const std::string& variable) {
        if (::faccessat(AT_FDCWD, path.c_str(), R_OK | X_OK, AT_EACCESS) != 0) {
            add(Severity::kError, variable, "the " + describe(row) + " cannot be read",
                "Let this user read it, or set " + variable);
        } else if (row.directory->use != Use::kInstalled &&
                   ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
            add(Severity::kError, variable, "the " + describe(row) + " cannot be written",
                "Let this user write it, or set " + variable);
        }
    }

    static std::string describe(const ResolvedDirectory& row) {
        return std::string(row.directory->name) + " directory " + utf8Text(row.path);
    }

    // The variable that decides the path, or would.
    static std::string settingOf(const ResolvedDirectory& row) {
        const Source& first = row.directory->sources.front();
        if (!row.variables.empty() && (row.isReal || first.variable == nullptr)) {
            return row.variables.front();
        }
        return first.variable != nullptr ? first.variable : settingOf(*row.base);
    }

    // What derives from a bad directory is not told too.
    void markBad(const ResolvedDirectory& row) { m_bad.insert(&row); }
    bool isBaseBad(const ResolvedDirectory& row) const {
        return row.base != nullptr && m_bad.count(row.base) != 0;
    }

    void add(Severity severity, const std::string& variable, std::string message, std::string remedy) {
        m_findings.push_back({severity, variable, std::move(message), std::move(remedy)});
    }

    Findings& m_findings;
    std::set<const ResolvedDirectory*> m_bad;
    std::set<std::string> m_unsafe;
    std::set<std::string> m_unmakeable;
};

// ---- The library path -------------------------------------------------------------------------------------

void lookAtLibraryPath(Findings& findings, DirectoryCheck& directories) {
    const std::string variable = utf8Text(SystemUtility::GetPathVariableKeyWord());
    const std::string value = valueOf(variable);
    if (value.empty()) {
        return; // the dynamic linker ignores it
    }
    std::set<std::string> seen;
    for (std::size_t begin = 0; begin <= value.size();) {
        const std::size_t end = std::min(value.find_first_of(":;", begin), value.size());
        const std::string element = value.substr(begin, end - begin);
        begin = end + 1;
        if (!seen.insert(element).second) {
            continue;
        }
        if (element.empty()) {
            findings.push_back({Severity::kError, variable,
                                variable + " has an empty element, which means the current directory",
                                "Take the superfluous colon out of " + quotedText(value)});
        } else if (element.front() == '/') {
            directories.lookAtSafety(processText(wideText(element)), variable, variable);
        } else if (element.front() != '$') { // $ORIGIN is the program's directory
            findings.push_back({Severity::kError, variable,
                                variable + " has the relative element " + quotedText(element) +
                                    ", which depends on the working directory",
                                "Make it an absolute path"});
        }
    }
}

// ---- The locale file --------------------------------------------------------------------------------------

void lookAtLocaleFile(Findings& findings, DirectoryCheck& directories) {
    const std::string name = processText(GetLocaleFile());
    const std::string what = "the locale file " + utf8Text(GetLocaleFile());
    const auto* const directory = &*std::find_if(
        resolvedDirectories().begin(), resolvedDirectories().end(), [](const ResolvedDirectory& row) {
            return row.directory->resolve == SystemUtility::GetServerLocaleDirectory;
        });
    const std::string variable =
        directory->variables.empty() ? "HX_PRODUCT_HOME" : directory->variables.front();
    const auto add = [&](Severity severity, const std::string& message, const std::string& remedy) {
        findings.push_back({severity, variable, what + message, remedy});
    };
    if (!name.empty() && name.front() == '/') {
        directories.lookAtSafety(name, what, variable);
    }
    try {
        const LocaleFile file = parseLocaleFile(readWhole(name));
        if (file.problems() != 0) {
            add(Severity::kWarning, " has " + countText(file.problems(), "problem"),
                "See brimtool locale check " + name);
        }
    } catch (const LocaleFileError& error) {
        add(Severity::kError, std::string(" does not parse: ") + error.what(), "Mend it");
    } catch (const IoError& error) {
        const bool isMissing = ::access(name.c_str(), F_OK) != 0;
        add(isMissing ? Severity::kWarning : Severity::kError,
            isMissing ? " does not exist: the locale \"C\" alone is known" : " cannot be read",
            isMissing ? "Put one there, or set " + variable + " to the home of the product"
                      : "Let this user read it");
    }
}

// ---- The subcommand ---------------------------------------------------------------------------------------

Findings examine() {
    Findings findings;
    lookAtVariables(findings);
    DirectoryCheck directories(findings);
    directories.run();
    lookAtLibraryPath(findings, directories);
    lookAtLocaleFile(findings, directories);
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& a, const Finding& b) { return a.severity < b.severity; });
    return findings;
}

const char* nameOf(Severity severity) { return severity == Severity::kError ? "error" : "warning"; }

Colour colourOf(Severity severity) { return severity == Severity::kError ? Colour::kRed : Colour::kYellow; }

std::size_t count(const Findings& findings, Severity severity) {
    return static_cast<std::size_t>(std::count_if(
        findings.begin(), findings.end(), [severity](const Finding& f) { return f.severity == severity; }));
}

std::string asText(const Findings& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        text += coloured(nameOf(finding.severity), colourOf(finding.severity)) + ": " + finding.message +
                "\n    " + finding.remedy + ".\n";
    }
    if (findings.empty()) {
        return "Nothing is missing, unreadable or unsafe.\n";
    }
    return text + '\n' + countText(count(findings, Severity::kError), "error") + ", " +
           countText(count(findings, Severity::kWarning), "warning") + ".\n";
}

std::string asJson(const Findings& findings) {
    JsonWriter json;
    json.beginObject().key("findings").beginArray();
    for (const Finding& finding : findings) {
        json.beginObject();
        json.key("severity").string(nameOf(finding.severity));
        json.key("variable");
        finding.variable.empty() ? json.null() : json.string(finding.variable);
        json.key("message").string(finding.message);
        json.key("remedy").string(finding.remedy);
        json.endObject();
    }
    json.endArray();
    json.key("errors").number(static_cast<std::int64_t>(count(findings, Severity::kError)));
    json.key("warnings").number(static_cast<std::int64_t>(count(findings, Severity::kWarning)));
    json.endObject();
    return json.text();
}

} // namespace

Subcommand addDoctor(CLI::App& app) {
    const auto isJson = std::make_shared<bool>(false);
    CLI::App& command =
        *app.add_subcommand("doctor", "Find what is missing, unreadable or unsafe around the library.");
    command.add_flag("--json", *isJson, "As JSON");
    command.footer(kFooter);
    return {&command, [isJson] {
                const Findings findings = examine();
                printData(*isJson ? asJson(findings) : terminalText(asText(findings)));
                return findings.empty() ? kDone : kFindings;
            }};
}

} // namespace brimtool
