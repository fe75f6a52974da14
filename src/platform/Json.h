// JSON output of records through their reflection: attribute names are the keys, collections
// are always arrays, nested entities are objects.
#pragma once

#include <nlohmann/json.hpp>
#include <type_traits>

#include "platform/Bounded.h"
#include "platform/EthAddr.h"
#include "platform/IntfId.h"
#include "platform/Record.h"

namespace Konet {
inline void to_json(nlohmann::ordered_json& j, const EthAddr& a) { j = a.toString(); }
inline void to_json(nlohmann::ordered_json& j, const IntfId& id) { j = id.name(); }
}  // namespace Konet

namespace Platform {

template <FixedName Name, size_t Max, class S>
void to_json(nlohmann::ordered_json& j, const BoundedBytes<Name, Max, S>& v) {
  j = v.str();
}
template <FixedName Name, class T, T Min, T Max>
void to_json(nlohmann::ordered_json& j, const BoundedInt<Name, T, Min, Max>& v) {
  j = v.value();
}

template <class T>
struct IsColl : std::false_type {};
template <class M>
struct IsColl<Coll<M>> : std::true_type {};

template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Ptr<T>> : std::true_type {};

template <class T>
concept Reflected = requires(const T& t) { t.visitAttrs([](AttrKind, const char*, const auto&) {}); };

template <class V>
nlohmann::ordered_json valueToJson(const V& value);

template <Reflected T>
nlohmann::ordered_json recordToJson(const T& record) {
  nlohmann::ordered_json out = nlohmann::ordered_json::object();
  record.visitAttrs([&out](AttrKind, const char* name, const auto& member) {
    out[name] = valueToJson(member);
  });
  return out;
}

template <class V>
nlohmann::ordered_json valueToJson(const V& value) {
  if constexpr (IsColl<V>::value) {
    nlohmann::ordered_json out = nlohmann::ordered_json::array();
    for (const auto& [key, member] : value) {
      using M = std::decay_t<decltype(member)>;
      if constexpr (IsPtr<M>::value) {
        out.push_back(valueToJson(member));
      } else {
        out.push_back({{"key", valueToJson(key)}, {"value", valueToJson(member)}});
      }
    }
    return out;
  } else if constexpr (IsPtr<V>::value) {
    using E = std::remove_const_t<std::remove_reference_t<decltype(*value)>>;
    if (!value) return nullptr;
    if constexpr (Reflected<E>) {
      return recordToJson(*value);
    } else {
      return {{"type", value->typeName()}};
    }
  } else if constexpr (Reflected<V>) {
    return recordToJson(value);
  } else {
    return nlohmann::ordered_json(value);
  }
}

// Serialises without failing on bytes that are not UTF-8 (they come from the wire).
inline std::string jsonText(const nlohmann::ordered_json& j, int indent = 2) {
  return j.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace Platform
