// Codec test helpers.
#include "CodecFixture.h"

#include "data/Hex.h"

namespace CodecTest {

std::vector<uint8_t> hex(const std::string& text) {
  EXPECT_EQ(text.substr(0, text.find('#')).find_first_of("ghijklmnopqrstuvwxyz"), std::string::npos);
  return SampleFrames::hexBytes(text);
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

}  // namespace CodecTest
