// The IEEE 802.1, IEEE 802.3 and LLDP-MED modules over hand-filled records: rows only where the
// agent holds data, indexes of collections, and values in the modules' encodings.
#include <gmock/gmock.h>

#include "MibFixture.h"

namespace Snmp::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const std::string kDot1 = "1.0.8802.1.1.2.1.5.32962.1";
const std::string kDot3 = "1.0.8802.1.1.2.1.5.4623.1";
const std::string kMed = "1.0.8802.1.1.2.1.5.4795.1";

class ExtensionMibTest : public MibFixture {
 protected:
  void SetUp() override {
    portIs("eth1", 3);
    plain_ = neighbourIs("eth1", 1, "plain");  // basic TLVs only
    rich_ = neighbourIs("eth1", 2, "rich");
  }
  Lldp::RemoteSystem::Ptr plain_, rich_;
};

TEST_F(ExtensionMibTest, Dot1RowsExistForWhatWasReceived) {
  rich_->portVlanIdIs(Bridging::VlanIdOrNone(10));
  rich_->portVlanIdTlvReceivedIs(true);
  rich_->vlanNameIs(20, Lldp::VlanName{Bridging::VlanId(20), Lldp::BoundedString32("voice")});
  rich_->vlanNameIs(5, Lldp::VlanName{Bridging::VlanId(5), Lldp::BoundedString32("data")});
  rich_->portAndProtocolVlanIs(7, Lldp::PortAndProtocolVlan{Bridging::VlanIdOrNone(7), true, false});
  rich_->protocolIdentityInfoIs(1, Lldp::ProtocolIdentityInfo(1, Lldp::BoundedString255(bytes({0x88, 0xcc}))));

  EXPECT_THAT(walk(kDot1 + ".3.1"), ElementsAre(Pair(kDot1 + ".3.1.1.1.0.3.2", Value::integer(10))));
  EXPECT_THAT(walk(kDot1 + ".3.3"), ElementsAre(Pair(kDot1 + ".3.3.1.2.0.3.2.5", Value::octets("data")),
                                                Pair(kDot1 + ".3.3.1.2.0.3.2.20", Value::octets("voice"))));
  EXPECT_THAT(walk(kDot1 + ".3.2"), ElementsAre(Pair(kDot1 + ".3.2.1.2.0.3.2.7", Value::truth(true)),
                                                Pair(kDot1 + ".3.2.1.3.0.3.2.7", Value::truth(false))));
  EXPECT_EQ(get(kDot1 + ".3.4.1.2.0.3.2.1"), Value::octets(bytes({0x88, 0xcc})));
  // Locally: the port VLAN and whether it is sent; no local VLAN names.
  EXPECT_EQ(get(kDot1 + ".1.1.1.1.3"), Value::truth(true));
  EXPECT_EQ(get(kDot1 + ".2.1.1.1.3"), Value::integer(0));
  EXPECT_THAT(walk(kDot1 + ".2.3"), IsEmpty());
}

