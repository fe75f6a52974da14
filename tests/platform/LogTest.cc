// The log catalogue: typed formatting, format checks, rate limiting per interface, key bounds.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "platform/Assert.h"
#include "platform/Log.h"

namespace {

using Platform::LogHandle;
using Platform::LogValue;
using Kind = Platform::LogValue::Kind;

const LogHandle<std::string_view, uint64_t, double> kTestLimited(
    {"TEST_LIMITED", Platform::Severity::warning, "limit on %s (more than %d in %f s)", "Explanation.",
     "Action.", 60, {"INTERFACE"}});
const LogHandle<int64_t, uint32_t, int16_t, std::string_view> kTestNumbers(
    {"TEST_NUMBERS", Platform::Severity::info, "%d %lu %x %s 100%%", "Explanation.",
     Platform::kNoActionRequired, 0});
const LogHandle<> kTestBare(
    {"TEST_BARE", Platform::Severity::notice, "nothing to fill", "Explanation.", Platform::kNoActionRequired, 60});

// The handles outlive each test; every test starts in a later epoch so earlier keys are stale.
double nextEpoch() {
  static double epoch = 0;
  return epoch += 1e6;
}

struct LogTest : ::testing::Test {
  double now = nextEpoch();
  Platform::CapturingLogSink sink;
  LogTest() {
    Platform::logClockIs([this] { return now; });
  }
  ~LogTest() override { Platform::logClockIs(nullptr); }
};

TEST_F(LogTest, IntegersPrintInFullWhateverTheirWidthAndRealsAsPrintfWould) {
  EXPECT_TRUE(kTestLimited.emit("Ethernet1", std::numeric_limits<uint64_t>::max(), 1.5));
  EXPECT_TRUE(kTestNumbers.emit(std::numeric_limits<int64_t>::min(), 4294967295u, -255, "x"));
  EXPECT_TRUE(kTestNumbers.emit(0, 0, 0x7fff, ""));
  ASSERT_EQ(sink.entries().size(), 3u);
  EXPECT_EQ(sink.entries()[0].text, "limit on Ethernet1 (more than 18446744073709551615 in 1.500000 s)");
  EXPECT_EQ(sink.entries()[0].arguments,
            (std::vector<std::string>{"Ethernet1", "18446744073709551615", "1.500000"}));
  EXPECT_EQ(sink.entries()[1].text, "-9223372036854775808 4294967295 -ff x 100%");
  EXPECT_EQ(sink.entries()[2].text, "0 0 7fff  100%");
  for (const double period : {0.0, 1e-7, 2.0000005, 30.25, -1.5, 1e20}) {
    sink.clear();
    now += 60;
    ASSERT_TRUE(kTestLimited.emit("Ethernet9", 1, period));
    char expected[128];
    std::snprintf(expected, sizeof expected, "limit on Ethernet9 (more than 1 in %f s)", period);
    EXPECT_EQ(sink.entries().at(0).text, expected);
  }
}

TEST_F(LogTest, RateLimitIsPerMessageAndInterface) {
  EXPECT_TRUE(kTestLimited.emit("Ethernet1", 5, 1.0));
  now += 10;
  EXPECT_TRUE(kTestLimited.emit("Ethernet2", 5, 1.0));  // another port within the same minute
  EXPECT_TRUE(kTestBare.emit());                        // another message
  now += 10;
  EXPECT_FALSE(kTestLimited.emit("Ethernet1", 5, 1.0));
  EXPECT_FALSE(kTestLimited.emit("Ethernet1", 5, 1.0));
  EXPECT_FALSE(kTestLimited.emit("Ethernet2", 5, 1.0));
  EXPECT_FALSE(kTestBare.emit());
  ASSERT_EQ(sink.entries().size(), 3u);
  EXPECT_EQ(sink.entries()[0].heldBack, 0u);
  EXPECT_EQ(sink.entries()[1].text, "limit on Ethernet2 (more than 5 in 1.000000 s)");

  now += 40;  // Ethernet1's minute is over, Ethernet2's is not
  EXPECT_TRUE(kTestLimited.emit("Ethernet1", 6, 1.0));
  EXPECT_FALSE(kTestLimited.emit("Ethernet2", 6, 1.0));
  ASSERT_EQ(sink.entries().size(), 4u);
  EXPECT_EQ(sink.entries()[3].heldBack, 2u);
  EXPECT_EQ(sink.entries()[3].text, "limit on Ethernet1 (more than 6 in 1.000000 s)");

  now += 10;
  EXPECT_TRUE(kTestLimited.emit("Ethernet2", 7, 1.0));
  EXPECT_EQ(sink.entries().back().heldBack, 2u);
  now += 60;
  EXPECT_TRUE(kTestLimited.emit("Ethernet2", 7, 1.0));
  EXPECT_EQ(sink.entries().back().heldBack, 0u);  // the count is reported once
  now -= 1;  // a clock that goes back ends the interval
  EXPECT_TRUE(kTestLimited.emit("Ethernet2", 8, 1.0));
}

TEST_F(LogTest, HeldBackCountIsNotedInPlainText) {
  const Platform::LogMessage& m = kTestLimited.message();
  const std::vector<std::string> args;
  EXPECT_EQ(Platform::logLineText({m, "text", args, 0}), "text");
  EXPECT_EQ(Platform::logLineText({m, "text", args, 1}), "text (1 similar message held back)");
  EXPECT_EQ(Platform::logLineText({m, "text", args, 12}), "text (12 similar messages held back)");
}

TEST_F(LogTest, KeyTableStaysBounded) {
  // A thousand ports each limited once a second: old keys are forgotten once their minute passed.
  for (int i = 0; i < 3000; ++i) {
    now += 1;
    ASSERT_TRUE(kTestLimited.emit("Ethernet" + std::to_string(i), 1, 1.0));
  }
  EXPECT_LE(kTestLimited.rateKeys(), 2 * 64u);
  // Many keys inside one minute: a hard cap, least recently emitted forgotten first.
  now += 60;
  for (int i = 0; i < 10000; ++i) {
    now += 0.001;
    ASSERT_TRUE(kTestLimited.emit("Port" + std::to_string(i), 1, 1.0));
  }
  EXPECT_LE(kTestLimited.rateKeys(), LogHandle<>::kMaxRateKeys);
  EXPECT_FALSE(kTestLimited.emit("Port9999", 1, 1.0));
  // A key that owes a held-back count survives sweeps after its minute.
  now += 61;
  for (int i = 0; i < 1100; ++i) {
    now += 0.001;
    kTestLimited.emit("Other" + std::to_string(i), 1, 1.0);
  }
  EXPECT_TRUE(kTestLimited.emit("Port9999", 1, 1.0));
  EXPECT_EQ(sink.entries().back().heldBack, 1u);
}

TEST_F(LogTest, LinesDoNotInheritTheTextOrArgumentsOfEarlierOnes) {
  ASSERT_TRUE(kTestNumbers.emit(-1234567890123, 7u, 1, "a long enough text to need its own buffer"));
  ASSERT_TRUE(kTestBare.emit());
  ASSERT_TRUE(kTestLimited.emit("Ethernet2", 5u, 0.5));
  ASSERT_EQ(sink.entries().size(), 3u);
  EXPECT_EQ(sink.entries()[1].text, "nothing to fill");
  EXPECT_TRUE(sink.entries()[1].arguments.empty());
  EXPECT_EQ(sink.entries()[2].text, "limit on Ethernet2 (more than 5 in 0.500000 s)");
  EXPECT_EQ(sink.entries()[2].arguments, (std::vector<std::string>{"Ethernet2", "5", "0.500000"}));
}

// A destination may log in turn (a failing writer reporting itself): the inner line must not
// overwrite the outer one while the outer is being delivered.
TEST_F(LogTest, ASinkThatLogsSeesBothLinesWhole) {
  std::vector<std::string> seen;
  const Platform::LogSink previous = Platform::logSinkIs([&](const Platform::LogRecord& r) {
    if (std::string_view(r.message.id) == "TEST_LIMITED") kTestNumbers.emit(1, 2u, 3, "inner");
    seen.push_back(std::string(r.text) + "|" + r.arguments[0]);
  });
  EXPECT_TRUE(kTestLimited.emit("Ethernet3", 9u, 2.0));
  Platform::logSinkIs(previous);
  EXPECT_EQ(seen, (std::vector<std::string>{"1 2 3 inner 100%|1",
                                            "limit on Ethernet3 (more than 9 in 2.000000 s)|Ethernet3"}));
}

TEST(LogFormatTest, ConversionsMustFitTheDeclaredArguments) {
  const Kind sud[] = {Kind::text, Kind::unsignedInteger, Kind::real};
  EXPECT_EQ(Platform::logFormatMismatch("on %s (more than %d in %f s)", sud), "");
  EXPECT_EQ(Platform::logFormatMismatch("on %s (more than %llu in %f s)", sud), "");
  EXPECT_EQ(Platform::logFormatMismatch("on %s (more than %x in %f s) 50%%", sud), "");
  EXPECT_EQ(Platform::logFormatMismatch("on %s (more than %s in %f s)", sud),
            "conversion 2 \"%s\" does not fit a unsigned integer");
  EXPECT_EQ(Platform::logFormatMismatch("on %d", std::span<const Kind>(sud, 1)),
            "conversion 1 \"%d\" does not fit a text");
  EXPECT_EQ(Platform::logFormatMismatch("on %s and %d", std::span<const Kind>(sud, 1)),
            "format has 2 conversions for 1 arguments");
  EXPECT_EQ(Platform::logFormatMismatch("%s %u %5.1f", sud), "unsupported conversion \"%5\"");
  EXPECT_EQ(Platform::logFormatMismatch("%s %u %n", sud), "unsupported conversion \"%n\"");
  EXPECT_EQ(Platform::logFormatMismatch("%s %u trailing %l", sud), "format ends inside a conversion");
  EXPECT_EQ(Platform::logFormatMismatch("50%", {}), "format ends inside a conversion");
}

TEST(LogFormatTest, RegisteringAMismatchOrBadFieldAsserts) {
  auto old = Platform::assertHandlerIs(Platform::throwingAssertHandler);
  const auto catalogueSize = Platform::logCatalogue().size();
  EXPECT_THROW((LogHandle<uint64_t>({"TEST_BAD", Platform::Severity::info, "count %s", "", "", 0})),
               Platform::AssertionFailure);
  EXPECT_THROW((LogHandle<std::string_view>(
                   {"TEST_BAD", Platform::Severity::info, "on %s", "", "", 0, {"INTERFACE", "EXTRA"}})),
               Platform::AssertionFailure);
  EXPECT_THROW((LogHandle<std::string_view>({"TEST_BAD", Platform::Severity::info, "on %s", "", "", 0,
                                              {"interface"}})),
               Platform::AssertionFailure);
  EXPECT_EQ(Platform::logCatalogue().size(), catalogueSize);
  Platform::assertHandlerIs(old);
}

TEST(LogCatalogueTest, HandlesRegisterTheirMessages) {
  bool registered = false;
  for (const auto* m : Platform::logCatalogue()) registered |= std::string_view(m->id) == "TEST_LIMITED";
  EXPECT_TRUE(registered);
}

}  // namespace
