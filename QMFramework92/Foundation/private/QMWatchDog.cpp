#include "Foundation/QMWatchDog.h"

bool QMWatchDog::Start() {
    return true;
}

void QMWatchDog::Stop() {}

void QMWatchDog::EnterWait() {}

void QMWatchDog::LeaveWait() {}
