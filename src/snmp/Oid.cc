// Object identifier order and text.
#include "snmp/Oid.h"

#include <algorithm>
#include <charconv>

namespace Snmp {

int compare(OidView a, OidView b) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool startsWith(OidView oid, OidView prefix) {
  return oid.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), oid.begin());
}

Oid concat(OidView a, OidView b) {
  Oid out(a.begin(), a.end());
  out.insert(out.end(), b.begin(), b.end());
  return out;
}

std::string oidText(OidView oid) {
  std::string out;
  for (SubId s : oid) {
    if (!out.empty()) out += '.';
    out += std::to_string(s);
  }
  return out;
}

std::optional<Oid> parseOid(std::string_view text) {
  Oid out;
  if (!text.empty() && text.front() == '.') text.remove_prefix(1);
  while (!text.empty()) {
    SubId v = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end == text.data()) return std::nullopt;
    out.push_back(v);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    if (text.empty()) break;
    if (text.front() != '.' || text.size() == 1) return std::nullopt;
    text.remove_prefix(1);
  }
  return out;
}

void appendString(Oid& oid, std::string_view bytes) {
  oid.push_back(static_cast<SubId>(bytes.size()));
  for (unsigned char c : bytes) oid.push_back(c);
}

std::string valueText(const Value& value) {
  static const char kDigits[] = "0123456789abcdef";
  switch (value.type) {
    case ValueType::integer: return "INTEGER: " + std::to_string(value.number);
    case ValueType::counter32: return "Counter32: " + std::to_string(value.number);
    case ValueType::gauge32: return "Gauge32: " + std::to_string(value.number);
    case ValueType::timeTicks: return "Timeticks: " + std::to_string(value.number);
    case ValueType::objectId: return "OID: " + oidText(value.oid);
    case ValueType::octetString: {
      std::string hex = "STRING: 0x";
      for (unsigned char c : value.bytes) {
        hex += kDigits[c >> 4];
        hex += kDigits[c & 15];
      }
      return hex;
    }
  }
  return "?";
}

}  // namespace Snmp
