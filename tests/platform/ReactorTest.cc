// Reactor semantics: re-entrancy, teardown inside handlers, walking collections that change.
#include <gtest/gtest.h>

#include <functional>

#include "LaterChild.h"
#include "TestRecords.h"

namespace PlatformTest {
namespace {

using Log = std::vector<std::string>;

// Runs a test-supplied action for each name change.
class Hook : public Platform::Reactor {
 public:
  Hook(Widget::Ptr w, Log& log, std::string tag) : w_(std::move(w)), log_(log), tag_(std::move(tag)) {
    watch<&Hook::handleName>(w_, Widget::nameAttr);
  }
  void handleName() {
    log_.push_back(tag_ + ":" + w_->name());
    // A copy, so that the action may destroy this reactor (and with it `action`).
    if (auto act = action) act();
  }
  std::function<void()> action;

 private:
  Widget::Ptr w_;
  Log& log_;
  std::string tag_;
};

TEST(ReactorTest, NestedWritesAreDeliveredSynchronouslyInOrder) {
  auto w = Platform::make<Widget>();
  Log log;
  Hook first(w, log, "first");
  Hook second(w, log, "second");
  first.action = [&] {
    if (w->name() == "a") w->nameIs("b");  // runs every watcher for "b" before returning
  };
  w->nameIs("a");
  EXPECT_EQ(log, (Log{"first:a", "first:b", "second:b", "second:b"}));
}

TEST(ReactorTest, ReactorDestroyedInItsOwnHandlerIsNotNotifiedAgain) {
  auto w = Platform::make<Widget>();
  Log log;
  auto doomed = std::make_unique<Hook>(w, log, "doomed");
  Hook after(w, log, "after");
  doomed->action = [&] { doomed.reset(); };
  w->nameIs("a");
  w->nameIs("b");
  EXPECT_EQ(log, (Log{"doomed:a", "after:a", "after:b"}));
}

TEST(ReactorTest, WatcherRemovedByAnEarlierHandlerIsSkipped) {
  auto w = Platform::make<Widget>();
  Log log;
  Hook first(w, log, "first");
  auto second = std::make_unique<Hook>(w, log, "second");
  Hook third(w, log, "third");
  first.action = [&] { second.reset(); };
  w->nameIs("a");
  EXPECT_EQ(log, (Log{"first:a", "third:a"}));
}

TEST(ReactorTest, EntityReleasedDuringItsOwnNotificationStaysValid) {
  auto w = Platform::make<Widget>();
  Log log;
  auto hook = std::make_unique<Hook>(w, log, "h");
  Hook other(w, log, "o");
  Widget* raw = w.get();
  hook->action = [&] { w = nullptr; hook.reset(); };  // drops every reference but the notifier's
  raw->nameIs("x");
  EXPECT_EQ(log, (Log{"h:x", "o:x"}));
}

// The ordered stores' walks are tested with the collections; a hashed one may rehash under it.
TEST(ReactorTest, DeletingAndAddingWhileWalkingAHashedCollectionIsSafe) {
  auto w = Platform::make<Widget>();
  for (int i = 0; i < 200; ++i) w->labelIs("k" + std::to_string(i), i);
  EXPECT_EQ(w->label(std::string("k7")), 7);
  size_t walked = 0;
  for (auto it = w->label().begin(); it != w->label().end(); ++it) {
    ++walked;
    const std::string key = it.key();
    w->labelDel(key);
    w->labelIs(key + "x", 0);  // inserts may rehash under the walk
    if (walked > 1000) break;
  }
  EXPECT_LE(walked, 1000u);
}

// Reactor collections create each child once, initialized, and destroy it when it is deleted
// or its parent goes. Here LaterChildSm is declared only: deleting, looking up and walking still
// work, and each child is destroyed as its full type.
TEST(ReactorTest, ReactorCollectionsCreateOnceAndDestroyEvenWithoutTheChildsDefinition) {
  Log log;
  {
    LaterParentSm p;
    for (int key : {3, 1, 2, 3}) laterChildIs(p, key, log);  // 3 exists: no second construction
    EXPECT_EQ(p.laterChildSms(), 3u);
    ASSERT_TRUE(p.laterChildSm(2));
    EXPECT_EQ(laterChildKey(*p.laterChildSm(2)), 2);
    p.laterChildSmDel(2);
    EXPECT_FALSE(p.laterChildSmHas(2));
    std::vector<int> keys;
    p.laterChildSmForEach([&](int key, LaterChildSm& child) {
      keys.push_back(laterChildKey(child));
      p.laterChildSmDel(key);  // removing the child under the walk is allowed
    });
    EXPECT_EQ(keys, (std::vector<int>{1, 3}));
    laterChildIs(p, 4, log);
    laterChildIs(p, 5, log);
    p.laterChildSmDelAll();
    laterChildIs(p, 6, log);
  }  // the parent goes with a child left
  EXPECT_EQ(log, (Log{"init:3", "init:1", "init:2", "gone:2", "gone:1", "gone:3", "init:4", "init:5", "gone:4",
                      "gone:5", "init:6", "gone:6"}));
}

// Reports each collection notice with its kind, e.g. "tag:3 added".
class KindRecorder : public Platform::Reactor {
 public:
  explicit KindRecorder(Widget::Ptr w) : w_(std::move(w)) {
    watch<&KindRecorder::handleTag>(w_, Widget::tagAttr);
    watch<&KindRecorder::handleChild>(w_, Widget::childAttr);
  }
  void handleTag(const int& key, Platform::ChangeKind kind) {
    log.push_back("tag:" + std::to_string(key) + " " + Platform::changeKindName(kind));
  }
  void handleChild(const int& key, Platform::ChangeKind kind) {
    const auto& child = w_->child(key);
    log.push_back("child:" + std::to_string(key) + " " + Platform::changeKindName(kind) + " " +
                  (child ? child->label() : "-"));
  }
  Widget::Ptr w_;
  std::vector<std::string> log;
};

TEST(ReactorTest, CollectionNoticesCarryTheirKind) {
  auto w = Platform::make<Widget>();
  KindRecorder r(w);
  w->tagIs(1, "a");
  w->tagIs(1, "a");  // no change, no notice
  w->tagIs(1, "b");
  w->tagDel(1);
  w->tagDel(5);  // absent: nothing
  w->tagIs(2, "c");
  EXPECT_EQ(w->tag(9), "");  // absent yields the default value
  EXPECT_TRUE(w->tagHas(2));
  EXPECT_EQ(w->tags(), 1u);
  w->tagDelAll();
  EXPECT_EQ(w->tags(), 0u);
  EXPECT_EQ(r.log, (std::vector<std::string>{"tag:1 added", "tag:1 changed", "tag:1 removed",
                                             "tag:2 added", "tag:2 removed"}));
}

TEST(ReactorTest, EntityMembersAreMadeOrTakenOnceAndAnnouncedComplete) {
  auto w = Platform::make<Widget>();
  KindRecorder r(w);
  Child::Ptr made = w->childIs(4, "four");
  EXPECT_EQ(w->childIs(4, "other"), made);  // an existing member is returned, not replaced
  EXPECT_EQ(made->label(), "four");
  EXPECT_FALSE(w->child(6));
  auto child = Platform::make<Child>(5);
  child->labelIs("filled");  // nobody watches it yet
  EXPECT_EQ(w->childInsert(5, child), child);
  EXPECT_EQ(w->childInsert(5, Platform::make<Child>(5)), child);  // the first one stays
  w->childNotify(5);
  w->childNotify(6);  // absent: nothing to say
  w->childDel(5);
  EXPECT_EQ(child->label(), "filled");  // still alive through our reference
  EXPECT_EQ(r.log, (std::vector<std::string>{"child:4 added four", "child:5 added filled",
                                             "child:5 changed filled", "child:5 removed -"}));
}

}  // namespace
}  // namespace PlatformTest
