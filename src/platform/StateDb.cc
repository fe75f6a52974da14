// State database paths and mount completion.
#include "platform/StateDb.h"

#include <cstring>

namespace Platform {

bool StateDb::validMode(std::string_view mode) {
  if (mode.empty()) return false;
  for (char c : mode) {
    if (!std::strchr("rwif", c)) return false;
  }
  return mode.find('r') != std::string_view::npos || mode.find('w') != std::string_view::npos;
}

StateDb::StateDb(Scheduler& scheduler, std::string cellId)
    : scheduler_(&scheduler), cellId_(std::move(cellId)) {}

std::string StateDb::cellPath(std::string_view path) const {
  return "cell/" + cellId_ + "/" + std::string(path);
}

Ptr<Entity> StateDb::entity(std::string_view path) const {
  auto it = entities_.find(path);
  return it == entities_.end() ? Ptr<Entity>() : it->second;
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
    const std::string path = e.mode.find('f') != std::string::npos ? cellPath(e.path) : e.path;
    if (!e.create(*this, path)) return Statedb::mountFailure_;  // another type lives there
    mounts_.push_back({path, e.mode, e.typeName});
  }
  return Statedb::mountSuccess_;
}

}  // namespace Platform
