// Generated record accessors: change-only notification, counters, collections, reflection.
#include <gtest/gtest.h>

#include <map>

#include "TestRecords.h"
#include "platform/Json.h"

namespace PlatformTest {
namespace {

using Log = std::vector<std::string>;

struct RecordTest : ::testing::Test {
  Widget::Ptr w = Platform::make<Widget>();
  std::unique_ptr<Recorder> r = Platform::makeReactor<Recorder>(w);
  void SetUp() override { r->log.clear(); }
};

TEST_F(RecordTest, NotifiesOnlyRealChangesInWriteOrder) {
  EXPECT_EQ(w->size(), 3u);  // declared default
  w->sizeIs(3);
  w->nameIs("a");
  w->nameIs(std::string("a"));
  w->sizeIs(4);
  w->nameIs(std::string_view("b"));
  EXPECT_EQ(r->log, (Log{"name=a", "size=4", "name=b"}));
}

TEST_F(RecordTest, CountersAddAndWrap) {
  EXPECT_EQ(w->hitsInc(), 1u);
  EXPECT_EQ(w->hitsInc(5), 6u);
  w->hitsInc(0);
  EXPECT_EQ(r->log, (Log{"hits=1", "hits=6"}));
  w->indexIs(2147483647);
  EXPECT_LT(w->indexInc(1), 0);  // wraps like the wire counters it models, no overflow trap
  w->hitsIs(0xffffffffu);
  EXPECT_EQ(w->hitsInc(2), 1u);
}

TEST_F(RecordTest, ValueCollectionsNotifyPerKey) {
  w->tagIs(2, "two");
  w->tagIs(1, "one");
  w->tagIs(2, "two");  // unchanged
  w->tagIs(2, "deux");
  w->tagDel(5);  // absent
  EXPECT_EQ(w->tag(1), "one");
  EXPECT_EQ(w->tag(9), "");  // absent yields the default value
  EXPECT_TRUE(w->tagHas(2));
  EXPECT_EQ(w->tags(), 2u);
  w->tagDelAll();
  EXPECT_EQ(w->tags(), 0u);
  EXPECT_EQ(r->log, (Log{"tag:2", "tag:1", "tag:2", "tag:1", "tag:2"}));
}

TEST_F(RecordTest, EntityCollectionsCreateOnceAndNotifyInPlaceChanges) {
  Child::Ptr c = w->childIs(4, "four");
  EXPECT_EQ(w->childIs(4, "other"), c);  // existing member is returned, not replaced
  EXPECT_EQ(c->label(), "four");
  EXPECT_EQ(w->child(4), c);
  EXPECT_FALSE(w->child(5));
  w->childNotify(4);
  w->childNotify(5);  // absent: nothing
  w->childDel(4);
  EXPECT_EQ(c->label(), "four");  // still alive through our reference
  EXPECT_EQ(r->log, (Log{"child:4", "child:4", "child:4"}));
}

TEST_F(RecordTest, HashedCollectionsLookUpAndWalk) {
  for (int i = 0; i < 50; ++i) w->labelIs("l" + std::to_string(i), i);
  EXPECT_EQ(w->label(std::string("l7")), 7);
  int sum = 0;
  for (const auto& [k, v] : w->label()) sum += v;
  EXPECT_EQ(sum, 49 * 50 / 2);
}

struct ChangeLog {
  std::vector<std::string> lines;
  template <class A, class B>
  void attrChanged(const char* name, const A&, const B&) {
    lines.push_back(std::string("attr ") + name);
  }
  template <class K>
  void memberDeleted(const char* name, const K&) {
    lines.push_back(std::string("del ") + name);
  }
  template <class K>
  void memberUpdated(const char* name, const K&) {
    lines.push_back(std::string("upd ") + name);
  }
};

TEST_F(RecordTest, CopyChangedFromWritesOnlyDifferencesAndSkipsMeta) {
  Widget::Ptr src = Platform::make<Widget>();
  src->idIs(99);
  src->nameIs("n");
  src->tagIs(1, "same");
  src->tagIs(2, "new");
  w->tagIs(1, "same");
  w->tagIs(3, "gone");
  r->log.clear();

  ChangeLog changes;
  EXPECT_TRUE(w->copyChangedFrom(*src, changes));
  EXPECT_EQ(changes.lines, (Log{"attr name", "del tag", "upd tag"}));
  EXPECT_EQ(r->log, (Log{"name=n", "tag:3", "tag:2"}));
  EXPECT_EQ(w->id(), 7);  // identity is not copied

  ChangeLog again;
  EXPECT_FALSE(w->copyChangedFrom(*src, again));
  EXPECT_TRUE(again.lines.empty());
}

TEST_F(RecordTest, ReflectionNamesAndJsonShape) {
  EXPECT_STREQ(Widget::attrName(Widget::nameIdx), "name");
  std::vector<std::string> names;
  w->visitAttrs([&](Platform::AttrKind, const char* name, const auto&) { names.emplace_back(name); });
  EXPECT_EQ(names, (Log{"id", "name", "size", "hits", "index", "tag", "label", "child"}));

  auto empty = Platform::recordToJson(*w);
  EXPECT_TRUE(empty["tag"].is_array());  // a list is a list even when empty
  w->tagIs(1, "x");
  w->childIs(2, "c");
  auto j = Platform::recordToJson(*w);
  EXPECT_EQ(j["tag"], nlohmann::ordered_json::parse(R"([{"key":1,"value":"x"}])"));
  EXPECT_EQ(j["child"], nlohmann::ordered_json::parse(R"([{"key":2,"label":"c"}])"));
  EXPECT_EQ(j["size"], 3);
}

TEST(RareRecordTest, RareValuesTakeNoRoomUntilOneLeavesItsDefault) {
  auto s = Platform::make<Sparse>();
  auto r = Platform::makeReactor<SparseRecorder>(s);
  EXPECT_EQ(s->level(), 5u);
  EXPECT_TRUE(s->note().empty());
  EXPECT_EQ(s->note(1), "");
  s->levelIs(5);
  s->labelIs("");
  s->noteDel(1);
  s->noteDelAll();
  EXPECT_FALSE(s->rareAllocated());
  EXPECT_TRUE(r->log.empty());

  s->levelIs(6);
  s->levelIs(6);
  s->noteIs(2, "b");
  s->noteIs(2, "b");
  s->noteIs(2, "c");
  s->noteIs(1, "a");
  EXPECT_TRUE(s->rareAllocated());
  EXPECT_EQ(s->label(), "");
  std::vector<int> keys;
  for (const auto& [key, value] : s->note()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<int>{1, 2}));
  s->noteDelAll();
  s->levelIs(5);  // back to the default: still a change
  EXPECT_EQ(r->log, (Log{"level=6", "note:2 added", "note:2 changed", "note:1 added", "note:1 removed",
                         "note:2 removed", "level=5"}));
}

TEST(RareRecordTest, CopyChangedFromCarriesRareValuesBothWays) {
  auto dst = Platform::make<Sparse>();
  auto r = Platform::makeReactor<SparseRecorder>(dst);
  auto src = Platform::make<Sparse>();
  src->labelIs("x");
  src->noteIs(3, "c");
  ChangeLog changes;
  EXPECT_TRUE(dst->copyChangedFrom(*src, changes));
  EXPECT_EQ(changes.lines, (Log{"upd note", "attr label"}));
  EXPECT_EQ(dst->label(), "x");
  EXPECT_EQ(dst->note(3), "c");

  ChangeLog again;
  EXPECT_FALSE(dst->copyChangedFrom(*src, again));
  EXPECT_TRUE(again.lines.empty());

  // A source without a block of rare values resets them all.
  auto plain = Platform::make<Sparse>();
  ChangeLog reset;
  EXPECT_TRUE(dst->copyChangedFrom(*plain, reset));
  EXPECT_EQ(reset.lines, (Log{"del note", "attr label"}));
  EXPECT_EQ(r->log, (Log{"note:3 added", "label=x", "note:3 removed", "label="}));
  EXPECT_EQ(dst->label(), "");
  EXPECT_TRUE(dst->note().empty());
}

TEST(RareRecordTest, ReflectionSeesRareValuesInDeclarationOrder) {
  auto s = Platform::make<Sparse>();
  std::vector<std::string> seen;
  s->visitAttrs([&](Platform::AttrKind kind, const char* name, const auto&) {
    seen.push_back(std::string(name) + (kind == Platform::AttrKind::Coll ? "[]" : ""));
  });
  EXPECT_EQ(seen, (Log{"name", "level", "note[]", "label"}));
  EXPECT_FALSE(s->rareAllocated());
  auto j = Platform::recordToJson(*s);
  EXPECT_EQ(j["level"], 5);
  EXPECT_TRUE(j["note"].is_array());
  s->noteIs(4, "d");
  EXPECT_EQ(Platform::recordToJson(*s)["note"], nlohmann::ordered_json::parse(R"([{"key":4,"value":"d"}])"));
}

TEST(CollectionTest, AWalkBegunWhileEmptyEndsWhenMembersArrive) {
  Platform::OrderedColl<int, int> ordered;
  Platform::HashedColl<int, int> hashed;
  int visited = 0;
  for (auto it = ordered.begin(); it != ordered.end(); ++it) ++visited;
  auto o = ordered.begin();
  auto h = hashed.begin();
  ordered.set(1, 1);
  hashed.set(1, 1);
  EXPECT_TRUE(o == ordered.end());
  EXPECT_TRUE(h == hashed.end());
  // A walk begun afterwards sees the member and survives its removal.
  for (auto it = ordered.begin(); it != ordered.end(); ++it) {
    ++visited;
    ordered.erase(it.key());
  }
  EXPECT_EQ(visited, 1);
}

TEST(CollectionTest, ClearRecyclingReusesNodes) {
  Platform::OrderedColl<int, std::string> c;
  c.set(1, std::string(40, 'a'));
  c.set(2, std::string(40, 'b'));
  c.clearRecycling();
  EXPECT_TRUE(c.empty());
  c.set(2, std::string(40, 'c'));
  EXPECT_EQ(*c.find(2), std::string(40, 'c'));
  EXPECT_EQ(c.size(), 1u);
}

}  // namespace
}  // namespace PlatformTest
