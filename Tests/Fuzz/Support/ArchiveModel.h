#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "Tests/Fuzz/Support/LogTally.h"

namespace wpp_test {

/// What reading the archive's encoding must give, written down a second time in the plainest way: one
/// byte after the other. It counts the failures that the archive has to log.
class ArchiveModel {
public:
    ArchiveModel(const std::uint8_t* bytes, std::size_t count) : data(bytes), size(count) {}

    std::uint64_t cursor = 0;
    std::size_t failures = 0;

    std::uint64_t remaining() const { return cursor < size ? size - cursor : 0; }

    /// Are `length` bytes there? A failure counts.
    bool has(std::uint64_t length) {
        if (length <= remaining() && cursor + length > 0 && cursor <= size) {
            return true;
        }
        ++failures;
        return false;
    }

    /// A byte without a look at the end.
    std::uint8_t byte() {
        const std::uint8_t value = cursor < size ? data[cursor] : std::uint8_t{0};
        skip(1);
        return value;
    }

    void skip(std::uint64_t count) {
        constexpr std::uint64_t kLast = std::numeric_limits<std::uint32_t>::max();
        cursor = std::min(cursor + count, kLast);
    }

    /// A big-endian number of `width` bytes, 0 when it is not all there.
    std::uint64_t number(unsigned width) {
        std::uint64_t value = 0;
        if (has(width)) {
            for (unsigned i = 0; i < width; ++i) {
                value = value * 256 + byte();
            }
        }
        return value;
    }
    std::uint32_t word() { return static_cast<std::uint32_t>(number(4)); }

    /// The bytes as they lie; `value` stays when they are not all there.
    template <class T>
    void raw(T& value) {
        if (has(sizeof(T))) {
            std::memcpy(&value, data + cursor, sizeof(T));
            cursor += sizeof(T);
        }
    }

    /// So many bytes as a text, empty when they are not all there.
    std::string bytes(std::uint64_t length) {
        std::string text;
        if (has(length)) {
            for (std::uint64_t i = 0; i < length; ++i) {
                text.push_back(static_cast<char>(byte()));
            }
        }
        return text;
    }

    /// A length and a text that ends at its first zero byte.
    std::string text() {
        const std::string all = bytes(word());
        return all.c_str();
    }

    std::wstring wideText() {
        const std::uint64_t count = word();
        std::wstring all;
        if (has(count * 4)) {
            for (std::uint64_t i = 0; i < count; ++i) {
                wchar_t character = 0;
                raw(character);
                all.push_back(character);
            }
        }
        return all.c_str();
    }

    /// Has the archive logged each failure, and nothing else as such?
    bool agreesWithLog() const { return logLines("buffer size over!\n") == failures; }

private:
    const std::uint8_t* data;
    std::uint64_t size;
};

}  // namespace wpp_test
