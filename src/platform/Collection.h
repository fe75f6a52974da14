// Keyed collections of records: ordered (std::map or a sorted array) or hashed, walkable while
// they change.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/FlatMap.h"

namespace Platform {

// Equality that compares numbers of different types by value, without sign-compare surprises.
template <class T, class U>
bool sameValue(const T& a, const U& b) {
  if constexpr (std::is_arithmetic_v<T> && std::is_arithmetic_v<U>) {
    return a == static_cast<T>(b);
  } else {
    return a == b;
  }
}

// Storage plus the bookkeeping that keeps live iterators valid across erase (and, for hashed
// storage, across an insert that rehashes; for a sorted array, across any insert or erase).
// Members removed while a walk is on are skipped; members added may or may not be visited by
// that walk. An empty collection costs two pointers: records carry many collections that are
// usually empty.
template <class Map>
class Coll {
 public:
  using key_type = typename Map::key_type;
  using mapped_type = typename Map::mapped_type;
  using value_type = typename Map::value_type;
  using MapIter = typename Map::const_iterator;

  struct sentinel {};

  class iterator {
   public:
    iterator(const Coll* coll, MapIter it) : coll_(coll), it_(it) { link(); }
    iterator(const iterator& o) : coll_(o.coll_), it_(o.it_), pending_(o.pending_) { link(); }
    iterator& operator=(const iterator&) = delete;
    ~iterator() { unlink(); }

    const value_type& operator*() const { return *it_; }
    const value_type* operator->() const { return &*it_; }
    const key_type& key() const { return it_->first; }
    const mapped_type& value() const { return it_->second; }
    iterator& operator++() {
      if (pending_) {
        pending_ = false;
      } else {
        ++it_;
      }
      return *this;
    }
    bool operator==(sentinel) const { return it_ == coll_->map().end(); }
    explicit operator bool() const { return it_ != coll_->map().end(); }

   private:
    friend class Coll;
    void link() {
      next_ = coll_->cursors_;
      coll_->cursors_ = this;
    }
    void unlink() {
      for (iterator** p = &coll_->cursors_; *p; p = &(*p)->next_) {
        if (*p == this) {
          *p = next_;
          return;
        }
      }
    }
    const Coll* coll_;
    MapIter it_;
    bool pending_ = false;  // it_ already stands on the member after one that was erased
    iterator* next_ = nullptr;
  };

  Coll() = default;
  Coll(const Coll&) = delete;
  Coll& operator=(const Coll&) = delete;

  iterator begin() const { return iterator(this, map().begin()); }
  sentinel end() const { return {}; }
  size_t size() const { return s_ ? s_->map.size() : 0; }
  bool empty() const { return size() == 0; }
  const Map& map() const { return s_ ? s_->map : emptyMap(); }

  template <class Q>
  const mapped_type* find(const Q& key) const {
    if (!s_) return nullptr;
    auto it = s_->map.find(key);
    return it == s_->map.end() ? nullptr : &it->second;
  }
  template <class Q>
  bool contains(const Q& key) const {
    return s_ && s_->map.find(key) != s_->map.end();
  }

  // What set() did.
  enum class SetResult : uint8_t { unchanged, replaced, inserted };

  // Inserts or replaces.
  template <class V>
  SetResult set(const key_type& key, V&& value) {
    Map& m = storage().map;
    auto it = m.find(key);
    if (it != m.end()) {
      if (sameValue(it->second, value)) return SetResult::unchanged;
      it->second = std::forward<V>(value);
      return SetResult::replaced;
    }
    insertNew(key, std::forward<V>(value));
    return SetResult::inserted;
  }

  bool erase(const key_type& key) {
    if (!s_) return false;
    Map& m = s_->map;
    auto it = m.find(key);
    if (it == m.end()) return false;
    eraseKeepingCursors(it);
    return true;
  }

  // Removes a member and hands its value over, so that destroying it happens outside the
  // storage (a value's destructor may change this collection).
  mapped_type take(const key_type& key) {
    if (!s_) return mapped_type{};
    Map& m = s_->map;
    auto it = m.find(key);
    if (it == m.end()) return mapped_type{};
    mapped_type value = std::move(const_cast<mapped_type&>(it->second));
    eraseKeepingCursors(it);
    return value;
  }

  // Empties the collection, then reports each removed key in iteration order.
  template <class F>
  void eraseAll(F&& onErased) {
    if (empty()) return;
    Map& m = s_->map;
    Map old;
    old.swap(m);
    parkCursorsAtEnd(m);
    for (const auto& member : old) onErased(member.first);
  }

