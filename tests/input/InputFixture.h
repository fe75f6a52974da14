// An Input root and a protocol root on a simulated wire in virtual time, wired as the agent wires
// them, with the other agents' records filled by the test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "data/Traces.h"
#include "input/CliPortConfig.h"
#include "input/IntfTracking.h"
#include "input/LldpInputSm.h"
#include "platform/Log.h"
#include "platform/SimPacketAccess.h"
#include "protocol/LldpProtocolSm.h"

namespace InputTest {

using Interface::ForwardingModel;
using Lldp::AdminStatus;
namespace Input = Lldp::Agent::Input;

struct InputFixture : ::testing::Test {
  Platform::VirtualScheduler scheduler{100};
  Platform::SimWire wire{scheduler};
  Platform::CapturingLogSink logs;
  TestSupport::TraceCapture traces{"LldpInputSm/9"};

  // What the agent mounts.
  Lldp::CliConfig::Ptr cliConfig = Platform::make<Lldp::CliConfig>();
  Lldp::Config::Ptr config = Platform::make<Lldp::Config>();
  Lldp::Status::Ptr status = Platform::make<Lldp::Status>("1");
  Lldp::LocalSystem::Ptr localSystem = Platform::make<Lldp::LocalSystem>();
  Lldp::RemTablesCliConfig::Ptr remTablesCliConfig = Platform::make<Lldp::RemTablesCliConfig>();
  Lldp::RemTablesStatus::Ptr remTablesStatus = Platform::make<Lldp::RemTablesStatus>();
  Bridging::Config::Ptr bridgingConfig = Platform::make<Bridging::Config>();
  Bridging::HwCapabilities::Ptr hwCapabilities = Platform::make<Bridging::HwCapabilities>();
  Ip::Status::Ptr ipStatus = Platform::make<Ip::Status>();
  Ip6::Status::Ptr ip6Status = Platform::make<Ip6::Status>();
  Routing::Config::Ptr routingConfig = Platform::make<Routing::Config>();
  EntityMib::Status::Ptr sysDescr = Platform::make<EntityMib::Status>();
  Platform::Dir::Ptr externalTlvs = Platform::make<Platform::Dir>("externalTlvs");
  Platform::Dir::Ptr poeDir = Platform::make<Platform::Dir>("poePort");
  System::NetStatus::Ptr netStatus = Platform::make<System::NetStatus>();
  Interface::AllIntfStatusDir::Ptr allIntfStatusDir = Platform::make<Interface::AllIntfStatusDir>();
  Interface::AllEthPhyIntfStatusDir::Ptr phyDir = Platform::make<Interface::AllEthPhyIntfStatusDir>();
  Interface::AllEthPhyIntfConfigDir::Ptr phyConfigDir = Platform::make<Interface::AllEthPhyIntfConfigDir>();
  Interface::EthLagIntfStatusDir::Ptr lagDir = Platform::make<Interface::EthLagIntfStatusDir>();
  Identity::Dot1x::Status::Ptr dot1xStatus = Platform::make<Identity::Dot1x::Status>();

  std::unique_ptr<Lldp::Agent::Protocol::Root> protocolRoot;
  std::unique_ptr<Input::Root> inputRoot;

  InputFixture();
  ~InputFixture() override;

  // Start-up and shutdown in the agent's order.
  void start(uint32_t cellId = 1);
  void stop();

  // A physical interface with its link up, known to the kernel and cabled to "peer:<name>".
  Interface::EthPhyIntfStatus::Ptr addPhy(const std::string& name, ForwardingModel model = ForwardingModel::bridged);
  Lldp::PortConfig::Ptr portConfig(const std::string& intf) const { return config->portConfig(intf); }
  Lldp::LocalPort::Ptr localPort(const std::string& intf) const { return localSystem->localPort(intf); }
  Input::InputSm* inputSm() const { return inputRoot->inputSm(); }
  // An LLDPDU from a neighbour with the given chassis byte, arriving on the port.
  void fromNeighbour(const std::string& intf, uint8_t chassis);
  size_t tracedAt(const std::string& text) const { return traces.at(text); }
  bool traced(const std::string& text) const { return traces.has(text); }

 private:
  std::vector<std::string> devices_;
  void deviceIs(const std::string& name);
};

}  // namespace InputTest
