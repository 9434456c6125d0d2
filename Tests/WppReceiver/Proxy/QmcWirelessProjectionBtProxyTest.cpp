#include "Proxy/QmcWirelessProjectionBtProxy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "LibWpp/SppMessages.h"
#include "LibWpp/SppReceivedData.h"
#include "Pattern/QMSingleton.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/WppReceiver/Support/AnsweringPeer.h"

namespace {

using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;
using wifi_projection_protocol::DisconnectSppSerializer;
using wifi_projection_protocol::RecvSppDataSerializer;
using wifi_projection_protocol::SendSppDataSerializer;
using wifi_projection_protocol::SppReceivedData;
using wpp_test::FramedPeer;
using Bytes = std::string;

const Bytes kHandled(1, '\1');
const Bytes kNotHandled(1, '\0');

/// Copies the records that it is notified of.
class Observer final : public QMObserver_ {
public:
    struct Seen {
        unsigned event;
        int size;
        std::uint8_t id;
        std::string uuid;
        Bytes bytes;
    };

    unsigned update(unsigned event, const void* data, int size) override {
        const auto& record = *static_cast<const SppReceivedData*>(data);
        std::lock_guard guard(mutex);
        list.push_back(
            {event, size, record.btDeviceId, record.uuid, Bytes(record.data, record.data + record.length)});
        if (onUpdate) {
            onUpdate();
        }
        return 7;
    }

    std::function<void()> onUpdate;

    std::vector<Seen> seen() {
        std::lock_guard guard(mutex);
        return list;
    }

private:
    std::mutex mutex;
    std::vector<Seen> list;
};

class QmcWirelessProjectionBtProxy : public testing::Test {
protected:
    using Proxy = wifi_projection_protocol::QmcWirelessProjectionBtProxy;

    QmcWirelessProjectionBtProxy() {
        directory.enter();
        proxy = Proxy::getInstance();
        proxy->openServer();
        process = FramedPeer::connectTo("WPP_SOCKET_FROM_BT");
    }

    ~QmcWirelessProjectionBtProxy() override {
        proxy->RemoveObserver(&observer);
        qm_DestroySingletons();
    }

    /// Sends a frame and waits for the reply.
    std::optional<Bytes> exchange(const Bytes& payload) {
        process.sendFrame(payload);
        return process.receiveFrame();
    }

    template <class Message>
    static Bytes encode(Message& message) {
        message.serialize();
        return Bytes(message.archive.getBuffer(), message.archive.getBuffer() + message.archive.getSize());
    }

    static Bytes sppData(std::uint8_t id, const std::string& uuid, const Bytes& bytes) {
        RecvSppDataSerializer message(id, uuid, reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                      static_cast<std::uint32_t>(bytes.size()));
        return encode(message);
    }

