#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "LibWpp/MessageFields.h"
#include "Tests/Fuzz/Support/ArchiveModel.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"

// A decoded message against the model: each field in its turn.
namespace wpp_test {

inline void checkField(ArchiveModel& model, std::uint8_t value) {
    FUZZ_CHECK(value == model.byte());
}

inline void checkField(ArchiveModel& model, std::uint16_t value) {
    FUZZ_CHECK(value == model.number(sizeof(value)));
}

inline void checkField(ArchiveModel& model, std::uint32_t value) {
    std::uint32_t expected = 0;
    model.raw(expected);
    FUZZ_CHECK(value == expected);
}

template <class Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
void checkField(ArchiveModel& model, Enum value) {
    checkField(model, static_cast<std::uint32_t>(value));
}

inline void checkField(ArchiveModel& model, const std::string& value) {
    FUZZ_CHECK(value == model.text());
}

inline void checkField(ArchiveModel& model, const std::vector<unsigned int>& value) {
    const std::uint64_t count = model.word();
    if (count * sizeof(std::uint32_t) > model.remaining()) {
        FUZZ_CHECK(value.empty());
        return;
    }
    FUZZ_CHECK(value.size() == count);
    for (const unsigned int element : value) {
        checkField(model, std::uint32_t{element});
    }
}

inline void checkField(ArchiveModel& model, const common::HeadUnitInfo& value) {
    FUZZ_CHECK(value.has_text_1() && value.has_text_8());
    checkField(model, value.text_1());
    checkField(model, value.text_2());
    checkField(model, value.text_3());
    checkField(model, value.text_4());
    checkField(model, value.text_5());
    checkField(model, value.text_6());
    checkField(model, value.text_7());
    checkField(model, value.text_8());
}

inline void checkField(ArchiveModel& model, const wifi_projection_protocol::SppBytes& value) {
    const std::uint32_t length = model.word();
    const std::string expected = length == 0 ? std::string() : model.bytes(length);
    FUZZ_CHECK(value.length == expected.size());
    FUZZ_CHECK(std::string(value.data, value.data + value.length) == expected);
}

/// The id and every field of a message that was decoded from what `model` reads.
template <class Message>
void checkMessage(ArchiveModel& model, Message& message) {
    std::int32_t id = Message::kMessageId;
    model.raw(id);
    FUZZ_CHECK(message.messageId == id);
    std::apply([&model](const auto&... field) { (checkField(model, field), ...); }, message.fields());
}

}  // namespace wpp_test
