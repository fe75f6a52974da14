// GET and GETNEXT over the sorted objects.
#include "snmp/MibTree.h"

#include "platform/Assert.h"

namespace Snmp {

void MibTree::objectIs(Object object) {
  auto it = std::lower_bound(objects_.begin(), objects_.end(), object.oid,
                             [](const Object& o, const Oid& oid) { return compare(o.oid, oid) < 0; });
  // Objects are leaves: none lies inside another.
  LLDP_ASSERT(it == objects_.end() || !startsWith(it->oid, object.oid));
  LLDP_ASSERT(it == objects_.begin() || !startsWith(object.oid, std::prev(it)->oid));
  objects_.insert(it, std::move(object));
}

void MibTree::scalarIs(const Oid& oid, ScalarFn get) { objectIs(Object{oid, std::move(get), nullptr, {}}); }

void MibTree::tableIs(const Oid& entry, std::shared_ptr<const RowSource> rows,
                      std::vector<std::pair<SubId, ColumnFn>> columns) {
  for (auto& [number, fn] : columns) {
    Oid oid = entry;
    oid.push_back(number);
    objectIs(Object{std::move(oid), {}, rows, std::move(fn)});
  }
}

MibTree::Got MibTree::get(OidView oid) const {
  auto it = std::upper_bound(objects_.begin(), objects_.end(), oid,
                             [](OidView o, const Object& obj) { return compare(o, obj.oid) < 0; });
  if (it == objects_.begin()) return {};
  const Object& object = *std::prev(it);
  if (!startsWith(oid, object.oid)) return {};
  const OidView index = oid.subspan(object.oid.size());
  Got got{std::nullopt, Miss::noSuchInstance};
  if (object.scalar) {
    if (index.size() == 1 && index[0] == 0) got.value = object.scalar();
    return got;
  }
  Row row;
  if (object.rows->find(index, row)) got.value = object.column(row);
  return got;
}

std::optional<MibTree::Found> MibTree::nextIn(const Object& object, OidView start, bool inclusive) const {
  // The part of start inside this object; a start before the object takes its first instance.
  const bool within = startsWith(start, object.oid);
  const OidView after = within ? start.subspan(object.oid.size()) : OidView();
  const bool take = within ? inclusive : true;
  if (object.scalar) {
    static const SubId kZero[] = {0};
    const int c = compare(OidView(kZero), after);
    if (within && (c < 0 || (c == 0 && !take))) return std::nullopt;
    std::optional<Value> value = object.scalar();
    if (!value) return std::nullopt;
    return Found{concat(object.oid, kZero), std::move(*value)};
  }
  Oid cursor(after.begin(), after.end());
  Oid index;
  Row row;
  // Rows without data for this column are passed over.
  for (bool atCursor = take; object.rows->next(cursor, atCursor, index, row); atCursor = false) {
    if (std::optional<Value> value = object.column(row)) return Found{concat(object.oid, index), std::move(*value)};
    cursor.swap(index);
  }
  return std::nullopt;
}

std::optional<MibTree::Found> MibTree::next(OidView start, bool inclusive, OidView end) const {
  // The first object that may hold an instance at or after start: the one containing start,
  // else the first one after it.
  auto it = std::upper_bound(objects_.begin(), objects_.end(), start,
                             [](OidView s, const Object& obj) { return compare(s, obj.oid) < 0; });
  if (it != objects_.begin() && startsWith(start, std::prev(it)->oid)) --it;
  for (; it != objects_.end(); ++it) {
    if (!end.empty() && compare(it->oid, end) >= 0 && !startsWith(end, it->oid)) return std::nullopt;
    std::optional<Found> found = nextIn(*it, start, inclusive);
    if (!found) continue;
    if (!end.empty() && compare(found->oid, end) >= 0) return std::nullopt;
    return found;
  }
  return std::nullopt;
}

}  // namespace Snmp
