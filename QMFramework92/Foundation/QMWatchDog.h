#pragma once

#include "Pattern/QMSingleton.h"

/// Hooks around the framework's life and around every blocking wait of a message loop. None of them watches
/// anything; they are where a supervision attaches. Any thread may call them.
class QMWatchDog : public QMSingleton<QMWatchDog> {
public:
    /// @return always true.
    bool Start();
    void Stop();
    void EnterWait();
    void LeaveWait();

private:
    friend class QMSingleton<QMWatchDog>;
    QMWatchDog() = default;
    ~QMWatchDog() = default;
};
