// Records written as JSON text straight from their reflection: byte for byte what
// jsonText(recordToJson(record), -1) gives, without building a tree, so that a reply of ten
// thousand neighbours costs one pass over the records and no per-value allocation.
#pragma once

#include <charconv>
#include <concepts>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeindex>
#include <unordered_map>

#include "ipc/StateTypes.h"
#include "platform/Json.h"
#include "records/RecordsJson.h"

namespace Ipc {

template <class T>
struct IsBoundedBytes : std::false_type {};
template <Platform::FixedName Name, size_t Max, class S>
struct IsBoundedBytes<Platform::BoundedBytes<Name, Max, S>> : std::true_type {};

class RecordText {
 public:
  explicit RecordText(std::string& out)
      : out_(out),
        serializer_(nlohmann::detail::output_adapter<char, std::string>(out), ' ',
                    Json::error_handler_t::replace) {}

  // Text that is already JSON.
  void raw(std::string_view text) { out_ += text; }
  // "name": for a name that needs no escaping (attribute names, fixed keys).
  void key(std::string_view name) {
    out_ += '"';
    out_ += name;
    out_ += "\":";
  }
  void string(std::string_view text) {
    if (plain(text)) {
      out_ += '"';
      out_ += text;
      out_ += '"';
      return;
    }
    serializer_.dump(Json(text), false, false, 0);
  }
  void json(const Json& value) { serializer_.dump(value, false, false, 0); }

  template <Platform::Reflected T>
  void record(const T& record) {
    recordOnly(record, {});
  }
  // Only the attributes named (all when none are), in the record's order.
  template <Platform::Reflected T>
  void recordOnly(const T& record, const std::set<std::string, std::less<>>& names) {
    out_ += '{';
    bool first = true;
    record.visitAttrs([&](Platform::AttrKind, const char* name, const auto& member) {
      if (!names.empty() && !names.contains(std::string_view(name))) return;
      if (!first) out_ += ',';
      first = false;
      key(name);
      value(member);
    });
    out_ += '}';
  }

  template <class V>
  void value(const V& v) {
    if constexpr (Platform::IsColl<V>::value) {
      out_ += '[';
      bool first = true;
      for (const auto& [k, member] : v) {
        if (!first) out_ += ',';
        first = false;
        if constexpr (Platform::IsPtr<std::decay_t<decltype(member)>>::value) {
          value(member);
        } else {
          out_ += "{\"key\":";
          value(k);
          out_ += ",\"value\":";
          value(member);
          out_ += '}';
        }
      }
      out_ += ']';
    } else if constexpr (Platform::IsPtr<V>::value) {
      using E = std::remove_const_t<std::remove_reference_t<decltype(*v)>>;
      if (!v) {
        out_ += "null";
      } else if constexpr (Platform::Reflected<E>) {
        record(*v);
      } else {
        out_ += "{\"type\":";
        string(v->typeName());
        out_ += '}';
      }
    } else if constexpr (Platform::Reflected<V>) {
      record(v);
    } else if constexpr (std::is_same_v<V, bool>) {
      out_ += v ? "true" : "false";
    } else if constexpr (std::is_integral_v<V>) {
      char digits[24];
      const auto end = std::to_chars(digits, digits + sizeof digits, v).ptr;
      out_.append(digits, end);
    } else if constexpr (std::is_same_v<V, std::string>) {
      string(v);
    } else if constexpr (IsBoundedBytes<V>::value) {
      string(v.view());
    } else if constexpr (std::is_same_v<V, Konet::IntfId>) {
      string(v.name());
    } else if constexpr (std::is_floating_point_v<V> || !std::equality_comparable<V> || !std::copyable<V>) {
      json(Json(v));
    } else {
      // The records' own value types, exactly as the tree has them. Most neighbours hold the same
      // few values (nothing received, all zero), so the text of the last one of each type is kept.
      auto& slot = cache_[std::type_index(typeid(V))];
      if (!slot) slot = std::make_unique<Cached<V>>();
      auto& cached = static_cast<Cached<V>&>(*slot);
      if (!cached.value || !(*cached.value == v)) {
        cached.text.clear();
        nlohmann::detail::serializer<Json>(nlohmann::detail::output_adapter<char, std::string>(cached.text), ' ',
                                           Json::error_handler_t::replace)
            .dump(Json(v), false, false, 0);
        cached.value = v;
      }
      out_ += cached.text;
    }
  }

 private:
  // Printable ASCII without quote or backslash: the serializer would copy it unchanged.
  static bool plain(std::string_view text) {
    for (unsigned char c : text) {
      if (c < 0x20 || c > 0x7e || c == '"' || c == '\\') return false;
    }
    return true;
  }

  struct CachedBase {
    virtual ~CachedBase() = default;
  };
  template <class V>
  struct Cached : CachedBase {
    std::optional<V> value;
    std::string text;
  };

  std::string& out_;
  nlohmann::detail::serializer<Json> serializer_;
  std::unordered_map<std::type_index, std::unique_ptr<CachedBase>> cache_;
};

}  // namespace Ipc
