// Power over Ethernet: the grant from the power manager into each port's PoE information, and the
// power the powered devices on a port request, summed from their IEEE 802.3at TLVs.
#include "input/Poe.h"

#include "codec/PoeUtils.h"
#include "input/LldpInputSm.h"

namespace Lldp::Agent::Input {

using Environment::Power::PoePortStatus;

void updateLocalPortFromPowerAgent(const Platform::Ptr<LocalSystem>& localSystem, const std::string& intfName,
                                   Units::Watts grantedPower, uint8_t pdClass, uint8_t poePortState,
                                   bool lldpPoeNegotiationSupported) {
  if (!localSystem) return;
  const LocalPort::Ptr localPort = localSystem->localPort(Konet::IntfId(intfName));
  if (!localPort) return;
  TRACE(inputSmTrace, 8) << "Interface " << intfName << " is allowed to use " << grantedPower;
  const Platform::Ptr<LocalPortPoeInfo>& info = localPort->localPortPoeInfo();
  if (!info) return;
  info->grantedPowerIs(grantedPower);
  info->pdClassIs(pdClass);
  info->poePortStateIs(poePortState);
  info->lldpPoeNegotiationSupportedIs(lldpPoeNegotiationSupported);
}

PoeAgentPortSm::PoeAgentPortSm(std::string name, Platform::Ptr<const PoePortStatus> poePortStatus,
                               Platform::Ptr<LocalSystem> localSystem)
    : name_(std::move(name)), poePortStatus_(std::move(poePortStatus)), localSystem_(std::move(localSystem)) {
  watch<&PoeAgentPortSm::handlePoePortStatus>(poePortStatus_, PoePortStatus::grantedPowerAttr);
  watch<&PoeAgentPortSm::handlePoePortStatus>(poePortStatus_, PoePortStatus::poweredDeviceClassAttr);
  watch<&PoeAgentPortSm::handlePoePortStatus>(poePortStatus_, PoePortStatus::poePortStateAttr);
  watch<&PoeAgentPortSm::handlePoePortStatus>(poePortStatus_, PoePortStatus::lldpNegotiationSupportedAttr);
}

void PoeAgentPortSm::handlePoePortStatus() {
  Units::Watts power{};
  uint8_t pdClass = 0, state = 0;
  bool negotiation = false;
  if (poePortStatus_) {
    power = poePortStatus_->grantedPower();
    pdClass = poePortStatus_->poweredDeviceClass();
    state = poePortStatus_->poePortState();
    negotiation = poePortStatus_->lldpNegotiationSupported();
  }
  TRACE(inputSmTrace, 8) << "PoeAgentPortSm::handlePoePortStatus(" << name_ << ") -> " << power << " "
                         << int(pdClass);
  updateLocalPortFromPowerAgent(localSystem_, name_, power, pdClass, state, negotiation);
}

PoeNeighbourSm::PoeNeighbourSm(Konet::IntfId intfId, Platform::Ptr<const PortStatus> portStatus, PoeSm* poeSm)
    : intfId_(std::move(intfId)), portStatus_(std::move(portStatus)), poeSm_(poeSm) {
  watch<&PoeNeighbourSm::handleRemoteSystem>(portStatus_, PortStatus::remoteSystemAttr);
}

void PoeNeighbourSm::handleRemoteSystem() { poeSm_->handleNeighboursOfPort(intfId_); }

PoeSm::PoeSm(Platform::Ptr<const Platform::Dir> poePortStatusDir, Platform::Ptr<const Status> status,
             Platform::Ptr<LocalSystem> localSystem, Root* root)
    : poePortStatusDir_(std::move(poePortStatusDir)), status_(std::move(status)),
      localSystem_(std::move(localSystem)), root_(root) {
  watch<&PoeSm::handlePowerAgentEntry>(poePortStatusDir_, Platform::Dir::entryAttr);
  watch<&PoeSm::handlePoe>(status_, Status::remTablesLastChangeTimeAttr);
  watch<&PoeSm::handlePortStatus>(status_, Status::portStatusAttr);
}

void PoeSm::handleInitialized() {
  if (poePortStatusDir_) {
    for (auto it = poePortStatusDir_->entry().begin(); it != poePortStatusDir_->entry().end(); ++it) {
      handlePowerAgentEntry(it.key());
    }
  }
  if (status_) {
    for (auto it = status_->portStatus().begin(); it != status_->portStatus().end(); ++it) {
      handlePortStatus(it.key());
    }
  }
  // Once at start: every port with PoE information, whether or not it has neighbours yet.
  if (localSystem_) {
    for (auto it = localSystem_->localPort().begin(); it != localSystem_->localPort().end(); ++it) {
      portsToCalculate_.insert(it.key());
    }
  }
  handlePoe();
}

void PoeSm::handlePowerAgentEntry(const std::string& name) {
  if (poePortStatusDir_ && Platform::ptrCast<const PoePortStatus>(poePortStatusDir_->entry(name))) {
    handlePowerAgentUpdate(name);
    return;
  }
  handlePowerAgentDelete(name);
}

void PoeSm::handlePowerAgentUpdate(const std::string& name) {
  const auto entry = poePortStatusDir_ ? Platform::ptrCast<const PoePortStatus>(poePortStatusDir_->entry(name))
                                       : Platform::Ptr<const PoePortStatus>();
  if (!entry) {
    handlePowerAgentDelete(name);
    return;
  }
  TRACE(inputSmTrace, 8) << "PoeSm::handlePowerAgentUpdate(" << name << ") -> " << entry->name();
  if (PoeAgentPortSm* sm = poeAgentPortSm(name); sm && sm->poePortStatus() != entry) {
    // The power subsystem replaced the record: follow the new one (it writes its values at once).
    poeAgentPortSmDel(name);
  }
  if (poeAgentPortSmHas(name)) return;
  poeAgentPortSmIs(name, name, entry, localSystem_);
  TRACE(inputSmTrace, 8) << "PoeSm::handlePowerAgentUpdate(" << name << ") -> Created SM";
}

void PoeSm::handlePowerAgentDelete(const std::string& name) {
  TRACE(inputSmTrace, 8) << "PoeSm::handlePowerAgentDelete(" << name << ")";
  if (!poeAgentPortSmHas(name)) return;
  TRACE(inputSmTrace, 8) << "PoeSm::handlePowerAgentDelete reset localPort PoE info";
  updateLocalPortFromPowerAgent(localSystem_, name, Units::Watts{0}, 0, 0, false);
  poeAgentPortSmDel(name);
}

void PoeSm::handlePortStatus(const Konet::IntfId& intfId) {
  const PortStatus::Ptr portStatus = status_->portStatus(intfId);
  if (!portStatus) {
    poeNeighbourSmDel(intfId);
    portsToCalculate_.erase(intfId);
    return;
  }
  if (PoeNeighbourSm* sm = poeNeighbourSm(intfId); sm && sm->portStatus() != portStatus) {
    poeNeighbourSmDel(intfId);
  }
  poeNeighbourSmIs(intfId, intfId, portStatus, this);
  handleNeighboursOfPort(intfId);
}

void PoeSm::handleNeighboursOfPort(const Konet::IntfId& intfId) {
  portsToCalculate_.insert(intfId);
  doCalculatePoeRequired(intfId);
}

void PoeSm::handlePoe() {
  TRACE(inputSmTrace, 8) << "PoeSm::handlePoe()";
  if (!localSystem_) {
    TRACE(inputSmTrace, 8) << "PoeSm::handlePoe NO localSystem";
    return;
  }
  std::set<Konet::IntfId> ports;
  ports.swap(portsToCalculate_);
  for (const Konet::IntfId& intfId : ports) doCalculatePoeRequired(intfId);
}

void PoeSm::doCalculatePoeRequired(const Konet::IntfId& intfId) {
  if (!localSystem_) return;
  const LocalPort::Ptr localPort = localSystem_->localPort(intfId);
  if (!localPort) {
    TRACE(inputSmTrace, 8) << "calculatePoeRequired NO local port for intfId:" << intfId;
    return;
  }
  const Platform::Ptr<LocalPortPoeInfo>& info = localPort->localPortPoeInfo();
  if (!info) return;
  const PortStatus::Ptr portStatus = status_ ? status_->portStatus(intfId) : PortStatus::Ptr();
  if (!portStatus) {
    TRACE(inputSmTrace, 8) << "calculatePoeRequired NO portStatus for intfId:" << intfId;
    return;
  }
  double watts = 0;
  for (auto it = portStatus->remoteSystem().begin(); it != portStatus->remoteSystem().end(); ++it) {
    const RemoteSystem& rs = *it.value();
    if (!rs.powerViaMdiTlvReceived()) continue;
    const PowerViaMdiInfo& power = rs.powerViaMdiInfo();
    // Only powered devices (type codes 1 and 3) that sent the 802.3at part ask for power.
    if (!power.dot3atExtension || (power.powerType & ~2) != 1) continue;
    watts += PoeUtils::deciWattsToWatts(power.pdRequestedPower).value;
  }
  const Units::Watts sum{watts};
  info->requestedPowerValueIs(sum);
  TRACE(inputSmTrace, 8) << "calculatePoeRequired( " << intfId << " ) needs: " << sum;
}

}  // namespace Lldp::Agent::Input
