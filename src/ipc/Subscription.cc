// Subtree watches and per-pass batches of changes with sequence numbers and neighbour reasons.
#include "ipc/Subscription.h"

#include <utility>

#include "platform/StateDb.h"
#include "records/LldpRecords.h"

namespace Ipc {

using Platform::ChangeKind;
using Platform::Entity;
using Platform::Ptr;

const char* neighbourReasonName(ChangeKind kind, uint8_t delReason) {
  if (kind == ChangeKind::added) return "new";
  if (kind == ChangeKind::changed) return "changed";
  switch (static_cast<Lldp::RemoteSystemDelReason>(delReason)) {
    case Lldp::RemoteSystemDelReason::ageout: return "aged out";
    case Lldp::RemoteSystemDelReason::shutdown: return "shutdown LLDPDU";
    case Lldp::RemoteSystemDelReason::linkDown: return "link down";
    case Lldp::RemoteSystemDelReason::cleared: return "cleared";
    case Lldp::RemoteSystemDelReason::portRemoved: return "port removed";
    case Lldp::RemoteSystemDelReason::unknown: break;
  }
  return "removed";
}

namespace {
bool isNeighbour(const Entity& e) { return dynamic_cast<const Lldp::RemoteSystem*>(&e) != nullptr; }
}  // namespace

struct Subscription::Node {
  Subscription* sub = nullptr;
  Node* parent = nullptr;
  Ptr<Entity> entity;
  std::string path;
  bool isDir = false;
  Platform::Watch watch;
  std::map<std::pair<uint16_t, std::string>, std::unique_ptr<Node>> children;

  ~Node() {
    if (watch.entity) Entity::unwatch(watch);
    --sub->nodes_;
  }
};

Subscription::Subscription(Platform::Scheduler& scheduler, uint64_t id, std::string path, Ptr<Entity> root,
                           Options options, Sink sink)
    : scheduler_(scheduler), id_(id), path_(std::move(path)), options_(std::move(options)), sink_(std::move(sink)) {
  root_ = nodeIs(nullptr, path_, std::move(root));
}

Subscription::~Subscription() {
  *alive_ = false;
  root_.reset();
}

std::unique_ptr<Subscription::Node> Subscription::nodeIs(Node* parent, std::string path, Ptr<Entity> entity) {
  auto node = std::make_unique<Node>();
  ++nodes_;
  node->sub = this;
  node->parent = parent;
  node->path = std::move(path);
  node->entity = std::move(entity);
  node->isDir = dynamic_cast<const Platform::Dir*>(node->entity.get()) != nullptr;
  const TypeOps* ops = typeOps(*node->entity);
  if (!ops) return node;  // shown, not followed
  node->watch.fn = &Subscription::notified;
  node->watch.context = node.get();
  node->watch.attr = Platform::kAnyAttr;
  node->entity->watchIs(node->watch);
  Node* raw = node.get();
  ops->children(*raw->entity, [&](uint16_t attr, const std::string& key, const Ptr<Entity>& child) {
    std::string childPath = raw->isDir ? raw->path + "/" + key : raw->path + "/" + ops->attrName(attr) + "/" + key;
    raw->children[{attr, key}] = nodeIs(raw, std::move(childPath), child);
  });
  return node;
}

void Subscription::notified(void* context, uint16_t attr, const void* key, ChangeKind kind) {
  Node& node = *static_cast<Node*>(context);
  node.sub->memberChanged(node, attr, key, kind);
}

void Subscription::memberChanged(Node& node, uint16_t attr, const void* key, ChangeKind kind) {
  const TypeOps* ops = typeOps(*node.entity);
  if (ops->index(*node.entity, attr)) return;
  if (key) {
    std::string keyText;
    Ptr<Entity> child;
    bool holdsEntities = false;
    if (ops->member(*node.entity, attr, key, keyText, child, holdsEntities) && holdsEntities) {
      const std::string childPath =
          node.isDir ? node.path + "/" + keyText : node.path + "/" + ops->attrName(attr) + "/" + keyText;
      const auto slot = std::make_pair(attr, keyText);
      auto it = node.children.find(slot);
      if (kind == ChangeKind::removed || !child) {
        if (it == node.children.end()) return;
        const auto* portStatus = dynamic_cast<const Lldp::PortStatus*>(node.entity.get());
        const uint8_t reason = static_cast<uint8_t>(portStatus ? portStatus->remoteSystemDelReason()
                                                               : Lldp::RemoteSystemDelReason::portRemoved);
        std::unique_ptr<Node> gone = std::move(it->second);
        node.children.erase(it);
        pendingIs(ChangeKind::removed, childPath, gone->entity,
                  isNeighbour(*gone->entity) ? neighbourReasonName(ChangeKind::removed, reason) : nullptr);
        subtreeRemoved(*gone, neighbourReasonName(ChangeKind::removed,
                                                  static_cast<uint8_t>(Lldp::RemoteSystemDelReason::portRemoved)));
        return;
      }
      if (it == node.children.end() || it->second->entity != child) {
        // New, or another entity put in the same place: follow the one there now.
        const bool replaced = it != node.children.end();
        node.children[slot] = nodeIs(&node, childPath, child);
        const ChangeKind reported = replaced ? ChangeKind::changed : ChangeKind::added;
        pendingIs(reported, childPath, child, isNeighbour(*child) ? neighbourReasonName(reported, 0) : nullptr);
        return;
      }
      pendingIs(ChangeKind::changed, childPath, child,
                isNeighbour(*child) ? neighbourReasonName(ChangeKind::changed, 0) : nullptr);
      return;
    }
  }
  // Identity and bookkeeping (time stamps of a refresh) are no change to report.
  if (ops->attrKind(*node.entity, attr) == Platform::AttrKind::Meta) return;
  pendingIs(ChangeKind::changed, node.path, node.entity,
            isNeighbour(*node.entity) ? neighbourReasonName(ChangeKind::changed, 0) : nullptr);
}

void Subscription::subtreeRemoved(Node& node, const char* reason) {
  for (auto& [slot, child] : node.children) {
    if (isNeighbour(*child->entity)) pendingIs(ChangeKind::removed, child->path, child->entity, reason);
    subtreeRemoved(*child, reason);
  }
}

void Subscription::pendingIs(ChangeKind kind, const std::string& path, const Ptr<Entity>& entity,
                             const char* reason) {
  if (!options_.types.empty() && !options_.types.contains(std::string_view(entity->typeName()))) return;
  if (kind == ChangeKind::changed) {
    auto it = pendingByPath_.find(path);
    if (it != pendingByPath_.end() && pending_[it->second].kind != ChangeKind::removed) return;
  }
  if (pending_.empty()) {
    scheduler_.post([this, alive = std::weak_ptr<bool>(alive_)] {
      if (alive.lock()) flush();
    });
  }
  pendingByPath_[path] = pending_.size();
  pending_.push_back({kind, path, entity, reason});
}

void Subscription::flush() {
  if (pending_.empty()) return;
  std::vector<Pending> batch;
  batch.swap(pending_);
  pendingByPath_.clear();
  Json changes = Json::array();
  for (Pending& p : batch) {
    Json change = {{"seq", ++seq_}, {"kind", Platform::changeKindName(p.kind)}, {"path", std::move(p.path)},
                   {"type", p.entity->typeName()}};
    if (p.reason) change["reason"] = p.reason;
    if (options_.values) change["value"] = entityJson(*p.entity);
    changes.push_back(std::move(change));
  }
  sink_({{"v", 1}, {"event", "changes"}, {"subscription", id_}, {"changes", std::move(changes)}});
}

}  // namespace Ipc
