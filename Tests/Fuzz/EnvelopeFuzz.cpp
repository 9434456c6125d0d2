// The envelope: a header takes the id from the first four bytes, whatever follows, and writes nothing but the id.

#include <cstring>
#include <vector>

#include "LibWpp/WppIPCMessageHeader.h"
#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "Tests/Fuzz/Support/LogTally.h"

using wifi_projection_protocol::WppIPCMessageHeader;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::uint8_t> bytes = wpp_test::FuzzInput(data, size).takeRest();
    wpp_test::forgetLog();
    const bool hasId = size >= sizeof(std::int32_t);
    std::int32_t id = WppIPCMessageHeader::kUnknownMessageId;
    if (hasId) {
        std::memcpy(&id, data, sizeof(id));
    }

    WppIPCMessageHeader header;
    FUZZ_CHECK(header.deserialize(bytes.data(), static_cast<unsigned>(bytes.size())));
    FUZZ_CHECK(header.messageId == id);
    FUZZ_CHECK(header.archive.getRemaining() == (hasId ? size - sizeof(id) : size));
    FUZZ_CHECK(wpp_test::logLines() == (hasId ? 0U : 1U));

    FUZZ_CHECK(header.serialize());
    FUZZ_CHECK(header.archive.getSize() == sizeof(id));
    FUZZ_CHECK(std::memcmp(header.archive.getBuffer(), &id, sizeof(id)) == 0);

    // A header of an id of its own takes that of the next message, and keeps it when there is none.
    WppIPCMessageHeader another(~id);
    another.deserialize(header.archive.getBuffer(), header.archive.getSize());
    FUZZ_CHECK(another.messageId == id);
    another.deserialize(nullptr, 0);
    FUZZ_CHECK(another.messageId == id && another.archive.getSize() == 0);
    return 0;
}
