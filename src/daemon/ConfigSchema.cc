// Finding keys, the generic checks by type and range, rendering as TOML and writing settings
// into the records.
#include "daemon/ConfigSchema.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "daemon/ConfigKeys.h"

namespace Daemon {
namespace {

using Lldp::AdminStatus;
constexpr size_t kMaxListItems = 64;

const std::vector<ConfigKey>& table() { return configKeyTable(); }

std::vector<std::string_view> splitDots(std::string_view text) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  while (true) {
    const size_t dot = text.find('.', start);
    parts.push_back(text.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start));
    if (dot == std::string_view::npos) return parts;
    start = dot + 1;
  }
}

std::optional<uint64_t> parseUnsigned(std::string_view text, uint64_t max) {
  uint64_t v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size() || v > max) return std::nullopt;
  return v;
}

std::optional<uint32_t> parseOui(std::string_view text) {
  std::string hex;
  for (char c : text) {
    if (c == '-' || c == ':') continue;
    if (hexDigit(c) < 0) return std::nullopt;
    hex += c;
  }
  if (hex.size() != 6) return std::nullopt;
  return static_cast<uint32_t>(std::stoul(hex, nullptr, 16));
}

// Matches key against pattern; "" on success, otherwise why a parameter does not fit.
bool matchPattern(std::string_view pattern, std::string_view key, ConfigKeyParams& params, std::string& why) {
  const auto want = splitDots(pattern);
  const auto got = splitDots(key);
  if (want.size() != got.size()) return false;
  for (size_t i = 0; i < want.size(); ++i) {
    if (!want[i].starts_with('<')) {
      if (want[i] != got[i]) return false;
      continue;
    }
    // Literal segments must all match before a parameter error is reported.
    for (size_t j = i; j < want.size(); ++j) {
      if (!want[j].starts_with('<') && want[j] != got[j]) return false;
    }
    if (want[i] == "<app>") {
      auto v = parseUnsigned(got[i], 255);
      if (!v) return why = "application '" + std::string(got[i]) + "' is not 0-255", false;
      params.app = static_cast<uint8_t>(*v);
    } else if (want[i] == "<oui>") {
      auto v = parseOui(got[i]);
      if (!v) return why = "'" + std::string(got[i]) + "' is not an OUI such as 00-12-34", false;
      params.oui = *v;
    } else if (want[i] == "<subtype>") {
      auto v = parseUnsigned(got[i], 255);
      if (!v) return why = "subtype '" + std::string(got[i]) + "' is not 0-255", false;
      params.subtype = static_cast<uint8_t>(*v);
    } else if (want[i] == "<index>") {
      auto v = parseUnsigned(got[i], 65535);
      if (!v || *v == 0) return why = "index '" + std::string(got[i]) + "' is not 1-65535", false;
      params.index = static_cast<uint32_t>(*v);
    }
  }
  return true;
}

std::string formatNumber(double v) {
  char buf[64];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  std::string text(buf, ec == std::errc() ? end : buf);
  if (text.find_first_of(".eEn") == std::string::npos) text += ".0";
  return text;
}

std::string formatBound(const ConfigKey& key, double v) {
  return key.type == ConfigType::integer ? std::to_string(static_cast<int64_t>(v)) : formatNumber(v);
}

bool validUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const unsigned char c = s[i];
    size_t n = 0;
    if (c < 0x80) {
      n = 0;
    } else if (c >= 0xc2 && c <= 0xdf) {
      n = 1;
    } else if ((c >> 4) == 0xe) {
      n = 2;
    } else if (c >= 0xf0 && c <= 0xf4) {
      n = 3;
    } else {
      return false;
    }
    if (s.size() - i <= n) return false;
    for (size_t k = 1; k <= n; ++k) {
      if ((static_cast<unsigned char>(s[i + k]) >> 6) != 2) return false;
    }
    i += n + 1;
  }
  return true;
}

std::string describe(const ConfigValue& v) {
  switch (v.index()) {
    case 0: return "true or false";
    case 1: return "an integer";
    case 2: return "a number";
    case 3: return "a text";
    default: return "a list";
  }
}

