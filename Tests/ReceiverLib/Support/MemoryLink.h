#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "Tests/ReceiverLib/Support/PhoneChannel.h"
#include "wifi_projection_protocol/TransportInputOutput.h"

namespace wpp_test {

/// A transport without a socket: what the two ends share, and the phone's end of it. The head unit's end
/// comes from makeTransport(), once.
class MemoryLink : public PhoneChannel, public std::enable_shared_from_this<MemoryLink> {
public:
    static std::shared_ptr<MemoryLink> make() { return std::make_shared<MemoryLink>(); }

    std::unique_ptr<wifi_projection_protocol::TransportInputOutput> makeTransport();

    bool send(const std::string& bytes) override;
    std::string receive() override;
    void close() override;

    /// Waits for the head unit's end to be closed, and to be destroyed. @return false after kPatience.
    bool waitForClose();
    bool waitForRelease();

    /// Waits until the head unit has read everything and waits for more.
    bool waitUntilRead();

    int closeCount() const;
    int releaseCount() const;

    /// From now on the head unit's writes fail.
    void failWrites();

private:
    class Transport;

    mutable std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::string toHeadUnit;
    std::string toPhone;
    bool closedByHeadUnit = false;
    bool closedByPhone = false;
    bool writesFail = false;
    bool isReading = false;
    int closes = 0;
    int releases = 0;
};

}  // namespace wpp_test
