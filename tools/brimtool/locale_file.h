// A locale configuration file (SUPBuildMap.h tells its format) with the line of each entry, and with what the
// library ignores or takes otherwise than it is written.
#pragma once

#include "Utility/Generic/Portable/SUPBuildMap.h"

#include <cstddef>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace brimtool {

/// A file that is no XML document.
class LocaleFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct LocaleFinding {
    enum class Kind {
        kProblem,
        kNote,         ///< no fault of the file
        kNotInstalled, ///< a note: a system locale that this system lacks
    };

    Kind kind;
    std::size_t line;
    std::string text;
};

/// Texts are UTF-8. The maps have the keys of the library's own maps.
struct LocaleFile {
    struct Locale {
        std::string name;
        std::string systemLocale;
        std::string codePage;
        std::size_t line;
        bool isInstalled;
    };
    struct NameAndNumber {
        std::string name;
        long number;
        std::size_t line;
    };
    using ByName = std::map<BrimString, NameAndNumber, CaseInsBrimStringLessFunctor>;

    std::map<sup::String<char>, Locale, sup::NarrowStringLess> locales;
    ByName charsets;                                     ///< name and code page
    std::map<unsigned int, NameAndNumber> sortLanguages; ///< by sort locale id
    ByName sortNames;                                    ///< name and sort locale id
    std::map<int, NameAndNumber> iconvNames;             ///< iconv's name and the code page
    std::vector<LocaleFinding> findings;                 ///< in the order of their lines

    std::size_t problems() const;
};

/// `bytes` are all of a file. Throws LocaleFileError for what the library would not parse; nothing goes to
/// the error-message manager.
LocaleFile parseLocaleFile(const std::string& bytes);

bool isInstalledLocale(const std::string& systemLocale);

} // namespace brimtool
