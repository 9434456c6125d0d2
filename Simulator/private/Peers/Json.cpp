#include "Simulator/private/Peers/Json.h"

#include <fstream>
#include <iterator>

template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace simulator {

namespace {

[[noreturn]] void wrong(const char* name, const char* what) {
    throw JsonError("\"" + std::string(name) + "\" " + what);
}

unsigned valueOfDigit(char digit) {
    static const std::string kDigits = "0123456789abcdef";
    const std::size_t value = kDigits.find(static_cast<char>(digit | 0x20));
    if (value == std::string::npos || digit < '0') {
        throw JsonError("not a hexadecimal digit: " + std::string(1, digit));
    }
    return static_cast<unsigned>(value);
}

}  // namespace

std::string textField(const Json& object, const char* name, const std::string& fallback) {
    const auto found = object.find(name);
    if (found == object.end()) {
        return fallback;
    }
    if (!found->is_string()) {
        wrong(name, "has to be a text");
    }
    const std::string text = found->get<std::string>();
    return !text.empty() && text.front() == '@' ? readFile(text.substr(1)) : text;
}

bool boolField(const Json& object, const char* name, bool fallback) {
    const auto found = object.find(name);
    if (found == object.end()) {
        return fallback;
    }
    if (!found->is_boolean()) {
        wrong(name, "has to be true or false");
    }
    return found->get<bool>();
}

std::int64_t numberField(const Json& object, const char* name, std::int64_t fallback, std::int64_t lowest,
                         std::int64_t highest) {
    const auto found = object.find(name);
    if (found == object.end()) {
        return fallback;
    }
    if (!found->is_number_integer()) {
        wrong(name, "has to be a whole number");
    }
    const std::int64_t value = found->get<std::int64_t>();
    if (value < lowest || value > highest) {
        wrong(name, "is out of range");
    }
    return value;
}

const Json& listField(const Json& object, const char* name) {
    static const Json kEmpty = Json::array();
    const auto found = object.find(name);
    if (found == object.end()) {
        return kEmpty;
    }
    if (!found->is_array()) {
        wrong(name, "has to be a list");
    }
    return *found;
}

std::string requiredText(const Json& object, const char* name, const std::string& where) {
    if (!object.is_object() || !object.contains(name)) {
        throw JsonError("\"" + std::string(name) + "\" is missing in " + where);
    }
    return textField(object, name);
}

Json parseJson(const std::string& text) {
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        throw JsonError(error.what());
    }
}

std::string bytesOfHex(std::string_view hex) {
    if (hex.size() % 2 != 0) {
        throw JsonError("an odd count of hexadecimal digits");
    }
    std::string bytes;
    for (std::size_t at = 0; at < hex.size(); at += 2) {
        bytes.push_back(static_cast<char>(valueOfDigit(hex[at]) << 4 | valueOfDigit(hex[at + 1])));
    }
    return bytes;
}

std::string hexOfBytes(std::string_view bytes) {
    static const char* const kDigits = "0123456789abcdef";
    std::string hex;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex.push_back(kDigits[value >> 4]);
        hex.push_back(kDigits[value & 15]);
    }
    return hex;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw JsonError("cannot read the file " + path);
    }
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace simulator
