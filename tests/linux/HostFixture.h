// Shared set-up of the host-source tests: every record the host fills, and a fixture that runs
// the sources (alone, or under the whole agent with a peer engine) in fresh namespaces.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "agent/LldpAgent.h"
#include "demo/StandaloneEngine.h"
#include "linux/AsioScheduler.h"
#include "linux/HostSources.h"
#include "linux/RawSocketPam.h"
#include "platform/Log.h"

namespace HostTest {

// A network namespace name of this test process; LLDP_TEST_NETNS_PREFIX tells runs apart that
// share a machine.
inline std::string netnsName(const std::string& role) {
  const char* prefix = std::getenv("LLDP_TEST_NETNS_PREFIX");
  return std::string(prefix ? prefix : "lldpt-") + role + "-" + std::to_string(getpid());
}

inline int sh(const std::string& cmd) { return std::system((cmd + " >/dev/null 2>&1").c_str()); }

// Runs cmd; its exit status, with stdout and stderr in out.
inline int shOut(const std::string& cmd, std::string& out) {
  out.clear();
  FILE* p = popen((cmd + " 2>&1").c_str(), "r");
  if (!p) return -1;
  char buf[1024];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  return pclose(p);
}

// Every record the host sources fill, standing alone (no database).
inline Linux::HostRecords hostRecords() {
  Linux::HostRecords r;
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
  return r;
}

// The packet sockets of this namespace (the agent's: the peer is in its own), by the ifindex
// they are bound to: their inodes.
inline std::multimap<int, unsigned long> packetSockets() {
  std::multimap<int, unsigned long> sockets;
  std::ifstream in("/proc/self/net/packet");
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string sk, proto;
    int refs = 0, type = 0, iface = 0, running = 0;
    unsigned long rmem = 0, user = 0, inode = 0;
    fields >> sk >> refs >> type >> proto >> iface >> running >> rmem >> user >> inode;
    if (fields) sockets.emplace(iface, inode);
  }
  return sockets;
}

