#pragma once

#include <cstdint>
#include <string>

namespace simulator {

/// One of the phones on the road.
struct RoadPhone {
    std::string name;         ///< of its process: "phone 1"
    std::uint8_t device = 0;  ///< its id with the head unit's Bluetooth process
    std::string clientId;     ///< how it calls itself to the receiver
    std::string address;      ///< its own loopback address
};

/// The phone with this number, 1 to 254.
inline RoadPhone makeRoadPhone(int number) {
    const std::string text = std::to_string(number);
    return {"phone " + text, static_cast<std::uint8_t>(number), "sim-phone-" + text, "127.0.1." + text};
}

}  // namespace simulator
