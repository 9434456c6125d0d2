#pragma once

namespace bench {

/// Keeps this process, and what it starts from now on, on the last of its processors: the first ones serve most
/// interrupts.
void stayOnOneProcessor();

/// Takes that back for this process and what it starts from now on.
void useAllProcessors();

}  // namespace bench
