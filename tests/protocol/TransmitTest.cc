// Port engine life and the transmit state machine in virtual time.
#include "EngineFixture.h"

#include <algorithm>

#include "data/Hex.h"
#include "data/SampleFrames.h"

namespace ProtocolTest {
namespace {

using Times = std::vector<double>;

TEST_F(EngineFixture, EngineExistsExactlyWhileItsFourInputsDo) {
  ASSERT_TRUE(engine());
  EXPECT_EQ(engine()->txFsmState(), TxFsmState::txFsmTxWait);

  fromPeer(neighbourFrame(7, 120));
  scheduler.runFor(1);
  EXPECT_EQ(portStatus()->remoteSystems(), 1u);
  dut.status->portStatusDel("Ethernet1");  // the engine closes and forgets the neighbours
  EXPECT_FALSE(engine());
  EXPECT_EQ(dut.status->remTablesDeletes(), 1u);

  dut.status->portStatusIs("Ethernet1", scheduler.now());
  EXPECT_TRUE(engine());
  dut.root->desiredIntfDir()->intfDesiredDel("Ethernet1");  // the mechanism goes
  EXPECT_FALSE(engine());
  dut.root->desiredIntfDir()->intfDesiredIs("Ethernet1", true);
  EXPECT_TRUE(engine());

  dut.cliConfig->enabledIs(false);
  EXPECT_FALSE(engine());
  EXPECT_EQ(dut.root->pamCollection()->intfPams(), 0u);
  dut.cliConfig->enabledIs(true);
  EXPECT_TRUE(engine());
  EXPECT_EQ(engine()->txFsmState(), TxFsmState::txFsmTxWait);  // a new engine starts over
}

TEST_F(EngineFixture, ANewPhoneGetsOnePromptLldpduWithLldpMedTlvs) {
  portConfig()->tiaEnabledTlvsIs(Lldp::PortConfig::TiaEnabledTlvs{0x03});
  scheduler.runUntil(40);  // sent at 2 and 32; idle until 62
  wire.sentClear();
  std::vector<uint8_t> phone = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e, 0x00, 0x04, 0xf2, 0xaa, 0xbb, 0xcc, 0x88, 0xcc};
  const std::vector<uint8_t> lldpdu = SampleFrames::hexBytes(SampleFrames::kPhone);
  phone.insert(phone.end(), lldpdu.begin(), lldpdu.end());
  fromPeer(phone);
  scheduler.runUntil(61);
  const auto sent = wire.sentBy("dut:Ethernet1");
  ASSERT_EQ(sent.size(), 1u);  // one answer, not a second one txDelay later
  EXPECT_EQ(sent[0].time, 40);
  const std::vector<uint8_t> tiaOui = {0x00, 0x12, 0xbb};
  EXPECT_NE(std::search(sent[0].frame.begin(), sent[0].frame.end(), tiaOui.begin(), tiaOui.end()),
            sent[0].frame.end());
  fromPeer(phone);  // an unchanged refresh prompts nothing
  scheduler.runUntil(61.5);
  EXPECT_EQ(wire.sentBy("dut:Ethernet1").size(), 1u);
}

TEST_F(EngineFixture, MembersChangedInPlaceLeaveTheEngineAlone) {
  LldpPamSm* before = engine();
  ASSERT_TRUE(before);
  // Other agents re-announce records they changed in place; no engine is made twice.
  dut.status->portStatusNotify("Ethernet1");
  dut.phyDir->intfStatusNotify("Ethernet1");
  dut.config->portConfigNotify("Ethernet1");
  dut.localSystem->localPortNotify("Ethernet1");
  EXPECT_EQ(engine(), before);
  EXPECT_EQ(dut.root->protocolSm()->localPortSms(), 1u);
}

TEST_F(EngineFixture, SteadyIntervalAfterTheFirstDelayOfFramesWithTheirHeader) {
  scheduler.runUntil(100);
  EXPECT_EQ(sentTimes(), (Times{2, 32, 62, 92}));
  EXPECT_EQ(portStatus()->txFramesTotal(), 4u);
  EXPECT_TRUE(traced("TX FSM transition txFsmTxDelay -> txFsmIdle"));
  const std::vector<uint8_t> f = wire.sentBy("dut:Ethernet1").at(0).frame;
  ASSERT_GE(f.size(), 15u);
  EXPECT_EQ(Konet::EthAddr(f.data()), Konet::kLldpMulticast);
  EXPECT_EQ(Konet::EthAddr(f.data() + 6).toString(), "00:1c:73:00:01:01");
  // The EtherType, then the Chassis ID TLV.
  EXPECT_EQ(std::vector<uint8_t>(f.begin() + 12, f.begin() + 15), (std::vector<uint8_t>{0x88, 0xcc, 0x02}));
}

TEST_F(EngineFixture, BurstsOfLocalChangesCoalesceWithinTheDelay) {
  scheduler.runUntil(40);  // sent at 2 and 32; idle until 62
  for (int i = 0; i < 10; ++i) {
    dut.localSystem->sysNameIs("name" + std::to_string(i));  // at 40: sends at once
    scheduler.runFor(0.1);
  }
  scheduler.runUntil(45);
  EXPECT_EQ(sentTimes(), (Times{2, 32, 40, 42}));
  scheduler.runUntil(75);
  EXPECT_EQ(sentTimes().back(), 72);  // a full interval after the send at 42
}

TEST_F(EngineFixture, APortChangeReachesOnlyItsOwnEngine) {
  dut.addPort("Ethernet2");
  wire.link("dut:Ethernet2", "peer:Ethernet2");
  scheduler.runUntil(40);
  wire.sentClear();
  dut.localSystem->localPort("Ethernet2")->portDescIs("changed");
  scheduler.runFor(1);
  ASSERT_EQ(wire.sent().size(), 1u);
  EXPECT_EQ(wire.sent()[0].from, "dut:Ethernet2");
}

TEST_F(EngineFixture, ReceiveOnlyPortStaysSilent) {
  portConfig()->adminStatusIs(Lldp::AdminStatus::rxOnly);
  scheduler.runUntil(100);
  EXPECT_EQ(sentTimes(), (Times{}));  // txWait was left for reinitializing at once
  EXPECT_EQ(engine()->txFsmState(), TxFsmState::txFsmDisabled);
  EXPECT_TRUE(traced("Port not enabled: no action"));
}

TEST_F(EngineFixture, LinkLossReinitializesWithoutAShutdownFrame) {
  scheduler.runUntil(10);
  phy()->linkStatusIs(Interface::LinkStatus::linkDown);
  EXPECT_EQ(engine()->txFsmState(), TxFsmState::txFsmReinitializing);
  scheduler.runUntil(11);
  phy()->linkStatusIs(Interface::LinkStatus::linkUp);  // within reinitDelay: ignored for now
  EXPECT_EQ(engine()->txFsmState(), TxFsmState::txFsmReinitializing);
  scheduler.runUntil(20);
  EXPECT_EQ(sentTimes(), (Times{2, 14}));  // reinitDelay 2 then txDelay 2
  for (const auto& s : wire.sentBy("dut:Ethernet1")) {
    const std::string f(s.frame.begin(), s.frame.end());
    const size_t ttl = f.find(std::string("\x06\x02", 2));
    ASSERT_NE(ttl, std::string::npos);
    EXPECT_EQ(f.substr(ttl + 2, 2), std::string("\x00\x78", 2));  // never a TTL of 0
  }
}

TEST_F(EngineFixture, IntervalEqualToTheDelay) {
  dut.config->messageTxIntervalIs(2);
  scheduler.runUntil(11);
  EXPECT_EQ(sentTimes(), (Times{2, 4, 6, 8, 10}));
}

TEST_F(EngineFixture, NewNeighboursGetAnAnswerRemovedOnesDoNot) {
  scheduler.runUntil(40);
  fromPeer(neighbourFrame(7, 120));
  scheduler.runFor(0.5);
  EXPECT_EQ(sentTimes().back(), 40);
  scheduler.runUntil(80);
  const size_t before = sentTimes().size();
  fromPeer(neighbourFrame(7, 0));  // shutdown: removal
  scheduler.runFor(0.5);
  EXPECT_EQ(sentTimes().size(), before);
}

TEST_F(EngineFixture, PacketExhaustionIsCounted) {
  std::vector<Platform::PacketPtr> held;
  while (auto p = Platform::PacketPool::instance().alloc()) held.push_back(std::move(p));
  scheduler.runUntil(3);
  EXPECT_EQ(portStatus()->txFramesNoMemErrors(), 1u);
  EXPECT_TRUE(traced("Packet allocation failed"));
  held.clear();
  scheduler.runUntil(40);
  EXPECT_EQ(sentTimes(), (Times{32}));  // carries on at the next interval
}

}  // namespace
}  // namespace ProtocolTest
