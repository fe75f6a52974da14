// The netlink source on simulated time over a real rtnetlink socket: a failed wait is logged
// and everything read again, and a dump with no reply is abandoned and asked for again instead
// of blocking every later resync. Reading this namespace's links needs no privilege.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "HostFixture.h"
#include "linux/NetlinkSource.h"

namespace {

class NetlinkSourceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Platform::logSinkIs([this](const Platform::LogRecord& rec) { logs.push_back(std::string(rec.message.id)); });
    std::string error;
    ASSERT_TRUE(source.start(error)) << error;
  }
  void TearDown() override {
    Platform::logSinkIs(nullptr);
    Konet::IntfPlatformTable::clear();
  }
  // Hands the kernel's replies to the source until the dump in flight is applied.
  bool dumpApplied() {
    for (int i = 0; i < 200 && source.dumping(); ++i) {
      s.readableIs(source.fd());
      s.runPending();
      if (source.dumping()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return !source.dumping() && source.dumpApplied();
  }

  Platform::VirtualScheduler s;
  Linux::HostRecords r = HostTest::hostRecords();
  Linux::HostState state{r};
  Linux::NetlinkSource source{s, state, {}};
  std::vector<std::string> logs;
};

TEST_F(NetlinkSourceTest, AFailedWaitIsLoggedAndEverythingReadAgain) {
  ASSERT_TRUE(dumpApplied());
  EXPECT_GE(state.links(), 1u);  // at least lo
  const uint64_t dumps = source.counters().dumps;
  s.fdErrorIs(source.fd(), std::make_error_code(std::errc::io_error));
  s.runPending();
  EXPECT_EQ(source.counters().recvErrors, 1u);
  EXPECT_EQ(std::count(logs.begin(), logs.end(), "LLDP_NETLINK_READ_FAILED"), 1);
  s.runFor(Linux::NetlinkSource::Options{}.rewatchDelay);
  EXPECT_GT(source.counters().dumps, dumps);
  ASSERT_TRUE(dumpApplied());
}

TEST_F(NetlinkSourceTest, ADumpWithNoReplyIsAbandonedAndAskedForAgain) {
  // The first dump's replies are never read: the kernel might as well never have sent them.
  ASSERT_TRUE(source.dumping());
  const uint64_t dumps = source.counters().dumps;
  s.runFor(Linux::NetlinkSource::Options{}.dumpStallTimeout + 0.1);
  EXPECT_EQ(source.counters().dumpStalls, 1u);
  EXPECT_EQ(source.counters().dumps, dumps + 1);
  // The replies of the abandoned request are left aside; the new dump completes.
  ASSERT_TRUE(dumpApplied());
  EXPECT_GE(state.links(), 1u);
  EXPECT_EQ(source.counters().dumpStalls, 1u);
}

}  // namespace
