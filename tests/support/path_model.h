// Paths as CleanupPath() makes them.
#pragma once

#include <cstddef>
#include <string>

namespace brimtest {

/// Each "//" made a "/", in one pass, and one "/" taken off the end.
template <class T>
std::basic_string<T> cleanedPath(const std::basic_string<T>& path) {
    constexpr T kSlash = '/';
    std::basic_string<T> result;
    for (std::size_t i = 0; i < path.size(); ++i) {
        result += path[i];
        if (path[i] == kSlash && i + 1 < path.size() && path[i + 1] == kSlash) {
            ++i;
        }
    }
    if (!result.empty() && result.back() == kSlash) {
        result.pop_back();
    }
    return result;
}

} // namespace brimtest