TEST_F(ExtensionMibTest, Dot3RowsAndLocalPowerAsAdvertised) {
  Lldp::MacPhyConfigStatusInfo macPhy{true, false, 0x6c01, 16};
  rich_->macPhyConfigStatusInfoIs(macPhy);
  rich_->macPhyConfigStatusTlvReceivedIs(true);
  Lldp::PowerViaMdiInfo power;
  power.portClass = 2;
  power.pseMdiPowerSupported = true;
  power.psePowerPair = 1;
  power.powerClass = 3;
  rich_->powerViaMdiInfoIs(power);
  rich_->powerViaMdiTlvReceivedIs(true);
  rich_->linkAggregationInfoIs(Lldp::LinkAggregationInfo{0x03, 42});
  rich_->linkAggregationTlvReceivedIs(true);
  rich_->maximumFrameSizeInfoIs(Lldp::MaximumFrameSizeInfo{9216});
  rich_->maximumFrameSizeTlvReceivedIs(true);

  EXPECT_THAT(walk(kDot3 + ".3.1"), ElementsAre(Pair(kDot3 + ".3.1.1.1.0.3.2", Value::truth(true)),
                                                Pair(kDot3 + ".3.1.1.2.0.3.2", Value::truth(false)),
                                                Pair(kDot3 + ".3.1.1.3.0.3.2", Value::octets(bytes({0x6c, 0x01}))),
                                                Pair(kDot3 + ".3.1.1.4.0.3.2", Value::integer(16))));
  EXPECT_EQ(get(kDot3 + ".3.2.1.1.0.3.2"), Value::integer(2));  // pClassPD(2)
  EXPECT_EQ(get(kDot3 + ".3.2.1.6.0.3.2"), Value::integer(3));
  EXPECT_EQ(get(kDot3 + ".3.3.1.1.0.3.2"), Value::octets(bytes({0xc0})));  // aggCapable(0), aggEnabled(1)
  EXPECT_EQ(get(kDot3 + ".3.3.1.2.0.3.2"), Value::integer(42));
  EXPECT_EQ(get(kDot3 + ".3.4.1.1.0.3.2"), Value::integer(9216));
  EXPECT_FALSE(get(kDot3 + ".3.4.1.1.0.3.1")) << "absent, not zero, for a neighbour that sent none";

  // Values the MIB's ranges do not hold are absent: pairs other than signal(1) and spare(2), a
  // power class outside 1 to 5, an aggregation port above Integer32.
  power.psePowerPair = 3;
  power.powerClass = 7;
  rich_->powerViaMdiInfoIs(power);
  rich_->linkAggregationInfoIs(Lldp::LinkAggregationInfo{0x03, 0xffffffffu});
  EXPECT_FALSE(get(kDot3 + ".3.2.1.5.0.3.2"));
  EXPECT_FALSE(get(kDot3 + ".3.2.1.6.0.3.2"));
  EXPECT_FALSE(get(kDot3 + ".3.3.1.2.0.3.2"));
  EXPECT_EQ(get(kDot3 + ".3.2.1.1.0.3.2"), Value::integer(2)) << "the rest of the row stays";

  // Power via MDI is a local row only while the port offers power.
  auto& config = *records_.config->portConfig(Konet::IntfId("eth1"));
  config.dot3EnabledTlvsIs(Lldp::PortConfig::Dot3EnabledTlvs{Lldp::PortConfig::Dot3EnabledTlvs::kPowerViaMdi |
                                                             Lldp::PortConfig::Dot3EnabledTlvs::kMaxFrameSize});
  EXPECT_EQ(get(kDot3 + ".1.1.1.1.3"), Value::octets(bytes({0x50})));  // powerViaMDI(1), maxFrameSize(3)
  EXPECT_THAT(walk(kDot3 + ".2.2"), IsEmpty());
  auto poe = records_.localSystem->localPort(Konet::IntfId("eth1"))->initilizeLocalPortPoeInfo();
  poe->poePortStateIs(2);  // delivering power
  poe->pdClassIs(2);
  EXPECT_EQ(get(kDot3 + ".2.2.1.1.3"), Value::integer(1));  // pClassPSE(1)
  EXPECT_EQ(get(kDot3 + ".2.2.1.3.3"), Value::truth(true));
  EXPECT_EQ(get(kDot3 + ".2.2.1.6.3"), Value::integer(3));
  EXPECT_TRUE(get(kDot3 + ".2.4.1.1.3"));
  EXPECT_THAT(walk(kDot3 + ".2.3"), IsEmpty());
}

