// The Linux mapping: kernel facts (built directly, or as libnl-built rtnetlink messages) into
// the interface, address and bridging records, and convergence without rewrites.
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <netlink/addr.h>
#include <netlink/msg.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>

#include "HostFixture.h"
#include "input/LldpInputSm.h"
#include "linux/HostState.h"
#include "linux/IntfSelection.h"
#include "linux/NetlinkParse.h"
#include "platform/Reactor.h"

namespace {

using Linux::LinkFacts;
using Kind = Konet::IntfId::Kind;

LinkFacts wire(int32_t ifIndex, const std::string& name, const std::string& kind = "veth") {
  LinkFacts l;
  l.ifIndex = ifIndex;
  l.name = name;
  l.kind = kind;
  l.arpType = ARPHRD_ETHER;
  l.flags = IFF_UP | IFF_RUNNING;
  l.operState = IF_OPER_UP;
  l.addr = Konet::EthAddr(2, 0, 0, 0, 0, static_cast<uint8_t>(ifIndex));
  l.mtu = 1500;
  return l;
}

class HostStateTest : public ::testing::Test {
 protected:
  void TearDown() override { Konet::IntfPlatformTable::clear(); }
  // Files the links and flushes, as the end of a batch of kernel messages does.
  void linksAre(std::initializer_list<LinkFacts> links) {
    for (const LinkFacts& l : links) state.linkIs(l);
    state.flush();
  }
  Linux::HostRecords r = HostTest::hostRecords();
  Linux::HostState state{r};
};

TEST_F(HostStateTest, KernelLinkTypeDecidesWhichLinksArePorts) {
  LinkFacts lo = wire(1, "lo", "");
  lo.arpType = ARPHRD_LOOPBACK;
  state.linkIs(lo);
  state.linkIs(wire(2, "uplink"));            // a veth with a free name
  state.linkIs(wire(3, "eno1", ""));          // a NIC
  state.linkIs(wire(4, "br0", "bridge"));
  state.linkIs(wire(5, "bond0", "bond"));
  state.linkIs(wire(6, "dummy0", "dummy"));
  LinkFacts vlan = wire(7, "eth0.10", "vlan");
  vlan.vlanId = 10;
  state.linkIs(vlan);
  state.linkIs(wire(8, "gre1", "gre"));
  state.linkIs(wire(9, "Ethernet5", "vxlan"));  // a switch-like name on a tunnel
  state.flush();

  const auto& phy = *r.ethPhyIntfStatusDir;
  EXPECT_TRUE(phy.intfStatusHas("uplink"));
  EXPECT_TRUE(phy.intfStatusHas("eno1"));
  EXPECT_EQ(phy.intfStatuss(), 2u);
  EXPECT_EQ(r.allIntfStatusDir->intfStatuss(), 9u);
  EXPECT_EQ(Konet::IntfId("uplink").kind(), Kind::ethernet);
  EXPECT_EQ(Konet::IntfId("bond0").kind(), Kind::portChannel);
  EXPECT_EQ(Konet::IntfId("dummy0").kind(), Kind::loopback);
  EXPECT_EQ(Konet::IntfId("eth0.10").kind(), Kind::vlan);
  EXPECT_EQ(Konet::IntfId("eth0.10").number(), 10u);
  EXPECT_EQ(Konet::IntfId("br0").kind(), Kind::vlan);
  EXPECT_EQ(Konet::IntfId("gre1").kind(), Kind::other);
  EXPECT_EQ(Konet::IntfId("Ethernet5").kind(), Kind::other);
  EXPECT_TRUE(Lldp::Agent::Input::lldpCapable("uplink"));
  EXPECT_FALSE(Lldp::Agent::Input::lldpCapable("Ethernet5"));

  // Deleting the link forgets the kind: the name decides again.
  state.linkDel(9);
  state.flush();
  EXPECT_EQ(Konet::IntfId("Ethernet5").kind(), Kind::ethernet);
  EXPECT_FALSE(r.allIntfStatusDir->intfStatusHas("Ethernet5"));
}

TEST_F(HostStateTest, PortStatusFollowsTheLink) {
  LinkFacts l = wire(2, "uplink");
  l.alias = "to spine 1";
  l.mtu = 9000;
  linksAre({l});
  auto s = r.ethPhyIntfStatusDir->intfStatus("uplink");
  ASSERT_TRUE(s);
  EXPECT_EQ(s->linkStatus(), Interface::LinkStatus::linkUp);
  EXPECT_EQ(s->forwardingModel(), Interface::ForwardingModel::routed);
  EXPECT_EQ(s->maxMtu(), 9000u);
  EXPECT_EQ(s->deviceName(), "uplink");
  EXPECT_EQ(r.ethPhyIntfConfigDir->intfConfig("uplink")->description(), "to spine 1");
  EXPECT_EQ(r.allIntfStatusDir->intfStatus("uplink")->ifIndex(), 2);
  EXPECT_EQ(r.bridgingHwCapabilities->maxFrameSize(), 9018);

  struct Case {
    int oper;
    unsigned flags;
    Interface::LinkStatus expected;
  };
  for (const Case& c : {Case{IF_OPER_DOWN, IFF_UP, Interface::LinkStatus::linkDown},
                        Case{IF_OPER_LOWERLAYERDOWN, IFF_UP, Interface::LinkStatus::linkDown},
                        Case{IF_OPER_UNKNOWN, IFF_UP | IFF_RUNNING, Interface::LinkStatus::linkUp},
                        Case{IF_OPER_UNKNOWN, IFF_UP, Interface::LinkStatus::linkDown},
                        Case{IF_OPER_TESTING, IFF_UP, Interface::LinkStatus::unknown}}) {
    l.operState = static_cast<uint8_t>(c.oper);
    l.flags = c.flags;
    linksAre({l});
    EXPECT_EQ(s->linkStatus(), c.expected) << c.oper;
  }
  // The same entity all along: watchers never saw the port go away.
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("uplink"), s);
}

