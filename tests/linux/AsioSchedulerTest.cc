// The real scheduler: clocks in real time, posted calls, descriptor readiness.
#include <gtest/gtest.h>
#include <unistd.h>

#include "linux/AsioScheduler.h"

namespace {

TEST(AsioSchedulerTest, ClocksFireInOrderOnTheMonotonicTimeLine) {
  Linux::AsioScheduler s;
  std::vector<int> fired;
  Platform::Clock a(s, [&] { fired.push_back(1); });
  Platform::Clock b(s, [&] {
    fired.push_back(2);
    s.stop();
  });
  const double start = Linux::AsioScheduler::monotonicNow();
  b.timeMinIs(start + 0.03);
  a.timeMinIs(start + 0.01);
  s.runFor(5);
  EXPECT_EQ(fired, (std::vector<int>{1, 2}));
  EXPECT_GE(s.now(), start + 0.03);
}

TEST(AsioSchedulerTest, RearmingTheEarliestClockMovesTheSystemTimer) {
  Linux::AsioScheduler s;
  int fired = 0;
  Platform::Clock a(s, [&] {
    ++fired;
    s.stop();
  });
  a.timeMinIs(Linux::AsioScheduler::monotonicNow() + 60);
  s.post([&] { a.timeMinIs(s.now() + 0.01); });
  s.runFor(5);
  EXPECT_EQ(fired, 1);
}

TEST(AsioSchedulerTest, ReadableDescriptorCallsBackUntilDrained) {
  Linux::AsioScheduler s;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  ASSERT_EQ(write(fds[1], "abc", 3), 3);
  std::string got;
  auto watch = s.readableWatchIs(fds[0], [&] {
    char c;
    if (read(fds[0], &c, 1) == 1) got.push_back(c);  // one byte per call, like one frame
    if (got.size() == 3) s.stop();
  });
  s.runFor(5);
  EXPECT_EQ(got, "abc");
  watch.reset();
  close(fds[0]);
  close(fds[1]);
}

}  // namespace
