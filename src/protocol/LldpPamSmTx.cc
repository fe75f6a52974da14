// The port engine's transmit side: a six-state machine on one clock that decides when an
// LLDPDU is built and sent.
#include <cstring>

#include "codec/LldpProtocol.h"
#include "platform/Assert.h"
#include "protocol/LldpProtocolSm.h"

namespace Lldp::Agent::Protocol {

std::ostream& operator<<(std::ostream& os, TxFsmState state) {
  switch (state) {
    case TxFsmState::txFsmUninitialized: return os << "txFsmUninitialized";
    case TxFsmState::txFsmDisabled: return os << "txFsmDisabled";
    case TxFsmState::txFsmTxWait: return os << "txFsmTxWait";
    case TxFsmState::txFsmTxDelay: return os << "txFsmTxDelay";
    case TxFsmState::txFsmIdle: return os << "txFsmIdle";
    case TxFsmState::txFsmReinitializing: return os << "txFsmReinitializing";
  }
  return os << "txFsmState(" << int(state) << ")";
}

LldpPamSm::LldpPamSm(Konet::IntfId intfId, Platform::Ptr<Konet::Pam> pam, Root* root,
                     Platform::Scheduler& clock)
    : intfId_(std::move(intfId)), pam_(std::move(pam)), root_(root), clock_(clock),
      txClock_(clock, [this] { handleTxClock(); }),
      ageClock_(clock, [this] { handleAgeClock(); }),
      rxRateLimitClock_(clock, [this] { handleRxRateLimitClock(); }) {}

LldpPamSm::~LldpPamSm() { RING_TRACE << "LldpPamSm deleted for " << intfId_; }

void LldpPamSm::handleInitialized() {
  LLDP_ASSERT(!initialized());
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleInitialized( " << intfId_ << " )";
  RING_TRACE << "LldpPamSm created for " << intfId_;
  ethPhyIntfStatus_ = root_->ethPhyIntfStatusDir()->intfStatus(intfId_);
  portConfig_ = root_->config()->portConfig(intfId_);
  portStatus_ = root_->status()->portStatus(intfId_);
  localSystem_ = root_->localSystem();
  localPort_ = localSystem_ ? localSystem_->localPort(intfId_) : nullptr;
  LLDP_ASSERT(ethPhyIntfStatus());
  LLDP_ASSERT(portConfig());
  LLDP_ASSERT(portStatus());
  LLDP_ASSERT(localSystem());
  LLDP_ASSERT(localPort());
  watch<&LldpPamSm::handleLinkStatus>(ethPhyIntfStatus_, Interface::EthPhyIntfStatus::linkStatusAttr);
  watch<&LldpPamSm::handleAdminStatus>(portConfig_, PortConfig::adminStatusAttr);
  watch<&LldpPamSm::handleRemoteSystem>(portStatus_, PortStatus::remoteSystemAttr);
  watch<&LldpPamSm::handleReadableCount>(pam_, Konet::Pam::readableCountAttr);
  watch<&LldpPamSm::handleRxKernelDrops>(pam_, Konet::Pam::rxKernelDropsAttr);
  rxKernelDropsSeen_ = pam_->rxKernelDrops();
  initialized_ = true;

  txClock_.timeMinIs(Platform::kNever);
  txFsmStateIs(txFsmDisabled());
  ageClock_.timeMinIs(0);
  rxRateLimitClock_.timeMinIs(now() + portConfig_->rxRateLimitPeriod());
}

bool LldpPamSm::txEnabled() const {
  const AdminStatus admin = portConfig_->adminStatus();
  return (admin == AdminStatus::txOnly || admin == AdminStatus::txAndRx) &&
         ethPhyIntfStatus_->linkStatus() == Interface::LinkStatus::linkUp;
}

void LldpPamSm::txFsmStateIs(TxFsmState state) {
  if (state == txFsmState_) return;
  txFsmState_ = state;
  handleTxFsmState();
}

void LldpPamSm::handleTxFsmState() {
  LLDP_ASSERT(initialized());
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleTxFsmState( " << intfId_ << " )";
  TRACE(protocolSmTrace, 6) << "TX FSM transition " << lastTxFsmState_ << " -> " << txFsmState_;
  const TxFsmState previous = lastTxFsmState_;
  lastTxFsmState_ = txFsmState_;
  const double time = now();
  const Platform::Ptr<Config>& config = root_->config();

  switch (txFsmState()) {
    case TxFsmState::txFsmDisabled:
      TRACE(protocolSmTrace, 6) << "Entering disabled state: checking if port is enabled";
      doCheckPortEnabled();
      break;
    case TxFsmState::txFsmTxWait:
      if (previous == txFsmTxDelay()) {
        TRACE(protocolSmTrace, 6) << "Entering txWait state: no action";
        break;
      }
      TRACE(protocolSmTrace, 6) << "Entering txWait state: starting txDelayWhile timer";
      txClock_.timeMinIs(time + static_cast<double>(config->txDelay()));
      break;
    case TxFsmState::txFsmTxDelay:
      TRACE(protocolSmTrace, 6) << "Entering txDelay state: tx LLDPDU and starting txDelayWhile timer";
      doSendLldpdu();
      txClock_.timeMinIs(time + static_cast<double>(config->txDelay()));
      break;
    case TxFsmState::txFsmIdle:
      TRACE(protocolSmTrace, 6) << "Entering idle state: starting txTTR timer";
      LLDP_ASSERT(config->messageTxInterval() >= config->txDelay());
      txClock_.timeMinIs(time + static_cast<double>(config->messageTxInterval()) -
                         static_cast<double>(config->txDelay()));
      break;
    case TxFsmState::txFsmReinitializing:
      TRACE(protocolSmTrace, 6) << "Entering reinitializing state: starting txShutdownWhile timer";
      txClock_.timeMinIs(time + static_cast<double>(config->reinitDelay()));
      break;
    default:
      LLDP_ASSERT(txFsmState() == txFsmReinitializing());
  }
  TRACE(protocolSmTrace, 6) << "Time is " << time << "; txClock set to expire at " << txClock_.timeMin();
}

void LldpPamSm::handleTxClock() {
  LLDP_ASSERT(initialized());
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleTxClock( " << intfId_ << " )";
  switch (txFsmState()) {
    case TxFsmState::txFsmTxWait:
      TRACE(protocolSmTrace, 6) << "txDelayWhile timer expired: txWait -> txDelay";
      txFsmStateIs(txFsmTxDelay());
      break;
    case TxFsmState::txFsmTxDelay:
      TRACE(protocolSmTrace, 6) << "txDelayWhile timer expired: txDelay -> idle";
      txFsmStateIs(txFsmIdle());
      break;
    case TxFsmState::txFsmIdle:
      TRACE(protocolSmTrace, 6) << "txTTR timer expired: idle -> txDelay";
      txFsmStateIs(txFsmTxDelay());
      break;
    case TxFsmState::txFsmReinitializing:
      TRACE(protocolSmTrace, 6) << "txShutdownWhile timer expired: reinitializing -> disabled";
      txFsmStateIs(txFsmDisabled());
      break;
    default:
      LLDP_ASSERT(txFsmState() == txFsmReinitializing());
  }
}

void LldpPamSm::doCheckPortEnabled() {
  LLDP_ASSERT(txFsmState() == txFsmDisabled());
  TRACE(protocolSmTrace, 8) << "LldpPamSm::doCheckPortEnabled( " << intfId_ << " )";
  if (txEnabled()) {
    TRACE(protocolSmTrace, 6) << "Port enabled: initiating transition -> txWait state";
    txFsmStateIs(txFsmTxWait());
    return;
  }
  TRACE(protocolSmTrace, 6) << "Port not enabled: no action";
}

void LldpPamSm::handleLinkStatus() {
  handleLinkStatusTx();
  handleLinkStatusRx();
}

void LldpPamSm::handleLinkStatusTx() {
  if (!initialized()) return;
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleLinkStatusTx( " << intfId_ << " )";
  doReactToPortChange(ethPhyIntfStatus_->linkStatus() == Interface::LinkStatus::linkUp,
                      "Link down: initiating transition -> reinitializing state");
}

void LldpPamSm::handleAdminStatus() {
  if (!initialized()) return;
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleAdminStatus( " << intfId_ << " )";
  const AdminStatus admin = portConfig_->adminStatus();
  doReactToPortChange(admin == AdminStatus::txOnly || admin == AdminStatus::txAndRx,
                      "Admin state down: initiating transition -> reinitializing state");
}

void LldpPamSm::doReactToPortChange(bool stillUp, const char* downTrace) {
  switch (txFsmState()) {
    case TxFsmState::txFsmDisabled:
      doCheckPortEnabled();
      break;
    case TxFsmState::txFsmTxWait:
    case TxFsmState::txFsmTxDelay:
    case TxFsmState::txFsmIdle:
      if (!stillUp) {
        TRACE(protocolSmTrace, 6) << downTrace;
        txFsmStateIs(txFsmReinitializing());
      }
      break;
    default:
      break;  // reinitializing: the port is checked when the delay ends
  }
}

void LldpPamSm::doProcessSomethingChangedLocal() {
  TRACE(protocolSmTrace, 8) << "LldpPamSm::doProcessSomethingChangedLocal( " << intfId_ << " )";
  if (txFsmState() == txFsmTxDelay()) {
    TRACE(protocolSmTrace, 6) << "Local System MIB changed: initiating transition -> txWait state";
    txFsmStateIs(txFsmTxWait());
    return;
  }
  if (txFsmState() == txFsmIdle()) {
    TRACE(protocolSmTrace, 6) << "Local System MIB changed: initiating transition -> txDelay state";
    txFsmStateIs(txFsmTxDelay());
  }
}

void LldpPamSm::handleRemoteSystem(const int32_t& index, Platform::ChangeKind kind) {
  TRACE(protocolSmTrace, 8) << "LldpPamSm::handleRemoteSystem( " << intfId_ << " )";
  // A new neighbour is announced once it is filled in, so this LLDPDU already answers what it
  // sent (LLDP-MED TLVs to an LLDP-MED device); a removal sends nothing.
  if (kind == Platform::ChangeKind::removed || !portStatus_->remoteSystemHas(index)) return;
  doProcessSomethingChangedLocal();
}

Platform::PacketPtr LldpPamSm::doBuildLldpdu() {
  TRACE(protocolSmTrace, 8) << "LldpPamSm::doBuildLldpdu( " << intfId_ << " )";
  Platform::PacketPtr pkt = Platform::PacketPool::instance().alloc();
  if (!pkt) {
    TRACE(protocolSmTrace, 2) << "Packet allocation failed";
    portStatus_->txFramesNoMemErrorsInc(1);
    return nullptr;
  }
  LLDP_ASSERT(pkt->maxSharedData() >= ( root()->config()->maxTxFrameSize() - 4 ));
  uint8_t* start = pkt->append(kMaxLldpduSize);
  uint8_t* usedEnd = buildTxLldpdu(start, start + kMaxLldpduSize, *root_->config(), *localSystem_,
                                   *localPort_, *portConfig_, *portStatus_, now());
  LLDP_ASSERT(usedEnd);
  pkt->trimTail(static_cast<size_t>(start + kMaxLldpduSize - usedEnd));
  auto* eth = reinterpret_cast<Konet::EthHdr*>(pkt->prepend(sizeof(Konet::EthHdr)));
  std::memcpy(eth->dst, Konet::kLldpMulticast.data(), 6);
  std::memcpy(eth->src, ethPhyIntfStatus_->addr().data(), 6);
  eth->etherType[0] = kLldpEtherType >> 8;
  eth->etherType[1] = kLldpEtherType & 0xff;
  return pkt;
}

void LldpPamSm::doSendLldpdu() {
  TRACE(protocolSmTrace, 8) << "LldpPamSm::doSendLldpdu( " << intfId_ << " )";
  if (Platform::PacketPtr pkt = doBuildLldpdu()) pam_->txPkt(std::move(pkt));
}

}  // namespace Lldp::Agent::Protocol
