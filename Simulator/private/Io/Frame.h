#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

/// The frame of the receiver's local sockets: a length word in host byte order, then that many payload bytes.
std::string encodeFrame(std::string_view payload);

/// A frame whose length word announces `announced` bytes whatever follows: for misbehaviour.
std::string encodeFrame(std::uint32_t announced, std::string_view payload);

/// Cuts a stream of bytes into the payloads of its frames. Pure: no socket, no thread.
class FrameDecoder {
public:
    /// The longest payload taken; a peer announcing more breaks the stream.
    static constexpr std::uint32_t kLongestPayload = 1u << 20;

    /// Takes the next bytes. @return the payloads that are whole now, oldest first.
    std::vector<std::string> feed(std::string_view bytes);

    /// A frame longer than the limit was announced: nothing more comes out.
    bool isBroken() const { return broken; }

private:
    bool takeOne(std::string& payload);

    std::string pending;
    bool broken = false;
};

}  // namespace simulator
