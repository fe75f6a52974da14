// Port engine receive side: admin status, the tag rule, ageing, link loss.
#include "EngineFixture.h"

namespace ProtocolTest {
namespace {

std::vector<uint8_t> tagged(std::vector<uint8_t> frame, uint16_t vlan) {
  const uint8_t tag[4] = {0x81, 0x00, static_cast<uint8_t>(vlan >> 8), static_cast<uint8_t>(vlan)};
  frame.insert(frame.begin() + 12, tag, tag + 4);
  return frame;
}

TEST_F(EngineFixture, FramesThePortMayNotTakeAreNeitherCountedNorLearnt) {
  portConfig()->adminStatusIs(Lldp::AdminStatus::txOnly);
  fromPeer(neighbourFrame(7, 120));
  scheduler.runFor(1);
  EXPECT_TRUE(traced("LLDP Receive disabled -- discarding received LLDPDU"));

  portConfig()->adminStatusIs(Lldp::AdminStatus::txAndRx);
  auto frame = neighbourFrame(7, 120);
  frame[5] = 0x03;  // not the LLDP multicast address
  fromPeer(frame);
  scheduler.runFor(1);
  EXPECT_TRUE(traced("Received frame with incorrect DMAC -- ignoring"));
  EXPECT_EQ(portStatus()->remoteSystems(), 0u);
  EXPECT_EQ(portStatus()->rxFramesTotal(), 0u);
}

TEST_F(EngineFixture, SeparatelyDeliveredTagIsTracedAndDropped) {
  fromPeer(tagged(neighbourFrame(7, 120), 10));
  scheduler.runFor(1);
  EXPECT_EQ(portStatus()->remoteSystems(), 1u);
  EXPECT_TRUE(traced("Received 802.1Q-tagged frame (Tpid: 0x8100) with VLAN ID 10"));
}

struct InlineTagTest : EngineFixture {
  InlineTagTest() {
    // A packet layer that leaves the tag in the frame.
    dut.cliConfig->enabledIs(false);
    dut.root->pamMan()->separateDot1QHdrIs(false);
    dut.cliConfig->enabledIs(true);
  }
};

TEST_F(InlineTagTest, InlineTagIsRemovedUnlessTaggedFramesAreDropped) {
  fromPeer(tagged(neighbourFrame(7, 120), 20));
  scheduler.runFor(1);
  EXPECT_EQ(portStatus()->remoteSystems(), 1u);
  EXPECT_TRUE(traced("Received 802.1Q-tagged frame with VLAN ID 20"));
  EXPECT_EQ(portStatus()->remoteSystem().begin().value()->sysName(), "peer");

  dut.config->rxTaggedPacketsDropIs(true);
  fromPeer(tagged(neighbourFrame(8, 120), 20));
  scheduler.runFor(1);
  EXPECT_EQ(portStatus()->remoteSystems(), 1u);
  EXPECT_TRUE(traced("Received frame with incorrect EtherType -- ignoring"));
}

TEST_F(EngineFixture, NeighboursAgeInExpiryOrder) {
  scheduler.runUntil(100);
  fromPeer(neighbourFrame(1, 20, "late"));
  fromPeer(neighbourFrame(2, 10, "early"));
  scheduler.runPending();
  EXPECT_EQ(engine()->ageClock().timeMin(), 110);
  scheduler.runUntil(110);
  ASSERT_EQ(portStatus()->remoteSystems(), 1u);
  EXPECT_EQ(portStatus()->remoteSystem().begin().value()->sysName(), "late");
  EXPECT_EQ(engine()->ageClock().timeMin(), 120);
  scheduler.runUntil(121);
  EXPECT_EQ(portStatus()->remoteSystems(), 0u);
  EXPECT_FALSE(engine()->ageClock().armed());
  EXPECT_EQ(portStatus()->rxAgeoutsTotal(), 2u);
  EXPECT_EQ(dut.status->remTablesAgeouts(), 2u);
  EXPECT_EQ(dut.status->remTablesDeletes(), 2u);
  EXPECT_EQ(logs.count("LLDP_NEIGHBOR_TIMEOUT"), 2u);
  EXPECT_EQ(logs.entries().back().text,
            "LLDP neighbor with chassisId 00:1c:73:00:02:01 and portId Ethernet9 timed out on interface Ethernet1");
}

TEST_F(EngineFixture, RefreshKeepsANeighbourPastItsFirstExpiry) {
  for (int t = 0; t < 300; t += 30) {
    scheduler.runUntil(t);
    fromPeer(neighbourFrame(1, 40));
  }
  scheduler.runUntil(300);
  EXPECT_EQ(portStatus()->remoteSystems(), 1u);
  scheduler.runUntil(400);
  EXPECT_EQ(portStatus()->remoteSystems(), 0u);
}

TEST_F(EngineFixture, OnlyLinkDownForgetsNeighbours) {
  fromPeer(neighbourFrame(1, 120));
  scheduler.runFor(1);
  phy()->linkStatusIs(Interface::LinkStatus::unknown);
  EXPECT_EQ(portStatus()->remoteSystems(), 1u);  // kept, though transmission stops
  EXPECT_EQ(engine()->txFsmState(), TxFsmState::txFsmReinitializing);
  phy()->linkStatusIs(Interface::LinkStatus::linkDown);
  EXPECT_EQ(portStatus()->remoteSystems(), 0u);
  EXPECT_EQ(portStatus()->rxAgeoutsTotal(), 0u);
  EXPECT_EQ(logs.count("LLDP_NEIGHBOR_TIMEOUT"), 0u);
  EXPECT_TRUE(traced("Link down: deleting all RemoteSystems on Ethernet1"));
}

}  // namespace
}  // namespace ProtocolTest
