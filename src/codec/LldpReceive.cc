// The receive path: validation of one LLDPDU, parsing into a scratch record, and the update of
// the port's remote-system table with its counters, traces and log messages.
extern "C" {
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/library/asn1.h>
}

#include <algorithm>
#include <array>
#include <vector>

#include "codec/LldpExtCee.h"
#include "codec/LldpExtDot1.h"
#include "codec/LldpExtDot3.h"
#include "codec/LldpMed.h"
#include "codec/Bytes.h"
#include "codec/LldpProtocol.h"
#include "platform/Assert.h"

namespace Lldp {

const NeighbourLogHandle LLDP_NEIGHBOR_NEW(
    {"LLDP_NEIGHBOR_NEW", Platform::Severity::notice,
     "LLDP neighbor with chassisId %s and portId %s added on interface %s",
     "A new LLDP neighbor was added to the neighbor table.", Platform::kNoActionRequired, 0,
     {"CHASSIS_ID", "PORT_ID", "INTERFACE"}});
const NeighbourLogHandle LLDP_NEIGHBOR_TIMEOUT(
    {"LLDP_NEIGHBOR_TIMEOUT", Platform::Severity::notice,
     "LLDP neighbor with chassisId %s and portId %s timed out on interface %s",
     "An LLDP neighbor was deleted from the neighbor table since it timed out.",
     Platform::kNoActionRequired, 0, {"CHASSIS_ID", "PORT_ID", "INTERFACE"}});
const NeighbourLogHandle LLDP_NEIGHBOR_GONE(
    {"LLDP_NEIGHBOR_GONE", Platform::Severity::notice,
     "Received a shutdown frame from LLDP neighbor with chassisId %s and portId %s on interface %s",
     "An LLDP neighbor was deleted from the neighbor table since an LLDPDU with a TTL of 0 was "
     "received from that neighbor.",
     Platform::kNoActionRequired, 0, {"CHASSIS_ID", "PORT_ID", "INTERFACE"}});

// How many TLVs of one (OUI, subtype) one frame has carried so far.
struct UnknownOrgDefTlvCounter {
  Oui oui;
  uint8_t subtype;
  uint32_t count;
};

// Lives for one frame: numbers repeated unknown organisationally specific TLVs from 1 upwards.
class UnknownOrgDefTlvParseContext {
 public:
  void clear() { counters_.clear(); }
  uint32_t nextIndex(Oui oui, uint8_t subtype) {
    for (UnknownOrgDefTlvCounter& c : counters_) {
      if (c.oui == oui && c.subtype == subtype) return ++c.count;
    }
    counters_.push_back({oui, subtype, 1});
    return 1;
  }

 private:
  std::vector<UnknownOrgDefTlvCounter> counters_;
};

namespace {

// Neighbours of one make describe their system in the same words and name their ports alike,
// and a switch may hear hundreds of them: a text seen recently is handed out shared (copies share
// the bytes) rather than stored once more per neighbour.
template <class Text>
class RecentTexts {
 public:
  const Text* find(std::string_view text) const {
    const Text& slot = slots_[slotOf(text)];
    return !slot.empty() && slot == text ? &slot : nullptr;
  }
  void remember(const Text& value) {
    if (value.empty()) return;
    slots_[slotOf(value.view())] = value;
  }

