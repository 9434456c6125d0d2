// The message classes, the first byte of the input choosing one: each field is what the model reads, and what was
// decoded encodes to bytes that decode to the same again.

#include <iterator>
#include <vector>

#include "LibWpp/ControlMessages.h"
#include "LibWpp/SppMessages.h"
#include "Tests/Fuzz/Support/ArchiveModel.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Tests/Fuzz/Support/LogTally.h"
#include "Tests/Fuzz/Support/MessageModel.h"

namespace {

using namespace wifi_projection_protocol;
using Bytes = std::vector<std::uint8_t>;

Bytes encode(WppIPCMessageCore& message) {
    FUZZ_CHECK(message.serialize());
    const std::uint8_t* first = message.archive.getBuffer();
    return Bytes(first, first + message.archive.getSize());
}

void decode(WppIPCMessageCore& message, const Bytes& bytes) {
    FUZZ_CHECK(message.deserialize(bytes.data(), static_cast<unsigned>(bytes.size())));
}

template <class Message>
void checkClass(const Bytes& bytes) {
    Message first;
    decode(first, bytes);
    wpp_test::ArchiveModel model(bytes.data(), bytes.size());
    wpp_test::checkMessage(model, first);
    FUZZ_CHECK(first.archive.getReadPos() == model.cursor);
    FUZZ_CHECK(model.agreesWithLog() && wpp_test::logLines() == model.failures);

    wpp_test::forgetLog();
    const Bytes encoded = encode(first);
    Message second;
    decode(second, encoded);
    FUZZ_CHECK(second.archive.getRemaining() == 0);
    FUZZ_CHECK(encode(second) == encoded);
    FUZZ_CHECK(wpp_test::logLines() == 0);

    // A message may be used again, for bytes that hold none of its fields.
    decode(second, Bytes());
    FUZZ_CHECK(second.messageId == first.messageId);
}

/// More bytes than a message can hold are announced and left out.
void checkTooManyBytes() {
    constexpr std::uint32_t kTooMany = 0x80000000U;
    const std::uint8_t byte = 1;
    SendSppDataSerializer message(1, "uuid", &byte, kTooMany);
    const Bytes encoded = encode(message);
    SendSppDataSerializer again;
    decode(again, encoded);
    FUZZ_CHECK(again.uuid == "uuid" && again.dataLength == 0 && again.archive.getRemaining() == 0);
}

using Check = void (*)(const Bytes& bytes);

constexpr Check kChecks[] = {
    checkClass<StartWifiProjectionProtocolSerializer>,
    checkClass<SetProjectionPortInfoSerializer>,
    checkClass<SetWifiInfoSerializer>,
    checkClass<RfcommConnectedSerializer>,
    checkClass<RfcommDisconnectedSerializer>,
    checkClass<StartProjectionSerializer>,
    checkClass<StopProjectionStartSerializer>,
    checkClass<ReplyCanStartProjectionSerializer>,
    checkClass<AddDeviceInfoSerializer>,
    checkClass<DeleteDeviceInfoSerializer>,
    checkClass<ResGetSecureSslKeySerializer>,
    checkClass<OnReadyForProjectionSerializer>,
    checkClass<OnWifiVersionResponseFailureSerializer>,
    checkClass<OnStartProjectionResponseSerializer>,
    checkClass<CanStartProjectionSerializer>,
    checkClass<OnWifiConnectStatusSerializer>,
    checkClass<OnClientConnectedSerializer>,
    checkClass<OnClientLostSerializer>,
    checkClass<ReqGetSecureSslKeySerializer>,
    checkClass<SendSppDataSerializer>,
    checkClass<DisconnectSppSerializer>,
    checkClass<RecvSppDataSerializer>,
};
static_assert(std::size(kChecks) == 22, "19 control messages and 3 of the Bluetooth link");

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    wpp_test::FuzzInput input(data, size);
    wpp_test::forgetLog();
    const Check check = kChecks[input.takeByte() % std::size(kChecks)];
    check(input.takeRest());
    checkTooManyBytes();
    return 0;
}
