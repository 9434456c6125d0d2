#pragma once

#include <cstddef>

#include "private/FileDescriptor.h"

namespace wpp_test {

/// The two ends of a TCP connection over the loopback interface, by a port of the system's choice.
struct Loopback {
    wifi_projection_protocol::FileDescriptor headUnit;
    wifi_projection_protocol::FileDescriptor phone;
};

/// Throws std::runtime_error when there is no connection to be had.
Loopback connectLoopback();

/// Gives the head unit's end away to somebody who owns it from now on.
int handOver(wifi_projection_protocol::FileDescriptor& descriptor);

bool isOpen(int fd);

/// Descriptors and threads of this process at the moment.
std::size_t countDescriptors();
std::size_t countThreads();

}  // namespace wpp_test
