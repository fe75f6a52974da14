// Type operations generated from each record's reflection, registered once by type.
#include "ipc/StateTypes.h"

#include <typeindex>
#include <unordered_map>

#include "platform/StateDb.h"
#include "records/RecordsJson.h"

namespace Ipc {
namespace {

using Platform::Entity;
using Platform::Ptr;

std::unordered_map<std::type_index, TypeOps>& registry() {
  static std::unordered_map<std::type_index, TypeOps> ops;
  return ops;
}

template <class M>
constexpr bool isColl() {
  return requires { typename M::mapped_type; typename M::key_type; };
}

template <class V>
Ptr<Entity> asEntity(const V& value) {
  if constexpr (Platform::paths::isEntityPtr<V>()) {
    return value;
  } else {
    (void)value;
    return {};
  }
}

template <class T>
Platform::AttrKind kindOf(const Entity& e, uint16_t attr) {
  Platform::AttrKind found = Platform::AttrKind::Attr;
  uint16_t index = 0;
  static_cast<const T&>(e).visitAttrs([&](Platform::AttrKind kind, const char*, const auto&) {
    if (index++ == attr) found = kind;
  });
  return found;
}

// Hashed collections of pointers only index members that an entity collection owns.
template <class M>
constexpr bool isIndex(Platform::AttrKind kind) {
  if constexpr (isColl<M>()) {
    return kind == Platform::AttrKind::HashColl && Platform::paths::isEntityPtr<typename M::mapped_type>();
  } else {
    return false;
  }
}

template <class T>
bool indexOf(const Entity& e, uint16_t attr) {
  bool found = false;
  uint16_t index = 0;
  static_cast<const T&>(e).visitAttrs([&](Platform::AttrKind kind, const char*, const auto& member) {
    using M = std::remove_cvref_t<decltype(member)>;
    if (index++ == attr) found = isIndex<M>(kind);
  });
  return found;
}

template <class T>
bool memberOf(const Entity& e, uint16_t attr, const void* key, std::string& keyText, Ptr<Entity>& child,
              bool& holdsEntities) {
  bool found = false;
  uint16_t index = 0;
  static_cast<const T&>(e).visitAttrs([&](Platform::AttrKind kind, const char*, const auto& member) {
    using M = std::remove_cvref_t<decltype(member)>;
    if (index++ != attr || isIndex<M>(kind)) return;
    if constexpr (isColl<M>()) {
      const auto& k = *static_cast<const typename M::key_type*>(key);
      found = true;
      keyText = Platform::paths::keyToString(k);
      holdsEntities = Platform::paths::isEntityPtr<typename M::mapped_type>();
      if (const auto* value = member.find(k)) child = asEntity(*value);
    }
  });
  return found;
}

template <class T>
void childrenOf(const Entity& e,
                const std::function<void(uint16_t, const std::string&, const Ptr<Entity>&)>& fn) {
  uint16_t index = 0;
  static_cast<const T&>(e).visitAttrs([&](Platform::AttrKind kind, const char*, const auto& member) {
    using M = std::remove_cvref_t<decltype(member)>;
    const uint16_t attr = index++;
    if (isIndex<M>(kind)) return;
    if constexpr (isColl<M>()) {
      if constexpr (Platform::paths::isEntityPtr<typename M::mapped_type>()) {
        for (const auto& [k, v] : member) {
          if (v) fn(attr, Platform::paths::keyToString(k), v);
        }
      }
    }
  });
}

template <class T>
Json jsonOf(const Entity& e) {
  return Platform::recordToJson(static_cast<const T&>(e));
}

Json dirJson(const Entity& e) {
  const auto& dir = static_cast<const Platform::Dir&>(e);
  Json entries = Json::array();
  for (const auto& [name, member] : dir.entry()) {
    entries.push_back({{"key", name}, {"value", member ? entityJson(*member) : Json()}});
  }
  return {{"name", dir.name()}, {"entry", std::move(entries)}};
}

template <class T>
void add(Json (*json)(const Entity&) = &jsonOf<T>) {
  Platform::StateDb::typeIs<T>();
  registry().emplace(std::type_index(typeid(T)),
                     TypeOps{json, &T::attrName, &kindOf<T>, &memberOf<T>, &indexOf<T>, &childrenOf<T>});
}

}  // namespace

void stateTypesRegister() {
  static const bool done = [] {
    add<Platform::Dir>(&dirJson);
    add<Lldp::Config>();
    add<Lldp::PortConfig>();
    add<Lldp::CliConfig>();
    add<Lldp::CliPortConfig>();
    add<Lldp::LocalSystem>();
    add<Lldp::LocalPort>();
    add<Lldp::LocalPortPoeInfo>();
    add<Lldp::RemoteSystem>();
    add<Lldp::PortStatus>();
    add<Lldp::Status>();
    add<Lldp::AllStatus>();
    add<Lldp::RemTablesCliConfig>();
    add<Lldp::RemTablesStatus>();
    add<Lldp::ExternalTlvConfig>();
    add<Lldp::ExternalTlvPortConfig>();
    add<Identity::NbrClassification::Status>();
    add<Identity::Dot1x::Status>();
    add<Environment::Power::PoePortStatus>();
    return true;
  }();
  (void)done;
}

const TypeOps* typeOps(const Entity& e) {
  auto it = registry().find(std::type_index(typeid(e)));
  return it == registry().end() ? nullptr : &it->second;
}

Json entityJson(const Entity& e) {
  if (const TypeOps* ops = typeOps(e)) return ops->json(e);
  return {{"type", e.typeName()}};
}

}  // namespace Ipc
