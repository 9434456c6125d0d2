#include "Utility/QMLTimerMng.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "Diagnostics/QMLog.h"

namespace {

struct TableRow {
    QMLTimerBand band;
    std::uint32_t configuration;
    int threadPriority;
};

constexpr std::array<TableRow, QMLTimerMng::kRowCount> kTable{{
    {{177, 207}, 30, 196},
    {{208, 219}, 30, 197},
    {{220, 231}, 30, 198},
    {{232, 243}, 30, 199},
    {{244, 255}, 50, 200},
}};

constexpr std::uint32_t kStopLimitMs = 3000;

}  // namespace

QMLTimerMng::QMLTimerMng() : threadMng(*QMThreadMng::getInstance()) {
    for (int index = 0; index < kRowCount; ++index) {
        rows[static_cast<std::size_t>(index)] = createRow(index);
    }
}

/// A sub-manager that did not start as it should has logged that, and its row stays.
QMLTimerMng::Row QMLTimerMng::createRow(int index) {
    const TableRow& row = kTable[static_cast<std::size_t>(index)];
    auto subMng = std::make_unique<QMLTimerSubMng>(row.configuration, row.threadPriority);
    char name[32];
    std::snprintf(name, sizeof(name), "KLTimerSubMng_%d", index);
    subMng->Start(name);
    return {row.band, std::move(subMng)};
}

QMLTimerMng::~QMLTimerMng() {
    endThreads("~QMLTimerMng");
}

void QMLTimerMng::StopThreads() {
    if (QMLTimerMng* const manager = existingInstance()) {
        manager->endThreads("StopThreads");
    }
}

void QMLTimerMng::endThreads(const char* operation) {
    for (const Row& row : rows) {
        if (!row.subMng->Stop(kStopLimitMs)) {
            qm_Log(QM_SOURCE_PATH, operation, __LINE__, QM_LOG_LEVEL_ERROR, "failed to end timer submng\n");
        }
    }
}

int QMLTimerMng::AddTimer(QMLTimer* timer, unsigned intervalMs) {
    if (timer == nullptr) {
        return kNoRow;
    }
    const int index = rowOf(threadMng.GetCurrentThreadPriority());
    const Row* const row = rowAt(index);
    if (row == nullptr || !row->subMng->Add(timer, intervalMs)) {
        QM_LOG_ERROR("error\n");
        return kNoRow;
    }
    return index;
}

int QMLTimerMng::rowOf(int priority) const {
    const auto found = std::find_if(rows.begin(), rows.end(), [priority](const Row& row) {
        return row.band.lowest <= priority && priority <= row.band.highest;
    });
    return found == rows.end() ? kNoRow : static_cast<int>(found - rows.begin());
}

const QMLTimerMng::Row* QMLTimerMng::rowAt(int row) const {
    return row >= 0 && row < kRowCount ? &rows[static_cast<std::size_t>(row)] : nullptr;
}

QMLTimerSubMng* QMLTimerMng::GetSubMng(int row) const {
    const Row* const found = rowAt(row);
    return found == nullptr ? nullptr : found->subMng.get();
}

const QMLTimerBand* QMLTimerMng::GetBand(int row) const {
    const Row* const found = rowAt(row);
    return found == nullptr ? nullptr : &found->band;
}
