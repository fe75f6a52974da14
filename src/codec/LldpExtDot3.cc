// IEEE 802.3 TLVs: power via MDI, link aggregation and maximum frame size are sent;
// MAC/PHY, power, link aggregation and frame size are decoded.
#include "codec/LldpExtDot3.h"

#include "codec/Bytes.h"
#include "codec/LldpMed.h"
#include "codec/LldpProtocol.h"
#include "codec/PoeUtils.h"
#include "platform/Assert.h"

namespace Lldp {
namespace {

Platform::TraceFacility dot3Trace("LldpExtDot3");

TlvParseResult parsePowerViaMdi(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 3) {
    TRACE(dot3Trace, 0) << "Error: Power Via MDI TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  PowerViaMdiInfo v;
  v.portClass = (info[0] & 0x01) ? 1 : 2;
  v.pseMdiPowerSupported = info[0] & 0x02;
  v.pseMdiPowerEnabled = info[0] & 0x04;
  v.psePairsControlAbility = info[0] & 0x08;
  v.psePowerPair = info[1];
  v.powerClass = info[2];
  if (lldpMedToggle.enabled() && len >= 8) {
    TRACE(dot3Trace, 6) << "Power Via MDI @ IEEE 802.3at";
    v.dot3atExtension = true;
    v.powerType = PoeUtils::getType(info[3]);
    v.powerSource = PoeUtils::getSource(info[3]);
    v.powerPriority = PoeUtils::getPriorityFromIeeeTlv(info[3]);
    v.pdRequestedPower = be16(info + 4);
    v.pseAllocatedPower = be16(info + 6);
  }
  TRACE(dot3Trace, 6) << "Power Via MDI: " << v;
  rs.powerViaMdiInfoIs(v);
  rs.powerViaMdiTlvReceivedIs(true);
  return TlvParseResultOk;
}

TlvParseResult parseLinkAggregation(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 5) {
    TRACE(dot3Trace, 0) << "Error: Link Aggregation TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const LinkAggregationInfo v{info[0], be32(info + 1)};
  TRACE(dot3Trace, 6) << "Link Aggregation: " << v;
  rs.linkAggregationInfoIs(v);
  rs.linkAggregationTlvReceivedIs(true);
  return TlvParseResultOk;
}

TlvParseResult parseMaximumFrameSize(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 2) {
    TRACE(dot3Trace, 0) << "Error: Maximum Frame Size TLV is too short (orgDefInfoLen=" << len << ")";
    return TlvParseResultFatalError;
  }
  const MaximumFrameSizeInfo v{be16(info)};
  TRACE(dot3Trace, 6) << "Maximum Frame Size: " << v;
  rs.maximumFrameSizeInfoIs(v);
  rs.maximumFrameSizeTlvReceivedIs(true);
  return TlvParseResultOk;
}

TlvParseResult parseMacPhyConfigStatus(int len, const uint8_t* info, RemoteSystem& rs) {
  if (len < 5) {
    TRACE(dot3Trace, 0) << "Error: MAC/PHY Configuration/Status TLV is too short (orgDefInfoLen="
                        << len << ")";
    return TlvParseResultFatalError;
  }
  MacPhyConfigStatusInfo v;
  v.autoNegSupported = info[0] & 0x01;
  v.autoNegEnabled = info[0] & 0x02;
  v.autoNegAdvertisedCapAsU16Is(be16(info + 1));
  v.operMauType = be16(info + 3);
  TRACE(dot3Trace, 6) << "MAC/PHY Configuration/Status: " << v;
  rs.macPhyConfigStatusInfoIs(v);
  rs.macPhyConfigStatusTlvReceivedIs(true);
  return TlvParseResultOk;
}

}  // namespace

bool addExtDot3Tlvs(uint8_t*& cursor, const uint8_t* end, const LocalPort& localPort,
                    const PortConfig& portConfigRef, uint8_t* scratch, const PortStatus& portStatus) {
  const PortConfig* portConfig = &portConfigRef;
  LLDP_ASSERT(!portConfig->dot3EnabledTlvs().macPhyConfigStatus());
  bool success = true;

  const LocalPortPoeInfo* poe = localPort.localPortPoeInfo().get();
  if (portConfig->dot3EnabledTlvs().powerViaMdi() && PoeUtils::canWeSendPowerViaMdiTlv(poe)) {
    const int len = PoeUtils::buildPowerViaMdiTlv(scratch, *poe, portStatus.powerViaMdiTlvReceived());
    if (!putOrgDefTlv(cursor, end, kOuiDot3, 2, len, scratch)) {
      TRACE(dot3Trace, 2) << "Not enough space to Power Via MDI TLV (IEEE Std 802.3at)";
      success = false;
    }
  }

  if (portConfig->dot3EnabledTlvs().linkAggregation()) {
    const LinkAggregationInfo& lag = localPort.linkAggregationInfo();
    scratch[0] = lag.status;
    putBe32(scratch + 1, lag.portId);
    if (putOrgDefTlv(cursor, end, kOuiDot3, 3, 5, scratch)) {
      TRACE(dot3Trace, 6) << "Added Link Aggregation: status=0x" << Hex{lag.status}
                          << ", portId=" << lag.portId;
    } else {
      TRACE(dot3Trace, 2) << "Not enough space to add Link Aggregation";
      success = false;
    }
  }

  if (portConfig->dot3EnabledTlvs().maxFrameSize()) {
    const uint16_t size = localPort.maximumFrameSizeInfo().value;
    putBe16(scratch, size);
    if (!putOrgDefTlv(cursor, end, kOuiDot3, 4, 2, scratch)) {
      TRACE(dot3Trace, 2) << "Not enough space to add Maximum Frame Size";
      return false;
    }
    TRACE(dot3Trace, 6) << "Added Maximum Frame Size: maxFrameSize=" << size;
  }
  return success;
}

TlvParseResult parseExtDot3Tlv(int subtype, int len, const uint8_t* info, RemoteSystem& rs) {
  switch (subtype) {
    case 1: return parseMacPhyConfigStatus(len, info, rs);
    case 2: return parsePowerViaMdi(len, info, rs);
    case 3: return parseLinkAggregation(len, info, rs);
    case 4: return parseMaximumFrameSize(len, info, rs);
    default:
      TRACE(dot3Trace, 8) << "Unrecognized 802.3 Organizationally Specific TLV (subtype=" << subtype << ")";
      return TlvParseResultUnrecognized;
  }
}

}  // namespace Lldp
