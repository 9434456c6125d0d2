#pragma once

namespace wpp_test {

/// Gives the calling thread, and the threads and processes that it starts from then on, a network of their
/// own with nothing but a loopback interface, so that nobody outside holds a port that they need.
/// @return false when the system does not allow it (it takes root); the network stays as it was.
bool enterOwnNetwork();

}  // namespace wpp_test
