// The receive path: validation, counters, the remote-system table, carry-over and log messages.
#include "CodecFixture.h"
#include "platform/Reactor.h"

namespace CodecTest {
namespace {

using namespace Lldp;

// The mandatory TLVs of the test neighbour, shared by the frames below.
const std::string kIds = R"(
    02 07 04 00 11 22 33 44 55   # Chassis ID: MAC 00:11:22:33:44:55
    04 05 05 65 74 68 31         # Port ID: interface name "eth1"
)";
const std::string kMandatory = kIds + "06 02 00 78  # TTL 120\n";

struct ReceiveTest : PortFixture {
  std::vector<uint8_t> frame(const std::string& optional, bool end = true) {
    return hex(kMandatory + optional + (end ? "\n00 00" : ""));
  }
  RemoteSystem::Ptr only() {
    EXPECT_EQ(portStatus->remoteSystems(), 1u);
    return portStatus->remoteSystems() ? portStatus->remoteSystem().begin().value() : nullptr;
  }
};

TEST_F(ReceiveTest, RoundTripFromTheBuilder) {
  fillLocal();
  localSystem->ip6ManagementAddressIs(ManagementAddress(
      {afIpv6, ManAddress(std::string("\x20\x01\x0d\xb8", 4) + std::string(11, '\0') + "\x05")}, 2, 9));
  portConfig->dot3EnabledTlvsIs(PortConfig::Dot3EnabledTlvs{0x0c});  // aggregation and frame size
  localPort->linkAggregationInfoIs(LinkAggregationInfo{3, 1000001});
  auto rs = receive(build());
  ASSERT_TRUE(rs);
  EXPECT_EQ(rs->msap().chassisIdentifier.stringValue(), "00:1c:73:01:02:03");
  EXPECT_EQ(rs->msap().portIdentifier.stringValue(), "Ethernet5");
  EXPECT_EQ(rs->ttl(), 120);
  EXPECT_EQ(rs->portDesc(), "uplink");
  EXPECT_EQ(rs->sysName(), "sw1");
  EXPECT_EQ(rs->sysDesc(), "LLDP test switch");
  EXPECT_EQ(rs->sysCapSupported().value, 0x14);
  EXPECT_EQ(rs->sysCapEnabled().value, 0x04);
  ASSERT_EQ(rs->managementAddresss(), 2u);
  EXPECT_EQ(rs->managementAddress().begin().key().stringValue(), "192.0.2.1");
  EXPECT_EQ(rs->portVlanId().value(), 10);
  EXPECT_EQ(rs->maximumFrameSizeInfo().value, 9236);
  EXPECT_EQ(rs->linkAggregationInfo(), (LinkAggregationInfo{3, 1000001}));
  EXPECT_EQ(portStatus->rxTLVsUnrecognizedTotal(), 0u);
  EXPECT_EQ(rs->ethAddr(), peerMac);
  EXPECT_EQ(rs->expiryTime(), now + 120);
  EXPECT_EQ(rs->creationTime(), now);
  EXPECT_EQ(portStatus->rxFramesTotal(), 1u);
  EXPECT_EQ(portStatus->rxFramesErrors(), 0u);
  EXPECT_EQ(status->remTablesInserts(), 1u);
  EXPECT_EQ(status->lastPacketParsedTime(), now);
  ASSERT_EQ(logs.entries().size(), 1u);
  EXPECT_EQ(logs.entries()[0].text,
            "LLDP neighbor with chassisId 00:1c:73:01:02:03 and portId Ethernet5 added on interface Ethernet5");
}

TEST_F(ReceiveTest, RepeatedTlvs) {
  auto rs = receive(frame("0a 01 61  0a 01 62"));  // two System Names: the later wins
  ASSERT_TRUE(rs);
  EXPECT_EQ(rs->sysName(), "b");
  EXPECT_FALSE(receive(frame("02 07 04 00 11 22 33 44 55")));  // a second Chassis ID
  EXPECT_TRUE(traced("Error: frame contains duplicate TLV of type 1"));
  EXPECT_EQ(portStatus->rxFramesDiscardedTotal(), 1u);
  EXPECT_EQ(portStatus->rxFramesErrors(), 1u);
}

TEST_F(ReceiveTest, UnknownTlvsAreKeptWithPerFrameIndexes) {
  auto rs = receive(frame(R"(
      fe 05 00 aa bb 07 01    # unknown OUI 00-aa-bb, subtype 7
      fe 05 00 aa bb 07 02    # the same again: index 2
      fe 04 00 80 c2 63       # 802.1, unknown subtype 99: kept too
      14 02 ab cd             # reserved type 10
  )"));
  ASSERT_TRUE(rs);
  EXPECT_EQ(rs->unknownOrgDefTlvs(), 3u);
  EXPECT_EQ(rs->unknownOrgDefTlv(UnknownOrgDefTlv::Key(Oui(0xaabb), 7, 2)).value, std::string_view("\x02", 1));
  EXPECT_TRUE(rs->unknownOrgDefTlvHas(UnknownOrgDefTlv::Key(kOuiDot1, 99, 1)));
  EXPECT_EQ(rs->unknownTlv(10u).value(), std::string_view("\xab\xcd", 2));
  EXPECT_EQ(portStatus->rxTLVsUnrecognizedTotal(), 4u);

  rs = receive(frame("fe 05 00 aa bb 07 01"));  // next frame numbers from 1 again
  EXPECT_EQ(rs->unknownOrgDefTlvs(), 1u);
  EXPECT_EQ(rs->unknownTlvs(), 0u);
}

TEST_F(ReceiveTest, ShutdownFrames) {
  auto shutdown = hex(kIds + "06 02 00 00  00 00");
  EXPECT_FALSE(receive(shutdown));  // unknown MSAP: nothing counted
  EXPECT_TRUE(traced("Received shutdown frame from unknown MSAP: (00:11:22:33:44:55, eth1)"));
  EXPECT_EQ(status->remTablesDeletes(), 0u);
  EXPECT_EQ(portStatus->rxFramesErrors(), 0u);

  ASSERT_TRUE(receive(frame("")));
  now += 5;
  EXPECT_FALSE(receive(shutdown));
  EXPECT_EQ(portStatus->remoteSystems(), 0u);
  EXPECT_EQ(portStatus->remoteSystemByMsaps(), 0u);
  EXPECT_EQ(status->remTablesDeletes(), 1u);
  EXPECT_EQ(status->remTablesLastChangeTime(), now);
  EXPECT_EQ(logs.count("LLDP_NEIGHBOR_GONE"), 1u);
  EXPECT_EQ(logs.entries().back().text,
            "Received a shutdown frame from LLDP neighbor with chassisId 00:11:22:33:44:55 and portId eth1 "
            "on interface Ethernet5");
}

TEST_F(ReceiveTest, TableLimitRefusesNewNeighboursOnly) {
  portConfig->maxRemoteSystemsIs(1);
  ASSERT_TRUE(receive(frame("")));
  auto other = hex("02 07 04 00 11 22 33 44 66" + kMandatory.substr(kMandatory.find("04 05")));
  EXPECT_FALSE(receive(other));
  EXPECT_TRUE(traced("because limit reached"));
  EXPECT_EQ(portStatus->rxFramesDiscardedTotal(), 1u);
  EXPECT_EQ(status->remTablesDrops(), 0u);
  EXPECT_TRUE(receive(frame("0a 01 61")));  // the known one still refreshes
  EXPECT_EQ(only()->sysName(), "a");
}

TEST_F(ReceiveTest, InconsistentCapabilitiesAreDiscardedButTheFrameApplies) {
  auto rs = receive(frame("0e 04 00 04 00 14  0a 02 73 77"));
  ASSERT_TRUE(rs);
  EXPECT_EQ(rs->sysCapEnabled().value, 0);
  EXPECT_EQ(rs->sysName(), "sw");
  EXPECT_EQ(portStatus->rxTLVsDiscardedTotal(), 1u);
  EXPECT_EQ(portStatus->rxFramesErrors(), 1u);
  EXPECT_TRUE(traced("Error: Supported and enabled capabilities are inconsistent (supported=0x4, enabled=0x14)"));
  EXPECT_FALSE(receive(frame("0e 03 00 04 00")));  // too short is fatal
}

TEST_F(ReceiveTest, TruncatedFourthTlvKeepsTheFirstThree) {
  auto rs = receive(frame("0a 05 61 62", false));
  ASSERT_TRUE(rs);
  EXPECT_EQ(portStatus->rxTLVsDiscardedTotal(), 1u);
  EXPECT_EQ(portStatus->rxFramesErrors(), 1u);
  EXPECT_EQ(portStatus->rxFramesDiscardedTotal(), 0u);
  EXPECT_TRUE(traced("Error: frame ended during optional TLV"));
}

// Every way the mandatory TLVs can be wrong ends the frame, counted and traced; what is merely
// unusual (no End of LLDPDU, a longer TTL, the longest identifier) is accepted.
TEST_F(ReceiveTest, MandatoryTlvBounds) {
  struct Case {
    std::string bytes;
    const char* trace;  // null when accepted
  };
  const Case cases[] = {
      {"02 01 04", "Error: size of TLV out of range (infoLen=1)"},  // chassis of 1 byte
      {"02 02 04 00 04 05 05 65 74 68 31 06 02 00 78", nullptr},     // chassis of 2 bytes, no End
      {kIds + "06 03 00 3c ff 00 00", nullptr},                      // TTL of 3 bytes
      {"02 07 04 00 11 22 33 44 55 04 01 05", "Error in second mandatory TLV"},  // port of 1 byte
      {kIds + "06 01 00", "Error in third mandatory TLV"},                      // TTL of 1 byte
      {kIds, "Error: frame ended during mandatory TLV"},                        // no TTL
      {"04 05 05 65 74 68 31", "Error: TLV was not of the expected type (type=2)"},  // Port ID first
      {"02", "Error: frame ended during mandatory TLV"},
      {"", "Error in first mandatory TLV"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    traces.clear();
    const uint32_t before = portStatus->rxFramesDiscardedTotal();
    EXPECT_EQ(static_cast<bool>(receive(hex(c.bytes))), c.trace == nullptr);
    EXPECT_EQ(portStatus->rxFramesDiscardedTotal(), before + (c.trace ? 1 : 0));
    EXPECT_TRUE(!c.trace || traced(c.trace));
  }
  std::vector<uint8_t> longest = hex("03 00 07");  // Chassis ID of 256 bytes
  longest.resize(2 + 256, 0x41);
  auto rest = hex("04 05 05 65 74 68 31 06 02 00 78");
  longest.insert(longest.end(), rest.begin(), rest.end());
  EXPECT_TRUE(receive(longest));
  longest[1] = 0x01;  // 257 claimed
  longest.insert(longest.begin() + 2, 0x41);
  EXPECT_FALSE(receive(longest));
  EXPECT_TRUE(traced("Error: size of TLV out of range (infoLen=257)"));
  EXPECT_TRUE(traced("Error in first mandatory TLV"));
}

TEST_F(ReceiveTest, ManagementAddressBounds) {
  struct Case {
    const char* tlv;
    TlvParseResult expected;
  };
  const Case cases[] = {
      {"10 08 05 01 0a 00 00 01 02 00", TlvParseResultFatalError},            // 8 bytes
      {"10 09 01 01 0a 00 00 01 02 00 00", TlvParseResultDiscard},            // string length 1
      {"10 09 21 01 0a 00 00 01 02 00 00", TlvParseResultDiscard},            // string length 33
      {"10 0b 05 01 0a 00 00 01 02 00 00 00 00", TlvParseResultFatalError},   // no room for OID length
      {"10 0c 05 01 0a 00 00 01 02 00 00 00 07 81", TlvParseResultDiscard},   // OID length 129
      {"10 0c 05 01 0a 00 00 01 02 00 00 00 07 02", TlvParseResultFatalError},  // OID runs past
      {"10 0c 05 01 0a 00 00 01 02 00 00 00 07 00", TlvParseResultOk},
      {"10 0f 05 01 0a 00 00 01 02 00 00 00 07 03 06 01 2b", TlvParseResultOk},  // OID 1.3
      {"10 0f 05 01 0a 00 00 01 02 00 00 00 07 03 04 01 2b", TlvParseResultOk},  // not an OID: kept
  };
  for (const Case& c : cases) {
    portStatus->rxTLVsDiscardedTotalIs(0);
    portStatus->rxFramesDiscardedTotalIs(0);
    auto rs = receive(frame(c.tlv));
    switch (c.expected) {
      case TlvParseResultFatalError:
        EXPECT_FALSE(rs) << c.tlv;
        EXPECT_EQ(portStatus->rxFramesDiscardedTotal(), 1u) << c.tlv;
        break;
      case TlvParseResultDiscard:
        ASSERT_TRUE(rs) << c.tlv;
        EXPECT_EQ(portStatus->rxTLVsDiscardedTotal(), 1u) << c.tlv;
        EXPECT_EQ(rs->managementAddresss(), 0u) << c.tlv;
        break;
      default:
        ASSERT_TRUE(rs) << c.tlv;
        EXPECT_EQ(rs->managementAddresss(), 1u) << c.tlv;
    }
  }
  auto rs = receive(frame("10 0f 05 01 0a 00 00 01 02 00 00 00 07 03 06 01 2b"));
  EXPECT_EQ(rs->managementAddress().begin().value().oid(), (std::vector<uint32_t>{1, 3}));
  EXPECT_TRUE(traced("Valid OID string"));
  EXPECT_TRUE(traced("Invalid OID string"));
}

TEST_F(ReceiveTest, AfterTheWrapIndexesStillHeldArePassedOver) {
  auto fromChassis = [&](char c) {
    std::string text = kMandatory;
    text[text.find("55")] = c;  // another chassis MAC, another MSAP
    return hex(text + "00 00");
  };
  auto first = receive(fromChassis('1'));  // index 1
  auto second = receive(fromChassis('2'));  // index 2
  portStatus->nextRemoteSystemIndexIs(2147483646);
  auto third = receive(fromChassis('3'));  // the largest index
  auto fourth = receive(fromChassis('4'));  // wraps: 1 and 2 are taken
  ASSERT_TRUE(first && second && third && fourth);
  EXPECT_EQ(third->index(), 2147483647);
  EXPECT_EQ(fourth->index(), 3);
  EXPECT_TRUE(traced("Index for RemoteSystem tables has wrapped"));
  // Four MSAPs, four records, and every MSAP still finds its own.
  ASSERT_EQ(portStatus->remoteSystems(), 4u);
  ASSERT_EQ(portStatus->remoteSystemByMsaps(), 4u);
  for (const auto& rs : {first, second, third, fourth}) {
    EXPECT_EQ(portStatus->remoteSystemByMsap(rs->msap()), rs);
    EXPECT_EQ(portStatus->remoteSystem(rs->index()), rs);
  }
  EXPECT_EQ(receive(fromChassis('1')), first);  // refreshes reach the right record
}

TEST_F(ReceiveTest, AnyLldpMedTlvMakesAnLldpMedNeighbour) {
  // Inventory alone, or Extended Power-via-MDI alone (kept as an unknown TLV), is LLDP-MED.
  for (const char* tlv : {"fe 09 00 12 bb 05 31 2e 30 2e 33  # hardware revision",
                          "fe 07 00 12 bb 04 51 00 82        # extended power via MDI"}) {
    portStatus->remoteSystemDelAll();
    portStatus->remoteSystemByMsapDelAll();
    auto rs = receive(frame(tlv));
    ASSERT_TRUE(rs);
    EXPECT_TRUE(rs->anyLldpMedReceived()) << tlv;
    EXPECT_TRUE(portStatus->anyLldpMedReceived()) << tlv;
  }
  receive(frame(""));  // the same neighbour without LLDP-MED TLVs
  EXPECT_FALSE(portStatus->anyLldpMedReceived());
}

TEST_F(ReceiveTest, ANewNeighbourIsAnnouncedOnceAndComplete) {
  struct Watcher : Platform::Reactor {
    explicit Watcher(const PortStatus::Ptr& ps) : ps_(ps) {
      watch<&Watcher::handleRemoteSystem>(ps_, PortStatus::remoteSystemAttr);
    }
    void handleRemoteSystem(const int32_t& index, Platform::ChangeKind kind) {
      const auto& rs = ps_->remoteSystem(index);
      notices.push_back(std::string(Platform::changeKindName(kind)) + " " +
                        (rs ? rs->sysName().str() : std::string("-")) + " " +
                        (rs && ps_->remoteSystemByMsap(rs->msap()) == rs ? "indexed" : "unindexed"));
    }
    PortStatus::Ptr ps_;
    std::vector<std::string> notices;
  } watcher(portStatus);
  receive(frame("0a 03 73 77 31  # System Name sw1"));
  receive(frame("0a 03 73 77 31"));  // unchanged: no notice
  receive(frame("0a 03 73 77 32  # System Name sw2"));
  receive(hex(kIds + "06 02 00 00"));
  EXPECT_EQ(watcher.notices, (std::vector<std::string>{"added sw1 indexed", "changed sw2 indexed",
                                                       "removed - unindexed"}));
}

TEST_F(ReceiveTest, CarryOverWritesOnlyChangesAndTracesThem) {
  ASSERT_TRUE(receive(frame("0a 01 61  10 0c 05 01 0a 00 00 01 02 00 00 00 07 00")));
  const double created = now;
  now += 30;
  traces.clear();
  auto rs = receive(frame("0a 01 61  10 0c 05 01 0a 00 00 01 02 00 00 00 07 00"));
  EXPECT_EQ(rs->lastChangeTime(), created);  // nothing changed
  EXPECT_EQ(rs->lastRefreshTime(), now);
  EXPECT_EQ(rs->expiryTime(), now + 120);
  EXPECT_FALSE(traced("changed"));

  now += 30;
  rs = receive(frame("0a 01 62"));
  EXPECT_EQ(rs->lastChangeTime(), now);
  EXPECT_EQ(status->remTablesLastChangeTime(), now);
  EXPECT_TRUE(traced("Attribute sysName changed (was: a, now: b)"));
  EXPECT_TRUE(traced("Member 10.0.0.1 of collection managementAddress deleted"));
  EXPECT_TRUE(traced("Something changed -- updating lastChangeTime to"));
  EXPECT_EQ(rs->managementAddresss(), 0u);
  EXPECT_EQ(status->remTablesInserts(), 1u);
}

// Neighbours that describe themselves alike share the description's bytes; each still owns its
// value: one changing its description leaves the other's alone.
TEST_F(ReceiveTest, NeighboursWithOneDescriptionShareItAndStillChangeAlone) {
  const std::string other = std::string(kMandatory).replace(kMandatory.find("44 55"), 5, "44 56");
  const std::string desc42 = "\n0c 17 53 77 69 74 63 68 20 4f 53 20 34 2e 32 20 6f 6e 20 61 20 6c 65 61 66  # System Description";
  const std::string desc43 = "\n0c 17 53 77 69 74 63 68 20 4f 53 20 34 2e 33 20 6f 6e 20 61 20 6c 65 61 66";
  const auto a = receive(frame(desc42));
  const auto b = receive(hex(other + desc42 + "\n00 00"));
  ASSERT_TRUE(a && b && a != b);
  EXPECT_EQ(a->sysDesc(), "Switch OS 4.2 on a leaf");
  EXPECT_EQ(a->sysDesc().view().data(), b->sysDesc().view().data());

  receive(frame(desc43));
  EXPECT_EQ(a->sysDesc(), "Switch OS 4.3 on a leaf");
  EXPECT_EQ(b->sysDesc(), "Switch OS 4.2 on a leaf");
  receive(hex(other + "\n00 00"));
  EXPECT_EQ(b->sysDesc(), "");
  EXPECT_EQ(a->sysDesc(), "Switch OS 4.3 on a leaf");
}

TEST_F(ReceiveTest, OrganizationallySpecificFraming) {
  EXPECT_FALSE(receive(frame("fe 03 00 80 c2")));  // shorter than OUI and subtype
  EXPECT_TRUE(traced("Error: Organizationally Specific TLV is too short (infoLen=3)"));
  auto rs = receive(frame("fe 04 00 80 c2 00"));  // subtype 0
  ASSERT_TRUE(rs);
  EXPECT_EQ(portStatus->rxTLVsDiscardedTotal(), 1u);
  EXPECT_TRUE(traced("Error: Organizationally Specific TLV has invalid subtype of 0 (oui=00-80-c2)"));
}

TEST_F(ReceiveTest, UnknownSubtypesAreTracedRaw) {
  EXPECT_TRUE(receive(hex("02 07 41 00 11 22 33 44 55  04 05 42 65 74 68 31  06 02 00 78")));
  EXPECT_TRUE(traced("Unknown chassid ID subtype A"));
  EXPECT_TRUE(traced("Unknown port ID subtype B"));
}

struct ReceiveUntracedTest : PortFixture {
  ReceiveUntracedTest() { Platform::traceLevelsIs(""); }
};

TEST_F(ReceiveUntracedTest, IdenticalRefreshCountsWhatAParseWouldCount) {
  const auto frame = hex(kMandatory + R"(
      14 01 aa              # reserved type 10: unrecognized
      0e 04 00 04 00 14     # inconsistent capabilities: discarded
      00 00)");
  for (int i = 0; i < 3; ++i) {
    now += 10;
    auto rs = receive(frame);
    ASSERT_TRUE(rs);
    EXPECT_EQ(rs->expiryTime(), now + 120);
    EXPECT_EQ(rs->lastRefreshTime(), now);
  }
  EXPECT_EQ(portStatus->rxFramesTotal(), 3u);
  EXPECT_EQ(portStatus->rxTLVsUnrecognizedTotal(), 3u);
  EXPECT_EQ(portStatus->rxTLVsDiscardedTotal(), 3u);
  EXPECT_EQ(portStatus->rxFramesErrors(), 3u);
  EXPECT_EQ(status->lastPacketParsedTime(), now);
}

TEST_F(ReceiveUntracedTest, ACeeTlvIsParsedOnEveryFrame) {
  auto withSeq = [&](uint8_t seq) {
    return hex(kMandatory + "fe 10 00 1b 21 02  00 00 01 01  00 00 00 0" +
               std::to_string(seq) + "  00 00 00 00  00 00");
  };
  receive(withSeq(5));
  portStatus->ceeSeqNumToAckIs(0);  // as if another neighbour on the port had spoken
  receive(withSeq(5));
  EXPECT_EQ(portStatus->ceeSeqNumToAck(), 5u);
}

}  // namespace
}  // namespace CodecTest
