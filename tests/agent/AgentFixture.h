// A whole agent in virtual time, started from its factory on a state database whose other
// agents' records the test fills, with a peer switch (a standalone engine) on the simulated wire
// that decodes what the agent sends.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "agent/LldpAgent.h"
#include "demo/StandaloneEngine.h"
#include "platform/Log.h"
#include "platform/SimPacketAccess.h"
#include "platform/StateDb.h"
#include "data/Lldpdu.h"
#include "data/Traces.h"

namespace AgentTest {

// An LLDPDU of a test neighbour: chassis (its MAC), port and time-to-live, then what the test adds.
using NeighbourFrame = TestSupport::Lldpdu;

struct AgentFixture : ::testing::Test {
  Platform::VirtualScheduler scheduler{0};
  Platform::SimWire wire{scheduler};
  Platform::StateDb db{scheduler, "1"};
  std::unique_ptr<Demo::StandaloneEngine> peer;
  std::unique_ptr<Lldp::Agent::Agent> agent;
  TestSupport::TraceCapture traces{"LldpAgent/9,LldpProtocolSm/8,LldpNbrClassificationSm/6"};
  Platform::CapturingLogSink logs;

  // The other agents' records, at their paths before the agent mounts them.
  Bridging::Config::Ptr bridging;
  Bridging::HwCapabilities::Ptr hwCapabilities;
  System::NetStatus::Ptr netStatus;
  EntityMib::Status::Ptr entMib;
  Interface::AllEthPhyIntfStatusDir::Ptr phyDir;
  Interface::AllEthPhyIntfConfigDir::Ptr phyConfigDir;
  Interface::AllIntfStatusDir::Ptr intfStatusDir;
  Interface::EthLagIntfStatusDir::Ptr lagDir;
  Redundancy::RedundancyStatus::Ptr redundancy;
  Platform::Dir::Ptr statusDir;
  Platform::Dir::Ptr cellDir;

  AgentFixture();
  ~AgentFixture() override;

  // A physical port of the switch (bridged, link up) whose far end is the peer's port of the
  // same name.
  void addPort(const std::string& intf, int32_t ifIndex);
  // Starts the agent from its factory and runs its mounts.
  void startAgent();

  Lldp::CliConfig::Ptr cliConfig() const { return db.lookup<Lldp::CliConfig>("l2discovery/lldp/cliConfig"); }
  Lldp::Status::Ptr localStatus() const { return db.lookup<Lldp::Status>("l2discovery/lldp/status/local/1"); }
  Lldp::LocalSystem::Ptr localSystem() const { return db.lookup<Lldp::LocalSystem>("l2discovery/lldp/localSystem"); }
  Lldp::Agent::Protocol::LldpPamSm* engine(const std::string& intf) const;
  // What the peer learnt from the agent on one port (null before the first LLDPDU).
  Lldp::RemoteSystem::Ptr heard(const std::string& intf) const;
  size_t sentBy(const std::string& intf) const { return wire.sentBy("dut:" + intf).size(); }
  // A frame arriving at the agent's port from a test neighbour.
  void receive(const std::string& intf, const NeighbourFrame& frame) { wire.inject("dut:" + intf, frame.frame()); }
  bool traced(const std::string& text) const { return traces.has(text); }
  size_t tracedAt(const std::string& text, size_t from = 0) const { return traces.at(text, from); }
};

}  // namespace AgentTest
