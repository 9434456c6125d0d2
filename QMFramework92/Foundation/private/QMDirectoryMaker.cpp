#include "Foundation/private/QMDirectoryMaker.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "Diagnostics/QMLog.h"

namespace {

constexpr mode_t kDirectoryMode = 0777;

QMMadeDirectory failed(const char* path, int error) {
    errno = error;
    qm_LogStdError(QM_SOURCE_PATH, "CreateDirectory", __LINE__, "[%s]\n", path);
    return QMMadeDirectory::kFailed;
}

/// Makes the last component alone and logs nothing. On failure errno holds the reason.
QMMadeDirectory makeLast(const char* path, bool doSync) {
    if (mkdir(path, kDirectoryMode) == 0) {
        if (doSync) {
            sync();
        }
        return QMMadeDirectory::kMade;
    }
    const int error = errno;
    struct stat status {};
    if (error == EEXIST && stat(path, &status) == 0 && S_ISDIR(status.st_mode)) {
        return QMMadeDirectory::kExisted;
    }
    errno = error;
    return QMMadeDirectory::kFailed;
}

}  // namespace

QMMadeDirectory qm_MakeDirectory(const char* path, bool doSync) {
    if (path == nullptr || *path == '\0') {
        qm_Log(QM_SOURCE_PATH, "CreateDirectory", __LINE__, QM_LOG_LEVEL_ERROR, "invalid arg\n");
        errno = EINVAL;
        return QMMadeDirectory::kFailed;
    }
    std::array<char, PATH_MAX> prefix{};
    const std::size_t length = std::strlen(path);
    if (length >= prefix.size()) {
        // Nothing is made of a path that cannot be made whole.
        return failed(path, ENAMETOOLONG);
    }
    // Most often all but the last component is there. From the root down it goes only where that fails, so that
    // the component that cannot be made is the one that is logged.
    auto made = path[length - 1] == '/' ? QMMadeDirectory::kFailed : makeLast(path, doSync);
    if (made != QMMadeDirectory::kFailed) {
        return made;
    }
    made = QMMadeDirectory::kExisted;
    for (std::size_t i = 0; i < length; ++i) {
        prefix[i] = path[i];
        const bool endsComponent = path[i] != '/' && (path[i + 1] == '/' || path[i + 1] == '\0');
        if (endsComponent) {
            made = makeLast(prefix.data(), doSync);
        }
        if (made == QMMadeDirectory::kFailed) {
            return failed(prefix.data(), errno);
        }
    }
    return made;
}