std::string quoted(std::string_view s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      default:
        if (c < 0x20 || c == 0x7f) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

std::string renderValueText(const ConfigValue& v) {
  switch (v.index()) {
    case 0: return std::get<bool>(v) ? "true" : "false";
    case 1: return std::to_string(std::get<int64_t>(v));
    case 2: return formatNumber(std::get<double>(v));
    case 3: return quoted(std::get<std::string>(v));
    default: {
      std::string out = "[";
      for (const auto& item : std::get<std::vector<std::string>>(v)) {
        if (out.size() > 1) out += ", ";
        out += quoted(item);
      }
      return out + "]";
    }
  }
}

// The generic checks by type and range; converts an integer given for a number.
std::string checkValue(const ConfigKey& key, const ConfigValue& value, ConfigValue& checked) {
  const std::string expects = "expects " + ConfigSchema::allowed(key) + ", got " + describe(value);
  const auto outOfRange = [&](const std::string& shown) {
    return shown + " is out of range (allowed: " + ConfigSchema::allowed(key) + ")";
  };
  checked = value;
  switch (key.type) {
    case ConfigType::boolean:
      if (!std::holds_alternative<bool>(value)) return expects;
      return {};
    case ConfigType::integer: {
      if (!std::holds_alternative<int64_t>(value)) return expects;
      const int64_t v = std::get<int64_t>(value);
      if (v < key.min || v > key.max) return outOfRange(std::to_string(v));
      return {};
    }
    case ConfigType::number: {
      double v = 0;
      if (std::holds_alternative<int64_t>(value)) {
        v = static_cast<double>(std::get<int64_t>(value));
      } else if (std::holds_alternative<double>(value)) {
        v = std::get<double>(value);
      } else {
        return expects;
      }
      if (!std::isfinite(v) || v < key.min || v > key.max) return outOfRange(formatNumber(v));
      checked = v;
      return {};
    }
    case ConfigType::text: {
      if (!std::holds_alternative<std::string>(value)) return expects;
      const std::string& s = std::get<std::string>(value);
      if (!validUtf8(s)) return "the text is not valid UTF-8";
      if (s.size() < key.min || s.size() > key.max) {
        return std::to_string(s.size()) + " bytes is out of range (allowed: " + ConfigSchema::allowed(key) + ")";
      }
      return {};
    }
    case ConfigType::choice: {
      if (!std::holds_alternative<std::string>(value)) return expects;
      for (const char* c : key.choices) {
        if (std::get<std::string>(value) == c) return {};
      }
      return "'" + std::get<std::string>(value) + "' is not allowed (allowed: " + ConfigSchema::allowed(key) + ")";
    }
    case ConfigType::textList: {
      if (!std::holds_alternative<std::vector<std::string>>(value)) return expects;
      const auto& list = std::get<std::vector<std::string>>(value);
      if (list.size() > kMaxListItems) return "more than " + std::to_string(kMaxListItems) + " items";
      for (const auto& item : list) {
        if (!validUtf8(item)) return "an item is not valid UTF-8";
        if (item.size() < key.min || item.size() > key.max) {
          return "item '" + item.substr(0, 80) + "' is out of range (allowed: " + ConfigSchema::allowed(key) + ")";
        }
      }
      return {};
    }
  }
  return expects;
}

std::string keyLabel(std::string_view intf, std::string_view key) {
  if (intf.empty()) return std::string(key);
  if (key.empty()) return "interface." + std::string(intf);  // the whole section
  return "interface." + std::string(intf) + "." + std::string(key);
}

}  // namespace

std::string ConfigSchema::renderValue(const ConfigValue& value) { return renderValueText(value); }

std::optional<ConfigError> ConfigSchema::checkTogether(const Settings& s, std::string_view changedKey) {
  if (s.messageTxHoldTime >= s.messageTxInterval) return std::nullopt;
  const std::string why = ": neighbors would forget this system between two LLDPDUs";
  if (changedKey == "transmit-interval" || changedKey == "messageTxInterval") {
    return ConfigError{"transmit-interval", std::to_string(s.messageTxInterval) + " is longer than hold-time " +
                                                std::to_string(s.messageTxHoldTime) + why + " (raise hold-time first)"};
  }
  return ConfigError{"hold-time", std::to_string(s.messageTxHoldTime) + " is shorter than transmit-interval " +
                                      std::to_string(s.messageTxInterval) + why};
}

std::string ConfigError::text() const { return key.empty() ? message : key + ": " + message; }

std::span<const ConfigKey> ConfigSchema::keys() { return table(); }

bool ConfigSchema::validIntfName(std::string_view name) {
  if (name.empty() || name.size() > 15 || name == "." || name == "..") return false;
  for (char c : name) {
    if (static_cast<unsigned char>(c) <= ' ' || c == '/' || c == '"' || c == '\\' ||
        static_cast<unsigned char>(c) >= 0x7f) {
      return false;
    }
  }
  return true;
}

