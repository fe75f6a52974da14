// Virtual-time scheduler: ordering, ties, re-arming, disarming, posted calls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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

TEST_F(SchedulerTest, RearmAndDisarm) {
  auto a = clock("a"), b = clock("b");
  a->timeMinIs(150);
  b->timeMinIs(130);
  a->timeMinIs(120);  // moved earlier
  b->timeMinIs(Platform::kNever);
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

TEST_F(SchedulerTest, PastExpiryFiresAtOnceWithoutMovingTimeBack) {
  auto a = clock("a");
  a->timeMinIs(0);
  s.runPending();
  EXPECT_EQ(fired, (std::vector<std::string>{"a@100"}));
}

TEST_F(SchedulerTest, DestroyedClockNeverFires) {
  auto a = clock("a"), b = clock("b");
  a->timeMinIs(110);
  b->timeMinIs(111);
  a.reset();
  s.runUntil(120);
  EXPECT_EQ(fired, (std::vector<std::string>{"b@111"}));
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

}  // namespace
