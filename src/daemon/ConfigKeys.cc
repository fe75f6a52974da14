// The configuration keys: one entry per key with its type, range, documentation and the
// functions that read, write and reset it in the settings.
#include "daemon/ConfigKeys.h"

#include <type_traits>

#include "metrics/ListenAddress.h"

namespace Daemon {
namespace {

using Lldp::AdminStatus;

const char* const kAdminStatusChoices[] = {"tx-rx", "tx", "rx", "disabled"};

// Generic writers for a member of the settings or of a port's settings: the value has passed
// the generic type and range checks, so it only needs converting.
template <class T>
void assignValue(T& member, const ConfigValue& value) {
  if constexpr (std::is_same_v<T, bool>) {
    member = std::get<bool>(value);
  } else if constexpr (std::is_integral_v<T>) {
    member = static_cast<T>(std::get<int64_t>(value));
  } else if constexpr (std::is_floating_point_v<T>) {
    member = std::holds_alternative<double>(value) ? std::get<double>(value)
                                                   : static_cast<double>(std::get<int64_t>(value));
  } else if constexpr (std::is_same_v<T, std::string>) {
    member = std::get<std::string>(value);
  } else {
    member = std::get<std::vector<std::string>>(value);
  }
}

template <class T>
ConfigValue valueOf(const T& member) {
  if constexpr (std::is_same_v<T, bool>) {
    return member;
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<int64_t>(member);
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<double>(member);
  } else {
    return member;
  }
}

template <auto Member>
std::string setGlobal(Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
  assignValue(s.*Member, v);
  return {};
}
template <auto Member>
std::optional<ConfigValue> getGlobal(const Settings& s, const PortSettings*, const ConfigKeyParams&) {
  return valueOf(s.*Member);
}
template <auto Member>
void resetGlobal(Settings& s, PortSettings*, const ConfigKeyParams&) {
  static const Settings defaults;
  s.*Member = defaults.*Member;
}

template <auto Member>
std::string setPort(Settings&, PortSettings* p, const ConfigKeyParams&, const ConfigValue& v) {
  assignValue(p->*Member, v);
  return {};
}
template <auto Member>
std::optional<ConfigValue> getPort(const Settings&, const PortSettings* p, const ConfigKeyParams&) {
  return valueOf(p->*Member);
}
template <auto Member>
void resetPort(Settings&, PortSettings* p, const ConfigKeyParams&) {
  static const PortSettings defaults;
  p->*Member = defaults.*Member;
}

template <auto Member>
std::string setOptional(Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
  s.*Member = std::get<std::string>(v);
  return {};
}
template <auto Member>
std::optional<ConfigValue> getOptional(const Settings& s, const PortSettings*, const ConfigKeyParams&) {
  if (!(s.*Member)) return std::nullopt;
  return ConfigValue(*(s.*Member));
}
template <auto Member>
void resetOptional(Settings& s, PortSettings*, const ConfigKeyParams&) {
  s.*Member = std::nullopt;
}

std::string setIntfOrEmpty(std::string& member, const ConfigValue& v) {
  const std::string& name = std::get<std::string>(v);
  if (!name.empty() && !ConfigSchema::validIntfName(name)) return "'" + name + "' is not an interface name";
  member = name;
  return {};
}

std::string setMgmtTransmit(Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
  const std::string& text = std::get<std::string>(v);
  if (text == "best" || text == "all") {
    s.mgmtAddrTxMode = text == "best" ? Lldp::MgmtAddrTxMode::best : Lldp::MgmtAddrTxMode::all;
    s.mgmtAddrTxIntfName.clear();
    return {};
  }
  if (!ConfigSchema::validIntfName(text)) return "'" + text + "' is neither best, all nor an interface name";
  s.mgmtAddrTxMode = Lldp::MgmtAddrTxMode::intfName;
  s.mgmtAddrTxIntfName = text;
  return {};
}
std::optional<ConfigValue> getMgmtTransmit(const Settings& s, const PortSettings*, const ConfigKeyParams&) {
  switch (s.mgmtAddrTxMode) {
    case Lldp::MgmtAddrTxMode::best: return ConfigValue(std::string("best"));
    case Lldp::MgmtAddrTxMode::all: return ConfigValue(std::string("all"));
    case Lldp::MgmtAddrTxMode::intfName: return ConfigValue(s.mgmtAddrTxIntfName);
  }
  return std::nullopt;
}
void resetMgmtTransmit(Settings& s, PortSettings*, const ConfigKeyParams&) {
  s.mgmtAddrTxMode = Lldp::MgmtAddrTxMode::best;
  s.mgmtAddrTxIntfName.clear();
}

std::string setChassisId(Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
  const auto mac = Konet::EthAddr::parse(std::get<std::string>(v));
  if (!mac) return "'" + std::get<std::string>(v) + "' is not a MAC address";
  if (mac->isZero() || mac->isMulticast()) return "'" + std::get<std::string>(v) + "' is not a unicast MAC address";
  s.chassisId = *mac;
  return {};
}
std::optional<ConfigValue> getChassisId(const Settings& s, const PortSettings*, const ConfigKeyParams&) {
  if (!s.chassisId) return std::nullopt;
  return ConfigValue(s.chassisId->toString(':'));
}

std::string setPatterns(std::vector<std::string>& member, const ConfigValue& v) {
  const auto& list = std::get<std::vector<std::string>>(v);
  for (const std::string& pattern : list) {
    const std::string_view body = std::string_view(pattern).substr(pattern.starts_with('!') ? 1 : 0);
    if (body.empty()) return "'" + pattern + "' is an empty pattern";
    for (char c : body) {
      if (static_cast<unsigned char>(c) <= ' ' || c == '/') return "'" + pattern + "' contains a space or '/'";
    }
  }
  member = list;
  return {};
}

std::string setAdminStatus(Settings&, PortSettings* p, const ConfigKeyParams&, const ConfigValue& v) {
  const std::string& text = std::get<std::string>(v);
  for (size_t i = 0; i < std::size(kAdminStatusChoices); ++i) {
    if (text == kAdminStatusChoices[i]) {
      static constexpr AdminStatus kValues[] = {AdminStatus::txAndRx, AdminStatus::txOnly, AdminStatus::rxOnly,
                                                AdminStatus::disabled};
      p->adminStatus = kValues[i];
    }
  }
  return {};
}
std::optional<ConfigValue> getAdminStatus(const Settings&, const PortSettings* p, const ConfigKeyParams&) {
  return ConfigValue(adminStatusName(p->adminStatus));
}

// Network policy fields: writing any field creates the policy with the others at their defaults.
template <auto Field>
std::string setPolicy(Settings&, PortSettings* p, const ConfigKeyParams& params, const ConfigValue& v) {
  assignValue(p->networkPolicy[params.app].*Field, v);
  return {};
}
template <auto Field>
std::optional<ConfigValue> getPolicy(const Settings&, const PortSettings* p, const ConfigKeyParams& params) {
  auto it = p->networkPolicy.find(params.app);
  if (it == p->networkPolicy.end()) return std::nullopt;
  return valueOf(it->second.*Field);
}
template <auto Field>
void resetPolicy(Settings&, PortSettings* p, const ConfigKeyParams& params) {
  auto it = p->networkPolicy.find(params.app);
  if (it == p->networkPolicy.end()) return;
  it->second.*Field = Lldp::NetworkPolicyConfig{}.*Field;
}

Lldp::UnknownOrgDefTlv::Key tlvKey(const ConfigKeyParams& params) {
  return Lldp::UnknownOrgDefTlv::Key(Lldp::Oui(params.oui), params.subtype, params.index);
}
}  // namespace

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
namespace {

std::string setExternalTlv(Settings&, PortSettings* p, const ConfigKeyParams& params, const ConfigValue& v) {
  std::string hex;
  for (char c : std::get<std::string>(v)) {
    if (c == ':' || c == ' ' || c == '-') continue;
    if (hexDigit(c) < 0) return "'" + std::get<std::string>(v) + "' is not hexadecimal bytes";
    hex += c;
  }
  if (hex.size() % 2) return "an odd number of hexadecimal digits";
  if (hex.size() / 2 > 507) return std::to_string(hex.size() / 2) + " bytes is more than 507";
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += 2) bytes += static_cast<char>(hexDigit(hex[i]) * 16 + hexDigit(hex[i + 1]));
  p->externalTlv[tlvKey(params)] = bytes;
  return {};
}
}  // namespace

