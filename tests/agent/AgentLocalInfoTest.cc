// What the whole agent answers its neighbours, as the peer switch decodes it: a phone's
// network-policy request and PoE requested power. The rules themselves are tested on the Input
// root; these check that the agent wires them to the wire.
#include "AgentFixture.h"
#include "codec/PoeUtils.h"

namespace AgentTest {
namespace {

constexpr uint32_t kOuiDot3 = 0x00120f, kOuiTia = 0x0012bb;

struct AgentLocalInfoTest : AgentFixture {
  // The operator's configuration, written before the agent starts.
  Lldp::CliConfig::Ptr cli = db.entityIs<Lldp::CliConfig>("l2discovery/lldp/cliConfig");
  // Lets the transmit delay pass so that the latest change is on the wire.
  void settle() { scheduler.runFor(3); }
};

// Network policy TLV info for one application: type, then U/T/X, VLAN, priority and DSCP bits.
std::vector<uint8_t> networkPolicy(uint8_t app, bool tagged, uint16_t vlan, uint8_t priority, uint8_t dscp) {
  const uint32_t bits =
      (tagged ? 1u << 22 : 0) | uint32_t(vlan & 0xfff) << 9 | uint32_t(priority & 7) << 6 | (dscp & 0x3f);
  return {app, static_cast<uint8_t>(bits >> 16), static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)};
}
const std::vector<uint8_t> kMedEndpoint{0x00, 0x03, 0x03};  // capabilities and network policy, class III

TEST_F(AgentLocalInfoTest, APhonesPolicyRequestIsAnsweredOnItsPort) {
  addPort("Ethernet1", 1);
  addPort("Ethernet2", 2);
  for (const char* intf : {"Ethernet1", "Ethernet2"}) {
    cli->portConfigIs(intf)->networkPolicyConfigIs(6, Lldp::NetworkPolicyConfig{true, 300, 4, 34});
  }
  startAgent();
  settle();
  ASSERT_TRUE(heard("Ethernet1"));
  EXPECT_EQ(heard("Ethernet1")->networkPolicyTlvs(), 0u) << "no policy before anyone asks";
  EXPECT_FALSE(heard("Ethernet1")->medCapabilitiesTlvReceived());

  receive("Ethernet1", NeighbourFrame(Konet::EthAddr(0x02, 0x0f, 0, 0, 0, 1), "port1", 120)
                           .org(kOuiTia, 1, kMedEndpoint)
                           .org(kOuiTia, 2, networkPolicy(6, false, 0, 0, 0)));
  settle();
  EXPECT_TRUE(heard("Ethernet1")->medCapabilitiesTlvReceived()) << "the capabilities TLV answers an LLDP-MED device";
  EXPECT_EQ(heard("Ethernet1")->networkPolicyTlvs(), 1u);
  EXPECT_EQ(heard("Ethernet1")->networkPolicyTlv(6), (Lldp::NetworkPolicyTlv{6, false, true, 300, 4, 34}));
  EXPECT_EQ(heard("Ethernet2")->networkPolicyTlvs(), 0u) << "the request is the port's own";
}

// A Power Via MDI TLV with the 802.3at part: a powered device of the given type code asking for
// deciWatts.
std::vector<uint8_t> powerRequest(uint8_t typeCode, uint16_t deciWatts) {
  const uint8_t typeSourcePriority = static_cast<uint8_t>(typeCode << 6 | 0x10);
  const uint8_t high = static_cast<uint8_t>(deciWatts >> 8), low = static_cast<uint8_t>(deciWatts);
  return {0x00, 0x01, 0x05, typeSourcePriority, high, low, 0, 0};
}

TEST_F(AgentLocalInfoTest, RequestedPowerFollowsThePoweredDevicesOnThePort) {
  addPort("Ethernet1", 1);  // the peer switch asks for no power
  startAgent();
  auto poeDir = db.lookup<Platform::Dir>("environment/power/status/poePort");
  ASSERT_TRUE(poeDir);
  auto grant = Platform::make<Environment::Power::PoePortStatus>("Ethernet1");
  grant->grantedPowerIs(Units::Watts{30});
  grant->poweredDeviceClassIs(4);
  grant->poePortStateIs(PoeUtils::deliveringPower);
  grant->lldpNegotiationSupportedIs(true);
  poeDir->entryIs("Ethernet1", grant);
  settle();
  ASSERT_TRUE(heard("Ethernet1") && heard("Ethernet1")->powerViaMdiTlvReceived());
  EXPECT_FALSE(heard("Ethernet1")->powerViaMdiInfo().dot3atExtension) << "no 802.3at part before a device asks";

  receive("Ethernet1",
          NeighbourFrame(Konet::EthAddr(2, 0, 0, 0, 0xa, 1), "pd1", 120).org(kOuiDot3, 2, powerRequest(1, 125)));
  receive("Ethernet1",
          NeighbourFrame(Konet::EthAddr(2, 0, 0, 0, 0xa, 2), "pd2", 120).org(kOuiDot3, 2, powerRequest(3, 40)));
  settle();
  EXPECT_DOUBLE_EQ(localSystem()->localPort("Ethernet1")->localPortPoeInfo()->requestedPowerValue().value, 16.5);
  // What the agent answers: PD requested 16.5 W and 30 W allocated, in tenths of a watt.
  const Lldp::PowerViaMdiInfo answer = heard("Ethernet1")->powerViaMdiInfo();
  EXPECT_TRUE(answer.dot3atExtension);
  EXPECT_EQ(answer.pdRequestedPower, 165);
  EXPECT_EQ(answer.pseAllocatedPower, 300);
}

// A client changing the value of its TLV: one LLDPDU leaves, at once, carrying the new value
// (not one without the TLV, and the new value only after the transmit delay).
TEST_F(AgentLocalInfoTest, ANewExternalTlvValueLeavesInOneLldpdu) {
  addPort("Ethernet1", 1);
  startAgent();
  auto client = Platform::make<Lldp::ExternalTlvConfig>("client");
  db.lookup<Platform::Dir>("l2discovery/lldp/externalTlvs")->entryIs("client", client);
  const Lldp::UnknownOrgDefTlv::Key key(Lldp::Oui(0x001c73), 9, 1);
  auto put = [&](const std::string& value) {
    client->portConfigIs("Ethernet1")->unknownOrgDefTlvIs(key, Lldp::UnknownOrgDefTlv{key, Lldp::BoundedString507(value)});
  };
  put("first");
  settle();
  auto carried = [&] {
    const auto rs = heard("Ethernet1");
    if (!rs || rs->unknownOrgDefTlvs() != 1) return std::string();
    return rs->unknownOrgDefTlv().begin().value().value.str();
  };
  ASSERT_EQ(carried(), "first");
  scheduler.runFor(10);  // the fast start is over: the next change may leave at once
  const size_t sent = sentBy("Ethernet1");
  put("second");
  scheduler.runFor(0.01);
  EXPECT_EQ(sentBy("Ethernet1"), sent + 1);
  EXPECT_EQ(carried(), "second");
  settle();
  EXPECT_EQ(sentBy("Ethernet1"), sent + 1);
}

}  // namespace
}  // namespace AgentTest
