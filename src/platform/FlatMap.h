// A map kept as one sorted array: all members in one allocation, for collections of a few.
#pragma once

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

namespace Platform {

// The subset of std::map that Coll uses. An insert or erase moves the members after it, so
// iterators and references do not survive a change; Coll puts its walks back by key.
template <class K, class V, class Compare = std::less<>>
class FlatMap {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;
  using iterator = typename std::vector<value_type>::iterator;
  using const_iterator = typename std::vector<value_type>::const_iterator;
  static constexpr bool kMovesOnChange = true;

  iterator begin() { return items_.begin(); }
  iterator end() { return items_.end(); }
  const_iterator begin() const { return items_.begin(); }
  const_iterator end() const { return items_.end(); }
  size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  // Keeps the array, so that refilling allocates nothing.
  void clear() { items_.clear(); }
  void swap(FlatMap& o) noexcept { items_.swap(o.items_); }

  template <class Q>
  iterator find(const Q& key) {
    return findIn(items_, key);
  }
  template <class Q>
  const_iterator find(const Q& key) const {
    return findIn(items_, key);
  }

  template <class KA, class VA>
  std::pair<iterator, bool> emplace(KA&& key, VA&& value) {
    auto it = lowerBound(items_, key);
    if (it != items_.end() && !Compare{}(key, it->first)) return {it, false};
    return {items_.emplace(it, std::forward<KA>(key), std::forward<VA>(value)), true};
  }

  iterator erase(const_iterator it) { return items_.erase(it); }

 private:
  template <class Items, class Q>
  static auto findIn(Items& items, const Q& key) {
    auto it = lowerBound(items, key);
    return it != items.end() && !Compare{}(key, it->first) ? it : items.end();
  }
  template <class Items, class Q>
  static auto lowerBound(Items& items, const Q& key) {
    return std::lower_bound(items.begin(), items.end(), key,
                            [](const value_type& member, const Q& k) { return Compare{}(member.first, k); });
  }

  std::vector<value_type> items_;
};

}  // namespace Platform
