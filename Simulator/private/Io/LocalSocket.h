#pragma once

#include <string>

#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

/// Opens a listening UNIX-domain stream socket at `name` (a path; relative to the working directory, at most
/// 107 bytes). A socket file left over there is replaced.
/// @throws std::system_error naming the step and the socket.
UniqueFd listenLocal(const std::string& name);

/// Connects to the UNIX-domain stream socket at `name`. @return no descriptor when nobody listens there.
UniqueFd connectLocal(const std::string& name);

/// Accepts one waiting connection of a listening socket, non-blocking. @return no descriptor when none waits.
UniqueFd acceptOne(int listener);

}  // namespace simulator