TEST_F(HostStateTest, BondMembersUseTheirPermanentMacAndFollowTheBondsRole) {
  state.linkIs(wire(10, "br0", "bridge"));
  LinkFacts bond = wire(11, "bond0", "bond");
  bond.master = 10;
  state.linkIs(bond);
  for (int i : {12, 13}) {
    LinkFacts m = wire(i, "m" + std::to_string(i));
    m.master = 11;
    m.slaveKind = "bond";
    m.permAddr = Konet::EthAddr(0x0a, 0, 0, 0, 0, static_cast<uint8_t>(i));
    m.addr = bond.addr;
    state.linkIs(m);
  }
  state.flush();
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("m12")->addr(), Konet::EthAddr(0x0a, 0, 0, 0, 0, 12));
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("m13")->addr(), Konet::EthAddr(0x0a, 0, 0, 0, 0, 13));
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("m12")->forwardingModel(), Interface::ForwardingModel::bridged);
  auto lag = r.ethLagIntfStatusDir->intfStatus("bond0");
  ASSERT_TRUE(lag);
  EXPECT_EQ(lag->members(), 2u);
  // The bond, not its members, is the bridge port.
  EXPECT_TRUE(r.bridgingConfig->switchIntfConfigHas("bond0"));
  EXPECT_FALSE(r.bridgingConfig->switchIntfConfigHas("m12"));

  // Leaving the bond: out of the LAG, routed, and its own MAC again.
  LinkFacts m = *state.link(13);
  m.master = 0;
  m.slaveKind.clear();
  m.addr = Konet::EthAddr(0x0a, 0, 0, 0, 0, 13);
  linksAre({m});
  EXPECT_EQ(lag->members(), 1u);
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("m13")->forwardingModel(), Interface::ForwardingModel::routed);
}