std::optional<ConfigValue> getExternalTlv(const Settings&, const PortSettings* p, const ConfigKeyParams& params) {
  auto it = p->externalTlv.find(tlvKey(params));
  if (it == p->externalTlv.end()) return std::nullopt;
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned char c : it->second) {
    hex += kDigits[c >> 4];
    hex += kDigits[c & 15];
  }
  return ConfigValue(hex);
}
namespace {

void resetExternalTlv(Settings&, PortSettings* p, const ConfigKeyParams& params) {
  p->externalTlv.erase(tlvKey(params));
}

using G = ConfigScope;
using T = ConfigType;

std::string setMetricsListen(Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
  const std::string& text = std::get<std::string>(v);
  std::string why;
  if (!text.empty() && !Metrics::listenAddressOf(text, why)) return why;
  s.metricsListen = text;
  return {};
}

std::string setMetricsTextfile(Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
  const std::string& path = std::get<std::string>(v);
  if (!path.empty() && path.front() != '/') return "'" + path + "' is not an absolute path";
  s.metricsTextfile = path;
  return {};
}

#define LLDP_BOOL_TLV(key, member, what)                                                            \
  ConfigKey{key, #member, G::global, T::boolean, 0, 0, "", {}, nullptr,                               \
            "Send the " what " TLV.", setGlobal<&Settings::member>, getGlobal<&Settings::member>, \
            resetGlobal<&Settings::member>}

}  // namespace

