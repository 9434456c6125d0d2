#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wpp_test {

/// The bytes of one input, taken from the front. What is asked for behind the end is 0 or empty, so that every
/// input means something.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : next(data), left(size) {}

    bool isEmpty() const { return left == 0; }

    std::uint8_t takeByte() {
        if (left == 0) {
            return 0;
        }
        --left;
        return *next++;
    }

    /// Two and four bytes, the most significant first.
    std::uint16_t takeShort() {
        const unsigned high = takeByte();
        return static_cast<std::uint16_t>((high << 8) | takeByte());
    }
    std::uint32_t takeWord() {
        const std::uint32_t high = takeShort();
        return (high << 16) | takeShort();
    }

    /// At most `count` bytes, in memory of exactly their size.
    std::vector<std::uint8_t> takeBytes(std::size_t count) {
        const std::size_t taken = std::min(count, left);
        std::vector<std::uint8_t> bytes(next, next + taken);
        next += taken;
        left -= taken;
        return bytes;
    }
    std::vector<std::uint8_t> takeRest() { return takeBytes(left); }

    /// The same as a text.
    std::string takeText(std::size_t count) {
        const std::vector<std::uint8_t> bytes = takeBytes(count);
        return std::string(bytes.begin(), bytes.end());
    }

private:
    const std::uint8_t* next;
    std::size_t left;
};

}  // namespace wpp_test
