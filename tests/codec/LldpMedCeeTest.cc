// LLDP-MED (capabilities, policies, location, inventory) and the CEE control TLV.
#include "CodecFixture.h"
#include "codec/LldpExtCee.h"
#include "codec/LldpMed.h"
#include "data/SampleFrames.h"
#include "platform/FeatureToggle.h"

namespace CodecTest {
namespace {

using namespace Lldp;

struct MedTest : PortFixture {
  RemoteSystem::Ptr rs = Platform::make<RemoteSystem>(1, Msap{});
  TlvParseResult med(int subtype, const std::string& info) { return parseHex(LldpMed::parseTlv, subtype, info, *rs); }
};

TEST_F(MedTest, CapabilitiesAndPolicies) {
  EXPECT_EQ(med(1, "ff ff 09"), TlvParseResultOk);
  EXPECT_EQ(rs->medCapabilitiesInfo(), (MedCapabilitiesInfo{0x3f, 5}));
  EXPECT_TRUE(rs->medCapabilitiesTlvReceived());
  EXPECT_EQ(med(1, "00 01"), TlvParseResultFatalError);

  EXPECT_EQ(med(2, "01 5f ff ff"), TlvParseResultOk);  // no range checks
  EXPECT_EQ(rs->networkPolicyTlv(1), (NetworkPolicyTlv{1, false, true, 4095, 7, 63}));
  EXPECT_EQ(med(2, "01 80 00 00"), TlvParseResultOk);  // same application: replaced
  EXPECT_TRUE(rs->networkPolicyTlv(1).unknownPolicy);
  EXPECT_EQ(rs->networkPolicyTlvs(), 1u);
  EXPECT_EQ(med(2, "01 5f ff"), TlvParseResultFatalError);
  EXPECT_EQ(med(4, "00 00 00"), TlvParseResultUnrecognized);  // extended power via MDI
  EXPECT_EQ(med(0, ""), TlvParseResultUnrecognized);
  EXPECT_EQ(med(12, ""), TlvParseResultUnrecognized);
}

TEST_F(MedTest, CoordinateLocation) {
  EXPECT_EQ(med(3, "01 88 4a c5 ae e6 8b 0b d5 0b 0f 17 80 00 0f 80"), TlvParseResultFatalError);  // 15
  EXPECT_TRUE(traced("Error: LLDP-MED Location ID Coordinate Based TLV size is invalid ( coordinateDataLen = 15)"));
  EXPECT_EQ(med(3, R"(01
      88 4a c5 ae e6   # resolution 34, latitude 37.3861
      8b 0b d5 0b 0f   # resolution 34, longitude -122.0839 (negative: sign-extended)
      17 80 00 0f 80   # altitude type 1 (metres), resolution 30, 15.5
      01)"), TlvParseResultOk);
  const auto& c = rs->locationId().coordinate;
  EXPECT_TRUE(rs->locationId().coordinatePresent);
  EXPECT_EQ(c.latitudeResolution, 34);
  EXPECT_NEAR(c.latitudeDegrees(), 37.3861, 1e-7);
  EXPECT_NEAR(c.longitudeDegrees(), -122.0839, 1e-7);
  EXPECT_EQ(c.altitudeType, 1);
  EXPECT_EQ(c.altitudeResolution, 30);
  EXPECT_DOUBLE_EQ(c.altitudeValue(), 15.5);
  EXPECT_EQ(c.datum, 1);
  EXPECT_EQ(med(3, ""), TlvParseResultFatalError);
  EXPECT_EQ(med(3, "04 00"), TlvParseResultUnrecognized);
}

TEST_F(MedTest, CivicLocation) {
  EXPECT_EQ(med(3, "02 03 02 55"), TlvParseResultFatalError);  // 3 octets of address data
  EXPECT_EQ(med(3, "02 04 02 55 53"), TlvParseResultFatalError);  // L equals the data length
  EXPECT_TRUE(traced("Error: LLDP-MED Civic Adreess LCI length is invalid (lciLength: 4, addressDataLen: 4)"));
  EXPECT_EQ(med(3, "02 02 02 55 53 00"), TlvParseResultFatalError);  // L below 3

  traces.clear();
  EXPECT_EQ(med(3, "02 03 02 55 53"), TlvParseResultOk);  // country code only
  EXPECT_TRUE(rs->locationId().civicAddress.caElements.empty());
  EXPECT_FALSE(traced("Warning"));

  EXPECT_EQ(med(3, R"(02
      0c 01 55 53        # L 12, what 1 (unexpected), "US"
      01 02 43 41        # state "CA"
      03 09 53 61 6e     # city claims 9 octets, 3 remain
  )"), TlvParseResultOk);
  const auto& civic = rs->locationId().civicAddress;
  ASSERT_EQ(civic.caElements.size(), 1u);
  EXPECT_EQ(civic.caElements[0].caType, 1);
  EXPECT_EQ(civic.caElements[0].caValue, "CA");
  EXPECT_EQ(civic.length, 13);  // the address data length
  EXPECT_TRUE(traced("Warning: LLDP-MED Civic Adreess LCI What field value is unexpected: \x01"));
  EXPECT_TRUE(traced("Warning: LLDP-MED Civic Adreess LCI not completely processed.Remaining size: 3"));
}

TEST_F(MedTest, ElinLocation) {
  EXPECT_EQ(med(3, "03 31 32 33 34 35 36 37 38 39 30 31 32 33 34 35 36 37 38 39 30 31 32 33 34 35 36 37 38 39 30"),
            TlvParseResultOk);
  EXPECT_EQ(rs->locationId().elin, "1234567890123456789012345");
  EXPECT_TRUE(traced("Warning: LLDP-MED ECS ELIN size is invalid: 30"));
  EXPECT_EQ(med(3, "03 31 32 33 34 35 41 37 38 39 30"), TlvParseResultOk);
  EXPECT_EQ(rs->locationId().elin, "12345A7890");
  EXPECT_TRUE(traced("Warning: LLDP-MED ECS ELIN Number has non digit chars"));
}

TEST_F(MedTest, OneLocationFormatReplacesOnlyItsOwnPart) {
  ASSERT_EQ(med(3, "03 31 32 33 34 35 36 37 38 39 30"), TlvParseResultOk);
  ASSERT_EQ(med(3, "02 03 02 44 45"), TlvParseResultOk);
  EXPECT_TRUE(rs->locationId().elinPresent);
  EXPECT_TRUE(rs->locationId().civicAddressPresent);
  EXPECT_EQ(rs->locationId().elin, "1234567890");
}

TEST_F(MedTest, InventoryLengths) {
  EXPECT_EQ(med(8, ""), TlvParseResultOk);
  EXPECT_TRUE(rs->serialNumberTlvInfo().empty());
  std::string text33;
  for (int i = 0; i < 33; ++i) text33 += "41 ";
  EXPECT_EQ(med(8, text33), TlvParseResultFatalError);
  EXPECT_TRUE(traced("Error: LLDP-MED Serial Number TLV is too big (orgDefInfoLen=33)"));
  EXPECT_EQ(med(11, "61 62"), TlvParseResultOk);
  EXPECT_EQ(rs->assetIDTlvInfo(), "ab");
  EXPECT_TRUE(traced("LLDP-MED Asset ID TLV has value: ab"));
}

TEST_F(MedTest, PhoneLldpduDecodesCompletely) {
  auto phone = receive(hex(SampleFrames::kPhone));
  ASSERT_TRUE(phone);
  EXPECT_EQ(portStatus->rxTLVsUnrecognizedTotal(), 0u);
  EXPECT_EQ(phone->networkPolicyTlvs(), 2u);
  EXPECT_EQ(phone->networkPolicyTlv(1), (NetworkPolicyTlv{1, false, true, 100, 5, 46}));
  EXPECT_EQ(phone->modelNameTlvInfo(), "Phone 79");
  EXPECT_TRUE(phone->locationId().coordinatePresent);
  EXPECT_TRUE(phone->locationId().civicAddressPresent);
  EXPECT_EQ(phone->locationId().civicAddress.caElements[1].caValue, "San Jose");
  EXPECT_EQ(phone->powerViaMdiInfo().pdRequestedPower, 130);
  EXPECT_TRUE(portStatus->anyLldpMedReceived());
}

TEST_F(MedTest, TransmitOnlyAfterAMedNeighbour) {
  fillLocal();
  localPort->medCapabilitiesIs(MedCapabilitiesInfo{0x03, 4});
  portConfig->tiaEnabledTlvsIs(PortConfig::TiaEnabledTlvs{0x03});
  localPort->localNetworkPolicyTlvIs(1, NetworkPolicyTlv{1, true, true, 100, 5, 46});
  localPort->localNetworkPolicyTlvIs(2, NetworkPolicyTlv{2, false, false, 100, 4, 24});
  uint8_t buf[64];
  uint8_t* cursor = buf;
  EXPECT_TRUE(LldpMed::addTlvs(cursor, buf + sizeof buf, *localPort, *portConfig, orgDefInfo(), *portStatus));
  EXPECT_EQ(cursor, buf);

  portStatus->remoteSystemIs(1, Msap{})->lldpMedTlvReceivedIs(true);
  EXPECT_TRUE(LldpMed::addTlvs(cursor, buf + sizeof buf, *localPort, *portConfig, orgDefInfo(), *portStatus));
  EXPECT_EQ(toHex(buf, cursor), toHex(hex(R"(
      fe 07 00 12 bb 01 00 03 04    # capabilities 0x0003, network connectivity device
      fe 08 00 12 bb 02 01 40 c9 6e # voice: U always 0, tagged, VLAN 100, priority 5, DSCP 46
      fe 08 00 12 bb 02 02 00 00 18 # untagged: VLAN and priority 0, DSCP 24
  )")));

  cursor = buf;
  EXPECT_FALSE(LldpMed::addTlvs(cursor, buf + 20, *localPort, *portConfig, orgDefInfo(), *portStatus));
  EXPECT_EQ(cursor - buf, 19);  // capabilities and the first policy; the second did not fit
  EXPECT_TRUE(traced("Not enough space to add LLDP-MED Network Policy TLV for app 2"));

  portConfig->tiaEnabledTlvsIs(PortConfig::TiaEnabledTlvs{0});
  cursor = buf;
  EXPECT_TRUE(LldpMed::addTlvs(cursor, buf + sizeof buf, *localPort, *portConfig, orgDefInfo(), *portStatus));
  EXPECT_EQ(cursor - buf, 20);  // policies only
}

TEST_F(MedTest, ToggleOffTreatsMedAsAnUnknownOuiAndSendsNone) {
  const Platform::ScopedFeature medOff("LldpMedToggle", false);
  auto phone = receive(hex(SampleFrames::kPhone));
  ASSERT_TRUE(phone);
  EXPECT_FALSE(phone->medCapabilitiesTlvReceived());
  EXPECT_EQ(phone->unknownOrgDefTlvs(), 10u);
  fillLocal();
  portConfig->tiaEnabledTlvsIs(PortConfig::TiaEnabledTlvs{0x03});
  portStatus->remoteSystemIs(99, Msap{})->lldpMedTlvReceivedIs(true);
  const auto frame = build();
  EXPECT_EQ(std::string(frame.begin(), frame.end()).find(std::string("\x00\x12\xbb", 3)), std::string::npos);
}

TEST_F(MedTest, CeeSequenceNumbers) {
  const auto tlv = hex("00 00 01 01  00 00 00 05  00 00 00 09");
  EXPECT_EQ(parseExtCeeTlv(1, 12, tlv.data(), *portStatus, *rs), TlvParseResultUnrecognized);
  EXPECT_EQ(portStatus->ceeSeqNumToAck(), 0u);
  EXPECT_EQ(parseExtCeeTlv(2, 12, tlv.data(), *portStatus, *rs), TlvParseResultOk);
  EXPECT_EQ(portStatus->ceeSeqNumToAck(), 5u);

  auto out = hex("fe 10 00 1b 21 02  00 00 01 01  aa aa aa aa  bb bb bb bb");
  portStatus->ceeSeqNumToSendIs(7);
  portStatus->ceeSeqNumToAckIs(3);
  uint8_t* cursor = out.data();
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(addExtCeeTlvs(cursor, out.data() + out.size(), *localPort, *portStatus, out.data()));
    EXPECT_EQ(toHex(out.data() + 10, out.data() + 18), "00 00 00 03 bb bb bb bb");
  }
  EXPECT_EQ(portStatus->ceeSeqNumToSend(), 9u);
  EXPECT_EQ(cursor, out.data());  // nothing appended
  EXPECT_TRUE(traced("Cee Control Tlv create 2863311530"));
}

}  // namespace
}  // namespace CodecTest
