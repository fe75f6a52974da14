// The agent's log messages as registered, and the receive rate-limit message across ports.
#include <gtest/gtest.h>

#include <limits>

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

TEST_F(RateLimitLogTest, TwoPortsLimitedInOneMinuteAreBothLogged) {
  scheduler.runUntil(10.1);
  flood("Ethernet11", 4);
  flood("Ethernet12", 4);
  scheduler.runFor(0.5);
  ASSERT_EQ(rateLimitLines().size(), 2u);
  EXPECT_EQ(rateLimitLines()[0].arguments.at(0), "Ethernet11");
  EXPECT_EQ(rateLimitLines()[1].text,
            "Exceeded Rx LLDPDU rate limit on Ethernet12 (more than 2 LLDPDUs in 1.000000 seconds)");

  // The same port again within its minute is held back, then counted on its next line.
  for (int window = 0; window < 3; ++window) {
    scheduler.runFor(1);
    flood("Ethernet11", 4);
  }
  scheduler.runFor(0.5);
  EXPECT_EQ(rateLimitLines().size(), 2u);
  scheduler.runFor(60);
  flood("Ethernet11", 4);
  scheduler.runFor(0.5);
  ASSERT_EQ(rateLimitLines().size(), 3u);
  EXPECT_EQ(rateLimitLines()[2].arguments.at(0), "Ethernet11");
  EXPECT_EQ(rateLimitLines()[2].heldBack, 3u);
}

TEST(LogCatalogueTest, RateLimitPrintsA64BitLimitInFull) {
  Platform::CapturingLogSink logs;
  Platform::logClockIs([] { return nextEpoch(); });
  EXPECT_TRUE(LLDP_RX_RATELIMIT.emit("Ethernet7", std::numeric_limits<uint64_t>::max(), 30.0));
  Platform::logClockIs(nullptr);
  ASSERT_EQ(logs.entries().size(), 1u);
  EXPECT_EQ(logs.entries()[0].text,
            "Exceeded Rx LLDPDU rate limit on Ethernet7 (more than 18446744073709551615 LLDPDUs in "
            "30.000000 seconds)");
}

TEST(LogCatalogueTest, MessagesAreRegisteredAsDocumented) {
  struct Expected {
    const Platform::LogHandleBase& handle;
    const char* id;
    Platform::Severity severity;
    const char* format;
    const char* explanation;
    double minInterval;
    std::vector<std::string> fields;
  };
  const std::vector<std::string> neighbourFields{"CHASSIS_ID", "PORT_ID", "INTERFACE"};
  const Expected expected[] = {
      {Lldp::LLDP_NEIGHBOR_NEW, "LLDP_NEIGHBOR_NEW", Platform::Severity::notice,
       "LLDP neighbor with chassisId %s and portId %s added on interface %s",
       "A new LLDP neighbor was added to the neighbor table.", 0, neighbourFields},
      {Lldp::LLDP_NEIGHBOR_TIMEOUT, "LLDP_NEIGHBOR_TIMEOUT", Platform::Severity::notice,
       "LLDP neighbor with chassisId %s and portId %s timed out on interface %s",
       "An LLDP neighbor was deleted from the neighbor table since it timed out.", 0, neighbourFields},
      {Lldp::LLDP_NEIGHBOR_GONE, "LLDP_NEIGHBOR_GONE", Platform::Severity::notice,
       "Received a shutdown frame from LLDP neighbor with chassisId %s and portId %s on interface %s",
       "An LLDP neighbor was deleted from the neighbor table since an LLDPDU with a TTL of 0 was received "
       "from that neighbor.",
       0, neighbourFields},
      {LLDP_RX_RATELIMIT, "LLDP_RX_RATELIMIT", Platform::Severity::warning,
       "Exceeded Rx LLDPDU rate limit on %s (more than %d LLDPDUs in %f seconds)",
       "The switch received too many LLDPDUs on a port in too short a period of time, so we dropped the "
       "most recent received LLDPDU.",
       60, {"INTERFACE"}},
  };
  for (const Expected& e : expected) {
    const Platform::LogMessage& m = e.handle.message();
    SCOPED_TRACE(e.id);
    EXPECT_STREQ(m.id, e.id);
    EXPECT_EQ(m.severity, e.severity);
    EXPECT_STREQ(m.format, e.format);
    EXPECT_STREQ(m.explanation, e.explanation);
    EXPECT_EQ(m.minInterval, e.minInterval);
    std::vector<std::string> fields;
    for (const char* f : m.fields) {
      if (f) fields.emplace_back(f);
    }
    EXPECT_EQ(fields, e.fields);
  }
  EXPECT_STREQ(Lldp::LLDP_NEIGHBOR_NEW.message().recommendedAction, Platform::kNoActionRequired);
  EXPECT_STREQ(LLDP_RX_RATELIMIT.message().recommendedAction,
               "This could indicate a mis-configured neighbor, or a network loop.  Check the configuration of "
               "the neighbor connected to the interface and configure the LLDPDUs to be sent at a reasonable "
               "rate and ensure there are no network loops.");
}

}  // namespace
}  // namespace ProtocolTest
