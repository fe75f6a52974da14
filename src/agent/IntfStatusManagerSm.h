// The interface status manager: tells packet access which kernel device, interface index and
// address each physical interface has, for the interfaces of the agent's network namespace.
#pragma once

#include <string>

#include "platform/PacketAccess.h"
#include "platform/Reactor.h"
#include "records/AgentRecords.h"
#include "records/LldpTypes.h"

namespace Lldp::Agent {

class IntfStatusManagerSm;

// One physical interface: its device entry follows its status records.
class DeviceIntfSm : public Platform::Reactor {
 public:
  DeviceIntfSm(Konet::IntfId intf, Interface::EthPhyIntfStatus::PtrConst phy, IntfStatusManagerSm* manager);
  void handleInitialized() override { handleDevice(); }
  void handleDevice();
  // The interface's status appeared or went (it carries the index and the namespace).
  void intfStatusIs(Interface::IntfStatus::PtrConst intfStatus);

 private:
  Konet::IntfId intf_;
  Interface::EthPhyIntfStatus::PtrConst phy_;
  Interface::IntfStatus::PtrConst intfStatus_;
  IntfStatusManagerSm* manager_;
};

class IntfStatusManagerSm : public Platform::Reactor {
 public:
  // A namespace name longer than 150 bytes is refused by its bounded type.
  IntfStatusManagerSm(Interface::AllEthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir,
                      Interface::AllIntfStatusDir::PtrConst allIntfStatusDir,
                      KernelNetInfo::Status::PtrConst kernelNetInfo,
                      Interface::DeviceIntfStatusDir::Ptr deviceIntfStatusDir, const std::string& netNsName);
  ~IntfStatusManagerSm() override;

  void handleInitialized() override;
  void handlePhyIntfStatus(const Konet::IntfId& intf);
  void handleIntfStatus(const Konet::IntfId& intf);

  // Writes or removes one interface's device entry.
  void doSyncDevice(const Konet::IntfId& intf, const Interface::EthPhyIntfStatus& phy,
                    const Interface::IntfStatus* intfStatus);
  void doDelDevice(const Konet::IntfId& intf) { deviceIntfStatusDir_->deviceIntfDel(intf); }

  PLATFORM_REACTOR_COLL(deviceIntfSm, Konet::IntfId, DeviceIntfSm)

 private:
  Interface::AllEthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir_;
  Interface::AllIntfStatusDir::PtrConst allIntfStatusDir_;
  KernelNetInfo::Status::PtrConst kernelNetInfo_;
  Interface::DeviceIntfStatusDir::Ptr deviceIntfStatusDir_;
  NamespaceName netNsName_;
};

}  // namespace Lldp::Agent
