// State database look-ups and mount groups completing on the scheduler.
#include <gtest/gtest.h>

#include "TestRecords.h"
#include "platform/StateDb.h"

namespace {

using PlatformTest::Widget;

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

using PlatformTest::Child;

// Paths below mounts: directory entries, collection members (keys with '/'), listings, and the
// writable inputs that outside clients may change.
TEST(StateDbPathTest, AMountGroupCompletesLaterAndEverythingBelowItsMountsResolvesAndLists) {
  Platform::VirtualScheduler s;
  Platform::StateDb db(s, "1");
  std::optional<Statedb::MountStatus> status;
  db.mountGroup()
      .mount<Widget>("a/widget", "w")
      .mount<Platform::Dir>("a/dir", "wf")
      .mount<Widget>("a/mine", "rf")
      .close([&](Statedb::MountStatus st, Platform::StateDb&) { status = st; });
  EXPECT_FALSE(status);  // asynchronous
  s.runPending();
  ASSERT_EQ(status, Statedb::mountSuccess_);
  EXPECT_EQ(db.mounts().size(), 3u);
  EXPECT_FALSE(db.lookup<Widget>("a/dir"));  // wrong type
  Platform::StateDb::typeIs<Widget>();

  auto w = db.lookup<Widget>("a/widget");
  w->childIs(5, "five");
  auto dir = db.lookup<Platform::Dir>("a/dir");  // a per-cell directory is shared by the cells
  ASSERT_TRUE(dir);
  EXPECT_TRUE(db.lookup<Widget>("cell/1/a/mine"));
  auto inner = Platform::make<Widget>();
  inner->childIs(9, "nine");
  dir->entryIs("1", inner);
  dir->entryIs("Ethernet3/1", Platform::make<Widget>());

  EXPECT_EQ(db.lookup<Child>("a/widget/child/5")->label(), "five");
  EXPECT_EQ(db.lookup<Child>("a/dir/1/child/9")->label(), "nine");
  EXPECT_TRUE(db.lookup<Widget>("a/dir/Ethernet3/1"));
  EXPECT_FALSE(db.entity("a/widget/child/6"));
  EXPECT_FALSE(db.entity("a/widget/child/x"));
  EXPECT_FALSE(db.entity("a/widget/nothing"));
  EXPECT_FALSE(db.entity("a/dir/2"));

  std::vector<Platform::PathEntry> out;
  ASSERT_TRUE(db.list("a", out));
  EXPECT_EQ(out, (std::vector<Platform::PathEntry>{{"dir", ""}, {"widget", ""}}));
  ASSERT_TRUE(db.list("a/dir", out));
  EXPECT_EQ(out, (std::vector<Platform::PathEntry>{{"1", "Widget"}, {"Ethernet3/1", "Widget"}}));
  ASSERT_TRUE(db.list("a/dir/1", out));
  EXPECT_EQ(out, (std::vector<Platform::PathEntry>{{"child", ""}}));
  ASSERT_TRUE(db.list("a/dir/1/child", out));
  EXPECT_EQ(out, (std::vector<Platform::PathEntry>{{"9", "Child"}}));
  EXPECT_FALSE(db.list("a/widget/name", out));
  EXPECT_FALSE(db.list("b", out));
}

TEST(StateDbPathTest, OnlyInputsAreWritableFromOutside) {
  Platform::VirtualScheduler s;
  Platform::StateDb db(s, "1");
  db.entityIs<Widget>("in/widget");
  db.entityIs<Platform::Dir>("in/dir");
  db.entityIs<Widget>("out/widget");
  db.inputIs("in/widget");
  db.inputIs("in/dir");
  Platform::StateDb::typeIs<Widget>();

  std::string error;
  EXPECT_TRUE(db.writableEntity("in/widget", error));
  EXPECT_FALSE(db.writableEntity("out/widget", error));
  EXPECT_EQ(error, "not writable: out/widget");
  EXPECT_FALSE(db.writable("in/widgets"));  // a prefix only counts at a segment boundary

  auto created = db.dirEntryIs("in/dir", "client", "Widget", error);
  ASSERT_TRUE(created);
  EXPECT_EQ(db.dirEntryIs("in/dir", "client", "Widget", error), created);
  EXPECT_FALSE(db.dirEntryIs("in/dir", "other", "NoSuchType", error));
  EXPECT_EQ(error, "unknown type: NoSuchType");
  EXPECT_FALSE(db.dirEntryIs("in/widget", "x", "Widget", error));
  EXPECT_TRUE(db.writable("in/dir/client"));
  EXPECT_TRUE(db.dirEntryDel("in/dir", "client", error));
  EXPECT_FALSE(db.dirEntryDel("in/dir", "client", error));
}

}  // namespace
