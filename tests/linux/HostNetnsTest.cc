// The host sources against a real kernel: each change made with ip(8) in a fresh namespace must
// reach the records within a second and, under the whole agent, the LLDPDUs a peer engine in a
// second namespace receives within txDelay after that. Needs root (CI runs it); elsewhere it skips.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "HostFixture.h"

namespace {

using HostTest::sh;

class HostNetnsTest : public HostTest::HostNetnsFixture {
 protected:
  Interface::EthPhyIntfStatus::Ptr phy(const std::string& n) const { return r.ethPhyIntfStatusDir->intfStatus(n); }
  int32_t ifIndexOf(const std::string& n) const {
    const auto st = r.allIntfStatusDir->intfStatus(n);
    return st ? st->ifIndex() : -1;
  }
  static std::set<std::string> mgmtAddrs(const Lldp::RemoteSystem& rs) {
    std::set<std::string> out;
    for (auto it = rs.managementAddress().begin(); it; ++it) out.insert(it.key().stringValue());
    return out;
  }
};

TEST_F(HostNetnsTest, KernelChangesReachTheRecordsAndThePeer) {
  startAgent();
  peerLinkIs("uplink", "peer0");
  peerLinkIs("mgmt0", "peer2");
  step("veth pair", "ip link set uplink up && ip link set mgmt0 up",
       [&] { return phy("uplink") && r.ethPhyIntfConfigDir->intfConfig("uplink")->enabled(); },
       [&, up = peerHears("peer0", "uplink"), mgmt = peerHears("peer2", "mgmt0")] { return up() && mgmt(); },
       kTxDelay + kLinkWatch);
  EXPECT_EQ(phy("uplink")->linkStatus(), Interface::LinkStatus::linkUp);
  EXPECT_EQ(Konet::IntfId("uplink").kind(), Konet::IntfId::Kind::ethernet);  // by link type, not name
  EXPECT_EQ(ifIndexOf("uplink"), r.kernelNetInfo->device("uplink").ifIndex);

  step("alias", "ip link set uplink alias 'to spine'",
       [&] { return r.ethPhyIntfConfigDir->intfConfig("uplink")->description() == "to spine"; },
       peerHears("peer0", "uplink", [](auto& rs) { return rs.portDesc() == "to spine"; }));

  // Every port advertises the frame size its MTU allows; a management port its own.
  step("mtu", "ip link set uplink mtu 9000 && ip link set mgmt0 mtu 1400",
       [&] {
         return phy("uplink")->maxMtu() == 9000 && r.bridgingHwCapabilities->maxFrameSize() == 9018 &&
                phy("mgmt0")->maxMtu() == 1400;
       },
       [&, up = peerHears("peer0", "uplink", [](auto& rs) { return rs.maximumFrameSizeInfo().value == 9018; }),
        mgmt = peerHears("peer2", "mgmt0", [](auto& rs) { return rs.maximumFrameSizeInfo().value == 1418; })] {
         return up() && mgmt();
       });

  // IPv6 first: it then replaces the bridge-MAC fallback address, which the engine acts on at once.
  cliConfig->ip6MgmtAddrIntfNameIs(Konet::IntfId("uplink"));
  step("IPv6 global and link-local",
       "ip addr add 2001:db8::1/64 dev uplink nodad && ip addr add fe80::1234/64 dev uplink nodad",
       [&] {
         auto ip6 = r.ip6Status->intf("uplink");
         return ip6 && ip6->addrHas(Arnet::Ip6AddrWithMask{*Arnet::Ip6Addr::parse("2001:db8::1"), 64});
       },
       peerHears("peer0", "uplink", [](auto& rs) { return mgmtAddrs(rs).count("2001:db8::1") == 1; }));
  for (const auto& [a, on] : r.ip6Status->intf("uplink")->addr()) EXPECT_FALSE(a.addr.isLinkLocal());

  step("IPv4 primary and secondary", "ip addr add 10.0.0.1/24 dev uplink && ip addr add 10.0.0.2/24 dev uplink",
       [&] {
         auto ip = r.ipStatus->ipIntfStatus("uplink");
         return ip && ip->activeAddrWithMask().addr == *Arnet::IpAddr::parse("10.0.0.1") &&
                ip->secondaryWithMaskHas(Arnet::IpAddrWithMask{*Arnet::IpAddr::parse("10.0.0.2"), 24});
       },
       peerHears("peer0", "uplink", [](auto& rs) { return mgmtAddrs(rs).count("10.0.0.1") == 1; }));
  EXPECT_FALSE(r.ipStatus->ipIntfStatusHas("lo"));  // 127.0.0.1 is host scope

  // A MAC change keeps the socket: the same one, bound to the same ifindex.
  const auto socketsBefore = HostTest::packetSockets();
  ASSERT_EQ(socketsBefore.count(ifIndexOf("uplink")), 1u);
  const Konet::EthAddr mac(2, 0xaa, 0, 0, 0, 1);
  step("MAC", "ip link set uplink address 02:aa:00:00:00:01", [&] {
         const auto p = phy("uplink");
         return p && p->addr() == mac;
       },
       peerHears("peer0", "uplink", [&](auto& rs) { return rs.ethAddr() == mac; }));
  EXPECT_EQ(HostTest::packetSockets(), socketsBefore);

  step("rename", "ip link set uplink down && ip link set uplink name core0 && ip link set core0 up",
       [&] { return !phy("uplink") && phy("core0") && r.ipStatus->ipIntfStatusHas("core0"); },
       peerHears("peer0", "core0"), kTxDelay + kLinkWatch);

  // Deleted and made again under the same name: a new ifindex, and a socket bound to it.
  const int32_t oldIndex = ifIndexOf("core0");
  ASSERT_EQ(sh("ip link del core0"), 0);
  peerLinkIs("core0", "peer1");
  step("delete and re-create", "ip link set core0 up",
       [&] { return ifIndexOf("core0") > 0 && ifIndexOf("core0") != oldIndex && !r.ipStatus->ipIntfStatusHas("core0"); },
       peerHears("peer1", "core0"), kTxDelay + kLinkWatch);
  const auto sockets = HostTest::packetSockets();
  EXPECT_EQ(sockets.count(ifIndexOf("core0")), 1u);
  EXPECT_EQ(sockets.count(oldIndex), 0u);

  step("forwarding", "sysctl -qw net.ipv4.ip_forward=1", [&] { return r.routingConfig->routing(); },
       peerHears("peer1", "core0", [](auto& rs) { return (rs.sysCapEnabled().value & 0x10) != 0; }));

  // No netlink event for a host name: the kernel signals the change on its /proc file, and no
  // clock polls for it.
  EXPECT_TRUE(sources->utsNamesWatched());
  ASSERT_EQ(sethostname("lldp-test-host", 14), 0);
  const double t = waitFor([&] { return r.netStatus->hostname() == "lldp-test-host"; }, 1);
  EXPECT_LE(t, 0.5);
  const double tx = waitFor(peerHears("peer1", "core0", [](auto& rs) { return rs.sysName() == "lldp-test-host"; }),
                            kTxDelay + kWireSlack);
  EXPECT_LE(tx, kTxDelay + kWireSlack);
  std::printf("[ figures  ] %-44s records %6.1f ms   peer +%6.1f ms\n", "host name", t * 1000, tx * 1000);
  EXPECT_EQ(sources->counters().netlinkInvalidMessages, 0u);
}

// Link kinds this kernel may lack (bonding, VLAN filtering): skipped with a message then.
TEST_F(HostNetnsTest, BondWithTwoMembers) {
  if (!supports("bond")) GTEST_SKIP() << "this kernel has no bonding driver";
  startAgent();
  peerLinkIs("m1", "m1p");
  peerLinkIs("m2", "m2p");
  ASSERT_LE(waitFor([&] { return phy("m1") && phy("m2"); }), 1.0);
  const Konet::EthAddr mac1 = phy("m1")->addr(), mac2 = phy("m2")->addr();
  auto aggregated = [&](const std::string& theirs, const std::string& ours, Konet::EthAddr mac) {
    return peerHears(theirs, ours, [this, mac](auto& rs) {
      const auto& lag = rs.linkAggregationInfo();
      return lag.aggEnabled() && static_cast<int32_t>(lag.portId) == ifIndexOf("bond0") && rs.ethAddr() == mac;
    });
  };
  auto both = [&, p1 = aggregated("m1p", "m1", mac1), p2 = aggregated("m2p", "m2", mac2)] { return p1() && p2(); };
  step("bond with two members",
       "ip link add bond0 type bond mode active-backup && ip link set m1 master bond0 && "
       "ip link set m2 master bond0 && ip link set bond0 up && ip link set m1 up && ip link set m2 up",
       [&] {
         auto lag = r.ethLagIntfStatusDir->intfStatus("bond0");
         return lag && lag->members() == 2 && phy("m1")->addr() == mac1 && phy("m2")->addr() == mac2;
       },
       both, kTxDelay + kLinkWatch);
}

TEST_F(HostNetnsTest, VlanAwareBridgeWithPvid) {
  if (!supports("bridge", "vlan_filtering 1")) GTEST_SKIP() << "this kernel's bridge has no VLAN filtering";
  startAgent();
  peerLinkIs("sw1", "sw1p");
  step("VLAN-aware bridge with PVID",
       "ip link add br0 type bridge vlan_filtering 1 && ip link set sw1 master br0 && "
       "bridge vlan add dev sw1 vid 30 pvid untagged && ip link set br0 up && ip link set sw1 up",
       [&] {
         auto sw = r.bridgingConfig->switchIntfConfig("sw1");
         return sw && sw->nativeVlan().value() == 30 && phy("sw1")->forwardingModel() == Interface::ForwardingModel::bridged;
       },
       peerHears("sw1p", "sw1", [&](auto& rs) {
         return rs.portVlanId().value() == 30 &&
                rs.msap().chassisIdentifier.stringValue() == r.kernelNetInfo->device("br0").addr.toString();
       }),
       kTxDelay + kLinkWatch);
  step("a tagged VLAN makes a trunk", "bridge vlan add dev sw1 vid 40", [&] {
    return r.bridgingConfig->switchIntfConfig("sw1")->switchportMode() == Bridging::SwitchportMode::trunk;
  });
}

TEST_F(HostNetnsTest, OverflowingBurstConvergesToTheKernelsState) {
  Linux::HostSources::Options options;
  options.netlink.rcvBufBytes = 32 * 1024;
  start(options);
  ASSERT_EQ(sh("ip link add burst0 type veth peer name burst0p && ip link set burst0 up"), 0);
  // 5,000 address changes while nobody reads: the socket overflows.
  const std::string batch = "/tmp/ho-burst-" + std::to_string(getpid());
  {
    std::ofstream out(batch);
    for (int i = 0; i < 4000; ++i) out << "addr add 10.1." << i / 250 << "." << i % 250 + 1 << "/32 dev burst0\n";
    for (int i = 0; i < 1000; ++i) out << "addr del 10.1." << i / 250 << "." << i % 250 + 1 << "/32 dev burst0\n";
  }
  ASSERT_EQ(sh("ip -batch " + batch), 0);
  std::remove(batch.c_str());
  auto converged = [&] {
    auto ip = r.ipStatus->ipIntfStatus("burst0");
    return !sources->netlink().dumping() && ip && ip->secondaryWithMasks() + 1 == 3000;
  };
  const double t = waitFor(converged, 10);
  EXPECT_LE(t, 10.0);
  EXPECT_GE(sources->counters().netlinkResyncs, 1u);
  auto ip = r.ipStatus->ipIntfStatus("burst0");
  ASSERT_TRUE(ip);
  EXPECT_EQ(ip->activeAddrWithMask().addr, *Arnet::IpAddr::parse("10.1.4.1"));  // the smallest left
  // Exactly the kernel's addresses: every one left, none of the deleted.
  int wrong = 0;
  for (int i = 0; i < 4000; ++i) {
    const std::string a = "10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
    const bool kept = i >= 1000;
    const Arnet::IpAddrWithMask addr{*Arnet::IpAddr::parse(a), 32};
    if (addr != ip->activeAddrWithMask() && ip->secondaryWithMaskHas(addr) != kept) ++wrong;
  }
  EXPECT_EQ(wrong, 0);
  std::printf("[ figures  ] burst converged after %.1f ms, %llu resyncs\n", t * 1000,
              static_cast<unsigned long long>(sources->counters().netlinkResyncs));
}

// A frame the kernel refuses is counted on its port and logged once per port within the throttle.
TEST_F(HostNetnsTest, SendFailuresAreCountedPerPortAndThrottled) {
  ASSERT_EQ(sh("ip link add tx0 type veth peer name tx0p && ip link add tx1 type veth peer name tx1p && "
               "ip link set tx0 up && ip link set tx1 up && ip link set tx0p up && ip link set tx1p up"),
            0);
  auto desired = Platform::make<Interface::PamDesiredIntfDir>("desired");
  auto pams = Platform::make<Interface::EthDevPamCollection>("pams");
  auto devices = Platform::make<Interface::DeviceIntfStatusDir>("devices");
  Linux::RawSocketPamManager manager(desired, pams, devices, s);
  manager.ethProtocolIs(0x88cc);
  for (const char* dev : {"tx0", "tx1"}) {
    devices->deviceIntfIs(dev, Interface::DeviceIntf{dev, 0, {}});
    desired->intfDesiredIs(dev, true);
  }
  manager.enabledIs(true);
  ASSERT_TRUE(pams->intfPamHas("tx0") && pams->intfPamHas("tx1"));
  auto send = [&](const char* dev) {
    Platform::PacketPtr pkt = Platform::PacketPool::instance().alloc();
    ASSERT_TRUE(pkt);
    uint8_t* frame = pkt->append(60);
    std::memset(frame, 0, 60);
    const uint8_t header[14] = {0x01, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1, 0x88, 0xcc};
    std::memcpy(frame, header, sizeof header);
    pams->intfPam(dev)->txPkt(std::move(pkt));
  };
  auto sendFailures = [&](const char* dev) {
    return std::count_if(logs.begin(), logs.end(), [&](const std::string& l) {
      return l.starts_with("LLDP_PACKET_SEND_FAILED") && l.find(std::string(" ") + dev + ":") != std::string::npos;
    });
  };
  send("tx0");
  EXPECT_EQ(pams->intfPam("tx0")->txFrames(), 1u);

  ASSERT_EQ(sh("ip link set tx0 down"), 0);
  send("tx0");
  send("tx0");
  EXPECT_EQ(pams->intfPam("tx0")->txErrors(), 2u);
  EXPECT_EQ(sendFailures("tx0"), 1);  // the second within the throttle is held back

  ASSERT_EQ(sh("ip link del tx1"), 0);
  send("tx1");
  EXPECT_EQ(pams->intfPam("tx1")->txErrors(), 1u);
  EXPECT_EQ(sendFailures("tx1"), 1);  // each port has its own throttle
  EXPECT_EQ(pams->intfPam("tx0")->txErrors(), 2u);
  auto logged = [&](const std::string& text) {
    return std::any_of(logs.begin(), logs.end(), [&](const std::string& l) { return l.ends_with(text); });
  };
  EXPECT_TRUE(logged("tx0: " + std::string(std::strerror(ENETDOWN))));
  EXPECT_TRUE(logged("tx1: " + std::string(std::strerror(ENXIO))));
}

}  // namespace