std::optional<ConfigSchema::Match> ConfigSchema::find(ConfigScope scope, std::string_view key) {
  for (const ConfigKey& entry : table()) {
    if (entry.scope != scope) continue;
    Match match{&entry, {}};
    std::string why;
    if (key == entry.attr && *entry.attr) return match;
    if (matchPattern(entry.key, key, match.params, why)) return match;
  }
  return std::nullopt;
}

std::string ConfigSchema::allowed(const ConfigKey& key) {
  if (key.allowedText) return key.allowedText;
  std::string unit = *key.unit ? std::string(" (") + key.unit + ")" : "";
  switch (key.type) {
    case ConfigType::boolean: return "true or false";
    case ConfigType::integer:
      return "an integer " + formatBound(key, key.min) + "-" + formatBound(key, key.max) + unit;
    case ConfigType::number: return "a number " + formatBound(key, key.min) + "-" + formatBound(key, key.max) + unit;
    case ConfigType::text:
      return "a text of " + std::to_string(static_cast<int>(key.min)) + " to " +
             std::to_string(static_cast<int>(key.max)) + " bytes";
    case ConfigType::choice: {
      std::string out = "one of ";
      for (size_t i = 0; i < key.choices.size(); ++i) out += (i ? ", " : "") + std::string(key.choices[i]);
      return out;
    }
    case ConfigType::textList:
      return "a list of texts of at most " + std::to_string(static_cast<int>(key.max)) + " bytes";
  }
  return {};
}

std::optional<ConfigValue> ConfigSchema::valueFromText(const ConfigKey& key, std::string_view text) {
  switch (key.type) {
    case ConfigType::boolean:
      if (text == "true" || text == "yes" || text == "on" || text == "1") return ConfigValue(true);
      if (text == "false" || text == "no" || text == "off" || text == "0") return ConfigValue(false);
      return std::nullopt;
    case ConfigType::integer: {
      int64_t v = 0;
      auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
      if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
      return ConfigValue(v);
    }
    case ConfigType::number: {
      double v = 0;
      auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
      if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
      return ConfigValue(v);
    }
    case ConfigType::text:
    case ConfigType::choice: return ConfigValue(std::string(text));
    case ConfigType::textList: {
      std::vector<std::string> items;
      size_t start = 0;
      while (start <= text.size() && !text.empty()) {
        const size_t comma = text.find(',', start);
        std::string_view item = text.substr(start, comma == std::string_view::npos ? text.npos : comma - start);
        while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
        while (!item.empty() && item.back() == ' ') item.remove_suffix(1);
        items.emplace_back(item);
        if (comma == std::string_view::npos) break;
        start = comma + 1;
      }
      return ConfigValue(items);
    }
  }
  return std::nullopt;
}

std::optional<ConfigError> ConfigSchema::set(Settings& settings, std::string_view intf, std::string_view key,
                                             const ConfigValue& value, bool together) {
  const ConfigScope scope = intf.empty() ? ConfigScope::global : ConfigScope::port;
  const std::string label = keyLabel(intf, key);
  if (!intf.empty() && !validIntfName(intf)) {
    return ConfigError{label, "'" + std::string(intf) + "' is not an interface name (1 to 15 bytes, no spaces or /)"};
  }
  std::string why;
  std::optional<Match> match;
  for (const ConfigKey& entry : table()) {
    if (entry.scope != scope) continue;
    Match m{&entry, {}};
    if ((*entry.attr && key == entry.attr) || matchPattern(entry.key, key, m.params, why)) {
      match = m;
      break;
    }
    if (!why.empty()) return ConfigError{label, why};
  }
  if (!match) {
    return ConfigError{label, intf.empty() ? "unknown key" : "unknown interface key"};
  }
  ConfigValue checked;
  if (std::string error = checkValue(*match->key, value, checked); !error.empty()) return ConfigError{label, error};
  // Written on a copy, so that a refusal by the key's own check leaves nothing behind.
  Settings copy = settings;
  PortSettings* port = intf.empty() ? nullptr : &copy.ports[std::string(intf)];
  if (std::string error = match->key->set(copy, port, match->params, checked); !error.empty()) {
    return ConfigError{label, error + " (allowed: " + allowed(*match->key) + ")"};
  }
  if (together) {
    if (auto error = checkTogether(copy, key)) return error;
  }
  settings = std::move(copy);
  return std::nullopt;
}

