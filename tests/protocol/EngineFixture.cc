// The simulated root and port used by protocol tests.
#include "EngineFixture.h"

#include "data/Lldpdu.h"

namespace ProtocolTest {

Node::Node(Platform::VirtualScheduler& s, Platform::SimWire& wire, const std::string& nodeName,
           uint8_t mac)
    : StandaloneEngine(s, nodeName, Konet::EthAddr(0, 0x1c, 0x73, 0, 0, mac),
                       [&wire, nodeName](Lldp::Agent::Protocol::Root& r) {
                         return std::make_unique<Platform::SimPamManager>(
                             r.desiredIntfDir(), r.pamCollection(), r.deviceIntfStatusDir(),
                             r.scheduler(), wire, nodeName);
                       }),
      macByte(mac) {}

void Node::addPort(const std::string& intf) {
  StandaloneEngine::addPort(intf, Konet::EthAddr(0, 0x1c, 0x73, 0, 1, macByte));
}

EngineFixture::EngineFixture() {
  dut.addPort("Ethernet1");
  wire.link("dut:Ethernet1", "peer:Ethernet1");
  scheduler.runPending();
}

std::vector<double> EngineFixture::sentTimes() const {
  std::vector<double> times;
  for (const auto& s : wire.sentBy("dut:Ethernet1")) times.push_back(s.time);
  return times;
}

std::vector<uint8_t> EngineFixture::neighbourFrame(uint8_t chassis, uint16_t ttl, const std::string& sysName) {
  return TestSupport::Lldpdu(Konet::EthAddr(0, 0x1c, 0x73, 0, 2, chassis), "Ethernet9", ttl).tlv(5, sysName).frame();
}

}  // namespace ProtocolTest
