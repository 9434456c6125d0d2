#include "Pattern/QMSerializable.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#include "Diagnostics/QMAssert.h"
#include "Diagnostics/QMLog.h"
#include "Utility/QMString.h"

namespace QMSerialization {

namespace {

constexpr std::size_t kInitialCapacity = 1024;
constexpr std::uint32_t kCursorLimit = std::numeric_limits<std::uint32_t>::max();

/// What kind of text a QMString holds, as it is written behind its code page.
enum TextKind : std::uint32_t { kNarrowText = 0, kWideText = 1 };

constexpr std::size_t kWideSize = sizeof(wchar_t);
static_assert(kWideSize == 4, "wide characters travel as 4 bytes");
static_assert(sizeof(float) == 4 && sizeof(double) == 8, "floating point values travel as 4 and 8 bytes");

}  // namespace

Archive::Archive() : Archive(kInitialCapacity) {}

Archive::Archive(std::size_t capacity) {
    buffer.reserve(capacity);
}

Archive::~Archive() = default;

const std::uint8_t* Archive::getBuffer() const {
    return buffer.data();
}

std::uint32_t Archive::getSize() const {
    return static_cast<std::uint32_t>(buffer.size());
}

std::uint32_t Archive::getRemaining() const {
    return readPos < getSize() ? getSize() - readPos : 0;
}

void Archive::clear() {
    readPos = 0;
    // A message clears its archive right after it has made it, and then there is nothing to exchange.
    if (buffer.capacity() == kInitialCapacity) {
        buffer.clear();
        return;
    }
    std::vector<std::uint8_t>().swap(buffer);
    buffer.reserve(kInitialCapacity);
}

/// Where the room ends it is doubled, or made large enough for the fields that follow as well. The latter also keeps
/// apart the places, within a page, of a large payload here and of the copy that its reader makes next: some
/// processors copy very slowly between places that differ by a few bytes there.
void Archive::append(const void* bytes, std::size_t length) {
    if (length > buffer.capacity() - buffer.size()) {
        buffer.reserve(std::max(2 * buffer.capacity(), buffer.size() + length + kInitialCapacity));
    }
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    buffer.insert(buffer.end(), first, first + length);
}

template <class T>
void Archive::appendBigEndian(T value) {
    for (std::size_t byte = sizeof(T); byte > 0; --byte) {
        buffer.push_back(static_cast<std::uint8_t>(value >> (8 * (byte - 1))));
    }
}

void Archive::write(bool value) {
    buffer.push_back(value ? 1 : 0);
}

void Archive::write(char value) {
    buffer.push_back(static_cast<std::uint8_t>(value));
}

void Archive::write(signed char value) {
    buffer.push_back(static_cast<std::uint8_t>(value));
}

void Archive::write(unsigned char value) {
    buffer.push_back(value);
}

void Archive::write(std::int16_t value) {
    appendBigEndian(static_cast<std::uint16_t>(value));
}

void Archive::write(std::uint16_t value) {
    appendBigEndian(value);
}

void Archive::write(std::int32_t value) {
    appendBigEndian(static_cast<std::uint32_t>(value));
}

void Archive::write(std::uint32_t value) {
    appendBigEndian(value);
}

void Archive::write(std::int64_t value) {
    appendBigEndian(static_cast<std::uint64_t>(value));
}

void Archive::write(std::uint64_t value) {
    appendBigEndian(value);
}

void Archive::write(float value) {
    write(&value, static_cast<int>(sizeof(value)));
}

void Archive::write(double value) {
    write(&value, static_cast<int>(sizeof(value)));
}

void Archive::write(const void* data, int length) {
    if (data != nullptr && length > 0) {
        append(data, static_cast<std::size_t>(length));
    }
}

void Archive::write(const std::string& text, int maxLength) {
    std::size_t length = text.size();
    if (maxLength >= 0) {
        length = std::min(length, static_cast<std::size_t>(maxLength));
    }
    write(static_cast<std::uint32_t>(length));
    append(text.data(), length);
}

void Archive::write(const std::wstring& text) {
    write(static_cast<std::uint32_t>(text.size()));
    write(text.data(), static_cast<int>(text.size() * kWideSize));
}

void Archive::write(const QMString& text) {
    write(std::uint32_t{text.CodePage()});
    if (const std::string* narrow = text.NarrowText()) {
        write(std::uint32_t{kNarrowText});
        write(*narrow);
    } else if (const std::wstring* wide = text.WideText()) {
        write(std::uint32_t{kWideText});
        write(*wide);
    }
}

void Archive::write(QMSerializable& object) {
    object.serialize();
    write(object.archive.getSize());
    write(object.archive.getBuffer(), static_cast<int>(object.archive.getSize()));
}

/// The next `length` bytes, which the cursor has then passed; null and a log line when they are not all
/// there. Every caller is a read operation, and that is what the line names. No bytes at cursor 0 count as
/// over the end.
const std::uint8_t* Archive::take(std::uint64_t length) {
    const std::uint64_t end = readPos + length;
    if (end == 0 || end > buffer.size()) {
        qm_Log(QM_SOURCE_PATH, "read", __LINE__, QM_LOG_LEVEL_ERROR, "buffer size over!\n");
        return nullptr;
    }
    const std::uint8_t* bytes = buffer.data() + readPos;
    readPos = static_cast<std::uint32_t>(end);
    return bytes;
}

std::uint8_t Archive::takeByte() {
    const std::uint8_t byte = readPos < buffer.size() ? buffer[readPos] : std::uint8_t{0};
    skip(1);
    return byte;
}

void Archive::skip(std::uint32_t length) {
    readPos += std::min(length, kCursorLimit - readPos);
}

template <class T>
void Archive::readBigEndian(T& value) {
    using Unsigned = std::make_unsigned_t<T>;
    value = 0;
    const std::uint8_t* bytes = take(sizeof(T));
    if (bytes == nullptr) {
        return;
    }
    Unsigned assembled = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        assembled = static_cast<Unsigned>((assembled << 8) | bytes[i]);
    }
    value = static_cast<T>(assembled);
}

