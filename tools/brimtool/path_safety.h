// Whether another user can put something of his own in the place of a file or directory.
#pragma once

#include <string>
#include <vector>

namespace brimtool {

struct UnsafePlace {
    std::string path; ///< the directory or file that is unsafe
    std::string why;
    std::string remedy;
};

/// What is unsafe on the way down to the absolute `path`, that included, as far as it exists: a directory
/// that everybody may write into without the sticky bit, a file that everybody may write, and, in a directory
/// that everybody may write into, what belongs to somebody else than this process's user or root. Symbolic
/// links are looked at and followed.
std::vector<UnsafePlace> findUnsafePlaces(const std::string& path);

} // namespace brimtool
