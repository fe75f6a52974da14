// The Input root and the subsystem's free operations: which interfaces run LLDP, interface
// numbering and address priority, TLV selection and the admin-status rule.
#include <algorithm>
#include <cctype>

#include "input/CliPortConfig.h"
#include "input/IntfTracking.h"
#include "input/LldpInputSm.h"
#include "platform/Assert.h"

namespace Lldp::Agent::Input {

Platform::TraceFacility inputSmTrace("LldpInputSm");

Root::Root(std::string name, Platform::Scheduler& scheduler, uint32_t cellId)
    : name_(std::move(name)), scheduler_(&scheduler), cellId_(cellId) {}

Root::~Root() {
  // Interface reactors first: closing a port or a LAG still reaches InputSm.
  activeEthIntfStatusDirSm_.del();
  standbyEthIntfStatusDirSm_.del();
  nbrClassificationSm_.del();
  poeSm_.del();
  networkPolicySm_.del();
  identityDot1xStatusSm_.del();
  remTablesClearRequestSm_.del();
  inputSm_.del();
}

void Root::localSystemIs(LocalSystem::Ptr localSystem) {
  localSystem_ = std::move(localSystem);
  if (!localSystem_) return;
  localSystem_->sysCapSupportedIs(
      SystemCapabilitiesMap{SystemCapabilitiesMap::bridge | SystemCapabilitiesMap::router});
  // Keeps a router bit that a running agent set; InputSm recomputes it from routing anyway.
  localSystem_->sysCapEnabledIs(SystemCapabilitiesMap{static_cast<uint16_t>(
      SystemCapabilitiesMap::bridge | (localSystem_->sysCapEnabled().value & SystemCapabilitiesMap::router))});
}

bool Root::dot1xLldpBypass() const {
  const IdentityDot1xStatusSm* sm = identityDot1xStatusSm();
  return sm && sm->dot1xStatus() && sm->dot1xStatus()->lldpBypass();
}

void Root::inputSmIs(Interface::AllEthPhyIntfConfigDir::Ptr ethPhyIntfConfigDir, Bridging::Config::Ptr bridgingConfig,
                     Bridging::HwCapabilities::Ptr bridgingHwCapabilities, Ip::Status::Ptr ipStatus,
                     Ip6::Status::Ptr ip6Status, Routing::Config::Ptr routingConfig, EntityMib::Status::Ptr sysDescr,
                     Platform::Dir::Ptr externalTlvs, System::NetStatus::Ptr netStatus, CliConfig::Ptr cliConfig,
                     Interface::AllIntfStatusDir::Ptr allIntfStatusDir, Root* root) {
  inputSm_.is(std::move(ethPhyIntfConfigDir), std::move(bridgingConfig), std::move(bridgingHwCapabilities),
              std::move(ipStatus), std::move(ip6Status), std::move(routingConfig), std::move(sysDescr),
              std::move(externalTlvs), std::move(netStatus), std::move(cliConfig), std::move(allIntfStatusDir), root);
}

void Root::inputSmDel() { inputSm_.del(); }

void Root::activeEthIntfStatusDirSmIs(Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir,
                                      Interface::EthLagIntfStatusDir::Ptr ethLagIntfStatusDir) {
  activeEthIntfStatusDirSm_.is(std::move(ethPhyIntfStatusDir), std::move(ethLagIntfStatusDir), this);
}

void Root::activeEthIntfStatusDirSmDel() { activeEthIntfStatusDirSm_.del(); }

void Root::standbyEthIntfStatusDirSmIs(Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir) {
  standbyEthIntfStatusDirSm_.is(std::move(ethPhyIntfStatusDir), this);
}

void Root::standbyEthIntfStatusDirSmDel() { standbyEthIntfStatusDirSm_.del(); }

void Root::remTablesClearRequestSmIs(RemTablesCliConfig::Ptr remTablesCliConfig) {
  remTablesClearRequestSm_.is(std::move(remTablesCliConfig), this);
}

void Root::remTablesClearRequestSmDel() { remTablesClearRequestSm_.del(); }

void Root::identityDot1xStatusSmIs(Identity::Dot1x::Status::Ptr dot1xStatus) {
  identityDot1xStatusSm_.is(std::move(dot1xStatus), this);
}

void Root::identityDot1xStatusSmDel() { identityDot1xStatusSm_.del(); }

std::unique_ptr<Root> rootFactory(const std::string& name, Platform::Scheduler& scheduler, uint32_t cellId) {
  return std::make_unique<Root>(name, scheduler, cellId);
}

bool lldpCapable(const Konet::IntfId& intfId) {
  if (intfId.isEthernet()) return !intfId.isUnconnectedEthernet();
  return intfId.isManagement();
}

int32_t ifIndexVal(const Konet::IntfId& intfId, const Root* root) {
  if (!root->allIntfStatusDir()) return 0;
  const Interface::IntfStatus::Ptr& status = root->allIntfStatusDir()->intfStatus(intfId);
  if (!status) return 0;
  return Root::ifIndex(*status);
}

namespace {

// The band checks read as conditions on the priority; the priority's fields are plain members.
void bandCheck(bool holds, const char* conditionText) {
  if (!holds) [[unlikely]]
    Platform::assertFailed(conditionText, __FILE__, __LINE__);
}

}  // namespace

void intfNameToVlanIdAndManAddrPriority(const Konet::IntfId& intfId, Bridging::VlanIdOrNone* vlanId,
                                        ManAddrPriority* manAddrPriority) {
  constexpr uint32_t maxSlotId = 128;
  constexpr uint32_t mgmtIntfPerSlot = 10;
  constexpr uint32_t phyIntfPerSlot = 128;
  constexpr uint32_t lanesPerPort = 32;

  *manAddrPriority = ManAddrPriority{ManAddrType::intf, 0, 0, intfId};
  if (vlanId) *vlanId = Bridging::VlanIdOrNone{};
  // Every name comes from the host or the operator (ens160, bond3000, Ethernet256), never from a
  // fixed port layout: numbers beyond a band are held at its edge, so the bands hold by
  // construction and the checks below guard this function alone.
  uint32_t& primary = manAddrPriority->primaryPriority;
  switch (intfId.kind()) {
    case Konet::IntfId::Kind::loopback:
      primary = std::min<uint32_t>(intfId.number(), managementPriorityBase - 3) + 2;
      bandCheck(primary < managementPriorityBase, "manAddrPriority->primaryPriority() < managementPriorityBase");
      break;
    case Konet::IntfId::Kind::management: {
      const uint32_t slotId = std::min<uint32_t>(intfId.module(), maxSlotId);
      const uint32_t port = std::min<uint32_t>(intfId.port(), mgmtIntfPerSlot);
      primary = managementPriorityBase + 10 * slotId + port;
      bandCheck(primary < ethernetPriorityBase, "manAddrPriority->primaryPriority() < ethernetPriorityBase");
      break;
    }
    case Konet::IntfId::Kind::ethernet: {
      const uint32_t slotId = std::min<uint32_t>(intfId.module(), maxSlotId);
      const uint32_t port = std::min<uint32_t>(intfId.port(), phyIntfPerSlot);
      // Ports count from 1; a host's port 0 (eth0) shares the first slot rather than wrap.
      const uint32_t index = phyIntfPerSlot * slotId + port;
      const uint32_t lane = std::min<uint32_t>(intfId.lane(), lanesPerPort - 1);
      primary = ethernetPriorityBase + lanesPerPort * (index == 0 ? 0 : index - 1) + lane;
      bandCheck(primary < portChannelPriorityBase, "manAddrPriority->primaryPriority() < portChannelPriorityBase");
      break;
    }
    case Konet::IntfId::Kind::portChannel:
      primary = portChannelPriorityBase +
                std::min<uint32_t>(intfId.number(), vlanPriorityBase - portChannelPriorityBase - 1);
      bandCheck(primary < vlanPriorityBase, "manAddrPriority->primaryPriority() < vlanPriorityBase");
      break;
    case Konet::IntfId::Kind::vlan: {
      // An interface id names no VLAN above 4094; the type refuses one all the same.
      const Bridging::VlanIdOrNone vlan(static_cast<uint16_t>(std::min<uint32_t>(intfId.number(), 0xffff)));
      primary = vlanPriorityBase + vlan.value();
      if (vlanId) *vlanId = vlan;
      break;
    }
    default:
      break;
  }
}

void getEnabledTlvValues(const CliConfig& cliConfig, PortConfig::EnabledTlvs& enabledTlvs, bool& mgmtAddrTxEnable,
                         bool& portVlanTxEnable, PortConfig::Dot3EnabledTlvs& dot3EnabledTlvs,
                         PortConfig::TiaEnabledTlvs& tiaEnabledTlvs) {
  auto put = [](uint8_t& bits, uint8_t bit, bool on) {
    bits = static_cast<uint8_t>(on ? (bits | bit) : (bits & ~bit));
  };
  using E = PortConfig::EnabledTlvs;
  using D = PortConfig::Dot3EnabledTlvs;
  using T = PortConfig::TiaEnabledTlvs;
  put(enabledTlvs.value, E::kPortDesc, cliConfig.portDescTlvEnabled());
  put(enabledTlvs.value, E::kSysName, cliConfig.sysNameTlvEnabled());
  put(enabledTlvs.value, E::kSysDesc, cliConfig.sysDescTlvEnabled());
  put(enabledTlvs.value, E::kSysCap, cliConfig.sysCapTlvEnabled());
  mgmtAddrTxEnable = cliConfig.mgmtAddrTlvEnabled();
  portVlanTxEnable = cliConfig.portVlanIdTlvEnabled();
  put(dot3EnabledTlvs.value, D::kLinkAggregation, cliConfig.linkAggregationTlvEnabled());
  put(dot3EnabledTlvs.value, D::kMaxFrameSize, cliConfig.maxFrameSizeTlvEnabled());
  put(dot3EnabledTlvs.value, D::kPowerViaMdi, cliConfig.powerViaMdiTlvEnabled());
  put(tiaEnabledTlvs.value, T::kNetworkPolicy, cliConfig.medNetworkPolicyTlvEnabled());
}

void portAdminStatusIs(const PortConfig::Ptr& portConfig, AdminStatus adminStatus,
                       const Bridging::Config::Ptr& bridgingConfig, const Root* root) {
  Konet::IntfId intf = portConfig->intfId();
  if (Konet::IntfId lag = portToLag(intf, root); !lag.empty()) intf = std::move(lag);
  AdminStatus result = adminStatus;
  if (bridgingConfig) {
    if (const Bridging::SwitchIntfConfig::Ptr& sw = bridgingConfig->switchIntfConfig(intf)) {
      const auto mode = static_cast<uint8_t>(sw->switchportMode());
      // Tap, tool and routed switchports must not transmit LLDPDUs.
      if (mode >= 3 && mode <= 5) {
        if (result == AdminStatus::txAndRx) result = AdminStatus::rxOnly;
        if (result == AdminStatus::txOnly) result = AdminStatus::disabled;
      }
    }
  }
  TRACE(inputSmTrace, 6) << "portAdminStatusIs( " << portConfig->intfId() << " ) requested " << adminStatus
                         << " result " << result;
  portConfig->adminStatusIs(result);
}

void syncPortConfig(const PortConfig::Ptr& portConfig, Root* root) {
  if (InputSm* inputSm = root->inputSm()) inputSm->doSyncPortConfig(portConfig);
}

}  // namespace Lldp::Agent::Input
