#include "LibWpp/WppIPCMessageHeader.h"

namespace wifi_projection_protocol {

WppIPCMessageHeader::~WppIPCMessageHeader() = default;

}  // namespace wifi_projection_protocol
