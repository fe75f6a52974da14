// State database look-ups and mount groups completing on the scheduler.
#include <gtest/gtest.h>

#include "TestRecords.h"
#include "platform/StateDb.h"

namespace {

using PlatformTest::Widget;

TEST(StateDbTest, MountGroupCompletesLaterWithEntitiesAtTheirPaths) {
  Platform::VirtualScheduler s;
  Platform::StateDb db(s, "1");
  std::optional<Statedb::MountStatus> status;
  db.mountGroup()
      .mount<Widget>("test/widget", "w")
      .mount<Platform::Dir>("test/dir", "ri")
      .mount<Widget>("test/percell", "wf")
      .close([&](Statedb::MountStatus st, Platform::StateDb&) { status = st; });
  EXPECT_FALSE(status);  // asynchronous
  s.runPending();
  ASSERT_EQ(status, Statedb::mountSuccess_);
  EXPECT_TRUE(db.lookup<Widget>("test/widget"));
  EXPECT_TRUE(db.lookup<Platform::Dir>("test/dir"));
  EXPECT_FALSE(db.lookup<Widget>("test/dir"));  // wrong type
  EXPECT_TRUE(db.lookup<Widget>(db.cellPath("test/percell")));
  EXPECT_EQ(db.mounts().size(), 3u);
}

TEST(StateDbTest, BadModeOrTypeClashFailsTheGroup) {
  Platform::VirtualScheduler s;
  Platform::StateDb db(s, "1");
  db.entityIs<Platform::Dir>("taken");
  std::vector<Statedb::MountStatus> results;
  auto done = [&](Statedb::MountStatus st, Platform::StateDb&) { results.push_back(st); };
  db.mountGroup().mount<Widget>("a", "rx").close(done);
  db.mountGroup().mount<Widget>("taken", "r").close(done);
  db.mountGroup().mount<Widget>("b", "").close(done);
  s.runPending();
  EXPECT_EQ(results, (std::vector<Statedb::MountStatus>(3, Statedb::mountFailure_)));
}

}  // namespace
