// State database paths, mount completion, and resolution and listing below mounted entities.
#include "platform/StateDb.h"

#include <cstring>
#include <typeindex>
#include <unordered_map>

namespace Platform {

namespace paths {

namespace {
std::unordered_map<std::type_index, const EntityType*>& registry() {
  static std::unordered_map<std::type_index, const EntityType*> types;
  return types;
}
std::unordered_map<std::string_view, const EntityType*>& byName() {
  static std::unordered_map<std::string_view, const EntityType*> types;
  return types;
}

std::vector<std::string_view> split(std::string_view path) {
  std::vector<std::string_view> segs;
  while (!path.empty()) {
    const size_t slash = path.find('/');
    std::string_view seg = path.substr(0, slash);
    if (!seg.empty()) segs.push_back(seg);
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return segs;
}
}  // namespace

const EntityType* typeOf(const Entity& e) {
  auto it = registry().find(std::type_index(typeid(e)));
  return it == registry().end() ? nullptr : it->second;
}

const EntityType* typeNamed(std::string_view typeName) {
  auto it = byName().find(typeName);
  return it == byName().end() ? nullptr : it->second;
}

void typeIs(const std::type_info& id, const char* typeName, const EntityType* type) {
  if (!registry().emplace(std::type_index(id), type).second) return;
  auto [it, fresh] = byName().emplace(typeName, type);
  if (!fresh && it->second != type) it->second = nullptr;  // two types share the name
}

std::string join(const std::vector<std::string_view>& segs, size_t from, size_t count) {
  std::string out;
  for (size_t i = from; i < from + count && i < segs.size(); ++i) {
    if (i != from) out += '/';
    out += segs[i];
  }
  return out;
}

// Directory entries are named directly; their names may contain '/' too.
Ptr<Entity> dirStep(const Dir& dir, const std::vector<std::string_view>& segs, size_t& at) {
  for (size_t n = 1; n <= kMaxKeySegments && at + n <= segs.size(); ++n) {
    if (const Ptr<Entity>* found = dir.entry().find(join(segs, at, n)); found && *found) {
      at += n;
      return *found;
    }
  }
  return {};
}

// Walks segs from the entity; stops at the first segment that names no child.
Ptr<Entity> walk(Ptr<Entity> e, const std::vector<std::string_view>& segs, size_t& at) {
  while (e && at < segs.size()) {
    Ptr<Entity> next;
    if (const Dir* dir = dynamic_cast<const Dir*>(e.get())) {
      next = dirStep(*dir, segs, at);
    } else if (const EntityType* type = typeOf(*e)) {
      next = type->step(*e, segs, at);
    }
    if (!next) return e;
    e = std::move(next);
  }
  return e;
}

}  // namespace paths

bool StateDb::validMode(std::string_view mode) {
  if (mode.empty()) return false;
  for (char c : mode) {
    if (!std::strchr("rwif", c)) return false;
  }
  return mode.find('r') != std::string_view::npos || mode.find('w') != std::string_view::npos;
}

StateDb::StateDb(Scheduler& scheduler, std::string cellId)
    : scheduler_(&scheduler), cellId_(std::move(cellId)) {
  paths::registerType<Dir>();
}

std::string StateDb::cellPath(std::string_view path) const {
  return "cell/" + cellId_ + "/" + std::string(path);
}

Ptr<Entity> StateDb::mountedPrefix(std::string_view path, std::string_view& rest) const {
  // Longest first: a mount may lie below another mount's path.
  std::string_view prefix = path;
  while (!prefix.empty()) {
    if (auto it = entities_.find(prefix); it != entities_.end()) {
      rest = path.substr(prefix.size());
      if (!rest.empty()) rest.remove_prefix(1);
      return it->second;
    }
    const size_t slash = prefix.rfind('/');
    if (slash == std::string_view::npos) break;
    prefix = prefix.substr(0, slash);
  }
  return {};
}

Ptr<Entity> StateDb::entity(std::string_view path) const {
  std::string_view rest;
  Ptr<Entity> e = mountedPrefix(path, rest);
  if (!e || rest.empty()) return e;
  const std::vector<std::string_view> segs = paths::split(rest);
  size_t at = 0;
  e = paths::walk(std::move(e), segs, at);
  return at == segs.size() ? e : Ptr<Entity>();
}

bool StateDb::list(std::string_view path, std::vector<PathEntry>& out) const {
  out.clear();
  std::string_view rest;
  if (Ptr<Entity> e = mountedPrefix(path, rest)) {
    const std::vector<std::string_view> segs = paths::split(rest);
    size_t at = 0;
    e = paths::walk(std::move(e), segs, at);
    if (at == segs.size()) {
      if (const Dir* dir = dynamic_cast<const Dir*>(e.get())) {
        for (const auto& [name, member] : dir->entry()) {
          out.push_back({name, member ? member->typeName() : ""});
        }
        return true;
      }
      const EntityType* type = paths::typeOf(*e);
      std::vector<std::string> names;
      if (type) type->list(*e, {}, names);
      for (std::string& n : names) {
        const std::vector<std::string_view> one{n};
        size_t i = 0;
        Ptr<Entity> child = type->step(*e, one, i);
        out.push_back({std::move(n), child ? child->typeName() : ""});
      }
      return true;
    }
    // One segment left naming a collection of the entity reached: its keys.
    if (at + 1 == segs.size()) {
      const EntityType* type = paths::typeOf(*e);
      std::vector<std::string> keys;
      if (!type || !type->list(*e, segs[at], keys)) return false;
      for (std::string& k : keys) {
        Ptr<Entity> member = entity(std::string(path) + "/" + k);
        out.push_back({std::move(k), member ? member->typeName() : ""});
      }
      return true;
    }
    return false;
  }
  // A prefix of mounted paths: the next segment of each.
  std::set<std::string, std::less<>> next;
  const std::string prefix = path.empty() ? std::string() : std::string(path) + "/";
  for (auto it = entities_.lower_bound(prefix); it != entities_.end(); ++it) {
    if (it->first.compare(0, prefix.size(), prefix) != 0) break;
    const std::string_view tail = std::string_view(it->first).substr(prefix.size());
    next.emplace(tail.substr(0, tail.find('/')));
  }
  for (const std::string& n : next) out.push_back({n, ""});
  return !next.empty();
}

bool StateDb::writable(std::string_view path) const {
  for (const std::string& input : inputs_) {
    if (path.size() < input.size() || path.compare(0, input.size(), input) != 0) continue;
    if (path.size() == input.size() || path[input.size()] == '/') return true;
  }
  return false;
}

Ptr<Entity> StateDb::writableEntity(std::string_view path, std::string& error) const {
  if (!writable(path)) {
    error = "not writable: " + std::string(path);
    return {};
  }
  Ptr<Entity> e = entity(path);
  if (!e) error = "no such path: " + std::string(path);
  return e;
}

Ptr<Entity> StateDb::dirEntryIs(std::string_view dirPath, const std::string& name, std::string_view typeName,
                                std::string& error) {
  Ptr<Dir> dir = ptrCast<Dir>(writableEntity(dirPath, error));
  if (!dir) {
    if (error.empty()) error = "not a directory: " + std::string(dirPath);
    return {};
  }
  if (name.empty()) {
    error = "empty entry name";
    return {};
  }
  if (const Ptr<Entity>& existing = dir->entry(name)) {
    if (typeName == existing->typeName()) return existing;
    error = "entry " + name + " has type " + existing->typeName();
    return {};
  }
  const EntityType* type = paths::typeNamed(typeName);
  Ptr<Entity> created = type ? type->make(name) : Ptr<Entity>();
  if (!created) {
    error = "unknown type: " + std::string(typeName);
    return {};
  }
  dir->entryIs(name, created);
  return created;
}

bool StateDb::dirEntryDel(std::string_view dirPath, const std::string& name, std::string& error) {
  Ptr<Dir> dir = ptrCast<Dir>(writableEntity(dirPath, error));
  if (!dir) {
    if (error.empty()) error = "not a directory: " + std::string(dirPath);
    return false;
  }
  if (!dir->entryHas(name)) {
    error = "no such entry: " + name;
    return false;
  }
  dir->entryDel(name);
  return true;
}

void StateDb::entityDel(std::string_view path) {
  if (auto it = entities_.find(path); it != entities_.end()) entities_.erase(it);
}

std::vector<std::string> StateDb::paths() const {
  std::vector<std::string> out;
  for (const auto& [path, e] : entities_) out.push_back(path);
  return out;
}

void StateDb::MountGroup::close(MountDone done) {
  StateDb* db = db_;
  db->scheduler().post([db, entries = std::move(entries_), done = std::move(done)] {
    done(db->complete(entries), *db);
  });
}

Statedb::MountStatus StateDb::complete(const std::vector<MountGroup::Entry>& entries) {
  for (const MountGroup::Entry& e : entries) {
    if (!validMode(e.mode) || e.path.empty()) return Statedb::mountFailure_;
  }
  for (const MountGroup::Entry& e : entries) {
    const bool perCell = e.mode.find('f') != std::string::npos && !e.directory;
    const std::string path = perCell ? cellPath(e.path) : e.path;
    if (!e.create(*this, path)) return Statedb::mountFailure_;  // another type lives there
    mounts_.push_back({path, e.mode, e.typeName});
  }
  return Statedb::mountSuccess_;
}

}  // namespace Platform
