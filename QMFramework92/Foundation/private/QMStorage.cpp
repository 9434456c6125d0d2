#include "Foundation/QMStorage.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include "Diagnostics/QMLog.h"

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;

/// The mode with "e", close-on-exec, behind its first letter. The library reads seven letters of a mode at most; one
/// that would lose a letter stays as it is, and so does one that goes on with a character set.
class CloseOnExecMode {
public:
    explicit CloseOnExecMode(const char* mode) : text(mode) {
        const std::size_t length = std::strlen(mode);
        if (length > 0 && length < kLettersRead) {
            extended[0] = mode[0];
            extended[1] = 'e';
            std::memcpy(extended.data() + 2, mode + 1, length);
            text = extended.data();
        }
    }
    const char* get() const { return text; }

private:
    static constexpr std::size_t kLettersRead = 7;
    const char* text;
    std::array<char, kLettersRead + 2> extended{};
};

}  // namespace

int QMStorage::Open(const QMPath& path, const char* mode) {
    Close();
    const char* const name = path.get();
    if (name == nullptr || mode == nullptr) {
        errno = EINVAL;
    } else {
        file.reset(std::fopen(name, CloseOnExecMode(mode).get()));
    }
    if (!IsOpen()) {
        QM_LOG_STD_ERROR(", path[%s], fopen()\n", name == nullptr ? "" : name);
        return kFailure;
    }
    return kSuccess;
}

std::uint64_t QMStorage::Read(void* buffer, std::int64_t length) {
    if (!IsOpen() || buffer == nullptr || length < 1) {
        return 0;
    }
    // No buffer is longer than the address space.
    constexpr std::uint64_t kLongest = std::numeric_limits<std::size_t>::max();
    const auto wanted = static_cast<std::uint64_t>(length);
    turnTo(Action::kReading);
    if (std::ferror(file.get()) != 0) {
        clearerr(file.get());
    }
    const std::size_t count =
        std::fread(buffer, 1, static_cast<std::size_t>(wanted < kLongest ? wanted : kLongest), file.get());
    if (std::ferror(file.get()) != 0) {
        QM_LOG_STD_ERROR(", fread()\n");
    }
    return count;
}

std::uint64_t QMStorage::Write(const void* data, std::size_t length) {
    if (!IsOpen() || data == nullptr) {
        return 0;
    }
    std::size_t taken = 0;
    if (!writeAll(data, length, taken)) {
        QM_LOG_STD_ERROR(", fwrite()\n");
    }
    return taken;
}

int QMStorage::WriteLine(const char* text) {
    if (!isOpenFor(__func__)) {
        return kFailure;
    }
    if (text == nullptr) {
        QM_LOG_ERROR("invalid arg\n");
        return kFailure;
    }
    const std::size_t length = std::strlen(text);
    const bool endsLine = length > 0 && text[length - 1] == '\n';
    std::size_t taken = 0;
    if (!writeAll(text, length, taken) || (!endsLine && !writeAll("\n", 1, taken))) {
        QM_LOG_STD_ERROR(", fwrite()\n");
        return kFailure;
    }
    return kSuccess;
}

int QMStorage::Seek(std::int64_t offset, int whence) {
    if (!isOpenFor(__func__)) {
        return kFailure;
    }
    const bool isMoved = fseeko(file.get(), offset, whence) == 0;
    if (!isMoved) {
        QM_LOG_STD_ERROR(", fseek()\n");
    }
    noteLoss();
    last = Action::kNone;
    return isMoved ? kSuccess : kFailure;
}

std::uint64_t QMStorage::Size() {
    if (!IsOpen()) {
        return 0;
    }
    if (last == Action::kWriting && std::fflush(file.get()) != 0) {
        QM_LOG_STD_ERROR(", fflush()\n");
        noteLoss();
    }
    struct stat status {};
    if (fstat(fileno(file.get()), &status) != 0) {
        QM_LOG_STD_ERROR(", fstat()\n");
        return 0;
    }
    return S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::uint64_t QMStorage::Size(const QMPath& path) {
    struct stat status {};
    if (!path.isEmpty() && stat(path.get(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return 0;
    }
    QMStorage named;
    return named.Open(path, "rb") == kSuccess ? named.Size() : 0;
}

int QMStorage::IsEndOfFile() {
    return isOpenFor(__func__) ? std::feof(file.get()) : 0;
}

int QMStorage::Flush() {
    return isOpenFor(__func__) && flush(__func__) ? kSuccess : kFailure;
}

int QMStorage::Close() {
    if (!IsOpen()) {
        return kSuccess;
    }
    const bool isWhole = (!written || flush(__func__)) && !lost;
    written = false;
    lost = false;
    last = Action::kNone;
    if (std::fclose(file.release()) != 0) {
        QM_LOG_STD_ERROR(", fclose()\n");
        return kFailure;
    }
    return isWhole ? kSuccess : kFailure;
}

bool QMStorage::isOpenFor(const char* function) const {
    if (!IsOpen()) {
        qm_Log(QM_SOURCE_PATH, function, __LINE__, QM_LOG_LEVEL_ERROR, "file is not opened\n");
    }
    return IsOpen();
}

/// Between reading and writing the library wants the position set anew. What has no position needs none.
void QMStorage::turnTo(Action next) {
    if (last != Action::kNone && last != next) {
        fseeko(file.get(), 0, SEEK_CUR);
        noteLoss();
    }
    last = next;
}

/// The library drops what it could not write, so that a later flush succeeds without it.
void QMStorage::noteLoss() {
    lost = lost || (last == Action::kWriting && std::ferror(file.get()) != 0);
}

bool QMStorage::writeAll(const void* data, std::size_t length, std::size_t& taken) {
    turnTo(Action::kWriting);
    written = true;
    taken = std::fwrite(data, 1, length, file.get());
    noteLoss();
    return taken == length;
}

bool QMStorage::flush(const char* function) {
    if (std::fflush(file.get()) != 0) {
        qm_LogStdError(QM_SOURCE_PATH, function, __LINE__, ", fflush()\n");
        lost = true;
        return false;
    }
    if (fsync(fileno(file.get())) != 0 && errno != EINVAL) {
        lost = true;
        qm_LogStdError(QM_SOURCE_PATH, function, __LINE__, ", fsync()\n");
        return false;
    }
    return true;
}
