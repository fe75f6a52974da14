// LLDP-MIB over hand-filled records: the object identifiers, the indexing (kernel interface
// index, time mark, neighbour index), values as the MIB encodes them, and walks that keep
// their order while the records change between requests.
#include <gmock/gmock.h>

#include "MibFixture.h"

namespace Snmp::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

const std::string kRem = "1.0.8802.1.1.2.1.4.1.1";  // lldpRemEntry

class LldpMibTest : public MibFixture {};

TEST_F(LldpMibTest, ScalarsAndLocalSystemReadTheRecords) {
  records_.config->messageTxIntervalIs(30);
  records_.config->messageTxHoldTimeIs(120);
  auto& ls = *records_.localSystem;
  ls.chassisIdentifierIs(Lldp::ChassisIdentifier{Lldp::chassisIdMacAddress, Lldp::ChassisId(bytes({2, 0, 0, 0, 0, 1}))});
  ls.sysNameIs(Lldp::BoundedString255("host\x01name"));
  ls.sysCapSupportedIs(Lldp::SystemCapabilitiesMap{0x0014});  // bridge, router
  ls.sysCapEnabledIs(Lldp::SystemCapabilitiesMap{0x0104});    // bridge, C-VLAN component (beyond the MIB's 8 bits)

  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.1.0"), Value::integer(30));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.2.0"), Value::integer(4));  // 120 s is 4 times 30 s
  records_.config->messageTxHoldTimeIs(1000);
  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.2.0"), Value::integer(10));  // within the MIB's range
  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.5.0"), Value::integer(5));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.1.0"), Value::integer(4));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.2.0"), Value::octets(bytes({2, 0, 0, 0, 0, 1})));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.3.0"), Value::octets("host\x01name"));  // bytes as they are
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.5.0"), Value::octets(bytes({0x28})));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.6.0"), Value::octets(bytes({0x20, 0x80})));

  // A GET of something that is not an instance: no such instance inside an object, no such
  // object elsewhere.
  EXPECT_EQ(mib().get(oid("1.0.8802.1.1.2.1.3.3.1")).miss, MibTree::Miss::noSuchInstance);
  EXPECT_FALSE(mib().get(oid("1.0.8802.1.1.2.1.3.3.1")).value);
  EXPECT_EQ(mib().get(oid("1.0.8802.1.1.2.1.3.99.0")).miss, MibTree::Miss::noSuchObject);
  EXPECT_EQ(mib().get(oid("1.0.8802.1.1.2.1.4.1.1.5")).miss, MibTree::Miss::noSuchInstance);
}

TEST_F(LldpMibTest, PortsAreNumberedByTheKernelIndexAndLeftOutWithoutOne) {
  portIs("eth2", 7);
  portIs("eth1", 3);
  portIs("eth9", 0);  // not (or no longer) known to the kernel
  records_.config->portConfig(Konet::IntfId("eth1"))->adminStatusIs(Lldp::AdminStatus::rxOnly);
  records_.config->portConfig(Konet::IntfId("eth1"))->enabledTlvsIs(Lldp::PortConfig::EnabledTlvs{1 | 8});
  portStatus("eth2")->txFramesTotalInc(12);
  portStatus("eth2")->rxAgeoutsTotalInc(2);

  EXPECT_THAT(walk("1.0.8802.1.1.2.1.3.7.1.3"),
              ElementsAre(Pair("1.0.8802.1.1.2.1.3.7.1.3.3", Value::octets("eth1")),
                          Pair("1.0.8802.1.1.2.1.3.7.1.3.7", Value::octets("eth2"))));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.7.1.2.3"), Value::integer(5));  // interfaceName(5)
  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.6.1.2.3"), Value::integer(2));  // rxOnly(2)
  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.6.1.2.7"), Value::integer(3));  // txAndRx(3)
  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.6.1.3.7"), Value::truth(false));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.6.1.4.3"), Value::octets(bytes({0x90})));  // portDesc(0), sysCap(3)
  EXPECT_EQ(get("1.0.8802.1.1.2.1.2.6.1.2.7"), Value::counter32(12));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.2.7.1.7.7"), Value::gauge32(2));

  // The kernel renumbers a port (it was made again): the tables follow at the next request.
  records_.kernelNetInfo->deviceIs("eth2", KernelNetInfo::Device{12, {}});
  EXPECT_FALSE(get("1.0.8802.1.1.2.1.3.7.1.3.7"));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.7.1.3.12"), Value::octets("eth2"));
}

