// The host sources against a real kernel: each test runs in a fresh network namespace (and UTS
// namespace for the host name), changes it with ip(8) and waits for the records. Needs root
// (CI runs it); elsewhere it skips.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>

#include "agent/LldpAgent.h"
#include "linux/AsioScheduler.h"
#include "linux/HostSources.h"
#include "linux/RawSocketPam.h"
#include "platform/Log.h"

namespace {

int sh(const std::string& cmd) { return std::system((cmd + " >/dev/null 2>&1").c_str()); }

class HostNetnsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces";
    if (sh("ip -V") != 0) GTEST_SKIP() << "needs iproute2 (ip)";
    homeNet_ = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    homeUts_ = open("/proc/self/ns/uts", O_RDONLY | O_CLOEXEC);
    if (homeNet_ < 0 || homeUts_ < 0 || unshare(CLONE_NEWNET | CLONE_NEWUTS) != 0) {
      GTEST_SKIP() << "cannot create network and UTS namespaces here";
    }
    entered_ = true;
    sh("ip link set lo up");
    Platform::logSinkIs([](const Platform::LogRecord&) {});
    r.ethPhyIntfStatusDir = Platform::make<Interface::AllEthPhyIntfStatusDir>();
    r.ethPhyIntfConfigDir = Platform::make<Interface::AllEthPhyIntfConfigDir>();
    r.allIntfStatusDir = Platform::make<Interface::AllIntfStatusDir>();
    r.ethLagIntfStatusDir = Platform::make<Interface::EthLagIntfStatusDir>();
    r.bridgingConfig = Platform::make<Bridging::Config>();
    r.bridgingHwCapabilities = Platform::make<Bridging::HwCapabilities>();
    r.routingConfig = Platform::make<Routing::Config>();
    r.ipStatus = Platform::make<Ip::Status>();
    r.ip6Status = Platform::make<Ip6::Status>();
    r.netStatus = Platform::make<System::NetStatus>();
    r.sysDescr = Platform::make<EntityMib::Status>();
    r.kernelNetInfo = Platform::make<KernelNetInfo::Status>();
  }
  void TearDown() override {
    sources.reset();
    if (entered_) {
      setns(homeNet_, CLONE_NEWNET);
      setns(homeUts_, CLONE_NEWUTS);
    }
    if (homeNet_ >= 0) close(homeNet_);
    if (homeUts_ >= 0) close(homeUts_);
    Konet::IntfPlatformTable::clear();
    Platform::logSinkIs(nullptr);
  }

  void start(Linux::HostSources::Options options = {}) {
    sources = std::make_unique<Linux::HostSources>(s, r, options);
    std::string error;
    ASSERT_TRUE(sources->start(error)) << error;
    ASSERT_LE(waitFor([&] { return sources->ready(); }, 5), 5);
  }

  // Runs the event loop until pred holds; the seconds it took (more than limit: it never held).
  double waitFor(const std::function<bool()>& pred, double limit = 1.0) {
    const auto begin = std::chrono::steady_clock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(); };
    while (!pred()) {
      if (elapsed() > limit + 1) return elapsed();
      s.runFor(0.005);
    }
    return elapsed();
  }
  // Changes the kernel with cmd and expects pred within a second.
  void step(const std::string& what, const std::string& cmd, const std::function<bool()>& pred) {
    ASSERT_EQ(sh(cmd), 0) << cmd;
    const double t = waitFor(pred);
    EXPECT_LE(t, 1.0) << what;
    std::printf("[ figures  ] %-40s %.1f ms\n", what.c_str(), t * 1000);
  }

  Linux::AsioScheduler s;
  Linux::HostRecords r;
  std::unique_ptr<Linux::HostSources> sources;
  int homeNet_ = -1, homeUts_ = -1;
  bool entered_ = false;
};

