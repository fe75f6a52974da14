// The simulated wire: frames a port takes arrive in order; frames nobody takes are dropped.
#include <gtest/gtest.h>

#include "platform/Reactor.h"
#include "platform/SimPacketAccess.h"

namespace {

using Platform::SimPam;

// Takes a frame per notification when `reads` is set.
struct Reader : Platform::Reactor {
  Reader(Platform::Ptr<SimPam> p, bool r) : pam(std::move(p)), reads(r) {
    watch<&Reader::handleReadableCount>(pam, Konet::Pam::readableCountAttr);
  }
  void handleReadableCount() {
    ++notified;
    if (!reads) return;
    if (auto pkt = pam->rxPkt()) lengths.push_back(pkt->bytes());
  }
  Platform::Ptr<SimPam> pam;
  bool reads;
  int notified = 0;
  std::vector<size_t> lengths;
};

struct SimPacketAccessTest : ::testing::Test {
  Platform::VirtualScheduler s;
  Platform::SimWire wire{s};
  Platform::Ptr<SimPam> pam = Platform::make<SimPam>(Konet::IntfId("Ethernet1"), "n:Ethernet1", wire, false);
};

TEST_F(SimPacketAccessTest, ReaderTakesEachFrameInOrder) {
  auto reader = Platform::makeReactor<Reader>(pam, true);
  wire.inject("n:Ethernet1", std::vector<uint8_t>(60));
  wire.inject("n:Ethernet1", std::vector<uint8_t>(64));
  s.runPending();
  EXPECT_EQ(reader->lengths, (std::vector<size_t>{60, 64}));
  EXPECT_EQ(pam->queued(), 0u);
}

TEST_F(SimPacketAccessTest, FramesNobodyTakesAreDropped) {
  wire.inject("n:Ethernet1", std::vector<uint8_t>(60));
  s.runPending();
  auto listener = Platform::makeReactor<Reader>(pam, false);
  wire.inject("n:Ethernet1", std::vector<uint8_t>(60));
  s.runPending();
  EXPECT_EQ(listener->notified, 1);
  EXPECT_EQ(pam->queued(), 0u);
  EXPECT_EQ(pam->rxUnread(), 2u);
  // A reader that comes later hears new frames, not a stale backlog.
  auto reader = Platform::makeReactor<Reader>(pam, true);
  wire.inject("n:Ethernet1", std::vector<uint8_t>(70));
  s.runPending();
  EXPECT_EQ(reader->lengths, (std::vector<size_t>{70}));
}

}  // namespace