const std::vector<ConfigKey>& configKeyTable() {
  static const std::vector<ConfigKey> keys = {
      {"enabled", "enabled", G::global, T::boolean, 0, 0, "", {}, nullptr,
       "LLDP on or off for the whole system; off disables every port.", setGlobal<&Settings::enabled>,
       getGlobal<&Settings::enabled>, resetGlobal<&Settings::enabled>},
      {"transmit-interval", "messageTxInterval", G::global, T::integer, 5, 32768, "seconds", {}, nullptr,
       "Seconds between two periodic LLDPDUs on a port.", setGlobal<&Settings::messageTxInterval>,
       getGlobal<&Settings::messageTxInterval>, resetGlobal<&Settings::messageTxInterval>},
      {"hold-time", "messageTxHoldTime", G::global, T::integer, 10, 65535, "seconds", {}, nullptr,
       "Time to live sent in every LLDPDU: how long neighbours keep this system.",
       setGlobal<&Settings::messageTxHoldTime>, getGlobal<&Settings::messageTxHoldTime>,
       resetGlobal<&Settings::messageTxHoldTime>},
      {"reinit-delay", "reinitDelay", G::global, T::integer, 1, 10, "seconds", {}, nullptr,
       "Seconds a port waits after LLDP was disabled on it before it starts again.",
       setGlobal<&Settings::reinitDelay>, getGlobal<&Settings::reinitDelay>, resetGlobal<&Settings::reinitDelay>},
      {"drop-tagged-frames", "rxTaggedPacketsDrop", G::global, T::boolean, 0, 0, "", {}, nullptr,
       "Drop received LLDPDUs that carry a VLAN tag.", setGlobal<&Settings::rxTaggedPacketsDrop>,
       getGlobal<&Settings::rxTaggedPacketsDrop>, resetGlobal<&Settings::rxTaggedPacketsDrop>},
      {"med", "", G::global, T::boolean, 0, 0, "", {}, nullptr,
       "Send and parse LLDP-MED TLVs. Read at start-up: a change takes effect at the next start.",
       setGlobal<&Settings::lldpMed>, getGlobal<&Settings::lldpMed>, resetGlobal<&Settings::lldpMed>},
      {"management-address.vrf", "mgmtAddrVrf", G::global, T::text, 1, 100, "", {}, nullptr,
       "VRF whose interface addresses are advertised as management addresses.",
       setGlobal<&Settings::mgmtAddrVrf>, getGlobal<&Settings::mgmtAddrVrf>, resetGlobal<&Settings::mgmtAddrVrf>},
      {"management-address.transmit", "mgmtAddrTxOption", G::global, T::text, 1, 15, "", {},
       "best, all, or an interface name",
       "Which management addresses to send: the best one, all of them, or the address of one interface.",
       setMgmtTransmit, getMgmtTransmit, resetMgmtTransmit},
      {"management-address.ipv6-interface", "ip6MgmtAddrIntfName", G::global, T::text, 0, 15, "", {},
       "an interface name, or empty for none",
       "Interface whose IPv6 address is sent in addition to the management addresses.",
       [](Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
         return setIntfOrEmpty(s.ip6MgmtAddrIntfName, v);
       },
       getGlobal<&Settings::ip6MgmtAddrIntfName>, resetGlobal<&Settings::ip6MgmtAddrIntfName>},
      LLDP_BOOL_TLV("tlv.port-description", portDescTlvEnabled, "Port Description"),
      LLDP_BOOL_TLV("tlv.system-name", sysNameTlvEnabled, "System Name"),
      LLDP_BOOL_TLV("tlv.system-description", sysDescTlvEnabled, "System Description"),
      LLDP_BOOL_TLV("tlv.system-capabilities", sysCapTlvEnabled, "System Capabilities"),
      LLDP_BOOL_TLV("tlv.management-address", mgmtAddrTlvEnabled, "Management Address"),
      LLDP_BOOL_TLV("tlv.port-vlan", portVlanIdTlvEnabled, "IEEE 802.1 Port VLAN ID"),
      LLDP_BOOL_TLV("tlv.link-aggregation", linkAggregationTlvEnabled, "IEEE 802.3 Link Aggregation"),
      LLDP_BOOL_TLV("tlv.max-frame-size", maxFrameSizeTlvEnabled, "IEEE 802.3 Maximum Frame Size"),
      LLDP_BOOL_TLV("tlv.power-via-mdi", powerViaMdiTlvEnabled, "IEEE 802.3 Power Via MDI"),
      LLDP_BOOL_TLV("tlv.med-network-policy", medNetworkPolicyTlvEnabled, "LLDP-MED Network Policy"),
      {"system.chassis-id", "", G::global, T::text, 1, 32, "", {}, "a unicast MAC address such as 02:00:00:00:00:01",
       "MAC address the chassis identifier is built from, instead of the one found on the host.", setChassisId,
       getChassisId, resetOptional<&Settings::chassisId>},
      {"system.name", "", G::global, T::text, 1, 255, "", {}, nullptr,
       "System name to send instead of the host name.", setOptional<&Settings::sysName>,
       getOptional<&Settings::sysName>, resetOptional<&Settings::sysName>},
      {"system.description", "", G::global, T::text, 1, 255, "", {}, nullptr,
       "System description to send instead of the operating system and kernel.",
       setOptional<&Settings::sysDesc>, getOptional<&Settings::sysDesc>, resetOptional<&Settings::sysDesc>},
      {"interfaces.include", "", G::global, T::textList, 1, 64, "", {},
       "a list of shell patterns (a leading ! negates)",
       "Ethernet interfaces that run LLDP; empty for all. Later patterns win.",
       [](Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
         return setPatterns(s.includeIntfs, v);
       },
       getGlobal<&Settings::includeIntfs>, resetGlobal<&Settings::includeIntfs>},
      {"interfaces.exclude", "", G::global, T::textList, 1, 64, "", {},
       "a list of shell patterns (a leading ! negates)", "Ethernet interfaces that never run LLDP.",
       [](Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) {
         return setPatterns(s.excludeIntfs, v);
       },
       getGlobal<&Settings::excludeIntfs>, resetGlobal<&Settings::excludeIntfs>},
      {"metrics.listen", "", G::global, T::text, 0, 64, "", {}, "an address and port such as 127.0.0.1:9808, [::]:9808 or 9808, or empty for none",
       "Where Prometheus scrapes the agent's metrics (http://ADDRESS:PORT/metrics); an address alone listens on "
       "port 9808, a port alone on every address.",
       setMetricsListen, getGlobal<&Settings::metricsListen>, resetGlobal<&Settings::metricsListen>},
      {"metrics.textfile", "", G::global, T::text, 0, 4096, "", {}, "an absolute path, or empty for none",
       "File the metrics are also written to, atomically, for node_exporter's textfile collector (name it "
       "*.prom in the collector's directory).",
       setMetricsTextfile, getGlobal<&Settings::metricsTextfile>, resetGlobal<&Settings::metricsTextfile>},
      {"metrics.textfile-interval", "", G::global, T::integer, 1, 3600, "seconds", {}, nullptr,
       "Seconds between two writes of the metrics file.", setGlobal<&Settings::metricsTextfileInterval>,
       getGlobal<&Settings::metricsTextfileInterval>, resetGlobal<&Settings::metricsTextfileInterval>},

      {"snmp.enabled", "", G::global, T::boolean, 0, 0, "", {}, nullptr,
       "Serve the LLDP MIB modules through the host's SNMP agent (AgentX subagent).",
       setGlobal<&Settings::snmpEnabled>, getGlobal<&Settings::snmpEnabled>, resetGlobal<&Settings::snmpEnabled>},
      {"snmp.agentx-socket", "", G::global, T::text, 2, 107, "", {}, "an absolute path of at most 107 bytes",
       "The SNMP master agent's AgentX socket.",
       [](Settings& s, PortSettings*, const ConfigKeyParams&, const ConfigValue& v) -> std::string {
         const std::string& path = std::get<std::string>(v);
         if (path.front() != '/') return "'" + path + "' is not an absolute path";
         s.snmpAgentxSocket = path;
         return {};
       },
       getGlobal<&Settings::snmpAgentxSocket>, resetGlobal<&Settings::snmpAgentxSocket>},
      {"snmp.notifications", "", G::global, T::boolean, 0, 0, "", {}, nullptr,
       "Send lldpRemTablesChange notifications through the SNMP agent when neighbors change.",
       setGlobal<&Settings::snmpNotifications>, getGlobal<&Settings::snmpNotifications>,
       resetGlobal<&Settings::snmpNotifications>},
      {"snmp.notification-interval", "", G::global, T::integer, 5, 3600, "seconds", {}, nullptr,
       "At most one lldpRemTablesChange notification per interval (lldpNotificationInterval).",
       setGlobal<&Settings::snmpNotificationInterval>, getGlobal<&Settings::snmpNotificationInterval>,
       resetGlobal<&Settings::snmpNotificationInterval>},
      {"snmp.fast-walks", "", G::global, T::boolean, 0, 0, "", {}, nullptr,
       "While the SNMP agent walks the LLDP MIB, keep idle CPUs from sleeping (the kernel's CPU latency "
       "request, withdrawn 20 ms after the walk): the SNMP agent asks for one object at a time, and each "
       "answer would otherwise wait for a CPU to wake.",
       setGlobal<&Settings::snmpFastWalks>, getGlobal<&Settings::snmpFastWalks>,
       resetGlobal<&Settings::snmpFastWalks>},
      {"admin-status", "adminStatus", G::port, T::choice, 0, 0, "",
       {"tx-rx", "tx", "rx", "disabled"}, nullptr,
       "What the port does: transmit and receive, transmit only, receive only, or nothing.", setAdminStatus,
       getAdminStatus, resetPort<&PortSettings::adminStatus>},
      {"rx-rate-limit.enabled", "rxRateLimitingEnabled", G::port, T::boolean, 0, 0, "", {}, nullptr,
       "Limit the LLDPDUs accepted on the port.", setPort<&PortSettings::rxRateLimitingEnabled>,
       getPort<&PortSettings::rxRateLimitingEnabled>, resetPort<&PortSettings::rxRateLimitingEnabled>},
      {"rx-rate-limit.frames", "rxRateLimitMax", G::port, T::integer, 1, 100000, "LLDPDUs", {}, nullptr,
       "LLDPDUs accepted per period when the limit is enabled.", setPort<&PortSettings::rxRateLimitMax>,
       getPort<&PortSettings::rxRateLimitMax>, resetPort<&PortSettings::rxRateLimitMax>},
      {"rx-rate-limit.period", "rxRateLimitPeriod", G::port, T::number, 0.1, 3600, "seconds", {}, nullptr,
       "Length of the rate-limit period.", setPort<&PortSettings::rxRateLimitPeriod>,
       getPort<&PortSettings::rxRateLimitPeriod>, resetPort<&PortSettings::rxRateLimitPeriod>},
      {"network-policy.<app>.vlan", "", G::port, T::integer, 0, 4094, "", {}, nullptr,
       "LLDP-MED network policy of application <app> (0: every application without its own): VLAN, 0 for "
       "the native VLAN.",
       setPolicy<&Lldp::NetworkPolicyConfig::vlanId>, getPolicy<&Lldp::NetworkPolicyConfig::vlanId>,
       resetPolicy<&Lldp::NetworkPolicyConfig::vlanId>},
      {"network-policy.<app>.priority", "", G::port, T::integer, 0, 7, "", {}, nullptr,
       "Layer 2 priority of application <app>.", setPolicy<&Lldp::NetworkPolicyConfig::l2Priority>,
       getPolicy<&Lldp::NetworkPolicyConfig::l2Priority>, resetPolicy<&Lldp::NetworkPolicyConfig::l2Priority>},
      {"network-policy.<app>.dscp", "", G::port, T::integer, 0, 63, "", {}, nullptr,
       "DSCP value of application <app>.", setPolicy<&Lldp::NetworkPolicyConfig::dscp>,
       getPolicy<&Lldp::NetworkPolicyConfig::dscp>, resetPolicy<&Lldp::NetworkPolicyConfig::dscp>},
      {"network-policy.<app>.tagged", "", G::port, T::boolean, 0, 0, "", {}, nullptr,
       "Whether application <app> uses tagged frames.", setPolicy<&Lldp::NetworkPolicyConfig::tagged>,
       getPolicy<&Lldp::NetworkPolicyConfig::tagged>, resetPolicy<&Lldp::NetworkPolicyConfig::tagged>},
      {"external-tlv.<oui>.<subtype>.<index>", "", G::port, T::text, 0, 1521, "", {},
       "hexadecimal bytes, at most 507",
       "An organisationally specific TLV to send: OUI (as 00-12-34), subtype 0-255, index 1-65535 (several "
       "TLVs with one OUI and subtype), and its information bytes.",
       setExternalTlv, getExternalTlv, resetExternalTlv},
  };
  return keys;
}


}  // namespace Daemon
