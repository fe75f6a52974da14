// Codec test helpers.
#include "CodecFixture.h"

#include <sstream>

namespace CodecTest {

std::vector<uint8_t> hex(const std::string& text) {
  std::vector<uint8_t> out;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    line = line.substr(0, line.find('#'));
    int high = -1;
    for (char c : line) {
      int v = -1;
      if (c >= '0' && c <= '9') v = c - '0';
      if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
      if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
      if (v < 0) continue;
      if (high < 0) {
        high = v;
      } else {
        out.push_back(static_cast<uint8_t>(high * 16 + v));
        high = -1;
      }
    }
    EXPECT_LT(high, 0) << "odd hex digits in: " << line;
  }
  return out;
}

std::string toHex(const uint8_t* begin, const uint8_t* end) {
  static const char* const kHex = "0123456789abcdef";
  std::string out;
  for (const uint8_t* p = begin; p < end; ++p) {
    if (p != begin) out.push_back(' ');
    out.push_back(kHex[*p >> 4]);
    out.push_back(kHex[*p & 0xf]);
  }
  return out;
}

PortFixture::PortFixture() {
  portConfig = config->portConfigIs("Ethernet5");
  localPort = localSystem->localPortIs("Ethernet5");
  portStatus = status->portStatusIs("Ethernet5", 0.0);
  previousSink = Platform::traceSinkIs([this](const Platform::TraceFacility&, int, std::string_view line) {
    traces.emplace_back(line);
  });
  Platform::traceLevelsIs("*/9");
}

PortFixture::~PortFixture() {
  Platform::traceLevelsIs("");
  Platform::traceSinkIs(previousSink);
}

void PortFixture::fillLocal() {
  localSystem->chassisIdentifierIs(Lldp::ChassisIdentifier{
      Lldp::chassisIdMacAddress, Lldp::ChassisId(std::string("\x00\x1c\x73\x01\x02\x03", 6))});
  localSystem->sysNameIs("sw1");
  localSystem->sysDescIs("LLDP test switch");
  localSystem->sysCapSupportedIs(Lldp::SystemCapabilitiesMap{0x14});
  localSystem->sysCapEnabledIs(Lldp::SystemCapabilitiesMap{0x04});
  localPort->portIdentifierIs(Lldp::PortIdentifier{Lldp::portIdInterfaceName, Lldp::PortId("Ethernet5")});
  localPort->portDescIs("uplink");
  localPort->portVlanIdIs(Bridging::VlanIdOrNone(10));
  localPort->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo{9236});
  portConfig->enabledTlvsIs(Lldp::PortConfig::EnabledTlvs{0x0f});
  portConfig->dot3EnabledTlvsIs(Lldp::PortConfig::Dot3EnabledTlvs{0x08});
  const Lldp::ManagementAddress::Key key{Lldp::afIpv4, Lldp::ManAddress(std::string("\xc0\x00\x02\x01", 4))};
  localSystem->managementAddressIs(key, Lldp::ManagementAddress(key, Lldp::ifNumberingIfIndex, 7));
  localSystem->managementAddressPrioIs(Lldp::ManAddrPriority{Lldp::ManAddrType::intf, 2, 0, "Loopback0"}, key);
}

std::vector<uint8_t> PortFixture::build() {
  std::vector<uint8_t> area(Lldp::kMaxLldpduSize);
  uint8_t* end = Lldp::buildTxLldpdu(area.data(), area.data() + area.size(), *config, *localSystem,
                                     *localPort, *portConfig, *portStatus, now);
  area.resize(static_cast<size_t>(end - area.data()));
  return area;
}

Lldp::RemoteSystem::PtrConst PortFixture::receive(const std::vector<uint8_t>& lldpdu) {
  std::vector<uint8_t> buffer(lldpdu);
  buffer.resize(lldpdu.size() + Lldp::kRxSlack, 0);
  return Lldp::processRxLldpdu(buffer.data(), buffer.data() + lldpdu.size(), *portConfig, *status,
                               *portStatus, peerMac, now);
}

bool PortFixture::traced(const std::string& text) const {
  for (const std::string& line : traces) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

}  // namespace CodecTest
