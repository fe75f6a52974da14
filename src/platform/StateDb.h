// The state database: typed entities at paths, directories of named entities, mount groups that
// complete asynchronously on the scheduler, and look-up and listing of everything below a mount.
#pragma once

#include <charconv>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "platform/Record.h"
#include "platform/Scheduler.h"

namespace Statedb {
enum MountStatus { mountSuccess_, mountFailure_ };
}

namespace Platform {

// A directory of named entities of any type, as other agents publish them.
class Dir : public Entity {
#define PLATFORM_DIR_ATTRS(X)              \
  X(Meta, name, std::string, {})           \
  X(Coll, entry, std::string, ::Platform::Ptr<::Platform::Entity>)
  PLATFORM_RECORD(Dir, PLATFORM_DIR_ATTRS)
#undef PLATFORM_DIR_ATTRS
 public:
  Dir() = default;
  explicit Dir(std::string name) : name_(std::move(name)) {}
};

// How paths below an entity of one type resolve: "attr" names a pointer-valued attribute,
// "attr/key" a member of a collection of entities. Keys may contain '/' (interface names such as
// Ethernet3/1 do), so a key takes as many segments as it needs to match a member.
struct EntityType {
  // Consumes the segments that name one child, from segs[at]; null (at unchanged) when none.
  Ptr<Entity> (*step)(const Entity& e, const std::vector<std::string_view>& segs, size_t& at);
  // The navigable attribute names (attr empty) or the keys of one collection; false when attr
  // names no collection of entities.
  bool (*list)(const Entity& e, std::string_view attr, std::vector<std::string>& out);
  // Makes a free-standing entity of the type from a name, or null when the type cannot.
  Ptr<Entity> (*make)(const std::string& name);
};

namespace paths {

inline constexpr size_t kMaxKeySegments = 4;

// Types are known by their C++ type (record type names repeat across namespaces: "Status").
const EntityType* typeOf(const Entity& e);
// By type name, for outside writers that create entries; null when unknown or ambiguous.
const EntityType* typeNamed(std::string_view typeName);
void typeIs(const std::type_info& id, const char* typeName, const EntityType* type);
std::string join(const std::vector<std::string_view>& segs, size_t from, size_t count);

template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Ptr<T>> : std::true_type {
  using element = std::remove_const_t<T>;
};

template <class K>
bool keyFromString(std::string_view text, K& key) {
  if constexpr (std::is_constructible_v<K, std::string_view>) {
    key = K(text);
    return true;
  } else if constexpr (std::is_integral_v<K>) {
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), key);
    return ec == std::errc() && end == text.data() + text.size();
  } else {
    return false;  // keys without a text form are listed but not addressable
  }
}

template <class K>
std::string keyToString(const K& key) {
  if constexpr (std::is_same_v<K, std::string>) {
    return key;
  } else if constexpr (requires { key.name(); }) {
    return std::string(key.name());
  } else if constexpr (std::is_integral_v<K>) {
    return std::to_string(+key);
  } else if constexpr (requires(std::ostream& os) { os << key; }) {
    std::ostringstream os;
    os << key;
    return os.str();
  } else {
    return "?";
  }
}

template <class T>
void registerType();

template <class T>
constexpr bool isEntityPtr() {
  if constexpr (IsPtr<T>::value) {
    return std::is_base_of_v<Entity, typename IsPtr<T>::element>;
  } else {
    return false;
  }
}

template <class M>
constexpr bool isEntityColl() {
  if constexpr (requires { typename M::mapped_type; typename M::key_type; }) {
    return isEntityPtr<typename M::mapped_type>();
  } else {
    return false;
  }
}

// Members held as Ptr<Entity> are resolved by their run-time type, which must be registered.
template <class P>
void registerPointee() {
  using E = typename IsPtr<P>::element;
  if constexpr (!std::is_same_v<E, Entity>) registerType<E>();
}

template <class T>
Ptr<Entity> stepOf(const Entity& e, const std::vector<std::string_view>& segs, size_t& at) {
  Ptr<Entity> found;
  const std::string_view attr = segs[at];
  size_t next = at;
  static_cast<const T&>(e).visitAttrs([&](AttrKind, const char* name, const auto& member) {
    using M = std::remove_cvref_t<decltype(member)>;
    if (found || attr != name) return;
    if constexpr (isEntityPtr<M>()) {
      if (!member) return;
      registerPointee<M>();
      found = member;
      next = at + 1;
    } else if constexpr (isEntityColl<M>()) {
      for (size_t n = 1; n <= kMaxKeySegments && at + n < segs.size(); ++n) {
        typename M::key_type key{};
        if (!keyFromString(join(segs, at + 1, n), key)) continue;
        const auto* value = member.find(key);
        if (!value || !*value) continue;
        registerPointee<typename M::mapped_type>();
        found = *value;
        next = at + 1 + n;
        return;
      }
    }
  });
  at = next;
  return found;
}

template <class T>
bool listOf(const Entity& e, std::string_view attr, std::vector<std::string>& out) {
  bool known = attr.empty();
  static_cast<const T&>(e).visitAttrs([&](AttrKind, const char* name, const auto& member) {
    using M = std::remove_cvref_t<decltype(member)>;
    if constexpr (isEntityPtr<M>()) {
      if (attr.empty() && member) out.emplace_back(name);
    } else if constexpr (isEntityColl<M>()) {
      if (attr.empty()) {
        out.emplace_back(name);
      } else if (attr == name) {
        known = true;
        for (const auto& [k, v] : member) out.push_back(keyToString(k));
      }
    }
  });
  return known;
}

