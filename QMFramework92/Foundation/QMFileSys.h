#pragma once

#include <cstdint>

#include "Foundation/QMFindHandle.h"
#include "Foundation/QMPath.h"

/// The room of a file system, in bytes.
struct QMDiskSpace {
    std::uint64_t available;  ///< free for an ordinary user
    std::uint64_t total;
    std::uint64_t free;  ///< free for root
};

/// Operations on whole files and directories.
///
/// Each takes its paths as narrow, wide or framework strings (QMPath) and returns true on success. A failure is
/// logged here, at level error, with the texts named below ("std" marks those that carry errno and its text in
/// front); none throws, and nothing is retried. `doSync` has the system's buffers written to the disk (sync) after
/// the change. A relative path starts at the working directory. Paths have at most PATH_MAX - 1 bytes.
///
/// There is no state and no lock: any thread may call, and what others change meanwhile is seen as it is met.
///
///     QMFileSys::CreateDirectory("/Log/old", true);
///     QMFileSys::Move("/Log/trace.txt", "/Log/old/trace.txt");
class QMFileSys {
public:
    static constexpr int kFile = 32;
    static constexpr int kDirectory = 4;
    static constexpr int kNone = 0;

    /// Logs ", path[%s], statfs()\n" (std) and leaves `space` as it was; null and empty paths fail silently.
    static bool GetDiskFreeSpace(const QMPath& path, QMDiskSpace& space);

    /// What lies at the path, links followed: a regular file, a directory, or anything else and nothing. Logs
    /// ", path[%s], stat()\n" (std) when it cannot be told; a missing path is silent, and so is none.
    static int chkAttribute(const QMPath& path);

    /// Deletes a regular file, or a link that leads to one. Anything else, also a missing path, logs "this is not
    /// file [%s]\n" and ten stack frames; a failure logs ", path[%s], remove()\n" (std); null and empty paths fail
    /// silently.
    static bool Delete(const QMPath& path, bool doSync);

    /// Creates every missing directory of the path, the last one included, with the rights 0777 less the umask. What
    /// is there already is fine. A component that cannot be made, or is no directory, logs "[%s]\n" (std) with
    /// the path up to it, and those before it stay; a path that is too long makes none. No path: "invalid arg\n".
    static bool CreateDirectory(const QMPath& path, bool doSync);

    /// Copies a regular file (links to one followed), or a directory with all that is below it, and creates the
    /// directories above `dst`. A file is written over unless `failIfExists`; a directory is merged into one that
    /// exists. Rights and times are not copied. With `doSync` each file is on the disk before it counts as copied.
    ///
    /// The first failure ends the copy; what was copied until then stays:
    /// - "invalid args\n": no path, `dst` is `src` or lies in it (whatever links lead there);
    /// - "[%s] is already exist.\n": `failIfExists`, and anything at all is at `dst`; "already exist [%s]\n" where
    ///   something came to be there meanwhile;
    /// - "failed to open [%s]\n": the source, with the library's error on a line of its own, when it cannot be
    ///   opened or is not a regular file (devices, FIFOs: they are never waited for); or the destination;
    /// - "failed to read [%s]\n" with the source, "failed to write [%s]\n" with the destination, also when what
    ///   was written does not reach it at the end;
    /// - "error d_type[%d][%s]\n": an entry of a directory that is neither a file nor a directory (a link too);
    /// - those of CreateDirectory and FindFirst.
    static bool Copy(const QMPath& src, const QMPath& dst, bool failIfExists, bool doSync);

    /// A copy followed by a delete, never a rename, written to the disk at each step. The source is deleted only
    /// when all of it was copied. A `src` that is a link is replaced by a copy of what it leads to, which stays.
    ///
    /// - anything at all at `dst`: "[%s] is already exist.\n"; both stay;
    /// - a failed copy: its own lines, then "dst [%s]\n" (std); what this call made at `dst` is deleted again;
    /// - a source that cannot be deleted: its own lines, then "src [%s]\n" (std); the copy stays, whole;
    /// - null and empty paths fail silently.
    static bool Move(const QMPath& src, const QMPath& dst);

    /// Deletes a directory with all that is below it, however deep. Links in it are removed and never followed; if
    /// the path itself is a link to a directory, the link is removed alone. The first failure ends it and logs
    /// ", path[%s], CALL()\n" (std; CALL is lstat, stat, opendir, readdir or remove). The root, and a path that
    /// ends in "." or "..", is refused with "invalid args\n"; null and empty paths fail silently.
    static bool DeleteDirectory(const QMPath& path, bool doSync);

    /// Starts a search: what follows the last "/" is the pattern, what stands before it the directory ("." when
    /// there is no "/"). "*" in the pattern stands for any run of characters, "?" for any one; case counts. An
    /// empty pattern finds nothing. Closes the handle's former search.
    ///
    /// @return true with the first entry that matches, in the directory's own order; "." and ".." never do. False
    /// when none does, without a path (silently), or when the directory cannot be opened, which logs ", path[%s],
    /// opendir()\n" (std) with the directory. An entry that is neither file nor directory logs "error
    /// d_type[%d][%s]\n" and is returned with kind 0 (where the file system reports no types, with the kind that
    /// the entry has).
    ///
    ///     QMFindHandle handle;
    ///     QMFoundEntry entry;
    ///     for (bool found = FindFirst(handle, "/Log/log_????.txt", entry); found;
    ///          found = FindNext(handle, entry)) {...}
    static bool FindFirst(QMFindHandle& handle, const QMPath& pathWithPattern, QMFoundEntry& entry);

    /// The next entry, under the same terms. False at the end, on a closed handle (silently), and when the directory
    /// cannot be read further, which logs ", path[%s], readdir()\n" (std) and shows in handle.isIncomplete().
    static bool FindNext(QMFindHandle& handle, QMFoundEntry& entry);

    /// Closes the directory. A closed handle stays closed.
    static void FindClose(QMFindHandle& handle);
};
