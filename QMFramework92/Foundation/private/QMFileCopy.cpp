#include "Foundation/private/QMFileCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>

#include "Diagnostics/QMLog.h"
#include "Foundation/QMDescriptor.h"
#include "Foundation/QMFileSys.h"
#include "Foundation/private/QMCopyPaths.h"
#include "Foundation/private/QMDirectoryMaker.h"
#include "Foundation/private/QMFileKinds.h"

namespace {

constexpr std::size_t kBlockSize = 1024;
constexpr mode_t kFileMode = 0666;
// A FIFO or a terminal at either end must not hold up or take over the process.
constexpr int kSafeOpen = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

/// Opens a regular file for reading. What is none is not opened, as a FIFO's writer would notice that.
QMDescriptor openSource(const char* path, struct stat& status) {
    QMDescriptor source;
    if (stat(path, &status) != 0) {
        return source;
    }
    if (S_ISREG(status.st_mode)) {
        source.reset(open(path, O_RDONLY | kSafeOpen));
    }
    if (!S_ISREG(status.st_mode) ||
        (source.isValid() && (fstat(source.get(), &status) != 0 || !S_ISREG(status.st_mode)))) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        source.reset();
    }
    return source;
}

ssize_t readBlock(int descriptor, std::array<char, kBlockSize>& block) {
    ssize_t count;
    do {
        count = read(descriptor, block.data(), block.size());
    } while (count < 0 && errno == EINTR);
    return count;
}

bool writeWhole(int descriptor, const char* data, std::size_t length) {
    while (length > 0) {
        const ssize_t count = write(descriptor, data, length);
        if (count == 0) {
            errno = ENOSPC;
        }
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return false;
        }
        if (count > 0) {
            data += count;
            length -= static_cast<std::size_t>(count);
        }
    }
    return true;
}

/// The directory that a file lies in: the text before the last "/". Empty when the root or no "/" is before it.
std::string parentOf(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? std::string() : std::string(path, slash);
}

std::string withoutLastSlashes(const char* path) {
    std::size_t length = std::strlen(path);
    while (length > 0 && path[length - 1] == '/') {
        --length;
    }
    return std::string(path, length);
}

/// Clears what kept the opening from waiting, and empties a file. False when `status` is nothing to write to.
bool prepareDestination(int descriptor, const struct stat& status) {
    if (S_ISREG(status.st_mode)) {
        return ftruncate(descriptor, 0) == 0;
    }
    if (!S_ISCHR(status.st_mode)) {
        errno = EINVAL;
        return false;
    }
    return fcntl(descriptor, F_SETFL, 0) == 0;
}

}  // namespace

bool QMFileCopy::Copy(const char* src, const char* dst) {
    try {
        return copyChecked(src, dst);
    } catch (const std::exception&) {
        errno = ENOMEM;
        QM_LOG_STD_ERROR_SHORT();
        return false;
    }
}

bool QMFileCopy::copyChecked(const char* src, const char* dst) {
    const bool isEmpty = src == nullptr || *src == '\0' || dst == nullptr || *dst == '\0';
    if (!isEmpty && failIfExists && qm_IsTaken(dst)) {
        qm_Log(QM_SOURCE_PATH, "Copy", __LINE__, QM_LOG_LEVEL_ERROR, "[%s] is already exist.\n", dst);
        errno = EEXIST;
        return false;
    }
    if (isEmpty || qm_LeadsIntoItself(src, dst)) {
        qm_Log(QM_SOURCE_PATH, "Copy", __LINE__, QM_LOG_LEVEL_ERROR, "invalid args\n");
        errno = EINVAL;
        return false;
    }
    return QMFileSys::chkAttribute(src) == QMFileSys::kDirectory ? copyTree(src, dst) : copyFile(src, dst);
}

bool QMFileCopy::copyTree(const char* src, const char* dst) {
    const QMMadeDirectory made = qm_MakeDirectory(dst, doSync);
    madeDestination = made == QMMadeDirectory::kMade;
    if (made == QMMadeDirectory::kExisted && failIfExists) {
        qm_Log(QM_SOURCE_PATH, "Copy", __LINE__, QM_LOG_LEVEL_ERROR, "already exist [%s]\n", dst);
        errno = EEXIST;
        return false;
    }
    return made != QMMadeDirectory::kFailed && copyDirectory(src, dst);
}

bool QMFileCopy::copyFile(const char* src, const char* dst) {
    if (failIfExists && qm_IsTaken(dst)) {
        QM_LOG_ERROR("already exist [%s]\n", dst);
        errno = EEXIST;
        return false;
    }
    const std::string parent = parentOf(dst);
    // A name that ends in "/" is no file's, and nothing is made for it.
    const bool namesFile = *dst != '\0' && dst[std::strlen(dst) - 1] != '/';
    if (namesFile && !parent.empty() && !QMFileSys::CreateDirectory(parent.c_str(), true)) {
        return false;
    }
    struct stat status {};
    const QMDescriptor source = openSource(src, status);
    if (!source.isValid()) {
        QM_LOG_ERROR("failed to open [%s]\n", src);
        QM_LOG_STD_ERROR_SHORT();
        return false;
    }
    QMDescriptor destination(openDestination(dst, status));
    if (!destination.isValid()) {
        return false;
    }
    if (!copyContents(source.get(), destination.get(), src, dst)) {
        return false;
    }
    if ((doSync && fsync(destination.get()) != 0 && errno != EINVAL) || close(destination.release()) != 0) {
        QM_LOG_ERROR("failed to write [%s]\n", dst);
        return false;
    }
    if (doSync) {
        sync();
    }
    return true;
}

