#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Benchmarks/RoundTrip/Support/Case.h"

namespace bench {

/// The asking end of a link between two processes. One thread at a time. Throws when the link fails.
class Asker {
public:
    virtual ~Asker() = default;
    /// What exchange() sends from now on.
    virtual void use(const std::string& message) = 0;
    /// Sends the message and waits for its one-byte acknowledgement.
    virtual void exchange() = 0;
};

/// A way to carry acknowledged messages from one process to another.
struct Carrier {
    std::string name;
    std::function<void()> serve;                      ///< the serving end; runs until its process is killed
    std::function<std::unique_ptr<Asker>()> connect;  ///< waits for the serving end to come up
};

/// The length of a short command without its length word, with which it is 9 bytes long.
constexpr std::size_t kCommandSize = 5;

/// Round trips of a short command: the median time and the 99th percentile.
Case commandCase(const Carrier& carrier);

/// Acknowledged messages of 16 bytes to 1 MiB: for each size the bytes per second, the median time of a
/// message and the processor time that it takes both ends.
Case throughputCase(const Carrier& carrier);

/// Short messages of 1 to 32 peers at once, each with a connection of its own: the time until all are acknowledged. For
/// a carrier that serves many peers on the socket of its own name, with a length word in front of each message.
Case inFlightCase(const Carrier& carrier);

}  // namespace bench