// The kernel keeps no permanent MAC for a veth in a team; the port keeps the one it had before.
TEST_F(HostStateTest, TeamMembersKeepTheMacTheyHadBeforeJoining) {
  LinkFacts team = wire(20, "team0", "team");
  state.linkIs(team);
  LinkFacts a = wire(21, "t1"), b = wire(22, "t2");
  const Konet::EthAddr ownA = a.addr, ownB = b.addr;
  linksAre({a, b});
  auto join = [&](LinkFacts& m) {
    m.master = 20;
    m.slaveKind = "team";
    state.linkIs(m);
  };
  // t1 joins and then takes the team's MAC; t2 is given the team's MAC just before it joins.
  join(a);
  a.addr = team.addr;
  state.linkIs(a);
  b.addr = team.addr;
  state.linkIs(b);
  join(b);
  state.flush();
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("t1")->addr(), ownA);
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("t2")->addr(), ownB);
  // A NIC's burnt-in MAC, when the kernel gives one, wins.
  LinkFacts nic = wire(23, "eno3", "");
  nic.permAddr = Konet::EthAddr(0x0c, 0, 0, 0, 0, 3);
  join(nic);
  state.flush();
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("eno3")->addr(), nic.permAddr);

  // A resync that finds them unchanged rewrites nothing; out of the team, the kernel's address counts.
  const uint64_t writes = state.intfWrites();
  state.resyncBegins();
  for (const LinkFacts* l : {&team, &a, &b, &nic}) state.linkIs(*l);
  state.sweepLinks();
  state.flush();
  EXPECT_EQ(state.intfWrites(), writes);
  a.master = 0;
  a.slaveKind.clear();
  linksAre({a});
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("t1")->addr(), team.addr);
}

// One frame size for every port: the smallest MTU + 18, a management port's own MTU aside.
TEST_F(HostStateTest, FrameSizeIsTheSmallestPortMtu) {
  LinkFacts big = wire(2, "p2"), small = wire(3, "p3"), mgmt = wire(4, "mgmt0");
  big.mtu = 9000;
  small.mtu = 1500;
  mgmt.mtu = 1280;
  linksAre({big, small, mgmt});
  EXPECT_EQ(Konet::IntfId("mgmt0").kind(), Kind::management);
  EXPECT_EQ(r.bridgingHwCapabilities->maxFrameSize(), 1518);
  small.mtu = 9216;
  linksAre({small});
  EXPECT_EQ(r.bridgingHwCapabilities->maxFrameSize(), 9018);
  state.intfSelectionIs(Linux::IntfSelection({}, {"p2"}));  // an excluded port does not count
  EXPECT_EQ(r.bridgingHwCapabilities->maxFrameSize(), 9234);
  small.mtu = 65535;  // clamped to what 16 bits carry
  linksAre({small});
  EXPECT_EQ(r.bridgingHwCapabilities->maxFrameSize(), 65535);
}

TEST_F(HostStateTest, VlanAwareBridgeGivesPvidModeAndChassisMac) {
  LinkFacts nic = wire(2, "eno1", "");
  nic.permAddr = Konet::EthAddr(0x0c, 0, 0, 0, 0, 1);
  linksAre({nic});
  EXPECT_EQ(r.bridgingConfig->bridgeMacAddr(), nic.permAddr);  // lowest NIC's permanent MAC

  LinkFacts br = wire(20, "br0", "bridge");
  br.vlanFiltering = true;
  br.defaultPvid = 1;
  state.linkIs(br);
  LinkFacts p = wire(21, "swp1");
  p.master = 20;
  state.linkIs(p);
  state.bridgePortIs(21, 10, false);
  state.flush();
  EXPECT_EQ(r.bridgingConfig->bridgeMacAddr(), br.addr);
  auto sw = r.bridgingConfig->switchIntfConfig("swp1");
  ASSERT_TRUE(sw);
  EXPECT_EQ(sw->switchportMode(), Bridging::SwitchportMode::access);
  EXPECT_EQ(sw->nativeVlan().value(), 10);
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("swp1")->forwardingModel(), Interface::ForwardingModel::bridged);

  state.bridgePortIs(21, 20, true);
  state.flush();
  EXPECT_EQ(sw->switchportMode(), Bridging::SwitchportMode::trunk);
  EXPECT_EQ(sw->nativeVlan().value(), 20);

  // A later link message does not undo the VLANs; a configured MAC beats every bridge.
  linksAre({p});
  EXPECT_EQ(sw->nativeVlan().value(), 20);
  state.bridgeMacAddrOverrideIs(Konet::EthAddr(0x0e, 1, 2, 3, 4, 5));
  EXPECT_EQ(r.bridgingConfig->bridgeMacAddr(), Konet::EthAddr(0x0e, 1, 2, 3, 4, 5));

  // Out of the bridge: no switching details.
  p.master = 0;
  state.linkIs(p);
  state.bridgePortDel(21);
  state.flush();
  EXPECT_FALSE(r.bridgingConfig->switchIntfConfigHas("swp1"));
}