int QMFileCopy::openDestination(const char* dst, const struct stat& source) {
    // Emptied only once it is known not to be the source itself.
    const int flags = O_WRONLY | O_CREAT | kSafeOpen | (failIfExists ? O_EXCL : 0);
    QMDescriptor destination(open(dst, flags, kFileMode));
    madeDestination = madeDestination || (destination.isValid() && failIfExists && !isWithinTree);
    struct stat status {};
    if (destination.isValid() && fstat(destination.get(), &status) == 0) {
        if (status.st_dev == source.st_dev && status.st_ino == source.st_ino) {
            qm_Log(QM_SOURCE_PATH, "copyFile", __LINE__, QM_LOG_LEVEL_ERROR, "invalid args\n");
            errno = EINVAL;
            return QMDescriptor::kNone;
        }
        if (prepareDestination(destination.get(), status)) {
            return destination.release();
        }
    }
    qm_Log(QM_SOURCE_PATH, "copyFile", __LINE__, QM_LOG_LEVEL_ERROR, "failed to open [%s]\n", dst);
    return QMDescriptor::kNone;
}

bool QMFileCopy::copyContents(int source, int destination, const char* src, const char* dst) const {
    std::array<char, kBlockSize> block;
    ssize_t count;
    while ((count = readBlock(source, block)) > 0) {
        if (!writeWhole(destination, block.data(), static_cast<std::size_t>(count))) {
            qm_Log(QM_SOURCE_PATH, "copyFile", __LINE__, QM_LOG_LEVEL_ERROR, "failed to write [%s]\n", dst);
            return false;
        }
    }
    if (count < 0) {
        qm_Log(QM_SOURCE_PATH, "copyFile", __LINE__, QM_LOG_LEVEL_ERROR, "failed to read [%s]\n", src);
        return false;
    }
    return true;
}

bool QMFileCopy::copyDirectory(const char* src, const char* dst) {
    if (dst == nullptr) {
        QM_LOG_ERROR("dst is NULL!\n");
        errno = EINVAL;
        return false;
    }
    isWithinTree = true;
    const std::string from = withoutLastSlashes(src);
    const std::string to = withoutLastSlashes(dst);
    // One directory after the other instead of one within the other: depth costs neither stack nor descriptors.
    std::vector<std::string> pending;
    pending.emplace_back();
    if (!makeTarget(dst)) {
        return false;
    }
    while (!pending.empty()) {
        const std::string below = std::move(pending.back());
        pending.pop_back();
        if (!copyEntries(from, to, below, pending)) {
            return false;
        }
    }
    return true;
}

/// Creates a directory to copy into, and remembers it.
bool QMFileCopy::makeTarget(const char* dst) {
    struct stat status {};
    if (!QMFileSys::CreateDirectory(dst, doSync) || stat(dst, &status) != 0) {
        return false;
    }
    targets.insert({status.st_dev, status.st_ino});
    return true;
}

/// A link or a mount can make a directory of the destination appear below the source; copied, it would never end.
bool QMFileCopy::isOwnTarget(const char* directory) const {
    struct stat status {};
    return stat(directory, &status) == 0 && targets.count({status.st_dev, status.st_ino}) != 0;
}

bool QMFileCopy::copyEntries(const std::string& from, const std::string& to, const std::string& below,
                             std::vector<std::string>& pending) {
    if (isOwnTarget((from + below + "/").c_str())) {
        qm_Log(QM_SOURCE_PATH, "copyDirectory", __LINE__, QM_LOG_LEVEL_ERROR, "invalid args\n");
        errno = EINVAL;
        return false;
    }
    QMFindHandle handle;
    QMFoundEntry entry;
    const std::string pattern = from + below + "/*";
    for (bool found = QMFileSys::FindFirst(handle, pattern.c_str(), entry); found;
         found = QMFileSys::FindNext(handle, entry)) {
        const std::string child = below + "/" + entry.name;
        const std::string target = to + child;
        if (entry.kind == QMFileSys::kFile) {
            if (!copyFile((from + child).c_str(), target.c_str())) {
                return false;
            }
        } else if (entry.kind == QMFileSys::kDirectory) {
            if (!makeTarget(target.c_str())) {
                return false;
            }
            pending.push_back(child);
        } else {
            // What the search could not name, it has logged.
            errno = ENOTSUP;
            return false;
        }
    }
    return !handle.isIncomplete();
}
