#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

// Made once, in Json.cpp: it takes each file that uses it a second to compile.
extern template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace simulator {

/// Keeps the fields in the order in which they were written, so that events and orders read well.
using Json = nlohmann::ordered_json;

/// An order or a scenario that cannot be understood; what() says why.
class JsonError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The text of a field; `fallback` when there is none. A text that begins with '@' stands for the content of
/// the file named behind it. @throws JsonError when it is no text or the file cannot be read.
std::string textField(const Json& object, const char* name, const std::string& fallback = {});

/// The yes or no of a field; `fallback` when there is none. @throws JsonError when it is neither.
bool boolField(const Json& object, const char* name, bool fallback);

/// The whole number of a field; `fallback` when there is none.
/// @throws JsonError when it is no whole number or lies outside [lowest, highest].
std::int64_t numberField(const Json& object, const char* name, std::int64_t fallback, std::int64_t lowest,
                         std::int64_t highest);

/// The same within the limits of a type.
template <typename Integer>
Integer numberField(const Json& object, const char* name, Integer fallback) {
    using Limits = std::numeric_limits<Integer>;
    return static_cast<Integer>(numberField(object, name, std::int64_t{fallback}, std::int64_t{Limits::min()},
                                            std::int64_t{Limits::max()}));
}

/// The list of a field; an empty one when there is none. @throws JsonError when it is no list.
const Json& listField(const Json& object, const char* name);

/// The text of a field that has to be there; `where` names the object for complaints. @throws JsonError
std::string requiredText(const Json& object, const char* name, const std::string& where);

/// @throws JsonError for an object with another field than these, and for what is no object.
template <std::size_t count>
void allowOnly(const Json& object, const std::array<const char*, count>& fields, const std::string& where) {
    if (!object.is_object()) {
        throw JsonError(where + " has to be an object");
    }
    for (const auto& [key, value] : object.items()) {
        if (std::find(fields.begin(), fields.end(), key) == fields.end()) {
            throw JsonError("unknown field \"" + key + "\" in " + where);
        }
    }
}

/// The value that a text stands for. @throws JsonError when it is none.
Json parseJson(const std::string& text);

/// Bytes from pairs of hexadecimal digits. @throws JsonError when the text is none.
std::string bytesOfHex(std::string_view hex);

std::string hexOfBytes(std::string_view bytes);

/// The content of a file. @throws JsonError when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace simulator
