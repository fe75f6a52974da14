// A protocol root on a simulated wire in virtual time, with one LLDP port "Ethernet1" whose
// far end ("peer:Ethernet1") the test drives.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/SimPacketAccess.h"
#include "data/Traces.h"
#include "demo/StandaloneEngine.h"
#include "protocol/LldpProtocolSm.h"

namespace ProtocolTest {

using Lldp::Agent::Protocol::LldpPamSm;
using Lldp::Agent::Protocol::TxFsmState;

// A switch on the simulated wire; its ports are named "<name>:<interface>" there.
struct Node : Demo::StandaloneEngine {
  Node(Platform::VirtualScheduler& s, Platform::SimWire& wire, const std::string& name, uint8_t macByte);
  void addPort(const std::string& intf);
  LldpPamSm* engine(const std::string& intf) const { return root->protocolSm()->lldpPamSm(intf); }

  uint8_t macByte;
};

struct EngineFixture : ::testing::Test {
  Platform::VirtualScheduler scheduler{0};
  Platform::SimWire wire{scheduler};
  Node dut{scheduler, wire, "dut", 1};
  TestSupport::TraceCapture traces{"LldpProtocolSm/9"};
  Platform::CapturingLogSink logs;

  EngineFixture();

  LldpPamSm* engine() const { return dut.engine("Ethernet1"); }
  Lldp::PortStatus::Ptr portStatus() const { return dut.status->portStatus("Ethernet1"); }
  Lldp::PortConfig::Ptr portConfig() const { return dut.config->portConfig("Ethernet1"); }
  Interface::EthPhyIntfStatus::Ptr phy() const { return dut.phyDir->intfStatus("Ethernet1"); }
  // Times at which the DUT's port sent LLDPDUs.
  std::vector<double> sentTimes() const;
  // An LLDP frame from a neighbour with the given chassis byte, TTL and system name.
  static std::vector<uint8_t> neighbourFrame(uint8_t chassis, uint16_t ttl, const std::string& sysName = "peer");
  void fromPeer(const std::vector<uint8_t>& frame) { wire.inject("dut:Ethernet1", frame); }
  bool traced(const std::string& text) const { return traces.has(text); }
};

}  // namespace ProtocolTest
