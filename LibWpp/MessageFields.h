#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Pattern/QMSerializable.h"
#include "common/Common.pb.h"

// The wire form of every type that a message field can have: one pair of functions per type. Whole bodies are
// written and read by applying them to a message's field list.
namespace wifi_projection_protocol {

/// The byte field of an SPP data message: `data` and `length` are what is sent; after decoding `data` points
/// into `storage`.
struct SppBytes {
    const std::uint8_t*& data;
    std::uint32_t& length;
    std::vector<std::uint8_t>& storage;
};

/// A wider number cut to the byte that goes over the wire.
constexpr std::uint8_t lowByte(unsigned value) {
    return static_cast<std::uint8_t>(value & 0xFFU);
}

// One byte.
void writeField(QMSerialization::Archive& body, std::uint8_t value);
void readField(QMSerialization::Archive& body, std::uint8_t& value);

// Two bytes, big-endian.
void writeField(QMSerialization::Archive& body, std::uint16_t value);
void readField(QMSerialization::Archive& body, std::uint16_t& value);

// Four bytes in host order, as the id in the header.
void writeField(QMSerialization::Archive& body, std::uint32_t value);
void readField(QMSerialization::Archive& body, std::uint32_t& value);

// Length and bytes.
void writeField(QMSerialization::Archive& body, const std::string& value);
void readField(QMSerialization::Archive& body, std::string& value);

// Big-endian count, then each element as four bytes in host order. A count for which the buffer holds too few
// bytes leaves the list as it is, without a log line.
void writeField(QMSerialization::Archive& body, const std::vector<unsigned int>& value);
void readField(QMSerialization::Archive& body, std::vector<unsigned int>& value);

// The eight texts in their order. After reading, each counts as present.
void writeField(QMSerialization::Archive& body, const common::HeadUnitInfo& value);
void readField(QMSerialization::Archive& body, common::HeadUnitInfo& value);

// Big-endian length, then the bytes. A length that the buffer does not hold yields no bytes.
void writeField(QMSerialization::Archive& body, const SppBytes& value);
void readField(QMSerialization::Archive& body, const SppBytes& value);

template <class Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
void writeField(QMSerialization::Archive& body, const Enum& value) {
    static_assert(sizeof(Enum) == sizeof(std::uint32_t), "enumerations travel as 32 bits");
    writeField(body, static_cast<std::uint32_t>(value));
}

template <class Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
void readField(QMSerialization::Archive& body, Enum& value) {
    static_assert(sizeof(Enum) == sizeof(std::uint32_t), "enumerations travel as 32 bits");
    auto number = static_cast<std::uint32_t>(value);
    readField(body, number);
    value = static_cast<Enum>(number);
}

template <class Fields>
void writeFields(QMSerialization::Archive& body, const Fields& fields) {
    std::apply([&body](const auto&... field) { (writeField(body, field), ...); }, fields);
}

template <class Fields>
void readFields(QMSerialization::Archive& body, const Fields& fields) {
    std::apply([&body](auto&... field) { (readField(body, field), ...); }, fields);
}

}  // namespace wifi_projection_protocol
