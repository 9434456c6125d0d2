#pragma once

#include <functional>
#include <string>

#include "Benchmarks/RoundTrip/Support/Case.h"

namespace bench {

/// A server that accepts TCP connections and closes each at once; runs until its process is killed.
struct Acceptor {
    std::string name;
    std::function<void()> serve;
};

/// The processor time that the server's process takes for one connection.
Case acceptCase(const Acceptor& acceptor);

}  // namespace bench
