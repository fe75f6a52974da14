// Declares a record's attributes once (an X-macro list) and generates accessors, setters that
// notify only on a real change, counters, keyed collections, and reflection.
//
// A list names each attribute as X(kind, name, ...):
//   X(Attr, name, Type, {default})      value; name(), nameIs(v)
//   X(Meta, name, Type, {default})      like Attr, but identity or bookkeeping: never copied by
//                                       copyChangedFrom (keys, time stamps)
//   X(Counter, name, Type, {default})   value with nameInc(n) (wrapping for integers)
//   X(Coll, name, Key, Value)           ordered collection of values
//   X(HashColl, name, Key, Value)       hashed collection of values
//   X(EntColl, name, Key, Entity)       ordered collection of nested entities, made by nameIs(key, args...)
//   X(HashEntColl, name, Key, Entity)   hashed collection of nested entities
// Collections have name() to walk, name(key) to look up (a default value or null when absent),
// nameHas(key), names() for the count, nameIs, nameDel(key) and nameDelAll(); entity collections
// also have nameNotify(key) to tell watchers that a member changed in place.
#pragma once

#include <type_traits>
#include <utility>

#include "platform/Collection.h"
#include "platform/Entity.h"

namespace Platform {

enum class AttrKind { Attr, Meta, Counter, Coll, HashColl, EntColl, HashEntColl };

template <class T>
const T& defaultOf() {
  static const T value{};
  return value;
}

template <class T>
T wrappingAdd(T value, T n) {
  if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    using U = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<U>(value) + static_cast<U>(n));
  } else {
    return static_cast<T>(value + n);
  }
}

template <class K>
struct HashOf : std::hash<K> {};

// The notice for what a collection's set() did; false when nothing changed.
template <class R>
bool setNotice(R result, ChangeKind& kind) {
  if (result == R::unchanged) return false;
  kind = result == R::inserted ? ChangeKind::added : ChangeKind::changed;
  return true;
}

// Stores value unless equal; true when it changed. Numbers convert as in an assignment.
template <class T, class U>
bool assignIfChanged(T& member, const U& value) {
  if (sameValue(member, value)) return false;
  if constexpr (std::is_arithmetic_v<T> && std::is_arithmetic_v<U>) {
    member = static_cast<T>(value);
  } else {
    member = value;
  }
  return true;
}

template <class K, class V>
using OrderedStore = OrderedColl<K, V>;
template <class K, class V>
using HashedStore = HashedColl<K, V, HashOf<K>>;

// Brings dst's members in line with src's; reports each change to obs and through set/del so
// that notifications fire. Returns true when anything changed.
template <class C, class Set, class Del, class Obs>
bool mergeColl(const char* name, const C& dst, const C& src, Set&& set, Del&& del, Obs& obs) {
  bool changed = false;
  for (auto it = dst.begin(); it != dst.end(); ++it) {
    if (src.contains(it.key())) continue;
    const typename C::key_type key = it.key();
    obs.memberDeleted(name, key);
    del(key);
    changed = true;
  }
  for (const auto& [key, value] : src) {
    const auto* current = dst.find(key);
    if (current && *current == value) continue;
    obs.memberUpdated(name, key);
    set(key, value);
    changed = true;
  }
  return changed;
}

}  // namespace Platform

#define PLATFORM_X_INDEX(kind, name, ...) name##Idx,
#define PLATFORM_X_NAME(kind, name, ...) #name,
#define PLATFORM_X_VISIT(kind, name, ...) v(::Platform::AttrKind::kind, #name, name##_);
#define PLATFORM_X_DECL(kind, ...) PLATFORM_DECL_##kind(__VA_ARGS__)
#define PLATFORM_X_COPY(kind, ...) PLATFORM_COPY_##kind(__VA_ARGS__)

