// The local-information subsystem: the Input root that owns every reactor computing what the
// switch says about itself, and InputSm, which turns the operator's and the other agents'
// records into the effective configuration and local-system records.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/Collection.h"
#include "platform/PacketAccess.h"
#include "platform/Reactor.h"
#include "platform/Record.h"
#include "platform/Scheduler.h"
#include "platform/StateDb.h"
#include "platform/Trace.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"

namespace Lldp::Agent {
class NbrClassificationSm;
}

namespace Lldp::Agent::Input {

extern Platform::TraceFacility inputSmTrace;

class Root;
class InputSm;
// Interfaces and link aggregation.
class ActiveEthIntfStatusDirSm;
class StandbyEthIntfStatusDirSm;
class EthPhyIntfConfigSm;
class SwitchIntfConfigSm;
// Operator actions.
class CliPortConfigSm;
class RemTablesClearRequestSm;
class IdentityDot1xStatusSm;
// Management addresses, network policy, external TLVs and power (their own source files).
class IpIntfStatusSm;
class Ip6IntfStatusSm;
class NetworkPolicySm;
class ExternalTlvConfigSm;
class PoeSm;

// A reactor held through its Reactor base, so that the holder compiles without the reactor's
// full type; creation and the typed accessor are instantiated where the type is known.
template <class Sm>
class OwnedReactor {
 public:
  Sm* get() const { return sm_; }
  template <class... A>
  Sm* is(A&&... args) {
    del();
    auto sm = std::make_unique<Sm>(std::forward<A>(args)...);
    Sm* raw = sm.get();
    holder_ = std::move(sm);
    sm_ = raw;  // visible to the reactor's own initial handlers through its owner
    raw->handleInitialized();
    return raw;
  }
  void del() {
    sm_ = nullptr;
    std::unique_ptr<Platform::Reactor> doomed = std::move(holder_);
  }

 private:
  std::unique_ptr<Platform::Reactor> holder_;
  Sm* sm_ = nullptr;
};

// The LAGs of one member port (Root::portToLagsMap), or the members of one LAG (Root::lags).
class Lags : public Platform::Entity {
#define INPUT_LAGS_ATTRS(X)          \
  X(Meta, intfId, Konet::IntfId, {}) \
  X(Coll, lagId, Konet::IntfId, bool)
  PLATFORM_RECORD(Lags, INPUT_LAGS_ATTRS)
 public:
  explicit Lags(Konet::IntfId intfId) : intfId_(std::move(intfId)) {}
};

// The interfaces that carry a management address another interface already advertises.
class SkippedAddr : public Platform::Entity {
#define INPUT_SKIPPED_ADDR_ATTRS(X)                  \
  X(Meta, key, ::Lldp::ManagementAddress::Key, {})   \
  X(Coll, intf, Konet::IntfId, bool)
  PLATFORM_RECORD(SkippedAddr, INPUT_SKIPPED_ADDR_ATTRS)
 public:
  explicit SkippedAddr(ManagementAddress::Key key) : key_(std::move(key)) {}
};

// Management-address priorities outside the name-derived bands: the address of the interface
// named by the transmit option sorts before all, the bridge-MAC fallback after all.
inline ManAddrPriority reservedSourceIntfPriority() { return ManAddrPriority{ManAddrType::sourceIntf, 0, 0, {}}; }
inline ManAddrPriority fallbackManAddrPriority() { return ManAddrPriority{ManAddrType::fallback, 0, 0, {}}; }

// Band bases of the name-derived management-address priorities.
inline constexpr uint32_t managementPriorityBase = 2103;
inline constexpr uint32_t ethernetPriorityBase = 3394;
inline constexpr uint32_t portChannelPriorityBase = 531779;
inline constexpr uint32_t vlanPriorityBase = 533780;

// Start-up gives the root its records first (localSystemIs, configIs, statusIs, remTablesStatusIs,
// bridgingConfigIs, allIntfStatusDirIs, desiredIntfDirIs), then creates its reactors.
class Root : public Platform::Entity {
#define INPUT_ROOT_ATTRS(X)                                                       \
  X(Meta, name, std::string, {})                                                  \
  X(EntColl, lags, Konet::IntfId, ::Lldp::Agent::Input::Lags)                     \
  X(EntColl, portToLagsMap, Konet::IntfId, ::Lldp::Agent::Input::Lags)            \
  X(HashEntColl, skippedAddr, ::Lldp::ManagementAddress::Key, ::Lldp::Agent::Input::SkippedAddr) \
  X(Attr, fallbackManagementAddressKey, ::Lldp::ManagementAddress::Key, {})       \
  X(Attr, fallbackManagementAddressKeyPresent, bool, {false})                     \
  X(Attr, sourceIntfNamePriority, ::Lldp::ManAddrPriority, {})
  PLATFORM_RECORD(Root, INPUT_ROOT_ATTRS)
 public:
  using Lags = ::Lldp::Agent::Input::Lags;
  // cellId is this supervisor's cell (1 or 2); time stamps come from the scheduler.
  Root(std::string name, Platform::Scheduler& scheduler, uint32_t cellId);
  ~Root() override;

