// Run-time changes of the TLV switches and of the hold time reach the port engines as local changes.
#include "daemon/TxSettingsSm.h"

namespace Daemon {

using Lldp::PortConfig;

TxSettingsPortSm::TxSettingsPortSm(PortConfig::Ptr portConfig, Lldp::Agent::Protocol::Root* root)
    : portConfig_(std::move(portConfig)), root_(root) {
  watch<&TxSettingsPortSm::handleTlvSwitches>(portConfig_, PortConfig::enabledTlvsAttr);
  watch<&TxSettingsPortSm::handleTlvSwitches>(portConfig_, PortConfig::dot3EnabledTlvsAttr);
  watch<&TxSettingsPortSm::handleTlvSwitches>(portConfig_, PortConfig::tiaEnabledTlvsAttr);
  watch<&TxSettingsPortSm::handleTlvSwitches>(portConfig_, PortConfig::mgmtAddrTxEnableAttr);
  watch<&TxSettingsPortSm::handleTlvSwitches>(portConfig_, PortConfig::portVlanTxEnableAttr);
}

void TxSettingsPortSm::handleTlvSwitches() {
  Lldp::Agent::Protocol::handleLocalPortAttrsChanged(root_, portConfig_->intfId());
}

TxSettingsSm::TxSettingsSm(Lldp::Config::Ptr config, Lldp::LocalSystem::Ptr localSystem,
                           Lldp::Agent::Protocol::Root* root)
    : config_(std::move(config)), localSystem_(std::move(localSystem)), root_(root) {
  watch<&TxSettingsSm::handleGlobalSetting>(config_, Lldp::Config::messageTxHoldTimeAttr);
  watch<&TxSettingsSm::handleGlobalSetting>(config_, Lldp::Config::maxTxMgmtAddrsAttr);
  watch<&TxSettingsSm::handleGlobalSetting>(localSystem_, Lldp::LocalSystem::ip6ManagementAddressAttr);
  watch<&TxSettingsSm::handlePortConfig>(config_, Lldp::Config::portConfigAttr);
}

void TxSettingsSm::handleInitialized() {
  for (auto it = config_->portConfig().begin(); it != config_->portConfig().end(); ++it) handlePortConfig(it.key());
}

void TxSettingsSm::handleGlobalSetting() {
  // The same path as a new system name: every engine sends within its transmit delay.
  if (auto* protocolSm = root_->protocolSm()) protocolSm->handleLocalSystemAttrs();
}

void TxSettingsSm::handlePortConfig(const Konet::IntfId& intfId) {
  const PortConfig::Ptr& portConfig = config_->portConfig(intfId);
  if (TxSettingsPortSm* sm = this->portSm(intfId)) {
    if (sm->portConfig() == portConfig) return;  // changed in place: its own watches see to it
    portSmDel(intfId);
  }
  if (portConfig) portSmIs(intfId, portConfig, root_);
}

}  // namespace Daemon
