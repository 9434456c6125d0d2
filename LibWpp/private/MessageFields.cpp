#include "LibWpp/MessageFields.h"

#include <climits>

namespace wifi_projection_protocol {

using QMSerialization::Archive;

namespace {

struct TextField {
    const std::string& (common::HeadUnitInfo::*get)() const;
    std::string* (common::HeadUnitInfo::*present)();
};

constexpr TextField kHeadUnitTexts[] = {
    {&common::HeadUnitInfo::text_1, &common::HeadUnitInfo::mutable_text_1},
    {&common::HeadUnitInfo::text_2, &common::HeadUnitInfo::mutable_text_2},
    {&common::HeadUnitInfo::text_3, &common::HeadUnitInfo::mutable_text_3},
    {&common::HeadUnitInfo::text_4, &common::HeadUnitInfo::mutable_text_4},
    {&common::HeadUnitInfo::text_5, &common::HeadUnitInfo::mutable_text_5},
    {&common::HeadUnitInfo::text_6, &common::HeadUnitInfo::mutable_text_6},
    {&common::HeadUnitInfo::text_7, &common::HeadUnitInfo::mutable_text_7},
    {&common::HeadUnitInfo::text_8, &common::HeadUnitInfo::mutable_text_8},
};

constexpr std::uint32_t kElementSize = sizeof(std::uint32_t);
static_assert(sizeof(unsigned int) == kElementSize, "list elements travel as 32 bits");

}  // namespace

void writeField(Archive& body, std::uint8_t value) {
    body.write(value);
}
void readField(Archive& body, std::uint8_t& value) {
    body.read(value);
}

void writeField(Archive& body, std::uint16_t value) {
    body.write(value);
}
void readField(Archive& body, std::uint16_t& value) {
    body.read(value);
}

void writeField(Archive& body, std::uint32_t value) {
    body.write(&value, static_cast<int>(sizeof(value)));
}
void readField(Archive& body, std::uint32_t& value) {
    body.read(&value, sizeof(value));
}

void writeField(Archive& body, const std::string& value) {
    body.write(value);
}
void readField(Archive& body, std::string& value) {
    body.read(value);
}

void writeField(Archive& body, const std::vector<unsigned int>& value) {
    body.write(static_cast<std::uint32_t>(value.size()));
    body.write(value.data(), static_cast<int>(value.size() * kElementSize));
}

void readField(Archive& body, std::vector<unsigned int>& value) {
    std::uint32_t count = 0;
    body.read(count);
    if (count > body.getRemaining() / kElementSize) {
        return;
    }
    value.resize(count);
    if (count > 0) {
        body.read(value.data(), count * kElementSize);
    }
}

void writeField(Archive& body, const common::HeadUnitInfo& value) {
    for (const TextField& text : kHeadUnitTexts) {
        body.write((value.*text.get)());
    }
}

void readField(Archive& body, common::HeadUnitInfo& value) {
    for (const TextField& text : kHeadUnitTexts) {
        body.read(*(value.*text.present)());
    }
}

void writeField(Archive& body, const SppBytes& value) {
    body.write(value.length);
    if (value.length <= static_cast<std::uint32_t>(INT_MAX)) {
        body.write(value.data, static_cast<int>(value.length));
    }
}

void readField(Archive& body, const SppBytes& value) {
    body.read(value.length);
    body.read(value.storage, value.length);
    value.length = static_cast<std::uint32_t>(value.storage.size());
    value.data = value.storage.data();
}

}  // namespace wifi_projection_protocol
