// InputSm: the operator's configuration and the other agents' records become the effective
// configuration, per-port configuration and local-system record.
#include <limits>

#include "input/CliPortConfig.h"
#include "input/IntfTracking.h"
#include "input/LldpInputSm.h"
#include "platform/Assert.h"

namespace Lldp::Agent::Input {

namespace {

BoundedString255 cut255(std::string_view text) { return BoundedString255::clipped(text); }

}  // namespace

InputSm::InputSm(Interface::AllEthPhyIntfConfigDir::Ptr ethPhyIntfConfigDir, Bridging::Config::Ptr bridgingConfig,
                 Bridging::HwCapabilities::Ptr bridgingHwCapabilities, Ip::Status::Ptr ipStatus,
                 Ip6::Status::Ptr ip6Status, Routing::Config::Ptr routingConfig, EntityMib::Status::Ptr sysDescr,
                 Platform::Dir::Ptr externalTlvs, System::NetStatus::Ptr netStatus, CliConfig::Ptr cliConfig,
                 Interface::AllIntfStatusDir::Ptr allIntfStatusDir, Root* root)
    : ethPhyIntfConfigDir_(std::move(ethPhyIntfConfigDir)), bridgingConfig_(std::move(bridgingConfig)),
      bridgingHwCapabilities_(std::move(bridgingHwCapabilities)), ipStatus_(std::move(ipStatus)),
      ip6Status_(std::move(ip6Status)), routingConfig_(std::move(routingConfig)), sysDescr_(std::move(sysDescr)),
      externalTlvs_(std::move(externalTlvs)), netStatus_(std::move(netStatus)), cliConfig_(std::move(cliConfig)),
      allIntfStatusDir_(std::move(allIntfStatusDir)), root_(root) {
  using C = CliConfig;
  watch<&InputSm::handleEnabled>(cliConfig_, C::enabledAttr);
  watch<&InputSm::handleMessageTxInterval>(cliConfig_, C::messageTxIntervalAttr);
  watch<&InputSm::handleMessageTxHoldTime>(cliConfig_, C::messageTxHoldTimeAttr);
  watch<&InputSm::handleReinitDelay>(cliConfig_, C::reinitDelayAttr);
  watch<&InputSm::handleMgmtAddrTxOption>(cliConfig_, C::mgmtAddrTxOptionAttr);
  watch<&InputSm::handleRxTaggedPacketsDrop>(cliConfig_, C::rxTaggedPacketsDropAttr);
  for (auto attr : {C::portDescTlvEnabledAttr, C::sysNameTlvEnabledAttr, C::sysDescTlvEnabledAttr,
                    C::sysCapTlvEnabledAttr, C::mgmtAddrTlvEnabledAttr, C::portVlanIdTlvEnabledAttr,
                    C::linkAggregationTlvEnabledAttr, C::maxFrameSizeTlvEnabledAttr, C::powerViaMdiTlvEnabledAttr,
                    C::medNetworkPolicyTlvEnabledAttr}) {
    watch<&InputSm::handleEnabledTlvs>(cliConfig_, attr);
  }
  watch<&InputSm::handleMgmtAddrVrf>(cliConfig_, C::mgmtAddrVrfAttr);
  watch<&InputSm::handleIp6ManagementAddress>(cliConfig_, C::ip6MgmtAddrIntfNameAttr);
  watch<&InputSm::handleCliPortConfig>(cliConfig_, C::portConfigAttr);
  watch<&InputSm::handleBridgeMacAddr>(bridgingConfig_, Bridging::Config::bridgeMacAddrAttr);
  watch<&InputSm::handleSwitchIntfConfig>(bridgingConfig_, Bridging::Config::switchIntfConfigAttr);
  watch<&InputSm::handleBridgingMaxFrameSize>(bridgingHwCapabilities_, Bridging::HwCapabilities::maxFrameSizeAttr);
  watch<&InputSm::handleRouting>(routingConfig_, Routing::Config::routingAttr);
  watch<&InputSm::handleDescription>(sysDescr_, EntityMib::Status::valueAttr);
  watch<&InputSm::handleHostnameOrDomainName>(netStatus_, System::NetStatus::hostnameAttr);
  watch<&InputSm::handleHostnameOrDomainName>(netStatus_, System::NetStatus::domainNameAttr);
  watch<&InputSm::handleIntfConfig>(ethPhyIntfConfigDir_, Interface::AllEthPhyIntfConfigDir::intfConfigAttr);
  watch<&InputSm::handleIntfStatusOrIpIntfStatus>(allIntfStatusDir_, Interface::AllIntfStatusDir::intfStatusAttr);
  watch<&InputSm::handleIntfStatusOrIpIntfStatus>(ipStatus_, Ip::Status::ipIntfStatusAttr);
  watch<&InputSm::handleIp6IntfStatus>(ip6Status_, Ip6::Status::intfAttr);
  watch<&InputSm::handleExternalTlvsEntityPtr>(externalTlvs_, Platform::Dir::entryAttr);
}

InputSm::~InputSm() { doClose(); }

void InputSm::handleInitialized() {
  TRACE(inputSmTrace, 8) << "InputSm::handleInitialized()";
  for (auto it = ethPhyIntfConfigDir_->intfConfig().begin(); it; ++it) handleIntfConfig(it.key());
  handleBridgeMacAddr();
  for (auto it = bridgingConfig_->switchIntfConfig().begin(); it; ++it) handleSwitchIntfConfig(it.key());
  handleMgmtAddrVrf();
  // Only interfaces with an IPv4 status can advertise an address.
  for (auto it = ipStatus_->ipIntfStatus().begin(); it; ++it) handleIntfStatusOrIpIntfStatus(it.key());
  handleRouting();
  handleDescription();
  handleHostnameOrDomainName();
  handleMessageTxInterval();
  handleMessageTxHoldTime();
  handleReinitDelay();
  handleEnabledTlvs();
  handleMgmtAddrTxOption();
  handleRxTaggedPacketsDrop();
  handleEnabled();
  for (auto it = externalTlvs_->entry().begin(); it; ++it) handleExternalTlvsEntityPtr(it.key());
  // Ports that appeared before this reactor have no frame size yet, and an IPv6 address that was
  // configured before start-up has seen no change.
  handleBridgingMaxFrameSize();
  handleIp6ManagementAddress();
}

void InputSm::handleEnabled() {
  TRACE(inputSmTrace, 8) << "InputSm::handleEnabled()";
  if (cliConfig_->enabled()) {
    for (auto it = cliConfig_->portConfig().begin(); it; ++it) handleCliPortConfig(it.key());
  } else {
    cliPortConfigSmDelAll();
  }
  for (auto it = root_->config()->portConfig().begin(); it; ++it) {
    doSyncPortConfigAdminStatus(it.value());
    doSyncPortConfigNetworkPolicy(it.value());
    doSyncPortConfigRxRateLimit(it.value());
  }
}

void InputSm::handleMessageTxInterval() {
  TRACE(inputSmTrace, 8) << "InputSm::handleMessageTxInterval()";
  const uint32_t interval = cliConfig_->messageTxInterval();
  root_->config()->messageTxIntervalIs(interval);
  // The transmit delay stays at 2 s and only shrinks to follow a shorter interval.
  root_->config()->txDelayIs(interval <= 1 ? interval : 2u);
}

void InputSm::handleMessageTxHoldTime() {
  TRACE(inputSmTrace, 8) << "InputSm::handleMessageTxHoldTime()";
  root_->config()->messageTxHoldTimeIs(cliConfig_->messageTxHoldTime());
}

void InputSm::handleReinitDelay() {
  TRACE(inputSmTrace, 8) << "InputSm::handleReinitDelay()";
  root_->config()->reinitDelayIs(cliConfig_->reinitDelay());
}

void InputSm::handleRxTaggedPacketsDrop() {
  TRACE(inputSmTrace, 8) << "InputSm::handleRxTaggedPacketsDrop()";
  root_->config()->rxTaggedPacketsDropIs(cliConfig_->rxTaggedPacketsDrop());
}

void InputSm::handleMgmtAddrVrf() {
  TRACE(inputSmTrace, 8) << "InputSm::handleMgmtAddrVrf()";
  root_->status()->mgmtAddrVrfIs(cliConfig_->mgmtAddrVrf());
  doSyncMgmtAddrVrf();
}

namespace {

void applyEnabledTlvs(const CliConfig& cliConfig, PortConfig& portConfig) {
  PortConfig::EnabledTlvs enabledTlvs = portConfig.enabledTlvs();
  bool mgmtAddrTxEnable = portConfig.mgmtAddrTxEnable();
  bool portVlanTxEnable = portConfig.portVlanTxEnable();
  PortConfig::Dot3EnabledTlvs dot3EnabledTlvs = portConfig.dot3EnabledTlvs();
  PortConfig::TiaEnabledTlvs tiaEnabledTlvs = portConfig.tiaEnabledTlvs();
  getEnabledTlvValues(cliConfig, enabledTlvs, mgmtAddrTxEnable, portVlanTxEnable, dot3EnabledTlvs, tiaEnabledTlvs);
  portConfig.enabledTlvsIs(enabledTlvs);
  portConfig.mgmtAddrTxEnableIs(mgmtAddrTxEnable);
  portConfig.portVlanTxEnableIs(portVlanTxEnable);
  portConfig.dot3EnabledTlvsIs(dot3EnabledTlvs);
  portConfig.tiaEnabledTlvsIs(tiaEnabledTlvs);
}

}  // namespace

void InputSm::handleEnabledTlvs() {
  TRACE(inputSmTrace, 8) << "InputSm::handleEnabledTlvs()";
  for (auto it = root_->config()->portConfig().begin(); it; ++it) applyEnabledTlvs(*cliConfig_, *it.value());
}

void InputSm::handleMgmtAddrTxOption() {
  TRACE(inputSmTrace, 8) << "InputSm::handleMgmtAddrTxOption()";
  const MgmtAddrTxOption& option = cliConfig_->mgmtAddrTxOption();
  ManAddrPriority named{};
  switch (option.mgmtAddrTxMode()) {
    case MgmtAddrTxMode::best:
      root_->config()->maxTxMgmtAddrsIs(1u);
      break;
    case MgmtAddrTxMode::all:
      root_->config()->maxTxMgmtAddrsIs(std::numeric_limits<uint32_t>::max());
      break;
    case MgmtAddrTxMode::intfName:
      LLDP_ASSERT(cliConfig()->mgmtAddrTxOption().mgmtAddrTxMode() == Lldp::mgmtAddrTxModeIntfName());
      root_->config()->maxTxMgmtAddrsIs(1u);
      intfNameToVlanIdAndManAddrPriority(option.intfName, nullptr, &named);
      break;
  }
  doRekeySourceIntfPriority(named);
}

void InputSm::doRekeySourceIntfPriority(const ManAddrPriority& named) {
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  const ManAddrPriority reserved = reservedSourceIntfPriority();
  const ManAddrPriority previous = root_->sourceIntfNamePriority();
  if (localSystem->managementAddressPrioHas(reserved)) {
    const ManagementAddress::Key key = localSystem->managementAddressPrio(reserved);
    localSystem->managementAddressPrioDel(reserved);
    if (!(previous == ManAddrPriority{})) localSystem->managementAddressPrioIs(previous, key);
  }
  if (!(named == ManAddrPriority{}) && localSystem->managementAddressPrioHas(named)) {
    const ManagementAddress::Key key = localSystem->managementAddressPrio(named);
    localSystem->managementAddressPrioDel(named);
    localSystem->managementAddressPrioIs(reserved, key);
  }
  root_->sourceIntfNamePriorityIs(named);
}

void InputSm::handleCliPortConfig(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "InputSm::handleCliPortConfig( " << intf << " )";
  if (!cliConfig_->enabled()) return;
  if (const CliPortConfig::Ptr& entry = cliConfig_->portConfig(intf)) {
    if (CliPortConfigSm* sm = cliPortConfigSm(intf); sm && sm->cliPortConfig() != entry) cliPortConfigSmDel(intf);
    cliPortConfigSmIs(intf, entry, root_);
    return;
  }
  if (!cliPortConfigSmHas(intf)) return;
  cliPortConfigSmDel(intf);
  if (const PortConfig::Ptr& portConfig = root_->config()->portConfig(intf)) {
    doSyncPortConfigAdminStatus(portConfig);
    doSyncPortConfigNetworkPolicy(portConfig);
    doSyncPortConfigRxRateLimit(portConfig);
  }
}

void InputSm::handleBridgeMacAddr() {
  TRACE(inputSmTrace, 8) << "InputSm::handleBridgeMacAddr()";
  const Konet::EthAddr& mac = bridgingConfig_->bridgeMacAddr();
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  localSystem->chassisIdentifierIs(ChassisIdentifier{chassisIdMacAddress, ChassisId(mac.data(), 6)});

  const ManAddrPriority fallback = fallbackManAddrPriority();
  if (root_->fallbackManagementAddressKeyPresent()) {
    const ManagementAddress::Key old = root_->fallbackManagementAddressKey();
    localSystem->managementAddressDel(old);
    if (localSystem->managementAddressPrioHas(fallback) && localSystem->managementAddressPrio(fallback) == old) {
      TRACE(inputSmTrace, 6) << "Deleting fallback management address";
      localSystem->managementAddressPrioDel(fallback);
    }
  }
  const ManagementAddress::Key key{afIeee802, ManAddress(mac.data(), 6)};
  root_->fallbackManagementAddressKeyIs(key);
  root_->fallbackManagementAddressKeyPresentIs(true);
  localSystem->managementAddressIs(key, ManagementAddress(key, ifNumberingUnknown, 0));
  if (!localSystem->managementAddressPrio().empty()) return;
  TRACE(inputSmTrace, 6) << "Adding fallback management address";
  localSystem->managementAddressPrioIs(fallback, key);
}

void InputSm::handleBridgingMaxFrameSize() {
  TRACE(inputSmTrace, 8) << "InputSm::handleBridgingMaxFrameSize()";
  const MaximumFrameSizeInfo size{bridgingHwCapabilities_->maxFrameSize()};
  for (auto it = root_->localSystem()->localPort().begin(); it; ++it) {
    if (it.key().isManagement()) continue;
    it.value()->maximumFrameSizeInfoIs(size);
  }
}

void InputSm::handleRouting() {
  TRACE(inputSmTrace, 8) << "InputSm::handleRouting()";
  const LocalSystem::Ptr& localSystem = root_->localSystem();
  uint16_t enabled = localSystem->sysCapEnabled().value;
  if (routingConfig_->routing()) {
    enabled |= SystemCapabilitiesMap::router;
  } else {
    enabled &= static_cast<uint16_t>(~SystemCapabilitiesMap::router);
  }
  localSystem->sysCapEnabledIs(SystemCapabilitiesMap{enabled});
}

void InputSm::handleDescription() {
  TRACE(inputSmTrace, 8) << "InputSm::handleDescription()";
  root_->localSystem()->sysDescIs(cut255(sysDescr_->value()));
}

void InputSm::handleHostnameOrDomainName() {
  TRACE(inputSmTrace, 8) << "InputSm::handleHostnameOrDomainName()";
  std::string name = netStatus_->hostname();
  if (!netStatus_->domainName().empty()) name += "." + netStatus_->domainName();
  root_->localSystem()->sysNameIs(cut255(name));
}

void InputSm::handleSwitchIntfConfig(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "InputSm::handleSwitchIntfConfig( " << intf << " )";
  const Bridging::SwitchIntfConfig::Ptr& entry = bridgingConfig_->switchIntfConfig(intf);
  if (SwitchIntfConfigSm* sm = switchIntfConfigSm(intf); sm && sm->switchIntfConfig() == entry) return;
  switchIntfConfigSmDel(intf);
  if (entry) {
    switchIntfConfigSmIs(intf, entry, root_);
    return;
  }
  // No longer a switchport: no port VLAN, and transmission is no longer restricted.
  if (const LocalPort::Ptr& localPort = root_->localSystem()->localPort(intf)) {
    localPort->portVlanIdIs(Bridging::VlanIdOrNone{});
  }
  if (const PortConfig::Ptr& portConfig = root_->config()->portConfig(intf)) doSyncPortConfigAdminStatus(portConfig);
  if (const Lags::Ptr& members = root_->lags(intf)) {
    for (auto it = members->lagId().begin(); it; ++it) {
      if (const PortConfig::Ptr& portConfig = root_->config()->portConfig(it.key())) {
        doSyncPortConfigAdminStatus(portConfig);
      }
    }
  }
}

void InputSm::handleIntfConfig(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "InputSm::handleIntfConfig( " << intf << " )";
  const Interface::EthPhyIntfConfig::Ptr& entry = ethPhyIntfConfigDir_->intfConfig(intf);
  if (entry) {
    ethPhyIntfConfigSmIs(intf, entry, root_);
    return;
  }
  if (!ethPhyIntfConfigSmHas(intf)) return;
  ethPhyIntfConfigSmDel(intf);
  if (const LocalPort::Ptr& localPort = root_->localSystem()->localPort(intf)) {
    localPort->portDescIs(BoundedString255{});
  }
}

void InputSm::doSyncPortConfig(const PortConfig::Ptr& portConfig) {
  TRACE(inputSmTrace, 8) << "InputSm::doSyncPortConfig( " << portConfig->intfId() << " )";
  applyEnabledTlvs(*cliConfig_, *portConfig);
  doSyncPortConfigAdminStatus(portConfig);
  doSyncPortConfigNetworkPolicy(portConfig);
  doSyncPortConfigRxRateLimit(portConfig);
}

void InputSm::doSyncPortConfigAdminStatus(const PortConfig::Ptr& portConfig) {
  AdminStatus requested = AdminStatus::disabled;
  if (cliConfig_->enabled()) {
    const CliPortConfigSm* sm = cliPortConfigSm(portConfig->intfId());
    requested = sm ? sm->cliPortConfig()->adminStatus() : AdminStatus::txAndRx;
  }
  portAdminStatusIs(portConfig, requested, bridgingConfig_, root_);
}

void InputSm::doSyncPortConfigNetworkPolicy(const PortConfig::Ptr& portConfig) {
  const CliPortConfigSm* sm = cliPortConfigSm(portConfig->intfId());
  if (!sm) {
    portConfig->networkPolicyConfigDelAll();
    return;
  }
  const auto& wanted = sm->cliPortConfig()->networkPolicyConfig();
  for (auto it = portConfig->networkPolicyConfig().begin(); it; ++it) {
    if (!wanted.contains(it.key())) portConfig->networkPolicyConfigDel(it.key());
  }
  for (auto it = wanted.begin(); it; ++it) portConfig->networkPolicyConfigIs(it.key(), it.value());
}

void InputSm::doSyncPortConfigRxRateLimit(const PortConfig::Ptr& portConfig) {
  // Without a command-line entry the port gets the record's defaults back.
  static const CliPortConfig defaults{Konet::IntfId{}};
  const CliPortConfigSm* sm = cliPortConfigSm(portConfig->intfId());
  const CliPortConfig& wanted = sm ? *sm->cliPortConfig() : defaults;
  portConfig->rxRateLimitingEnabledIs(wanted.rxRateLimitingEnabled());
  portConfig->rxRateLimitMaxIs(wanted.rxRateLimitMax());
  portConfig->rxRateLimitPeriodIs(wanted.rxRateLimitPeriod());
}

void InputSm::doSyncLocalPort(const Konet::IntfId& intf) {
  TRACE(inputSmTrace, 8) << "InputSm::doSyncLocalPort( " << intf << " )";
  if (EthPhyIntfConfigSm* sm = ethPhyIntfConfigSm(intf)) {
    sm->doSyncLocalPort();
  } else if (const LocalPort::Ptr& localPort = root_->localSystem()->localPort(intf)) {
    localPort->portDescIs(BoundedString255{});
  }
  doSyncExternalTlvs(intf);
}

void InputSm::doNotifyPortLagChange(const Konet::IntfId& port, const Konet::IntfId& oldLag,
                                    const Konet::IntfId& newLag) {
  TRACE(inputSmTrace, 6) << "InputSm::doNotifyPortLagChange( " << port << " ) from '" << oldLag << "' to '"
                         << newLag << "'";
  // The admin-status rule looks at the LAG's switchport mode.
  if (const PortConfig::Ptr& portConfig = root_->config()->portConfig(port)) doSyncPortConfigAdminStatus(portConfig);
}

void InputSm::doClose() {
  cliPortConfigSmDelAll();
  externalTlvConfigSmDelAll();
  ip6IntfStatusDelAll();
  ipIntfStatusSmDelAll();
  switchIntfConfigSmDelAll();
  ethPhyIntfConfigSmDelAll();
}

}  // namespace Lldp::Agent::Input
