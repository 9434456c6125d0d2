#include "Tests/ReceiverLib/Support/MemoryLink.h"

#include <algorithm>
#include <utility>

namespace wpp_test {

using Lock = std::unique_lock<std::mutex>;

class MemoryLink::Transport : public wifi_projection_protocol::TransportInputOutput {
public:
    explicit Transport(std::shared_ptr<MemoryLink> shared) : link(std::move(shared)) {}

    ~Transport() override {
        const Lock lock(link->mutex);
        link->closedByHeadUnit = true;
        ++link->releases;
        link->changed.notify_all();
    }

    int read(void* destination, unsigned length) override {
        Lock lock(link->mutex);
        link->isReading = true;
        link->changed.notify_all();
        link->changed.wait(lock, [this] { return isOver() || !link->toHeadUnit.empty(); });
        link->isReading = false;
        if (link->closedByHeadUnit || link->toHeadUnit.empty()) {
            return -1;
        }
        const std::size_t count = std::min<std::size_t>(length, link->toHeadUnit.size());
        std::copy_n(link->toHeadUnit.data(), count, static_cast<char*>(destination));
        link->toHeadUnit.erase(0, count);
        return static_cast<int>(count);
    }

    int write(const void* source, unsigned length) override {
        const Lock lock(link->mutex);
        if (isOver() || link->writesFail) {
            return -1;
        }
        link->toPhone.append(static_cast<const char*>(source), length);
        link->changed.notify_all();
        return 1;
    }

    void close() override {
        const Lock lock(link->mutex);
        ++link->closes;
        link->closedByHeadUnit = true;
        link->changed.notify_all();
    }

private:
    bool isOver() const { return link->closedByHeadUnit || link->closedByPhone; }

    const std::shared_ptr<MemoryLink> link;
};

std::unique_ptr<wifi_projection_protocol::TransportInputOutput> MemoryLink::makeTransport() {
    return std::make_unique<Transport>(shared_from_this());
}

bool MemoryLink::send(const std::string& bytes) {
    const Lock lock(mutex);
    toHeadUnit += bytes;
    changed.notify_all();
    return !closedByHeadUnit;
}

std::string MemoryLink::receive() {
    Lock lock(mutex);
    changed.wait_for(lock, kPatience, [this] { return closedByHeadUnit || !toPhone.empty(); });
    return std::exchange(toPhone, {});
}

void MemoryLink::close() {
    const Lock lock(mutex);
    closedByPhone = true;
    changed.notify_all();
}

bool MemoryLink::waitForClose() {
    Lock lock(mutex);
    return changed.wait_for(lock, kPatience, [this] { return closedByHeadUnit; });
}

bool MemoryLink::waitForRelease() {
    Lock lock(mutex);
    return changed.wait_for(lock, kPatience, [this] { return releases > 0; });
}

bool MemoryLink::waitUntilRead() {
    Lock lock(mutex);
    return changed.wait_for(lock, kPatience, [this] { return isReading && toHeadUnit.empty(); });
}

int MemoryLink::closeCount() const {
    const Lock lock(mutex);
    return closes;
}

int MemoryLink::releaseCount() const {
    const Lock lock(mutex);
    return releases;
}

void MemoryLink::failWrites() {
    const Lock lock(mutex);
    writesFail = true;
}

}  // namespace wpp_test
