// IEEE 802.1 organisationally specific TLVs (OUI 00-80-C2).
#pragma once

#include "codec/TlvParseResult.h"
#include "records/LldpRecords.h"

namespace Lldp {

bool addExtDot1Tlvs(uint8_t*& cursor, const uint8_t* end, const LocalPort& localPort,
                    const PortConfig& portConfig, uint8_t* scratch);
TlvParseResult parseExtDot1Tlv(int subtype, int len, const uint8_t* info, RemoteSystem& rs);

}  // namespace Lldp
