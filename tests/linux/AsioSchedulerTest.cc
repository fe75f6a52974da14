// The real scheduler: clocks in real time, passes, posted calls, descriptor readiness.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <vector>

#include "linux/AsioScheduler.h"
#include "platform/Log.h"

namespace {

using Linux::AsioScheduler;

struct Pipe {
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() {
    close(fds[0]);
    close(fds[1]);
  }
  int readEnd() const { return fds[0]; }
  int writeEnd() const { return fds[1]; }
  int fds[2];
};

TEST(AsioSchedulerTest, RearmingTheEarliestClockMovesTheSystemTimer) {
  AsioScheduler s;
  int fired = 0;
  Platform::Clock a(s, [&] {
    ++fired;
    s.stop();
  });
  const double start = AsioScheduler::monotonicNow();
  a.timeMinIs(start + 60);
  s.post([&] { a.timeMinIs(s.now() + 0.01); });
  s.runFor(5);
  EXPECT_EQ(fired, 1);
  EXPECT_GE(s.now(), start + 0.01);  // on the monotonic time line, never early
}

// A readable descriptor is called back until drained (one byte per call, like one frame), and its
// number, once closed and reused, can be watched again.
TEST(AsioSchedulerTest, ReadableDescriptorCallsBackUntilDrainedAndItsNumberCanBeWatchedAgain) {
  AsioScheduler s;
  for (int round = 0; round < 2; ++round) {
    Pipe p;
    ASSERT_EQ(write(p.writeEnd(), "abc", 3), 3);
    std::string got;
    auto watch = s.readableWatchIs(p.readEnd(), [&] {
      char c;
      if (read(p.readEnd(), &c, 1) == 1) got.push_back(c);
      if (got.size() == 3) s.stop();
    });
    s.runFor(5);
    EXPECT_EQ(got, "abc") << "round " << round;
  }
}

// A clock with period 0 keeps firing, one pass at a time, while a descriptor, a signal and a
// second clock are still served within a few milliseconds.
TEST(AsioSchedulerTest, ClockRearmedAtPeriodZeroStarvesNothing) {
  AsioScheduler s;
  Pipe p;
  uint64_t spins = 0;
  Platform::Clock busy(s, [&] {
    ++spins;
    busy.timeMinIs(s.now());
  });
  std::vector<double> clockLate, readLate, signalLate;
  double due = 0, written = 0, raised = 0;
  Platform::Clock tick(s, [&] {
    clockLate.push_back(s.now() - due);
    written = raised = s.now();
    EXPECT_EQ(write(p.writeEnd(), "x", 1), 1);
    std::raise(SIGUSR1);
    tick.timeMinIs(due += 0.05);
  });
  auto watch = s.readableWatchIs(p.readEnd(), [&] {
    char c;
    if (read(p.readEnd(), &c, 1) == 1) readLate.push_back(s.now() - written);
  });
  s.signalHandlerIs({SIGUSR1}, [&](int) { signalLate.push_back(s.now() - raised); });
  Platform::Clock stop(s, [&] { s.stop(); });
  const double start = AsioScheduler::monotonicNow();
  busy.timeMinIs(start);
  tick.timeMinIs(due = start + 0.05);
  stop.timeMinIs(start + 2);
  s.runFor(10);
  std::signal(SIGUSR1, SIG_DFL);

  EXPECT_LT(AsioScheduler::monotonicNow() - start, 5);
  EXPECT_GT(spins, 1000u);
  ASSERT_GE(clockLate.size(), 30u);
  EXPECT_GE(readLate.size() + 1, clockLate.size());
  EXPECT_GE(signalLate.size() + 1, clockLate.size());
  // Starving would leave them waiting for good; the bound is loose because the machine is
  // shared and the test also runs under sanitizers (the loop's latency is the benchmarks' job).
  for (double late : clockLate) EXPECT_LT(late, 0.5);
  for (double late : readLate) EXPECT_LT(late, 0.5);
  for (double late : signalLate) EXPECT_LT(late, 0.5);
}

TEST(AsioSchedulerTest, FarAndOddExpiriesNeitherSpinNorOverflow) {
  AsioScheduler s;
  const double start = AsioScheduler::monotonicNow();
  std::vector<std::unique_ptr<Platform::Clock>> clocks;
  std::vector<double> firedAt;
  for (double at : {start + 1e12, 1e12, 1e300, Platform::kNever, std::nan(""), -1.0, -Platform::kNever}) {
    clocks.push_back(std::make_unique<Platform::Clock>(s, [&] { firedAt.push_back(s.now()); }));
    clocks.back()->timeMinIs(at);
  }
  const size_t events = s.runFor(0.3);
  EXPECT_EQ(firedAt.size(), 2u);  // only the two in the past
  EXPECT_LT(events, 20u);
  EXPECT_EQ(clocks[0]->timeMin(), start + 1e12);  // the clock keeps its own expiry
  EXPECT_EQ(s.nextExpiry(), 1e12);
}

TEST(AsioSchedulerTest, WatchDestroyedInsideItsOwnCallback) {
  AsioScheduler s;
  Pipe p;
  ASSERT_EQ(write(p.writeEnd(), "ab", 2), 2);
  int calls = 0;
  std::unique_ptr<Platform::FdWatch> watch;
  watch = s.readableWatchIs(p.readEnd(), [&, big = std::vector<int>(64, 1)] {
    ++calls;
    watch.reset();
    EXPECT_EQ(big.size(), 64u);  // captures live until the callback returns
  });
  int writable = 0;
  std::unique_ptr<Platform::FdWatch> writer;
  writer = s.writableWatchIs(p.writeEnd(), [&] {
    ++writable;
    writer.reset();
  });
  Platform::Clock stop(s, [&] { s.stop(); });
  stop.timeMinIs(AsioScheduler::monotonicNow() + 0.1);
  s.runFor(5);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(writable, 1);
}

TEST(AsioSchedulerTest, FailedWaitReachesTheOwner) {
  AsioScheduler s;
  FILE* file = tmpfile();  // regular files cannot be waited on
  ASSERT_TRUE(file);
  std::vector<std::error_code> errors;
  auto onError = [&](std::error_code e) { errors.push_back(e); };
  auto regular = s.readableWatchIs(fileno(file), [] {}, onError);
  auto closed = s.readableWatchIs(1000, [] {}, onError);  // not an open descriptor
  Platform::CapturingLogSink logs;
  auto unhandled = s.readableWatchIs(1001, [] {});
  s.runFor(0.2);
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_TRUE(errors[0]);
  EXPECT_TRUE(errors[1]);
  EXPECT_EQ(logs.count("LLDP_EVENT_WAIT_FAILED"), 1u);
  fclose(file);
}

TEST(AsioSchedulerTest, WritableWatchGivesBackpressureBesideAReadableWatch) {
  AsioScheduler s;
  int sv[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, sv), 0);
  const std::vector<char> chunk(4096, 'x');
  while (write(sv[0], chunk.data(), chunk.size()) > 0) {
  }
  ASSERT_EQ(errno, EAGAIN);
  std::string heard;
  auto reader = s.readableWatchIs(sv[0], [&] {
    char buf[16];
    const ssize_t n = read(sv[0], buf, sizeof buf);
    if (n > 0) heard.append(buf, static_cast<size_t>(n));
  });
  double drainedAt = 0, writableAt = 0;
  auto writer = s.writableWatchIs(sv[0], [&] {
    writableAt = s.now();
    s.stop();
  });
  Platform::Clock drain(s, [&] {
    std::vector<char> buf(1 << 16);
    while (read(sv[1], buf.data(), buf.size()) > 0) {
    }
    EXPECT_EQ(write(sv[1], "hi", 2), 2);
    drainedAt = s.now();
  });
  drain.timeMinIs(AsioScheduler::monotonicNow() + 0.05);
  s.runFor(5);
  EXPECT_GT(drainedAt, 0);
  EXPECT_GE(writableAt, drainedAt);
  writer.reset();
  s.runFor(0.05);
  EXPECT_EQ(heard, "hi");
  reader.reset();
  close(sv[0]);
  close(sv[1]);
}

// A receive pass that posts its continuation (a flood's backlog) lets due clocks and ready
// descriptors run between its passes: the loop goes round the reactor once per posted turn.
TEST(AsioSchedulerTest, PostedContinuationsLetClocksAndDescriptorsIn) {
  AsioScheduler s;
  Pipe p;
  constexpr int kPasses = 20000;
  int passes = 0, passesAtClock = -1, passesAtRead = -1;
  std::function<void()> pass = [&] {
    if (++passes < kPasses) {
      s.post(pass);
    } else {
      s.stop();
    }
  };
  Platform::Clock clock(s, [&] { passesAtClock = passes; });
  auto watch = s.readableWatchIs(p.readEnd(), [&] {
    char c;
    if (read(p.readEnd(), &c, 1) == 1) passesAtRead = passes;
  });
  s.post([&] {
    pass();
    clock.timeMinIs(s.now());
    EXPECT_EQ(write(p.writeEnd(), "x", 1), 1);
  });
  s.runFor(10);
  EXPECT_EQ(passes, kPasses);
  EXPECT_GE(passesAtClock, 1);
  EXPECT_LT(passesAtClock, 10);
  EXPECT_GE(passesAtRead, 1);
  EXPECT_LT(passesAtRead, 10);
}

}  // namespace
