// Timers with a period of 0 (a transmit interval and delay of 0, a rate-limit window of 0)
// keep the engine busy but never stop time or starve reception.
#include "EngineFixture.h"

namespace ProtocolTest {
namespace {

TEST_F(EngineFixture, ZeroPeriodsStillLetTimeAdvanceAndFramesIn) {
  Platform::traceLevelsIs("");  // thousands of transitions
  dut.config->txDelayIs(0);
  dut.config->messageTxIntervalIs(0);
  portConfig()->rxRateLimitPeriodIs(0);
  scheduler.runUntil(1);
  fromPeer(neighbourFrame(7, 120));
  scheduler.runUntil(4);
  EXPECT_EQ(scheduler.now(), 4);
  EXPECT_EQ(portStatus()->remoteSystems(), 1u);
  const auto sent = sentTimes();
  ASSERT_GT(sent.size(), 100u);
  // The delay armed before the change ends at 2; from then on sends spread over the run
  // rather than piling up at one instant.
  EXPECT_GE(sent.front(), 2);
  EXPECT_LT(sent.front(), 2.01);
  EXPECT_GT(sent.back(), 3.9);
  EXPECT_LT(sent.size(), 2u * 1000 * Platform::VirtualScheduler::kPassesPerInstant);
}

}  // namespace
}  // namespace ProtocolTest
