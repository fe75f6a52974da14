// LLDP-MED inventory TLVs: seven short texts stored as received.
#pragma once

#include <string_view>

#include "codec/Bytes.h"
#include "codec/TlvParseResult.h"
#include "platform/Trace.h"
#include "records/LldpRecords.h"

namespace Inventory {

extern Platform::TraceFacility inventoryTrace;

// Checks the length (0 to 32 octets) and hands the text to store, a callable taking a
// std::string_view that writes it into the right attribute.
template <class Store>
Lldp::TlvParseResult parseTlv(int len, const uint8_t* info, const char* name, Store&& store) {
  if (len < 0) {
    TRACE(inventoryTrace, 0) << "Error: LLDP-MED " << name << " TLV is too short (orgDefInfoLen=" << len << ")";
    return Lldp::TlvParseResultFatalError;
  }
  if (len > 32) {
    TRACE(inventoryTrace, 0) << "Error: LLDP-MED " << name << " TLV is too big (orgDefInfoLen=" << len << ")";
    return Lldp::TlvParseResultFatalError;
  }
  const std::string_view value = Lldp::bytesOf(info, len);
  TRACE(inventoryTrace, 8) << "LLDP-MED " << name << " TLV has value: " << value;
  store(value);
  return Lldp::TlvParseResultOk;
}

}  // namespace Inventory

namespace LldpMed {

// The seven storing functions: each binds the record's matching attribute.
Lldp::TlvParseResult parseHardwareRevisionTlv(int len, const uint8_t* info, Lldp::RemoteSystem& rs);
Lldp::TlvParseResult parseFirmwareRevisionTlv(int len, const uint8_t* info, Lldp::RemoteSystem& rs);
Lldp::TlvParseResult parseSoftwareRevisionTlv(int len, const uint8_t* info, Lldp::RemoteSystem& rs);
Lldp::TlvParseResult parseSerialNumberTlv(int len, const uint8_t* info, Lldp::RemoteSystem& rs);
Lldp::TlvParseResult parseManufacturerNameTlv(int len, const uint8_t* info, Lldp::RemoteSystem& rs);
Lldp::TlvParseResult parseModelNameTlv(int len, const uint8_t* info, Lldp::RemoteSystem& rs);
Lldp::TlvParseResult parseAssetIDTlv(int len, const uint8_t* info, Lldp::RemoteSystem& rs);

}  // namespace LldpMed
