#include "CodePageNames.h"

#include <cstddef>

namespace sup {

namespace {

struct NamedCodePage {
    std::string_view name; // letters and digits only, lower case
    int codePage;
};

constexpr NamedCodePage kNames[] = {
    {"utf8", 65001},       {"cp65001", 65001},  {"utf16be", 1200},    {"utf16le", 1201},
    {"iso88591", 28591},   {"latin1", 28591},   {"l1", 28591},        {"iso88592", 28592},
    {"latin2", 28592},     {"l2", 28592},       {"iso88593", 28593},  {"latin3", 28593},
    {"l3", 28593},         {"iso88596", 28596}, {"arabic", 28596},    {"iso88597", 28597},
    {"greek", 28597},      {"iso88598", 38598}, {"iso88598i", 38598}, {"hebrew", 38598},
    {"iso885915", 285915}, {"latin9", 285915},  {"cp1252", 1252},     {"windows1252", 1252},
    {"ansix341968", 1252}, // the C library's name for the code set of the "C" locale
    {"usascii", 1252},     {"ascii", 1252},
};

constexpr std::size_t kLongestName = 16;

} // namespace

int codePageOfName(std::string_view name) noexcept {
    char folded[kLongestName];
    std::size_t length = 0;
    for (const char c : name) {
        const bool upper = c >= 'A' && c <= 'Z';
        if (!upper && !(c >= 'a' && c <= 'z') && !(c >= '0' && c <= '9')) {
            continue;
        }
        if (length == kLongestName) {
            return -1;
        }
        folded[length++] = upper ? static_cast<char>(c - 'A' + 'a') : c;
    }
    for (const NamedCodePage& known : kNames) {
        if (known.name == std::string_view(folded, length)) {
            return known.codePage;
        }
    }
    return -1;
}

} // namespace sup
