#include "Foundation/private/QMCopyPaths.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "Foundation/QMDescriptor.h"

namespace {

constexpr int kPlaceOnly = O_PATH | O_DIRECTORY | O_CLOEXEC;

bool isSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Cuts the last component off `path`. @return where it starts, or null when there is none left.
char* cutLast(char* path) {
    std::size_t end = std::strlen(path);
    while (end > 0 && path[end - 1] == '/') {
        path[--end] = '\0';
    }
    char* slash = std::strrchr(path, '/');
    return end == 0 ? nullptr : slash == nullptr ? path : slash + 1;
}

/// The deepest directory of `path` that exists. Empty when a component below it is "..": where that will lead is not
/// known before it is made.
QMDescriptor openDeepestExisting(char* path) {
    const char* const start = *path == '/' ? "/" : ".";
    QMDescriptor place(open(path, kPlaceOnly));
    while (!place.isValid()) {
        char* const last = cutLast(path);
        if (last == nullptr) {
            return QMDescriptor(open(start, kPlaceOnly));
        }
        if (std::strcmp(last, "..") == 0) {
            errno = EINVAL;
            return {};
        }
        *last = '\0';
        place.reset(open(*path == '\0' ? start : path, kPlaceOnly));
    }
    return place;
}

/// Whether `directory` is `place` or above it.
bool isAbove(const struct stat& directory, QMDescriptor place) {
    for (;;) {
        struct stat here {};
        if (!place.isValid() || fstat(place.get(), &here) != 0 || isSame(here, directory)) {
            return true;
        }
        QMDescriptor parent(openat(place.get(), "..", kPlaceOnly));
        struct stat above {};
        if (parent.isValid() && fstat(parent.get(), &above) == 0 && isSame(above, here)) {
            return false;
        }
        place = std::move(parent);
    }
}

}  // namespace

bool qm_LeadsIntoItself(const char* src, const char* dst) {
    struct stat source {};
    struct stat destination {};
    if (stat(src, &source) != 0) {
        return false;
    }
    if (stat(dst, &destination) == 0 && isSame(source, destination)) {
        return true;
    }
    std::array<char, PATH_MAX> path{};
    const std::size_t length = std::strlen(dst);
    if (!S_ISDIR(source.st_mode) || length >= path.size()) {
        return false;
    }
    std::memcpy(path.data(), dst, length);
    return isAbove(source, openDeepestExisting(path.data()));
}