TEST_F(HostStateTest, Ipv4PrimarySecondaryAndVrf) {
  state.linkIs(wire(30, "blue", "vrf"));
  LinkFacts p = wire(31, "uplink");
  state.linkIs(p);
  const Arnet::IpAddrWithMask a{*Arnet::IpAddr::parse("10.0.0.9"), 24};
  const Arnet::IpAddrWithMask b{*Arnet::IpAddr::parse("10.0.0.2"), 24};
  const Arnet::IpAddrWithMask c{*Arnet::IpAddr::parse("192.168.1.1"), 24};
  state.ip4Is(31, {a, false});
  state.ip4Is(31, {b, true});
  state.ip4Is(31, {c, false});
  state.flush();
  auto ip = r.ipStatus->ipIntfStatus("uplink");
  ASSERT_TRUE(ip);
  EXPECT_EQ(ip->activeAddrWithMask(), a);  // the smallest primary
  EXPECT_EQ(ip->secondaryWithMasks(), 2u);
  EXPECT_EQ(ip->vrf().str(), "default");

  p.master = 30;
  linksAre({p});
  EXPECT_EQ(ip->vrf().str(), "blue");

  state.ip4Del(31, a);
  state.flush();
  EXPECT_EQ(ip->activeAddrWithMask(), c);
  EXPECT_EQ(ip->secondaryWithMasks(), 1u);
  state.ip4Del(31, b);
  state.ip4Del(31, c);
  state.flush();
  EXPECT_FALSE(r.ipStatus->ipIntfStatusHas("uplink"));
}

// Tunnels and the like have no band of their own and would take priority 0, ahead of every
// loopback and NIC: their IPv4 addresses are left out (IPv6 stays, for the operator to name).
TEST_F(HostStateTest, AddressesOfLinksThatAreNoWireAreLeftOut) {
  for (const auto& [index, kind] : std::vector<std::pair<int32_t, std::string>>{
           {40, "wireguard"}, {41, "vxlan"}, {42, "tun"}, {43, "macvlan"}, {44, "gre"}}) {
    state.linkIs(wire(index, "t" + std::to_string(index), kind));
    state.ip4Is(index, {{*Arnet::IpAddr::parse("10.9.0." + std::to_string(index)), 24}, false});
  }
  state.linkIs(wire(45, "eno1", ""));
  state.ip4Is(45, {{*Arnet::IpAddr::parse("192.0.2.1"), 24}, false});
  const Arnet::Ip6AddrWithMask v6{*Arnet::Ip6Addr::parse("2001:db8::40"), 64};
  state.ip6Is(40, v6);
  state.flush();
  EXPECT_EQ(r.ipStatus->ipIntfStatuss(), 1u);
  EXPECT_TRUE(r.ipStatus->ipIntfStatusHas("eno1"));
  EXPECT_TRUE(r.ip6Status->intfHas("t40"));
}

// A port moved into the management VRF becomes a management port: its records are made again
// so that the agent takes it as one (and back again when it leaves).
TEST_F(HostStateTest, APortMovedIntoOrOutOfTheManagementVrfIsMadeAgainUnderItsNewKind) {
  state.linkIs(wire(50, "mgmt", "vrf"));
  LinkFacts p = wire(51, "oob");
  linksAre({p});
  const auto before = r.ethPhyIntfStatusDir->intfStatus("oob");
  ASSERT_TRUE(before);
  EXPECT_EQ(Konet::IntfId("oob").kind(), Kind::ethernet);
  p.master = 50;
  linksAre({p});
  const auto inside = r.ethPhyIntfStatusDir->intfStatus("oob");
  ASSERT_TRUE(inside);
  EXPECT_NE(inside, before);
  EXPECT_EQ(Konet::IntfId("oob").kind(), Kind::management);
  EXPECT_EQ(inside->intfId().kind(), Kind::management);
  p.master = 0;
  linksAre({p});
  EXPECT_NE(r.ethPhyIntfStatusDir->intfStatus("oob"), inside);
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("oob")->intfId().kind(), Kind::ethernet);
}

