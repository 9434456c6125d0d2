// From fields to bytes and back. Each round makes a message as it is made for each sending and receiving: it is
// constructed, filled, encoded or decoded, and destroyed.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "LibWpp/ControlMessages.h"
#include "LibWpp/SppMessages.h"
#include "Messages.pb.h"

namespace {

using wifi_projection_protocol::RecvSppDataSerializer;
using wifi_projection_protocol::ResGetSecureSslKeySerializer;
using wifi_projection_protocol::SendSppDataSerializer;

const std::string kTexts[] = {"head unit 7", "WPA2-PSK", "channel 149"};
const std::string kUuid = "4de17a00-52cb-11e6-bdf4-0800200c9a66";
constexpr unsigned kDeviceId = 7;
constexpr std::size_t kInitialCapacity = 1024;

/// Freed memory stays with the process. Otherwise the C library gives a block of 1 MiB back to the system and takes it
/// anew for each message, or does not, by where the heap happens to end; a page's first touch costs more than its copy.
[[maybe_unused]] const bool keepsMemory =
    mallopt(M_MMAP_THRESHOLD, 32 << 20) != 0 && mallopt(M_TRIM_THRESHOLD, 256 << 20) != 0;

void encodeTextsOurs(benchmark::State& state) {
    for ([[maybe_unused]] const auto unused : state) {
        ResGetSecureSslKeySerializer message(kTexts[0], kTexts[1], kTexts[2]);
        message.serialize();
        benchmark::DoNotOptimize(message.archive.getBuffer());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(encodeTextsOurs)->Name("encode/three short strings/ours");

void encodeTextsProtobuf(benchmark::State& state) {
    for ([[maybe_unused]] const auto unused : state) {
        wpp_benchmark::TlsTexts message;
        message.set_certificate(kTexts[0]);
        message.set_private_key(kTexts[1]);
        message.set_ca_certificate(kTexts[2]);
        std::string bytes;
        message.SerializeToString(&bytes);
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(encodeTextsProtobuf)->Name("encode/three short strings/protobuf");

void decodeTextsOurs(benchmark::State& state) {
    ResGetSecureSslKeySerializer sent(kTexts[0], kTexts[1], kTexts[2]);
    sent.serialize();
    for ([[maybe_unused]] const auto unused : state) {
        ResGetSecureSslKeySerializer message;
        message.deserialize(sent.archive.getBuffer(), sent.archive.getSize());
        benchmark::DoNotOptimize(message.sslCaCertificate.data());
        if (message.sslCaCertificate.size() != kTexts[2].size()) {
            state.SkipWithError("the message came out wrong");
            break;
        }
    }
}
BENCHMARK(decodeTextsOurs)->Name("decode/three short strings/ours");

void decodeTextsProtobuf(benchmark::State& state) {
    wpp_benchmark::TlsTexts sent;
    sent.set_certificate(kTexts[0]);
    sent.set_private_key(kTexts[1]);
    sent.set_ca_certificate(kTexts[2]);
    const std::string bytes = sent.SerializeAsString();
    for ([[maybe_unused]] const auto unused : state) {
        wpp_benchmark::TlsTexts message;
        message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
        benchmark::DoNotOptimize(message.ca_certificate().data());
        if (message.ca_certificate().size() != kTexts[2].size()) {
            state.SkipWithError("the message came out wrong");
            break;
        }
    }
}
BENCHMARK(decodeTextsProtobuf)->Name("decode/three short strings/protobuf");

void encodeDataOurs(benchmark::State& state, std::uint32_t size) {
    const std::vector<std::uint8_t> data(size, std::uint8_t{0xA5});
    for ([[maybe_unused]] const auto unused : state) {
        SendSppDataSerializer message(kDeviceId, kUuid, data.data(), size);
        message.serialize();
        benchmark::DoNotOptimize(message.archive.getBuffer());
        benchmark::ClobberMemory();
    }
}

void encodeDataProtobuf(benchmark::State& state, std::uint32_t size) {
    const std::vector<std::uint8_t> data(size, std::uint8_t{0xA5});
    for ([[maybe_unused]] const auto unused : state) {
        wpp_benchmark::SppData message;
        message.set_bt_device_id(kDeviceId);
        message.set_uuid(kUuid);
        message.set_data(data.data(), size);
        std::string bytes;
        message.SerializeToString(&bytes);
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
}

void decodeDataOurs(benchmark::State& state, std::uint32_t size) {
    const std::vector<std::uint8_t> data(size, std::uint8_t{0xA5});
    RecvSppDataSerializer sent(kDeviceId, kUuid, data.data(), size);
    sent.serialize();
    for ([[maybe_unused]] const auto unused : state) {
        RecvSppDataSerializer message;
        message.deserialize(sent.archive.getBuffer(), sent.archive.getSize());
        benchmark::DoNotOptimize(message.data);
        if (message.dataLength != size) {
            state.SkipWithError("the message came out wrong");
            break;
        }
    }
}

/// What decoding is made of and nothing else: the message's buffer, the received bytes copied into it, and the fields
/// copied out of it.
void decodeDataPrescribed(benchmark::State& state, std::uint32_t size) {
    constexpr std::size_t kHeaderAndDevice = 5;
    constexpr std::size_t kPrefix = 4;
    const std::vector<std::uint8_t> data(size, std::uint8_t{0xA5});
    RecvSppDataSerializer sent(kDeviceId, kUuid, data.data(), size);
    sent.serialize();
    for ([[maybe_unused]] const auto unused : state) {
        const std::size_t received = sent.archive.getSize();
        const std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[received + kInitialCapacity]);
        std::memcpy(buffer.get(), sent.archive.getBuffer(), received);
        const std::uint8_t* const text = buffer.get() + kHeaderAndDevice + kPrefix;
        const std::string uuid(text, text + kUuid.size());
        const std::uint8_t* const bytes = text + kUuid.size() + kPrefix;
        const std::vector<std::uint8_t> storage(bytes, bytes + size);
        benchmark::DoNotOptimize(uuid.data());
        benchmark::DoNotOptimize(storage.data());
    }
}

void decodeDataProtobuf(benchmark::State& state, std::uint32_t size) {
    wpp_benchmark::SppData sent;
    sent.set_bt_device_id(kDeviceId);
    sent.set_uuid(kUuid);
    sent.set_data(std::string(size, '\xA5'));
    const std::string bytes = sent.SerializeAsString();
    for ([[maybe_unused]] const auto unused : state) {
        wpp_benchmark::SppData message;
        message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
        benchmark::DoNotOptimize(message.data().data());
        if (message.data().size() != size) {
            state.SkipWithError("the message came out wrong");
            break;
        }
    }
}

// Each size has a name of its own: metric/parameter/contender.
const bool registered = [] {
    constexpr std::pair<const char*, std::uint32_t> kSizes[] = {
        {"16 B", 16},         {"256 B", 256},       {"1 KiB", 1024},        {"4 KiB", 4096},
        {"16 KiB", 16 << 10}, {"64 KiB", 64 << 10}, {"256 KiB", 256 << 10}, {"1 MiB", 1 << 20},
    };
    for (const auto& [name, size] : kSizes) {
        const std::string encode = std::string("encode/") + name;
        benchmark::RegisterBenchmark((encode + "/ours").c_str(), encodeDataOurs, size);
        benchmark::RegisterBenchmark((encode + "/protobuf").c_str(), encodeDataProtobuf, size);
        const std::string decode = std::string("decode/") + name;
        benchmark::RegisterBenchmark((decode + "/ours").c_str(), decodeDataOurs, size);
        benchmark::RegisterBenchmark((decode + "/prescribed").c_str(), decodeDataPrescribed, size);
        benchmark::RegisterBenchmark((decode + "/protobuf").c_str(), decodeDataProtobuf, size);
    }
    return true;
}();

}  // namespace
