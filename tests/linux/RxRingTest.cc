// Raw sockets and their receive rings on a veth pair between two network namespaces: every
// frame sent is either handed over, in order and whole, or counted as dropped by the kernel; a
// tagged LLDPDU arrives with its tag separated; frames nobody reads cost no spinning; a backlog
// is taken in bounded passes; rings take their share of the budget and are replaced under
// traffic without losing a frame. Needs root (CI runs it); elsewhere it skips.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "data/Traces.h"
#include "demo/StandaloneEngine.h"
#include "linux/AsioScheduler.h"
#include "linux/RawSocketPam.h"
#include "platform/Log.h"
#include "platform/Reactor.h"
#include "protocol/LldpProtocolSm.h"

namespace {

int sh(const std::string& cmd) { return std::system((cmd + " >/dev/null 2>&1").c_str()); }

struct LldpSocketConfig : Interface::EthDevPamManager {
  LldpSocketConfig() {
    ethProtocolIs(3);
    separateDot1QHdrIs(true);
    listenAddrIs(Konet::kLldpMulticast);
    filterProgramIs(Lldp::Agent::Protocol::lldpFilterProgram());
    maxRxPktDataIs(10236);
  }
  void handleEnabled() override {}
};

// Takes every frame offered and notes its length and sequence number; a lazy one only counts
// the notifications and never takes a frame.
struct Reader : Platform::Reactor {
  explicit Reader(Platform::Ptr<Konet::Pam> pam, bool lazy = false) : pam_(std::move(pam)), lazy_(lazy) {
    watch<&Reader::handleReadableCount>(pam_, Konet::Pam::readableCountAttr);
  }
  void handleReadableCount() {
    ++notified;
    if (lazy_) return;
    Platform::PacketPtr pkt = pam_->rxPkt();
    if (!pkt) return;
    lengths.push_back(pkt->bytes());
    uint32_t seq;
    std::memcpy(&seq, pkt->data() + 20, sizeof seq);
    sequence.push_back(seq);
  }
  Platform::Ptr<Konet::Pam> pam_;
  bool lazy_;
  int notified = 0;
  std::vector<size_t> lengths;
  std::vector<uint32_t> sequence;
};

class RxRingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces and raw sockets";
    if (sh("ip -V") != 0) GTEST_SKIP() << "needs iproute2 (ip)";
    const std::string id = std::to_string(getpid());
    nsA_ = "rg-ring-a-" + id;
    nsB_ = "rg-ring-b-" + id;
    const bool ready = sh("ip netns add " + nsA_) == 0 && sh("ip netns add " + nsB_) == 0 &&
                       sh("ip link add rgra netns " + nsA_ + " mtu 9600 type veth peer name rgrb netns " + nsB_ +
                          " mtu 9600") == 0 &&
                       sh("ip -n " + nsA_ + " link set rgra up") == 0 && sh("ip -n " + nsB_ + " link set rgrb up") == 0;
    if (!ready) GTEST_SKIP() << "cannot create network namespaces and a veth pair here";
    Platform::logSinkIs([](const Platform::LogRecord&) {});
    Linux::RawSocketPam::ringBudgetIs(Linux::RawSocketPam::kRxRingBudget);
    std::string error;
    receiver_ = Linux::RawSocketPam::open("rgra", "rgra", 0, config_, s_, nsA_, error);
    ASSERT_TRUE(receiver_) << error;
    sender_ = Linux::RawSocketPam::open("rgrb", "rgrb", 0, config_, s_, nsB_, error);
    ASSERT_TRUE(sender_) << error;
  }
  void TearDown() override {
    others_.clear();
    receiver_ = nullptr;
    sender_ = nullptr;
    Linux::RawSocketPam::ringBudgetIs(Linux::RawSocketPam::kRxRingBudget);
    if (!nsA_.empty()) sh("ip netns del " + nsA_);
    if (!nsB_.empty()) sh("ip netns del " + nsB_);
    Platform::logSinkIs(nullptr);
  }
  // Sends frame from the far end, padded with zeros to `bytes`.
  void send(const std::vector<uint8_t>& frame, size_t bytes) {
    auto pkt = Platform::PacketPool::instance().alloc();
    uint8_t* f = pkt->append(bytes);
    std::memset(f, 0, bytes);
    std::memcpy(f, frame.data(), frame.size());
    sender_->txPkt(std::move(pkt));
  }
  // An LLDP frame of `bytes` bytes whose bytes 20..23 hold its sequence number.
  void send(uint32_t seq, size_t bytes = 112) {
    std::vector<uint8_t> f{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0, 0, 0, 0xbb, 0x02, 0x88, 0xcc};
    f.resize(24);
    std::memcpy(f.data() + 20, &seq, sizeof seq);
    send(f, bytes);
  }
  // Sends `count` frames numbered from 0 from a thread of its own, `perMs` of them each
  // millisecond, while the test goes on; `sent` counts those the kernel took.
  std::thread floodStart(uint32_t count, uint32_t perMs, std::atomic<uint32_t>& sent, std::atomic<bool>& done) {
    return std::thread([count, perMs, &sent, &done, ns = nsB_] {
      struct Done {
        std::atomic<bool>& done;
        ~Done() { done = true; }
      } finished{done};
      // Only this thread enters the namespace.
      const int target = ::open(("/var/run/netns/" + ns).c_str(), O_RDONLY | O_CLOEXEC);
      if (target < 0 || setns(target, CLONE_NEWNET) != 0) return;
      ::close(target);
      const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
      sockaddr_ll addr{};
      addr.sll_family = AF_PACKET;
      addr.sll_ifindex = static_cast<int>(if_nametoindex("rgrb"));
      if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) return;
      uint8_t frame[112] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0, 0, 0, 0xbb, 0x03, 0x88, 0xcc};
      for (uint32_t seq = 0; seq < count; ++seq) {
        std::memcpy(frame + 20, &seq, sizeof seq);
        if (::send(fd, frame, sizeof frame, 0) == sizeof frame) ++sent;
        if (seq % perMs == perMs - 1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      ::close(fd);
    });
  }
  std::vector<Platform::Ptr<Linux::RawSocketPam>> allPorts() const {
    std::vector<Platform::Ptr<Linux::RawSocketPam>> all{receiver_, sender_};
    all.insert(all.end(), others_.begin(), others_.end());
    return all;
  }
  // More ports, on the loopback of the receiving namespace, where no LLDPDU goes: they only
  // take their part of the budget.
  void portsOpen(size_t count) {
    for (size_t i = 0; i < count; ++i) {
      std::string error;
      auto pam = Linux::RawSocketPam::open("lo", "lo", 0, config_, s_, nsA_, error);
      ASSERT_TRUE(pam) << error;
      others_.push_back(std::move(pam));
    }
  }

  std::string nsA_, nsB_;
  Linux::AsioScheduler s_;
  LldpSocketConfig config_;
  Platform::Ptr<Linux::RawSocketPam> receiver_, sender_;
  std::vector<Platform::Ptr<Linux::RawSocketPam>> others_;
};

TEST_F(RxRingTest, EveryFrameIsHandedOverInOrderOrCountedAsDropped) {
  auto reader = Platform::makeReactor<Reader>(receiver_);
  // A port opens with the least ring and takes its share once the opening event is over.
  EXPECT_EQ(receiver_->ringBytes(), Linux::RawSocketPam::kRxRingBytes);
  // Before that, nobody reads while they are sent: the ring fills and the kernel drops the
  // rest; the port's ring then grows, what it held still handed over.
  constexpr uint32_t kBurst = 3000;
  for (uint32_t i = 0; i < kBurst; ++i) send(i);
  ASSERT_EQ(sender_->txFrames(), kBurst);
  s_.runFor(0.3);
  size_t taken = reader->sequence.size();
  EXPECT_GE(taken, Konet::Pam::kRxFramesPerPass);
  EXPECT_GT(receiver_->rxKernelDrops(), 0u);
  EXPECT_EQ(taken + receiver_->rxKernelDrops(), kBurst);
  EXPECT_EQ(receiver_->rxFrames(), taken);
  EXPECT_EQ(receiver_->rxRingResizes(), 1u);
  EXPECT_EQ(receiver_->rxRingResizesLossy(), 0u);
  EXPECT_EQ(receiver_->ringBytes(), Linux::RawSocketPam::kRxRingMaxBytes);
  EXPECT_EQ(Linux::RawSocketPam::ringBytesInUse(), receiver_->ringBytes() + sender_->ringBytes());

  // The grown ring holds a burst that the first could not, taken in bounded passes.
  const uint64_t drops = receiver_->rxKernelDrops();
  const uint64_t passes = receiver_->rxPasses();
  constexpr uint32_t kSecond = 5000;
  for (uint32_t i = 0; i < kSecond; ++i) send(kBurst + i);
  s_.runFor(0.3);
  EXPECT_EQ(reader->sequence.size(), taken + kSecond);
  EXPECT_EQ(receiver_->rxKernelDrops(), drops);
  EXPECT_GE(receiver_->rxPasses() - passes, kSecond / Konet::Pam::kRxFramesPerPass);
  for (size_t i = 1; i < reader->sequence.size(); ++i) ASSERT_LT(reader->sequence[i - 1], reader->sequence[i]) << i;
  for (size_t length : reader->lengths) ASSERT_EQ(length, 112u);

  // Read as they come, and a frame of the full receive size arrives whole.
  taken = reader->sequence.size();
  for (uint32_t i = 0; i < 20; ++i) {
    send(kBurst + kSecond + i);
    s_.runFor(0.002);
  }
  send(kBurst + kSecond + 20, 9000);
  s_.runFor(0.1);
  ASSERT_EQ(reader->sequence.size(), taken + 21);
  EXPECT_EQ(reader->sequence.back(), kBurst + kSecond + 20);
  EXPECT_EQ(reader->lengths.back(), 9000u);
  EXPECT_EQ(receiver_->rxKernelDrops(), drops);
  EXPECT_EQ(receiver_->rxUnread(), 0u);
}

TEST_F(RxRingTest, TaggedFramesArriveWithTheirTagSeparated) {
  const Konet::EthAddr mac(2, 0, 0, 0, 0x0a, 1);
  Demo::StandaloneEngine a(s_, "side-a", mac, [ns = nsA_](Lldp::Agent::Protocol::Root& r) {
    return std::make_unique<Linux::RawSocketPamManager>(r.desiredIntfDir(), r.pamCollection(),
                                                        r.deviceIntfStatusDir(), r.scheduler(), ns);
  });
  a.addPort("rgra", mac);
  a.config->portConfig("rgra")->adminStatusIs(Lldp::AdminStatus::rxOnly);
  TestSupport::TraceCapture traces("LldpProtocolSm/6");
  s_.runFor(0.2);
  send({0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0x00, 0x00, 0x00, 0xbb, 0x02,  // addresses
        0x81, 0x00, 0x00, 0x64,                                                // 802.1Q, VLAN 100
        0x88, 0xcc,                                                            // LLDP
        0x02, 0x07, 0x04, 0x02, 0x00, 0x00, 0x00, 0x0b, 0xbb,                  // Chassis ID
        0x04, 0x06, 0x05, 'e', 't', 'h', '9', '9',                             // Port ID
        0x06, 0x02, 0x00, 0x78, 0x00, 0x00},                                   // TTL 120, End
       60);
  EXPECT_EQ(sender_->txFrames(), 1u);
  s_.runFor(0.5);
  ASSERT_EQ(a.status->portStatus("rgra")->remoteSystems(), 1u);
  EXPECT_TRUE(traces.has("with VLAN ID 100"));
}

// Frames nobody takes, with no watcher or one that never reads, wake nobody in a loop; they
// stay behind in the ring, and a reader that comes later hears the next frame.
TEST_F(RxRingTest, FramesNobodyTakesCostNoSpinningAndLeaveTheRingForLaterOnes) {
  for (uint32_t i = 0; i < 200; ++i) send(i);
  size_t events = s_.runFor(0.3);
  EXPECT_EQ(receiver_->rxUnread() + receiver_->rxKernelDrops(), 200u);
  EXPECT_LT(events, 100u);

  auto lazy = Platform::makeReactor<Reader>(receiver_, true);
  const uint64_t before = receiver_->rxUnread() + receiver_->rxKernelDrops();
  for (uint32_t i = 200; i < 210; ++i) send(i);
  events = s_.runFor(0.3);
  EXPECT_EQ(receiver_->rxUnread() + receiver_->rxKernelDrops() - before, 10u);
  EXPECT_GE(lazy->notified, 1);
  EXPECT_LE(lazy->notified, 10 + 10);
  EXPECT_LT(events, 100u);
  EXPECT_EQ(receiver_->rxFrames(), 0u);
  lazy.reset();

  auto reader = Platform::makeReactor<Reader>(receiver_);
  send(1000);
  s_.runFor(0.1);
  ASSERT_EQ(reader->sequence.size(), 1u);
  EXPECT_EQ(reader->sequence[0], 1000u);
}

using Linux::RawSocketPam;
constexpr size_t kKiB = 1024;

TEST_F(RxRingTest, RingsTakeTheirShareOfTheBudgetAndGiveItBackToNewPorts) {
  // Shares halve as ports are added, between the least ring and the largest.
  EXPECT_EQ(RawSocketPam::ringShare(1), RawSocketPam::kRxRingMaxBytes);
  EXPECT_EQ(RawSocketPam::ringShare(16), RawSocketPam::kRxRingMaxBytes);
  EXPECT_EQ(RawSocketPam::ringShare(17), RawSocketPam::kRxRingMaxBytes / 2);
  EXPECT_EQ(RawSocketPam::ringShare(1000), RawSocketPam::kRxRingBytes);
  EXPECT_EQ(RawSocketPam::ringShare(1024), RawSocketPam::kRxRingBytes);
  EXPECT_EQ(RawSocketPam::ringShare(5000), RawSocketPam::kRxRingBytes);

  // The same on a budget of 16 least rings: two ports take half each...
  RawSocketPam::ringBudgetIs(16 * RawSocketPam::kRxRingBytes);
  s_.runFor(0.1);
  EXPECT_EQ(receiver_->ringBytes(), 512 * kKiB);
  EXPECT_EQ(sender_->ringBytes(), 512 * kKiB);
  // ...and give it back when fourteen more are opened together, at the next budget pass, once
  // the replaced rings are read out.
  portsOpen(14);
  s_.runFor(RawSocketPam::kRingBudgetInterval + 0.2);
  for (const auto& pam : allPorts()) EXPECT_EQ(pam->ringBytes(), RawSocketPam::kRxRingBytes);
  EXPECT_EQ(RawSocketPam::ringBytesInUse(), 16 * RawSocketPam::kRxRingBytes);
  EXPECT_EQ(receiver_->rxRingResizesLossy(), 0u);
  // Past the last share, a port still gets the least ring.
  portsOpen(1);
  s_.runFor(0.1);
  EXPECT_EQ(others_.back()->ringBytes(), RawSocketPam::kRxRingBytes);
  EXPECT_EQ(RawSocketPam::ringBytesInUse(), 17 * RawSocketPam::kRxRingBytes);
}

TEST_F(RxRingTest, ABacklogOfHalfTheRingGrowsItBeforeItOverflows) {
  // Small rings with room left in the budget: sixteen ports, then six of them gone.
  RawSocketPam::ringBudgetIs(16 * RawSocketPam::kRxRingBytes);
  portsOpen(14);
  s_.runFor(0.2);
  others_.resize(8);
  ASSERT_EQ(receiver_->ringBytes(), RawSocketPam::kRxRingBytes);
  const uint64_t resizes = receiver_->rxRingResizes();
  // Frames of 9000 bytes, one a block whatever the block timeout does: four of them fill the
  // ring before anyone reads, and the first pass, finding three blocks handed over, grows it
  // to the most the budget has room for, with nothing lost.
  auto reader = Platform::makeReactor<Reader>(receiver_);
  for (uint32_t i = 0; i < 4; ++i) send(i, 9000);
  s_.runFor(0.1);
  EXPECT_EQ(receiver_->rxRingResizes(), resizes + 1);
  EXPECT_EQ(receiver_->ringBytes(), 256 * kKiB);
  EXPECT_EQ(receiver_->rxKernelDrops(), 0u);
  ASSERT_EQ(reader->sequence.size(), 4u);
  // The grown ring takes a burst the first could not hold; no room to grow further.
  for (uint32_t i = 4; i < 16; ++i) send(i, 9000);
  s_.runFor(0.1);
  EXPECT_EQ(receiver_->ringBytes(), 256 * kKiB);
  EXPECT_EQ(receiver_->rxKernelDrops(), 0u);
  ASSERT_EQ(reader->sequence.size(), 16u);
  for (uint32_t i = 0; i < 16; ++i) ASSERT_EQ(reader->sequence[i], i);
  EXPECT_EQ(receiver_->rxRingResizesLossy(), 0u);
}

TEST_F(RxRingTest, RingsReplacedUnderTrafficLoseNothing) {
  auto reader = Platform::makeReactor<Reader>(receiver_);
  s_.runFor(0.05);
  ASSERT_EQ(receiver_->ringBytes(), RawSocketPam::kRxRingMaxBytes);
  constexpr uint32_t kFrames = 40000;  // about 2 s
  std::atomic<uint32_t> sent{0};
  std::atomic<bool> done{false};
  std::thread flood = floodStart(kFrames, 20, sent, done);
  s_.runFor(0.1);
  // A smaller budget and a new port: at the next budget pass the ring comes down...
  RawSocketPam::ringBudgetIs(1024 * kKiB);
  portsOpen(1);
  s_.runFor(RawSocketPam::kRingBudgetInterval + 0.1);
  EXPECT_LE(receiver_->ringBytes(), 512 * kKiB);
  // ...and grows again when there is room, once ports have stopped coming.
  RawSocketPam::ringBudgetIs(RawSocketPam::kRxRingBudget);
  portsOpen(1);
  for (int i = 0; i < 100 && receiver_->ringBytes() < RawSocketPam::kRxRingMaxBytes; ++i) s_.runFor(0.05);
  EXPECT_EQ(receiver_->ringBytes(), RawSocketPam::kRxRingMaxBytes);
  while (!done) s_.runFor(0.05);
  flood.join();
  s_.runFor(0.2);
  ASSERT_EQ(sent.load(), kFrames);
  EXPECT_GE(receiver_->rxRingResizes(), 3u);
  EXPECT_EQ(receiver_->rxRingResizesLossy(), 0u);
  // Every frame once, in the order sent. A reader starved by a busy machine may let a ring
  // overflow: the kernel counts those frames, so none goes missing unaccounted.
  const uint64_t drops = receiver_->rxKernelDrops();
  EXPECT_EQ(reader->sequence.size() + drops, kFrames);
  for (size_t i = 1; i < reader->sequence.size(); ++i) ASSERT_LT(reader->sequence[i - 1], reader->sequence[i]) << i;
  if (drops == 0) {
    EXPECT_EQ(reader->sequence.back(), kFrames - 1);
  }
  EXPECT_EQ(RawSocketPam::ringBytesInUse(), 4 * RawSocketPam::kRxRingMaxBytes);
}

// A ring that cannot be mapped again after a resize leaves no socket that wakes the event
// thread for ever: it is closed, and opened again after a pause, doubling while it fails.
TEST_F(RxRingTest, ARingThatCannotBeMappedIsReopenedLater) {
  auto reader = Platform::makeReactor<Reader>(receiver_);
  s_.runFor(0.05);
  ASSERT_EQ(receiver_->ringBytes(), RawSocketPam::kRxRingMaxBytes);
  // Both large rings come down; every map of the two resizes fails (the new socket's, then
  // the three sizes tried in place).
  RawSocketPam::ringBudgetIs(1024 * kKiB);
  portsOpen(1);
  Linux::PacketSocket::ringMapFailuresIs(8);
  s_.runFor(RawSocketPam::kRingBudgetInterval + 0.1);
  Linux::PacketSocket::ringMapFailuresIs(0);
  ASSERT_FALSE(receiver_->ringOpen());
  ASSERT_FALSE(sender_->ringOpen());
  send(1);
  EXPECT_EQ(sender_->txErrors(), 1u);
  const uint64_t events = s_.events();
  s_.runFor(0.5 * RawSocketPam::kReopenDelay);
  EXPECT_LT(s_.events() - events, 10u);  // nothing readable spins
  EXPECT_TRUE(reader->sequence.empty());
  s_.runFor(RawSocketPam::kReopenDelay);
  ASSERT_TRUE(receiver_->ringOpen());
  ASSERT_TRUE(sender_->ringOpen());
  EXPECT_EQ(receiver_->rxRingReopens(), 1u);
  send(2);
  s_.runFor(0.1);
  ASSERT_EQ(reader->sequence.size(), 1u);
  EXPECT_EQ(reader->sequence[0], 2u);
}

TEST_F(RxRingTest, AThousandPortsStayWithinTheBudget) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur < 2200) {
    GTEST_SKIP() << "needs 2,200 open files for a thousand ports and the rings they replace";
  }
  // Opened together, as when the agent starts: each keeps the least ring, no ring replaced.
  const auto start = std::chrono::steady_clock::now();
  portsOpen(998);
  s_.runFor(0.05);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(receiver_->rxRingResizes(), 0u);
  size_t total = 0;
  for (const auto& pam : allPorts()) {
    EXPECT_GE(pam->ringBytes(), RawSocketPam::kRxRingBytes);
    total += pam->ringBytes();
  }
  EXPECT_EQ(RawSocketPam::ringBytesInUse(), total);
  EXPECT_LE(total, RawSocketPam::kRxRingBudget);
  RecordProperty("ringBytesInUse", std::to_string(total));
  RecordProperty("openSeconds", std::to_string(seconds));
}

}  // namespace
