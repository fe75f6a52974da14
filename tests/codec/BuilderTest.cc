// The transmit builder: order and contents of the LLDPDU, the optional parts, counters.
#include "CodecFixture.h"

namespace CodecTest {
namespace {

using namespace Lldp;

struct BuilderTest : PortFixture {
  BuilderTest() { fillLocal(); }
};

// What every LLDPDU of the filled-in port begins with.
const std::string kLocalMandatory = R"(
      02 07 04 00 1c 73 01 02 03               # Chassis ID: MAC address
      04 0a 05 45 74 68 65 72 6e 65 74 35      # Port ID: interface name "Ethernet5"
      06 02 00 78                              # TTL 120
)";

TEST_F(BuilderTest, WritesEveryTlvInOrder) {
  const auto expected = hex(kLocalMandatory + R"(
      08 06 75 70 6c 69 6e 6b                  # Port Description "uplink"
      0a 03 73 77 31                           # System Name "sw1"
      0c 10 4c 4c 44 50 20 74 65 73 74 20 73 77 69 74 63 68  # System Description
      0e 04 00 14 00 04                        # capabilities: bridge+router, bridge
      10 0c 05 01 c0 00 02 01 02 00 00 00 07 00  # management address 192.0.2.1, ifIndex 7
      fe 06 00 80 c2 01 00 0a                  # 802.1 Port VLAN ID 10
      fe 06 00 12 0f 04 24 14                  # 802.3 Maximum Frame Size 9236
      00 00                                    # End of LLDPDU
  )");
  EXPECT_EQ(toHex(build()), toHex(expected));
  EXPECT_EQ(portStatus->txFramesTotal(), 1u);
  EXPECT_EQ(portStatus->txFramesLengthExceeded(), 0u);
  EXPECT_EQ(portStatus->lastTxTime(), now);
  EXPECT_TRUE(traced("Added System Capabilities: supported=0x14, enabled=0x4"));
}

TEST_F(BuilderTest, OptionalTlvsFollowTheirSwitches) {
  portConfig->enabledTlvsIs(PortConfig::EnabledTlvs{0});
  portConfig->mgmtAddrTxEnableIs(false);
  portConfig->portVlanTxEnableIs(false);
  portConfig->dot3EnabledTlvsIs(PortConfig::Dot3EnabledTlvs{0});
  auto frame = build();
  EXPECT_EQ(toHex(frame), toHex(hex(kLocalMandatory + "00 00")));

  portConfig->enabledTlvsIs(PortConfig::EnabledTlvs{PortConfig::EnabledTlvs::kSysName});
  localSystem->sysNameIs("");
  frame = build();
  EXPECT_EQ(frame.size(), 27u);  // an empty name is left out

  config->messageTxHoldTimeIs(0x10078);  // only the low 16 bits are sent
  frame = build();
  EXPECT_EQ(frame[23], 0x00);
  EXPECT_EQ(frame[24], 0x78);
}

TEST_F(BuilderTest, ManagementAddressPlacesAndTheIpv6Address) {
  portConfig->enabledTlvsIs(PortConfig::EnabledTlvs{0});
  portConfig->portVlanTxEnableIs(false);
  portConfig->dot3EnabledTlvsIs(PortConfig::Dot3EnabledTlvs{0});
  const ManagementAddress::Key v6key{afIpv6, ManAddress(std::string(15, '\0') + "\x01")};
  localSystem->ip6ManagementAddressIs(ManagementAddress(v6key, ifNumberingIfIndex, 3));
  const ManagementAddress::Key missing{afIpv4, ManAddress(std::string("\x0a\x00\x00\x09", 4))};
  localSystem->managementAddressPrioIs(ManAddrPriority{ManAddrType::intf, 1, 0, "Loopback0"}, missing);

  auto countMgmt = [](const std::vector<uint8_t>& f) {
    int n = 0;
    for (size_t i = 0; i + 1 < f.size();) {
      const int type = f[i] >> 1, len = ((f[i] << 8) | f[i + 1]) & 0x1ff;
      n += type == kTlvManagementAddress;
      if (type == 0) break;
      i += 2 + static_cast<size_t>(len);
    }
    return n;
  };
  config->maxTxMgmtAddrsIs(0);
  EXPECT_EQ(countMgmt(build()), 1);  // IPv6 still goes
  config->maxTxMgmtAddrsIs(2);
  EXPECT_EQ(countMgmt(build()), 2);  // IPv6 + one: the missing key used up a place
  config->maxTxMgmtAddrsIs(3);
  EXPECT_EQ(countMgmt(build()), 2);
}

TEST_F(BuilderTest, ExternalTlvsThatOverflowAreLeftOutAndCounted) {
  for (uint8_t s = 1; s <= 4; ++s) {
    const UnknownOrgDefTlv::Key key(Oui(0x00aabb), s, 1);
    localPort->unknownOrgDefTlvIs(key, UnknownOrgDefTlv{key, BoundedString507(std::string(400, 'x'))});
  }
  const auto frame = build();
  ASSERT_GE(frame.size(), 2u);
  EXPECT_EQ(frame[frame.size() - 2], 0);
  EXPECT_EQ(frame[frame.size() - 1], 0);
  EXPECT_LE(frame.size(), 1500u);
  EXPECT_EQ(portStatus->txFramesTotal(), 1u);
  EXPECT_EQ(portStatus->txFramesLengthExceeded(), 1u);
  EXPECT_TRUE(traced("Not enough space for one or more external TLVs"));
  EXPECT_TRUE(traced("Frame had insufficient space"));
}

TEST_F(BuilderTest, ACeeExternalTlvEndsTheExternalTlvs) {
  const UnknownOrgDefTlv::Key cee(kOuiCee, 2, 1), after(Oui(0xffffff), 1, 1);
  localPort->unknownOrgDefTlvIs(cee, UnknownOrgDefTlv{cee, BoundedString507("abc")});
  localPort->unknownOrgDefTlvIs(after, UnknownOrgDefTlv{after, BoundedString507("zzz")});
  const auto frame = build();
  const std::string bytes(frame.begin(), frame.end());
  EXPECT_NE(bytes.find(std::string("\x00\x1b\x21\x02" "abc", 7)), std::string::npos);
  EXPECT_EQ(bytes.find("zzz"), std::string::npos);
}

TEST_F(BuilderTest, UnsetIdentifiersAreAFault) {
  ThrowingAsserts asserts;
  localPort->portIdentifierIs(PortIdentifier());
  EXPECT_THROW(build(), Platform::AssertionFailure);
  EXPECT_TRUE(traced("Chassis ID or Port ID has not been set for Ethernet5"));
}

}  // namespace
}  // namespace CodecTest