TEST_F(HostStateTest, RenameMovesTheRecordsAndSelectionDropsPorts) {
  linksAre({wire(2, "eth1"), wire(3, "eth2")});
  linksAre({wire(2, "uplink")});
  EXPECT_FALSE(r.ethPhyIntfStatusDir->intfStatusHas("eth1"));
  EXPECT_TRUE(r.ethPhyIntfStatusDir->intfStatusHas("uplink"));
  EXPECT_FALSE(r.kernelNetInfo->deviceHas("eth1"));
  EXPECT_EQ(r.kernelNetInfo->device("uplink").ifIndex, 2);

  state.intfSelectionIs(Linux::IntfSelection({"eth*", "upl*"}, {"!eth*", "eth2"}));
  EXPECT_FALSE(r.ethPhyIntfStatusDir->intfStatusHas("eth2"));
  EXPECT_TRUE(r.ethPhyIntfStatusDir->intfStatusHas("uplink"));
  EXPECT_TRUE(r.allIntfStatusDir->intfStatusHas("eth2"));  // still an interface, just no LLDP port
  state.intfSelectionIs({});
  EXPECT_TRUE(r.ethPhyIntfStatusDir->intfStatusHas("eth2"));
}

TEST(IntfSelectionTest, LastMatchingPatternDecides) {
  using Linux::IntfSelection;
  EXPECT_TRUE(IntfSelection().selected("anything"));
  const IntfSelection s({"swp*", "!swp1?"}, {"swp3"});
  EXPECT_TRUE(s.selected("swp1"));
  EXPECT_FALSE(s.selected("swp12"));
  EXPECT_FALSE(s.selected("swp3"));
  EXPECT_FALSE(s.selected("eth0"));
  EXPECT_TRUE(IntfSelection::listMatches({"!a*", "ab*"}, "abc"));
  EXPECT_FALSE(IntfSelection::listMatches({"ab*", "!a*"}, "abc"));
}

// Counts every notification of the records it watches.
struct ChangeCounter : Platform::Reactor {
  template <class E>
  void count(const Platform::Ptr<E>& e) {
    watchAll<&ChangeCounter::changed>(e);
  }
  void changed() { ++changes; }
  int changes = 0;
};

TEST_F(HostStateTest, ResyncWithAnUnchangedKernelRewritesNothing) {
  auto addAll = [&] {
    state.linkIs(wire(2, "uplink"));
    state.linkIs(wire(3, "bond0", "bond"));
    LinkFacts m = wire(4, "m4");
    m.master = 3;
    state.linkIs(m);
    state.ip4Is(2, {{*Arnet::IpAddr::parse("10.1.1.1"), 24}, false});
    Arnet::Ip6AddrWithMask v6{*Arnet::Ip6Addr::parse("2001:db8::1"), 64};
    state.ip6Is(2, v6);
  };
  addAll();
  state.flush();
  const uint64_t writes = state.intfWrites();
  auto phy = r.ethPhyIntfStatusDir->intfStatus("uplink");
  auto ip = r.ipStatus->ipIntfStatus("uplink");
  auto ip6 = r.ip6Status->intf("uplink");
  ChangeCounter counter;
  counter.count(phy);
  counter.count(ip);
  counter.count(ip6);
  counter.count(r.ethPhyIntfStatusDir);
  counter.count(r.ipStatus);
  counter.count(r.ip6Status);
  counter.count(r.ethLagIntfStatusDir);
  counter.count(r.bridgingConfig);
  counter.count(r.bridgingHwCapabilities);
  const int& changes = counter.changes;

  state.resyncBegins();
  addAll();
  state.sweepLinks();
  state.sweepBridgePorts();
  state.sweepIp4();
  state.sweepIp6();
  state.flush();
  EXPECT_EQ(state.intfWrites(), writes);
  EXPECT_EQ(changes, 0);

  // A resync that misses an address and a link removes exactly those.
  state.resyncBegins();
  state.linkIs(wire(2, "uplink"));
  state.linkIs(wire(3, "bond0", "bond"));
  state.sweepLinks();
  state.sweepIp4();
  state.sweepIp6();
  state.flush();
  EXPECT_FALSE(r.ethPhyIntfStatusDir->intfStatusHas("m4"));
  EXPECT_FALSE(r.ipStatus->ipIntfStatusHas("uplink"));
  EXPECT_EQ(r.ethLagIntfStatusDir->intfStatus("bond0")->members(), 0u);
  EXPECT_TRUE(r.ethPhyIntfStatusDir->intfStatusHas("uplink"));
}

