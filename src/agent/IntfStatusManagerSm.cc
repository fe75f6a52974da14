// Device entries for packet access, from the physical interface statuses and the kernel's
// network information.
#include "agent/IntfStatusManagerSm.h"

namespace Lldp::Agent {

DeviceIntfSm::DeviceIntfSm(Konet::IntfId intf, Interface::EthPhyIntfStatus::PtrConst phy,
                           IntfStatusManagerSm* manager)
    : intf_(std::move(intf)), phy_(std::move(phy)), manager_(manager) {
  watch<&DeviceIntfSm::handleDevice>(phy_, Interface::EthPhyIntfStatus::deviceNameAttr);
  watch<&DeviceIntfSm::handleDevice>(phy_, Interface::EthPhyIntfStatus::addrAttr);
}

void DeviceIntfSm::intfStatusIs(Interface::IntfStatus::PtrConst intfStatus) {
  if (intfStatus == intfStatus_) return;
  if (intfStatus_) unwatch(intfStatus_.get());
  intfStatus_ = std::move(intfStatus);
  if (intfStatus_) {
    watch<&DeviceIntfSm::handleDevice>(intfStatus_, Interface::IntfStatus::ifIndexAttr);
    watch<&DeviceIntfSm::handleDevice>(intfStatus_, Interface::IntfStatus::netNsNameAttr);
  }
  handleDevice();
}

void DeviceIntfSm::handleDevice() { manager_->doSyncDevice(intf_, *phy_, intfStatus_.get()); }

IntfStatusManagerSm::IntfStatusManagerSm(Interface::AllEthPhyIntfStatusDir::PtrConst ethPhyIntfStatusDir,
                                         Interface::AllIntfStatusDir::PtrConst allIntfStatusDir,
                                         KernelNetInfo::Status::PtrConst kernelNetInfo,
                                         Interface::DeviceIntfStatusDir::Ptr deviceIntfStatusDir,
                                         const std::string& netNsName)
    : ethPhyIntfStatusDir_(std::move(ethPhyIntfStatusDir)), allIntfStatusDir_(std::move(allIntfStatusDir)),
      kernelNetInfo_(std::move(kernelNetInfo)), deviceIntfStatusDir_(std::move(deviceIntfStatusDir)),
      netNsName_(netNsName) {
  watch<&IntfStatusManagerSm::handlePhyIntfStatus>(ethPhyIntfStatusDir_,
                                                   Interface::AllEthPhyIntfStatusDir::intfStatusAttr);
  watch<&IntfStatusManagerSm::handleIntfStatus>(allIntfStatusDir_, Interface::AllIntfStatusDir::intfStatusAttr);
}

IntfStatusManagerSm::~IntfStatusManagerSm() { deviceIntfSmDelAll(); }

void IntfStatusManagerSm::handleInitialized() {
  for (const auto& [intf, phy] : ethPhyIntfStatusDir_->intfStatus()) handlePhyIntfStatus(intf);
}

void IntfStatusManagerSm::handlePhyIntfStatus(const Konet::IntfId& intf) {
  const Interface::EthPhyIntfStatus::Ptr& phy = ethPhyIntfStatusDir_->intfStatus(intf);
  if (!phy) {
    deviceIntfSmDel(intf);
    doDelDevice(intf);
    return;
  }
  DeviceIntfSm* sm = deviceIntfSm(intf);
  if (!sm) sm = deviceIntfSmIs(intf, phy, this);
  sm->intfStatusIs(allIntfStatusDir_->intfStatus(intf));
}

void IntfStatusManagerSm::handleIntfStatus(const Konet::IntfId& intf) {
  if (DeviceIntfSm* sm = deviceIntfSm(intf)) sm->intfStatusIs(allIntfStatusDir_->intfStatus(intf));
}

void IntfStatusManagerSm::doSyncDevice(const Konet::IntfId& intf, const Interface::EthPhyIntfStatus& phy,
                                       const Interface::IntfStatus* intfStatus) {
  // An interface of another namespace is not ours to open; no namespace means the default one.
  const std::string& ns = intfStatus ? intfStatus->netNsName() : std::string();
  if (!(ns.empty() ? netNsName_.str() == "default" : ns == netNsName_.str())) {
    doDelDevice(intf);
    return;
  }
  Interface::DeviceIntf device;
  device.deviceName = phy.deviceName().empty() ? intf.name() : phy.deviceName();
  device.addr = phy.addr();
  const KernelNetInfo::Device* kernel = kernelNetInfo_ ? kernelNetInfo_->device().find(device.deviceName) : nullptr;
  if (intfStatus && intfStatus->ifIndex() > 0) {
    device.ifIndex = intfStatus->ifIndex();
  } else if (kernel) {
    device.ifIndex = kernel->ifIndex;
  }
  if (device.addr.isZero() && kernel) device.addr = kernel->addr;
  deviceIntfStatusDir_->deviceIntfIs(intf, device);
}

}  // namespace Lldp::Agent
