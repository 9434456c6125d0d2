#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Tests/ReceiverLib/Support/PhoneChannel.h"
#include "phone/PhoneMessageCodec.h"
#include "phone/PhoneProtocol.pb.h"

namespace wpp_test {

/// What a phone says and hears over one channel. One thread at a time.
class TestPhone {
public:
    explicit TestPhone(std::shared_ptr<PhoneChannel> channel) : link(std::move(channel)) {}

    bool say(const phone_protocol::PhoneMessage& message);
    bool sayBytes(const std::string& bytes) { return link->send(bytes); }
    bool sayHello(const std::string& clientId);
    bool sayStatus(std::uint32_t status, const std::string& text);
    bool sayVersionFailure(std::uint32_t failure);
    bool sayVersionAccepted();
    bool askMayIStart();
    bool sayReady();
    bool sayStartResult(std::uint32_t result);

    /// @return the head unit's next message; empty when it has closed or says nothing sensible.
    std::optional<phone_protocol::HeadUnitMessage> hear();

    /// hear(), for one kind.
    std::optional<phone_protocol::Settings> hearSettings();
    std::optional<std::int32_t> hearAnswer();
    std::optional<std::uint32_t> hearStart();

    /// Says Hello and hears Settings.
    bool introduce(const std::string& clientId) { return sayHello(clientId) && hearSettings(); }

private:
    std::shared_ptr<PhoneChannel> link;
    phone_protocol::PhoneMessageDecoder decoder;
    std::vector<std::string> heard;
};

}  // namespace wpp_test
