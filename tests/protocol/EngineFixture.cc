// The simulated root and port used by protocol tests.
#include "EngineFixture.h"

#include "codec/LldpProtocol.h"

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
  previousSink = Platform::traceSinkIs([this](const Platform::TraceFacility&, int, std::string_view line) {
    traces.emplace_back(line);
  });
  Platform::traceLevelsIs("LldpProtocolSm/9");
  dut.addPort("Ethernet1");
  wire.link("dut:Ethernet1", "peer:Ethernet1");
  scheduler.runPending();
}

EngineFixture::~EngineFixture() {
  Platform::traceLevelsIs("");
  Platform::traceSinkIs(previousSink);
}

std::vector<double> EngineFixture::sentTimes() const {
  std::vector<double> times;
  for (const auto& s : wire.sentBy("dut:Ethernet1")) times.push_back(s.time);
  return times;
}

std::vector<uint8_t> EngineFixture::neighbourFrame(uint8_t chassis, uint16_t ttl, const std::string& sysName) {
  std::vector<uint8_t> f = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x00, 0x1c, 0x73, 0x00, 0x02, chassis, 0x88, 0xcc};
  auto tlv = [&f](int type, const std::string& value) {
    f.push_back(static_cast<uint8_t>((type << 1) | (value.size() >> 8)));
    f.push_back(static_cast<uint8_t>(value.size()));
    f.insert(f.end(), value.begin(), value.end());
  };
  tlv(1, std::string("\x04\x00\x1c\x73\x00\x02", 6) + char(chassis));
  tlv(2, "\x05" "Ethernet9");
  tlv(3, std::string{char(ttl >> 8), char(ttl & 0xff)});
  tlv(5, sysName);
  tlv(0, "");
  return f;
}

bool EngineFixture::traced(const std::string& text) const {
  for (const std::string& line : traces) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

}  // namespace ProtocolTest
