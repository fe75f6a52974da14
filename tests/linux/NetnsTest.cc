// Two protocol engines in two network namespaces joined by a veth pair, exchanging LLDPDUs over
// real raw sockets. Needs root (CI runs it); elsewhere it skips.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "demo/StandaloneEngine.h"
#include "linux/AsioScheduler.h"
#include "linux/RawSocketPam.h"
#include "platform/Log.h"
#include "platform/Reactor.h"
#include "protocol/LldpProtocolSm.h"

namespace {

using Lldp::Agent::Protocol::Root;

int sh(const std::string& cmd) { return std::system((cmd + " >/dev/null 2>&1").c_str()); }

std::string shOut(const std::string& cmd) {
  std::string out;
  if (FILE* p = popen(cmd.c_str(), "r")) {
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    pclose(p);
  }
  return out;
}

Lldp::Agent::Protocol::PamManagerFactory rawSockets(const std::string& netNs) {
  return [netNs](Root& r) {
    return std::make_unique<Linux::RawSocketPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                        r.deviceIntfStatusDir(), r.scheduler(), netNs);
  };
}

// One engine in a namespace with one port.
struct Side : Demo::StandaloneEngine {
  Side(Linux::AsioScheduler& s, const std::string& ns, const std::string& name, const std::string& dev,
       const Konet::EthAddr& mac)
      : StandaloneEngine(s, name, mac, rawSockets(ns)), device(dev) {
    addPort(dev, mac);
    phy = phyDir->intfStatus(dev);
  }
  Lldp::PortStatus::Ptr port() const { return status->portStatus(device); }
  std::string device;
  Interface::EthPhyIntfStatus::Ptr phy;
};

class NetnsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces and raw sockets";
    if (sh("ip -V") != 0) GTEST_SKIP() << "needs iproute2 (ip)";
    const std::string id = std::to_string(getpid());
    nsA_ = "lldpt-a-" + id;
    nsB_ = "lldpt-b-" + id;
    ready_ = sh("ip netns add " + nsA_) == 0 && sh("ip netns add " + nsB_) == 0 &&
             sh("ip link add lldpa netns " + nsA_ + " address 02:00:00:00:0a:01 type veth peer name lldpb netns " +
                nsB_ + " address 02:00:00:00:0b:01") == 0 &&
             sh("ip -n " + nsA_ + " link set lldpa up") == 0 && sh("ip -n " + nsB_ + " link set lldpb up") == 0;
    if (!ready_) GTEST_SKIP() << "cannot create network namespaces and a veth pair here";
    Platform::logSinkIs([](const Platform::LogRecord&) {});
  }
  void TearDown() override {
    if (!nsA_.empty()) sh("ip netns del " + nsA_);
    if (!nsB_.empty()) sh("ip netns del " + nsB_);
    Platform::logSinkIs(nullptr);
  }
  std::string nsA_, nsB_;
  bool ready_ = false;
};

TEST_F(NetnsTest, EnginesLearnEachOtherOverRawSockets) {
  Linux::AsioScheduler s;
  Side a(s, nsA_, "side-a", "lldpa", *Konet::EthAddr::parse("02:00:00:00:0a:01"));
  Side b(s, nsB_, "side-b", "lldpb", *Konet::EthAddr::parse("02:00:00:00:0b:01"));
  ASSERT_TRUE(a.root->pamCollection()->intfPamHas("lldpa"));
  ASSERT_TRUE(b.root->pamCollection()->intfPamHas("lldpb"));

  // Capture what crosses the wire while the engines talk.
  const std::string pcap = "/tmp/lldp-netns-" + std::to_string(getpid()) + ".pcap";
  const bool haveTcpdump = sh("tcpdump --version") == 0;
  if (haveTcpdump) {
    sh("(ip netns exec " + nsA_ + " timeout 5 tcpdump -i lldpa -w " + pcap + " ether proto 0x88cc &)");
    s.runFor(0.5);
  }
  s.runFor(4);  // the first LLDPDUs leave after txDelay (2 s)

  ASSERT_EQ(a.port()->remoteSystems(), 1u);
  ASSERT_EQ(b.port()->remoteSystems(), 1u);
  const auto& fromB = *a.port()->remoteSystem().begin().value();
  EXPECT_EQ(fromB.sysName(), "side-b");
  EXPECT_EQ(fromB.msap().chassisIdentifier.stringValue(), "02:00:00:00:0b:01");
  EXPECT_EQ(fromB.msap().portIdentifier.stringValue(), "lldpb");
  EXPECT_EQ(fromB.ethAddr().toString(), "02:00:00:00:0b:01");
  EXPECT_EQ(b.port()->remoteSystem().begin().value()->sysName(), "side-a");
  EXPECT_EQ(a.port()->rxFramesErrors(), 0u);
  EXPECT_EQ(a.port()->remoteSystems(), 1u);  // our own frames never come back as a neighbour

  if (haveTcpdump) {
    sh("sleep 1.5");
    const std::string decoded = shOut("tcpdump -nn -v -r " + pcap + " 2>&1");
    EXPECT_NE(decoded.find("LLDP"), std::string::npos) << decoded;
    EXPECT_EQ(decoded.find("malformed"), std::string::npos) << decoded;
    EXPECT_EQ(decoded.find("[|"), std::string::npos) << decoded;
    std::remove(pcap.c_str());
  }

  // Link down on one side forgets the neighbour there only.
  a.phy->linkStatusIs(Interface::LinkStatus::linkDown);
  EXPECT_EQ(a.port()->remoteSystems(), 0u);
  EXPECT_EQ(b.port()->remoteSystems(), 1u);
}

