#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "Foundation/QMPath.h"

/// One open file, read and written through the C library's buffer.
///
/// Closed at first; Open opens, Close and the destructor close. Positions and lengths are 64 bits wide on every
/// machine. Calls with a status return 0 on success and 1 on failure. A failure is logged here, at level error:
/// "file is not opened\n" for a call that needs an open file, ", CALL()\n" with errno in front for a failing
/// library call. None throws.
///
/// What is written lies in a buffer until Flush, Close or more writing: a full disk can show in any of them, and
/// only a Close that returns 0 says that all of it is on the disk.
///
/// Owns the open file. A value of one thread at a time.
///
///     QMStorage file;
///     if (file.Open("/Log/trace.txt", "ab") == 0) { file.WriteLine("started"); }
class QMStorage {
public:
    QMStorage() = default;
    ~QMStorage() { Close(); }
    QMStorage(const QMStorage&) = delete;
    QMStorage& operator=(const QMStorage&) = delete;

    /// Closes what is open and opens `path` with a mode of fopen; no program started later inherits the file. Logs
    /// ", path[%s], fopen()\n" with errno in front, also for a null path or mode (errno EINVAL).
    int Open(const QMPath& path, const char* mode);

    bool IsOpen() const { return file != nullptr; }

    /// @return the bytes read: fewer than `length` at the end of the file or after an error, which logs ",
    /// fread()\n"; 0 for a closed file, a null buffer or a length below 1, silently.
    std::uint64_t Read(void* buffer, std::int64_t length);

    /// @return the bytes taken: fewer than `length` after an error, which logs ", fwrite()\n"; 0 for a closed file or
    /// null data, silently.
    std::uint64_t Write(const void* data, std::size_t length);

    /// Writes `text`, and "\n" behind it unless it ends in one. A null text logs "invalid arg\n".
    int WriteLine(const char* text);

    /// Moves to `offset` bytes from SEEK_SET, SEEK_CUR or SEEK_END. Logs ", fseek()\n" with errno in front.
    int Seek(std::int64_t offset, int whence);

    /// The length of the file in bytes, what still lies in the buffer included. The position, and the end-of-file
    /// mark, stay as they are. 0 for a closed file, and for what is not a regular file.
    std::uint64_t Size();

    /// The length of a named file. 0 for what cannot be opened, with Open's line, or is not a regular file, which is
    /// not opened: a FIFO is never waited for.
    static std::uint64_t Size(const QMPath& path);

    /// Non-zero once a read has met the end of the file.
    int IsEndOfFile();

    /// Hands everything written to the disk: fflush, then fsync. What has no disk below it (a pipe, a device) counts
    /// as written when the buffer is out.
    int Flush();

    /// Closes the file, a written one after a Flush. It is closed in any case; a failure means that something of what
    /// was written since Open is not on the disk. 0 for a closed file.
    int Close();

private:
    enum class Action { kNone, kReading, kWriting };

    bool isOpenFor(const char* function) const;
    void turnTo(Action next);
    void noteLoss();
    bool writeAll(const void* data, std::size_t length, std::size_t& taken);
    bool flush(const char* function);

    struct Closer {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };
    std::unique_ptr<std::FILE, Closer> file;
    bool written = false;
    bool lost = false;
    Action last = Action::kNone;
};
