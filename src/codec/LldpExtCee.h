// CEE DCBX control TLV (OUI 00-1B-21, subtype 2): sequence number tracking.
#pragma once

#include "codec/TlvParseResult.h"
#include "records/LldpRecords.h"

namespace Lldp {

TlvParseResult parseExtCeeTlv(int subtype, int len, const uint8_t* info, PortStatus& portStatus,
                              RemoteSystem& rs);
// Stamps the sequence fields of a complete CEE TLV held at tlv; appends nothing.
bool addExtCeeTlvs(uint8_t*& cursor, const uint8_t* end, const LocalPort& localPort,
                   PortStatus& portStatus, uint8_t* tlv);

}  // namespace Lldp
