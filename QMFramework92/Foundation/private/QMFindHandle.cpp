#include "Foundation/QMFindHandle.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "Diagnostics/QMLog.h"
#include "Foundation/QMFileSys.h"
#include "Foundation/private/QMFileKinds.h"
#include "Foundation/private/QMNamePattern.h"

void QMDirectoryCloser::operator()(DIR* directory) const {
    const int savedErrno = errno;
    closedir(directory);
    errno = savedErrno;
}

bool QMFindHandle::open(const char* pathWithPattern) {
    const char* slash = std::strrchr(pathWithPattern, '/');
    if (slash == nullptr) {
        path = ".";
        pattern = pathWithPattern;
    } else {
        // The directory of a pattern in the root is the root itself.
        path.assign(pathWithPattern, slash == pathWithPattern ? slash + 1 : slash);
        pattern = slash + 1;
    }
    directory.reset(opendir(path.c_str()));
    incomplete = directory == nullptr;
    if (incomplete) {
        qm_LogStdError(QM_SOURCE_PATH, "FindFirst", __LINE__, ", path[%s], opendir()\n", path.c_str());
    }
    return !incomplete;
}

bool QMFindHandle::next(QMFoundEntry& entry) {
    while (isOpen()) {
        errno = 0;
        const dirent* found = readdir(directory.get());
        if (found == nullptr) {
            if (errno != 0) {
                incomplete = true;
                qm_LogStdError(QM_SOURCE_PATH, "FindNext", __LINE__, ", path[%s], readdir()\n", path.c_str());
            }
            return false;
        }
        if (isWanted(found->d_name)) {
            entry.name = found->d_name;
            entry.kind = kindOf(found->d_type, found->d_name);
            return true;
        }
    }
    return false;
}

void QMFindHandle::close() {
    directory.reset();
}

bool QMFindHandle::isWanted(const char* name) const {
    return !qm_IsDotOrDotDot(name) && !(hideHidden && qm_IsHiddenName(name)) &&
           qm_MatchesPattern(name, pattern.c_str());
}

int QMFindHandle::kindOf(unsigned char type, const char* name) const {
    if (type == DT_REG) {
        return QMFileSys::kFile;
    }
    if (type == DT_DIR) {
        return QMFileSys::kDirectory;
    }
    qm_Log(QM_SOURCE_PATH, "FindNext", __LINE__, QM_LOG_LEVEL_ERROR, "error d_type[%d][%s]\n", type, name);
    struct stat status {};
    // Some file systems report no types; the entry itself then tells. A link stays a link.
    if (type != DT_UNKNOWN || fstatat(dirfd(directory.get()), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return QMFileSys::kNone;
    }
    return qm_KindOf(status.st_mode);
}
