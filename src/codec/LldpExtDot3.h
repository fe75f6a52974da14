// IEEE 802.3 organisationally specific TLVs (OUI 00-12-0F).
#pragma once

#include "codec/TlvParseResult.h"
#include "records/LldpRecords.h"

namespace Lldp {

bool addExtDot3Tlvs(uint8_t*& cursor, const uint8_t* end, const LocalPort& localPort,
                    const PortConfig& portConfig, uint8_t* scratch, const PortStatus& portStatus);
TlvParseResult parseExtDot3Tlv(int subtype, int len, const uint8_t* info, RemoteSystem& rs);

}  // namespace Lldp
