#include "Core/RfcommTransportAdapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <future>
#include <numeric>
#include <optional>
#include <thread>

#include "Core/RfcommTransportInputOutput.h"
#include "LibWpp/SppMessages.h"
#include "LibWpp/SppReceivedData.h"
#include "Pattern/QMSingleton.h"
#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/WppReceiver/Support/AnsweringPeer.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using wifi_projection_protocol::DisconnectSppSerializer;
using wifi_projection_protocol::kSppReceivedDataSize;
using wifi_projection_protocol::QmcWirelessProjectionBtProxy;
using wifi_projection_protocol::RfcommTransportInputOutput;
using wifi_projection_protocol::SendSppDataSerializer;
using wifi_projection_protocol::SppReceivedData;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* kUuid = "4DE17A0052CB11E6BDF40800200C9A66";

Bytes countingBytes(std::size_t count, std::uint8_t first = 0) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

class RfcommTransport : public testing::Test {
protected:
    ~RfcommTransport() override { qm_DestroySingletons(); }

    /// Bytes as the Bluetooth process sends them, published by the proxy.
    static void arrive(const Bytes& bytes, std::uint8_t id = 2, const std::string& uuid = kUuid,
                       unsigned event = QmcWirelessProjectionBtProxy::kSppDataReceived) {
        const SppReceivedData record{id, uuid, bytes.data(), static_cast<std::uint32_t>(bytes.size())};
        QmcWirelessProjectionBtProxy::getInstance()->NotifyObservers(event, &record, kSppReceivedDataSize, 0);
    }

    Bytes read(std::size_t most) {
        Bytes bytes(most);
        const int count = transport.read(bytes.data(), static_cast<unsigned>(most));
        bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return bytes;
    }

    int readOneByte() {
        std::uint8_t byte = 0;
        return transport.read(&byte, 1);
    }

    wpp_test::LogCapture log;
    RfcommTransportInputOutput transport{2};
};

TEST_F(RfcommTransport, AReadReturnsBytesOfTwoArrivalsInOrderAndTheNextTheRest) {
    arrive(countingBytes(10));
    arrive(countingBytes(5, 10));

    EXPECT_EQ(read(12), countingBytes(12));
    EXPECT_EQ(read(12), countingBytes(3, 12));
}

TEST_F(RfcommTransport, DataThatArrivedBeforeTheFirstReadIsKept) {
    arrive({1, 2, 3});
    EXPECT_THAT(read(10), ElementsAre(1, 2, 3));
}

TEST_F(RfcommTransport, AReadWaitsForDataToArrive) {
    std::future<Bytes> result = std::async(std::launch::async, [this] { return read(10); });
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    arrive({7});
    EXPECT_THAT(result.get(), ElementsAre(7));
}

TEST_F(RfcommTransport, AReadAfterAnEmptyArrivalReturnsZero) {
    arrive({});
    EXPECT_EQ(readOneByte(), 0);
}

TEST_F(RfcommTransport, ALeftOverSignalGivesAReadOfZero) {
    arrive({1});
    arrive({2});
    EXPECT_THAT(read(10), ElementsAre(1, 2));
    EXPECT_EQ(readOneByte(), 0);
}

TEST_F(RfcommTransport, DataOfAnotherDeviceAnotherServiceOrAnotherEventIsDropped) {
    arrive({1}, 3);
    arrive({2}, 2, "4de17a0052cb11e6bdf40800200c9a66");
    arrive({3}, 2, "4DE17A0052CB11E6BDF40800200C9A6");
    arrive({4}, 2, kUuid, 1);
    arrive({5});

    EXPECT_THAT(read(10), ElementsAre(5));
}

TEST_F(RfcommTransport, CloseMakesAWaitingReadReturnMinusOne) {
    std::future<int> result = std::async(std::launch::async, [this] { return readOneByte(); });
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    transport.close();
    EXPECT_EQ(result.get(), -1);
}

TEST_F(RfcommTransport, EveryReadAfterCloseReturnsMinusOneAlsoWithBytesLeft) {
    arrive({1, 2});
    transport.close();

    EXPECT_EQ(readOneByte(), -1);
    EXPECT_EQ(readOneByte(), -1);
    EXPECT_EQ(readOneByte(), -1);
}

TEST_F(RfcommTransport, CloseWakesEveryWaitingReader) {
    std::future<int> first = std::async(std::launch::async, [this] { return readOneByte(); });
    std::future<int> second = std::async(std::launch::async, [this] { return readOneByte(); });
    transport.close();
    EXPECT_EQ(first.get(), -1);
    EXPECT_EQ(second.get(), -1);
}

TEST_F(RfcommTransport, AfterCloseArrivalsReachNobody) {
    transport.close();
    arrive({1});
    EXPECT_EQ(readOneByte(), -1);
}

TEST_F(RfcommTransport, WithoutADescriptorToSpareAReadTakesItsTimeAndStillDelivers) {
    arrive({1, 2});
    const wpp_test::FailingCall shortage(wpp_test::SystemCall::kEpollCreate, EMFILE);
    const wpp_test::Stopwatch watch;

    EXPECT_THAT(read(10), ElementsAre(1, 2));
    EXPECT_THAT(read(10), IsEmpty());
    EXPECT_GE(watch.elapsed(), std::chrono::milliseconds(200));
    transport.close();
    EXPECT_EQ(readOneByte(), -1);
}

