#pragma once

#include <dirent.h>

#include <memory>
#include <string>

/// Closes a directory stream; errno stays as it was.
struct QMDirectoryCloser {
    void operator()(DIR* directory) const;
};

/// Owner of an open directory.
using QMOpenDirectory = std::unique_ptr<DIR, QMDirectoryCloser>;

/// One entry that a directory search found.
struct QMFoundEntry {
    std::string name;  ///< the name within its directory, byte for byte
    int kind = 0;      ///< as QMFileSys::chkAttribute: 32 file, 4 directory, 0 anything else
};

/// The state of one directory search: the open directory, its path, the pattern of the names that are wanted, and
/// whether hidden names are left out. QMFileSys::FindFirst fills it, FindNext goes on, FindClose or the end of
/// the handle closes the directory; a new FindFirst closes the one before.
///
/// A value of one thread. Move-only: a handle that was moved from is a closed one.
class QMFindHandle {
public:
    /// `hideHiddenNames` leaves out what starts with a dot (".DS_Store", "._a", ".git") and every name whose
    /// extension, after its last ".", is exactly "CHK".
    explicit QMFindHandle(bool hideHiddenNames = false) : hideHidden(hideHiddenNames) {}

    bool isOpen() const { return directory != nullptr; }

    /// Whether the search ended before the directory did, for a reason that was logged: what was found is then
    /// not all there is. Until the next FindFirst.
    bool isIncomplete() const { return incomplete; }

private:
    friend class QMFileSys;

    bool open(const char* pathWithPattern);
    bool next(QMFoundEntry& entry);
    void close();
    bool isWanted(const char* name) const;
    int kindOf(unsigned char type, const char* name) const;

    bool hideHidden;
    QMOpenDirectory directory;
    std::string path;
    std::string pattern;
    bool incomplete = false;
};