#define PLATFORM_DECL_Attr(name, T, dflt)                      \
 private:                                                      \
  T name##_ = T dflt;                                          \
                                                               \
 public:                                                       \
  static constexpr ::Platform::AttrId<void> name##Attr{name##Idx}; \
  const T& name() const { return name##_; }                    \
  template <class U = T>                                       \
  void name##Is(const U& value) {                              \
    if (::Platform::assignIfChanged(name##_, value)) notify(name##Idx); \
  }

#define PLATFORM_DECL_Meta(name, T, dflt) PLATFORM_DECL_Attr(name, T, dflt)

#define PLATFORM_DECL_Counter(name, T, dflt)         \
  PLATFORM_DECL_Attr(name, T, dflt)                  \
  T name##Inc(T n = 1) {                             \
    if (n == T{}) return name##_;                    \
    name##_ = ::Platform::wrappingAdd(name##_, n);   \
    notify(name##Idx);                               \
    return name##_;                                  \
  }

#define PLATFORM_DECL_COLL_COMMON_(name, K, V, Store)                                \
 private:                                                                           \
  ::Platform::Store<K, V> name##_;                                                                  \
                                                                                    \
 public:                                                                            \
  static constexpr ::Platform::AttrId<K> name##Attr{name##Idx};                     \
  const ::Platform::Store<K, V>& name() const { return name##_; }                                   \
  template <class Q>                                                                \
  const V& name(const Q& key) const {                                               \
    const V* found = name##_.find(key);                                             \
    return found ? *found : ::Platform::defaultOf<V>();                             \
  }                                                                                 \
  template <class Q>                                                                \
  bool name##Has(const Q& key) const {                                              \
    return name##_.contains(key);                                                   \
  }                                                                                 \
  size_t name##s() const { return name##_.size(); }                                 \
  void name##Del(const K& key) {                                                    \
    if (name##_.erase(key)) notify(name##Idx, &key, ::Platform::ChangeKind::removed); \
  }                                                                                 \
  void name##DelAll() {                                                             \
    name##_.eraseAll(                                                               \
        [this](const K& key) { notify(name##Idx, &key, ::Platform::ChangeKind::removed); }); \
  }

#define PLATFORM_DECL_VALUE_COLL_(name, K, V, Store) \
  PLATFORM_DECL_COLL_COMMON_(name, K, V, Store)      \
  template <class U = V>                               \
  void name##Is(const K& key, const U& value) {        \
    ::Platform::ChangeKind kind;                       \
    if (::Platform::setNotice(name##_.set(key, value), kind)) notify(name##Idx, &key, kind); \
  }

#define PLATFORM_DECL_ENT_COLL_(name, K, E, Store)                             \
  PLATFORM_DECL_COLL_COMMON_(name, K, ::Platform::Ptr<E>, Store)               \
  template <class... A>                                                        \
  ::Platform::Ptr<E> name##Is(const K& key, A&&... args) {                     \
    if (const ::Platform::Ptr<E>* found = name##_.find(key)) return *found;    \
    ::Platform::Ptr<E> entity = ::Platform::make<E>(key, std::forward<A>(args)...); \
    name##_.set(key, entity);                                                  \
    notify(name##Idx, &key, ::Platform::ChangeKind::added);                    \
    return entity;                                                             \
  }                                                                            \
  /* Publishes a member built and filled beforehand, so that watchers see it   \
     once, complete. A member already under the key stays; it is returned. */  \
  ::Platform::Ptr<E> name##Insert(const K& key, ::Platform::Ptr<E> entity) {   \
    if (const ::Platform::Ptr<E>* found = name##_.find(key)) return *found;    \
    name##_.set(key, entity);                                                  \
    notify(name##Idx, &key, ::Platform::ChangeKind::added);                    \
    return entity;                                                             \
  }                                                                            \
  void name##Notify(const K& key) {                                            \
    if (name##_.contains(key)) notify(name##Idx, &key, ::Platform::ChangeKind::changed); \
  }

#define PLATFORM_DECL_Coll(name, K, V) PLATFORM_DECL_VALUE_COLL_(name, K, V, OrderedStore)
#define PLATFORM_DECL_HashColl(name, K, V) PLATFORM_DECL_VALUE_COLL_(name, K, V, HashedStore)
#define PLATFORM_DECL_EntColl(name, K, E) PLATFORM_DECL_ENT_COLL_(name, K, E, OrderedStore)
#define PLATFORM_DECL_HashEntColl(name, K, E) PLATFORM_DECL_ENT_COLL_(name, K, E, HashedStore)

#define PLATFORM_COPY_Attr(name, T, dflt)          \
  if (!(name##_ == src.name##_)) {                 \
    obs.attrChanged(#name, name##_, src.name##_);  \
    name##Is(src.name##_);                         \
    changed = true;                                \
  }
#define PLATFORM_COPY_Counter(name, T, dflt) PLATFORM_COPY_Attr(name, T, dflt)
#define PLATFORM_COPY_Meta(name, T, dflt)
#define PLATFORM_COPY_Coll(name, K, V)                                                         \
  changed |= ::Platform::mergeColl(                                                            \
      #name, name##_, src.name##_, [this](const K& k, const V& v) { name##Is(k, v); },         \
      [this](const K& k) { name##Del(k); }, obs);
#define PLATFORM_COPY_HashColl(name, K, V) PLATFORM_COPY_Coll(name, K, V)
#define PLATFORM_COPY_EntColl(name, K, E)
#define PLATFORM_COPY_HashEntColl(name, K, E)

// Inside a class deriving from Platform::Entity: generates everything for the LIST.
#define PLATFORM_RECORD(Self, LIST)                                                      \
 public:                                                                                 \
  using Ptr = ::Platform::Ptr<Self>;                                                     \
  using PtrConst = ::Platform::Ptr<const Self>;                                          \
  static constexpr const char* kTypeName = #Self;                                        \
  const char* typeName() const override { return kTypeName; }                            \
  enum AttrIndex : uint16_t { LIST(PLATFORM_X_INDEX) kAttrCount };                       \
  static const char* attrName(uint16_t index) {                                          \
    static constexpr const char* names[] = {LIST(PLATFORM_X_NAME) ""};                   \
    return index < kAttrCount ? names[index] : "";                                       \
  }                                                                                      \
  /* v(kind, name, member) for every attribute, in declaration order. */                 \
  template <class V>                                                                     \
  void visitAttrs(V&& v) const {                                                         \
    LIST(PLATFORM_X_VISIT)                                                               \
  }                                                                                      \
  template <class V>                                                                     \
  void visitAttrsMutable(V&& v) {                                                        \
    LIST(PLATFORM_X_VISIT)                                                               \
  }                                                                                      \
  /* Writes every value and value collection of src that differs (not Meta, not nested   \
     entities), in declaration order, through the setters; obs.attrChanged(name, was,    \
     now), obs.memberDeleted(name, key), obs.memberUpdated(name, key) see each change. */ \
  template <class Obs>                                                                   \
  bool copyChangedFrom(const Self& src, Obs& obs) {                                      \
    (void)src;                                                                           \
    (void)obs;                                                                           \
    bool changed = false;                                                                \
    LIST(PLATFORM_X_COPY)                                                                \
    return changed;                                                                      \
  }                                                                                      \
  LIST(PLATFORM_X_DECL)                                                                  \
 private:
