// Which interfaces are LLDP ports, and the per-port records that follow them: port identity,
// description, frame size, port VLAN and link aggregation.
#pragma once

#include "input/LldpInputSm.h"

namespace Lldp::Agent::Input {

class ActiveEthIntfStatusDirSm;

// One physical interface: an LLDP port while its forwarding model qualifies.
class EthPhyIntfStatusSm : public Platform::Reactor {
 public:
  EthPhyIntfStatusSm(Interface::EthPhyIntfStatus::Ptr ethPhyIntfStatus, ActiveEthIntfStatusDirSm* dirSm, Root* root);
  ~EthPhyIntfStatusSm() override;

  const Konet::IntfId& intfId() const { return ethPhyIntfStatus_->intfId(); }
  bool lldpPort() const { return lldpPort_; }

  void handleInitialized() override { handleForwardingModel(); }
  void handleForwardingModel();
  void doClose();

 private:
  bool qualifies() const;
  void doOpen();

  Interface::EthPhyIntfStatus::Ptr ethPhyIntfStatus_;
  ActiveEthIntfStatusDirSm* dirSm_;
  Root* root_;
  bool lldpPort_ = false;
};

// A management port's frame size follows its MTU.
class MgmtEthPhyIntfStatusSm : public Platform::Reactor {
 public:
  MgmtEthPhyIntfStatusSm(Interface::EthPhyIntfStatus::Ptr ethPhyIntfStatus, Root* root);
  void handleInitialized() override { handleMaxMtu(); }
  void handleMaxMtu();

 private:
  Interface::EthPhyIntfStatus::Ptr ethPhyIntfStatus_;
  Root* root_;
};

// One LAG's member set, mirrored into the root's LAG maps.
class EthLagIntfStatusSm : public Platform::Reactor {
 public:
  EthLagIntfStatusSm(Interface::EthLagIntfStatus::Ptr ethLagIntfStatus, Root* root);
  ~EthLagIntfStatusSm() override;
  void handleInitialized() override;
  void handleMember(const Konet::IntfId& member);

 private:
  Interface::EthLagIntfStatus::Ptr ethLagIntfStatus_;
  Root* root_;
};

// On the active supervisor: one reactor per physical interface, management port and LAG.
class ActiveEthIntfStatusDirSm : public Platform::Reactor {
 public:
  ActiveEthIntfStatusDirSm(Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir,
                           Interface::EthLagIntfStatusDir::Ptr ethLagIntfStatusDir, Root* root);
  ~ActiveEthIntfStatusDirSm() override;

  void handleInitialized() override;
  void handlePhyIntfStatus(const Konet::IntfId& intf);
  void handleLagIntfStatus(const Konet::IntfId& lag);

  // Declared before the interface reactors, which remove their management reactor on close.
  PLATFORM_REACTOR_COLL(mgmtEthPhyIntfStatusSm, Konet::IntfId, MgmtEthPhyIntfStatusSm)
  PLATFORM_REACTOR_COLL(ethPhyIntfStatusSm, Konet::IntfId, EthPhyIntfStatusSm)
  PLATFORM_REACTOR_COLL(ethLagIntfStatusSm, Konet::IntfId, EthLagIntfStatusSm)

 private:
  Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir_;
  Interface::EthLagIntfStatusDir::Ptr ethLagIntfStatusDir_;
  Root* root_;
};

// On a standby supervisor: packet access and a port status for the interfaces of its own cell.
class StandbyEthIntfStatusDirSm : public Platform::Reactor {
 public:
  StandbyEthIntfStatusDirSm(Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir, Root* root);
  void handleInitialized() override;
  void handlePhyIntfStatus(const Konet::IntfId& intf);
  // Whether an interface sits on this supervisor (its own management ports).
  bool ownCellIntf(const Konet::IntfId& intf) const;

 private:
  void doMaybeCreateDesiredIntf(const Konet::IntfId& intf);

  Interface::AllEthPhyIntfStatusDir::Ptr ethPhyIntfStatusDir_;
  Root* root_;
};

// One interface's description becomes its port description.
class EthPhyIntfConfigSm : public Platform::Reactor {
 public:
  EthPhyIntfConfigSm(Interface::EthPhyIntfConfig::Ptr ethPhyIntfConfig, Root* root);
  void handleInitialized() override { handleDescription(); }
  void handleDescription();
  void doSyncLocalPort();

 private:
  Interface::EthPhyIntfConfig::Ptr ethPhyIntfConfig_;
  Root* root_;
};

// One switch interface: its mode may forbid transmission (through the admin-status rule), its
// native VLAN is the port VLAN id.
class SwitchIntfConfigSm : public Platform::Reactor {
 public:
  SwitchIntfConfigSm(Bridging::SwitchIntfConfig::Ptr switchIntfConfig, Root* root);
  const Bridging::SwitchIntfConfig::Ptr& switchIntfConfig() const { return switchIntfConfig_; }
  void handleInitialized() override;
  void handleSwitchportMode();
  void handleNativeVlan();

 private:
  Bridging::SwitchIntfConfig::Ptr switchIntfConfig_;
  Root* root_;
};

}  // namespace Lldp::Agent::Input
