// A flood on one port in virtual time: its backlog is taken in bounded passes, so another
// port's neighbour is heard after at most one pass; every LLDPDU is counted exactly once,
// processed or rate-limited.
#include "EngineFixture.h"

namespace ProtocolTest {
namespace {

// Notes how many flood frames the first port had processed when the second learnt its neighbour.
struct NeighbourSpy : Platform::Reactor {
  NeighbourSpy(Lldp::PortStatus::Ptr quiet, Lldp::PortStatus::Ptr flooded)
      : quiet_(std::move(quiet)), flooded_(std::move(flooded)) {
    watch<&NeighbourSpy::handleRemoteSystem>(quiet_, Lldp::PortStatus::remoteSystemAttr);
  }
  void handleRemoteSystem(const int32_t&, Platform::ChangeKind kind) {
    if (kind == Platform::ChangeKind::added && floodSeen < 0) floodSeen = flooded_->rxFramesTotal();
  }
  Lldp::PortStatus::Ptr quiet_, flooded_;
  int64_t floodSeen = -1;
};

struct FloodTest : EngineFixture {
  FloodTest() {
    Platform::traceLevelsIs("");  // a trace line per frame would dominate the run
    dut.addPort("Ethernet2");
    wire.link("dut:Ethernet2", "peer:Ethernet2");
    scheduler.runUntil(10.1);  // just after a rate-limit window began
  }
  Platform::SimPam& pam(const std::string& intf) const {
    return static_cast<Platform::SimPam&>(*dut.engine(intf)->pam());
  }
};

TEST_F(FloodTest, AnotherPortIsHeardAfterAtMostOnePassOfTheFlood) {
  constexpr size_t kFlood = 10000;
  auto spy = Platform::makeReactor<NeighbourSpy>(dut.status->portStatus("Ethernet2"), portStatus());
  const uint64_t passesBefore = pam("Ethernet1").rxPasses();
  wire.injectBurst("dut:Ethernet1", neighbourFrame(1, 120), kFlood);
  wire.inject("dut:Ethernet2", neighbourFrame(2, 120, "quiet"));
  scheduler.runFor(0.5);

  ASSERT_GE(spy->floodSeen, 0);
  EXPECT_LE(spy->floodSeen, static_cast<int64_t>(Konet::Pam::kRxFramesPerPass));
  EXPECT_EQ(portStatus()->rxFramesTotal(), kFlood);
  EXPECT_EQ(pam("Ethernet1").rxPasses() - passesBefore,
            (kFlood + Konet::Pam::kRxFramesPerPass - 1) / Konet::Pam::kRxFramesPerPass);
  EXPECT_EQ(pam("Ethernet1").queued(), 0u);
  EXPECT_EQ(portStatus()->remoteSystems(), 1u);
}

TEST_F(FloodTest, RateLimitCountsEveryFrameOfAFloodOnce) {
  // A port of its own: the rate-limit message's throttle is kept per interface across tests.
  dut.addPort("Ethernet13");
  scheduler.runPending();
  Lldp::PortConfig::Ptr config = dut.config->portConfig("Ethernet13");
  config->rxRateLimitingEnabledIs(true);
  config->rxRateLimitMaxIs(5);
  LldpPamSm* port = dut.engine("Ethernet13");
  Lldp::PortStatus::Ptr status = dut.status->portStatus("Ethernet13");
  wire.injectBurst("dut:Ethernet13", neighbourFrame(1, 120), 1000);
  scheduler.runFor(0.5);
  EXPECT_EQ(status->rxFramesTotal(), 5u);
  EXPECT_EQ(port->rxLldpdusRateLimited(), 995u);
  EXPECT_EQ(port->rxLldpdus(), 1000u);
  ASSERT_EQ(logs.count("LLDP_RX_RATELIMIT"), 1u);
  EXPECT_EQ(logs.entries().back().text,
            "Exceeded Rx LLDPDU rate limit on Ethernet13 (more than 5 LLDPDUs in 1.000000 seconds)");
  scheduler.runFor(0.6);  // the next window
  wire.injectBurst("dut:Ethernet13", neighbourFrame(1, 120), 1000);
  scheduler.runFor(0.1);
  EXPECT_EQ(status->rxFramesTotal(), 10u);
  EXPECT_EQ(port->rxLldpdusRateLimited(), 1990u);
  EXPECT_EQ(port->rxLldpdus(), 1000u);
  EXPECT_EQ(logs.count("LLDP_RX_RATELIMIT"), 1u);  // held back for a minute
}

TEST_F(FloodTest, FramesLostBeforeTheEngineAreCountedOnThePort) {
  pam("Ethernet1").queueLimitIs(100);
  wire.injectBurst("dut:Ethernet1", neighbourFrame(1, 120), 1000);
  scheduler.runFor(0.5);
  EXPECT_EQ(portStatus()->rxFramesTotal(), 100u);
  EXPECT_EQ(portStatus()->rxKernelDropsTotal(), 900u);
  wire.injectBurst("dut:Ethernet1", neighbourFrame(1, 120), 150);
  scheduler.runFor(0.5);
  EXPECT_EQ(portStatus()->rxKernelDropsTotal(), 950u);
  EXPECT_EQ(dut.status->portStatus("Ethernet2")->rxKernelDropsTotal(), 0u);
}

}  // namespace
}  // namespace ProtocolTest
