#include "Foundation/QMFileSys.h"

#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "Diagnostics/QMCallStack.h"
#include "Diagnostics/QMLog.h"
#include "Foundation/private/QMDirectoryMaker.h"
#include "Foundation/private/QMFileCopy.h"
#include "Foundation/private/QMFileKinds.h"
#include "Foundation/private/QMTreeDelete.h"

namespace {

constexpr int kFramesShown = 10;

/// The path without the slashes at its end; the root keeps one.
std::string withoutTrailingSlashes(const char* path) {
    std::string text(path);
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

/// Whether a tree could never be deleted whole: its top would stay when all below it is gone.
bool isLastingDirectory(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string last = slash == std::string::npos ? path : path.substr(slash + 1);
    return last.empty() || qm_IsDotOrDotDot(last.c_str());
}

/// Deletes what a failed move made. Its lines follow the one that says why.
void deleteMade(const char* dst) {
    struct stat status {};
    if (lstat(dst, &status) == 0 && S_ISDIR(status.st_mode)) {
        QMFileSys::DeleteDirectory(dst, false);
    } else if (remove(dst) != 0) {
        qm_LogStdError(QM_SOURCE_PATH, "Move", __LINE__, ", path[%s], remove()\n", dst);
    }
}

}  // namespace

bool QMFileSys::GetDiskFreeSpace(const QMPath& path, QMDiskSpace& space) {
    if (path.isEmpty()) {
        return false;
    }
    struct statfs status {};
    if (statfs(path.get(), &status) != 0) {
        QM_LOG_STD_ERROR(", path[%s], statfs()\n", path.get());
        return false;
    }
    const auto blockSize = static_cast<std::uint64_t>(status.f_bsize);
    space = {status.f_bavail * blockSize, status.f_blocks * blockSize, status.f_bfree * blockSize};
    return true;
}

int QMFileSys::chkAttribute(const QMPath& path) {
    if (path.isEmpty()) {
        return kNone;
    }
    struct stat status {};
    if (stat(path.get(), &status) != 0) {
        if (errno != ENOENT) {
            QM_LOG_STD_ERROR(", path[%s], stat()\n", path.get());
        }
        return kNone;
    }
    return qm_KindOf(status.st_mode);
}

bool QMFileSys::Delete(const QMPath& path, bool doSync) {
    if (path.isEmpty()) {
        return false;
    }
    if (chkAttribute(path) != kFile) {
        QM_LOG_ERROR("this is not file [%s]\n", path.get());
        QMCallStack::dumpDirectly(kFramesShown);
        errno = EINVAL;
        return false;
    }
    if (remove(path.get()) != 0) {
        QM_LOG_STD_ERROR(", path[%s], remove()\n", path.get());
        return false;
    }
    if (doSync) {
        sync();
    }
    return true;
}

bool QMFileSys::CreateDirectory(const QMPath& path, bool doSync) {
    return qm_MakeDirectory(path.get(), doSync) != QMMadeDirectory::kFailed;
}

bool QMFileSys::Copy(const QMPath& src, const QMPath& dst, bool failIfExists, bool doSync) {
    return QMFileCopy(failIfExists, doSync).Copy(src.get(), dst.get());
}

bool QMFileSys::Move(const QMPath& src, const QMPath& dst) {
    if (src.isEmpty() || dst.isEmpty()) {
        return false;
    }
    if (qm_IsTaken(dst.get())) {
        QM_LOG_ERROR("[%s] is already exist.\n", dst.get());
        return false;
    }
    QMFileCopy copy(true, true);
    if (!copy.Copy(src.get(), dst.get())) {
        QM_LOG_STD_ERROR("dst [%s]\n", dst.get());
        if (copy.hasMadeDestination()) {
            deleteMade(dst.get());
        }
        return false;
    }
    const bool isDeleted = chkAttribute(src) == kDirectory ? DeleteDirectory(src, false) : Delete(src, false);
    if (!isDeleted) {
        QM_LOG_STD_ERROR("src [%s]\n", src.get());
        return false;
    }
    sync();
    return true;
}

bool QMFileSys::DeleteDirectory(const QMPath& path, bool doSync) {
    if (path.isEmpty()) {
        return false;
    }
    try {
        std::string top = withoutTrailingSlashes(path.get());
        if (isLastingDirectory(top)) {
            QM_LOG_ERROR("invalid args\n");
            errno = EINVAL;
            return false;
        }
        if (!QMTreeDelete(std::move(top)).run()) {
            return false;
        }
    } catch (const std::exception&) {
        errno = ENOMEM;
        QM_LOG_STD_ERROR_SHORT();
        return false;
    }
    if (doSync) {
        sync();
    }
    return true;
}

bool QMFileSys::FindFirst(QMFindHandle& handle, const QMPath& pathWithPattern, QMFoundEntry& entry) {
    FindClose(handle);
    handle.incomplete = false;
    if (pathWithPattern.isEmpty()) {
        return false;
    }
    try {
        return handle.open(pathWithPattern.get()) && FindNext(handle, entry);
    } catch (const std::exception&) {
        handle.incomplete = true;
        errno = ENOMEM;
        QM_LOG_STD_ERROR_SHORT();
        return false;
    }
}

bool QMFileSys::FindNext(QMFindHandle& handle, QMFoundEntry& entry) {
    try {
        return handle.next(entry);
    } catch (const std::exception&) {
        handle.incomplete = true;
        errno = ENOMEM;
        QM_LOG_STD_ERROR_SHORT();
        return false;
    }
}

void QMFileSys::FindClose(QMFindHandle& handle) {
    handle.close();
}
