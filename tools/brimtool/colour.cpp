#include "colour.h"

#include "standard_streams.h"

#include <cstdlib>
#include <unistd.h>

namespace brimtool {

namespace {

bool showsColours() {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb" && ::isatty(dataOutput()) == 1;
}

} // namespace

std::string coloured(std::string_view word, Colour colour) {
    static const bool isShown = showsColours();
    std::string text(word);
    return isShown ? "\033[" + std::to_string(static_cast<int>(colour)) + "m" + text + "\033[0m" : text;
}

} // namespace brimtool
