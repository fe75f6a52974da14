// Run-time views of the state records the socket serves: JSON of any entity, attribute names,
// and the members behind a collection notice, so one subscription can follow a whole subtree.
#pragma once

#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/Record.h"

namespace Ipc {

using Json = nlohmann::ordered_json;

struct TypeOps {
  Json (*json)(const Platform::Entity& e);
  const char* (*attrName)(uint16_t attr);
  Platform::AttrKind (*attrKind)(const Platform::Entity& e, uint16_t attr);
  // A collection notice: the member's key as text; child is the member when the collection
  // holds entities and the member is still there. False when attr is no collection, or is a
  // look-up index: a hashed collection of pointers to members held elsewhere.
  bool (*member)(const Platform::Entity& e, uint16_t attr, const void* key, std::string& keyText,
                 Platform::Ptr<Platform::Entity>& child, bool& holdsEntities);
  // Whether attr is such a look-up index, whose notices say nothing new.
  bool (*index)(const Platform::Entity& e, uint16_t attr);
  // Every entity one level down (indexes left out): its collection attribute, key text and the entity.
  void (*children)(const Platform::Entity& e,
                   const std::function<void(uint16_t, const std::string&, const Platform::Ptr<Platform::Entity>&)>& fn);
};

// Makes the records of the LLDP agent and of the inputs it reads known (idempotent).
void stateTypesRegister();
// Null for a type nobody registered.
const TypeOps* typeOps(const Platform::Entity& e);
// JSON of the entity: records by their attributes, directories as key/value lists, anything
// else as its type name.
Json entityJson(const Platform::Entity& e);

}  // namespace Ipc
