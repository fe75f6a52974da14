// Trace levels and sinks, the ring trace, assertions and feature switches.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/Assert.h"
#include "platform/FeatureToggle.h"
#include "platform/Trace.h"

namespace {

Platform::TraceFacility gTestTrace("TraceTest");

struct Counted {
  int* formatted;
};
std::ostream& operator<<(std::ostream& os, const Counted& c) {
  ++*c.formatted;
  return os << "counted";
}

struct TraceTest : ::testing::Test {
  std::vector<std::string> lines;
  Platform::TraceSink previous;
  void SetUp() override {
    previous = Platform::traceSinkIs([this](const Platform::TraceFacility& f, int level, std::string_view line) {
      lines.push_back(std::string(f.name()) + "/" + std::to_string(level) + " " + std::string(line));
    });
  }
  void TearDown() override {
    Platform::traceSinkIs(previous);
    Platform::traceLevelsIs("");
  }
};

TEST_F(TraceTest, DisabledLevelFormatsNothing) {
  int formatted = 0;
  ASSERT_TRUE(Platform::traceLevelsIs("TraceTest/4"));
  TRACE(gTestTrace, 6) << Counted{&formatted};
  TRACE(gTestTrace, 4) << "value " << 42 << " " << Counted{&formatted};
  EXPECT_EQ(formatted, 1);
  EXPECT_EQ(lines, (std::vector<std::string>{"TraceTest/4 value 42 counted"}));
}

TEST_F(TraceTest, LevelSpecsApplyByNameOrWildcard) {
  ASSERT_TRUE(Platform::traceLevelsIs("*/2,TraceTest/9"));
  EXPECT_TRUE(gTestTrace.enabled(9));
  ASSERT_TRUE(Platform::traceLevelsIs("Other/9,*/0"));
  EXPECT_TRUE(gTestTrace.enabled(0));
  EXPECT_FALSE(gTestTrace.enabled(1));
  EXPECT_FALSE(Platform::traceLevelsIs("TraceTest/10"));
  EXPECT_FALSE(Platform::traceLevelsIs("TraceTest"));
  EXPECT_FALSE(Platform::traceLevelsIs("/3"));
  EXPECT_TRUE(gTestTrace.enabled(0));  // a refused setting changes nothing
}

TEST(RingTraceTest, KeepsTheMostRecentInOrder) {
  auto& ring = Platform::RingTrace::instance();
  ring.clear();
  for (size_t i = 0; i < Platform::RingTrace::kCapacity + 3; ++i) RING_TRACE << "event " << i;
  auto entries = ring.entries();
  ASSERT_EQ(entries.size(), Platform::RingTrace::kCapacity);
  EXPECT_EQ(entries.front(), "event 3");
  EXPECT_EQ(entries.back(), "event " + std::to_string(Platform::RingTrace::kCapacity + 2));
  ring.clear();
}

TEST(AssertDeathTest, AbortsWithTextAndRingTrace) {
  EXPECT_DEATH(
      {
        RING_TRACE << "last words";
        LLDP_ASSERT(1 + 1 == 3);
      },
      "assertion failed: 1 \\+ 1 == 3(.|\n)*last words");
}

TEST(FeatureToggleTest, DefaultOnEnvironmentAndOverride) {
  Platform::FeatureToggle toggle("TestToggleA");
  EXPECT_TRUE(toggle.enabled());
  Platform::featureEnabledIs("TestToggleA", false);
  EXPECT_FALSE(toggle.enabled());
  EXPECT_FALSE(Platform::featureEnabled("TestToggleA"));

  setenv("LLDP_FEATURE_TestToggleB", "0", 1);
  Platform::FeatureToggle fromEnv("TestToggleB");
  EXPECT_FALSE(fromEnv.enabled());
  setenv("LLDP_FEATURE_TestToggleB", "1", 1);
  EXPECT_FALSE(fromEnv.enabled());  // read once
}

TEST(ScopedFeatureTest, RestoresWhatItFoundNestedAndThroughLiveToggles) {
  Platform::FeatureToggle toggle("TestToggleC");
  {
    const Platform::ScopedFeature off("TestToggleC", false);
    EXPECT_FALSE(toggle.enabled());
    {
      const Platform::ScopedFeature on("TestToggleC", true);
      EXPECT_TRUE(toggle.enabled());
    }
    EXPECT_FALSE(toggle.enabled());
  }
  EXPECT_TRUE(toggle.enabled());
  EXPECT_TRUE(Platform::featureEnabled("TestToggleC"));

  setenv("LLDP_FEATURE_TestToggleD", "off", 1);
  { const Platform::ScopedFeature on("TestToggleD", true); }
  EXPECT_FALSE(Platform::featureEnabled("TestToggleD"));  // the environment's value came back
}

// A test body that leaves by a failed assertion: the guard must still put the switch back.
void failWithToggleOff() {
  const Platform::ScopedFeature off("TestToggleE", false);
  ASSERT_TRUE(Platform::featureEnabled("TestToggleE")) << "body fails here";
}

TEST(ScopedFeatureTest, RestoresWhenTheBodyFailsOrThrows) {
  EXPECT_FATAL_FAILURE(failWithToggleOff(), "body fails here");
  EXPECT_TRUE(Platform::featureEnabled("TestToggleE"));

  EXPECT_THROW(
      {
        const Platform::ScopedFeature off("TestToggleE", false);
        throw std::runtime_error("body throws");
      },
      std::runtime_error);
  EXPECT_TRUE(Platform::featureEnabled("TestToggleE"));
}

}  // namespace
