#include "Utility/QMLTimerQueue.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <new>
#include <utility>

#include "Diagnostics/QMLog.h"

namespace {

constexpr std::uint32_t kShortestIntervalMs = 1;
constexpr std::uint32_t kNoFlag = 0;

std::uint32_t tickOf(std::uint64_t time) {
    return static_cast<std::uint32_t>(time);
}

/// The first point of the grid due + n x interval (n at least 1) that lies behind `passTime`.
std::uint64_t nextOnGrid(std::uint64_t due, std::uint32_t interval, std::uint64_t passTime) {
    const std::uint64_t next = due + interval;
    if (next > passTime) {
        return next;
    }
    return next + ((passTime - next) / interval + 1) * interval;
}

void logException(const QMLTimerEntry& entry, const char* what) {
    qm_Log(QM_SOURCE_PATH, "firePass", __LINE__, QM_LOG_LEVEL_ERROR,
           "catch exception. timer[%p] interval[%u], what [%s]\n", static_cast<const void*>(entry.timer),
           static_cast<unsigned>(entry.intervalMs), what);
}

void fireGuarded(const QMLTimerEntry& entry) {
    try {
        entry.timer->Fire(entry);
    } catch (const std::exception& exception) {
        logException(entry, exception.what());
    } catch (...) {
        logException(entry, "unknown");
    }
}

}  // namespace

bool QMLTimerQueue::EarlierDue::operator()(const Slot& left, const Slot& right) const noexcept {
    return left.due != right.due ? left.due < right.due
                                 : std::less<const QMLTimer*>()(left.timer, right.timer);
}

bool QMLTimerQueue::add(QMLTimer* timer, std::uint32_t intervalMs, std::uint32_t tick) {
    if (timer == nullptr) {
        return false;
    }
    advance(tick);
    const std::uint32_t interval = std::max(intervalMs, kShortestIntervalMs);
    const std::uint64_t due = now + interval;
    try {
        // Whatever may fail comes before the queue is changed for good.
        std::set<Slot, EarlierDue> made{{due, timer, nullptr}};
        const auto [place, inserted] =
            records.try_emplace(timer, Record{{timer, interval, tickOf(due), kNoFlag}, due});
        if (inserted) {
            auto slot = made.extract(made.begin());
            slot.value().record = &place->second;
            slots.insert(std::move(slot));
        }
        return inserted;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool QMLTimerQueue::remove(const QMLTimer* timer) {
    const auto found = records.find(timer);
    if (found == records.end()) {
        return false;
    }
    slots.erase({found->second.due, timer, nullptr});
    records.erase(found);
    return true;
}

bool QMLTimerQueue::find(const QMLTimer* timer, QMLTimerEntry& out) const {
    const auto found = records.find(timer);
    if (found == records.end()) {
        return false;
    }
    out = found->second.entry;
    return true;
}

void QMLTimerQueue::clear() {
    slots.clear();
    records.clear();
}

void QMLTimerQueue::advance(std::uint32_t tick) {
    now += static_cast<std::uint32_t>(tick - tickOf(now));
}

std::size_t QMLTimerQueue::firePass(std::uint32_t tick) {
    advance(tick);
    const std::uint64_t passTime = now;
    std::size_t fired = 0;
    // What is put back or added is due after passTime, so the pass ends. A timer may have changed anything by
    // the time it returns: nothing is kept across its call.
    while (!slots.empty() && slots.begin()->due <= passTime) {
        fireGuarded(rescheduleFirst(passTime));
        ++fired;
    }
    return fired;
}

/// Puts the first slot back at its timer's next due time. @return the entry as it was before.
QMLTimerEntry QMLTimerQueue::rescheduleFirst(std::uint64_t passTime) {
    auto slot = slots.extract(slots.begin());
    Record& record = *slot.value().record;
    const QMLTimerEntry served = record.entry;
    record.due = nextOnGrid(record.due, served.intervalMs, passTime);
    record.entry.dueMs = tickOf(record.due);
    slot.value().due = record.due;
    // Nothing is due after it where all timers have much the same interval; then there is nothing to search.
    slots.insert(slots.end(), std::move(slot));
    return served;
}

std::optional<std::uint32_t> QMLTimerQueue::nextWait(std::uint32_t tick) {
    advance(tick);
    if (slots.empty()) {
        return std::nullopt;
    }
    const std::uint64_t due = slots.begin()->due;
    const std::uint64_t wait = due > now ? due - now : 0;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(wait, kLongestWaitMs));
}
