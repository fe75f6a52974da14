// The MIB as a sorted set of objects (scalars and table columns) answering GET and GETNEXT by
// object identifier. Tables name their rows through a RowSource, so that columns of one table
// share one index and a row's columns read one state.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "snmp/Oid.h"

namespace Snmp {

// One row of a table as its columns read it: a parent (a port, a neighbour) and, in tables of a
// collection, one member of it.
struct Row {
  const void* parent = nullptr;
  const void* member = nullptr;
  uint64_t key = 0;
};

// The rows of one table in index order.
class RowSource {
 public:
  virtual ~RowSource() = default;
  // The first row whose index is greater than `after` (or equal to it, when inclusive).
  virtual bool next(OidView after, bool inclusive, Oid& index, Row& row) const = 0;
  virtual bool find(OidView index, Row& row) const = 0;
};

using ScalarFn = std::function<std::optional<Value>()>;
// Absent (nullopt) where the row has no data for the column: the walk goes on to the next row.
using ColumnFn = std::function<std::optional<Value>(const Row&)>;

class MibTree {
 public:
  // A scalar object; its one instance is oid.0.
  void scalarIs(const Oid& oid, ScalarFn get);
  // Columns of a table entry (entry OID, then column number) sharing one row source.
  void tableIs(const Oid& entry, std::shared_ptr<const RowSource> rows,
               std::vector<std::pair<SubId, ColumnFn>> columns);

  enum class Miss : uint8_t { noSuchObject, noSuchInstance };
  struct Got {
    std::optional<Value> value;
    Miss miss = Miss::noSuchObject;
  };
  Got get(OidView oid) const;

  struct Found {
    Oid oid;
    Value value;
  };
  // The first instance after start (or at it, when inclusive) and before end (an empty end
  // has no bound).
  std::optional<Found> next(OidView start, bool inclusive, OidView end = {}) const;

  size_t objects() const { return objects_.size(); }

 private:
  struct Object {
    Oid oid;  // the scalar, or entry.column
    ScalarFn scalar;
    std::shared_ptr<const RowSource> rows;
    ColumnFn column;
  };
  void objectIs(Object object);
  std::optional<Found> nextIn(const Object& object, OidView start, bool inclusive) const;

  std::vector<Object> objects_;  // sorted by oid; no object's oid is a prefix of another's
};

// A row source over parents kept in a vector sorted by their `index` member (an Oid): a port
// table, a neighbour table, or, with `members`, a table of a collection that each parent
// carries (such parents' indexes are all of one length). The vector is read at each call, so it
// may be rebuilt between requests.
template <class Parent>
class ParentRows : public RowSource {
 public:
  struct Member {
    Oid index;  // after the parent's index
    const void* ptr = nullptr;
    uint64_t key = 0;
  };
  using Members = std::vector<Member>;
  using Filter = std::function<bool(const Parent&)>;
  using MembersFn = std::function<void(const Parent&, Members&)>;

  // filter: only parents for which it holds have rows (none: all). members: the parent's
  // rows (none: one row per parent, under the parent's own index).
  explicit ParentRows(const std::vector<Parent>* parents, Filter filter = {}, MembersFn members = {})
      : parents_(parents), filter_(std::move(filter)), members_(std::move(members)) {}

  bool next(OidView after, bool inclusive, Oid& index, Row& row) const override {
    const std::vector<Parent>& parents = *parents_;
    if (parents.empty()) return false;
    if (!members_) {
      // The parents are the rows; their indexes may differ in length (addresses of two families).
      auto it = std::lower_bound(parents.begin(), parents.end(), after,
                                 [](const Parent& p, OidView a) { return compare(p.index, a) < 0; });
      if (it != parents.end() && !inclusive && compare(it->index, after) == 0) ++it;
      for (; it != parents.end(); ++it) {
        if (filter_ && !filter_(*it)) continue;
        index = it->index;
        row = Row{&*it, nullptr, 0};
        return true;
      }
      return false;
    }
    // Parents of a collection's rows all have indexes of one length.
    const size_t len = parents.front().index.size();
    const OidView head = after.first(std::min(len, after.size()));
    auto it = std::lower_bound(parents.begin(), parents.end(), head,
                               [](const Parent& p, OidView h) { return compare(p.index, h) < 0; });
    Members members;
    for (; it != parents.end(); ++it) {
      if (filter_ && !filter_(*it)) continue;
      const bool within = after.size() >= len && compare(it->index, head) == 0;
      membersOf(*it, members);
      const OidView rest = within ? after.subspan(len) : OidView();
      for (const Member& m : members) {
        if (within) {
          const int c = compare(m.index, rest);
          if (c < 0 || (c == 0 && !inclusive)) continue;
        }
        index = concat(it->index, m.index);
        row = Row{&*it, m.ptr, m.key};
        return true;
      }
    }
    return false;
  }

  bool find(OidView index, Row& row) const override {
    const std::vector<Parent>& parents = *parents_;
    if (parents.empty()) return false;
    const size_t len = members_ ? parents.front().index.size() : index.size();
    if (index.size() < len) return false;
    const Parent* parent = parentAt(index.first(len));
    if (!parent || (filter_ && !filter_(*parent))) return false;
    if (!members_) {
      row = Row{parent, nullptr, 0};
      return true;
    }
    Members members;
    membersOf(*parent, members);
    for (const Member& m : members) {
      if (compare(m.index, index.subspan(len)) == 0) {
        row = Row{parent, m.ptr, m.key};
        return true;
      }
    }
    return false;
  }

 protected:
  // The parent a GET names by this index (the index of the parent part of a row).
  virtual const Parent* parentAt(OidView head) const {
    const std::vector<Parent>& parents = *parents_;
    auto it = std::lower_bound(parents.begin(), parents.end(), head,
                               [](const Parent& p, OidView h) { return compare(p.index, h) < 0; });
    return it != parents.end() && compare(it->index, head) == 0 ? &*it : nullptr;
  }
  const std::vector<Parent>& parents() const { return *parents_; }

 private:
  void membersOf(const Parent& parent, Members& out) const {
    out.clear();
    members_(parent, out);
    std::sort(out.begin(), out.end(), [](const Member& a, const Member& b) { return compare(a.index, b.index) < 0; });
  }

  const std::vector<Parent>* parents_;
  Filter filter_;
  MembersFn members_;
};

}  // namespace Snmp
