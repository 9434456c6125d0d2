#pragma once

#include <sys/stat.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

/// One copy of a file or of a directory tree: the work of QMFileSys::Copy, whose header tells what is logged. No
/// copy ever writes into its own source.
class QMFileCopy {
public:
    QMFileCopy(bool failIfDestinationExists, bool doSyncToDisk)
        : failIfExists(failIfDestinationExists), doSync(doSyncToDisk) {}

    /// Called once. On failure errno holds the reason. Never throws.
    bool Copy(const char* src, const char* dst);

    /// Whether this copy, and nobody else, made what is at `dst` itself. Known only with failIfExists.
    bool hasMadeDestination() const { return madeDestination; }

    /// The steps of Copy. They may throw std::bad_alloc. A null `dst` of a directory logs "dst is NULL!\n".
    bool copyFile(const char* src, const char* dst);
    bool copyDirectory(const char* src, const char* dst);

private:
    using FileId = std::pair<dev_t, ino_t>;

    bool copyChecked(const char* src, const char* dst);
    bool copyTree(const char* src, const char* dst);
    bool makeTarget(const char* dst);
    bool isOwnTarget(const char* directory) const;
    bool copyEntries(const std::string& from, const std::string& to, const std::string& below,
                     std::vector<std::string>& pending);
    int openDestination(const char* dst, const struct stat& source);
    bool copyContents(int source, int destination, const char* src, const char* dst) const;

    // Fixed.
    const bool failIfExists;
    const bool doSync;
    // Of the running copy.
    bool isWithinTree = false;
    bool madeDestination = false;
    std::set<FileId> targets;  // the directories copied into; none of them is a source
};
