// Reactors: objects that own watches on entities and get one handler call per change.
#pragma once

#include <deque>
#include <memory>
#include <type_traits>
#include <utility>

#include "platform/Collection.h"
#include "platform/Entity.h"

namespace Platform {

namespace detail {
template <class>
struct MemberOf;
template <class C, class R, class... A>
struct MemberOf<R (C::*)(A...)> {
  using type = C;
};
}  // namespace detail

class Reactor {
 public:
  Reactor() = default;
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;
  virtual ~Reactor();

  // Runs once, after construction, when all inputs are bound.
  virtual void handleInitialized() {}

 protected:
  // Calls Handler (a member function of the derived class, taking nothing, the key, or the key
  // and the ChangeKind) whenever the attribute changes; for collections, once per key added,
  // changed or removed.
  template <auto Handler, class E, class K>
  void watch(const Ptr<E>& entity, AttrId<K> attr) {
    watchRaw(entity.get(), attr.index, &thunk<Handler, K>);
  }
  // Every change of any attribute of the entity calls Handler().
  template <auto Handler, class E>
  void watchAll(const Ptr<E>& entity) {
    watchRaw(entity.get(), kAnyAttr, &thunk<Handler, void>);
  }
  // Drops every watch on the entity (for example before binding another one).
  void unwatch(const Entity* entity);
  void unwatchAll();
  // Drops every watch whose entity the predicate picks.
  template <class Pred>
  void unwatchIf(Pred&& pred) {
    for (Watch& w : watches_) {
      if (w.entity && pred(static_cast<const Entity*>(w.entity))) Entity::unwatch(w);
    }
  }
  bool watching(const Entity* entity) const;

 private:
  template <auto Handler, class K>
  static void thunk(void* context, uint16_t, const void* key, ChangeKind kind) {
    using C = typename detail::MemberOf<decltype(Handler)>::type;
    C* self = static_cast<C*>(static_cast<Reactor*>(context));
    (void)kind;
    if constexpr (std::is_void_v<K>) {
      (self->*Handler)();
    } else if constexpr (std::is_invocable_v<decltype(Handler), C*, const K&, ChangeKind>) {
      (self->*Handler)(*static_cast<const K*>(key), kind);
    } else if constexpr (std::is_invocable_v<decltype(Handler), C*, const K&>) {
      (self->*Handler)(*static_cast<const K*>(key));
    } else {
      (self->*Handler)();
    }
  }
  void watchRaw(const Entity* entity, uint16_t attr, WatchFn fn);

  std::deque<Watch> watches_;
};

// Constructs a stand-alone reactor and runs its handleInitialized.
template <class Sm, class... Args>
std::unique_ptr<Sm> makeReactor(Args&&... args) {
  auto sm = std::make_unique<Sm>(std::forward<Args>(args)...);
  sm->handleInitialized();
  return sm;
}

// Keyed child reactors. Is() constructs Sm from (key, args...) when it can, else from (args...),
// stores it, then runs its handleInitialized; Del() removes it from the collection before it is
// destroyed, so its destructor may change the collection. Each child carries its own deleter,
// made where it is created, so that an owner may hold, look up and delete children of a type
// that is only declared where the owner is defined.
template <class Sm>
struct ChildDeleter {
  void (*destroy)(Sm*) = nullptr;
  void operator()(Sm* sm) const { destroy(sm); }
};

template <class K, class Sm>
class ReactorColl {
 public:
  using Owned = std::unique_ptr<Sm, ChildDeleter<Sm>>;

  template <class... A>
  Sm* is(const K& key, A&&... args) {
    if (auto* found = coll_.find(key)) return found->get();
    const ChildDeleter<Sm> deleter{[](Sm* sm) { delete sm; }};
    Owned sm;
    if constexpr (std::is_constructible_v<Sm, const K&, A&&...>) {
      sm = Owned(new Sm(key, std::forward<A>(args)...), deleter);
    } else {
      sm = Owned(new Sm(std::forward<A>(args)...), deleter);
    }
    Sm* raw = sm.get();
    coll_.set(key, std::move(sm));
    raw->handleInitialized();
    return raw;
  }
  void del(const K& key) { Owned doomed = coll_.take(key); }
  void delAll() {
    while (!coll_.empty()) del(coll_.begin().key());
  }
  Sm* get(const K& key) const {
    auto* found = coll_.find(key);
    return found ? found->get() : nullptr;
  }
  bool has(const K& key) const { return coll_.contains(key); }
  size_t size() const { return coll_.size(); }
  // Visits every child as (key, Sm&); children may be removed during the walk.
  template <class F>
  void forEach(F&& f) const {
    for (auto it = coll_.begin(); it != coll_.end(); ++it) f(it.key(), *it.value());
  }
  const OrderedColl<K, Owned>& all() const { return coll_; }

 private:
  OrderedColl<K, Owned> coll_;
};

}  // namespace Platform

// Inside a reactor class: a keyed collection of child reactors with its generated mutators and
// accessors: nameIs(key, args...), nameDel(key), nameDelAll(), name(key), nameHas(key), names(),
// name(), nameForEach(f).
#define PLATFORM_REACTOR_COLL(name, K, Sm)                                    \
 private:                                                                    \
  ::Platform::ReactorColl<K, Sm> name##_;                                    \
                                                                             \
 public:                                                                     \
  template <class... A>                                                      \
  Sm* name##Is(const K& key, A&&... args) {                                  \
    return name##_.is(key, std::forward<A>(args)...);                        \
  }                                                                          \
  void name##Del(const K& key) { name##_.del(key); }                         \
  void name##DelAll() { name##_.delAll(); }                                  \
  Sm* name(const K& key) const { return name##_.get(key); }                  \
  bool name##Has(const K& key) const { return name##_.has(key); }            \
  size_t name##s() const { return name##_.size(); }                          \
  const auto& name() const { return name##_.all(); }                         \
  template <class F>                                                         \
  void name##ForEach(F&& f) const {                                          \
    name##_.forEach(std::forward<F>(f));                                     \
  }