std::optional<ConfigError> ConfigSchema::setText(Settings& settings, std::string_view intf, std::string_view key,
                                                 std::string_view text) {
  const auto match = find(intf.empty() ? ConfigScope::global : ConfigScope::port, key);
  if (!match) return set(settings, intf, key, ConfigValue(std::string(text)));  // reports the key
  const auto value = valueFromText(*match->key, text);
  if (!value) {
    return ConfigError{keyLabel(intf, key), "'" + std::string(text) + "' is not " + allowed(*match->key)};
  }
  return set(settings, intf, key, *value);
}

std::optional<ConfigError> ConfigSchema::unset(Settings& settings, std::string_view intf, std::string_view key) {
  const std::string label = keyLabel(intf, key);
  if (!intf.empty()) {
    auto port = settings.ports.find(std::string(intf));
    if (port == settings.ports.end()) return ConfigError{label, "the interface has no configuration"};
    if (key.empty()) {
      settings.ports.erase(port);
      return std::nullopt;
    }
    ConfigKeyParams params;
    std::string why;
    if (matchPattern("network-policy.<app>", key, params, why)) {
      port->second.networkPolicy.erase(params.app);
      return std::nullopt;
    }
    if (!why.empty()) return ConfigError{label, why};
  }
  const auto match = find(intf.empty() ? ConfigScope::global : ConfigScope::port, key);
  if (!match) return ConfigError{label, intf.empty() ? "unknown key" : "unknown interface key"};
  Settings copy = settings;
  PortSettings* port = intf.empty() ? nullptr : &copy.ports[std::string(intf)];
  match->key->reset(copy, port, match->params);
  if (auto error = checkTogether(copy, key)) return error;
  settings = std::move(copy);
  return std::nullopt;
}

std::string ConfigSchema::renderToml(const Settings& settings) {
  std::ostringstream out;
  out << "# lldp-agent configuration\n";
  std::string group;
  for (const ConfigKey& key : table()) {
    if (key.scope != ConfigScope::global) continue;
    const auto value = key.get(settings, nullptr, {});
    if (!value) continue;
    if (std::holds_alternative<std::vector<std::string>>(*value) &&
        std::get<std::vector<std::string>>(*value).empty()) {
      continue;
    }
    if (std::holds_alternative<std::string>(*value) && std::get<std::string>(*value).empty()) continue;
    const std::string_view name = key.key;
    const std::string prefix(name.substr(0, name.find('.') == name.npos ? 0 : name.find('.')));
    if (prefix != group) out << "\n";
    group = prefix;
    out << key.key << " = " << renderValueText(*value) << "\n";
  }
  for (const auto& [intf, port] : settings.ports) {
    out << "\n[interface." << quoted(intf) << "]\n";
    for (const ConfigKey& key : table()) {
      if (key.scope != ConfigScope::port || std::string_view(key.key).find('<') != std::string_view::npos) continue;
      out << key.key << " = " << renderValueText(*key.get(settings, &port, {})) << "\n";
    }
    for (const auto& [app, policy] : port.networkPolicy) {
      const std::string prefix = "network-policy." + std::to_string(app) + ".";
      out << prefix << "vlan = " << policy.vlanId << "\n"
          << prefix << "priority = " << static_cast<int>(policy.l2Priority) << "\n"
          << prefix << "dscp = " << static_cast<int>(policy.dscp) << "\n"
          << prefix << "tagged = " << (policy.tagged ? "true" : "false") << "\n";
    }
    for (const auto& [tlv, bytes] : port.externalTlv) {
      ConfigKeyParams params{0, tlv.oui().value, tlv.subtype(), tlv.index()};
      out << "external-tlv." << ouiText(tlv.oui().value) << "." << static_cast<int>(tlv.subtype()) << "."
          << tlv.index() << " = " << renderValueText(*getExternalTlv(settings, &port, params)) << "\n";
    }
  }
  return out.str();
}

std::string ConfigSchema::renderDoc() {
  static const Settings defaults;
  static const PortSettings portDefaults;
  std::ostringstream out;
  for (const ConfigKey& key : table()) {
    out << (key.scope == ConfigScope::port ? "[interface.\"NAME\"] " : "") << key.key << "\n";
    out << "    " << key.doc << "\n    Allowed: " << allowed(key) << ".";
    if (std::string_view(key.key).find('<') == std::string_view::npos) {
      const auto value = key.get(defaults, &portDefaults, {});
      if (value) out << " Default: " << renderValueText(*value) << ".";
    }
    out << "\n";
  }
  return out.str();
}