  Platform::Scheduler& scheduler() const { return *scheduler_; }
  double now() const { return scheduler_->now(); }
  uint32_t cellId() const { return cellId_; }

  // Records written. Taking the local system sets its supported (bridge, router) and enabled
  // (bridge) capabilities; routing adds the router bit later.
  const LocalSystem::Ptr& localSystem() const { return localSystem_; }
  void localSystemIs(LocalSystem::Ptr localSystem);
  const Config::Ptr& config() const { return config_; }
  void configIs(Config::Ptr config) { config_ = std::move(config); }
  const Status::Ptr& status() const { return status_; }
  void statusIs(Status::Ptr status) { status_ = std::move(status); }
  const RemTablesStatus::Ptr& remTablesStatus() const { return remTablesStatus_; }
  void remTablesStatusIs(RemTablesStatus::Ptr s) { remTablesStatus_ = std::move(s); }
  const Interface::PamDesiredIntfDir::Ptr& desiredIntfDir() const { return desiredIntfDir_; }
  void desiredIntfDirIs(Interface::PamDesiredIntfDir::Ptr dir) { desiredIntfDir_ = std::move(dir); }
  // Inputs read.
  const Bridging::Config::Ptr& bridgingConfig() const { return bridgingConfig_; }
  void bridgingConfigIs(Bridging::Config::Ptr c) { bridgingConfig_ = std::move(c); }
  const Interface::AllIntfStatusDir::Ptr& allIntfStatusDir() const { return allIntfStatusDir_; }
  void allIntfStatusDirIs(Interface::AllIntfStatusDir::Ptr dir) { allIntfStatusDir_ = std::move(dir); }

  // The interface index the interface-details provider gives for an interface's status.
  static int32_t ifIndex(const Interface::IntfStatus& status) { return status.ifIndex(); }
  // Whether 802.1X lets LLDP through on ports that forward only at the data link.
  bool dot1xLldpBypass() const;

  // Owned reactors.
  InputSm* inputSm() const { return inputSm_.get(); }
  void inputSmIs(Interface::AllEthPhyIntfConfigDir::Ptr ethPhyIntfConfigDir, Bridging::Config::Ptr bridgingConfig,
                 Bridging::HwCapabilities::Ptr bridgingHwCapabilities, Ip::Status::Ptr ipStatus,
                 Ip6::Status::Ptr ip6Status, Routing::Config::Ptr routingConfig, EntityMib::Status::Ptr sysDescr,
                 Platform::Dir::Ptr externalTlvs, System::NetStatus::Ptr netStatus, CliConfig::Ptr cliConfig,
                 Interface::AllIntfStatusDir::Ptr allIntfStatusDir, Root* root);
  void inputSmDel();

  ActiveEthIntfStatusDirSm* activeEthIntfStatusDirSm() const { return activeEthIntfStatusDirSm_.get(); }
  void activeEthIntfStatusDirSmIs(Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir,
                                  Interface::EthLagIntfStatusDir::Ptr ethLagIntfStatusDir);
  void activeEthIntfStatusDirSmDel();

  StandbyEthIntfStatusDirSm* standbyEthIntfStatusDirSm() const { return standbyEthIntfStatusDirSm_.get(); }
  void standbyEthIntfStatusDirSmIs(Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir);
  void standbyEthIntfStatusDirSmDel();

  RemTablesClearRequestSm* remTablesClearRequestSm() const { return remTablesClearRequestSm_.get(); }
  void remTablesClearRequestSmIs(RemTablesCliConfig::Ptr remTablesCliConfig);
  void remTablesClearRequestSmDel();

  IdentityDot1xStatusSm* identityDot1xStatusSm() const { return identityDot1xStatusSm_.get(); }
  void identityDot1xStatusSmIs(Identity::Dot1x::Status::Ptr dot1xStatus);
  void identityDot1xStatusSmDel();

  // Reactors of other source files: created with their own constructors' arguments, where their
  // type is known.
  NetworkPolicySm* networkPolicySm() const { return networkPolicySm_.get(); }
  template <class... A>
  NetworkPolicySm* networkPolicySmIs(A&&... args) {
    return networkPolicySm_.is(std::forward<A>(args)...);
  }
  void networkPolicySmDel() { networkPolicySm_.del(); }

  PoeSm* poeSm() const { return poeSm_.get(); }
  template <class... A>
  PoeSm* poeSmIs(A&&... args) {
    return poeSm_.is(std::forward<A>(args)...);
  }
  void poeSmDel() { poeSm_.del(); }

  NbrClassificationSm* nbrClassificationSm() const { return nbrClassificationSm_.get(); }
  template <class... A>
  NbrClassificationSm* nbrClassificationSmIs(A&&... args) {
    return nbrClassificationSm_.is(std::forward<A>(args)...);
  }
  void nbrClassificationSmDel() { nbrClassificationSm_.del(); }

 private:
  Platform::Scheduler* scheduler_;
  uint32_t cellId_;
  LocalSystem::Ptr localSystem_;
  Config::Ptr config_;
  Status::Ptr status_;
  RemTablesStatus::Ptr remTablesStatus_;
  Interface::PamDesiredIntfDir::Ptr desiredIntfDir_;
  Bridging::Config::Ptr bridgingConfig_;
  Interface::AllIntfStatusDir::Ptr allIntfStatusDir_;

  OwnedReactor<InputSm> inputSm_;
  OwnedReactor<ActiveEthIntfStatusDirSm> activeEthIntfStatusDirSm_;
  OwnedReactor<StandbyEthIntfStatusDirSm> standbyEthIntfStatusDirSm_;
  OwnedReactor<RemTablesClearRequestSm> remTablesClearRequestSm_;
  OwnedReactor<IdentityDot1xStatusSm> identityDot1xStatusSm_;
  OwnedReactor<NetworkPolicySm> networkPolicySm_;
  OwnedReactor<PoeSm> poeSm_;
  OwnedReactor<NbrClassificationSm> nbrClassificationSm_;
};

std::unique_ptr<Root> rootFactory(const std::string& name, Platform::Scheduler& scheduler, uint32_t cellId);

class InputSm : public Platform::Reactor {
 public:
  InputSm(Interface::AllEthPhyIntfConfigDir::Ptr ethPhyIntfConfigDir, Bridging::Config::Ptr bridgingConfig,
          Bridging::HwCapabilities::Ptr bridgingHwCapabilities, Ip::Status::Ptr ipStatus, Ip6::Status::Ptr ip6Status,
          Routing::Config::Ptr routingConfig, EntityMib::Status::Ptr sysDescr, Platform::Dir::Ptr externalTlvs,
          System::NetStatus::Ptr netStatus, CliConfig::Ptr cliConfig,
          Interface::AllIntfStatusDir::Ptr allIntfStatusDir, Root* root);
  ~InputSm() override;

  const Interface::AllEthPhyIntfConfigDir::Ptr& ethPhyIntfConfigDir() const { return ethPhyIntfConfigDir_; }
  const Bridging::Config::Ptr& bridgingConfig() const { return bridgingConfig_; }
  const Bridging::HwCapabilities::Ptr& bridgingHwCapabilities() const { return bridgingHwCapabilities_; }
  const Ip::Status::Ptr& ipStatus() const { return ipStatus_; }
  const Ip6::Status::Ptr& ip6Status() const { return ip6Status_; }
  const Routing::Config::Ptr& routingConfig() const { return routingConfig_; }
  const EntityMib::Status::Ptr& sysDescr() const { return sysDescr_; }
  const Platform::Dir::Ptr& externalTlvs() const { return externalTlvs_; }
  const System::NetStatus::Ptr& netStatus() const { return netStatus_; }
  const CliConfig::Ptr& cliConfig() const { return cliConfig_; }
  const Interface::AllIntfStatusDir::Ptr& allIntfStatusDir() const { return allIntfStatusDir_; }
  Root* root() const { return root_; }

  void handleInitialized() override;

  // Global configuration.
  void handleEnabled();
  void handleMessageTxInterval();
  void handleMessageTxHoldTime();
  void handleReinitDelay();
  void handleMgmtAddrTxOption();
  void handleRxTaggedPacketsDrop();
  void handleEnabledTlvs();
  void handleMgmtAddrVrf();
  void handleCliPortConfig(const Konet::IntfId& intf);
  // Local system.
  void handleBridgeMacAddr();
  void handleBridgingMaxFrameSize();
  void handleRouting();
  void handleDescription();
  void handleHostnameOrDomainName();
  // Interfaces.
  void handleSwitchIntfConfig(const Konet::IntfId& intf);
  void handleIntfConfig(const Konet::IntfId& intf);

  // Defined with the management addresses (IPv4 and IPv6) and the external TLVs, in their own
  // source files.
  void handleIntfStatusOrIpIntfStatus(const Konet::IntfId& intf);
  void handleIp6ManagementAddress();
  void handleIp6IntfStatus(const Konet::IntfId& intf);
  void handleExternalTlvsEntityPtr(const std::string& name);
  // Every IpIntfStatusSm re-evaluates its VRF (handleVrf).
  void doSyncMgmtAddrVrf();
  // Every ExternalTlvConfigSm re-applies its TLVs to the port's (new) LocalPort.
  void doSyncExternalTlvs(const Konet::IntfId& intf);

  // A new or re-synchronised port: TLV selection, admin status and network policy.
  void doSyncPortConfig(const PortConfig::Ptr& portConfig);
  void doSyncPortConfigAdminStatus(const PortConfig::Ptr& portConfig);
  // Copies the port's command-line network policies into its PortConfig.
  void doSyncPortConfigNetworkPolicy(const PortConfig::Ptr& portConfig);
  void doSyncPortConfigRxRateLimit(const PortConfig::Ptr& portConfig);
  // A port without an interface configuration: its description is empty.
  void doSyncLocalPort(const Konet::IntfId& intf);
  void doNotifyPortLagChange(const Konet::IntfId& port, const Konet::IntfId& oldLag, const Konet::IntfId& newLag);
  void doClose();

  PLATFORM_REACTOR_COLL(ethPhyIntfConfigSm, Konet::IntfId, EthPhyIntfConfigSm)
  PLATFORM_REACTOR_COLL(switchIntfConfigSm, Konet::IntfId, SwitchIntfConfigSm)
  PLATFORM_REACTOR_COLL(ipIntfStatusSm, Konet::IntfId, IpIntfStatusSm)
  PLATFORM_REACTOR_COLL(cliPortConfigSm, Konet::IntfId, CliPortConfigSm)
  // The IPv6 statuses watched for address changes, by interface.
  PLATFORM_REACTOR_COLL(ip6IntfStatus, Konet::IntfId, Ip6IntfStatusSm)
  PLATFORM_REACTOR_COLL(externalTlvConfigSm, std::string, ExternalTlvConfigSm)

 private:
  void doRekeySourceIntfPriority(const ManAddrPriority& newPriority);

  Interface::AllEthPhyIntfConfigDir::Ptr ethPhyIntfConfigDir_;
  Bridging::Config::Ptr bridgingConfig_;
  Bridging::HwCapabilities::Ptr bridgingHwCapabilities_;
  Ip::Status::Ptr ipStatus_;
  Ip6::Status::Ptr ip6Status_;
  Routing::Config::Ptr routingConfig_;
  EntityMib::Status::Ptr sysDescr_;
  Platform::Dir::Ptr externalTlvs_;
  System::NetStatus::Ptr netStatus_;
  CliConfig::Ptr cliConfig_;
  Interface::AllIntfStatusDir::Ptr allIntfStatusDir_;
  Root* root_;
};

// Free operations of the subsystem.
bool lldpCapable(const Konet::IntfId& intfId);
int32_t ifIndexVal(const Konet::IntfId& intfId, const Root* root);
// The name-derived priority of an interface's management address; vlanId (when given) gets the
// VLAN id of a VLAN interface, else 0.
void intfNameToVlanIdAndManAddrPriority(const Konet::IntfId& intfId, Bridging::VlanIdOrNone* vlanId,
                                        ManAddrPriority* manAddrPriority);
void getEnabledTlvValues(const CliConfig& cliConfig, PortConfig::EnabledTlvs& enabledTlvs, bool& mgmtAddrTxEnable,
                         bool& portVlanTxEnable, PortConfig::Dot3EnabledTlvs& dot3EnabledTlvs,
                         PortConfig::TiaEnabledTlvs& tiaEnabledTlvs);
void portAdminStatusIs(const PortConfig::Ptr& portConfig, AdminStatus adminStatus,
                       const Bridging::Config::Ptr& bridgingConfig, const Root* root);
void syncPortConfig(const PortConfig::Ptr& portConfig, Root* root);

// Link aggregation (the LAG of a member port). Members are taken by value: callers often pass
// keys of the very maps these change.
Konet::IntfId portToLag(const Konet::IntfId& port, const Root* root);
void addLagMember(Konet::IntfId port, Konet::IntfId lag, Root* root);
void removeLagMember(Konet::IntfId port, Konet::IntfId lag, Root* root);
void notifyPortLagChange(const Konet::IntfId& port, const Konet::IntfId& oldLag, const Konet::IntfId& newLag,
                         Root* root);
void syncLinkAggregationInfo(const LocalPort::Ptr& localPort, const Root* root);
bool isLocalMgmtIntf(const Konet::IntfId& intfId, uint32_t slot);

}  // namespace Lldp::Agent::Input
