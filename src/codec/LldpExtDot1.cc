// IEEE 802.1 TLVs: the Port VLAN ID is sent; seven subtypes are decoded.
#include "codec/LldpExtDot1.h"

#include "codec/Bytes.h"
#include "codec/LldpProtocol.h"

namespace Lldp {
namespace {

Platform::TraceFacility dot1Trace("LldpExtDot1");



TlvParseResult parsePortVlanId(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 2) {
    TRACE(dot1Trace, 0) << "Error: Port VLAN ID TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const uint16_t pvid = be16(info);
  if (pvid > 4094) {
    TRACE(dot1Trace, 0) << "Error: Port VLAN ID is out-of-range (pvid=" << pvid << ")";
    return TlvParseResultDiscard;
  }
  TRACE(dot1Trace, 6) << "Port VLAN ID: " << pvid;
  rs.portVlanIdIs(Bridging::VlanIdOrNone(pvid));
  rs.portVlanIdTlvReceivedIs(true);
  return TlvParseResultOk;
}

TlvParseResult parsePortAndProtocolVlan(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 3) {
    TRACE(dot1Trace, 0) << "Error: Port And Protocol VLAN ID TLV is too short (orgDefInfoLen="
                        << len << ")";
    return TlvParseResultFatalError;
  }
  const uint8_t flags = info[0];
  const bool supported = flags & 0x02;
  const bool enabled = flags & 0x04;
  const uint16_t ppvid = be16(info + 1);
  if (enabled && !supported) {
    TRACE(dot1Trace, 0) << "Error: Port And Protocol VLAN ID is enabled but not supported (ppvid="
                        << ppvid << ", flags=0x" << Hex{flags} << ")";
    return TlvParseResultDiscard;
  }
  if (ppvid > 4094) {
    TRACE(dot1Trace, 0) << "Error: Port And Protocol VLAN ID is out-of-range (ppvid=" << ppvid << ")";
    return TlvParseResultDiscard;
  }
  const PortAndProtocolVlan v{Bridging::VlanIdOrNone(ppvid), supported, enabled};
  TRACE(dot1Trace, 6) << "Port And Protocol VLAN ID: " << v;
  rs.portAndProtocolVlanIs(ppvid, v);
  return TlvParseResultOk;
}

TlvParseResult parseVlanName(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 4) {
    TRACE(dot1Trace, 0) << "Error: VLAN Name TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const uint16_t vlanId = be16(info);
  const uint8_t nameLen = info[2];
  if (nameLen < 1 || nameLen > 32) {
    TRACE(dot1Trace, 0) << "Error: VLAN Name length is out-of-range (vlanNameLen=" << int(nameLen) << ")";
    return TlvParseResultDiscard;
  }
  if (vlanId < 1 || vlanId > 4094) {
    TRACE(dot1Trace, 0) << "Error: VLAN Name VLAN ID is out-of-range (vlanId=" << vlanId << ")";
    return TlvParseResultDiscard;
  }
  if (len < nameLen + 3) {
    // The length is streamed as one raw character here, as it always has been.
    TRACE(dot1Trace, 0) << "Error: VLAN Name TLV is too short (orgDefInfoLen=" << len
                        << ", vlanNameLen=" << static_cast<char>(nameLen) << ")";
    return TlvParseResultFatalError;
  }
  const VlanName v{Bridging::VlanId(vlanId),
                   BoundedString32(std::string_view(reinterpret_cast<const char*>(info + 3), nameLen))};
  TRACE(dot1Trace, 6) << "VLAN Name: " << v;
  rs.vlanNameIs(vlanId, v);
  return TlvParseResultOk;
}

TlvParseResult parseProtocolIdentity(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 1) {
    TRACE(dot1Trace, 0) << "Error: Protocol Identity TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const uint8_t idLen = info[0];
  if (idLen == 0) {
    TRACE(dot1Trace, 0) << "Error: Protocol Identity length is out-of-range (protoIdLen="
                        << static_cast<char>(idLen) << ")";
    return TlvParseResultDiscard;
  }
  if (len < idLen + 1) {
    TRACE(dot1Trace, 0) << "Error: Protocol Identity TLV is too short (orgDefInfoLen=" << len
                        << ", protoIdLen=" << static_cast<char>(idLen) << ")";
    return TlvParseResultFatalError;
  }
  const auto index = static_cast<uint32_t>(rs.protocolIdentityInfos() + 1);
  const ProtocolIdentityInfo v(
      index, BoundedString255(std::string_view(reinterpret_cast<const char*>(info + 1), idLen)));
  TRACE(dot1Trace, 6) << "Protocol Identity: " << v;
  rs.protocolIdentityInfoIs(index, v);
  return TlvParseResultOk;
}

TlvParseResult parseVidUsageDigest(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 4) {
    TRACE(dot1Trace, 0) << "Error: VID Usage Digest TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const uint32_t digest = be32(info);
  TRACE(dot1Trace, 6) << "VID Usage Digest: " << digest;
  rs.vidUsageDigestIs(digest);
  rs.vidUsageDigestTlvReceivedIs(true);
  return TlvParseResultOk;
}

TlvParseResult parseManagementVid(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 2) {
    TRACE(dot1Trace, 0) << "Error: Management VID TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const uint16_t mvid = be16(info);
  if (mvid > 4094) {
    TRACE(dot1Trace, 0) << "Error: Management VID is out-of-range (mvid=" << mvid << ")";
    return TlvParseResultDiscard;
  }
  TRACE(dot1Trace, 6) << "Management VID: " << mvid;
  rs.managementVidIs(Bridging::VlanIdOrNone(mvid));
  rs.managementVidTlvReceivedIs(true);
  return TlvParseResultOk;
}

TlvParseResult parseLinkAggregation(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 5) {
    TRACE(dot1Trace, 0) << "Error: Link Aggregation TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const LinkAggregationInfo v{info[0], be32(info + 1)};
  TRACE(dot1Trace, 6) << "Link Aggregation: " << v;
  rs.linkAggregationInfoIs(v);
  rs.linkAggregationTlvReceivedIs(true);
  return TlvParseResultOk;
}

}  // namespace

bool addExtDot1Tlvs(uint8_t*& cursor, const uint8_t* end, const LocalPort& localPort,
                    const PortConfig& portConfig, uint8_t* scratch) {
  if (!portConfig.portVlanTxEnable()) return true;
  const uint16_t pvid = localPort.portVlanId().value();
  putBe16(scratch, pvid);
  const bool success = putOrgDefTlv(cursor, end, kOuiDot1, 1, 2, scratch);
  if (success) {
    TRACE(dot1Trace, 6) << "Added Port VLAN ID: pvid=" << pvid;
  } else {
    TRACE(dot1Trace, 2) << "Not enough space to add Port VLAN ID";
  }
  return success;
}

TlvParseResult parseExtDot1Tlv(int subtype, int len, const uint8_t* info, RemoteSystem& rs) {
  switch (subtype) {
    case 1: return parsePortVlanId(len, info, rs);
    case 2: return parsePortAndProtocolVlan(len, info, rs);
    case 3: return parseVlanName(len, info, rs);
    case 4: return parseProtocolIdentity(len, info, rs);
    case 5: return parseVidUsageDigest(len, info, rs);
    case 6: return parseManagementVid(len, info, rs);
    case 7: return parseLinkAggregation(len, info, rs);
    default:
      TRACE(dot1Trace, 8) << "Unrecognized 802.1 Organizationally Specific TLV (subtype=" << subtype << ")";
      return TlvParseResultUnrecognized;
  }
}

}  // namespace Lldp
