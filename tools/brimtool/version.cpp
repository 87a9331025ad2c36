#include "version.h"

#include <dlfcn.h>

namespace brimtool {

// Looked up at run time, so that the library can be replaced by one whose text has another length.
std::string libraryVersion() {
    const auto* const text = static_cast<const char*>(::dlsym(RTLD_DEFAULT, "brimportable_version"));
    const std::string version = text == nullptr ? "unknown" : text;
    constexpr const char* kMark = "@(#)";
    return version.rfind(kMark, 0) == 0 ? version.substr(4) : version;
}

} // namespace brimtool
