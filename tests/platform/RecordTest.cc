// Generated record accessors: change-only notification, counters, collections, reflection.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include "TestRecords.h"
#include "platform/Json.h"

namespace PlatformTest {
namespace {

using Log = std::vector<std::string>;

struct RecordTest : ::testing::Test {
  Widget::Ptr w = Platform::make<Widget>();
  std::unique_ptr<Recorder> r = Platform::makeReactor<Recorder>(w);
  void SetUp() override {
    ASSERT_EQ(r->log, Log{"initialized"});  // once, after construction
    r->log.clear();
  }
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

// The same walks over every storage: a node map, a sorted array (whose members move on every
// insert and erase) and a hash table (which rehashes as it grows).
template <class C>
struct CollectionTest : ::testing::Test {};
using Storages = ::testing::Types<Platform::OrderedColl<int, std::string>, Platform::SmallColl<int, std::string>,
                                  Platform::HashedColl<int, std::string>>;
TYPED_TEST_SUITE(CollectionTest, Storages);

TYPED_TEST(CollectionTest, AWalkBegunWhileEmptyEndsWhenMembersArrive) {
  TypeParam c;
  auto walk = c.begin();
  c.set(1, "a");
  EXPECT_TRUE(walk == c.end());
  int visited = 0;
  for (auto it = c.begin(); it != c.end(); ++it) {
    ++visited;
    c.erase(it.key());
  }
  EXPECT_EQ(visited, 1);
  EXPECT_TRUE(c.empty());
}

// In key order, a walk visits every member it has not passed exactly once, whatever moves.
template <class C>
struct OrderedCollectionTest : ::testing::Test {};
using OrderedStorages = ::testing::Types<Platform::OrderedColl<int, std::string>, Platform::SmallColl<int, std::string>>;
TYPED_TEST_SUITE(OrderedCollectionTest, OrderedStorages);

TYPED_TEST(OrderedCollectionTest, AWalkSurvivesInsertsAndErasesAroundIt) {
  TypeParam c;
  for (int k = 10; k <= 100; k += 10) c.set(k, std::string(30, char('a' + k / 10)));
  std::set<int> seen;
  int added = 0;
  for (auto it = c.begin(); it != c.end(); ++it) {
    const int key = it.key();
    EXPECT_TRUE(seen.insert(key).second) << "visited twice: " << key;
    if (key <= 100) {
      EXPECT_EQ(it.value(), std::string(30, char('a' + key / 10))) << key;
    }
    if (key % 20 == 0) c.erase(key);             // the member the walk stands on
    if (key == 50) c.erase(70);                  // one the walk has not reached
    if (key % 10 == 0 && added < 40) {           // members before and after it; arrays move, tables rehash
      for (int n = 0; n < 10; ++n, ++added) c.set(1000 + added, "new");
      for (int n = 1; n < 4; ++n) c.set(key - n, "new");
    }
    if (key == 90) {
      EXPECT_EQ(c.take(100), std::string(30, 'k'));
    }
  }
  for (int k = 10; k <= 90; k += 10) {
    if (k != 70) {
      EXPECT_TRUE(seen.count(k)) << "not visited: " << k;
    }
  }
  EXPECT_FALSE(seen.count(70));
  EXPECT_FALSE(c.contains(20));
  EXPECT_TRUE(c.contains(30));
  EXPECT_FALSE(c.contains(100));
}

TYPED_TEST(CollectionTest, EraseAllEndsAWalkAndReportsEachKey) {
  TypeParam c;
  for (int k = 1; k <= 5; ++k) c.set(k, "x");
  int visited = 0;
  std::vector<int> erased;
  for (auto it = c.begin(); it != c.end(); ++it) {
    ++visited;
    c.eraseAll([&](int k) { erased.push_back(k); });
  }
  EXPECT_EQ(visited, 1);
  std::sort(erased.begin(), erased.end());
  EXPECT_EQ(erased, (std::vector<int>{1, 2, 3, 4, 5}));
}

TYPED_TEST(CollectionTest, ClearRecyclingKeepsNothingVisible) {
  TypeParam c;
  c.set(1, std::string(40, 'a'));
  c.set(2, std::string(40, 'b'));
  auto walk = c.begin();
  c.clearRecycling();
  EXPECT_TRUE(walk == c.end());
  EXPECT_TRUE(c.empty());
  EXPECT_FALSE(c.contains(1));
  c.set(2, std::string(40, 'c'));
  EXPECT_EQ(*c.find(2), std::string(40, 'c'));
  EXPECT_EQ(c.size(), 1u);
}

TEST(SmallCollectionTest, KeepsKeyOrderAndLooksUpByEquivalentKey) {
  Platform::SmallColl<std::string, int> c;
  for (const char* k : {"m", "c", "x", "a", "c"}) c.set(k, static_cast<int>(k[0]));
  std::string order;
  for (const auto& [key, value] : c) order += key;
  EXPECT_EQ(order, "acmx");
  EXPECT_EQ(*c.find(std::string_view("x")), 'x');
  EXPECT_EQ(c.find(std::string_view("b")), nullptr);
  using R = Platform::SmallColl<std::string, int>::SetResult;
  EXPECT_EQ(c.set("m", 'm'), R::unchanged);
  EXPECT_EQ(c.set("m", 1), R::replaced);
  EXPECT_EQ(c.set("b", 1), R::inserted);
}

}  // namespace
}  // namespace PlatformTest
