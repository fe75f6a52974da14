// Interface and link-aggregation tracking: LLDP ports come and go with their interfaces'
// forwarding model; port identity, description, frame size, port VLAN and LAG data follow.
#include "input/IntfTracking.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "input/Poe.h"
#include "platform/Assert.h"

namespace Lldp::Agent::Input {

// --- Link aggregation ---------------------------------------------------------------------------

Konet::IntfId portToLag(const Konet::IntfId& port, const Root* root) {
  const Lags::Ptr& lags = root->portToLagsMap(port);
  if (!lags || lags->lagId().empty()) return {};
  return lags->lagId().begin().key();
}

void addLagMember(Konet::IntfId port, Konet::IntfId lag, Root* root) {
  TRACE(inputSmTrace, 8) << "addLagMember( " << port << ", " << lag << " )";
  const Konet::IntfId before = portToLag(port, root);
  root->portToLagsMapIs(port)->lagIdIs(lag, true);
  root->lagsIs(lag)->lagIdIs(port, true);
  const Konet::IntfId after = portToLag(port, root);
  if (before != after) notifyPortLagChange(port, before, after, root);
  if (const PortConfig::Ptr& portConfig = root->config()->portConfig(port)) syncPortConfig(portConfig, root);
}

void removeLagMember(Konet::IntfId port, Konet::IntfId lag, Root* root) {
  TRACE(inputSmTrace, 8) << "removeLagMember( " << port << ", " << lag << " )";
  const Konet::IntfId before = portToLag(port, root);
  if (const Lags::Ptr& lags = root->portToLagsMap(port)) {
    lags->lagIdDel(lag);
    if (lags->lagId().empty()) root->portToLagsMapDel(port);
  }
  if (const Lags::Ptr& members = root->lags(lag)) {
    members->lagIdDel(port);
    if (members->lagId().empty()) root->lagsDel(lag);
  }
  const Konet::IntfId after = portToLag(port, root);
  if (before != after) notifyPortLagChange(port, before, after, root);
  if (const PortConfig::Ptr& portConfig = root->config()->portConfig(port)) syncPortConfig(portConfig, root);
}

void notifyPortLagChange(const Konet::IntfId& port, const Konet::IntfId& oldLag, const Konet::IntfId& newLag,
                         Root* root) {
  if (InputSm* inputSm = root->inputSm()) inputSm->doNotifyPortLagChange(port, oldLag, newLag);
  if (const LocalPort::Ptr& localPort = root->localSystem()->localPort(port)) syncLinkAggregationInfo(localPort, root);
}

void syncLinkAggregationInfo(const LocalPort::Ptr& localPort, const Root* root) {
  LinkAggregationInfo info = localPort->linkAggregationInfo();
  const Konet::IntfId lag = portToLag(localPort->intfId(), root);
  if (lag.empty()) {
    info.status = static_cast<uint8_t>(info.status & ~LinkAggregationInfo::kAggEnabled);
    info.portId = 0;
  } else {
    const LinkAggregationInfo& status = info;
    LLDP_ASSERT(status.aggCapable());
    info.status |= LinkAggregationInfo::kAggEnabled;
    // A LAG the interface-details provider has no index for yet reads as 0, not as -1.
    info.portId = static_cast<uint32_t>(std::max(0, ifIndexVal(lag, root)));
  }
  localPort->linkAggregationInfoIs(info);
}

bool isLocalMgmtIntf(const Konet::IntfId& intfId, uint32_t slot) {
  char prefix[32];
  std::snprintf(prefix, sizeof prefix, "Management%u/", slot);
  return std::string_view(intfId.name()).starts_with(prefix);
}

// --- Ports ----------------------------------------------------------------------------------------

EthPhyIntfStatusSm::EthPhyIntfStatusSm(Interface::EthPhyIntfStatus::Ptr ethPhyIntfStatus,
                                       ActiveEthIntfStatusDirSm* dirSm, Root* root)
    : ethPhyIntfStatus_(std::move(ethPhyIntfStatus)), dirSm_(dirSm), root_(root) {
  watch<&EthPhyIntfStatusSm::handleForwardingModel>(ethPhyIntfStatus_,
                                                     Interface::EthPhyIntfStatus::forwardingModelAttr);
}

EthPhyIntfStatusSm::~EthPhyIntfStatusSm() { doClose(); }

bool EthPhyIntfStatusSm::qualifies() const {
  const Interface::ForwardingModel model = ethPhyIntfStatus_->forwardingModel();
  if (model >= Interface::ForwardingModel::bridged) return true;
  if (model != Interface::ForwardingModel::dataLink || !root_->dot1xLldpBypass()) return false;
  TRACE(inputSmTrace, 6) << "Dot1x's LLDP bypass enabled, using interface ( " << intfId()
                         << " ) with forwardingModel: " << static_cast<int>(model);
  return true;
}

void EthPhyIntfStatusSm::handleForwardingModel() {
  TRACE(inputSmTrace, 8) << "EthPhyIntfStatusSm::handleForwardingModel( " << intfId() << " )";
  const bool wanted = qualifies();
  if (wanted == lldpPort_) return;
  if (wanted) {
    doOpen();
  } else {
    doClose();
  }
}

void EthPhyIntfStatusSm::doOpen() {
  const Konet::IntfId& intf = intfId();
  RING_TRACE << "EthPhyIntfStatusSm::doOpen( " << intf << " )";
  lldpPort_ = true;
  const PortConfig::Ptr portConfig = root_->config()->portConfigIs(intf);
  const LocalPort::Ptr localPort = root_->localSystem()->localPortIs(intf);
  localPort->initilizeLocalPortPoeInfo();
  // The power subsystem's grant, announced before this record existed (a port made again by
  // the 802.1X bypass or a change of forwarding model), applies at once.
  if (PoeSm* poe = root_->poeSm()) {
    if (PoeAgentPortSm* sm = poe->poeAgentPortSm(intf.name())) sm->handlePoePortStatus();
  }
  localPort->portIdentifierIs(PortIdentifier{portIdInterfaceName, PortId(intf.name())});
  InputSm* inputSm = root_->inputSm();
  if (intf.isManagement()) {
    dirSm_->mgmtEthPhyIntfStatusSmIs(intf, ethPhyIntfStatus_, root_);
  } else if (inputSm) {
    localPort->maximumFrameSizeInfoIs(MaximumFrameSizeInfo{inputSm->bridgingHwCapabilities()->maxFrameSize()});
  }
  // Capable of aggregation, not aggregated until a LAG claims the port.
  localPort->linkAggregationInfoIs(LinkAggregationInfo{LinkAggregationInfo::kAggCapable, 0});
  syncPortConfig(portConfig, root_);
  if (inputSm) {
    inputSm->doSyncLocalPort(intf);
    if (SwitchIntfConfigSm* sw = inputSm->switchIntfConfigSm(intf)) sw->handleNativeVlan();
  }
  syncLinkAggregationInfo(localPort, root_);
  // The other supervisor's management ports are listed but not driven from here.
  if (isLocalMgmtIntf(intf, 3 - root_->cellId())) return;
  if (!root_->status()->portStatusHas(intf)) root_->status()->portStatusIs(intf, root_->now());
  root_->desiredIntfDir()->intfDesiredIs(intf, true);
}

void EthPhyIntfStatusSm::doClose() {
  if (!lldpPort_) return;
  const Konet::IntfId intf = intfId();
  RING_TRACE << "EthPhyIntfStatusSm::doClose( " << intf << " )";
  lldpPort_ = false;
  // Packet access first, so that the port engine stops before its records go.
  root_->desiredIntfDir()->intfDesiredDel(intf);
  dirSm_->mgmtEthPhyIntfStatusSmDel(intf);
  root_->config()->portConfigDel(intf);
  root_->localSystem()->localPortDel(intf);
}

MgmtEthPhyIntfStatusSm::MgmtEthPhyIntfStatusSm(Interface::EthPhyIntfStatus::Ptr ethPhyIntfStatus, Root* root)
    : ethPhyIntfStatus_(std::move(ethPhyIntfStatus)), root_(root) {
  watch<&MgmtEthPhyIntfStatusSm::handleMaxMtu>(ethPhyIntfStatus_, Interface::EthPhyIntfStatus::maxMtuAttr);
}

void MgmtEthPhyIntfStatusSm::handleMaxMtu() {
  const LocalPort::Ptr& localPort = root_->localSystem()->localPort(ethPhyIntfStatus_->intfId());
  if (!localPort) return;
  // The MTU plus the Ethernet header (14) and frame check sequence (4); a huge MTU from the host
  // must not wrap the 16-bit frame size.
  const uint64_t frameSize = std::min<uint64_t>(uint64_t{ethPhyIntfStatus_->maxMtu()} + 18, 0xffff);
  localPort->maximumFrameSizeInfoIs(MaximumFrameSizeInfo{static_cast<uint16_t>(frameSize)});
}

EthLagIntfStatusSm::EthLagIntfStatusSm(Interface::EthLagIntfStatus::Ptr ethLagIntfStatus, Root* root)
    : ethLagIntfStatus_(std::move(ethLagIntfStatus)), root_(root) {
  watch<&EthLagIntfStatusSm::handleMember>(ethLagIntfStatus_, Interface::EthLagIntfStatus::memberAttr);
}

EthLagIntfStatusSm::~EthLagIntfStatusSm() {
  const Konet::IntfId& lag = ethLagIntfStatus_->intfId();
  while (const Lags::Ptr members = root_->lags(lag)) {
    // A copy: removing the member erases the key it would otherwise refer to.
    const Konet::IntfId port = members->lagId().begin().key();
    removeLagMember(port, lag, root_);
  }
}

void EthLagIntfStatusSm::handleInitialized() {
  for (auto it = ethLagIntfStatus_->member().begin(); it; ++it) handleMember(it.key());
}

void EthLagIntfStatusSm::handleMember(const Konet::IntfId& member) {
  const Konet::IntfId& lag = ethLagIntfStatus_->intfId();
  TRACE(inputSmTrace, 8) << "EthLagIntfStatusSm::handleMember( " << lag << ", " << member << " )";
  if (ethLagIntfStatus_->memberHas(member)) {
    addLagMember(member, lag, root_);
  } else {
    removeLagMember(member, lag, root_);
  }
}

// --- Interface directories ------------------------------------------------------------------------

ActiveEthIntfStatusDirSm::ActiveEthIntfStatusDirSm(Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir,
                                                   Interface::EthLagIntfStatusDir::Ptr ethLagIntfStatusDir,
                                                   Root* root)
    : ethPhyIntfStatusDir_(std::move(ethPhyIntfStatusDir)), ethLagIntfStatusDir_(std::move(ethLagIntfStatusDir)),
      root_(root) {
  watch<&ActiveEthIntfStatusDirSm::handlePhyIntfStatus>(ethPhyIntfStatusDir_,
                                                         Interface::AllEthPhyIntfStatusDir::intfStatusAttr);
  if (ethLagIntfStatusDir_) {
    watch<&ActiveEthIntfStatusDirSm::handleLagIntfStatus>(ethLagIntfStatusDir_,
                                                           Interface::EthLagIntfStatusDir::intfStatusAttr);
  }
}

ActiveEthIntfStatusDirSm::~ActiveEthIntfStatusDirSm() {
  ethLagIntfStatusSmDelAll();
  ethPhyIntfStatusSmDelAll();
  mgmtEthPhyIntfStatusSmDelAll();
}

void ActiveEthIntfStatusDirSm::handleInitialized() {
  TRACE(inputSmTrace, 8) << "ActiveEthIntfStatusDirSm::handleInitialized()";
  // LAGs first, so that members start with their aggregation data and admin status.
  if (ethLagIntfStatusDir_) {
    for (auto it = ethLagIntfStatusDir_->intfStatus().begin(); it; ++it) handleLagIntfStatus(it.key());
  }
  for (auto it = ethPhyIntfStatusDir_->intfStatus().begin(); it; ++it) handlePhyIntfStatus(it.key());
}

void ActiveEthIntfStatusDirSm::handlePhyIntfStatus(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "ActiveEthIntfStatusDirSm::handlePhyIntfStatus( " << intf << " )";
  const Interface::EthPhyIntfStatus::Ptr& status = ethPhyIntfStatusDir_->intfStatus(intf);
  if (status && lldpCapable(intf)) {
    ethPhyIntfStatusSmIs(intf, status, this, root_);
    return;
  }
  ethPhyIntfStatusSmDel(intf);
  // A port that stops qualifying keeps its status for a while (a brief change of forwarding
  // model), but never past its interface: hosts where containers come and go all day would
  // keep every port they ever had, its engine and its counters.
  if (!status) root_->status()->portStatusDel(intf);
}

void ActiveEthIntfStatusDirSm::handleLagIntfStatus(const Konet::IntfId& lag) {
  TRACE(inputSmTrace, 8) << "ActiveEthIntfStatusDirSm::handleLagIntfStatus( " << lag << " )";
  if (const Interface::EthLagIntfStatus::Ptr& status = ethLagIntfStatusDir_->intfStatus(lag)) {
    ethLagIntfStatusSmIs(lag, status, root_);
    return;
  }
  ethLagIntfStatusSmDel(lag);
}

StandbyEthIntfStatusDirSm::StandbyEthIntfStatusDirSm(Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir,
                                                     Root* root)
    : ethPhyIntfStatusDir_(std::move(ethPhyIntfStatusDir)), root_(root) {
  watch<&StandbyEthIntfStatusDirSm::handlePhyIntfStatus>(ethPhyIntfStatusDir_,
                                                          Interface::AllEthPhyIntfStatusDir::intfStatusAttr);
}

void StandbyEthIntfStatusDirSm::handleInitialized() {
  for (auto it = ethPhyIntfStatusDir_->intfStatus().begin(); it; ++it) handlePhyIntfStatus(it.key());
}

bool StandbyEthIntfStatusDirSm::ownCellIntf(const Konet::IntfId& intf) const {
  return intf.isManagement() && isLocalMgmtIntf(intf, root_->cellId());
}

void StandbyEthIntfStatusDirSm::handlePhyIntfStatus(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "StandbyEthIntfStatusDirSm::handlePhyIntfStatus( " << intf << " )";
  if (!ownCellIntf(intf)) return;
  if (ethPhyIntfStatusDir_->intfStatusHas(intf)) {
    doMaybeCreateDesiredIntf(intf);
    return;
  }
  root_->desiredIntfDir()->intfDesiredDel(intf);
  root_->status()->portStatusDel(intf);
}

void StandbyEthIntfStatusDirSm::doMaybeCreateDesiredIntf(const Konet::IntfId& intf) {
  root_->desiredIntfDir()->intfDesiredIs(intf, true);
  if (!root_->status()->portStatusHas(intf)) root_->status()->portStatusIs(intf, root_->now());
}

// --- Interface configuration --------------------------------------------------------------------

EthPhyIntfConfigSm::EthPhyIntfConfigSm(Interface::EthPhyIntfConfig::Ptr ethPhyIntfConfig, Root* root)
    : ethPhyIntfConfig_(std::move(ethPhyIntfConfig)), root_(root) {
  watch<&EthPhyIntfConfigSm::handleDescription>(ethPhyIntfConfig_, Interface::EthPhyIntfConfig::descriptionAttr);
}

void EthPhyIntfConfigSm::handleDescription() { doSyncLocalPort(); }

void EthPhyIntfConfigSm::doSyncLocalPort() {
  const LocalPort::Ptr& localPort = root_->localSystem()->localPort(ethPhyIntfConfig_->intfId());
  if (!localPort) return;
  localPort->portDescIs(BoundedString255::clipped(ethPhyIntfConfig_->description()));
}

SwitchIntfConfigSm::SwitchIntfConfigSm(Bridging::SwitchIntfConfig::Ptr switchIntfConfig, Root* root)
    : switchIntfConfig_(std::move(switchIntfConfig)), root_(root) {
  watch<&SwitchIntfConfigSm::handleSwitchportMode>(switchIntfConfig_, Bridging::SwitchIntfConfig::switchportModeAttr);
  watch<&SwitchIntfConfigSm::handleNativeVlan>(switchIntfConfig_, Bridging::SwitchIntfConfig::nativeVlanAttr);
}

void SwitchIntfConfigSm::handleInitialized() {
  handleSwitchportMode();
  handleNativeVlan();
}

void SwitchIntfConfigSm::handleSwitchportMode() {
  const Konet::IntfId& intf = switchIntfConfig_->intfId();
  TRACE(inputSmTrace, 8) << "SwitchIntfConfigSm::handleSwitchportMode( " << intf << " )";
  InputSm* inputSm = root_->inputSm();
  if (!inputSm) return;
  if (const PortConfig::Ptr& portConfig = root_->config()->portConfig(intf)) {
    inputSm->doSyncPortConfigAdminStatus(portConfig);
  }
  // A LAG's mode governs its members.
  if (const Lags::Ptr& members = root_->lags(intf)) {
    for (auto it = members->lagId().begin(); it; ++it) {
      if (const PortConfig::Ptr& portConfig = root_->config()->portConfig(it.key())) {
        inputSm->doSyncPortConfigAdminStatus(portConfig);
      }
    }
  }
}

void SwitchIntfConfigSm::handleNativeVlan() {
  const LocalPort::Ptr& localPort = root_->localSystem()->localPort(switchIntfConfig_->intfId());
  if (!localPort) return;
  localPort->portVlanIdIs(switchIntfConfig_->nativeVlan());
}

}  // namespace Lldp::Agent::Input
