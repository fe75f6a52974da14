// Entities: reference-counted state with synchronous, ordered change notification to watchers.
#pragma once

#include <cstdint>

#include "platform/Ptr.h"

namespace Platform {

class Entity;

// Identifies one attribute of a record type; Key is the collection key type (void for a value).
template <class Key>
struct AttrId {
  uint16_t index;
};

inline constexpr uint16_t kAnyAttr = 0xffff;

// What happened to a collection member (a plain attribute always reports `changed`). A member
// is announced `added` once, complete: builders fill a new member before inserting it.
enum class ChangeKind : uint8_t { changed, added, removed };
const char* changeKindName(ChangeKind kind);

using WatchFn = void (*)(void* context, uint16_t attr, const void* key, ChangeKind kind);

// One subscription to one attribute (or kAnyAttr) of one entity. Owned by the watcher; its
// address must stay stable while linked.
struct Watch {
  Entity* entity = nullptr;
  Watch* next = nullptr;
  Watch* prev = nullptr;
  uint16_t attr = kAnyAttr;
  WatchFn fn = nullptr;
  void* context = nullptr;
};

class Entity : public RefCounted {
 public:
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

  virtual const char* typeName() const = 0;

  // Links a watch; watchers are notified in the order they were linked.
  void watchIs(Watch& watch) const;
  // Unlinks a watch; safe inside a notification, also for the watch being notified.
  static void unwatch(Watch& watch);
  bool hasWatchers() const { return head_ != nullptr; }

 protected:
  Entity() = default;
  ~Entity() override;

  void notify(uint16_t attr, const void* key = nullptr, ChangeKind kind = ChangeKind::changed) {
    if (head_) [[unlikely]]
      notifyWatchers(attr, key, kind);
  }

 private:
  void notifyWatchers(uint16_t attr, const void* key, ChangeKind kind);

  // Watching does not change an entity's state, so read-only holders may watch too.
  mutable Watch* head_ = nullptr;
  mutable Watch* tail_ = nullptr;
};

}  // namespace Platform
