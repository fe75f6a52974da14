// The transmit builder: one LLDPDU for one port, written straight into the packet.
#include <cstring>

#include "codec/LldpExtDot1.h"
#include "codec/LldpExtDot3.h"
#include "codec/LldpMed.h"
#include "codec/LldpProtocol.h"
#include "platform/Assert.h"

namespace Lldp {
namespace {

// Writes subtype + identifier bytes as one TLV.
bool putIdentifier(uint8_t*& cursor, const uint8_t* end, int type, uint8_t subtype,
                   std::string_view id) {
  uint8_t info[256];
  info[0] = subtype;
  std::memcpy(info + 1, id.data(), id.size());
  return putTlv(cursor, end, type, static_cast<int>(id.size()) + 1, info);
}

bool putText(uint8_t*& cursor, const uint8_t* end, int type, const BoundedString255& text) {
  return putTlv(cursor, end, type, static_cast<int>(text.size()), text.data());
}

// Management addresses: the IPv6 one, then the priority list up to maxTxMgmtAddrs entries.
// Returns false when an address did not fit.
bool putManagementAddresses(uint8_t*& cursor, const uint8_t* end, const Config& config,
                            const LocalSystem& localSystem) {
  if (!putManagementAddress(cursor, end, localSystem.ip6ManagementAddress())) return false;
  uint32_t places = config.maxTxMgmtAddrs();
  if (places == 0) return true;
  for (const auto& [priority, key] : localSystem.managementAddressPrio()) {
    // An entry uses up its place even when its key has no address (nothing is written).
    if (!putManagementAddress(cursor, end, localSystem.managementAddress(key))) return false;
    if (--places == 0) break;
  }
  return true;
}

}  // namespace

uint8_t* buildTxLldpdu(uint8_t* start, uint8_t* end, const Config& config,
                       const LocalSystem& localSystem, const LocalPort& localPort,
                       const PortConfig& portConfig, PortStatus& portStatus, double now) {
  TRACE(lldpProtocolTrace, 4) << "Building LLDPDU for port " << localPort.intfId();
  const ChassisIdentifier& chassis = localSystem.chassisIdentifier();
  const PortIdentifier& port = localPort.portIdentifier();
  if (chassis == ChassisIdentifier() || port == PortIdentifier()) {
    TRACE(lldpProtocolTrace, 0) << "Chassis ID or Port ID has not been set for " << localPort.intfId();
    LLDP_ASSERT(chassis != ChassisIdentifier() && port != PortIdentifier());
  }

  uint8_t* cursor = start;
  uint8_t* const tlvEnd = end - 2;  // the End of LLDPDU TLV always fits
  bool success = true;
  bool shortOfSpace = false;

  success &= putIdentifier(cursor, tlvEnd, kTlvChassisId, chassis.subtype, chassis.value.view());
  TRACE(lldpProtocolTrace, 6) << "Added Chassis ID: " << chassis;
  success &= putIdentifier(cursor, tlvEnd, kTlvPortId, port.subtype, port.value.view());
  TRACE(lldpProtocolTrace, 6) << "Added Port ID: " << port;

  const auto ttl = static_cast<uint16_t>(config.messageTxHoldTime());
  const uint8_t ttlBytes[2] = {static_cast<uint8_t>(ttl >> 8), static_cast<uint8_t>(ttl)};
  success &= putTlv(cursor, tlvEnd, kTlvTtl, 2, ttlBytes);
  TRACE(lldpProtocolTrace, 6) << "Added TTL: " << ttl;

  const PortConfig::EnabledTlvs enabled = portConfig.enabledTlvs();
  if (enabled.portDesc() && !localPort.portDesc().empty()) {
    success &= putText(cursor, tlvEnd, kTlvPortDesc, localPort.portDesc());
    TRACE(lldpProtocolTrace, 6) << "Added Port Description: " << localPort.portDesc();
  }
  if (enabled.sysName() && !localSystem.sysName().empty()) {
    success &= putText(cursor, tlvEnd, kTlvSysName, localSystem.sysName());
    TRACE(lldpProtocolTrace, 6) << "Added System Name: " << localSystem.sysName();
  }
  if (enabled.sysDesc() && !localSystem.sysDesc().empty()) {
    success &= putText(cursor, tlvEnd, kTlvSysDesc, localSystem.sysDesc());
    TRACE(lldpProtocolTrace, 6) << "Added System Description: " << localSystem.sysDesc();
  }
  if (enabled.sysCap()) {
    const uint16_t supported = localSystem.sysCapSupported().value;
    const uint16_t capEnabled = localSystem.sysCapEnabled().value;
    const uint8_t caps[4] = {static_cast<uint8_t>(supported >> 8), static_cast<uint8_t>(supported),
                             static_cast<uint8_t>(capEnabled >> 8), static_cast<uint8_t>(capEnabled)};
    success &= putTlv(cursor, tlvEnd, kTlvSysCap, 4, caps);
    TRACE(lldpProtocolTrace, 6) << "Added System Capabilities: " << "supported=0x" << std::hex
                                << supported << ", enabled=0x" << capEnabled << std::dec;
  }
  LLDP_ASSERT(success);

  if (portConfig.mgmtAddrTxEnable() && !putManagementAddresses(cursor, tlvEnd, config, localSystem)) {
    shortOfSpace = true;
  }
  if (!addExtDot1Tlvs(cursor, tlvEnd, localPort, portConfig, orgDefInfo())) {
    TRACE(lldpProtocolTrace, 8) << "Not enough space for one or more IEEE 802.1 TLVs";
    shortOfSpace = true;
  }
  if (!addExtDot3Tlvs(cursor, tlvEnd, localPort, portConfig, orgDefInfo(), portStatus)) {
    TRACE(lldpProtocolTrace, 8) << "Not enough space for one or more IEEE 802.3 TLVs";
    shortOfSpace = true;
  }
  if (lldpMedToggle.enabled() &&
      !LldpMed::addTlvs(cursor, tlvEnd, localPort, portConfig, orgDefInfo(), portStatus)) {
    TRACE(lldpProtocolTrace, 8) << "Not enough space for one or more TIA TLVs";
    shortOfSpace = true;
  }
  if (!addExternalTlvs(cursor, tlvEnd, localPort, orgDefInfo(), portStatus)) {
    TRACE(lldpProtocolTrace, 8) << "Not enough space for one or more external TLVs";
    shortOfSpace = true;
  }

  putTlv(cursor, end, kTlvEnd, 0, nullptr);
  TRACE(lldpProtocolTrace, 6) << "Added End of LLDPDU";

  portStatus.txFramesTotalInc(1);
  portStatus.lastTxTimeIs(now);
  if (shortOfSpace) {
    TRACE(lldpProtocolTrace, 8) << "Frame had insufficient space";
    portStatus.txFramesLengthExceededInc(1);
  }
  return cursor;
}

bool addExternalTlvs(uint8_t*& cursor, const uint8_t* end, const LocalPort& localPort,
                     uint8_t* info, PortStatus&) {
  TRACE(lldpProtocolTrace, 2) << "Look to add external TLV ";
  auto put = [&](const UnknownOrgDefTlv& tlv) {
    std::memcpy(info, tlv.value.data(), tlv.value.size());
    const bool fitted = putOrgDefTlv(cursor, end, tlv.key.oui(), tlv.key.subtype(),
                                     static_cast<int>(tlv.value.size()), info);
    if (!fitted) TRACE(lldpProtocolTrace, 2) << "Not enough space to add external TLV " << tlv;
    return fitted;
  };
  bool allFitted = true;
  for (const auto& [key, tlv] : localPort.unknownOrgDefTlv()) {
    TRACE(lldpProtocolTrace, 2) << "add external TLV " << tlv;
    if (key.oui() == kOuiCee) {
      // A CEE TLV ends the walk: the TLVs after it are not sent.
      TRACE(lldpProtocolTrace, 2) << "CEE add external TLV " << tlv << " - " << key << "-len "
                                  << tlv.value.size();
      return put(tlv) && allFitted;
    }
    allFitted &= put(tlv);
  }
  return allFitted;
}

}  // namespace Lldp