// Each test in a fresh network and UTS namespace. Needs root (CI runs as root); elsewhere it skips.
class HostNetnsFixture : public ::testing::Test {
 protected:
  static constexpr double kTxDelay = 2.0;  // the agent's default
  // Scheduling slack on top of txDelay for a frame to cross the veth and be parsed.
  static constexpr double kWireSlack = 0.3;
  // The kernel announces a carrier change up to a second after it happens (its link watch): a
  // step that brings a link up allows that before the peer can hear it.
  static constexpr double kLinkWatch = 1.0;

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
    Platform::logSinkIs([this](const Platform::LogRecord& rec) {
      logs.push_back(std::string(rec.message.id) + ": " + std::string(rec.text));
    });
    r = hostRecords();
  }
  void TearDown() override {
    peer.reset();
    if (agent) agent->doCleanup();
    agent.reset();
    sources.reset();
    db.reset();
    if (!peerNs_.empty()) sh("ip netns del " + peerNs_);
    if (entered_) {
      setns(homeNet_, CLONE_NEWNET);
      setns(homeUts_, CLONE_NEWUTS);
    }
    if (homeNet_ >= 0) close(homeNet_);
    if (homeUts_ >= 0) close(homeUts_);
    Konet::IntfPlatformTable::clear();
    Platform::logSinkIs(nullptr);
  }

  // The sources alone on the standalone records.
  void start(Linux::HostSources::Options options = {}) {
    sources = std::make_unique<Linux::HostSources>(s, r, options);
    std::string error;
    ASSERT_TRUE(sources->start(error)) << error;
    ASSERT_LE(waitFor([&] { return sources->ready(); }, 5), 5);
  }

  // The whole agent on the sources (records in its database), and a peer engine in a second
  // namespace that receives what the agent sends; ports reach the peer through peerLinkIs().
  void startAgent(size_t dedicatedPortsMax = Linux::RawSocketPamManager::kDedicatedPortsMax) {
    db = std::make_unique<Platform::StateDb>(s, "1");
    r = Linux::HostSources::recordsIn(*db);
    cliConfig = db->entityIs<Lldp::CliConfig>(Lldp::Agent::Agent::kCliConfigPath);
    sources = std::make_unique<Linux::HostSources>(s, r);
    std::string error;
    ASSERT_TRUE(sources->start(error)) << error;
    agent = Lldp::Agent::agentFactory("LldpAgent", *db, [dedicatedPortsMax](Lldp::Agent::Protocol::Root& root) {
      return std::make_unique<Linux::RawSocketPamManager>(root.desiredIntfDir(), root.pamCollection(),
                                                          root.deviceIntfStatusDir(), root.scheduler(), "",
                                                          dedicatedPortsMax);
    });
    agent->doInit();
    ASSERT_LE(waitFor([&] { return sources->ready() && agent->running(); }, 5), 5);
    peerNs_ = netnsName("peer");
    ASSERT_EQ(sh("ip netns add " + peerNs_), 0);
    const std::string ns = peerNs_;
    peer = std::make_unique<Demo::StandaloneEngine>(
        s, "peer", Konet::EthAddr(2, 0x70, 0, 0, 0, 1), [ns](Lldp::Agent::Protocol::Root& root) {
          return std::make_unique<Linux::RawSocketPamManager>(root.desiredIntfDir(), root.pamCollection(),
                                                              root.deviceIntfStatusDir(), root.scheduler(), ns);
        });
  }

  // A veth pair: ours here (up), the peer's end in the peer's namespace as one of its ports.
  void peerLinkIs(const std::string& ours, const std::string& theirs, const std::string& extra = "") {
    ASSERT_EQ(sh("ip link add " + ours + " " + extra + " type veth peer name " + theirs + " netns " + peerNs_ +
                 " && ip -n " + peerNs_ + " link set " + theirs + " up"),
              0);
    peer->addPort(theirs, Konet::EthAddr(2, 0x70, 0, 0, 0, static_cast<uint8_t>(++peerPorts_ + 1)));
  }

  // Whether the peer heard, on its port theirs, an LLDPDU from our port portId for which pred holds.
  std::function<bool()> peerHears(const std::string& theirs, const std::string& portId,
                                  std::function<bool(const Lldp::RemoteSystem&)> pred = nullptr) const {
    return [=, this] {
      const Lldp::PortStatus::Ptr port = peer->status->portStatus(theirs);
      if (!port) return false;
      for (auto it = port->remoteSystem().begin(); it; ++it) {
        const Lldp::RemoteSystem& rs = *it.value();
        if (rs.msap().portIdentifier.stringValue() == portId && (!pred || pred(rs))) return true;
      }
      return false;
    };
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

  // Changes the kernel with cmd; the records must show it within a second and, when peerSees is
  // given, the peer within txDelay (or peerLimit) after that.
  void step(const std::string& what, const std::string& cmd, const std::function<bool()>& records,
            const std::function<bool()>& peerSees = nullptr, double peerLimit = kTxDelay) {
    std::string out;
    ASSERT_EQ(shOut(cmd, out), 0) << cmd << ": " << out;
    const double t = waitFor(records);
    EXPECT_LE(t, 1.0) << what << ": the records";
    std::printf("[ figures  ] %-44s records %6.1f ms", what.c_str(), t * 1000);
    if (peerSees) {
      const double tx = waitFor(peerSees, peerLimit + kWireSlack);
      EXPECT_LE(tx, peerLimit + kWireSlack) << what << ": the peer's LLDPDU";
      std::printf("   peer +%6.1f ms", tx * 1000);
    }
    std::printf("\n");
  }

  // Whether this kernel can create a link of the kind; fails the test when ip fails otherwise.
  static bool supports(const std::string& kind, const std::string& args = "") {
    std::string out;
    if (shOut("ip link add ho-probe type " + kind + " " + args, out) == 0) {
      sh("ip link del ho-probe");
      return true;
    }
    const bool missing = out.find("Unknown device type") != std::string::npos ||
                         out.find("Operation not supported") != std::string::npos;
    if (!missing) ADD_FAILURE() << "ip link add type " << kind << ": " << out;
    return false;
  }

  Linux::AsioScheduler s;
  Linux::HostRecords r;
  std::unique_ptr<Linux::HostSources> sources;
  std::unique_ptr<Platform::StateDb> db;
  Lldp::CliConfig::Ptr cliConfig;
  std::unique_ptr<Lldp::Agent::Agent> agent;
  std::unique_ptr<Demo::StandaloneEngine> peer;
  std::vector<std::string> logs;  // "ID: text" of each line logged

 private:
  int homeNet_ = -1, homeUts_ = -1;
  bool entered_ = false;
  std::string peerNs_;
  int peerPorts_ = 0;
};

}  // namespace HostTest