 private:
  static constexpr size_t kSlots = 64;
  static size_t slotOf(std::string_view text) { return std::hash<std::string_view>()(text) % kSlots; }
  std::array<Text, kSlots> slots_;
};

RecentTexts<BoundedString255>& recentSysDescs() {
  static RecentTexts<BoundedString255> texts;
  return texts;
}

PortId sharedPortId(std::string_view id) {
  static RecentTexts<PortId> recent;
  const std::string_view clipped = id.substr(0, std::min(id.size(), PortId::kMax));
  if (const PortId* shared = recent.find(clipped)) return *shared;
  PortId value(clipped);
  recent.remember(value);
  return value;
}

struct MsapText {
  const MsapView& msap;
};
std::ostream& operator<<(std::ostream& os, const MsapText& m) {
  return os << "(" << identifierText(m.msap.chassisSubtype, m.msap.chassisId, m.msap.chassisSubtype == chassisIdMacAddress, m.msap.chassisSubtype == chassisIdNetworkAddress, MacSeparator::colon, false)
            << ", " << identifierText(m.msap.portSubtype, m.msap.portId, m.msap.portSubtype == portIdMacAddress, m.msap.portSubtype == portIdNetworkAddress, MacSeparator::colon, false)
            << ")";
}


// Numbers that are bytes print as numbers, not characters.
template <class T>
const T& printable(const T& v) {
  return v;
}
int printable(uint8_t v) { return v; }

// Traces the attribute-by-attribute carry-over of the scratch record into the stored one.
struct CarryOverTrace {
  template <class A, class B>
  void attrChanged(const char* name, const A& was, const B& now) {
    TRACE(lldpProtocolTrace, 7) << "Attribute " << name << " changed (was: " << printable(was)
                                << ", now: " << printable(now) << ")";
  }
  template <class K>
  void memberDeleted(const char* name, const K& key) {
    TRACE(lldpProtocolTrace, 7) << "Member " << printable(key) << " of collection " << name
                                << " deleted";
  }
  template <class K>
  void memberUpdated(const char* name, const K& key) {
    TRACE(lldpProtocolTrace, 7) << "Member " << printable(key) << " of collection " << name
                                << " added/updated";
  }
};

// Empties the scratch record's received data, keeping its buffers for the next frame.
void resetScratch(RemoteSystem& scratch) {
  scratch.visitAttrsMutable([](Platform::AttrKind kind, const char*, auto& member) {
    if (kind == Platform::AttrKind::Meta) return;
    using M = std::decay_t<decltype(member)>;
    if constexpr (requires { member.clearRecycling(); }) {
      member.clearRecycling();
    } else if constexpr (requires { member.clear(); }) {
      member.clear();
    } else {
      member = M{};
    }
  });
}

TlvParseResult parseText(int type, int len, const uint8_t* info, RemoteSystem& scratch) {
  const std::string_view text = bytesOf(info, std::min(len, 255));
  switch (type) {
    case kTlvPortDesc:
      scratch.portDescIs(text);
      TRACE(lldpProtocolTrace, 6) << "Port Description: " << scratch.portDesc();
      break;
    case kTlvSysName:
      scratch.sysNameIs(text);
      TRACE(lldpProtocolTrace, 6) << "System Name: " << scratch.sysName();
      break;
    default:
      if (const BoundedString255* shared = recentSysDescs().find(text)) {
        scratch.sysDescIs(*shared);
      } else {
        scratch.sysDescIs(text);
      }
      TRACE(lldpProtocolTrace, 6) << "System Description: " << scratch.sysDesc();
      break;
  }
  return TlvParseResultOk;
}

TlvParseResult parseSystemCapabilities(int len, const uint8_t* info, RemoteSystem& scratch) {
  if (len < 4) {
    TRACE(lldpProtocolTrace, 0) << "Error: System Capabilities TLV is too short (infoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const uint16_t supported = be16(info);
  const uint16_t enabled = be16(info + 2);
  TRACE(lldpProtocolTrace, 6) << "System Capabilities: " << "supported=0x" << Hex{supported}
                              << ", enabled=0x" << Hex{enabled};
  if (enabled & ~supported) {
    TRACE(lldpProtocolTrace, 0) << "Error: Supported and enabled capabilities are inconsistent "
                                << "(supported=0x" << Hex{supported} << ", enabled=0x"
                                << Hex{enabled} << ")";
    return TlvParseResultDiscard;
  }
  scratch.sysCapSupportedIs(SystemCapabilitiesMap{supported});
  scratch.sysCapEnabledIs(SystemCapabilitiesMap{enabled});
  return TlvParseResultOk;
}

// Decodes a BER object identifier; leaves oid empty unless it is valid.
void parseOid(const uint8_t* data, int oidLen, std::vector<uint32_t>& oid) {
  if (oidLen == 0) {
    TRACE(lldpProtocolTrace, 6) << "Empty OID string";
    return;
  }
  ::oid subids[129];
  size_t subidCount = 129;
  size_t remaining = static_cast<size_t>(oidLen);
  u_char type = 0;
  u_char* after = asn_parse_objid(const_cast<u_char*>(data), &remaining, &type, subids, &subidCount);
  if (!after || type != ASN_OBJECT_ID) {
    TRACE(lldpProtocolTrace, 0) << "Invalid OID string";
    return;
  }
  TRACE(lldpProtocolTrace, 6) << "Valid OID string";
  if (after != data + oidLen) TRACE(lldpProtocolTrace, 0) << "Excess bytes at end of OID string";
  oid.assign(subids, subids + subidCount);
}

TlvParseResult parseManagementAddressTlv(int len, const uint8_t* info, RemoteSystem& scratch) {
  if (len < 9) {
    TRACE(lldpProtocolTrace, 0) << "Error: Management Address TLV is too short (infoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const int addrStrLen = info[0];
  if (addrStrLen < 2 || addrStrLen > 32) {
    TRACE(lldpProtocolTrace, 0) << "Error: Value of management address string length field is "
                                   "out of range (manAddrStringLen=" << addrStrLen << ")";
    return TlvParseResultDiscard;
  }
  if (len <= addrStrLen + 6) {
    TRACE(lldpProtocolTrace, 0) << "Error: Management Address TLV is too short (infoLen=" << len
                                << ", manAddrStringLen=" << addrStrLen << ")";
    return TlvParseResultFatalError;
  }
  const uint8_t subtype = info[1];
  const std::string_view address = bytesOf(info + 2, addrStrLen - 1);
  const uint8_t ifSubtype = info[1 + addrStrLen];
  const auto ifId = static_cast<int32_t>(be32(info + 2 + addrStrLen));
  const int oidLen = info[6 + addrStrLen];
  if (oidLen > 128) {
    TRACE(lldpProtocolTrace, 0) << "Error: Value of OID string length field is out of range "
                                   "(oidStringLen=" << oidLen << ")";
    return TlvParseResultDiscard;
  }
  if (len < addrStrLen + oidLen + 7) {
    TRACE(lldpProtocolTrace, 0) << "Error: Management Address TLV is too short (infoLen=" << len
                                << ", manAddrStringLen=" << addrStrLen
                                << ", oidStringLen=" << oidLen << ")";
    return TlvParseResultFatalError;
  }
  std::vector<uint32_t> oid;
  parseOid(info + 7 + addrStrLen, oidLen, oid);
  const ManagementAddress::Key key{subtype, ManAddress(address)};
  const ManagementAddress manAddr(key, ifSubtype, ifId, std::move(oid));
  scratch.managementAddressIs(key, manAddr);
  TRACE(lldpProtocolTrace, 6) << "Management Address: " << manAddr;
  return TlvParseResultOk;
}

TlvParseResult parseOrganizationallySpecificTlv(int len, const uint8_t* info, RemoteSystem& scratch,
                                                PortStatus& portStatus,
                                                UnknownOrgDefTlvParseContext& context) {
  if (len < 4) {
    TRACE(lldpProtocolTrace, 0) << "Error: Organizationally Specific TLV is too short (infoLen="
                                << len << ")";
    return TlvParseResultFatalError;
  }
  const Oui oui(static_cast<uint32_t>(info[0]) << 16 | info[1] << 8 | info[2]);
  const uint8_t subtype = info[3];
  TRACE(lldpProtocolTrace, 6) << "Organizationally Specific TLV: oui=" << oui
                              << ", subtype=" << int(subtype);
  if (subtype == 0) {
    TRACE(lldpProtocolTrace, 0) << "Error: Organizationally Specific TLV has invalid subtype of 0 (oui="
                                << oui << ")";
    return TlvParseResultDiscard;
  }
  const uint8_t* orgInfo = info + 4;
  const int orgLen = len - 4;
  TlvParseResult result = TlvParseResultUnrecognized;
  if (oui == kOuiDot1) {
    TRACE(lldpProtocolTrace, 6) << "802.1 TLV";
    result = parseExtDot1Tlv(subtype, orgLen, orgInfo, scratch);
  } else if (oui == kOuiCee) {
    TRACE(lldpProtocolTrace, 6) << "Cee TLV";
    result = parseExtCeeTlv(subtype, orgLen, orgInfo, portStatus, scratch);
  } else if (oui == kOuiDot3) {
    TRACE(lldpProtocolTrace, 6) << "802.3 TLV";
    result = parseExtDot3Tlv(subtype, orgLen, orgInfo, scratch);
  } else if (oui == kOuiTia && lldpMedToggle.enabled()) {
    TRACE(lldpProtocolTrace, 6) << "TIA TLV";
    // Any LLDP-MED TLV makes the neighbour an LLDP-MED device, also one we keep as unknown
    // (Extended Power-via-MDI) or that carries inventory alone.
    scratch.lldpMedTlvReceivedIs(true);
    result = LldpMed::parseTlv(subtype, orgLen, orgInfo, scratch);
  } else {
    TRACE(lldpProtocolTrace, 6) << "Unknown OUI";
  }
  if (result == TlvParseResultUnrecognized) {
    const UnknownOrgDefTlv::Key key(oui, subtype, context.nextIndex(oui, subtype));
    const UnknownOrgDefTlv tlv{key, BoundedString507(bytesOf(orgInfo, orgLen))};
    scratch.unknownOrgDefTlvIs(key, tlv);
    TRACE(lldpProtocolTrace, 6) << "Unknown Organizationally Specific TLV: " << tlv;
  }
  return result;
}

TlvParseResult parseOptionalTlv(int type, int len, const uint8_t* info, RemoteSystem& scratch,
                                PortStatus& portStatus, UnknownOrgDefTlvParseContext& context) {
  switch (type) {
    case kTlvEnd:
      TRACE(lldpProtocolTrace, 6) << "End of LLDPDU";
      return TlvParseResultEnd;
    case kTlvChassisId:
    case kTlvPortId:
    case kTlvTtl:
      TRACE(lldpProtocolTrace, 0) << "Error: frame contains duplicate TLV of type " << type;
      return TlvParseResultFatalError;
    case kTlvPortDesc:
    case kTlvSysName:
    case kTlvSysDesc:
      return parseText(type, len, info, scratch);
    case kTlvSysCap:
      return parseSystemCapabilities(len, info, scratch);
    case kTlvManagementAddress:
      return parseManagementAddressTlv(len, info, scratch);
    case kTlvOrgSpecific:
      return parseOrganizationallySpecificTlv(len, info, scratch, portStatus, context);
    default: {
      const auto tlvType = static_cast<uint32_t>(type);
      scratch.unknownTlvIs(tlvType, UnknownTlv(tlvType, BoundedString511(bytesOf(info, len))));
      TRACE(lldpProtocolTrace, 6) << "Unrecognized TLV: " << scratch.unknownTlv(tlvType);
      return TlvParseResultUnrecognized;
    }
  }
}

struct FrameParse {
  uint8_t chassisSubtype = 0;
  uint8_t portSubtype = 0;
  std::string_view chassisId;
  std::string_view portId;
  uint16_t ttl = 0;
  MsapView msap() const { return {chassisSubtype, chassisId, portSubtype, portId}; }
};

// A Chassis ID or Port ID TLV: its subtype and identifier bytes. A subtype above 7 is traced
// (as a raw character) and accepted.
bool parseIdentifierTlv(const uint8_t*& cursor, const uint8_t* end, int type, const char* missing,
                        const char* unknownSubtype, uint8_t& subtype, std::string_view& id) {
  int len = 0;
  const uint8_t* info = nullptr;
  if (!extractMandatoryTlv(cursor, end, type, 256, len, info)) {
    TRACE(lldpProtocolTrace, 0) << missing;
    return false;
  }
  subtype = info[0];
  id = bytesOf(info + 1, len - 1);
  if (subtype > 7) TRACE(lldpProtocolTrace, 0) << unknownSubtype << static_cast<char>(subtype);
  return true;
}

// The three mandatory TLVs; false takes the fatal path.
bool parseMandatoryTlvs(const uint8_t*& cursor, const uint8_t* end, FrameParse& frame) {
  if (!parseIdentifierTlv(cursor, end, kTlvChassisId, "Error in first mandatory TLV",
                          "Unknown chassid ID subtype ", frame.chassisSubtype, frame.chassisId)) {
    return false;
  }
  TRACE(lldpProtocolTrace, 6) << "Chassis ID: "
                              << ChassisIdentifier{frame.chassisSubtype, ChassisId::clipped(frame.chassisId)};
  if (!parseIdentifierTlv(cursor, end, kTlvPortId, "Error in second mandatory TLV",
                          "Unknown port ID subtype ", frame.portSubtype, frame.portId)) {
    return false;
  }
  TRACE(lldpProtocolTrace, 6) << "Port ID: "
                              << PortIdentifier{frame.portSubtype, PortId::clipped(frame.portId)};
  int len = 0;
  const uint8_t* info = nullptr;
  if (!extractMandatoryTlv(cursor, end, kTlvTtl, 2147483647, len, info)) {
    TRACE(lldpProtocolTrace, 0) << "Error in third mandatory TLV";
    return false;
  }
  frame.ttl = be16(info);
  TRACE(lldpProtocolTrace, 6) << "TTL: " << frame.ttl;
  return true;
}

Msap msapOf(const FrameParse& frame) {
  return Msap{{frame.chassisSubtype, ChassisId::clipped(frame.chassisId)},
              {frame.portSubtype, sharedPortId(frame.portId)}};
}

void logNeighbour(const NeighbourLogHandle& handle, const Msap& msap, const PortStatus& portStatus) {
  handle.emit(msap.chassisIdentifier.stringValue(), msap.portIdentifier.stringValue(), portStatus.intfId().name());
}

void handleShutdown(const FrameParse& frame, Status& status, PortStatus& portStatus, double now) {
  TRACE(lldpProtocolTrace, 6) << "Received shutdown frame from " << MsapText{frame.msap()};
  const RemoteSystem::Ptr rs = portStatus.remoteSystemByMsap(frame.msap());
  if (!rs) {
    TRACE(lldpProtocolTrace, 6) << "Received shutdown frame from unknown MSAP: " << MsapText{frame.msap()};
    return;
  }
  TRACE(lldpProtocolTrace, 6) << "Deleting RemoteSystem";
  const Msap msap = rs->msap();
  portStatus.remoteSystemByMsapDel(msap);
  portStatus.remoteSystemDelReasonIs(RemoteSystemDelReason::shutdown);
  portStatus.remoteSystemDel(rs->index());
  status.remTablesDeletesInc(1);
  logNeighbour(LLDP_NEIGHBOR_GONE, msap, portStatus);
  status.remTablesLastChangeTimeIs(now);
}

uint64_t frameHash(const uint8_t* start, const uint8_t* end) {
  return std::hash<std::string_view>()(bytesOf(start, static_cast<int>(end - start)));
}

// A refresh whose bytes equal the last frame applied for this neighbour changes nothing but
// its times and the counters the parse would move. Tracing needs the full parse.
bool refreshUnchanged(RemoteSystem& rs, const uint8_t* start, const uint8_t* end,
                      Status& status, PortStatus& portStatus, const Konet::EthAddr& sourceMac,
                      double now) {
  RemoteSystem::LastFrame& last = rs.lastFrame();
  if (!last.reusable || last.length != end - start || Platform::anyTraceEnabled()) return false;
  if (last.hash != frameHash(start, end)) return false;
  if (last.unrecognizedTlvs) portStatus.rxTLVsUnrecognizedTotalInc(last.unrecognizedTlvs);
  if (last.discardedTlvs) portStatus.rxTLVsDiscardedTotalInc(last.discardedTlvs);
  rs.ethAddrIs(sourceMac);
  rs.lastRefreshTimeIs(now);
  rs.expiryTimeIs(now + rs.ttl());
  status.lastPacketParsedTimeIs(now);
  if (last.hadError) portStatus.rxFramesErrorsInc(1);
  return true;
}

RemoteSystem& scratchRecord() {
  static const RemoteSystem::Ptr scratch = Platform::make<RemoteSystem>(1, Msap{});
  return *scratch;
}

UnknownOrgDefTlvParseContext& parseContext() {
  static UnknownOrgDefTlvParseContext context;
  return context;
}

// The next free index for a new neighbour. Indexes run from 1 to 2147483647 and then start again
// at 1; after a wrap an index still held by a neighbour is passed over, so that two MSAPs never
// share one record. The table never holds 2^31 neighbours, so a free index exists.
int32_t nextFreeIndex(PortStatus& portStatus) {
  while (true) {
    int32_t index = portStatus.nextRemoteSystemIndexInc(1);
    if (index < 0) {
      TRACE(lldpProtocolTrace, 6) << "Index for RemoteSystem tables has wrapped";
      portStatus.nextRemoteSystemIndexIs(0);
      index = portStatus.nextRemoteSystemIndexInc(1);
    }
    if (!portStatus.remoteSystemHas(index)) return index;
  }
}

// A record for a new neighbour, not yet in the table (watchers hear of it once it is filled);
// null when the table is full.
RemoteSystem::Ptr makeNewRemoteSystem(const FrameParse& frame, const PortConfig& portConfig,
                                      PortStatus& portStatus, double now) {
  if (portStatus.remoteSystemByMsaps() >= portConfig.maxRemoteSystems()) {
    TRACE(lldpProtocolTrace, 6) << "Not creating RemoteSystem for " << MsapText{frame.msap()}
                                << " because limit reached";
    portStatus.rxFramesDiscardedTotalInc(1);
    return nullptr;
  }
  TRACE(lldpProtocolTrace, 6) << "Creating RemoteSystem";
  RemoteSystem::Ptr rs = Platform::make<RemoteSystem>(nextFreeIndex(portStatus), msapOf(frame));
  rs->creationTimeIs(now);
  return rs;
}

// Enters a filled new neighbour in both tables: one notice, of a complete record.
void publishNewRemoteSystem(const RemoteSystem::Ptr& rs, Status& status, PortStatus& portStatus) {
  portStatus.remoteSystemByMsapIs(rs->msap(), rs);
  portStatus.remoteSystemInsert(rs->index(), rs);
  status.remTablesInsertsInc(1);
  logNeighbour(LLDP_NEIGHBOR_NEW, rs->msap(), portStatus);
}

}  // namespace

RemoteSystem::PtrConst processRxLldpdu(const uint8_t* start, const uint8_t* end,
                                       const PortConfig& portConfig, Status& status,
                                       PortStatus& portStatus, const Konet::EthAddr& sourceMac,
                                       double now) {
  portStatus.rxFramesTotalInc(1);
  auto fatal = [&]() -> RemoteSystem::PtrConst {
    TRACE(lldpProtocolTrace, 0) << "Frame had a fatal error -- discarding";
    portStatus.rxFramesDiscardedTotalInc(1);
    TRACE(lldpProtocolTrace, 0) << "Frame had an error";
    portStatus.rxFramesErrorsInc(1);
    return nullptr;
  };

  const uint8_t* cursor = start;
  FrameParse frame;
  if (!parseMandatoryTlvs(cursor, end, frame)) return fatal();
  if (frame.ttl == 0) {
    handleShutdown(frame, status, portStatus, now);
    return nullptr;
  }
  TRACE(lldpProtocolTrace, 6) << "Received info frame from " << MsapText{frame.msap()}
                              << " valid for " << frame.ttl << " seconds";
  const RemoteSystem::Ptr known = portStatus.remoteSystemByMsap(frame.msap());
  if (known && refreshUnchanged(*known, start, end, status, portStatus, sourceMac, now)) return known;

  RemoteSystem& scratch = scratchRecord();
  UnknownOrgDefTlvParseContext& context = parseContext();
  resetScratch(scratch);
  context.clear();
  bool hadError = false;
  bool reusable = lldpMedToggle.enabled();  // a CEE TLV or a toggled switch needs a real parse
  uint16_t unrecognizedTlvs = 0, discardedTlvs = 0;
  try {
    while (cursor < end) {
      int type = 0, len = 0;
      const uint8_t* info = nullptr;
      if (!extractTlv(cursor, end, type, len, info)) {
        TRACE(lldpProtocolTrace, 0) << "Error: frame ended during optional TLV";
        portStatus.rxTLVsDiscardedTotalInc(1);
        ++discardedTlvs;
        hadError = true;
        break;
      }
      const TlvParseResult result = parseOptionalTlv(type, len, info, scratch, portStatus, context);
      TRACE(lldpProtocolTrace, 8) << "Parsed TLV: result=" << result;
      if (type == kTlvOrgSpecific && len >= 4 && Oui(be32(info) >> 8) == kOuiCee) reusable = false;
      if (result == TlvParseResultEnd) break;
      if (result == TlvParseResultOk) continue;
      if (result == TlvParseResultUnrecognized) {
        portStatus.rxTLVsUnrecognizedTotalInc(1);
        ++unrecognizedTlvs;
        continue;
      }
      if (result == TlvParseResultDiscard) {
        portStatus.rxTLVsDiscardedTotalInc(1);
        ++discardedTlvs;
        hadError = true;
        continue;
      }
      LLDP_ASSERT(result == TlvParseResultFatalError);
      return fatal();
    }
  } catch (const std::exception& e) {
    // A value the parsers let through but a record refused: treat the frame as malformed.
    TRACE(lldpProtocolTrace, 0) << "Error: " << e.what();
    return fatal();
  }

  const bool created = !known;
  if (known) TRACE(lldpProtocolTrace, 6) << "Updating RemoteSystem";
  RemoteSystem::Ptr rs = known ? known : makeNewRemoteSystem(frame, portConfig, portStatus, now);
  if (!rs) return nullptr;

  rs->ttlIs(frame.ttl);
  CarryOverTrace carryOver;
  const bool changed = rs->copyChangedFrom(scratch, carryOver) || created;
  rs->ethAddrIs(sourceMac);
  rs->lastRefreshTimeIs(now);
  rs->expiryTimeIs(now + frame.ttl);
  if (changed) {
    TRACE(lldpProtocolTrace, 6) << "Something changed -- updating lastChangeTime to " << now;
    rs->lastChangeTimeIs(now);
    recentSysDescs().remember(rs->sysDesc());
  }
  if (created) {
    publishNewRemoteSystem(rs, status, portStatus);
  } else if (changed) {
    portStatus.remoteSystemNotify(rs->index());
  }
  if (changed) status.remTablesLastChangeTimeIs(now);
  status.lastPacketParsedTimeIs(now);
  if (hadError) {
    TRACE(lldpProtocolTrace, 0) << "Frame had an error";
    portStatus.rxFramesErrorsInc(1);
  }
  rs->lastFrame() = {frameHash(start, end), static_cast<uint16_t>(end - start), unrecognizedTlvs,
                     discardedTlvs, hadError, reusable};
  return rs;
}

}  // namespace Lldp
