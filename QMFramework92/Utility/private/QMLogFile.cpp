#include "Utility/QMLogFile.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <limits>
#include <new>
#include <string>

#include "Foundation/QMClock.h"
#include "Foundation/QMFileSys.h"
#include "Foundation/QMStorage.h"
#include "Utility/QMFormatWide.h"
#include "Utility/QMWideText.h"

namespace {

// A further file is made once one of these has been deleted.
constexpr int kFilesNamedByTime = 5;

/// Every character of a path takes at most four bytes.
constexpr std::size_t kBytesPerCharacter = 4;

template <std::size_t N>
void copyCut(wchar_t (&out)[N], const wchar_t* text, std::size_t length) {
    length = std::min({length, N - 1, std::wcslen(text)});
    std::wmemcpy(out, text, length);
    out[length] = L'\0';
}

std::uint32_t sizeOfExisting(const wchar_t* path) {
    if (QMFileSys::chkAttribute(path) != QMFileSys::kFile) {
        return 0;
    }
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(QMStorage::Size(path), kLargest));
}

}  // namespace

void QMLogFile::StreamCloser::operator()(std::FILE* file) const {
    std::fflush(file);
    sync();
    std::fclose(file);
}

QMLogFile::~QMLogFile() {
    Close();
}

bool QMLogFile::Open(const wchar_t* givenDirectory, const wchar_t* givenBaseName,
                     const wchar_t* givenExtension, bool isBinary, std::uint32_t limit,
                     std::int32_t generations) {
    Close();
    if (givenDirectory == nullptr || givenBaseName == nullptr || givenExtension == nullptr) {
        return false;
    }
    copyCut(directory, givenDirectory, kDirectoryLength);
    std::wcscat(directory, L"/");
    copyCut(baseName, givenBaseName, kBaseNameLength);
    copyCut(extension, givenExtension, kExtensionLength);
    binary = isBinary;
    maximumSize = limit;
    generationCount = generations;
    return openStream();
}

/// Also the way back after a full file has been closed.
bool QMLogFile::openStream() {
    if (generationCount < 0) {
        deleteOldest();
        nameByTime();
    } else {
        namePath(0);
    }
    if (generationCount > 0 && maximumSize == kNoLimit) {
        rotate();
        namePath(0);
    }
    const bool appends = maximumSize != kNoLimit;
    currentSize = appends ? sizeOfExisting(path) : 0;

    char narrowPath[kPathLength * kBytesPerCharacter + 1];
    qm_EncodeUtf8(path, narrowPath, sizeof(narrowPath));
    const char* mode = appends ? (binary ? "ab+e" : "a+e") : (binary ? "wb+e" : "w+e");
    stream.reset(std::fopen(narrowPath, mode));
    return IsOpen();
}

void QMLogFile::namePath(std::int32_t generation) {
    if (generationCount == 0) {
        qm_FormatWide(path, kPathLength + 1, L"%s%s.%s", directory, baseName, extension);
    } else {
        qm_FormatWide(path, kPathLength + 1, L"%s%s_%d.%s", directory, baseName, generation, extension);
    }
}

void QMLogFile::nameByTime() {
    QMDateTime now{};
    QMClock::GetUtc(&now);
    qm_FormatWide(path, kPathLength + 1, L"%s%s%02d%02d%02d_%02d%02d.%s", directory, baseName, now.year % 100,
                  now.month, now.day, now.hour, now.minute, extension);
}

void QMLogFile::deleteOldest() {
    if (QMFileSys::chkAttribute(directory) != QMFileSys::kDirectory) {
        return;
    }
    // Room for all its parts: a pattern that was cut would match the files of others.
    wchar_t pattern[kDirectoryLength + 1 + kBaseNameLength + sizeof("??????_????.") + kExtensionLength];
    qm_FormatWide(pattern, sizeof(pattern) / sizeof(pattern[0]), L"%s%s??????_????.%s", directory, baseName,
                  extension);
    try {
        QMFindHandle search;
        QMFoundEntry entry;
        std::string oldest;
        int count = 0;
        for (bool found = QMFileSys::FindFirst(search, pattern, entry); found;
             found = QMFileSys::FindNext(search, entry)) {
            oldest = count == 0 ? entry.name : std::min(oldest, entry.name);
            ++count;
        }
        if (count >= kFilesNamedByTime) {
            char narrowDirectory[sizeof(directory) / sizeof(directory[0]) * kBytesPerCharacter];
            qm_EncodeUtf8(directory, narrowDirectory, sizeof(narrowDirectory));
            QMFileSys::Delete((narrowDirectory + oldest).c_str(), false);
        }
    } catch (const std::bad_alloc&) {
        // The directory keeps one file more.
    }
}

void QMLogFile::rotate() {
    namePath(generationCount);
    if (QMFileSys::chkAttribute(path) == QMFileSys::kFile) {
        QMFileSys::Delete(path, false);
    }
    for (std::int32_t i = generationCount - 1; i >= 0; --i) {
        wchar_t next[kPathLength + 1];
        std::wmemcpy(next, path, kPathLength + 1);
        namePath(i);
        if (QMFileSys::chkAttribute(path) == QMFileSys::kFile) {
            QMFileSys::Move(path, next);
        }
    }
}

bool QMLogFile::isFull(std::uint32_t nextSize) const {
    return maximumSize != kNoLimit && std::uint64_t{currentSize} + nextSize >= maximumSize;
}

bool QMLogFile::Write(const void* data, std::uint32_t size) {
    if (!IsOpen() || (data == nullptr && size > 0)) {
        return false;
    }
    if (size == 0) {
        return true;
    }
    if (isFull(size)) {
        Close();
        if (generationCount > 0) {
            rotate();
        }
        if (!openStream()) {
            return false;
        }
    }
    return std::fwrite(data, 1, size, stream.get()) == size;
}

bool QMLogFile::WriteFormat(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return length >= 0 && Write(text, static_cast<std::uint32_t>(std::strlen(text)));
}

void QMLogFile::Close() {
    stream.reset();
}
