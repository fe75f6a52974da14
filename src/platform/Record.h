// Declares a record's attributes once (an X-macro list) and generates accessors, setters that
// notify only on a real change, counters, keyed collections, and reflection.
//
// A list names each attribute as X(kind, name, ...):
//   X(Attr, name, Type, {default})      value; name(), nameIs(v)
//   X(Meta, name, Type, {default})      like Attr, but identity or bookkeeping: never copied by
//                                       copyChangedFrom (keys, time stamps)
//   X(Rare, name, Type, {default})      like Attr, for values most records leave at their default:
//                                       all of a record's Rare values share one block, allocated
//                                       when the first of them gets another value (reflection
//                                       reports them as Attr)
//   X(RareColl, name, Key, Value)       like Coll, kept in the block of Rare values (reflection
//                                       reports it as Coll)
//   X(Counter, name, Type, {default})   value with nameInc(n) (wrapping for integers)
//   X(Coll, name, Key, Value)           ordered collection of values
//   X(SmallColl, name, Key, Value)      like Coll, in one sorted array: for the few members a
//                                       record usually holds (reflection reports it as Coll)
//   X(HashColl, name, Key, Value)       hashed collection of values
//   X(EntColl, name, Key, Entity)       ordered collection of nested entities, made by nameIs(key, args...)
//   X(HashEntColl, name, Key, Entity)   hashed collection of nested entities
// Collections have name() to walk, name(key) to look up (a default value or null when absent),
// nameHas(key), names() for the count, nameIs, nameDel(key) and nameDelAll(); entity collections
// also have nameNotify(key) to tell watchers that a member changed in place.
#pragma once

#include <memory>
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

// Where a record keeps its Rare values: nothing until one of them leaves its default, and no
// room at all in a record that has none.
template <class Values>
class RareBlock {
 public:
  const Values* get() const { return values_.get(); }
  Values* getMutable() { return values_.get(); }
  Values& mutableValues() {
    if (!values_) values_ = std::make_unique<Values>();
    return *values_;
  }

 private:
  std::unique_ptr<Values> values_;
};

template <class Values>
  requires std::is_empty_v<Values>
class RareBlock<Values> {};

template <class K, class V>
using OrderedStore = OrderedColl<K, V>;
template <class K, class V>
using SmallStore = SmallColl<K, V>;
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
#define PLATFORM_X_VISIT(kind, name, ...) PLATFORM_VISIT_##kind(name)
#define PLATFORM_X_VISIT_MUTABLE(kind, name, ...) PLATFORM_VISIT_MUTABLE_##kind(name)
#define PLATFORM_X_RARE_MEMBER(kind, ...) PLATFORM_RARE_MEMBER_##kind(__VA_ARGS__)
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

