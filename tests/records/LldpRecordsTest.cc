// LLDP records: bounds, printable identifiers, priority order, MSAP look-up, port queries, JSON.
#include <gtest/gtest.h>

#include "records/RecordsJson.h"
#include "records/AgentRecords.h"
#include "records/LldpRecords.h"

namespace Lldp {
namespace {

std::string bytes(std::initializer_list<int> b) {
  std::string s;
  for (int v : b) s.push_back(static_cast<char>(v));
  return s;
}

// The text of the range error a construction throws; empty when it throws none.
template <class F>
std::string rangeError(F make) {
  try {
    make();
  } catch (const std::range_error& e) {
    return e.what();
  }
  return "";
}

TEST(LldpRecordsTest, OutOfRangeValuesAreRefusedWithTheirTypeAndBound) {
  EXPECT_NE(rangeError([] { Platform::make<RemoteSystem>(0, Msap{}); }), "");  // indexes start at 1
  EXPECT_EQ(rangeError([] { Platform::make<RemoteSystem>(1, Msap{}); }), "");
  auto ps = Platform::make<PortStatus>("Ethernet1", 5.0);
  EXPECT_NE(rangeError([&] { ps->remoteSystemIs(0, Msap{}); }), "");
  EXPECT_EQ(ps->remoteSystems(), 0u);

  for (uint32_t bad : {0u, 8u, 127u}) {  // reserved types only
    EXPECT_EQ(rangeError([=] { UnknownTlv(bad, "x"); }), "UnknownTlv::type < 9 or > 126 not allowed") << bad;
  }
  EXPECT_EQ(UnknownTlv(9, "x").type(), 9u);
  EXPECT_EQ(UnknownTlv(126, "x").type(), 126u);
  EXPECT_NE(rangeError([] { UnknownOrgDefTlv::Key(kOuiDot1, 1, 0); }), "");

  EXPECT_EQ(rangeError([] { BoundedString255(std::string(256, 'a')); }),
            "BoundedString255::value::bytes > 255 not allowed");
  EXPECT_EQ(rangeError([] { ChassisId(std::string(256, 'a')); }), "ChassisId::value::bytes > 255 not allowed");
  EXPECT_NE(rangeError([] { ManAddress(std::string(32, 'a')); }), "");
  EXPECT_NE(rangeError([] { NamespaceName(std::string(151, 'a')); }), "");
}

TEST(LldpRecordsTest, ManagementAddressPriorityIteratesSmallestFirst) {
  auto ls = Platform::make<LocalSystem>();
  auto key = [](int last) { return ManagementAddress::Key{afIpv4, ManAddress(bytes({10, 0, 0, last}))}; };
  ls->managementAddressPrioIs(ManAddrPriority{ManAddrType::intf, 533781, 0, "Vlan1"}, key(3));
  ls->managementAddressPrioIs(ManAddrPriority{ManAddrType::intf, 2, 0, "Loopback0"}, key(1));
  ls->managementAddressPrioIs(ManAddrPriority{ManAddrType::intf, 2, 1, "Loopback0"}, key(2));
  ls->managementAddressPrioIs(ManAddrPriority{ManAddrType::sourceIntf, 900000, 0, "Vlan9"}, key(9));
  std::vector<int> order;
  for (const auto& [prio, k] : ls->managementAddressPrio()) order.push_back(static_cast<uint8_t>(k.address.view()[3]));
  EXPECT_EQ(order, (std::vector<int>{9, 1, 2, 3}));
}

TEST(LldpRecordsTest, IdentifiersPrintByTheirSubtype) {
  ChassisIdentifier mac{chassisIdMacAddress, ChassisId(bytes({0x00, 0x1c, 0x73, 0x01, 0x02, 0x03}))};
  EXPECT_EQ(mac.stringValue(), "00:1c:73:01:02:03");
  EXPECT_EQ(mac.stringValue(MacSeparator::dot), "001c.7301.0203");
  EXPECT_EQ(mac.stringValue(MacSeparator::colon, true), "00:1c:73:01:02:03");
  ChassisIdentifier v4{chassisIdNetworkAddress, ChassisId(bytes({1, 192, 0, 2, 1}))};
  EXPECT_EQ(v4.stringValue(), "192.0.2.1");
  ChassisIdentifier v6{chassisIdNetworkAddress,
                       ChassisId(bytes({2, 0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}))};
  EXPECT_EQ(v6.stringValue(), "2001:db8::1");
  PortIdentifier name{portIdInterfaceName, PortId("Ethernet1")};
  EXPECT_EQ(name.stringValue(), "Ethernet1");
  PortIdentifier raw{portIdLocal, PortId(bytes({0x01, 0x00, 0xff}))};
  EXPECT_EQ(raw.stringValue(), "01:00:ff");
  PortIdentifier macLike{portIdMacAddress, PortId(bytes({1, 2, 3}))};  // too short for a MAC
  EXPECT_EQ(macLike.stringValue(), "01:02:03");
}

TEST(LldpRecordsTest, MsapLooksUpFromFrameBytesWithoutCopy) {
  auto ps = Platform::make<PortStatus>("Ethernet1", 0.0);
  Msap msap{{chassisIdMacAddress, ChassisId(bytes({0, 1, 2, 3, 4, 5}))},
            {portIdInterfaceName, PortId("GigabitEthernet1/0/24")}};
  auto rs = ps->remoteSystemIs(1, msap);
  ps->remoteSystemByMsapIs(msap, rs);
  MsapView view{chassisIdMacAddress, msap.chassisIdentifier.value.view(), portIdInterfaceName,
                "GigabitEthernet1/0/24"};
  EXPECT_EQ(ps->remoteSystemByMsap(view), rs);
  view.portSubtype = portIdLocal;
  EXPECT_FALSE(ps->remoteSystemByMsap(view));
}

TEST(LldpRecordsTest, PortStatusQueriesLookAtEveryNeighbour) {
  auto ps = Platform::make<PortStatus>("Ethernet1", 0.0);
  auto a = ps->remoteSystemIs(1, Msap{});
  auto b = ps->remoteSystemIs(2, Msap{});
  EXPECT_FALSE(ps->anyLldpMedReceived());
  EXPECT_FALSE(ps->powerViaMdiTlvReceived());
  b->networkPolicyTlvIs(1, NetworkPolicyTlv{1});
  a->powerViaMdiTlvReceivedIs(true);
  EXPECT_FALSE(ps->anyLldpMedReceived());  // only the receive path knows which TLVs came
  b->lldpMedTlvReceivedIs(true);
  EXPECT_TRUE(ps->anyLldpMedReceived());
  EXPECT_TRUE(ps->networkPolicyTlvReceived());
  EXPECT_TRUE(ps->powerViaMdiTlvReceived());
}

TEST(LldpRecordsTest, LocalPortPoeInfoIsMadeOnce) {
  auto lp = Platform::make<LocalPort>("Ethernet1");
  EXPECT_FALSE(lp->localPortPoeInfo());
  auto poe = lp->initilizeLocalPortPoeInfo();
  EXPECT_EQ(lp->initilizeLocalPortPoeInfo(), poe);
}

TEST(LldpRecordsTest, RemoteSystemJsonUsesAttributeNames) {
  auto rs = Platform::make<RemoteSystem>(3, Msap{{chassisIdLocal, ChassisId("sw1")}, {portIdLocal, PortId("p1")}});
  rs->sysNameIs("switch");
  rs->managementAddressIs(ManagementAddress::Key{afIpv4, ManAddress(bytes({10, 1, 2, 3}))},
                          ManagementAddress(ManagementAddress::Key{afIpv4, ManAddress(bytes({10, 1, 2, 3}))}, 2, 7));
  auto j = Platform::recordToJson(*rs);
  EXPECT_EQ(j["index"], 3);
  EXPECT_EQ(j["sysName"], "switch");
  EXPECT_EQ(j["msap"]["chassisIdentifier"]["value"], "sw1");
  ASSERT_TRUE(j["managementAddress"].is_array());
  EXPECT_EQ(j["managementAddress"][0]["value"]["address"], "10.1.2.3");
  EXPECT_TRUE(j["vlanName"].is_array());
  EXPECT_TRUE(j.contains("assetIDTlvInfo"));
}

}  // namespace
}  // namespace Lldp
