// The receive rate-limit message across ports: limited per interface, not per agent.
#include <gtest/gtest.h>

#include "EngineFixture.h"

namespace ProtocolTest {
namespace {

// Log handles keep their rate-limit keys across tests; each test starts in a later epoch.
double nextEpoch() {
  static double epoch = 0;
  return epoch += 1e6;
}

struct RateLimitLogTest : EngineFixture {
  double epoch = nextEpoch();
  RateLimitLogTest() {
    Platform::logClockIs([this] { return epoch + scheduler.now(); });
    for (const char* intf : {"Ethernet11", "Ethernet12"}) {
      dut.addPort(intf);
      wire.link("dut:" + std::string(intf), "peer:" + std::string(intf));
    }
    scheduler.runPending();
    for (const char* intf : {"Ethernet11", "Ethernet12"}) {
      dut.config->portConfig(intf)->rxRateLimitingEnabledIs(true);
      dut.config->portConfig(intf)->rxRateLimitMaxIs(2);
    }
  }
  ~RateLimitLogTest() override { Platform::logClockIs(nullptr); }

  void flood(const std::string& intf, int frames) {
    for (int i = 0; i < frames; ++i) wire.inject("dut:" + intf, neighbourFrame(static_cast<uint8_t>(i), 120));
  }
  std::vector<Platform::CapturingLogSink::Entry> rateLimitLines() const {
    std::vector<Platform::CapturingLogSink::Entry> lines;
    for (const auto& e : logs.entries()) {
      if (e.id == "LLDP_RX_RATELIMIT") lines.push_back(e);
    }
    return lines;
  }
};

// The engine limits the message per interface: a second port is not held back by the first.
// (Holding back and counting are the log handle's own, tested with it.)
TEST_F(RateLimitLogTest, TwoPortsLimitedInOneMinuteAreBothLogged) {
  scheduler.runUntil(10.1);
  flood("Ethernet11", 4);
  flood("Ethernet12", 4);
  scheduler.runFor(0.5);
  ASSERT_EQ(rateLimitLines().size(), 2u);
  EXPECT_EQ(rateLimitLines()[0].arguments.at(0), "Ethernet11");
  EXPECT_EQ(rateLimitLines()[1].arguments.at(0), "Ethernet12");
}

}  // namespace
}  // namespace ProtocolTest