void applyCliConfig(const Settings& s, Lldp::CliConfig& c) {
  c.enabledIs(s.enabled);
  c.messageTxIntervalIs(s.messageTxInterval);
  c.messageTxHoldTimeIs(s.messageTxHoldTime);
  c.reinitDelayIs(s.reinitDelay);
  c.rxTaggedPacketsDropIs(s.rxTaggedPacketsDrop);
  c.mgmtAddrVrfIs(Lldp::VrfName(s.mgmtAddrVrf));
  c.mgmtAddrTxOptionIs(Lldp::MgmtAddrTxOption{s.mgmtAddrTxMode, Konet::IntfId(s.mgmtAddrTxIntfName)});
  c.ip6MgmtAddrIntfNameIs(Konet::IntfId(s.ip6MgmtAddrIntfName));
  c.portDescTlvEnabledIs(s.portDescTlvEnabled);
  c.sysNameTlvEnabledIs(s.sysNameTlvEnabled);
  c.sysDescTlvEnabledIs(s.sysDescTlvEnabled);
  c.sysCapTlvEnabledIs(s.sysCapTlvEnabled);
  c.mgmtAddrTlvEnabledIs(s.mgmtAddrTlvEnabled);
  c.portVlanIdTlvEnabledIs(s.portVlanIdTlvEnabled);
  c.linkAggregationTlvEnabledIs(s.linkAggregationTlvEnabled);
  c.maxFrameSizeTlvEnabledIs(s.maxFrameSizeTlvEnabled);
  c.powerViaMdiTlvEnabledIs(s.powerViaMdiTlvEnabled);
  c.medNetworkPolicyTlvEnabledIs(s.medNetworkPolicyTlvEnabled);

  std::vector<Konet::IntfId> gone;
  for (auto it = c.portConfig().begin(); it; ++it) {
    if (!s.ports.contains(it.key().name())) gone.push_back(it.key());
  }
  for (const Konet::IntfId& intf : gone) c.portConfigDel(intf);
  for (const auto& [name, port] : s.ports) {
    const Lldp::CliPortConfig::Ptr entry = c.portConfigIs(Konet::IntfId(name));
    entry->adminStatusIs(port.adminStatus);
    entry->rxRateLimitingEnabledIs(port.rxRateLimitingEnabled);
    entry->rxRateLimitMaxIs(port.rxRateLimitMax);
    entry->rxRateLimitPeriodIs(port.rxRateLimitPeriod);
    std::vector<uint8_t> stale;
    for (auto it = entry->networkPolicyConfig().begin(); it; ++it) {
      if (!port.networkPolicy.contains(it.key())) stale.push_back(it.key());
    }
    for (uint8_t app : stale) entry->networkPolicyConfigDel(app);
    for (const auto& [app, policy] : port.networkPolicy) entry->networkPolicyConfigIs(app, policy);
  }
}

void applyExternalTlvs(const Settings& s, Lldp::ExternalTlvConfig& record) {
  const auto wanted = [&](const std::string& name) {
    auto it = s.ports.find(name);
    return it != s.ports.end() && !it->second.externalTlv.empty();
  };
  std::vector<Konet::IntfId> gone;
  for (auto it = record.portConfig().begin(); it; ++it) {
    if (!wanted(it.key().name())) gone.push_back(it.key());
  }
  for (const Konet::IntfId& intf : gone) record.portConfigDel(intf);
  for (const auto& [name, port] : s.ports) {
    if (port.externalTlv.empty()) continue;
    const Lldp::ExternalTlvPortConfig::Ptr entry = record.portConfigIs(Konet::IntfId(name));
    std::vector<Lldp::UnknownOrgDefTlv::Key> stale;
    for (auto it = entry->unknownOrgDefTlv().begin(); it; ++it) {
      if (!port.externalTlv.contains(it.key())) stale.push_back(it.key());
    }
    for (const auto& key : stale) entry->unknownOrgDefTlvDel(key);
    for (const auto& [key, bytes] : port.externalTlv) {
      entry->unknownOrgDefTlvIs(key, Lldp::UnknownOrgDefTlv{key, Lldp::BoundedString507(bytes)});
    }
  }
}

std::string adminStatusName(AdminStatus status) {
  switch (status) {
    case AdminStatus::txAndRx: return "tx-rx";
    case AdminStatus::txOnly: return "tx";
    case AdminStatus::rxOnly: return "rx";
    case AdminStatus::disabled: return "disabled";
  }
  return "disabled";
}

std::string ouiText(uint32_t oui) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02x-%02x-%02x", (oui >> 16) & 0xff, (oui >> 8) & 0xff, oui & 0xff);
  return buf;
}

}  // namespace Daemon