  // Empties without notification and keeps the room (nodes, or the array), so that refilling
  // with the same keys allocates nothing (the receive path's scratch record).
  void clearRecycling() {
    if (!s_) return;
    Map& m = s_->map;
    if constexpr (kMovesOnChange) {
      m.clear();  // a sorted array keeps its room
    } else {
      if (!s_->spares) s_->spares = std::make_unique<std::vector<typename Map::node_type>>();
      while (!m.empty()) s_->spares->push_back(m.extract(m.begin()));
    }
    parkCursorsAtEnd(m);
  }

 private:
  template <class V>
  void insertNew(const key_type& key, V&& value) {
    Map& m = s_->map;
    if constexpr (!kMovesOnChange) {
      if (s_->spares && !s_->spares->empty()) {
        auto node = std::move(s_->spares->back());
        s_->spares->pop_back();
        node.key() = key;
        node.mapped() = std::forward<V>(value);
        insertKeepingCursors([&] { m.insert(std::move(node)); });
        return;
      }
    }
    insertKeepingCursors([&] { m.emplace(key, std::forward<V>(value)); });
  }

  template <class Insert>
  void insertKeepingCursors(Insert&& insert) {
    Map& m = s_->map;
    bool moves = false;
    if constexpr (kRehashes) moves = m.size() + 1 > m.bucket_count() * m.max_load_factor();
    if constexpr (kMovesOnChange) moves = true;
    if (!cursors_ || !moves) {
      insert();
      return;
    }
    changeKeepingCursors(m.end(), insert);
  }

  void eraseKeepingCursors(MapIter it) {
    Map& m = s_->map;
    if constexpr (kMovesOnChange) {
      if (cursors_) {
        changeKeepingCursors(it, [&] { m.erase(it); });
        return;
      }
    }
    stepCursorsOff(it);
    m.erase(it);
  }

  // Runs a change that may move every member, then puts each walk back on its member by key.
  // A walk standing on `erased` moves on to the member after it.
  template <class Change>
  void changeKeepingCursors(MapIter erased, Change&& change) {
    Map& m = s_->map;
    struct Position {
      iterator* cursor;
      key_type key;
      bool pending;
    };
    std::vector<Position> positions;
    for (iterator* c = cursors_; c; c = c->next_) {
      MapIter at = c->it_;
      bool pending = c->pending_;
      if (at != m.end() && at == erased) {
        at = std::next(at);
        pending = true;
      }
      if (at != m.end()) positions.push_back({c, at->first, pending});
    }
    change();
    parkCursorsAtEnd(m);
    for (const Position& p : positions) {
      p.cursor->it_ = m.find(p.key);
      p.cursor->pending_ = p.pending;
    }
  }

  // Walks in progress end at their next step.
  void parkCursorsAtEnd(const Map& m) {
    for (iterator* c = cursors_; c; c = c->next_) {
      c->it_ = m.end();
      c->pending_ = true;
    }
  }

  void stepCursorsOff(MapIter it) {
    for (iterator* c = cursors_; c; c = c->next_) {
      if (c->it_ == it) {
        c->it_ = std::next(it);
        c->pending_ = true;
      }
    }
  }

  static const Map& emptyMap() {
    static const Map empty;
    return empty;
  }

  static constexpr bool kMovesOnChange = requires { Map::kMovesOnChange; };

  // Nodes kept by clearRecycling for reuse; only the receive path's scratch record has any.
  template <class M>
  struct NodeSpares {
    std::unique_ptr<std::vector<typename M::node_type>> spares;
  };
  struct NoSpares {};
  struct Storage : std::conditional_t<kMovesOnChange, NoSpares, NodeSpares<Map>> {
    Map map;
  };
  Storage& storage() {
    if (!s_) {
      s_ = std::make_unique<Storage>();
      // Walks begun while empty stood on the shared empty map's end.
      parkCursorsAtEnd(s_->map);
    }
    return *s_;
  }

  static constexpr bool kRehashes = requires(Map m) { m.bucket_count(); };

  std::unique_ptr<Storage> s_;
  mutable iterator* cursors_ = nullptr;
};

template <class K, class V>
using OrderedColl = Coll<std::map<K, V, std::less<>>>;

// Ordered, in one sorted array: for the few members most records' collections hold.
template <class K, class V>
using SmallColl = Coll<FlatMap<K, V, std::less<>>>;

template <class K, class V, class Hash = std::hash<K>, class Eq = std::equal_to<>>
using HashedColl = Coll<std::unordered_map<K, V, Hash, Eq>>;

}  // namespace Platform
