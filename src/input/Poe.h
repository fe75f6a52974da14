// Power over Ethernet both ways: the power manager's grant into each port's PoE information, and
// the power the neighbours request back into it.
#pragma once

#include <set>
#include <string>

#include "platform/Reactor.h"
#include "platform/StateDb.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"

namespace Lldp::Agent::Input {

class Root;
class PoeSm;

// Copies what the power manager granted a port into its PoE information; a port without PoE
// information is left alone.
void updateLocalPortFromPowerAgent(const Platform::Ptr<LocalSystem>& localSystem, const std::string& intfName,
                                   Units::Watts grantedPower, uint8_t pdClass, uint8_t poePortState,
                                   bool lldpPoeNegotiationSupported);

// One PoE port as the power subsystem publishes it.
class PoeAgentPortSm : public Platform::Reactor {
 public:
  PoeAgentPortSm(std::string name, Platform::Ptr<const Environment::Power::PoePortStatus> poePortStatus,
                 Platform::Ptr<LocalSystem> localSystem);
  void handleInitialized() override { handlePoePortStatus(); }
  void handlePoePortStatus();

  const std::string& name() const { return name_; }
  const Platform::Ptr<const Environment::Power::PoePortStatus>& poePortStatus() const { return poePortStatus_; }

 private:
  std::string name_;
  Platform::Ptr<const Environment::Power::PoePortStatus> poePortStatus_;
  Platform::Ptr<LocalSystem> localSystem_;
};

// Tells PoeSm whenever a neighbour of its port is added, changed or removed, so that the port's
// request follows its neighbours without a walk over all ports.
class PoeNeighbourSm : public Platform::Reactor {
 public:
  PoeNeighbourSm(Konet::IntfId intfId, Platform::Ptr<const PortStatus> portStatus, PoeSm* poeSm);
  void handleRemoteSystem();
  const Platform::Ptr<const PortStatus>& portStatus() const { return portStatus_; }

 private:
  Konet::IntfId intfId_;
  Platform::Ptr<const PortStatus> portStatus_;
  PoeSm* poeSm_;
};

// Watches the power subsystem's directory of PoE port statuses (one PoeAgentPortSm each) and the
// remote tables (the power the neighbours request).
class PoeSm : public Platform::Reactor {
 public:
  PoeSm(Platform::Ptr<const Platform::Dir> poePortStatusDir, Platform::Ptr<const Status> status,
        Platform::Ptr<LocalSystem> localSystem, Root* root);
  void handleInitialized() override;

  void handlePowerAgentEntry(const std::string& name);
  void handlePowerAgentUpdate(const std::string& name);
  void handlePowerAgentDelete(const std::string& name);
  void handlePoe();
  void handlePortStatus(const Konet::IntfId& intfId);
  // The port's neighbours changed: its request is recomputed now and again at the next change of
  // the remote tables (a neighbour's values may be written after the neighbour is added).
  void handleNeighboursOfPort(const Konet::IntfId& intfId);

  PLATFORM_REACTOR_COLL(poeAgentPortSm, std::string, PoeAgentPortSm)
  PLATFORM_REACTOR_COLL(poeNeighbourSm, Konet::IntfId, PoeNeighbourSm)

 private:
  void doCalculatePoeRequired(const Konet::IntfId& intfId);

  Platform::Ptr<const Platform::Dir> poePortStatusDir_;
  Platform::Ptr<const Status> status_;
  Platform::Ptr<LocalSystem> localSystem_;
  Root* root_;
  // Ports whose neighbours changed since the last remote-table change.
  std::set<Konet::IntfId> portsToCalculate_;
};

}  // namespace Lldp::Agent::Input