TEST_F(RfcommTransport, WithoutABluetoothProcessAWriteReturnsZero) {
    EXPECT_EQ(transport.write("x", 1), 0);
    EXPECT_TRUE(log.contains("Not connected"));
}

TEST_F(RfcommTransport, ReadsOfABacklogReturnItInOrderWhileMoreArrives) {
    Bytes expected;
    Bytes got;
    for (std::size_t arrival = 0; arrival < 50; ++arrival) {
        const Bytes bytes = countingBytes(37 + arrival, static_cast<std::uint8_t>(arrival));
        expected.insert(expected.end(), bytes.begin(), bytes.end());
        arrive(bytes);
        const Bytes part = read(20 + arrival);
        got.insert(got.end(), part.begin(), part.end());
    }
    while (got.size() < expected.size()) {
        const Bytes part = read(64);
        got.insert(got.end(), part.begin(), part.end());
    }
    EXPECT_EQ(got, expected);
}

TEST_F(RfcommTransport, AReadCostsTheSameHoweverMuchIsWaiting) {
    constexpr int kReads = 1000;
    const auto timeReads = [this] {
        const wpp_test::Stopwatch watch;
        for (int i = 0; i < kReads; ++i) {
            EXPECT_EQ(readOneByte(), 1);
        }
        return watch.elapsed();
    };
    arrive(Bytes(kReads + 1));
    const auto withLittle = timeReads();
    arrive(Bytes(std::size_t{32} << 20U));
    const auto limit = 20 * withLittle + std::chrono::milliseconds(300);
    EXPECT_LT(wpp_test::shortestOf(limit, timeReads), limit);
}

TEST_F(RfcommTransport, AThreadThatReadsWhileDataArrivesMissesNothing) {
    constexpr std::size_t kTotal = 20000;
    std::thread sender([] {
        for (std::size_t sent = 0; sent < kTotal; sent += 20) {
            arrive(countingBytes(20, static_cast<std::uint8_t>(sent)));
        }
    });
    Bytes all;
    while (all.size() < kTotal) {
        const Bytes part = read(33);
        all.insert(all.end(), part.begin(), part.end());
    }
    sender.join();
    EXPECT_EQ(all, countingBytes(kTotal));
}

/// The transport with a Bluetooth process that answers.
class ConnectedRfcommTransport : public RfcommTransport {
protected:
    ConnectedRfcommTransport() {
        directory.enter();
        process.emplace("WPP_SOCKET_TO_BT", wpp_test::AnsweringPeer::alwaysAnswer(5));
        opened = QmcWirelessProjectionBtProxy::getInstance()->openClient();
    }

    ~ConnectedRfcommTransport() override { QmcWirelessProjectionBtProxy::getInstance()->closeClient(); }

    std::size_t disconnects() {
        const auto ids = process->ids();
        return static_cast<std::size_t>(
            std::count(ids.begin(), ids.end(), DisconnectSppSerializer::kMessageId));
    }

    wpp_test::TemporaryDirectory directory;
    std::optional<wpp_test::AnsweringPeer> process;
    bool opened = false;
};

TEST_F(ConnectedRfcommTransport, AWriteSendsTheBytesAndReturnsTheReplysValue) {
    ASSERT_TRUE(opened);
    EXPECT_EQ(transport.write("abc", 3), 5);

    ASSERT_THAT(process->frames(), SizeIs(1));
    SendSppDataSerializer message;
    const std::string frame = process->frames()[0];
    message.deserialize(frame.data(), static_cast<unsigned>(frame.size()));
    EXPECT_EQ(message.messageId, SendSppDataSerializer::kMessageId);
    EXPECT_EQ(message.btDeviceId, 2);
    EXPECT_EQ(message.uuid, kUuid);
    EXPECT_EQ(std::string(message.data, message.data + message.dataLength), "abc");
}

TEST_F(ConnectedRfcommTransport, AWriteAfterCloseReturnsMinusOneAndSendsNothing) {
    transport.close();
    EXPECT_EQ(transport.write("abc", 3), -1);
    EXPECT_THAT(process->ids(), ElementsAre(DisconnectSppSerializer::kMessageId));
}

TEST_F(ConnectedRfcommTransport, ASecondCloseSendsNoSecondDisconnect) {
    transport.close();
    transport.close();

    ASSERT_THAT(process->frames(), SizeIs(1));
    DisconnectSppSerializer message;
    const std::string frame = process->frames()[0];
    message.deserialize(frame.data(), static_cast<unsigned>(frame.size()));
    EXPECT_EQ(message.btDeviceId, 2);
    EXPECT_EQ(message.uuid, kUuid);
}

TEST_F(ConnectedRfcommTransport, DestructionClosesAnOpenTransportOnce) {
    { const RfcommTransportInputOutput other(9); }
    EXPECT_EQ(disconnects(), 1U);
    {
        RfcommTransportInputOutput closed(9);
        closed.close();
    }
    EXPECT_EQ(disconnects(), 2U);
}

TEST_F(ConnectedRfcommTransport, ClosesFromManyThreadsSendOneDisconnect) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this] { transport.close(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(disconnects(), 1U);
}

TEST_F(ConnectedRfcommTransport, ADestroyedTransportLeavesTheProxyWithoutObservers) {
    { const RfcommTransportInputOutput other(9); }
    transport.close();
    QmcWirelessProjectionBtProxy::getInstance()->closeClient();
    qm_DestroySingletons();
    EXPECT_FALSE(log.contains("call RemoveObserver() before delete."));
}

}  // namespace
