// Watch list maintenance and notification, robust to watchers leaving during a notification.
#include "platform/Entity.h"

namespace Platform {

namespace {
// Notifications in progress, innermost first: few at a time, so one list for all entities
// costs less than a pointer in every entity.
struct Cursor {
  const Entity* entity;
  Watch* next;
  Cursor* outer;
};
Cursor* gCursors = nullptr;
}  // namespace

const char* changeKindName(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::changed: return "changed";
    case ChangeKind::added: return "added";
    case ChangeKind::removed: return "removed";
  }
  return "unknown";
}

Entity::~Entity() {
  while (head_) unwatch(*head_);
}

void Entity::watchIs(Watch& watch) const {
  if (watch.entity) unwatch(watch);
  watch.entity = const_cast<Entity*>(this);
  watch.next = nullptr;
  watch.prev = tail_;
  if (tail_) {
    tail_->next = &watch;
  } else {
    head_ = &watch;
  }
  tail_ = &watch;
}

void Entity::unwatch(Watch& watch) {
  const Entity* e = watch.entity;
  if (!e) return;
  // A notification in progress must not step onto the watch that leaves.
  for (Cursor* c = gCursors; c; c = c->outer) {
    if (c->next == &watch) c->next = watch.next;
  }
  (watch.prev ? watch.prev->next : e->head_) = watch.next;
  (watch.next ? watch.next->prev : e->tail_) = watch.prev;
  watch.entity = nullptr;
  watch.next = watch.prev = nullptr;
}

void Entity::notifyWatchers(uint16_t attr, const void* key, ChangeKind kind) {
  // A handler may drop the last reference to this entity; keep it alive until we are done.
  const bool owned = refCount() > 0;
  if (owned) ref();
  Cursor cursor{this, head_, gCursors};
  gCursors = &cursor;
  while (Watch* w = cursor.next) {
    cursor.next = w->next;
    if (w->attr == attr || w->attr == kAnyAttr) w->fn(w->context, attr, key, kind);
  }
  gCursors = cursor.outer;
  if (owned) unref();
}

}  // namespace Platform
