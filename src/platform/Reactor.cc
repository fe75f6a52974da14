// Reactor watch bookkeeping: a destroyed reactor is never notified again.
#include "platform/Reactor.h"

namespace Platform {

Reactor::~Reactor() { unwatchAll(); }

void Reactor::watchRaw(const Entity* entity, uint16_t attr, WatchFn fn) {
  if (!entity) return;
  Watch* slot = nullptr;
  for (Watch& w : watches_) {
    if (!w.entity) {
      slot = &w;
      break;
    }
  }
  if (!slot) slot = &watches_.emplace_back();
  slot->attr = attr;
  slot->fn = fn;
  slot->context = this;
  entity->watchIs(*slot);
}

void Reactor::unwatch(const Entity* entity) {
  for (Watch& w : watches_) {
    if (w.entity == entity) Entity::unwatch(w);
  }
}

bool Reactor::watching(const Entity* entity) const {
  for (const Watch& w : watches_) {
    if (w.entity == entity) return true;
  }
  return false;
}

void Reactor::unwatchAll() {
  for (Watch& w : watches_) Entity::unwatch(w);
}

}  // namespace Platform
