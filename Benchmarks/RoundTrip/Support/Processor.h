#pragma once

#include <sys/types.h>

namespace bench {

/// Keeps this process, and what it starts from now on, on the last of its processors: the first ones serve most
/// interrupts.
void stayOnOneProcessor();

/// Takes that back for this process and what it starts from now on.
void useAllProcessors();

/// The processor time that a process has taken so far, in nanoseconds. Unlike the time that has passed, it does not
/// grow while others have the processor. @throws std::runtime_error when it cannot be read.
double processorTime(pid_t process);

}  // namespace bench
