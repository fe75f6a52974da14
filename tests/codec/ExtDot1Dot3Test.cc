// IEEE 802.1 and IEEE 802.3 TLVs in both directions, with the power helpers.
#include "CodecFixture.h"
#include "codec/LldpExtDot1.h"
#include "codec/LldpExtDot3.h"
#include "codec/LldpMed.h"
#include "codec/PoeUtils.h"
#include "platform/FeatureToggle.h"

namespace CodecTest {
namespace {

using namespace Lldp;

struct ExtTest : PortFixture {
  RemoteSystem::Ptr rs = Platform::make<RemoteSystem>(1, Msap{});
  TlvParseResult dot1(int subtype, const std::string& info) { return parseHex(parseExtDot1Tlv, subtype, info, *rs); }
  TlvParseResult dot3(int subtype, const std::string& info) { return parseHex(parseExtDot3Tlv, subtype, info, *rs); }
};

TEST_F(ExtTest, Dot1PortVlanIdRange) {
  EXPECT_EQ(dot1(1, "00 00"), TlvParseResultOk);  // 0: no PVID, accepted
  EXPECT_TRUE(rs->portVlanIdTlvReceived());
  EXPECT_EQ(dot1(1, "0f fe"), TlvParseResultOk);
  EXPECT_EQ(rs->portVlanId().value(), 4094);
  EXPECT_EQ(dot1(1, "0f ff"), TlvParseResultDiscard);
  EXPECT_EQ(rs->portVlanId().value(), 4094);  // the old value stays
  EXPECT_TRUE(traced("Error: Port VLAN ID is out-of-range (pvid=4095)"));
  EXPECT_EQ(dot1(1, "00"), TlvParseResultFatalError);
  EXPECT_TRUE(traced("Error: Port VLAN ID TLV is too short (orgDefInfoLen=1)"));
}

TEST_F(ExtTest, Dot1PortAndProtocolVlanFlags) {
  EXPECT_EQ(dot1(2, "04 00 64"), TlvParseResultDiscard);  // enabled, not supported
  EXPECT_TRUE(traced("Error: Port And Protocol VLAN ID is enabled but not supported (ppvid=100, flags=0x4)"));
  EXPECT_EQ(dot1(2, "06 00 64"), TlvParseResultOk);
  EXPECT_EQ(rs->portAndProtocolVlan(100), (PortAndProtocolVlan{Bridging::VlanIdOrNone(100), true, true}));
  EXPECT_EQ(dot1(2, "00 00 c8"), TlvParseResultOk);
  EXPECT_EQ(rs->portAndProtocolVlan(200), (PortAndProtocolVlan{Bridging::VlanIdOrNone(200), false, false}));
  EXPECT_EQ(dot1(2, "06 0f ff"), TlvParseResultDiscard);
  EXPECT_EQ(dot1(2, "06 00"), TlvParseResultFatalError);
}

TEST_F(ExtTest, Dot1VlanNameChecksInOrder) {
  EXPECT_EQ(dot1(3, "00 0a 00 61"), TlvParseResultDiscard);        // name length 0
  EXPECT_EQ(dot1(3, "00 0a 21 61"), TlvParseResultDiscard);        // name length 33
  EXPECT_EQ(dot1(3, "00 00 01 61"), TlvParseResultDiscard);        // VLAN 0
  EXPECT_EQ(dot1(3, "0f ff 01 61"), TlvParseResultDiscard);        // VLAN 4095
  EXPECT_EQ(dot1(3, "00 0a 0a 61 62 63 64 65 66 67 68 69"), TlvParseResultFatalError);  // 12 < 13
  EXPECT_TRUE(traced("Error: VLAN Name TLV is too short (orgDefInfoLen=12, vlanNameLen=\n)"));
  EXPECT_EQ(dot1(3, "00 0a 0a 61 62 63 64 65 66 67 68 69 6a"), TlvParseResultOk);
  EXPECT_EQ(rs->vlanName(10).name, "abcdefghij");
  EXPECT_EQ(dot1(3, "00 0a 0a"), TlvParseResultFatalError);  // shorter than 4
}

TEST_F(ExtTest, Dot1ProtocolIdentitiesAreNumberedInArrivalOrder) {
  EXPECT_EQ(dot1(4, "02 88 8e"), TlvParseResultOk);
  EXPECT_EQ(dot1(4, "03 00 26 42"), TlvParseResultOk);
  EXPECT_EQ(rs->protocolIdentityInfo(1u).identity(), std::string_view("\x88\x8e", 2));
  EXPECT_EQ(rs->protocolIdentityInfo(2u).index(), 2u);
  EXPECT_EQ(dot1(4, "00"), TlvParseResultDiscard);
  EXPECT_EQ(dot1(4, "05 01 02"), TlvParseResultFatalError);
  EXPECT_EQ(dot1(4, ""), TlvParseResultFatalError);
}

TEST_F(ExtTest, Dot1DigestManagementVidLinkAggregationAndUnknown) {
  EXPECT_EQ(dot1(5, "01 02 03"), TlvParseResultFatalError);
  EXPECT_EQ(dot1(5, "01 02 03 04 05"), TlvParseResultOk);
  EXPECT_EQ(rs->vidUsageDigest(), 0x01020304u);
  EXPECT_EQ(dot1(6, "00 00"), TlvParseResultOk);
  EXPECT_TRUE(rs->managementVidTlvReceived());
  EXPECT_EQ(dot1(6, "10 00"), TlvParseResultDiscard);
  EXPECT_EQ(dot1(7, "03 00 00 03 e9"), TlvParseResultOk);
  EXPECT_EQ(rs->linkAggregationInfo(), (LinkAggregationInfo{3, 1001}));
  EXPECT_EQ(dot1(7, "03 00 00 03"), TlvParseResultFatalError);
  EXPECT_EQ(dot1(0, ""), TlvParseResultUnrecognized);
  EXPECT_EQ(dot1(8, "00"), TlvParseResultUnrecognized);
}

TEST_F(ExtTest, Dot1TransmitsOnlyThePortVlanId) {
  uint8_t buf[16];
  uint8_t* cursor = buf;
  localPort->portVlanIdIs(Bridging::VlanIdOrNone(300));
  EXPECT_TRUE(addExtDot1Tlvs(cursor, buf + sizeof buf, *localPort, *portConfig, orgDefInfo()));
  EXPECT_EQ(toHex(buf, cursor), "fe 06 00 80 c2 01 01 2c");
  cursor = buf;
  EXPECT_FALSE(addExtDot1Tlvs(cursor, buf + 7, *localPort, *portConfig, orgDefInfo()));
  EXPECT_TRUE(traced("Not enough space to add Port VLAN ID"));
}

TEST_F(ExtTest, Dot3PowerViaMdiForms) {
  EXPECT_EQ(dot3(2, "00 01 02"), TlvParseResultOk);
  EXPECT_EQ(rs->powerViaMdiInfo().portClass, 2);  // PD
  EXPECT_EQ(dot3(2, "0f 01 02 51 00 82 00"), TlvParseResultOk);  // 7 octets: basic only
  EXPECT_EQ(rs->powerViaMdiInfo().portClass, 1);
  EXPECT_TRUE(rs->powerViaMdiInfo().psePairsControlAbility);
  EXPECT_FALSE(rs->powerViaMdiInfo().dot3atExtension);
  EXPECT_EQ(rs->powerViaMdiInfo().pdRequestedPower, 0);
  EXPECT_EQ(dot3(2, "06 01 04 51 00 82 00 96"), TlvParseResultOk);
  const PowerViaMdiInfo& p = rs->powerViaMdiInfo();
  EXPECT_TRUE(p.dot3atExtension);
  EXPECT_EQ(p.powerType, 1);
  EXPECT_EQ(p.powerSource, 1);
  EXPECT_EQ(p.powerPriority, 1);
  EXPECT_EQ(p.pdRequestedPower, 130);
  EXPECT_EQ(p.pseAllocatedPower, 150);
  EXPECT_EQ(dot3(2, "06 01"), TlvParseResultFatalError);

  const Platform::ScopedFeature medOff("LldpMedToggle", false);
  EXPECT_EQ(dot3(2, "06 01 04 51 00 82 00 96"), TlvParseResultOk);
  EXPECT_FALSE(rs->powerViaMdiInfo().dot3atExtension);
}

TEST_F(ExtTest, Dot3OtherSubtypes) {
  EXPECT_EQ(dot3(4, "00 00"), TlvParseResultOk);
  EXPECT_TRUE(rs->maximumFrameSizeTlvReceived());
  EXPECT_EQ(dot3(4, "05"), TlvParseResultFatalError);
  EXPECT_EQ(dot3(1, "03 ff ff 00 10"), TlvParseResultOk);
  for (int bit = 0; bit < 16; ++bit) EXPECT_TRUE(rs->macPhyConfigStatusInfo().autoNegAdvertisedCapFlag(bit));
  EXPECT_EQ(rs->macPhyConfigStatusInfo().operMauType, 16);
  EXPECT_EQ(dot3(1, "03 ff ff 00"), TlvParseResultFatalError);
  EXPECT_EQ(dot3(3, "01 00 00 00 07"), TlvParseResultOk);
  EXPECT_EQ(rs->linkAggregationInfo().portId, 7u);
  EXPECT_EQ(dot3(5, ""), TlvParseResultUnrecognized);
  EXPECT_EQ(dot3(0, ""), TlvParseResultUnrecognized);
}

TEST_F(ExtTest, Dot3TransmitFitsWhatItCan) {
  portConfig->dot3EnabledTlvsIs(PortConfig::Dot3EnabledTlvs{0x0e});  // power, LAG, frame size
  localPort->maximumFrameSizeInfoIs(MaximumFrameSizeInfo{1518});
  uint8_t buf[64];
  uint8_t* cursor = buf;
  EXPECT_TRUE(addExtDot3Tlvs(cursor, buf + sizeof buf, *localPort, *portConfig, orgDefInfo(), *portStatus));
  EXPECT_EQ(toHex(buf, cursor), toHex(hex(R"(
      fe 09 00 12 0f 03 00 00 00 00 00   # link aggregation: not capable, port 0
      fe 06 00 12 0f 04 05 ee            # maximum frame size 1518
  )")));  // no PoE information: no power TLV, and no failure

  cursor = buf;
  EXPECT_FALSE(addExtDot3Tlvs(cursor, buf + 10, *localPort, *portConfig, orgDefInfo(), *portStatus));
  EXPECT_EQ(toHex(buf, cursor), "fe 06 00 12 0f 04 05 ee");  // LAG did not fit, frame size did

  ThrowingAsserts asserts;
  portConfig->dot3EnabledTlvsIs(PortConfig::Dot3EnabledTlvs{0x01});
  EXPECT_THAT([&] { addExtDot3Tlvs(cursor, buf + sizeof buf, *localPort, *portConfig, orgDefInfo(), *portStatus); },
              failsAssertion("!portConfig->dot3EnabledTlvs().macPhyConfigStatus()"));
}

TEST_F(ExtTest, Dot3PowerIsAdvertisedWhileThePortOffersPower) {
  portConfig->dot3EnabledTlvsIs(PortConfig::Dot3EnabledTlvs{PortConfig::Dot3EnabledTlvs::kPowerViaMdi});
  auto poe = localPort->initilizeLocalPortPoeInfo();
  poe->pdClassIs(3);
  poe->grantedPowerIs(Units::Watts{15.4});
  poe->requestedPowerValueIs(Units::Watts{12.5});
  poe->lldpPoeNegotiationSupportedIs(true);
  uint8_t buf[64];
  auto run = [&] {
    uint8_t* cursor = buf;
    EXPECT_TRUE(addExtDot3Tlvs(cursor, buf + sizeof buf, *localPort, *portConfig, orgDefInfo(), *portStatus));
    return toHex(buf, cursor);
  };
  poe->poePortStateIs(PoeUtils::poeDisabled);
  EXPECT_EQ(run(), "");
  poe->poePortStateIs(PoeUtils::deliveringPower);
  EXPECT_EQ(run(), "fe 07 00 12 0f 02 07 01 04");  // PSE, supported, enabled; pair 1; class 3 + 1
  auto neighbour = portStatus->remoteSystemIs(1, Msap{});
  neighbour->powerViaMdiTlvReceivedIs(true);  // a neighbour negotiates: answer in 802.3at form
  EXPECT_EQ(run(), toHex(hex(R"(
      fe 0c 00 12 0f 02
      07 01 04         # PSE, supported, enabled; signal pair; class 3
      10               # type 2 PSE, primary source, priority unknown
      00 7d            # requested 12.5 W
      00 9a            # allocated 15.4 W
  )")));
}

}  // namespace
}  // namespace CodecTest
