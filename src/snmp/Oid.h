// Object identifiers and the values SNMP carries, as the MIB view and the AgentX session share them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Snmp {

using SubId = uint32_t;
using Oid = std::vector<SubId>;
using OidView = std::span<const SubId>;

// Lexicographic order of sub-identifiers, a shorter prefix first: the order of GETNEXT.
int compare(OidView a, OidView b);
bool startsWith(OidView oid, OidView prefix);
Oid concat(OidView a, OidView b);
std::string oidText(OidView oid);  // "1.0.8802.1.1.2"
std::optional<Oid> parseOid(std::string_view text);

// An octet string as an index: its length, then one sub-identifier per octet.
void appendString(Oid& oid, std::string_view bytes);

enum class ValueType : uint8_t { integer, octetString, objectId, counter32, gauge32, timeTicks };

struct Value {
  ValueType type = ValueType::integer;
  int64_t number = 0;  // integer (signed 32 bits), counter, gauge and time ticks (unsigned 32 bits)
  std::string bytes;
  Oid oid;

  static Value integer(int32_t v) { return {ValueType::integer, v, {}, {}}; }
  // TruthValue: true(1), false(2).
  static Value truth(bool v) { return integer(v ? 1 : 2); }
  static Value octets(std::string_view v) { return {ValueType::octetString, 0, std::string(v), {}}; }
  static Value objectId(Oid v) { return {ValueType::objectId, 0, {}, std::move(v)}; }
  static Value counter32(uint32_t v) { return {ValueType::counter32, v, {}, {}}; }
  static Value gauge32(uint32_t v) { return {ValueType::gauge32, v, {}, {}}; }
  static Value timeTicks(uint32_t v) { return {ValueType::timeTicks, v, {}, {}}; }
  bool operator==(const Value&) const = default;
};

// "INTEGER: 3", "STRING: 0x0a0b", "Gauge32: 7": for traces and test messages.
std::string valueText(const Value& value);

}  // namespace Snmp
