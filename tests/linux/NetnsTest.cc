// Raw sockets on a veth pair between two network namespaces: a tagged LLDPDU arrives with its tag
// separated, and frames nobody reads cost no spinning. Needs root (CI runs it); elsewhere it skips.
#include <algorithm>
#include <cstring>

#include "HostFixture.h"
#include "data/Traces.h"
#include "platform/Reactor.h"
#include "protocol/LldpProtocolSm.h"

namespace {

using HostTest::sh;

// Every frame, whatever its type.
struct AllFrames : Interface::EthDevPamManager {
  AllFrames() { ethProtocolIs(3); }
  void handleEnabled() override {}
};

class NetnsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces and raw sockets";
    if (sh("ip -V") != 0) GTEST_SKIP() << "needs iproute2 (ip)";
    nsA_ = HostTest::netnsName("a");
    nsB_ = HostTest::netnsName("b");
    const bool ready =
        sh("ip netns add " + nsA_) == 0 && sh("ip netns add " + nsB_) == 0 &&
        sh("ip link add lldpa netns " + nsA_ + " type veth peer name lldpb netns " + nsB_) == 0 &&
        sh("ip -n " + nsA_ + " link set lldpa up") == 0 && sh("ip -n " + nsB_ + " link set lldpb up") == 0;
    if (!ready) GTEST_SKIP() << "cannot create network namespaces and a veth pair here";
    Platform::logSinkIs([](const Platform::LogRecord&) {});
    std::string error;
    sender_ = Linux::RawSocketPam::open("lldpb", "lldpb", 0, allFrames_, s_, nsB_, error);
    ASSERT_TRUE(sender_) << error;
  }
  void TearDown() override {
    sender_ = nullptr;
    if (!nsA_.empty()) sh("ip netns del " + nsA_);
    if (!nsB_.empty()) sh("ip netns del " + nsB_);
    Platform::logSinkIs(nullptr);
  }
  // Sends frame from the far end, padded to the Ethernet minimum.
  void send(const std::vector<uint8_t>& frame) {
    auto pkt = Platform::PacketPool::instance().alloc();
    const size_t bytes = std::max<size_t>(frame.size(), 60);
    uint8_t* f = pkt->append(bytes);
    std::memset(f, 0, bytes);
    std::memcpy(f, frame.data(), frame.size());
    sender_->txPkt(std::move(pkt));
  }

  Linux::AsioScheduler s_;
  AllFrames allFrames_;
  Platform::Ptr<Linux::RawSocketPam> sender_;
  std::string nsA_, nsB_;
};

TEST_F(NetnsTest, TaggedFramesArriveWithTheirTagSeparated) {
  const Konet::EthAddr mac(2, 0, 0, 0, 0x0a, 1);
  Demo::StandaloneEngine a(s_, "side-a", mac, [ns = nsA_](Lldp::Agent::Protocol::Root& r) {
    return std::make_unique<Linux::RawSocketPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                        r.deviceIntfStatusDir(), r.scheduler(), ns);
  });
  a.addPort("lldpa", mac);
  a.config->portConfig("lldpa")->adminStatusIs(Lldp::AdminStatus::rxOnly);
  TestSupport::TraceCapture traces("LldpProtocolSm/6");
  s_.runFor(0.2);
  send({0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0x00, 0x00, 0x00, 0xbb, 0x02,  // addresses
        0x81, 0x00, 0x00, 0x64,                                                // 802.1Q, VLAN 100
        0x88, 0xcc,                                                            // LLDP
        0x02, 0x07, 0x04, 0x02, 0x00, 0x00, 0x00, 0x0b, 0xbb,                  // Chassis ID
        0x04, 0x06, 0x05, 'e', 't', 'h', '9', '9',                             // Port ID
        0x06, 0x02, 0x00, 0x78, 0x00, 0x00});                                  // TTL 120, End
  EXPECT_EQ(sender_->txFrames(), 1u);
  s_.runFor(0.5);
  ASSERT_EQ(a.status->portStatus("lldpa")->remoteSystems(), 1u);
  EXPECT_TRUE(traces.has("with VLAN ID 100"));
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
  std::string error;
  auto port = Linux::RawSocketPam::open("lldpa", "lldpa", 0, allFrames_, s_, nsA_, error);
  ASSERT_TRUE(port) << error;
  auto sendTen = [&] {
    for (int i = 0; i < 10; ++i) send({0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0, 0, 0, 0xbb, 0x02, 0x88, 0xcc});
  };
  sendTen();  // no watcher at all
  size_t events = s_.runFor(0.3);
  EXPECT_GE(port->rxUnread(), 10u);
  EXPECT_LT(events, 100u);

  auto lazy = Platform::makeReactor<LazyListener>(port);
  const uint64_t before = port->rxUnread();
  sendTen();  // a watcher that does not read
  events = s_.runFor(0.3);
  EXPECT_GE(port->rxUnread() - before, 10u);
  EXPECT_GE(lazy->notified, 1);
  EXPECT_LE(lazy->notified, 10 + 10);
  EXPECT_LT(events, 100u);
  EXPECT_EQ(port->rxFrames(), 0u);
}

}  // namespace