// Notifications lost while a link was deleted and made again under its name: the resync's dump
// reports the new link in one part, a flush files it, and the sweep at the end finds the old
// one gone. The name's records stay, the new link's.
TEST_F(HostStateTest, ResyncAcrossALinkMadeAgainUnderItsNameEndsWithTheKernelsState) {
  linksAre({wire(5, "veth0"), wire(6, "other")});
  ASSERT_EQ(r.allIntfStatusDir->intfStatus("veth0")->ifIndex(), 5);

  state.resyncBegins();
  LinkFacts again = wire(9, "veth0");
  again.mtu = 9000;
  state.linkIs(again);  // the first part of the dump
  state.flush();        // the end of a batch of datagrams
  state.linkIs(wire(6, "other"));
  state.sweepLinks();   // the dump is complete: ifindex 5 is gone
  state.flush();
  ASSERT_TRUE(r.ethPhyIntfStatusDir->intfStatusHas("veth0"));
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatus("veth0")->maxMtu(), 9000u);
  EXPECT_EQ(r.allIntfStatusDir->intfStatus("veth0")->ifIndex(), 9);
  EXPECT_EQ(r.kernelNetInfo->device("veth0").ifIndex, 9);
  EXPECT_EQ(Konet::IntfId("veth0").kind(), Kind::ethernet);
  EXPECT_TRUE(r.ethPhyIntfStatusDir->intfStatusHas("other"));
  EXPECT_EQ(state.links(), 2u);

  // The same with the name moving to a link that already existed under another name.
  state.resyncBegins();
  linksAre({wire(6, "veth0")});
  state.sweepLinks();
  state.flush();
  EXPECT_EQ(r.allIntfStatusDir->intfStatus("veth0")->ifIndex(), 6);
  EXPECT_FALSE(r.ethPhyIntfStatusDir->intfStatusHas("other"));
  EXPECT_EQ(r.ethPhyIntfStatusDir->intfStatuss(), 1u);
}

// libnl builds the messages the kernel would send; the parse path turns them into records.
TEST_F(HostStateTest, RtnetlinkMessagesThroughLibnl) {
  rtnl_link* link = rtnl_link_alloc();
  rtnl_link_set_ifindex(link, 7);
  rtnl_link_set_name(link, "uplink");  // a NIC: a veth request would carry its peer, which no kernel message does
  rtnl_link_set_mtu(link, 1400);
  rtnl_link_set_ifalias(link, "to the core");
  rtnl_link_set_flags(link, IFF_UP | IFF_RUNNING);
  rtnl_link_set_operstate(link, IF_OPER_UP);
  nl_addr* mac = nullptr;
  ASSERT_EQ(nl_addr_parse("02:00:00:00:00:07", AF_LLC, &mac), 0);
  rtnl_link_set_addr(link, mac);
  nl_msg* msg = nullptr;
  ASSERT_EQ(rtnl_link_build_add_request(link, 0, &msg), 0);
  nlmsghdr* hdr = nlmsg_hdr(msg);
  static_cast<ifinfomsg*>(nlmsg_data(hdr))->ifi_type = ARPHRD_ETHER;  // the kernel sets the type
  EXPECT_EQ(Linux::applyRtnlMessage(hdr, state), Linux::RtnlResult::applied);
  nlmsg_free(msg);
  state.flush();
  auto s = r.ethPhyIntfStatusDir->intfStatus("uplink");
  ASSERT_TRUE(s);
  EXPECT_EQ(s->maxMtu(), 1400u);
  EXPECT_EQ(s->addr(), Konet::EthAddr(2, 0, 0, 0, 0, 7));
  EXPECT_EQ(r.ethPhyIntfConfigDir->intfConfig("uplink")->description(), "to the core");

  rtnl_addr* addr = rtnl_addr_alloc();
  rtnl_addr_set_ifindex(addr, 7);
  nl_addr* local = nullptr;
  ASSERT_EQ(nl_addr_parse("2001:db8::7/64", AF_INET6, &local), 0);
  rtnl_addr_set_local(addr, local);
  rtnl_addr_set_scope(addr, RT_SCOPE_UNIVERSE);
  rtnl_addr_set_flags(addr, IFA_F_TENTATIVE);
  ASSERT_EQ(rtnl_addr_build_add_request(addr, 0, &msg), 0);
  EXPECT_EQ(Linux::applyRtnlMessage(nlmsg_hdr(msg), state), Linux::RtnlResult::applied);
  nlmsg_free(msg);
  state.flush();
  EXPECT_FALSE(r.ip6Status->intfHas("uplink"));  // tentative: not yet an address

  rtnl_addr_unset_flags(addr, IFA_F_TENTATIVE);
  ASSERT_EQ(rtnl_addr_build_add_request(addr, 0, &msg), 0);
  Linux::applyRtnlMessage(nlmsg_hdr(msg), state);
  nlmsg_free(msg);
  state.flush();
  ASSERT_TRUE(r.ip6Status->intfHas("uplink"));
  EXPECT_EQ(r.ip6Status->intf("uplink")->addrs(), 1u);

  ASSERT_EQ(rtnl_link_build_delete_request(link, &msg), 0);
  EXPECT_EQ(Linux::applyRtnlMessage(nlmsg_hdr(msg), state), Linux::RtnlResult::applied);
  nlmsg_free(msg);
  state.flush();
  EXPECT_FALSE(r.ethPhyIntfStatusDir->intfStatusHas("uplink"));
  EXPECT_FALSE(r.ip6Status->intfHas("uplink"));
  nl_addr_put(local);
  nl_addr_put(mac);
  rtnl_addr_put(addr);
  rtnl_link_put(link);
}