TEST_F(LldpMibTest, RemoteRowsAreIndexedByTimeMarkPortAndNeighbourIndex) {
  portIs("eth1", 3);
  portIs("eth2", 7);
  mib().data().uptimeIs(MasterUptime{100.0, 5000});  // sysUpTime 50 s at agent time 100 s
  neighbourIs("eth2", 1, "b", 101.5);  // changed 1.5 s later: time mark 5150
  neighbourIs("eth1", 4, "a", 40.0);   // before the master started: time mark 0
  auto c = neighbourIs("eth1", 5, "c", 101.5);
  c->sysNameIs(Lldp::BoundedString255("gamma"));

  EXPECT_THAT(walk(kRem + ".5"), ElementsAre(Pair(kRem + ".5.0.3.4", Value::octets("a")),
                                             Pair(kRem + ".5.5150.3.5", Value::octets("c")),
                                             Pair(kRem + ".5.5150.7.1", Value::octets("b"))));
  // TimeFilter: from time mark 0 every row is found; a later one finds the rows changed since.
  EXPECT_EQ(get(kRem + ".9.5150.3.5"), Value::octets("gamma"));
  EXPECT_EQ(get(kRem + ".9.0.3.5"), Value::octets("gamma"));
  EXPECT_EQ(get(kRem + ".9.5000.3.5"), Value::octets("gamma"));
  EXPECT_EQ(get(kRem + ".9.5151.3.5"), std::nullopt) << "not changed since 5151";
  EXPECT_EQ(get("1.0.8802.1.1.2.1.4.2.1.3.0.3.5.1.4.192.0.2.1"), std::nullopt) << "no such address";
  auto since = mib().next(oid(kRem + ".5.5000"), false);
  ASSERT_TRUE(since);
  EXPECT_EQ(oidText(since->oid), kRem + ".5.5150.3.5");
  EXPECT_EQ(get(kRem + ".4.0.3.4"), Value::integer(Lldp::chassisIdLocal));
  EXPECT_EQ(get(kRem + ".7.0.3.4"), Value::octets("pa"));

  // A change moves the row to a later time mark, even within the same hundredth of a second:
  // a manager never sees one row under one index with values of two states.
  c->sysNameIs(Lldp::BoundedString255("gamma2"));
  c->lastChangeTimeIs(101.501);
  records_.status->remTablesLastChangeTimeIs(101.501);
  EXPECT_EQ(get(kRem + ".9.5151.3.5"), Value::octets("gamma2"));
  std::vector<std::string> rows;
  for (const auto& [o, v] : walk(kRem + ".9")) rows.push_back(o.substr(kRem.size() + 3));
  EXPECT_THAT(rows, ElementsAre("0.3.4", "5150.7.1", "5151.3.5")) << "the changed row moved on, once";

  // A neighbour gone is gone from the walk; one added appears.
  portStatus("eth1")->remoteSystemDel(4);
  neighbourIs("eth2", 2, "d", 0);
  std::vector<std::string> names;
  for (const auto& [o, v] : walk(kRem + ".5")) names.push_back(v.bytes);
  EXPECT_THAT(names, ElementsAre("d", "b", "c"));
}

TEST_F(LldpMibTest, RemoteCollectionsHaveTheirOwnIndexes) {
  portIs("eth1", 3);
  auto rs = neighbourIs("eth1", 2, "a");
  rs->managementAddressIs(Lldp::ManagementAddress::Key{Lldp::afIpv4, Lldp::ManAddress(bytes({192, 0, 2, 1}))},
                          Lldp::ManagementAddress({Lldp::afIpv4, Lldp::ManAddress(bytes({192, 0, 2, 1}))},
                                                  Lldp::ifNumberingIfIndex, 3, {1, 3, 6, 1}));
  rs->unknownTlvIs(9, Lldp::UnknownTlv(9, Lldp::BoundedString511(bytes({1, 2}))));
  const Lldp::UnknownOrgDefTlv::Key key(Lldp::Oui(0x00aabb), 7, 2);
  rs->unknownOrgDefTlvIs(key, Lldp::UnknownOrgDefTlv{key, Lldp::BoundedString507("xyz")});

  EXPECT_THAT(walk("1.0.8802.1.1.2.1.4.2"),
              ElementsAre(Pair("1.0.8802.1.1.2.1.4.2.1.3.0.3.2.1.4.192.0.2.1", Value::integer(2)),
                          Pair("1.0.8802.1.1.2.1.4.2.1.4.0.3.2.1.4.192.0.2.1", Value::integer(3)),
                          Pair("1.0.8802.1.1.2.1.4.2.1.5.0.3.2.1.4.192.0.2.1", Value::objectId({1, 3, 6, 1}))));
  EXPECT_THAT(walk("1.0.8802.1.1.2.1.4.3"),
              ElementsAre(Pair("1.0.8802.1.1.2.1.4.3.1.2.0.3.2.9", Value::octets(bytes({1, 2})))));
  EXPECT_THAT(walk("1.0.8802.1.1.2.1.4.4"),
              ElementsAre(Pair("1.0.8802.1.1.2.1.4.4.1.4.0.3.2.0.170.187.7.2", Value::octets("xyz"))));
}

