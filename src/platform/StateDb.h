// The state database: typed entities at paths, directories of named entities, and mount groups
// that complete asynchronously on the scheduler.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
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

class StateDb {
 public:
  // Mode letters: r read, w write, i immediate notification, f per-cell path.
  static bool validMode(std::string_view mode);

  StateDb(Scheduler& scheduler, std::string cellId);

  Scheduler& scheduler() const { return *scheduler_; }
  const std::string& cellId() const { return cellId_; }
  // Where a per-cell ("f") mount of path lives for this cell.
  std::string cellPath(std::string_view path) const;

  Ptr<Entity> entity(std::string_view path) const;
  template <class T>
  Ptr<T> lookup(std::string_view path) const {
    return ptrCast<T>(entity(path));
  }
  // Creates the entity at path unless one is there; null when the one there has another type.
  template <class T, class... Args>
  Ptr<T> entityIs(const std::string& path, Args&&... args) {
    if (Ptr<Entity> existing = entity(path)) return ptrCast<T>(existing);
    Ptr<T> created = make<T>(std::forward<Args>(args)...);
    entities_[path] = created;
    return created;
  }
  void entityDel(std::string_view path);
  std::vector<std::string> paths() const;

  struct Mount {
    std::string path;  // as resolved (per-cell paths included)
    std::string mode;
    std::string typeName;
  };
  const std::vector<Mount>& mounts() const { return mounts_; }

  using MountDone = std::function<void(Statedb::MountStatus, StateDb&)>;

  class MountGroup {
   public:
    template <class T>
    MountGroup& mount(std::string path, std::string mode) {
      entries_.push_back({std::move(path), std::move(mode), T::kTypeName,
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
      Ptr<Entity> (*create)(StateDb&, const std::string&);
    };
    StateDb* db_;
    std::vector<Entry> entries_;
  };
  MountGroup mountGroup() { return MountGroup(*this); }

 private:
  Statedb::MountStatus complete(const std::vector<MountGroup::Entry>& entries);

  Scheduler* scheduler_;
  std::string cellId_;
  std::map<std::string, Ptr<Entity>, std::less<>> entities_;
  std::vector<Mount> mounts_;
};

}  // namespace Platform