TEST_F(HostNetnsTest, KernelChangesReachTheRecordsWithinASecond) {
  start();
  auto phy = [&](const char* n) { return r.ethPhyIntfStatusDir->intfStatus(n); };
  step("veth pair", "ip link add uplink type veth peer name peer0 && ip link set uplink up && ip link set peer0 up",
       [&] { return phy("uplink") && phy("peer0") && phy("uplink")->linkStatus() == Interface::LinkStatus::linkUp; });
  EXPECT_EQ(Konet::IntfId("uplink").kind(), Konet::IntfId::Kind::ethernet);
  EXPECT_EQ(r.allIntfStatusDir->intfStatus("uplink")->ifIndex(), r.kernelNetInfo->device("uplink").ifIndex);

  step("alias", "ip link set uplink alias 'to spine'",
       [&] { return r.ethPhyIntfConfigDir->intfConfig("uplink")->description() == "to spine"; });
  step("mtu", "ip link set uplink mtu 9000", [&] { return phy("uplink")->maxMtu() == 9000; });

  step("IPv4 primary and secondary",
       "ip addr add 10.0.0.1/24 dev uplink && ip addr add 10.0.0.2/24 dev uplink", [&] {
         auto ip = r.ipStatus->ipIntfStatus("uplink");
         return ip && ip->activeAddrWithMask().addr == *Arnet::IpAddr::parse("10.0.0.1") && ip->secondaryWithMasks() == 1;
       });
  EXPECT_FALSE(r.ipStatus->ipIntfStatusHas("lo"));  // 127.0.0.1 is host scope

  step("IPv6 global (nodad) and link-local",
       "ip addr add 2001:db8::1/64 dev uplink nodad && ip addr add fe80::1234/64 dev uplink nodad", [&] {
         auto ip6 = r.ip6Status->intf("uplink");
         return ip6 && ip6->addrHas(Arnet::Ip6AddrWithMask{*Arnet::Ip6Addr::parse("2001:db8::1"), 64});
       });
  for (const auto& [a, on] : r.ip6Status->intf("uplink")->addr()) EXPECT_FALSE(a.addr.isLinkLocal());

  ASSERT_EQ(sh("ip addr add 192.0.2.1/24 dev peer0"), 0);
  step("rename", "ip link set peer0 down && ip link set peer0 name renamed0 && ip link set renamed0 up",
       [&] { return !phy("peer0") && phy("renamed0"); });
  EXPECT_TRUE(r.ipStatus->ipIntfStatusHas("renamed0"));

  const int32_t oldIndex = r.allIntfStatusDir->intfStatus("uplink")->ifIndex();
  step("delete and re-create", "ip link del uplink && ip link add uplink type veth peer name peer1", [&] {
    auto st = r.allIntfStatusDir->intfStatus("uplink");
    return st && st->ifIndex() != oldIndex && !r.ipStatus->ipIntfStatusHas("uplink");
  });
  step("forwarding", "sysctl -qw net.ipv4.ip_forward=1", [&] { return r.routingConfig->routing(); });
  EXPECT_EQ(sources->counters().netlinkInvalidMessages, 0u);
}

// Link kinds this kernel may lack (bonding, bridge, VRF modules): skipped with a message then.
class HostNetnsKindsTest : public HostNetnsTest {
 protected:
  static bool supports(const std::string& kind, const std::string& args = "") {
    if (sh("ip link add probe-" + kind + " type " + kind + " " + args) != 0) return false;
    sh("ip link del probe-" + kind);
    return true;
  }
  Interface::EthPhyIntfStatus::Ptr phy(const char* n) { return r.ethPhyIntfStatusDir->intfStatus(n); }
};

TEST_F(HostNetnsKindsTest, BondWithTwoMembers) {
  if (!supports("bond")) GTEST_SKIP() << "this kernel cannot create a bond link";
  start();
  step("bond with two members",
       "ip link add bond0 type bond mode active-backup && ip link add m1 type veth peer name m1p && "
       "ip link add m2 type veth peer name m2p && ip link set m1 master bond0 && ip link set m2 master bond0",
       [&] {
         auto lag = r.ethLagIntfStatusDir->intfStatus("bond0");
         return lag && lag->members() == 2 && phy("m1") && phy("m2");
       });
  EXPECT_NE(phy("m1")->addr(), phy("m2")->addr());  // permanent MACs, not the bond's
}

TEST_F(HostNetnsKindsTest, VlanAwareBridgeWithPvid) {
  if (!supports("bridge", "vlan_filtering 1")) GTEST_SKIP() << "this kernel cannot create a bridge link";
  start();
  step("VLAN-aware bridge with PVID",
       "ip link add br0 type bridge vlan_filtering 1 && ip link add sw1 type veth peer name sw1p && "
       "ip link set sw1 master br0 && bridge vlan add dev sw1 vid 30 pvid untagged",
       [&] {
         auto sw = r.bridgingConfig->switchIntfConfig("sw1");
         return sw && sw->nativeVlan().value() == 30 && phy("sw1")->forwardingModel() == Interface::ForwardingModel::bridged;
       });
  step("tagged VLAN makes a trunk", "bridge vlan add dev sw1 vid 40", [&] {
    return r.bridgingConfig->switchIntfConfig("sw1")->switchportMode() == Bridging::SwitchportMode::trunk;
  });
  EXPECT_EQ(r.bridgingConfig->bridgeMacAddr(), r.kernelNetInfo->device("br0").addr);
}

TEST_F(HostNetnsKindsTest, VrfWithAnAddress) {
  if (!supports("vrf", "table 10")) GTEST_SKIP() << "this kernel cannot create a vrf link";
  start();
  ASSERT_EQ(sh("ip link add peer0 type veth peer name peer0p"), 0);
  step("VRF with an address",
       "ip link add blue type vrf table 10 && ip link set blue up && ip link set peer0 master blue && "
       "ip addr add 192.0.2.1/24 dev peer0",
       [&] {
         auto ip = r.ipStatus->ipIntfStatus("peer0");
         return ip && ip->vrf().str() == "blue";
       });
}

