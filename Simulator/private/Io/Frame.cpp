#include "Simulator/private/Io/Frame.h"

#include <cstring>

namespace simulator {

std::string encodeFrame(std::string_view payload) {
    return encodeFrame(static_cast<std::uint32_t>(payload.size()), payload);
}

std::string encodeFrame(std::uint32_t announced, std::string_view payload) {
    std::string frame(sizeof(announced), '\0');
    std::memcpy(frame.data(), &announced, sizeof(announced));
    return frame.append(payload);
}

std::vector<std::string> FrameDecoder::feed(std::string_view bytes) {
    std::vector<std::string> payloads;
    if (broken) {
        return payloads;
    }
    pending.append(bytes);
    std::string payload;
    while (takeOne(payload)) {
        payloads.push_back(std::move(payload));
    }
    return payloads;
}

bool FrameDecoder::takeOne(std::string& payload) {
    std::uint32_t length = 0;
    if (pending.size() < sizeof(length)) {
        return false;
    }
    std::memcpy(&length, pending.data(), sizeof(length));
    if (length > kLongestPayload) {
        broken = true;
        return false;
    }
    if (pending.size() - sizeof(length) < length) {
        return false;
    }
    payload = pending.substr(sizeof(length), length);
    pending.erase(0, sizeof(length) + length);
    return true;
}

}  // namespace simulator