template <class T>
void Archive::readHostOrder(T& value) {
    value = 0;
    if (const std::uint8_t* bytes = take(sizeof(T))) {
        std::memcpy(&value, bytes, sizeof(T));
    }
}

void Archive::read(bool& value) {
    const std::uint8_t byte = takeByte();
    QM_ASSERT(byte <= 1);
    if (byte <= 1) {
        value = byte == 1;
    }
}

void Archive::read(char& value) {
    value = static_cast<char>(takeByte());
}

void Archive::read(signed char& value) {
    value = static_cast<signed char>(takeByte());
}

void Archive::read(unsigned char& value) {
    value = takeByte();
}

void Archive::read(std::int16_t& value) {
    readBigEndian(value);
}

void Archive::read(std::uint16_t& value) {
    readBigEndian(value);
}

void Archive::read(std::int32_t& value) {
    readBigEndian(value);
}

void Archive::read(std::uint32_t& value) {
    readBigEndian(value);
}

void Archive::read(std::int64_t& value) {
    std::uint64_t bits = 0;
    read(bits);
    value = static_cast<std::int64_t>(bits);
}

void Archive::read(std::uint64_t& value) {
    std::uint32_t high = 0;
    std::uint32_t low = 0;
    read(high);
    read(low);
    value = (std::uint64_t{high} << 32) | low;
}

void Archive::read(float& value) {
    readHostOrder(value);
}

void Archive::read(double& value) {
    readHostOrder(value);
}

void Archive::read(void* destination, std::uint32_t length) {
    if (destination == nullptr) {
        return;
    }
    if (const std::uint8_t* bytes = take(length)) {
        std::memcpy(destination, bytes, length);
    }
}

void Archive::read(std::vector<std::uint8_t>& bytes, std::uint32_t length) {
    bytes.clear();
    if (length == 0) {
        return;
    }
    if (const std::uint8_t* first = take(length)) {
        bytes.assign(first, first + length);
    }
}

void Archive::read(std::string& text) {
    text.clear();
    std::uint32_t length = 0;
    read(length);
    if (const std::uint8_t* bytes = take(length)) {
        const auto* first = reinterpret_cast<const char*>(bytes);
        text.assign(first, ::strnlen(first, length));
    }
}

void Archive::read(std::wstring& text) {
    text.clear();
    std::uint32_t count = 0;
    read(count);
    if (const std::uint8_t* bytes = take(std::uint64_t{count} * kWideSize)) {
        text.resize(count);
        std::memcpy(text.data(), bytes, count * kWideSize);
        text.resize(std::min(text.find(L'\0'), text.size()));
    }
}

void Archive::read(QMString& text) {
    std::uint32_t codePage = 0;
    read(codePage);
    codePage = std::min<std::uint32_t>(codePage, QM_CODE_PAGE_WIDE);
    // A kind that cannot be read must not pass for a narrow text.
    const bool hasKind = getRemaining() >= sizeof(std::uint32_t);
    std::uint32_t kind = 0;
    read(kind);
    if (hasKind && kind == kNarrowText) {
        std::string narrow;
        read(narrow);
        text.Restore(codePage, std::move(narrow));
    } else if (hasKind && kind == kWideText) {
        std::wstring wide;
        read(wide);
        text.Restore(codePage, std::move(wide));
    } else {
        text.Restore(codePage);
    }
}

void Archive::read(QMSerializable& object) {
    std::uint32_t length = 0;
    read(length);
    if (readPos >= buffer.size()) {
        QM_LOG_ERROR("buffer size over!\n");
        return;
    }
    object.deserialize(buffer.data() + readPos, std::min(length, getRemaining()));
    skip(length);
}

QMSerializable::~QMSerializable() = default;

}  // namespace QMSerialization