#define PLATFORM_DECL_Rare(name, T, dflt)                                  \
 public:                                                                   \
  static constexpr ::Platform::AttrId<void> name##Attr{name##Idx};         \
  static const T& name##Default() {                                        \
    static const T value = T dflt;                                         \
    return value;                                                          \
  }                                                                        \
  const T& name() const {                                                  \
    const auto* rare = rare_.get();                                        \
    return rare ? rare->name : name##Default();                            \
  }                                                                        \
  template <class U = T>                                                   \
  void name##Is(const U& value) {                                          \
    if (!rare_.get() && ::Platform::sameValue(name##Default(), value)) return; \
    if (::Platform::assignIfChanged(rare_.mutableValues().name, value)) notify(name##Idx); \
  }

#define PLATFORM_DECL_RareColl(name, K, V)                                             \
 public:                                                                               \
  static constexpr ::Platform::AttrId<K> name##Attr{name##Idx};                        \
  const ::Platform::SmallStore<K, V>& name() const {                                   \
    const auto* rare = rare_.get();                                                    \
    return rare ? rare->name : ::Platform::defaultOf<::Platform::SmallStore<K, V>>();   \
  }                                                                                    \
  template <class Q>                                                                   \
  const V& name(const Q& key) const {                                                  \
    const V* found = name().find(key);                                                 \
    return found ? *found : ::Platform::defaultOf<V>();                                \
  }                                                                                    \
  template <class Q>                                                                   \
  bool name##Has(const Q& key) const {                                                 \
    return name().contains(key);                                                       \
  }                                                                                    \
  size_t name##s() const { return name().size(); }                                     \
  void name##Del(const K& key) {                                                       \
    auto* rare = rare_.getMutable();                                                   \
    if (rare && rare->name.erase(key)) notify(name##Idx, &key, ::Platform::ChangeKind::removed); \
  }                                                                                    \
  void name##DelAll() {                                                                \
    auto* rare = rare_.getMutable();                                                   \
    if (!rare) return;                                                                 \
    rare->name.eraseAll(                                                               \
        [this](const K& key) { notify(name##Idx, &key, ::Platform::ChangeKind::removed); }); \
  }                                                                                    \
  template <class U = V>                                                               \
  void name##Is(const K& key, const U& value) {                                        \
    ::Platform::ChangeKind kind;                                                       \
    if (::Platform::setNotice(rare_.mutableValues().name.set(key, value), kind)) notify(name##Idx, &key, kind); \
  }

#define PLATFORM_RARE_MEMBER_Rare(name, T, dflt) T name = T dflt;
#define PLATFORM_RARE_MEMBER_RareColl(name, K, V) ::Platform::SmallStore<K, V> name;
#define PLATFORM_RARE_MEMBER_Attr(...)
#define PLATFORM_RARE_MEMBER_Meta(...)
#define PLATFORM_RARE_MEMBER_Counter(...)
#define PLATFORM_RARE_MEMBER_Coll(...)
#define PLATFORM_RARE_MEMBER_SmallColl(...)
#define PLATFORM_RARE_MEMBER_HashColl(...)
#define PLATFORM_RARE_MEMBER_EntColl(...)
#define PLATFORM_RARE_MEMBER_HashEntColl(...)

#define PLATFORM_VISIT_Rare(name) v(::Platform::AttrKind::Attr, #name, name());
#define PLATFORM_VISIT_MUTABLE_Rare(name) v(::Platform::AttrKind::Attr, #name, rare_.mutableValues().name);
#define PLATFORM_VISIT_RareColl(name) v(::Platform::AttrKind::Coll, #name, name());
#define PLATFORM_VISIT_MUTABLE_RareColl(name) v(::Platform::AttrKind::Coll, #name, rare_.mutableValues().name);
#define PLATFORM_VISIT_PLAIN_(kind, name) v(::Platform::AttrKind::kind, #name, name##_);
#define PLATFORM_VISIT_Attr(name) PLATFORM_VISIT_PLAIN_(Attr, name)
#define PLATFORM_VISIT_Meta(name) PLATFORM_VISIT_PLAIN_(Meta, name)
#define PLATFORM_VISIT_Counter(name) PLATFORM_VISIT_PLAIN_(Counter, name)
#define PLATFORM_VISIT_Coll(name) PLATFORM_VISIT_PLAIN_(Coll, name)
#define PLATFORM_VISIT_SmallColl(name) PLATFORM_VISIT_PLAIN_(Coll, name)
#define PLATFORM_VISIT_HashColl(name) PLATFORM_VISIT_PLAIN_(HashColl, name)
#define PLATFORM_VISIT_EntColl(name) PLATFORM_VISIT_PLAIN_(EntColl, name)
#define PLATFORM_VISIT_HashEntColl(name) PLATFORM_VISIT_PLAIN_(HashEntColl, name)
#define PLATFORM_VISIT_MUTABLE_Attr(name) PLATFORM_VISIT_Attr(name)
#define PLATFORM_VISIT_MUTABLE_Meta(name) PLATFORM_VISIT_Meta(name)
#define PLATFORM_VISIT_MUTABLE_Counter(name) PLATFORM_VISIT_Counter(name)
#define PLATFORM_VISIT_MUTABLE_Coll(name) PLATFORM_VISIT_Coll(name)
#define PLATFORM_VISIT_MUTABLE_SmallColl(name) PLATFORM_VISIT_Coll(name)
#define PLATFORM_VISIT_MUTABLE_HashColl(name) PLATFORM_VISIT_HashColl(name)
#define PLATFORM_VISIT_MUTABLE_EntColl(name) PLATFORM_VISIT_EntColl(name)
#define PLATFORM_VISIT_MUTABLE_HashEntColl(name) PLATFORM_VISIT_HashEntColl(name)

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
#define PLATFORM_DECL_SmallColl(name, K, V) PLATFORM_DECL_VALUE_COLL_(name, K, V, SmallStore)
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
#define PLATFORM_COPY_Rare(name, T, dflt)            \
  if (!(name() == src.name())) {                     \
    obs.attrChanged(#name, name(), src.name());      \
    name##Is(src.name());                            \
    changed = true;                                  \
  }
#define PLATFORM_COPY_Coll(name, K, V)                                                         \
  changed |= ::Platform::mergeColl(                                                            \
      #name, name##_, src.name##_, [this](const K& k, const V& v) { name##Is(k, v); },         \
      [this](const K& k) { name##Del(k); }, obs);
#define PLATFORM_COPY_HashColl(name, K, V) PLATFORM_COPY_Coll(name, K, V)
#define PLATFORM_COPY_SmallColl(name, K, V) PLATFORM_COPY_Coll(name, K, V)
#define PLATFORM_COPY_RareColl(name, K, V)                                                     \
  changed |= ::Platform::mergeColl(                                                            \
      #name, name(), src.name(), [this](const K& k, const V& v) { name##Is(k, v); },            \
      [this](const K& k) { name##Del(k); }, obs);
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
  /* Also gives the record its block of Rare values, so that they can be written. */    \
  template <class V>                                                                     \
  void visitAttrsMutable(V&& v) {                                                        \
    LIST(PLATFORM_X_VISIT_MUTABLE)                                                       \
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
                                                                                         \
 private:                                                                                \
  struct RareValues {                                                                    \
    LIST(PLATFORM_X_RARE_MEMBER)                                                         \
  };                                                                                     \
  [[no_unique_address]] [[maybe_unused]] ::Platform::RareBlock<RareValues> rare_;         \
                                                                                         \
 public:                                                                                 \
  LIST(PLATFORM_X_DECL)                                                                  \
 private:
