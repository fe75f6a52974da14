// The receive ring on a veth pair between two network namespaces: every frame sent is either
// handed over, in order and whole, or counted as dropped by the kernel; a backlog is taken in
// bounded passes. Needs root (CI runs it); elsewhere it skips.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

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

// Takes every frame offered and notes its length and sequence number.
struct Reader : Platform::Reactor {
  explicit Reader(Platform::Ptr<Konet::Pam> pam) : pam_(std::move(pam)) {
    watch<&Reader::handleReadableCount>(pam_, Konet::Pam::readableCountAttr);
  }
  void handleReadableCount() {
    Platform::PacketPtr pkt = pam_->rxPkt();
    if (!pkt) return;
    lengths.push_back(pkt->bytes());
    uint32_t seq;
    std::memcpy(&seq, pkt->data() + 20, sizeof seq);
    sequence.push_back(seq);
  }
  Platform::Ptr<Konet::Pam> pam_;
  std::vector<size_t> lengths;
  std::vector<uint32_t> sequence;
};

class RxRingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to create network namespaces and raw sockets";
    if (sh("ip -V") != 0) GTEST_SKIP() << "needs iproute2 (ip)";
    const std::string id = std::to_string(getpid());
    nsA_ = "rx-ring-a-" + id;
    nsB_ = "rx-ring-b-" + id;
    const bool ready = sh("ip netns add " + nsA_) == 0 && sh("ip netns add " + nsB_) == 0 &&
                       sh("ip link add rxra netns " + nsA_ + " mtu 9600 type veth peer name rxrb netns " + nsB_ +
                          " mtu 9600") == 0 &&
                       sh("ip -n " + nsA_ + " link set rxra up") == 0 && sh("ip -n " + nsB_ + " link set rxrb up") == 0;
    if (!ready) GTEST_SKIP() << "cannot create network namespaces and a veth pair here";
    Platform::logSinkIs([](const Platform::LogRecord&) {});
    std::string error;
    receiver_ = Linux::RawSocketPam::open("rxra", "rxra", 0, config_, s_, nsA_, error);
    ASSERT_TRUE(receiver_) << error;
    sender_ = Linux::RawSocketPam::open("rxrb", "rxrb", 0, config_, s_, nsB_, error);
    ASSERT_TRUE(sender_) << error;
  }
  void TearDown() override {
    receiver_ = nullptr;
    sender_ = nullptr;
    if (!nsA_.empty()) sh("ip netns del " + nsA_);
    if (!nsB_.empty()) sh("ip netns del " + nsB_);
    Platform::logSinkIs(nullptr);
  }
  // An LLDP frame of `bytes` bytes whose bytes 20..23 hold its sequence number.
  void send(uint32_t seq, size_t bytes = 112) {
    auto pkt = Platform::PacketPool::instance().alloc();
    uint8_t* f = pkt->append(bytes);
    std::memset(f, 0, bytes);
    const uint8_t header[] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x02, 0, 0, 0, 0xbb, 0x02, 0x88, 0xcc};
    std::memcpy(f, header, sizeof header);
    std::memcpy(f + 20, &seq, sizeof seq);
    sender_->txPkt(std::move(pkt));
  }

  std::string nsA_, nsB_;
  Linux::AsioScheduler s_;
  LldpSocketConfig config_;
  Platform::Ptr<Linux::RawSocketPam> receiver_, sender_;
};

TEST_F(RxRingTest, EveryFrameIsHandedOverInOrderOrCountedAsDropped) {
  auto reader = Platform::makeReactor<Reader>(receiver_);
  EXPECT_EQ(receiver_->ringBytes(), Linux::RawSocketPam::kRxRingBytes);
  // Nobody reads while they are sent: the ring fills and the kernel drops the rest; the
  // port's ring then grows, losing what it held (counted too).
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

TEST_F(RxRingTest, FramesNobodyTakesLeaveTheRingForLaterOnes) {
  for (uint32_t i = 0; i < 200; ++i) send(i);
  s_.runFor(0.1);
  EXPECT_EQ(receiver_->rxUnread() + receiver_->rxKernelDrops(), 200u);
  auto reader = Platform::makeReactor<Reader>(receiver_);
  send(1000);
  s_.runFor(0.1);
  ASSERT_EQ(reader->sequence.size(), 1u);
  EXPECT_EQ(reader->sequence[0], 1000u);
}

}  // namespace
