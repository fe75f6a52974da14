// A protocol engine with its records filled by hand instead of by the agent's local-information
// subsystem: for the demonstration, the namespace soak and tests.
#pragma once

#include <memory>
#include <string>

#include "protocol/LldpProtocolSm.h"

namespace Demo {

class StandaloneEngine {
 public:
  StandaloneEngine(Platform::Scheduler& scheduler, const std::string& name, const Konet::EthAddr& chassisMac,
                   Lldp::Agent::Protocol::PamManagerFactory pamManagerFactory);
  ~StandaloneEngine();

  // Makes an LLDP port of a device (its link up, transmit and receive enabled).
  void addPort(const std::string& device, const Konet::EthAddr& mac);

  Lldp::Config::Ptr config = Platform::make<Lldp::Config>();
  Lldp::CliConfig::Ptr cliConfig = Platform::make<Lldp::CliConfig>();
  Lldp::Status::Ptr status = Platform::make<Lldp::Status>("1");
  Lldp::LocalSystem::Ptr localSystem = Platform::make<Lldp::LocalSystem>();
  Interface::AllEthPhyIntfStatusDir::Ptr phyDir = Platform::make<Interface::AllEthPhyIntfStatusDir>();
  std::unique_ptr<Lldp::Agent::Protocol::Root> root;

 private:
  Platform::Scheduler& scheduler_;
};

}  // namespace Demo
