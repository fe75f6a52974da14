// LLDP-MED TLVs: capabilities and network policies are sent to MED neighbours; capabilities,
// policies, the three location formats and inventory are decoded.
#include "codec/LldpMed.h"
#include "codec/Inventory.h"

#include <algorithm>

#include "codec/Bytes.h"
#include "codec/LldpProtocol.h"

namespace Lldp {
Platform::FeatureToggle lldpMedToggle("LldpMedToggle");
}  // namespace Lldp


namespace LldpMed {

using namespace Lldp;

namespace {

Platform::TraceFacility medTrace("LldpMed");

// Reads big-endian bit fields in order.
class BitReader {
 public:
  explicit BitReader(const uint8_t* p) : p_(p) {}
  uint64_t take(int bits) {
    uint64_t v = 0;
    while (bits > 0) {
      const int free = 8 - pos_ % 8;  // unread bits left in the current byte
      const int n = bits < free ? bits : free;
      const uint64_t chunk = (p_[pos_ / 8] >> (free - n)) & ((1u << n) - 1);
      v = v << n | chunk;
      pos_ += n;
      bits -= n;
    }
    return v;
  }

 private:
  const uint8_t* p_;
  int pos_ = 0;
};

// The neighbour's location so far, to change one part of; reused so that refreshes allocate
// nothing. A location TLV replaces only its own part.
LocationId& workLocation(const RemoteSystem& rs) {
  static LocationId work;
  work = rs.locationId();
  return work;
}

int64_t signExtend(uint64_t v, int bits) {
  const uint64_t sign = uint64_t{1} << (bits - 1);
  return static_cast<int64_t>((v ^ sign) - sign);
}

TlvParseResult parseCapabilities(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 3) {
    TRACE(medTrace, 0) << "Error: LLDP-MED Capabilities TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  MedCapabilitiesInfo v;
  v.capabilities = info[1] & 0x3f;
  v.deviceType = info[2] >= 6 ? 5 : info[2];
  rs.medCapabilitiesTlvReceivedIs(true);
  rs.medCapabilitiesInfoIs(v);
  TRACE(medTrace, 6) << "LLDP-Med Capabilities: " << v;
  return TlvParseResultOk;
}

TlvParseResult parseNetworkPolicy(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 4) {
    TRACE(medTrace, 0) << "Error: LLDP-MED NetworkPolicy TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const uint32_t bits = static_cast<uint32_t>(info[1]) << 16 | info[2] << 8 | info[3];
  NetworkPolicyTlv v;
  v.appType = info[0];
  v.unknownPolicy = bits & (1u << 23);
  v.tagged = bits & (1u << 22);
  v.vlanId = static_cast<uint16_t>((bits >> 9) & 0xfff);
  v.l2Priority = static_cast<uint8_t>((bits >> 6) & 0x7);
  v.dscp = static_cast<uint8_t>(bits & 0x3f);
  rs.networkPolicyTlvIs(v.appType, v);
  TRACE(medTrace, 6) << "Received LLDP-MED Network Policy: " << v;
  return TlvParseResultOk;
}

TlvParseResult parseCoordinate(int dataLen, const uint8_t* data, RemoteSystem& rs) {
  if (dataLen < 16) {
    TRACE(medTrace, 0) << "Error: LLDP-MED Location ID Coordinate Based TLV size is invalid ( coordinateDataLen = "
                       << dataLen << ")";
    return TlvParseResultFatalError;
  }
  BitReader bits(data);
  LocationId& loc = workLocation(rs);
  LocationId::CoordinateLci& c = loc.coordinate;
  c.latitudeResolution = static_cast<uint8_t>(bits.take(6));
  c.latitude = signExtend(bits.take(34), 34);
  c.longitudeResolution = static_cast<uint8_t>(bits.take(6));
  c.longitude = signExtend(bits.take(34), 34);
  c.altitudeType = static_cast<uint8_t>(bits.take(4));
  c.altitudeResolution = static_cast<uint8_t>(bits.take(6));
  c.altitude = static_cast<int32_t>(signExtend(bits.take(30), 30));
  c.datum = static_cast<uint8_t>(bits.take(8));
  loc.coordinatePresent = true;
  rs.locationIdIs(loc);
  TRACE(medTrace, 6) << "Received LLDP-MED Coordinate-based LCI: " << loc;
  return TlvParseResultOk;
}

TlvParseResult parseCivicAddress(int dataLen, const uint8_t* data, RemoteSystem& rs) {
  if (dataLen < 4) {
    TRACE(medTrace, 0) << "Error: LLDP-MED Civic Adreess LCI size is invalid (addressDataLen: " << dataLen << ")";
    return TlvParseResultFatalError;
  }
  const int lciLength = data[0];
  if (dataLen <= lciLength || lciLength < 3) {
    TRACE(medTrace, 0) << "Error: LLDP-MED Civic Adreess LCI length is invalid (lciLength: " << lciLength
                       << ", addressDataLen: " << dataLen << ")";
    return TlvParseResultFatalError;
  }
  LocationId& loc = workLocation(rs);
  LocationId::CivicAddressLCI& civic = loc.civicAddress;
  civic.caElements.clear();
  civic.length = static_cast<uint8_t>(dataLen);
  civic.what = data[1];
  civic.countryCode = bytesOf(data + 2, 2);
  if (civic.what != 2) {
    TRACE(medTrace, 6) << "Warning: LLDP-MED Civic Adreess LCI What field value is unexpected: "
                       << static_cast<char>(civic.what);
  }
  const uint8_t* p = data + 4;
  int remaining = lciLength - 3;
  while (remaining >= 2) {
    const uint8_t caType = p[0];
    const int caLen = p[1];
    p += 2;
    remaining -= 2;
    if (remaining < caLen) break;
    civic.caElements.push_back({caType, std::string(reinterpret_cast<const char*>(p), caLen)});
    p += caLen;
    remaining -= caLen;
  }
  if (remaining > 0) {
    TRACE(medTrace, 6) << "Warning: LLDP-MED Civic Adreess LCI not completely processed.Remaining size: "
                       << remaining;
  }
  loc.civicAddressPresent = true;
  rs.locationIdIs(loc);
  TRACE(medTrace, 6) << "Received LLDP-MED Civic Address LCI: " << loc;
  return TlvParseResultOk;
}

TlvParseResult parseElin(int len, const uint8_t* data, RemoteSystem& rs) {
  const int dataLen = len - 1;
  std::string_view elin = bytesOf(data, dataLen);
  if (len < 11 || len > 26) {
    TRACE(medTrace, 6) << "Warning: LLDP-MED ECS ELIN size is invalid: " << dataLen;
    elin = elin.substr(0, 25);
  }
  if (!std::all_of(elin.begin(), elin.end(), [](char ch) { return ch >= '0' && ch <= '9'; })) {
    TRACE(medTrace, 6) << "Warning: LLDP-MED ECS ELIN Number has non digit chars";
  }
  LocationId& loc = workLocation(rs);
  loc.elin = elin;
  loc.elinPresent = true;
  rs.locationIdIs(loc);
  TRACE(medTrace, 6) << "Received LLDP-MED ECS ELIN Number: " << loc.elin;
  return TlvParseResultOk;
}

TlvParseResult parseLocation(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 1) {
    TRACE(medTrace, 0) << "Error: LLDP-MED Location ID TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  switch (info[0]) {
    case 1: return parseCoordinate(len - 1, info + 1, rs);
    case 2: return parseCivicAddress(len - 1, info + 1, rs);
    case 3: return parseElin(len, info + 1, rs);
    default:
      TRACE(medTrace, 8) << "Unrecognized LLDP-MED Location Data Format: " << int(info[0]);
      return TlvParseResultUnrecognized;
  }
}

using InventorySetter = void (RemoteSystem::*)(const std::string_view&);

template <InventorySetter Setter>
TlvParseResult storeInventory(int len, const uint8_t* info, RemoteSystem& rs, const char* name) {
  return Inventory::parseTlv(len, info, name, [&rs](std::string_view v) { (rs.*Setter)(v); });
}

}  // namespace