TEST_F(HostNetnsTest, HostNameChangeReachesNetStatus) {
  Linux::HostSources::Options options;
  options.hostnameCheckInterval = 2.0;
  start(options);
  ASSERT_EQ(sethostname("lldp-test-host", 14), 0);
  const double t = waitFor([&] { return r.netStatus->hostname() == "lldp-test-host"; }, 5);
  EXPECT_LE(t, 5.0);
  std::printf("[ figures  ] %-40s %.1f ms\n", "host name", t * 1000);
}

TEST_F(HostNetnsTest, OverflowingBurstConvergesToTheKernelsState) {
  Linux::HostSources::Options options;
  options.netlink.rcvBufBytes = 32 * 1024;
  start(options);
  ASSERT_EQ(sh("ip link add dummy0 type veth peer name dummy0p && ip link set dummy0 up"), 0);
  // 5,000 address changes while nobody reads: the socket overflows.
  const std::string batch = "/tmp/lldp-burst-" + std::to_string(getpid());
  {
    std::ofstream out(batch);
    for (int i = 0; i < 4000; ++i) out << "addr add 10.1." << i / 250 << "." << i % 250 + 1 << "/32 dev dummy0\n";
    for (int i = 0; i < 1000; ++i) out << "addr del 10.1." << i / 250 << "." << i % 250 + 1 << "/32 dev dummy0\n";
  }
  ASSERT_EQ(sh("ip -batch " + batch), 0);
  std::remove(batch.c_str());
  auto converged = [&] {
    auto ip = r.ipStatus->ipIntfStatus("dummy0");
    return !sources->netlink().dumping() && ip && ip->secondaryWithMasks() + 1 == 3000;
  };
  const double t = waitFor(converged, 10);
  EXPECT_LE(t, 10.0);
  EXPECT_GE(sources->counters().netlinkResyncs, 1u);
  auto ip = r.ipStatus->ipIntfStatus("dummy0");
  ASSERT_TRUE(ip);
  EXPECT_EQ(ip->activeAddrWithMask().addr, *Arnet::IpAddr::parse("10.1.4.1"));  // the smallest left
  EXPECT_FALSE(ip->secondaryWithMaskHas(Arnet::IpAddrWithMask{*Arnet::IpAddr::parse("10.1.0.1"), 32}));
  std::printf("[ figures  ] burst converged after %.1f ms, %llu resyncs\n", t * 1000,
              static_cast<unsigned long long>(sources->counters().netlinkResyncs));
}

// The whole agent on the host sources: a change in the kernel reaches the LLDPDUs a peer receives.
TEST_F(HostNetnsTest, AgentAdvertisesWhatTheKernelSays) {
  ASSERT_EQ(sh("ip link add uplink type veth peer name peer0 && ip link set uplink up && ip link set peer0 up"), 0);
  Platform::StateDb db(s, "1");
  sources = std::make_unique<Linux::HostSources>(s, Linux::HostSources::recordsIn(db));
  std::string error;
  ASSERT_TRUE(sources->start(error)) << error;
  auto agent = Lldp::Agent::agentFactory("LldpAgent", db, [](Lldp::Agent::Protocol::Root& root) {
    return std::make_unique<Linux::RawSocketPamManager>(root.desiredIntfDir(), root.pamCollection(),
                                                        root.deviceIntfStatusDir(), root.scheduler());
  });
  agent->doInit();
  ASSERT_LE(waitFor([&] { return sources->ready() && agent->running(); }, 5), 5);

  // The peer listens with a plain packet socket.
  const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(0x88cc));
  ASSERT_GE(fd, 0);
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = htons(0x88cc);
  addr.sll_ifindex = static_cast<int>(if_nametoindex("peer0"));
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  auto heard = [&](const std::string& text) {
    uint8_t frame[2048];
    ssize_t n;
    while ((n = recv(fd, frame, sizeof frame, 0)) > 0) {
      if (std::search(frame, frame + n, text.begin(), text.end()) != frame + n) return true;
    }
    return false;
  };
  const double first = waitFor([&] { return heard("uplink"); }, 5);
  EXPECT_LE(first, 5.0);  // txDelay after the engine came up, plus the start-up
  ASSERT_EQ(sh("ip link set uplink alias 'to-the-spine'"), 0);
  const double t = waitFor([&] { return heard("to-the-spine"); }, 4);
  EXPECT_LE(t, 3.0);  // within a second to the records, then txDelay (2 s)
  std::printf("[ figures  ] %-40s %.1f ms\n", "alias in the peer's LLDPDU", t * 1000);
  close(fd);
  agent->doCleanup();
}

}  // namespace