template <class T>
Ptr<Entity> makeOf(const std::string& name) {
  if constexpr (std::is_constructible_v<T, std::string>) {
    return make<T>(name);
  } else if constexpr (std::is_default_constructible_v<T>) {
    (void)name;
    return make<T>();
  } else {
    (void)name;
    return {};
  }
}

template <class T>
void registerType() {
  static const EntityType type{&stepOf<T>, &listOf<T>, &makeOf<T>};
  typeIs(typeid(T), T::kTypeName, &type);
}

}  // namespace paths

// One child as listed below a path.
struct PathEntry {
  std::string name;
  std::string typeName;  // the entity's type; empty for a collection or a directory prefix
  bool operator==(const PathEntry&) const = default;
};

class StateDb {
 public:
  // Mode letters: r read, w write, i immediate notification, f per-cell path.
  static bool validMode(std::string_view mode);

  StateDb(Scheduler& scheduler, std::string cellId);

  Scheduler& scheduler() const { return *scheduler_; }
  const std::string& cellId() const { return cellId_; }
  // Where a per-cell ("f") mount of an entity lives for this cell. A per-cell directory stays
  // where it is: the cells share it and each owns the entry named by its cell id.
  std::string cellPath(std::string_view path) const;

  // The entity at path: a mounted entity, a directory entry, a collection member or a
  // pointer-valued attribute below one. Null when nothing is there.
  Ptr<Entity> entity(std::string_view path) const;
  template <class T>
  Ptr<T> lookup(std::string_view path) const {
    return ptrCast<T>(entity(path));
  }
  // The children below path, sorted by name for prefixes and directories, in collection order
  // for collections. False when path names nothing.
  bool list(std::string_view path, std::vector<PathEntry>& out) const;

  // Creates the entity at path unless one is there; null when the one there has another type.
  template <class T, class... Args>
  Ptr<T> entityIs(const std::string& path, Args&&... args) {
    paths::registerType<T>();
    if (auto it = entities_.find(path); it != entities_.end()) return ptrCast<T>(it->second);
    Ptr<T> created = make<T>(std::forward<Args>(args)...);
    entities_[path] = created;
    return created;
  }
  void entityDel(std::string_view path);
  std::vector<std::string> paths() const;

  // Entities held untyped (directory entries) resolve further only when their type is known.
  template <class T>
  static void typeIs() {
    paths::registerType<T>();
  }

  // Inputs: paths that clients outside the agent's reactors may write (at or below them).
  void inputIs(std::string path) { inputs_.insert(std::move(path)); }
  bool writable(std::string_view path) const;
  // Outside writers: the entity at a writable path, or null with a one-line reason.
  Ptr<Entity> writableEntity(std::string_view path, std::string& error) const;
  // Outside writers: adds a named entry of a known type to a writable directory (an existing
  // entry of that type is returned as it is).
  Ptr<Entity> dirEntryIs(std::string_view dirPath, const std::string& name, std::string_view typeName,
                         std::string& error);
  bool dirEntryDel(std::string_view dirPath, const std::string& name, std::string& error);

  struct Mount {
    std::string path;  // as resolved (per-cell paths included)
    std::string mode;
    std::string typeName;
  };
  const std::vector<Mount>& mounts() const { return mounts_; }
  // Records a mount made outside a group (mounted by name, like the interface directories).
  template <class T>
  Ptr<T> mountIs(const std::string& path, const std::string& mode) {
    Ptr<T> e = entityIs<T>(path);
    if (e) mounts_.push_back({path, mode, T::kTypeName});
    return e;
  }

  using MountDone = std::function<void(Statedb::MountStatus, StateDb&)>;

  class MountGroup {
   public:
    template <class T>
    MountGroup& mount(std::string path, std::string mode) {
      entries_.push_back({std::move(path), std::move(mode), T::kTypeName,
                          std::is_same_v<T, Dir>,
                          [](StateDb& db, const std::string& p) -> Ptr<Entity> {
                            return db.entityIs<T>(p);
                          }});
      return *this;
    }
    // Starts mounting; done runs later on the scheduler with the group's outcome.
    void close(MountDone done);

   private:
    friend class StateDb;
    explicit MountGroup(StateDb& db) : db_(&db) {}
    struct Entry {
      std::string path;
      std::string mode;
      const char* typeName;
      bool directory;
      Ptr<Entity> (*create)(StateDb&, const std::string&);
    };
    StateDb* db_;
    std::vector<Entry> entries_;
  };
  MountGroup mountGroup() { return MountGroup(*this); }

 private:
  Statedb::MountStatus complete(const std::vector<MountGroup::Entry>& entries);
  // The mounted entity with the longest path that is path or a prefix of it; rest is the remainder.
  Ptr<Entity> mountedPrefix(std::string_view path, std::string_view& rest) const;

  Scheduler* scheduler_;
  std::string cellId_;
  std::map<std::string, Ptr<Entity>, std::less<>> entities_;
  std::vector<Mount> mounts_;
  std::set<std::string, std::less<>> inputs_;
};

}  // namespace Platform
