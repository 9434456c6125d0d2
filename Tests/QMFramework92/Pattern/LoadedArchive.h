#pragma once

#include <cstddef>
#include <initializer_list>
#include <vector>

#include "Pattern/QMSerializable.h"

namespace wpp_test {

/// What an archive logs for a read beyond its end.
constexpr const char* kOver = "buffer size over!";

inline std::vector<int> bytesOf(const QMSerialization::Archive& archive) {
    return {archive.getBuffer(), archive.getBuffer() + archive.getSize()};
}

/// An archive that holds these bytes, its cursor at the start.
class Loaded : public QMSerialization::Archive {
public:
    Loaded(std::initializer_list<int> bytes) {
        for (const int byte : bytes) {
            write(static_cast<unsigned char>(byte));
        }
    }
};

}  // namespace wpp_test
