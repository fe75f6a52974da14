// LLDP-MED TLVs (OUI 00-12-BB): capabilities, network policy, location and inventory.
#pragma once

#include "codec/TlvParseResult.h"
#include "platform/FeatureToggle.h"
#include "records/LldpRecords.h"

namespace Lldp {
// Gates sending and parsing of LLDP-MED TLVs.
extern Platform::FeatureToggle lldpMedToggle;
}  // namespace Lldp

namespace LldpMed {

bool addTlvs(uint8_t*& cursor, const uint8_t* end, const Lldp::LocalPort& localPort,
             const Lldp::PortConfig& portConfig, uint8_t* scratch,
             const Lldp::PortStatus& portStatus);
Lldp::TlvParseResult parseTlv(int subtype, int len, const uint8_t* info, Lldp::RemoteSystem& rs);

}  // namespace LldpMed
