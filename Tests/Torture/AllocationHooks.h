#pragma once

#include "Tests/Torture/AllocationControl.h"

namespace wpp_torture {

/// Whose blocks a control's count of live ones has in it.
enum class Counted { kOutsideUnharmed, kAll };

/// Makes this the control of the process's allocations; null for none.
void useControl(AllocationControl* control, Counted counted = Counted::kOutsideUnharmed);

/// Keeps the hooks from counting or failing what the calling thread allocates, or which system calls it makes, in the
/// scope.
class Unharmed {
public:
    Unharmed();
    ~Unharmed();
    Unharmed(const Unharmed&) = delete;
    Unharmed& operator=(const Unharmed&) = delete;
};

/// @return whether the calling thread is within such a scope.
bool isUnharmed();

}  // namespace wpp_torture
