#include "private/QuestionQueue.h"

#include <algorithm>

namespace wifi_projection_protocol {

QuestionQueue::Turn::Turn(QuestionQueue& queue, const std::function<bool()>& cancelled) : owner(queue) {
    std::unique_lock<std::mutex> lock(owner.mutex);
    number = owner.nextNumber++;
    owner.waiting.push_back(number);
    const auto over = [&] { return owner.stopped || cancelled(); };
    owner.changed.wait(lock, [&] { return over() || owner.waiting.front() == number; });
    granted = !over();
}

QuestionQueue::Turn::~Turn() {
    const std::lock_guard<std::mutex> lock(owner.mutex);
    owner.waiting.erase(std::find(owner.waiting.begin(), owner.waiting.end(), number));
    owner.changed.notify_all();
}

void QuestionQueue::recheck() {
    const std::lock_guard<std::mutex> lock(mutex);
    changed.notify_all();
}

void QuestionQueue::stop() {
    const std::lock_guard<std::mutex> lock(mutex);
    stopped = true;
    changed.notify_all();
}

}  // namespace wifi_projection_protocol
