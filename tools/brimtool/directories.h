// The directory layout as the library resolves it, with what each directory comes from.
#pragma once

#include "Utility/Generic/Portable/SUPString.h"

#include <array>
#include <span>
#include <string>
#include <vector>

namespace brimtool {

/// One thing that a directory may come from.
struct Source {
    const char* variable;     ///< null for a source that is a directory
    const char* directory;    ///< the name of another row; null for a variable
    const char* alsoVariable; ///< a variable whose value is a part of the path too, when it is set
    bool mustBeReal;          ///< counts only when it is not empty (a variable) or no fallback (a directory)
};

enum class Use {
    kInstalled, ///< comes with the product and is read
    kData,      ///< has to be there, and components write into it
    kMade,      ///< a component makes it when it starts, with its parents, and writes into it
};

/// A directory operation of SystemUtility.
struct Directory {
    const char* name;
    const char* operation;
    bool (*resolve)(BrimString& path);
    std::array<Source, 4> sources; ///< the first that counts decides; when none does, a path that is built in
    bool isBuiltInUnlessReal;      ///< a source that does not lead to a directory gives the built-in path
    Use use;
};

struct ResolvedDirectory {
    const Directory* directory;
    BrimString path;
    bool isReal;                        ///< the operation's result
    const ResolvedDirectory* base;      ///< what it derives from; null for nothing
    std::vector<std::string> variables; ///< that decide it, by way of what it derives from too
    std::string from;                   ///< all this in words

    /// The path as the system takes it.
    std::string systemPath() const;
};

std::span<const Directory> allDirectories();

/// All of them, a base before what derives from it. The objects live until exit; each operation is called
/// once, since some answer differently later.
const std::vector<ResolvedDirectory>& resolvedDirectories();

} // namespace brimtool
