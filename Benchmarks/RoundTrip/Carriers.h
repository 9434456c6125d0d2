#pragma once

#include "Benchmarks/RoundTrip/Support/Carrier.h"

namespace bench {

/// Blocking send and recv of whole messages with a length word in front, and nothing else.
Carrier minimalCarrier();

/// The system calls of the product's streams in their order, on static buffers, and nothing between them.
Carrier prescribedCarrier();

/// The same with the copy that the single send of a frame takes: length word and message in a fresh buffer; and a
/// fresh buffer for each message that arrives. The difference to prescribedCarrier() is what copying costs.
Carrier prescribedCopyingCarrier();

/// The product's streams: what a message costs whatever it says.
Carrier streamCarrier();

/// The product's control service, asked by a controller with a command that finds nothing to do: the removal of
/// a phone that nobody knows. With its length word it is 9 bytes long.
Carrier controlServiceCarrier();

}  // namespace bench