TEST_F(NetnsTest, TaggedFramesArriveWithTheirTagSeparated) {
  Linux::AsioScheduler s;
  Side a(s, nsA_, "side-a", "lldpa", *Konet::EthAddr::parse("02:00:00:00:0a:01"));
  a.config->portConfig("lldpa")->adminStatusIs(Lldp::AdminStatus::rxOnly);
  std::vector<std::string> traces;
  auto previous = Platform::traceSinkIs([&](const Platform::TraceFacility&, int, std::string_view l) {
    traces.emplace_back(l);
  });
  Platform::traceLevelsIs("LldpProtocolSm/6");
  // A tagged LLDPDU sent into the wire from a raw socket in the other namespace.
  struct SenderConfig : Interface::EthDevPamManager {
    void handleEnabled() override {}
  } config;
  config.ethProtocolIs(3);
  std::string error;
  auto sender = Linux::RawSocketPam::open("lldpb", "lldpb", config, s, nsB_, error);
  ASSERT_TRUE(sender) << error;
  const uint8_t frame[] = {
      0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0x00, 0x00, 0x00, 0xbb, 0x02,  // addresses
      0x81, 0x00, 0x00, 0x64,                                                // 802.1Q, VLAN 100
      0x88, 0xcc,                                                            // LLDP
      0x02, 0x07, 0x04, 0x02, 0x00, 0x00, 0x00, 0x0b, 0xbb,                  // Chassis ID
      0x04, 0x06, 0x05, 'e', 't', 'h', '9', '9',                             // Port ID
      0x06, 0x02, 0x00, 0x78, 0x00, 0x00};                                   // TTL 120, End
  auto pkt = Platform::PacketPool::instance().alloc();
  std::memcpy(pkt->append(sizeof frame), frame, sizeof frame);
  s.runFor(0.2);
  sender->txPkt(std::move(pkt));
  EXPECT_EQ(sender->txFrames(), 1u);
  s.runFor(0.5);
  Platform::traceLevelsIs("");
  Platform::traceSinkIs(previous);
  ASSERT_EQ(a.port()->remoteSystems(), 1u);
  bool tagSeen = false;
  for (const auto& t : traces) tagSeen |= t.find("with VLAN ID 100") != std::string::npos;
  EXPECT_TRUE(tagSeen);
}

// Hears readable notifications but never takes a frame.
struct LazyListener : Platform::Reactor {
  explicit LazyListener(Platform::Ptr<Konet::Pam> pam) : pam_(std::move(pam)) {
    watch<&LazyListener::handleReadableCount>(pam_, Konet::Pam::readableCountAttr);
  }
  void handleReadableCount() { ++notified; }
  Platform::Ptr<Konet::Pam> pam_;
  int notified = 0;
};

TEST_F(NetnsTest, FramesNobodyReadsAreDroppedWithoutSpinning) {
  Linux::AsioScheduler s;
  struct AllFrames : Interface::EthDevPamManager {
    void handleEnabled() override {}
  } config;
  config.ethProtocolIs(3);  // every frame
  std::string error;
  auto sender = Linux::RawSocketPam::open("lldpb", "lldpb", config, s, nsB_, error);
  ASSERT_TRUE(sender) << error;
  auto port = Linux::RawSocketPam::open("lldpa", "lldpa", config, s, nsA_, error);
  ASSERT_TRUE(port) << error;
  auto send = [&](int frames) {
    for (int i = 0; i < frames; ++i) {
      auto pkt = Platform::PacketPool::instance().alloc();
      uint8_t* f = pkt->append(60);
      std::memset(f, 0, 60);
      const uint8_t header[] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0, 0, 0, 0xbb, 0x02, 0x88, 0xcc};
      std::memcpy(f, header, sizeof header);
      sender->txPkt(std::move(pkt));
    }
  };

  send(10);  // no watcher at all
  size_t events = s.runFor(0.3);
  EXPECT_GE(port->rxUnread(), 10u);
  EXPECT_LT(events, 100u);

  auto lazy = Platform::makeReactor<LazyListener>(port);
  const uint64_t before = port->rxUnread();
  send(10);  // a watcher that does not read
  events = s.runFor(0.3);
  EXPECT_GE(port->rxUnread() - before, 10u);
  EXPECT_GE(lazy->notified, 1);
  EXPECT_LE(lazy->notified, 10 + 10);
  EXPECT_LT(events, 100u);
  EXPECT_EQ(port->rxFrames(), 0u);
}

}  // namespace