TEST_F(ExtensionMibTest, MedPoliciesInventoryLocationAndExtendedPower) {
  rich_->medCapabilitiesInfoIs(Lldp::MedCapabilitiesInfo{0x33, 3});
  rich_->medCapabilitiesTlvReceivedIs(true);
  rich_->networkPolicyTlvIs(1, Lldp::NetworkPolicyTlv{1, false, true, 100, 5, 46});
  rich_->networkPolicyTlvIs(8, Lldp::NetworkPolicyTlv{8, true, false, 0, 0, 0});
  rich_->networkPolicyTlvIs(9, Lldp::NetworkPolicyTlv{9, false, true, 7, 0, 0});  // PolicyAppType has no bit 9
  rich_->modelNameTlvInfoIs(Lldp::BoundedString32("phone-9"));
  Lldp::LocationId loc;
  loc.elin = "5551234567";
  loc.elinPresent = true;
  loc.civicAddressPresent = true;
  loc.civicAddress.what = 2;
  loc.civicAddress.countryCode = "DE";
  loc.civicAddress.caElements = {{3, "Berlin"}};
  rich_->locationIdIs(loc);
  const Lldp::UnknownOrgDefTlv::Key power(Lldp::kOuiTia, 4, 1);
  rich_->unknownOrgDefTlvIs(power, Lldp::UnknownOrgDefTlv{power, Lldp::BoundedString507(bytes({0x51, 0x00, 0x82}))});

  EXPECT_EQ(get(kMed + ".3.1.1.1.0.3.2"), Value::octets(bytes({0xcc})));  // 0x33: bits 0, 1, 4, 5
  // Sent: capabilities, policies, location, extended power as a powered device, inventory.
  EXPECT_EQ(get(kMed + ".3.1.1.2.0.3.2"), Value::octets(bytes({0xec})));
  EXPECT_EQ(get(kMed + ".3.1.1.3.0.3.2"), Value::integer(3));
  // Policies by application type as BITS: voice(1) is 0x40, videoSignaling(8) takes two octets;
  // type 9 has no row.
  EXPECT_THAT(walk(kMed + ".3.2.1.2"), ElementsAre(Pair(kMed + ".3.2.1.2.0.3.2.1.64", Value::integer(100)),
                                                   Pair(kMed + ".3.2.1.2.0.3.2.2.0.128", Value::integer(0))));
  EXPECT_EQ(get(kMed + ".3.2.1.4.0.3.2.1.64"), Value::integer(46));
  EXPECT_EQ(get(kMed + ".3.2.1.5.0.3.2.2.0.128"), Value::truth(true));
  // Inventory: the model name it sent, and nothing for the six strings it did not.
  EXPECT_THAT(walk(kMed + ".3.3"), ElementsAre(Pair(kMed + ".3.3.1.6.0.3.2", Value::octets("phone-9"))));
  EXPECT_FALSE(get(kMed + ".3.3.1.1.0.3.2"));
  EXPECT_THAT(walk(kMed + ".3.4"), ElementsAre(Pair(kMed + ".3.4.1.2.0.3.2.3", Value::octets("\x0b\x02" "DE\x03\x06" "Berlin")),
                                               Pair(kMed + ".3.4.1.2.0.3.2.4", Value::octets("5551234567"))));
  EXPECT_EQ(get(kMed + ".3.5.1.1.0.3.2"), Value::integer(3));  // pdDevice(3)
  EXPECT_EQ(get(kMed + ".3.7.1.1.0.3.2"), Value::gauge32(130));
  EXPECT_EQ(get(kMed + ".3.7.1.2.0.3.2"), Value::integer(2));  // fromPSE(2)
  EXPECT_EQ(get(kMed + ".3.7.1.3.0.3.2"), Value::integer(2));  // critical(2)
  EXPECT_THAT(walk(kMed + ".3.6"), IsEmpty());

  // Nothing for the neighbour that sent no LLDP-MED; no local device class, inventory or location.
  for (const auto& [o, v] : walk(kMed)) EXPECT_EQ(o.find(".0.3.1"), std::string::npos) << o;
  EXPECT_FALSE(get(kMed + ".1.1.0"));
  EXPECT_FALSE(get(kMed + ".2.6.0"));
}

TEST_F(ExtensionMibTest, CoordinateLocationIsTheSixteenOctetsReceived) {
  Lldp::LocationId loc;
  loc.coordinatePresent = true;
  auto& c = loc.coordinate;
  c.latitudeResolution = 34;
  c.latitude = -(int64_t{1} << 25);  // -1 degree
  c.longitudeResolution = 34;
  c.longitude = int64_t{13} << 25;
  c.altitudeType = 1;
  c.altitudeResolution = 30;
  c.altitude = 100 << 8;
  c.datum = 1;
  rich_->locationIdIs(loc);
  EXPECT_EQ(get(kMed + ".3.4.1.2.0.3.2.2"),
            Value::octets(bytes({0x8b, 0xfe, 0x00, 0x00, 0x00, 0x88, 0x1a, 0x00, 0x00, 0x00, 0x17, 0x80, 0x00, 0x64, 0x00, 0x01})));
}

}  // namespace
}  // namespace Snmp::Test