TEST(HostMappingTest, AddressesThatCountAndSystemTexts) {
  EXPECT_TRUE(Linux::ip4Counts(RT_SCOPE_UNIVERSE));
  EXPECT_FALSE(Linux::ip4Counts(RT_SCOPE_HOST));  // 127.0.0.1
  EXPECT_FALSE(Linux::ip4Counts(RT_SCOPE_LINK));
  EXPECT_TRUE(Linux::ip6Counts(RT_SCOPE_UNIVERSE, IFA_F_PERMANENT));
  EXPECT_FALSE(Linux::ip6Counts(RT_SCOPE_HOST, 0));  // ::1
  EXPECT_FALSE(Linux::ip6Counts(RT_SCOPE_LINK, 0));
  for (uint32_t f : {IFA_F_TENTATIVE, IFA_F_DEPRECATED, IFA_F_TEMPORARY, IFA_F_DADFAILED}) {
    EXPECT_FALSE(Linux::ip6Counts(RT_SCOPE_UNIVERSE, f)) << f;
  }
  std::string host, domain;
  Linux::netStatusOf("web1", "(none)", host, domain);
  EXPECT_EQ(host, "web1");
  EXPECT_EQ(domain, "");
  EXPECT_EQ(Linux::osReleasePrettyName("ID=debian\nPRETTY_NAME=\"Debian GNU/Linux 13\"\n"), "Debian GNU/Linux 13");
  EXPECT_EQ(Linux::systemDescriptionOf("Debian GNU/Linux 13", "6.12.0", "x86_64"),
            "Debian GNU/Linux 13 Linux 6.12.0 x86_64");
  EXPECT_EQ(Linux::systemDescriptionOf("", "6.12.0", "aarch64"), "Linux 6.12.0 aarch64");
}

// Whatever the name and ifindex, a port's management-address priority stays in its band.
TEST_F(HostStateTest, PrioritiesStayInTheirBands) {
  for (int32_t ifIndex : {1, 128, 129, 5000, 100000}) {
    state.linkIs(wire(ifIndex, "p" + std::to_string(ifIndex)));
  }
  state.linkIs(wire(7, "eth200"));
  state.linkIs(wire(8, "mgmt77"));
  LinkFacts bond = wire(9, "bond5000", "bond");
  linksAre({bond});
  Lldp::ManAddrPriority prio;
  for (const char* name : {"p1", "p128", "p129", "p5000", "p100000", "eth200", "mgmt77", "bond5000", "eth999"}) {
    Lldp::Agent::Input::intfNameToVlanIdAndManAddrPriority(name, nullptr, &prio);  // asserts out of band
    SCOPED_TRACE(name);
    EXPECT_LT(prio.primaryPriority, Lldp::Agent::Input::vlanPriorityBase);
  }
  EXPECT_EQ(Konet::IntfId("mgmt77").kind(), Kind::management);
  EXPECT_EQ(Konet::IntfId("p129").module(), 1u);
  EXPECT_EQ(Konet::IntfId("p129").port(), 1u);
}

}  // namespace
