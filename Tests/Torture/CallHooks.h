#pragma once

#include "Tests/Torture/CallControl.h"

namespace wpp_torture {

/// Makes this the control of the process's system calls; null for none.
void useCallControl(CallControl* control);

}  // namespace wpp_torture
