// One client's subscription to everything below a path: watches the subtree as it grows and
// shrinks, and hands over the changes of each pass of the event loop as one batch.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "ipc/StateTypes.h"
#include "platform/Scheduler.h"

namespace Ipc {

// Why a neighbour came, changed or went, as events name it.
const char* neighbourReasonName(Platform::ChangeKind kind, uint8_t delReason);

class Subscription {
 public:
  struct Options {
    std::set<std::string, std::less<>> types;  // entity types reported; empty for all
    bool values = true;                        // each event carries the entity's JSON
  };
  // Receives one batch object per pass; its "changes" list is never empty.
  using Sink = std::function<void(Json batch)>;

  Subscription(Platform::Scheduler& scheduler, uint64_t id, std::string path, Platform::Ptr<Platform::Entity> root,
               Options options, Sink sink);
  ~Subscription();
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  uint64_t id() const { return id_; }
  const std::string& path() const { return path_; }
  uint64_t lastSeq() const { return seq_; }
  size_t watchedEntities() const { return nodes_; }

 private:
  struct Node;
  struct Pending {
    Platform::ChangeKind kind;
    std::string path;
    Platform::Ptr<Platform::Entity> entity;
    const char* reason;  // null when the entity is no neighbour
  };
  static void notified(void* context, uint16_t attr, const void* key, Platform::ChangeKind kind);
  std::unique_ptr<Node> nodeIs(Node* parent, std::string path, Platform::Ptr<Platform::Entity> entity);
  void memberChanged(Node& node, uint16_t attr, const void* key, Platform::ChangeKind kind);
  void subtreeRemoved(Node& node, const char* reason);
  void pendingIs(Platform::ChangeKind kind, const std::string& path, const Platform::Ptr<Platform::Entity>& entity,
                 const char* reason);
  void flush();

  Platform::Scheduler& scheduler_;
  uint64_t id_;
  std::string path_;
  Options options_;
  Sink sink_;
  uint64_t seq_ = 0;
  size_t nodes_ = 0;
  std::unique_ptr<Node> root_;
  std::vector<Pending> pending_;
  std::unordered_map<std::string, size_t> pendingByPath_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Ipc
