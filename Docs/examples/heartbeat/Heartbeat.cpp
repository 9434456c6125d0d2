// A timer beats every 20 ms, a worker writes each beat into heartbeat.txt, an event tells of the third one.
#include "Foundation/QMEvent.h"
#include "Foundation/QMWorker.h"
#include "Utility/QMLTimerMng.h"
#include "Utility/QMLogFile.h"
#include "inc/QMFramework.h"

constexpr int kBeat = 1;

class Heart : public QMLTimer, public QMIMsgHandler {
public:
    Heart(QMLMsgBox& messageBox, QMLogFile& logFile, QMEvent& thirdBeat)
        : box(messageBox), log(logFile), third(thirdBeat) {}

    void Fire(const QMLTimerEntry&) override { box.SetEvent(kBeat, 0, false); }  // on a timer thread
    void OnMessage(std::uint32_t, const void*, std::uint32_t) override {}
    void OnEvent(std::uint32_t, std::uint32_t) override {  // on the worker's thread
        log.WriteFormat("beat %d\n", ++beats);
        if (beats == 3)
            third.SetEvent();
    }

private:
    QMLMsgBox& box;
    QMLogFile& log;
    QMEvent& third;
    int beats = 0;
};

int main() {
    qm_FwInitialize("Heartbeat", -1);
    bool beaten = false;
    {
        QMLogFile log;
        QMEvent thirdBeat;
        QMWorker worker(1);
        Heart heart(worker.GetMsgBox(), log, thirdBeat);
        worker.GetMsgBox().RegisterHandler(kBeat, &heart);
        if (log.Open(L".", L"heartbeat", L"txt", false, QMLogFile::kNoLimit, 0) && worker.Start("Heart")) {
            const int row = QMLTimerMng::getInstance()->AddTimer(&heart, 20);
            beaten = QMEvent::WaitEvent(&thirdBeat, 5000) == QMEvent::kSignalled;
            if (row >= 0)
                QMLTimerMng::getInstance()->GetSubMng(row)->Remove(&heart);
            worker.Stop(1000);
        }
    }
    qm_FwTerminate();
    return beaten ? 0 : 1;
}