TlvParseResult parseHardwareRevisionTlv(int len, const uint8_t* info, RemoteSystem& rs) {
  return storeInventory<&RemoteSystem::hardwareRevisionTlvInfoIs<std::string_view>>(len, info, rs, "Hardware Revision");
}
TlvParseResult parseFirmwareRevisionTlv(int len, const uint8_t* info, RemoteSystem& rs) {
  return storeInventory<&RemoteSystem::firmwareRevisionTlvInfoIs<std::string_view>>(len, info, rs, "Firmware Revision");
}
TlvParseResult parseSoftwareRevisionTlv(int len, const uint8_t* info, RemoteSystem& rs) {
  return storeInventory<&RemoteSystem::softwareRevisionTlvInfoIs<std::string_view>>(len, info, rs, "Software Revision");
}
TlvParseResult parseSerialNumberTlv(int len, const uint8_t* info, RemoteSystem& rs) {
  return storeInventory<&RemoteSystem::serialNumberTlvInfoIs<std::string_view>>(len, info, rs, "Serial Number");
}
TlvParseResult parseManufacturerNameTlv(int len, const uint8_t* info, RemoteSystem& rs) {
  return storeInventory<&RemoteSystem::manufacturerNameTlvInfoIs<std::string_view>>(len, info, rs, "Manufacturer Name");
}
TlvParseResult parseModelNameTlv(int len, const uint8_t* info, RemoteSystem& rs) {
  return storeInventory<&RemoteSystem::modelNameTlvInfoIs<std::string_view>>(len, info, rs, "Model Name");
}
TlvParseResult parseAssetIDTlv(int len, const uint8_t* info, RemoteSystem& rs) {
  return storeInventory<&RemoteSystem::assetIDTlvInfoIs<std::string_view>>(len, info, rs, "Asset ID");
}

