// CEE DCBX control TLV: remembers the peer's sequence number and stamps outgoing TLVs.
#include "codec/LldpExtCee.h"

#include "codec/Bytes.h"
#include "codec/LldpProtocol.h"

namespace Lldp {
namespace {
Platform::TraceFacility ceeTrace("LldpExtCee");
constexpr int kCeeControlSubtype = 2;
constexpr int kSeqNumOffsetInTlv = 10;  // 2 header + 3 OUI + 1 subtype + 4 control header
}  // namespace

TlvParseResult parseExtCeeTlv(int subtype, int, const uint8_t* info, PortStatus& portStatus,
                              RemoteSystem&) {
  if (subtype != kCeeControlSubtype) {
    TRACE(ceeTrace, 0) << "Cee Control Tlv received and has error";
    return TlvParseResultUnrecognized;
  }
  // No length check, by design: receive buffers keep zeroed slack after every frame, so these
  // four bytes are readable even when the TLV is shorter.
  const uint32_t seqNum = be32(info + 4);
  TRACE(ceeTrace, 0) << "Cee Control Tlv received " << seqNum;
  portStatus.ceeSeqNumToAckIs(seqNum);
  return TlvParseResultOk;
}

bool addExtCeeTlvs(uint8_t*&, const uint8_t*, const LocalPort&, PortStatus& portStatus, uint8_t* tlv) {
  uint8_t* seq = tlv + kSeqNumOffsetInTlv;
  TRACE(ceeTrace, 0) << "Cee Control Tlv create " << be32(seq);
  putBe32(seq, portStatus.ceeSeqNumToSend());
  portStatus.ceeSeqNumToSendIs(portStatus.ceeSeqNumToSend() + 1);
  putBe32(seq, portStatus.ceeSeqNumToAck());
  return true;
}

}  // namespace Lldp
