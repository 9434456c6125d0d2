#pragma once

#include <exception>

namespace wifi_projection_protocol {

/// What the exception that is being handled says of itself, for the log. Only inside a catch block, and valid
/// until its end.
inline const char* caughtExceptionText() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown";
    }
}

}  // namespace wifi_projection_protocol
