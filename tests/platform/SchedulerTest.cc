// Virtual-time scheduler: ordering, ties, re-arming, disarming, posted calls, descriptor watches.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/Scheduler.h"

namespace {

using Platform::Clock;
using Platform::VirtualScheduler;

struct SchedulerTest : ::testing::Test {
  VirtualScheduler s{100.0};
  std::vector<std::string> fired;
  std::unique_ptr<Clock> clock(const std::string& name) {
    return std::make_unique<Clock>(s, [this, name] {
      fired.push_back(name + "@" + std::to_string(static_cast<int>(s.now())));
    });
  }
};

TEST_F(SchedulerTest, FiresInTimeOrderWithTiesInArmingOrder) {
  auto a = clock("a"), b = clock("b"), c = clock("c");
  c->timeMinIs(110);
  a->timeMinIs(105);
  b->timeMinIs(110);
  s.runUntil(120);
  EXPECT_EQ(fired, (std::vector<std::string>{"a@105", "c@110", "b@110"}));
  EXPECT_EQ(s.now(), 120);
  EXPECT_FALSE(a->armed());  // a fired clock waits to be re-armed
  EXPECT_EQ(a->timeMin(), Platform::kNever);
}

TEST_F(SchedulerTest, RearmDisarmAndDestroy) {
  auto a = clock("a"), b = clock("b"), c = clock("c");
  a->timeMinIs(150);
  b->timeMinIs(130);
  c->timeMinIs(110);
  a->timeMinIs(120);  // moved earlier
  b->timeMinIs(Platform::kNever);
  c.reset();
  s.runUntil(200);
  EXPECT_EQ(fired, (std::vector<std::string>{"a@120"}));
  EXPECT_EQ(s.armedClocks(), 0u);
}

TEST_F(SchedulerTest, ClockArmedForNowFiresOnTheNextPassAfterWhatIsPending) {
  auto b = clock("b");
  int runs = 0;
  Clock a(s, [&] {
    fired.push_back("a" + std::to_string(++runs));
    if (runs == 1) s.post([this] { fired.push_back("posted"); });
    if (runs < 4) a.timeMinIs(s.now());
  });
  a.timeMinIs(101);
  b->timeMinIs(101);
  s.runUntil(101);
  // The first re-arm waits for the pass after b and the posted call; the second still runs at
  // 101; the next costs a busy pass's time.
  EXPECT_EQ(fired, (std::vector<std::string>{"a1", "b@101", "posted", "a2"}));
  s.runFor(VirtualScheduler::kBusyPassDelay * 2.5);
  EXPECT_EQ(runs, 4);
}

TEST_F(SchedulerTest, ClockArmedDuringAPassForThePastDoesNotBlockClocksStillDue) {
  int aRuns = 0;
  Clock a(s, [&] {
    fired.push_back("a");
    if (++aRuns == 1) a.timeMinIs(95);
  });
  auto b = clock("b");
  a.timeMinIs(90);
  b->timeMinIs(100);
  s.runPending();
  EXPECT_EQ(fired, (std::vector<std::string>{"a", "b@100", "a"}));
  EXPECT_FALSE(a.armed());
}

TEST_F(SchedulerTest, PostedCallsRunBeforeLaterClocks) {
  auto a = clock("a");
  a->timeMinIs(101);
  s.post([this] { fired.push_back("posted"); });
  s.runUntil(102);
  EXPECT_EQ(fired, (std::vector<std::string>{"posted", "a@101"}));
}

TEST_F(SchedulerTest, ManyClocksComeOutSorted) {
  std::vector<std::unique_ptr<Clock>> clocks;
  std::vector<double> times;
  for (int i = 0; i < 500; ++i) {
    clocks.push_back(std::make_unique<Clock>(s, [this, &times] { times.push_back(s.now()); }));
    clocks.back()->timeMinIs(100 + (i * 7919) % 1000);
  }
  for (int i = 0; i < 500; i += 3) clocks[i]->timeMinIs(100 + (i * 104729) % 1000);
  s.runUntil(2000);
  ASSERT_EQ(times.size(), 500u);
  EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
}

// A clock with period 0 (a transmit interval of 0, a rate-limit period of 0) for an hour:
// time still advances, and a readable descriptor and a second clock are still served on time.
TEST(VirtualSchedulerTest, ClockRearmedAtPeriodZeroStarvesNothing) {
  VirtualScheduler s{0};
  uint64_t spins = 0;
  Clock busy(s, [&] {
    ++spins;
    busy.timeMinIs(s.now());
  });
  std::vector<double> lateness;
  double due = 30;
  Clock tick(s, [&] {
    lateness.push_back(s.now() - due);
    due += 30;
    tick.timeMinIs(due);
  });
  constexpr int kFd = 7;
  std::vector<double> marked, read;
  auto watch = s.readableWatchIs(kFd, [&] { read.push_back(s.now()); });
  double feed = 0.5;
  Clock feeder(s, [&] {
    marked.push_back(s.now());
    s.readableIs(kFd);
    feeder.timeMinIs(feed += 1);
  });
  busy.timeMinIs(0);
  tick.timeMinIs(due);
  feeder.timeMinIs(feed);
  s.runUntil(3600.25);

  ASSERT_EQ(lateness.size(), 120u);
  for (double late : lateness) EXPECT_LE(late, VirtualScheduler::kBusyPassDelay);
  EXPECT_EQ(read, marked);  // each readiness delivered before the next pass
  EXPECT_EQ(read.size(), 3600u);
  // The busy clock runs once per pass, a few passes per virtual millisecond.
  EXPECT_GE(spins, 3600u * 1000);
  EXPECT_LE(spins, 3600u * 1000 * VirtualScheduler::kPassesPerInstant + 10000);
}

TEST_F(SchedulerTest, FarAndOddExpiriesNeitherSpinNorFireEarly) {
  double farFiredAt = 0;
  auto far = std::make_unique<Clock>(s, [&] { farFiredAt = s.now(); });
  auto huge = clock("huge"), inf = clock("inf"), nan = clock("nan"), neg = clock("neg");
  far->timeMinIs(1e12);
  huge->timeMinIs(1e300);
  inf->timeMinIs(Platform::kNever);
  nan->timeMinIs(std::nan(""));
  neg->timeMinIs(-5);
  EXPECT_FALSE(inf->armed());
  EXPECT_FALSE(nan->armed());
  EXPECT_EQ(nan->timeMin(), Platform::kNever);
  s.runFor(3600);
  EXPECT_EQ(fired, (std::vector<std::string>{"neg@100"}));
  EXPECT_EQ(s.passes(), 1u);
  EXPECT_EQ(s.nextExpiry(), 1e12);
  EXPECT_EQ(far->timeMin(), 1e12);
  s.runUntil(1e12);
  EXPECT_EQ(farFiredAt, 1e12);
  EXPECT_EQ(s.passes(), 2u);
  EXPECT_TRUE(huge->armed());
}

TEST(VirtualSchedulerTest, BusyClockStillLetsTimeAdvanceWhereAMillisecondIsBelowResolution) {
  VirtualScheduler late(1e17);
  Clock busy(late, [&] { busy.timeMinIs(late.now()); });
  busy.timeMinIs(late.now());
  late.runFor(1);  // returns: a busy pass moves time by at least one step of the double
  late.runFor(100);
  EXPECT_GT(late.now(), 1e17);
  EXPECT_LT(late.passes(), 100u);
}

struct FdWatchTest : SchedulerTest {
  static constexpr int kFd = 4;
  std::unique_ptr<Platform::FdWatch> watch;
};

TEST_F(FdWatchTest, WatchDestroyedInsideItsOwnCallbackStopsAtOnce) {
  std::string name = "captured state that dies with the watch";
  int calls = 0;
  watch = s.readableWatchIs(kFd, [this, name, &calls] {
    ++calls;
    watch.reset();
    fired.push_back(name);  // the callback's captures live until it returns
  });
  auto other = s.readableWatchIs(kFd, [this] { fired.push_back("other"); });
  s.readableIs(kFd);
  s.readableIs(kFd);
  s.runPending();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(fired, (std::vector<std::string>{name, "other", "other"}));
}

TEST_F(FdWatchTest, FailedWaitReachesTheOwnerAndEndsTheWatch) {
  std::vector<std::error_code> errors;
  int readable = 0;
  watch = s.readableWatchIs(kFd, [&] { ++readable; }, [&](std::error_code e) { errors.push_back(e); });
  s.fdErrorIs(kFd, std::make_error_code(std::errc::bad_file_descriptor));
  s.readableIs(kFd);
  s.runPending();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0], std::errc::bad_file_descriptor);
  EXPECT_EQ(readable, 0);

  Platform::CapturingLogSink logs;  // without an error handler it is logged, not lost
  auto unhandled = s.readableWatchIs(kFd + 1, [] {});
  s.fdErrorIs(kFd + 1, std::make_error_code(std::errc::io_error));
  s.runPending();
  EXPECT_EQ(logs.count("LLDP_EVENT_WAIT_FAILED"), 1u);
}

TEST_F(FdWatchTest, WritableAndReadableWatchesAreSeparate) {
  watch = s.writableWatchIs(kFd, [this] { fired.push_back("writable"); });
  auto reader = s.readableWatchIs(kFd, [this] { fired.push_back("readable"); });
  s.writableIs(kFd);
  s.readableIs(kFd);
  s.runPending();
  EXPECT_EQ(fired, (std::vector<std::string>{"writable", "readable"}));
}

TEST_F(FdWatchTest, WatchMayOutliveItsScheduler) {
  auto scheduler = std::make_unique<VirtualScheduler>();
  watch = scheduler->readableWatchIs(kFd, [] {});
  scheduler->readableIs(kFd);
  scheduler.reset();
  watch.reset();
}

}  // namespace
