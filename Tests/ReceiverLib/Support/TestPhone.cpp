#include "Tests/ReceiverLib/Support/TestPhone.h"

namespace wpp_test {

using phone_protocol::HeadUnitMessage;
using phone_protocol::PhoneMessage;

bool TestPhone::say(const PhoneMessage& message) {
    return sayBytes(phone_protocol::encodeMessage(message));
}

bool TestPhone::sayHello(const std::string& clientId) {
    PhoneMessage message;
    message.mutable_hello()->set_client_id(clientId);
    message.mutable_hello()->set_phone_name("name of " + clientId);
    message.mutable_hello()->set_description("description of " + clientId);
    return say(message);
}

bool TestPhone::sayStatus(std::uint32_t status, const std::string& text) {
    PhoneMessage message;
    message.mutable_wifi_connect_status()->set_status(status);
    message.mutable_wifi_connect_status()->set_text(text);
    return say(message);
}

bool TestPhone::sayVersionFailure(std::uint32_t failure) {
    PhoneMessage message;
    message.mutable_wifi_version_result()->set_failure(failure);
    return say(message);
}

bool TestPhone::sayVersionAccepted() {
    PhoneMessage message;
    message.mutable_wifi_version_result()->set_accepted(true);
    return say(message);
}

bool TestPhone::askMayIStart() {
    PhoneMessage message;
    message.mutable_may_i_start();
    return say(message);
}

bool TestPhone::sayReady() {
    PhoneMessage message;
    message.mutable_ready_for_projection();
    return say(message);
}

bool TestPhone::sayStartResult(std::uint32_t result) {
    PhoneMessage message;
    message.mutable_start_result()->set_result(result);
    return say(message);
}

std::optional<HeadUnitMessage> TestPhone::hear() {
    while (heard.empty()) {
        const std::string bytes = link->receive();
        if (bytes.empty() || !decoder.feed(bytes.data(), bytes.size(), heard)) {
            return std::nullopt;
        }
    }
    HeadUnitMessage message;
    const bool parsed = message.ParseFromString(heard.front());
    heard.erase(heard.begin());
    return parsed ? std::optional(message) : std::nullopt;
}

std::optional<phone_protocol::Settings> TestPhone::hearSettings() {
    const auto message = hear();
    return message && message->has_settings() ? std::optional(message->settings()) : std::nullopt;
}

std::optional<std::int32_t> TestPhone::hearAnswer() {
    const auto message = hear();
    return message && message->has_start_answer() ? std::optional(message->start_answer().answer())
                                                  : std::nullopt;
}

std::optional<std::uint32_t> TestPhone::hearStart() {
    const auto message = hear();
    return message && message->has_start() ? std::optional(message->start().reason()) : std::nullopt;
}

}  // namespace wpp_test
