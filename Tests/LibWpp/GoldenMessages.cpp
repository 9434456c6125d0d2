#include "Tests/LibWpp/GoldenMessages.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace wpp_test {

namespace {

constexpr int kHexadecimal = 16;

/// "XX" or "XX*N".
std::string bytesOf(const std::string& token) {
    const std::size_t star = token.find('*');
    const std::size_t count = star == std::string::npos ? 1 : std::stoul(token.substr(star + 1));
    const int value = std::stoi(token.substr(0, star), nullptr, kHexadecimal);
    return std::string(count, static_cast<char>(value));
}

std::vector<GoldenMessage> readAll() {
    const auto path = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "golden-messages.txt";
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("golden-messages.txt is not beside the test program");
    }
    std::vector<GoldenMessage> messages;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (line[0] != ' ') {
            messages.emplace_back();
            words >> messages.back().name >> messages.back().variant;
            continue;
        }
        for (std::string token; words >> token;) {
            messages.back().bytes += bytesOf(token);
        }
    }
    return messages;
}

}  // namespace

const std::vector<GoldenMessage>& goldenMessages() {
    static const std::vector<GoldenMessage> messages = readAll();
    return messages;
}

const std::string& goldenBytes(const std::string& name, const std::string& variant) {
    for (const auto& message : goldenMessages()) {
        if (message.name == name && message.variant == variant) {
            return message.bytes;
        }
    }
    throw std::runtime_error("there is no golden message " + name + " " + variant);
}

}  // namespace wpp_test
