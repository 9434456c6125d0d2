#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Pattern/QMUncopyable.h"

class QMString;

/// Byte encoding of values and messages.
namespace QMSerialization {

class QMSerializable;

/// Growable byte buffer: writes append at its end, reads consume at a cursor that starts at 0.
///
/// Integers are big-endian; float, double and the characters of a wide text keep host order; texts and nested
/// objects carry a 32-bit big-endian length. Nothing tells types or names, so reader and writer must agree on
/// the order. A read that the buffer cannot satisfy logs "buffer size over!\n", clears its destination and
/// leaves the cursor; the caller is not told. No read touches memory outside the buffer, whatever lengths the
/// buffer announces, and nothing is allocated for bytes that are not there.
///
/// Not synchronised: one thread at a time.
///
///     Archive archive;
///     archive.write(std::int32_t{1});  // 00 00 00 01
///     archive.write(std::string("a")); // 00 00 00 01 61
class Archive : private QMUncopyable {
public:
    /// Reserves 1024 bytes, so that messages below that size never reallocate.
    Archive();
    explicit Archive(std::size_t capacity);
    virtual ~Archive();

    /// First byte held. Invalid after the next write or clear.
    virtual const std::uint8_t* getBuffer() const;
    /// Number of bytes held, read or not.
    virtual std::uint32_t getSize() const;

    /// Number of bytes behind the cursor that are still to be read.
    std::uint32_t getRemaining() const;
    /// Index of the next byte to read. Byte reads and nested objects can move it past the end.
    std::uint32_t getReadPos() const { return readPos; }

    /// Empties the buffer, moves the cursor to 0 and leaves 1024 bytes reserved, whatever was reserved before.
    void clear();

    void write(bool value);  ///< 1 byte, 0 or 1
    void write(char value);
    void write(signed char value);
    void write(unsigned char value);
    void write(std::int16_t value);
    void write(std::uint16_t value);
    void write(std::int32_t value);
    void write(std::uint32_t value);
    void write(std::int64_t value);
    void write(std::uint64_t value);
    void write(float value);   ///< host order
    void write(double value);  ///< host order
    /// The bytes as they are. Does nothing when `data` is null or `length` below 1.
    void write(const void* data, int length);
    /// Length and bytes of `text`, of at most `maxLength` bytes of it unless that is negative.
    void write(const std::string& text, int maxLength = -1);
    /// Count and characters, 4 bytes each.
    void write(const std::wstring& text);
    /// Code page, kind (0 narrow, 1 wide) and text; no kind when the string holds neither.
    void write(const QMString& text);
    /// Serialises `object`, then writes the size and the bytes of its archive.
    void write(QMSerializable& object);
    /// A lone pointer would silently become a bool.
    void write(const void* data) = delete;

    /// A byte other than 0 and 1 raises an assertion report and leaves `value`.
    void read(bool& value);
    /// The byte reads check no bounds: past the end they yield 0, log nothing and still move the cursor.
    void read(char& value);
    void read(signed char& value);
    void read(unsigned char& value);
    void read(std::int16_t& value);
    void read(std::uint16_t& value);
    void read(std::int32_t& value);
    void read(std::uint32_t& value);
    /// Two 32-bit reads, high half first; a half that is not there is 0.
    void read(std::int64_t& value);
    void read(std::uint64_t& value);
    void read(float& value);
    void read(double& value);
    /// Copies `length` bytes; does nothing when `destination` is null. Reading 0 bytes with the cursor at 0
    /// counts as over the end and is logged.
    void read(void* destination, std::uint32_t length);
    /// Replaces `bytes` by the next `length` bytes, by nothing when fewer are held.
    void read(std::vector<std::uint8_t>& bytes, std::uint32_t length);
    /// The text ends at its first zero byte; all announced bytes are consumed.
    void read(std::string& text);
    void read(std::wstring& text);
    /// A code page above 52 is stored as 52. Only the kinds 0 and 1 are followed by a text.
    void read(QMString& text);
    /// Hands the announced bytes to `object`, or as many of them as are held. The cursor moves by what was
    /// announced in either case.
    void read(QMSerializable& object);

private:
    void append(const void* bytes, std::size_t length);
    const std::uint8_t* take(std::uint64_t length);
    std::uint8_t takeByte();
    void skip(std::uint32_t length);
    template <class T>
    void readBigEndian(T& value);
    template <class T>
    void readHostOrder(T& value);
    template <class T>
    void appendBigEndian(T value);

    std::vector<std::uint8_t> buffer;
    std::uint32_t readPos = 0;
};

/// Base of everything that can be written to an archive: it owns the archive that holds its bytes.
class QMSerializable : private QMUncopyable {
public:
    virtual ~QMSerializable();

    /// Replaces the archive's content by the object's bytes.
    virtual bool serialize() = 0;
    /// Loads `length` bytes into the archive and takes the object's fields from it.
    virtual bool deserialize(const void* data, unsigned length) = 0;

    Archive archive;
};

}  // namespace QMSerialization