    wpp_test::LogCapture log;
    wpp_test::TemporaryDirectory directory;
    Proxy* proxy = nullptr;
    FramedPeer process;
    Observer observer;
};

TEST_F(QmcWirelessProjectionBtProxy, ReceivedDataIsPublishedToEveryObserverAndAnsweredWithOne) {
    constexpr unsigned kOtherEvent = 9;
    Observer other;
    proxy->AddObserver(&observer);
    proxy->AddObserver(&other, &kOtherEvent, 1);

    EXPECT_THAT(exchange(sppData(2, "uuid", "123")), Optional(kHandled));

    ASSERT_THAT(observer.seen(), SizeIs(1));
    EXPECT_EQ(observer.seen()[0].event, 0U);
    EXPECT_EQ(observer.seen()[0].size, 16);
    EXPECT_EQ(observer.seen()[0].id, 2);
    EXPECT_EQ(observer.seen()[0].uuid, "uuid");
    EXPECT_EQ(observer.seen()[0].bytes, "123");
    EXPECT_THAT(other.seen(), SizeIs(1));
    proxy->RemoveObserver(&other);
}

TEST_F(QmcWirelessProjectionBtProxy, DataOfLengthZeroIsPublishedAndAnsweredWithOne) {
    proxy->AddObserver(&observer);

    EXPECT_THAT(exchange(sppData(2, "uuid", {})), Optional(kHandled));
    ASSERT_THAT(observer.seen(), SizeIs(1));
    EXPECT_THAT(observer.seen()[0].bytes, IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QmcWirelessProjectionBtProxy, WithoutObserversDataIsStillAnsweredWithOne) {
    EXPECT_THAT(exchange(sppData(2, "uuid", "1")), Optional(kHandled));
}

TEST_F(QmcWirelessProjectionBtProxy, AMessageForTheOtherDirectionIsUnknownAndAnsweredWithZero) {
    SendSppDataSerializer message(2, "uuid", nullptr, 0);

    EXPECT_THAT(exchange(encode(message)), Optional(kNotHandled));
    EXPECT_TRUE(log.contains("[error] onReceivedServerSocket()@QmcWirelessProjectionBtProxy("));
    EXPECT_TRUE(log.contains("*** unknown message! *** messageId[3000] "));
    EXPECT_FALSE(log.contains("processing failed"));
}

TEST_F(QmcWirelessProjectionBtProxy, AFrameTooShortForAnIdIsUnknown) {
    EXPECT_THAT(exchange("ab"), Optional(kNotHandled));
    EXPECT_TRUE(log.contains("buffer size over!"));
    EXPECT_TRUE(log.contains("*** unknown message! *** messageId[-1] "));
}

TEST_F(QmcWirelessProjectionBtProxy, AFrameOfZeroBytesGetsNoReply) {
    process.sendFrame("");
    EXPECT_THAT(exchange(sppData(2, "uuid", {})), Optional(kHandled));
    EXPECT_EQ(process.receiveFrame(std::chrono::milliseconds(150)), std::nullopt);
    EXPECT_TRUE(log.contains("no data::recv size[0]"));
}

TEST_F(QmcWirelessProjectionBtProxy, ATruncatedMessageIsPublishedWithEmptyFieldsAndAnsweredWithOne) {
    proxy->AddObserver(&observer);
    Bytes message = sppData(2, "uuid", "123");
    message.resize(6);

    EXPECT_THAT(exchange(message), Optional(kHandled));
    ASSERT_THAT(observer.seen(), SizeIs(1));
    EXPECT_EQ(observer.seen()[0].uuid, "");
    EXPECT_THAT(observer.seen()[0].bytes, IsEmpty());
    EXPECT_TRUE(log.contains("buffer size over!"));
}

TEST_F(QmcWirelessProjectionBtProxy, ALengthBeyondTheMessageGivesNoBytes) {
    proxy->AddObserver(&observer);
    Bytes message = sppData(2, "uuid", "123");
    const std::size_t lengthAt = message.size() - 7;
    std::fill_n(message.begin() + static_cast<std::ptrdiff_t>(lengthAt), 4, '\xFF');

    EXPECT_THAT(exchange(message), Optional(kHandled));
    ASSERT_THAT(observer.seen(), SizeIs(1));
    EXPECT_EQ(observer.seen()[0].uuid, "uuid");
    EXPECT_THAT(observer.seen()[0].bytes, IsEmpty());
    EXPECT_TRUE(log.contains("buffer size over!"));
}

TEST_F(QmcWirelessProjectionBtProxy, AReplyThatCannotBeSentIsLogged) {
    std::promise<void> gone;
    std::shared_future<void> isGone(gone.get_future());
    observer.onUpdate = [isGone] { isGone.wait(); };
    proxy->AddObserver(&observer);
    process.sendFrame(sppData(2, "uuid", "1"));
    process.close();
    gone.set_value();
    ASSERT_TRUE(log.waitFor("*** message processing failed! *** messageId[4000] "));

    FramedPeer next = FramedPeer::connectTo("WPP_SOCKET_FROM_BT");
    next.sendFrame(sppData(2, "uuid", "3"));
    EXPECT_THAT(next.receiveFrame(), Optional(kHandled));
}

TEST_F(QmcWirelessProjectionBtProxy, AnObserverThatThrowsIsLoggedAndTheDataAnsweredWithOne) {
    observer.onUpdate = [] { throw std::runtime_error("no room"); };
    proxy->AddObserver(&observer);
    EXPECT_THAT(exchange(sppData(2, "uuid", "1")), Optional(kHandled));
    EXPECT_TRUE(log.contains("catch exception. messageId[4000], what [no room]"));

    EXPECT_THAT(exchange(sppData(2, "uuid", "2")), Optional(kHandled));
    EXPECT_THAT(observer.seen(), SizeIs(2));
}

TEST_F(QmcWirelessProjectionBtProxy, WithoutAConnectionSendingReturnsZero) {
    const std::uint8_t byte = 1;
    EXPECT_EQ(proxy->sendSppData(2, "uuid", &byte, 1), 0);
    EXPECT_EQ(proxy->disconnectSpp(2, "uuid"), 0);
    EXPECT_TRUE(log.contains("Not connected"));
}

TEST_F(QmcWirelessProjectionBtProxy, SendingReturnsTheValueOfTheReplyByte) {
    const wpp_test::AnsweringPeer listening("WPP_SOCKET_TO_BT", wpp_test::AnsweringPeer::alwaysAnswer(200));
    ASSERT_TRUE(proxy->openClient());
    const std::uint8_t byte = 1;

    EXPECT_EQ(proxy->sendSppData(2, "uuid", &byte, 1), 200);
    EXPECT_EQ(proxy->disconnectSpp(2, "uuid"), 200);
}

TEST_F(QmcWirelessProjectionBtProxy, SendSppDataHasTheBytesOfTheLink) {
    wpp_test::AnsweringPeer listening("WPP_SOCKET_TO_BT");
    ASSERT_TRUE(proxy->openClient());
    const std::vector<std::uint8_t> bytes = {0xAA, 0xBB, 0xCC};
    const std::string uuid = "4DE17A0052CB11E6BDF40800200C9A66";
    EXPECT_EQ(proxy->sendSppData(2, uuid, bytes.data(), 3), 1);

    const Bytes expected = Bytes("\xB8\x0B\0\0\x02\0\0\0\x20", 9) + uuid + Bytes("\0\0\0\x03\xAA\xBB\xCC", 7);
    ASSERT_THAT(listening.frames(), SizeIs(1));
    EXPECT_EQ(listening.frames()[0], expected);
    EXPECT_EQ(expected.size(), 48U);
}

TEST_F(QmcWirelessProjectionBtProxy, SendingToAProcessThatIsGoneReturnsZero) {
    std::optional<wpp_test::AnsweringPeer> listening;
    listening.emplace("WPP_SOCKET_TO_BT");
    ASSERT_TRUE(proxy->openClient());
    listening.reset();
    const std::uint8_t byte = 1;

    EXPECT_EQ(proxy->sendSppData(2, "uuid", &byte, 1), 0);
    EXPECT_EQ(proxy->sendSppData(2, "uuid", &byte, 1), 0);
}

TEST_F(QmcWirelessProjectionBtProxy, TheInstanceIsOneUntilTheFrameworkDestroysIt) {
    EXPECT_EQ(Proxy::getInstance(), proxy);
    proxy->AddObserver(&observer);
    qm_DestroySingletons();
    EXPECT_TRUE(log.contains("call RemoveObserver() before delete. [1]"));
    proxy = Proxy::getInstance();
    EXPECT_FALSE(proxy->RemoveObserver(&observer));
}

}  // namespace
