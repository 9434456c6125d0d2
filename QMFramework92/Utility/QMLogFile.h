#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "Pattern/QMUncopyable.h"

/// Writer of log files: opens a file in a directory under a base name, keeps older files as a number of generations,
/// and writes bytes or formatted text.
///
/// Life: closed -> open (Open) -> closed (Close, or the end of the object) and so on. It has one owner and takes no
/// lock. No operation throws; none logs a failure to open or to write, though deleting and moving older files log
/// theirs (see QMFileSys).
///
///     QMLogFile log;
///     log.Open(L"/var/log/unit", L"trace", L"txt", false, 0, 4);  // trace_0.txt; older: trace_1.txt to trace_4.txt
///     log.WriteFormat("started after %d ms\n", 12);
class QMLogFile : private QMUncopyable {
public:
    /// For Open: the name of the file carries the date and time of its opening.
    static constexpr std::int32_t kNamedByTime = -1;

    /// For Open: no limit of the size.
    static constexpr std::uint32_t kNoLimit = 0;

    QMLogFile() = default;
    ~QMLogFile();

    /// Opens a file, after closing the one that is open. The directory must exist.
    ///
    /// @param directory at most 256 characters; "/" is appended, also to one that ends in it. A path in all is at
    ///        most 256 characters. What is longer is cut.
    /// @param baseName at most 24 characters, @param extension at most 4; what is longer is cut.
    /// @param binary chooses the modes "ab+" and "wb+" instead of "a+" and "w+".
    /// @param maximumSize in bytes; kNoLimit empties the file on opening, any other size appends to it.
    /// @param generationCount how the file is named, and what becomes of older ones:
    ///        - 0: one file, base.extension;
    ///        - n > 0: base_0.extension, with older ones up to base_n.extension. The files move up by one number,
    ///          and the last is deleted: when a file without a size limit is opened, and when one with a limit is
    ///          full;
    ///        - kNamedByTime (and anything below 0): base followed by year, month, day, "_", hour and minute (UTC),
    ///          as in base261121_1455.extension. Where there are five such files or more, the one with the smallest
    ///          name is deleted first.
    /// @return whether the file is open. A null text fails.
    bool Open(const wchar_t* directory, const wchar_t* baseName, const wchar_t* extension, bool binary,
              std::uint32_t maximumSize, std::int32_t generationCount);

    /// Writes `size` bytes. When a limit is set, and the size that the file had when it was opened plus `size`
    /// reaches it, the file is closed first, older files move up, and a file is opened anew. Writing does not add
    /// to the size that is compared, so a limit shows at the next opening.
    ///
    /// @return whether all bytes were taken; false when no file is open, or for a null `data` of some size. Writing
    ///         nothing into an open file succeeds.
    bool Write(const void* data, std::uint32_t size);

    /// Writes a text formatted as with printf, cut to 255 bytes. @return as Write.
    bool WriteFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// Flushes the file, has the system write what it holds to the disk (`sync`), and closes it. Harmless when no
    /// file is open.
    void Close();

    bool IsOpen() const { return stream != nullptr; }

    /// The path of the file that is open, or was last; empty before. It belongs to this object, and changes when a
    /// full file makes room for a new one.
    const wchar_t* Path() const { return path; }

private:
    struct StreamCloser {
        void operator()(std::FILE* file) const;
    };
    static constexpr std::size_t kDirectoryLength = 256;
    static constexpr std::size_t kBaseNameLength = 24;
    static constexpr std::size_t kExtensionLength = 4;
    static constexpr std::size_t kPathLength = 256;

    bool openStream();
    void nameByTime();
    void deleteOldest();
    void rotate();
    void namePath(std::int32_t generation);
    bool isFull(std::uint32_t nextSize) const;

    // Fixed while a file is open, null-terminated; the directory ends in "/".
    wchar_t directory[kDirectoryLength + 2] = {};
    wchar_t baseName[kBaseNameLength + 1] = {};
    wchar_t extension[kExtensionLength + 1] = {};
    bool binary = false;
    std::uint32_t maximumSize = kNoLimit;
    std::int32_t generationCount = 0;

    // The file that is open.
    wchar_t path[kPathLength + 1] = {};
    std::uint32_t currentSize = 0;
    std::unique_ptr<std::FILE, StreamCloser> stream;
};
