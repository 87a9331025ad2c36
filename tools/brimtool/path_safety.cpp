#include "path_safety.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brimtool {

namespace {

std::string nameOf(uid_t user) {
    const passwd* const entry = ::getpwuid(user);
    return entry == nullptr ? "user " + std::to_string(user) : entry->pw_name;
}

bool isOpenToAll(const struct stat& status) {
    return !S_ISLNK(status.st_mode) && (status.st_mode & S_IWOTH) != 0;
}

// Without following links.
void walk(const std::string& path, std::vector<UnsafePlace>& places) {
    bool isInOpenDirectory = false;
    for (std::size_t end = 1; end != std::string::npos;) {
        const std::string place = path.substr(0, end);
        struct stat status {};
        if (::lstat(place.c_str(), &status) != 0) {
            return;
        }
        if (isInOpenDirectory && status.st_uid != ::geteuid() && status.st_uid != 0) {
            places.push_back({place,
                              "belongs to " + nameOf(status.st_uid) +
                                  ", in a directory that everybody may "
                                  "write into",
                              "Do not use it, or have its owner changed"});
        }
        isInOpenDirectory = isOpenToAll(status);
        if (isInOpenDirectory && S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) == 0) {
            places.push_back({place, "is a directory that everybody may write into, without the sticky bit",
                              "Take the permission away: chmod o-w " + place});
        } else if (isInOpenDirectory && S_ISREG(status.st_mode)) {
            places.push_back({place, "is a file that everybody may write",
                              "Take the permission away: chmod o-w " + place});
        }
        const std::size_t begin = path.find_first_not_of('/', end);
        end = begin == std::string::npos ? begin : std::min(path.find('/', begin), path.size());
    }
}

} // namespace

std::vector<UnsafePlace> findUnsafePlaces(const std::string& path) {
    std::vector<UnsafePlace> places;
    walk(path, places);
    const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
    if (real != nullptr && path != real.get()) {
        walk(real.get(), places);
    }
    return places;
}

} // namespace brimtool
