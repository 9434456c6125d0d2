#pragma once

#include <string>
#include <vector>

namespace wpp_test {

/// One entry of golden-messages.txt.
struct GoldenMessage {
    std::string name;
    std::string variant;
    std::string bytes;
};

/// All entries in the order of the file, which lies beside the test program. Throws when it cannot be read.
const std::vector<GoldenMessage>& goldenMessages();

/// The bytes of one entry; throws when there is none.
const std::string& goldenBytes(const std::string& name, const std::string& variant);

}  // namespace wpp_test
