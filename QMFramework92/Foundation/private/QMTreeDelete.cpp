#include "Foundation/private/QMTreeDelete.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Diagnostics/QMLog.h"
#include "Foundation/QMDescriptor.h"
#include "Foundation/private/QMFileKinds.h"

namespace {

constexpr std::size_t kMaxOpenLevels = 16;
constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

QMOpenDirectory openDirectory(int parent, const char* name) {
    QMDescriptor descriptor(openat(parent, name, kOpenFlags));
    QMOpenDirectory directory(descriptor.isValid() ? fdopendir(descriptor.get()) : nullptr);
    if (directory != nullptr) {
        descriptor.release();
    }
    return directory;
}

}  // namespace

bool QMTreeDelete::run() {
    struct stat status {};
    if (lstat(top.c_str(), &status) != 0) {
        return failed(nullptr, "lstat()");
    }
    if (S_ISLNK(status.st_mode)) {
        return removeTopLink();
    }
    if (!enter(AT_FDCWD, top.c_str())) {
        return false;
    }
    while (!levels.empty()) {
        errno = 0;
        const dirent* entry = readdir(levels.back().directory.get());
        if (entry == nullptr && errno != 0) {
            return failed(nullptr, "readdir()");
        }
        const bool done = entry == nullptr ? leave() : removeEntry(entry->d_name);
        if (!done) {
            return false;
        }
    }
    return true;
}

bool QMTreeDelete::removeTopLink() {
    struct stat target {};
    if (stat(top.c_str(), &target) != 0) {
        return failed(nullptr, "stat()");
    }
    if (!S_ISDIR(target.st_mode)) {
        errno = ENOTDIR;
        return failed(nullptr, "opendir()");
    }
    return unlink(top.c_str()) == 0 || failed(nullptr, "remove()");
}

bool QMTreeDelete::enter(int parent, const char* name) {
    Level level{name, 0, 0, openDirectory(parent, name)};
    struct stat status {};
    if (level.directory == nullptr || fstat(dirfd(level.directory.get()), &status) != 0) {
        const bool isTop = levels.empty();
        return (errno == ENOENT && !isTop) || failed(isTop ? nullptr : name, "opendir()");
    }
    level.device = status.st_dev;
    level.inode = status.st_ino;
    levels.push_back(std::move(level));
    if (levels.size() > kMaxOpenLevels) {
        levels[levels.size() - kMaxOpenLevels - 1].directory.reset();
    }
    return true;
}

bool QMTreeDelete::removeEntry(const char* name) {
    if (qm_IsDotOrDotDot(name)) {
        return true;
    }
    const int parent = dirfd(levels.back().directory.get());
    struct stat status {};
    if (fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT || failed(name, "lstat()");
    }
    if (S_ISDIR(status.st_mode)) {
        return enter(parent, name);
    }
    return unlinkat(parent, name, 0) == 0 || errno == ENOENT || failed(name, "remove()");
}

bool QMTreeDelete::leave() {
    if (levels.size() == 1) {
        levels.clear();
        return rmdir(top.c_str()) == 0 || errno == ENOENT || failed(nullptr, "remove()");
    }
    if (!reopenParent()) {
        return failed(nullptr, "opendir()");
    }
    const std::string name = std::move(levels.back().name);
    levels.pop_back();
    const int parent = dirfd(levels.back().directory.get());
    return unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT ||
           failed(name.c_str(), "remove()");
}

/// Opens the directory above the deepest one again if it was closed on the way down. One that is not the same any
/// more, because the tree was moved meanwhile, is left alone.
bool QMTreeDelete::reopenParent() {
    Level& parent = levels[levels.size() - 2];
    if (parent.directory != nullptr) {
        return true;
    }
    QMOpenDirectory reopened = openDirectory(dirfd(levels.back().directory.get()), "..");
    struct stat status {};
    if (reopened == nullptr || fstat(dirfd(reopened.get()), &status) != 0) {
        return false;
    }
    if (status.st_dev != parent.device || status.st_ino != parent.inode) {
        errno = ESTALE;
        return false;
    }
    parent.directory = std::move(reopened);
    return true;
}

/// Logs the failing call with the path of `name` in the deepest directory, or of that directory itself.
bool QMTreeDelete::failed(const char* name, const char* call) const {
    const int error = errno;
    std::string path = top;
    for (std::size_t i = 1; i < levels.size(); ++i) {
        path += '/' + levels[i].name;
    }
    if (name != nullptr) {
        path.append("/").append(name);
    }
    errno = error;
    qm_LogStdError(QM_SOURCE_PATH, "DeleteDirectory", __LINE__, ", path[%s], %s\n", path.c_str(), call);
    return false;
}
