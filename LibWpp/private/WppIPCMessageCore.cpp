#include "LibWpp/WppIPCMessageCore.h"

namespace wifi_projection_protocol {

using QMSerialization::Archive;

WppIPCMessageCore::~WppIPCMessageCore() = default;

bool WppIPCMessageCore::serialize() {
    archive.clear();
    writeHeader();
    writeBody(archive);
    return true;
}

bool WppIPCMessageCore::deserialize(const void* data, unsigned length) {
    archive.clear();
    archive.write(data, static_cast<int>(length));
    readHeader();
    readBody(archive);
    return true;
}

void WppIPCMessageCore::writeHeader() {
    archive.write(&messageId, static_cast<int>(sizeof(messageId)));
}

void WppIPCMessageCore::readHeader() {
    archive.read(&messageId, sizeof(messageId));
}

void WppIPCMessageCore::writeBody(Archive&) {}

void WppIPCMessageCore::readBody(Archive&) {}

}  // namespace wifi_projection_protocol
