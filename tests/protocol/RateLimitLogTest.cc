// The agent's log messages as registered, and the receive rate-limit message across ports.
#include <gtest/gtest.h>

#include "EngineFixture.h"
#include "codec/LldpProtocol.h"

namespace ProtocolTest {
namespace {

using Lldp::Agent::Protocol::LLDP_RX_RATELIMIT;

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

// Texts are checked where the messages are emitted; what decides how they are logged is here.
TEST(LogCatalogueTest, MessagesAreRegisteredWithTheirSeverityIntervalAndFields) {
  struct Expected {
    const Platform::LogHandleBase& handle;
    Platform::Severity severity;
    double minInterval;
    std::vector<std::string> fields;
  };
  const std::vector<std::string> neighbourFields{"CHASSIS_ID", "PORT_ID", "INTERFACE"};
  const Expected expected[] = {
      {Lldp::LLDP_NEIGHBOR_NEW, Platform::Severity::notice, 0, neighbourFields},
      {Lldp::LLDP_NEIGHBOR_TIMEOUT, Platform::Severity::notice, 0, neighbourFields},
      {Lldp::LLDP_NEIGHBOR_GONE, Platform::Severity::notice, 0, neighbourFields},
      {LLDP_RX_RATELIMIT, Platform::Severity::warning, 60, {"INTERFACE"}},
  };
  for (const Expected& e : expected) {
    const Platform::LogMessage& m = e.handle.message();
    SCOPED_TRACE(m.id);
    EXPECT_EQ(m.severity, e.severity);
    EXPECT_EQ(m.minInterval, e.minInterval);
    std::vector<std::string> fields;
    for (const char* f : m.fields) {
      if (f) fields.emplace_back(f);
    }
    EXPECT_EQ(fields, e.fields);
  }
}

}  // namespace
}  // namespace ProtocolTest
