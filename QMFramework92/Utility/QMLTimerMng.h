#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "Foundation/QMThreadMng.h"
#include "Pattern/QMSingleton.h"
#include "Utility/QMLTimer.h"
#include "Utility/QMLTimerSubMng.h"

/// The caller priorities that one sub-manager serves, both ends included. 177 is the highest of all.
struct QMLTimerBand {
    int lowest;   ///< the smaller number
    int highest;  ///< the larger number
};

/// Runs timers on five threads, one per band of caller priority, so that a timer added by a thread of high
/// priority is served by one.
///
///     const int row = QMLTimerMng::getInstance()->AddTimer(&blink, 500);
///     ...
///     QMLTimerMng::getInstance()->GetSubMng(row)->Remove(&blink);
///
/// | row | thread          | caller's priority | configuration | thread priority |
/// |-----|-----------------|-------------------|---------------|-----------------|
/// | 0   | KLTimerSubMng_0 | 177-207           | 30            | 196             |
/// | 1   | KLTimerSubMng_1 | 208-219           | 30            | 197             |
/// | 2   | KLTimerSubMng_2 | 220-231           | 30            | 198             |
/// | 3   | KLTimerSubMng_3 | 232-243           | 30            | 199             |
/// | 4   | KLTimerSubMng_4 | 244-255           | 50            | 200             |
///
/// The threads start with the first use and end with qm_FwTerminate. Where the process may not raise
/// priorities they run with the one of that first caller; the failure is logged and nothing else differs. A
/// row whose thread could not be created (logged too) keeps its timers and fires none.
///
/// Any thread may call AddTimer and the getters: what they read is fixed after construction. One and the same
/// timer, added by threads of different bands, is in several rows.
class QMLTimerMng : public QMSingleton<QMLTimerMng> {
public:
    static constexpr int kRowCount = 5;
    static constexpr int kNoRow = -1;

    /// Adds the timer to the row of the calling thread's priority; see QMLTimerSubMng::Add.
    /// @return the row, 0 to 4; -1 when the timer is null, and, logged as "error\n", when no row serves the
    ///         caller's priority or the row did not take the timer.
    int AddTimer(QMLTimer* timer, unsigned intervalMs);

    /// @return the row's sub-manager, which lives as long as this manager; null outside 0 to 4.
    QMLTimerSubMng* GetSubMng(int row) const;

    /// @return the row's band; null outside 0 to 4.
    const QMLTimerBand* GetBand(int row) const;

    /// Ends the timer threads if there is a manager, and creates none. Each that cannot be joined logs
    /// "failed to end timer submng\n". The timers stay where they are and fire no more. Whoever destroys the
    /// singletons calls this first, as qm_FwTerminate does; from the main thread.
    static void StopThreads();

private:
    friend class QMSingleton<QMLTimerMng>;
    QMLTimerMng();
    ~QMLTimerMng();

    struct Row {
        QMLTimerBand band;
        std::unique_ptr<QMLTimerSubMng> subMng;
    };

    static Row createRow(int index);
    const Row* rowAt(int row) const;
    int rowOf(int priority) const;
    void endThreads(const char* operation);

    // Fixed after construction.
    QMThreadMng& threadMng;
    std::array<Row, kRowCount> rows;
};