bool addTlvs(uint8_t*& cursor, const uint8_t* end, const LocalPort& localPort,
             const PortConfig& portConfig, uint8_t* scratch, const PortStatus& portStatus) {
  if (!portStatus.anyLldpMedReceived()) {
    TRACE(medTrace, 6) << "Not adding LLDP-MED TLVs - as we have not received any ";
    return true;
  }
  bool success = true;
  if (!portConfig.tiaEnabledTlvs().any()) {
    TRACE(medTrace, 6) << "Not adding LLDP-MED Capabilities TLV - as none of LLDP-MED TLV is enabled in CLI";
  } else {
    const MedCapabilitiesInfo& caps = localPort.medCapabilities();
    putBe16(scratch, caps.capabilities);
    scratch[2] = caps.deviceType;
    success = putOrgDefTlv(cursor, end, kOuiTia, 1, 3, scratch);
    if (success) {
      TRACE(medTrace, 2) << "Added LLDP-MED Capabilities TLV:  " << caps;
    } else {
      TRACE(medTrace, 2) << "Not enough space to add LLDP-MED Capabilities TLV";
    }
  }
  for (const auto& [app, policy] : localPort.localNetworkPolicyTlv()) {
    TRACE(medTrace, 6) << "building LLDP-MED Network Policy for app " << int(app) << " with tlv " << policy;
    uint32_t bits = 0;  // U is always 0
    if (policy.tagged) {
      bits |= 1u << 22;
      bits |= static_cast<uint32_t>(policy.vlanId & 0xfff) << 9;
      bits |= static_cast<uint32_t>(policy.l2Priority & 0x7) << 6;
    }
    bits |= policy.dscp & 0x3fu;
    scratch[0] = app;
    scratch[1] = static_cast<uint8_t>(bits >> 16);
    scratch[2] = static_cast<uint8_t>(bits >> 8);
    scratch[3] = static_cast<uint8_t>(bits);
    if (!putOrgDefTlv(cursor, end, kOuiTia, 2, 4, scratch)) {
      TRACE(medTrace, 2) << "Not enough space to add LLDP-MED Network Policy TLV for app " << int(app);
      return false;
    }
    TRACE(medTrace, 6) << "Added LLDP-MED Network Policy TLV for app " << int(app);
  }
  return success;
}

TlvParseResult parseTlv(int subtype, int len, const uint8_t* info, RemoteSystem& rs) {
  switch (subtype) {
    case 1: return parseCapabilities(len, info, rs);
    case 2: return parseNetworkPolicy(len, info, rs);
    case 3: return parseLocation(len, info, rs);
    case 5: return parseHardwareRevisionTlv(len, info, rs);
    case 6: return parseFirmwareRevisionTlv(len, info, rs);
    case 7: return parseSoftwareRevisionTlv(len, info, rs);
    case 8: return parseSerialNumberTlv(len, info, rs);
    case 9: return parseManufacturerNameTlv(len, info, rs);
    case 10: return parseModelNameTlv(len, info, rs);
    case 11: return parseAssetIDTlv(len, info, rs);
    default:
      TRACE(medTrace, 8) << "Unrecognized LLDP-MED Organizationally Specific TLV (subtype=" << subtype << ")";
      return TlvParseResultUnrecognized;
  }
}

}  // namespace LldpMed

namespace Inventory {
Platform::TraceFacility inventoryTrace("Inventory");
}  // namespace Inventory
