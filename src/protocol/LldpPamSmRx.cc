// The port engine's receive side: frame checks, the 802.1Q tag rule, the per-port rate limit,
// hand-off to the codec, and ageing of neighbours on a single clock.
#include <cstring>

#include "codec/LldpProtocol.h"
#include "platform/Assert.h"
#include "protocol/LldpProtocolSm.h"

namespace Lldp::Agent::Protocol {

const Platform::LogHandle<std::string_view, uint64_t, double> LLDP_RX_RATELIMIT(
    {"LLDP_RX_RATELIMIT", Platform::Severity::warning,
     "Exceeded Rx LLDPDU rate limit on %s (more than %d LLDPDUs in %f seconds)",
     "The switch received too many LLDPDUs on a port in too short a period of time, so we "
     "dropped the most recent received LLDPDU.",
     "This could indicate a mis-configured neighbor, or a network loop.  Check the configuration "
     "of the neighbor connected to the interface and configure the LLDPDUs to be sent at a "
     "reasonable rate and ensure there are no network loops.",
     60, {"INTERFACE"}});

namespace {

constexpr uint16_t kVlanTpid = 0x8100;

uint16_t etherTypeAt(const uint8_t* frame, size_t offset) {
  return static_cast<uint16_t>(frame[offset] << 8 | frame[offset + 1]);
}

struct HexShort {
  uint16_t value;
};
std::ostream& operator<<(std::ostream& os, HexShort h) { return os << std::hex << h.value << std::dec; }

}  // namespace

bool LldpPamSm::rxEnabled() const {
  const AdminStatus admin = portConfig_->adminStatus();
  return admin == AdminStatus::txAndRx || admin == AdminStatus::rxOnly;
}

void LldpPamSm::handleReadableCount() {
  LLDP_ASSERT(initialized());
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleReadableCount( " << intfId_;
  Platform::PacketPtr pkt = pam_->rxPkt();
  if (!pkt) {
    TRACE(protocolSmTrace, 0) << "Error receiving frame";
    return;
  }
  TRACE(protocolSmTrace, 8) << "Received frame on interface " << intfId_ << " (length=" << pkt->bytes() << ")";
  if (!rxEnabled()) {
    TRACE(protocolSmTrace, 6) << "LLDP Receive disabled -- discarding received LLDPDU";
    return;
  }
  LLDP_ASSERT(pkt->bytes() >= sizeof( Konet::EthHdr ));
  const uint8_t* frame = pkt->data();
  if (Konet::EthAddr(frame) != Konet::kLldpMulticast) {
    TRACE(protocolSmTrace, 6) << "Received frame with incorrect DMAC -- ignoring";
    return;
  }
  uint16_t etherType = etherTypeAt(frame, 12);
  if (!root_->config()->rxTaggedPacketsDrop()) {
    if (const auto& tag = pkt->dot1QHdr()) {
      TRACE(protocolSmTrace, 6) << "Received 802.1Q-tagged frame (Tpid: 0x" << HexShort{tag->tpid}
                                << ") with VLAN ID " << tag->vlanId();
      pkt->dot1QHdrIs(std::nullopt);
    } else if (etherType == kVlanTpid && pkt->bytes() >= sizeof(Konet::EthHdr) + 4) {
      TRACE(protocolSmTrace, 6) << "Received 802.1Q-tagged frame with VLAN ID "
                                << (etherTypeAt(frame, 14) & 0x0fff);
      // Move the addresses over the tag rather than the payload: no copy of the LLDPDU.
      etherType = etherTypeAt(frame, 16);
      uint8_t* bytes = pkt->data();
      std::memmove(bytes + 4, bytes, 12);
      pkt->stripHead(4);
      frame = pkt->data();
    }
  }
  if (etherType != kLldpEtherType) {
    TRACE(protocolSmTrace, 6) << "Received frame with incorrect EtherType -- ignoring";
    return;
  }
  const Konet::EthAddr source(frame + 6);
  pkt->stripHead(sizeof(Konet::EthHdr));
  ++rxLldpdus_;

  if (portConfig_->rxRateLimitingEnabled() && rxLldpdus_ > portConfig_->rxRateLimitMax()) {
    if (rxLldpdus_ == portConfig_->rxRateLimitMax() + 1) {
      LLDP_RX_RATELIMIT.emit(intfId_.name(), portConfig_->rxRateLimitMax(), portConfig_->rxRateLimitPeriod());
    }
    ++rxLldpdusRateLimited_;
    return;
  }

  const RemoteSystem::PtrConst rs = processRxLldpdu(pkt->data(), pkt->data() + pkt->bytes(), *portConfig_,
                                                    *root_->status(), *portStatus_, source, now());
  if (rs && rs->expiryTime() < ageClock_.timeMin()) {
    TRACE(protocolSmTrace, 6) << "Setting ageClock to expire at " << rs->expiryTime();
    ageClock_.timeMinIs(rs->expiryTime());
  }
}

void LldpPamSm::handleRxKernelDrops() {
  // Frames lost before they reached us: the port's count, next to its receive counters.
  const uint64_t drops = pam_->rxKernelDrops();
  portStatus_->rxKernelDropsTotalInc(static_cast<uint32_t>(drops - rxKernelDropsSeen_));
  rxKernelDropsSeen_ = drops;
}

void LldpPamSm::handleRxRateLimitClock() {
  LLDP_ASSERT(initialized());
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleRxRateLimitClock()";
  rxLldpdus_ = 0;
  rxRateLimitClock_.timeMinIs(now() + portConfig_->rxRateLimitPeriod());
}

void LldpPamSm::handleAgeClock() {
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleAgeClock( " << intfId_ << " )";
  LLDP_ASSERT(initialized());
  const double time = now();
  double next = Platform::kNever;
  Status& status = *root_->status();
  for (auto it = portStatus_->remoteSystem().begin(); it != portStatus_->remoteSystem().end(); ++it) {
    const RemoteSystem::Ptr rs = it.value();
    if (time < rs->expiryTime()) {
      next = std::min(next, rs->expiryTime());
      continue;
    }
    TRACE(protocolSmTrace, 6) << "Aging RemoteSystem for " << *rs;
    const Msap msap = rs->msap();
    portStatus_->remoteSystemByMsapDel(msap);
    portStatus_->remoteSystemDelReasonIs(RemoteSystemDelReason::ageout);
    portStatus_->remoteSystemDel(rs->index());
    portStatus_->rxAgeoutsTotalInc(1);
    status.remTablesAgeoutsInc(1);
    status.remTablesDeletesInc(1);
    LLDP_NEIGHBOR_TIMEOUT.emit(msap.chassisIdentifier.stringValue(), msap.portIdentifier.stringValue(),
                               intfId_.name());
    status.remTablesLastChangeTimeIs(time);
  }
  TRACE(protocolSmTrace, 6) << "Setting ageClock to expire at " << next;
  ageClock_.timeMinIs(next);
}

void LldpPamSm::handleLinkStatusRx() {
  if (!initialized()) return;
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleLinkStatusRx( " << intfId_ << " )";
  if (ethPhyIntfStatus_->linkStatus() != Interface::LinkStatus::linkDown) return;
  TRACE(protocolSmTrace, 6) << "Link down: deleting all RemoteSystems on " << intfId_;
  portStatus_->remoteSystemDelReasonIs(RemoteSystemDelReason::linkDown);
  doDeleteAllRemoteSystems();
}

void LldpPamSm::doDeleteAllRemoteSystems() {
  LLDP_ASSERT(initialized());
  TRACE(protocolSmTrace, 8) << "LldpPamSm::doDeleteAllRemoteSystems( " << intfId_ << " )";
  Status& status = *root_->status();
  for (auto it = portStatus_->remoteSystem().begin(); it != portStatus_->remoteSystem().end(); ++it) {
    const RemoteSystem::Ptr rs = it.value();
    TRACE(protocolSmTrace, 6) << "Deleting RemoteSystem for " << rs->msap().chassisIdentifier << " "
                              << rs->msap().portIdentifier;
    const Msap msap = rs->msap();
    portStatus_->remoteSystemByMsapDel(msap);
    portStatus_->remoteSystemDel(rs->index());
    status.remTablesDeletesInc(1);
  }
  status.remTablesLastChangeTimeIs(now());
}

void LldpPamSm::doClose() {
  TRACE(protocolSmTrace, 8) << "LldpPamSm::doClose( " << intfId_ << " )";
  RING_TRACE << "LldpPamSm::doClose( " << intfId_ << " )";
  LLDP_ASSERT(initialized());
  portStatus_->remoteSystemDelReasonIs(RemoteSystemDelReason::portRemoved);
  doDeleteAllRemoteSystems();
}

}  // namespace Lldp::Agent::Protocol
