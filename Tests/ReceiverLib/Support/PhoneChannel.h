#pragma once

#include <chrono>
#include <string>

namespace wpp_test {

/// How long a test waits for what must come; long past every limit that a test sets.
constexpr std::chrono::seconds kPatience{10};

/// The phone's end of a transport.
class PhoneChannel {
public:
    virtual ~PhoneChannel() = default;

    virtual bool send(const std::string& bytes) = 0;

    /// @return the next bytes; empty once the head unit has closed, or after kPatience.
    virtual std::string receive() = 0;

    virtual void close() = 0;
};

}  // namespace wpp_test