TEST_F(LldpMibTest, LocalManagementAddressesAreTheAdvertisedOnes) {
  portIs("eth1", 3);
  portIs("eth2", 12);
  records_.config->portConfig(Konet::IntfId("eth2"))->mgmtAddrTxEnableIs(false);
  auto& ls = *records_.localSystem;
  const auto addr = [](int last) {
    return Lldp::ManagementAddress({Lldp::afIpv4, Lldp::ManAddress(bytes({10, 0, 0, last}))}, Lldp::ifNumberingIfIndex, 3);
  };
  ls.managementAddressIs(addr(1).key(), addr(1));
  ls.managementAddressIs(addr(2).key(), addr(2));
  ls.managementAddressPrioIs(Lldp::ManAddrPriority{Lldp::ManAddrType::intf, 2, 0, "eth1"}, addr(2).key());
  ls.managementAddressPrioIs(Lldp::ManAddrPriority{Lldp::ManAddrType::intf, 3, 0, "eth1"}, addr(1).key());
  // One address is sent (the default limit): the preferred one.
  EXPECT_THAT(walk("1.0.8802.1.1.2.1.3.8.1.3"),
              ElementsAre(Pair("1.0.8802.1.1.2.1.3.8.1.3.1.4.10.0.0.2", Value::integer(5))));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.8.1.6.1.4.10.0.0.2"), Value::objectId({0, 0}));
  // Sent on port 3, not on port 12: bits from the most significant, two octets to reach 12.
  EXPECT_EQ(get("1.0.8802.1.1.2.1.1.7.1.1.1.4.10.0.0.2"), Value::octets(bytes({0x20, 0x00})));
  records_.config->maxTxMgmtAddrsIs(2);
  EXPECT_EQ(walk("1.0.8802.1.1.2.1.3.8.1.3").size(), 2u);
  // Addresses of other families have longer indexes; the order is still the identifiers' order.
  const Lldp::ManagementAddress v6({Lldp::afIpv6, Lldp::ManAddress(std::string(15, '\0') + "\x01")}, Lldp::ifNumberingIfIndex, 3);
  ls.ip6ManagementAddressIs(v6);
  const auto rows = walk("1.0.8802.1.1.2.1.3.8.1.4");
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[2].first, "1.0.8802.1.1.2.1.3.8.1.4.2.16.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.1");
  EXPECT_EQ(get(rows[2].first), Value::integer(Lldp::ifNumberingIfIndex));
  EXPECT_EQ(get("1.0.8802.1.1.2.1.3.8.1.4.1.4.10.0.0.1"), Value::integer(Lldp::ifNumberingIfIndex));
}

TEST_F(LldpMibTest, NextRespectsTheSearchRangeAndInclusiveStart) {
  portIs("eth1", 3);
  neighbourIs("eth1", 1, "a");
  neighbourIs("eth1", 2, "b");
  const Oid first = oid(kRem + ".5.0.3.1");
  auto at = mib().next(first, true);
  ASSERT_TRUE(at);
  EXPECT_EQ(at->oid, first);
  // The range ends before the second row: nothing inside it.
  EXPECT_FALSE(mib().next(first, false, oid(kRem + ".5.0.3.2")));
  EXPECT_TRUE(mib().next(first, false, oid(kRem + ".5.0.3.3")));
  // Index values far beyond any real one, and partial indexes, still order correctly.
  auto past = mib().next(oid(kRem + ".5.4294967295"), false);
  ASSERT_TRUE(past);
  EXPECT_EQ(oidText(past->oid), kRem + ".6.0.3.1");
  auto partial = mib().next(oid(kRem + ".5.0.3"), false);
  ASSERT_TRUE(partial);
  EXPECT_EQ(oidText(partial->oid), kRem + ".5.0.3.1");
  // After the last LLDP-MIB object there is nothing.
  EXPECT_FALSE(mib().next(oid("1.0.8802.1.1.2.2"), false));
}

}  // namespace
}  // namespace Snmp::Test
