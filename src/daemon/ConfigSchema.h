// The one table of configuration keys (file, socket and command line share it): types, ranges,
// documentation, validation, application to the agent's records and rendering as TOML.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/EthAddr.h"
#include "records/LldpRecords.h"

namespace Daemon {

// One port's settings as the operator wrote them (an `interface."NAME"` section).
struct PortSettings {
  Lldp::AdminStatus adminStatus = Lldp::AdminStatus::txAndRx;
  bool rxRateLimitingEnabled = false;
  uint64_t rxRateLimitMax = 100;
  double rxRateLimitPeriod = 1.0;
  std::map<uint8_t, Lldp::NetworkPolicyConfig> networkPolicy;
  // Organisationally specific TLVs this configuration sends on the port: key to information bytes.
  std::map<Lldp::UnknownOrgDefTlv::Key, std::string> externalTlv;
  bool operator==(const PortSettings&) const = default;
};

// Everything the configuration says. Defaults are those of the records.
struct Settings {
  bool enabled = true;
  uint32_t messageTxInterval = 30;
  uint32_t messageTxHoldTime = 120;
  uint32_t reinitDelay = 2;
  bool rxTaggedPacketsDrop = false;
  std::string mgmtAddrVrf = "default";
  Lldp::MgmtAddrTxMode mgmtAddrTxMode = Lldp::MgmtAddrTxMode::best;
  std::string mgmtAddrTxIntfName;  // with mode intfName
  std::string ip6MgmtAddrIntfName;
  bool portDescTlvEnabled = true;
  bool sysNameTlvEnabled = true;
  bool sysDescTlvEnabled = true;
  bool sysCapTlvEnabled = true;
  bool mgmtAddrTlvEnabled = true;
  bool portVlanIdTlvEnabled = true;
  bool linkAggregationTlvEnabled = true;
  bool maxFrameSizeTlvEnabled = true;
  bool powerViaMdiTlvEnabled = true;
  bool medNetworkPolicyTlvEnabled = true;
  bool lldpMed = true;  // sending and parsing of LLDP-MED TLVs; read at start-up

  // Host-side settings, handed to the Linux sources.
  std::vector<std::string> includeIntfs;  // empty: every Ethernet port
  std::vector<std::string> excludeIntfs;
  std::optional<Konet::EthAddr> chassisId;  // the MAC the chassis identifier is built from
  std::optional<std::string> sysName;
  std::optional<std::string> sysDesc;

  // The metrics endpoint and textfile; empty for none.
  std::string metricsListen;
  std::string metricsTextfile;
  uint32_t metricsTextfileInterval = 15;

  // The SNMP subagent (AgentX), and its lldpRemTablesChange notifications.
  bool snmpEnabled = false;
  std::string snmpAgentxSocket = "/var/agentx/master";
  bool snmpNotifications = false;
  uint32_t snmpNotificationInterval = 5;
  bool snmpFastWalks = true;

  std::map<std::string, PortSettings> ports;  // by interface name

  bool operator==(const Settings&) const = default;
};

// A value as it comes from a file, a socket request or a command line.
using ConfigValue = std::variant<bool, int64_t, double, std::string, std::vector<std::string>>;

enum class ConfigScope : uint8_t { global, port };
enum class ConfigType : uint8_t { boolean, integer, number, text, choice, textList };

struct ConfigKeyParams;  // values of the <...> segments of a parameterised key

struct ConfigKey {
  const char* key;   // dotted path; <app>, <oui>, <subtype>, <index> are parameters
  const char* attr;  // the record attribute it sets, "" when it is not one of the records'
  ConfigScope scope;
  ConfigType type;
  double min;  // integer and number: inclusive range; text: minimum bytes
  double max;  // integer and number: inclusive range; text and list items: maximum bytes
  const char* unit;
  std::vector<const char*> choices;  // choice: the accepted words
  const char* allowedText;  // overrides the generated description of what is allowed
  const char* doc;
  // Checks what the generic rules cannot and writes; returns an error text or "".
  std::string (*set)(Settings&, PortSettings*, const ConfigKeyParams&, const ConfigValue&);
  // The current value; nullopt when unset (optional settings).
  std::optional<ConfigValue> (*get)(const Settings&, const PortSettings*, const ConfigKeyParams&);
  void (*reset)(Settings&, PortSettings*, const ConfigKeyParams&);
};

struct ConfigKeyParams {
  uint8_t app = 0;
  uint32_t oui = 0;
  uint8_t subtype = 0;
  uint32_t index = 1;
};

// An error in one key, for a person: "transmit-interval: 3 is out of range (allowed: an integer
// 5-32768 (seconds))".
struct ConfigError {
  std::string key;  // as written, with the interface section for port keys
  std::string message;
  std::string text() const;
};

class ConfigSchema {
 public:
  static std::span<const ConfigKey> keys();

  // The key entry and its parameters for a dotted key (the file name or the record attribute).
  struct Match {
    const ConfigKey* key = nullptr;
    ConfigKeyParams params;
  };
  static std::optional<Match> find(ConfigScope scope, std::string_view key);

  // What a key accepts, for messages and documentation.
  static std::string allowed(const ConfigKey& key);

  // Turns command-line text into a value of the key's type.
  static std::optional<ConfigValue> valueFromText(const ConfigKey& key, std::string_view text);

  // Validates and writes one key; on error nothing is changed. intf is empty for global keys.
  // together checks the rules between keys too (a file checks them once it is read whole).
  static std::optional<ConfigError> set(Settings& settings, std::string_view intf, std::string_view key,
                                        const ConfigValue& value, bool together = true);
  static std::optional<ConfigError> setText(Settings& settings, std::string_view intf, std::string_view key,
                                            std::string_view text);
  // Puts one key back to its default. A port with no key left stays (its section exists);
  // an empty key removes the whole interface section; "network-policy.<app>" removes a policy.
  static std::optional<ConfigError> unset(Settings& settings, std::string_view intf, std::string_view key);

  // Rules between keys, which no key can check alone: the hold time may not be shorter than the
  // transmit interval (neighbours would forget this system between two LLDPDUs). changedKey
  // names the key just written, for the message; empty reports the hold time.
  static std::optional<ConfigError> checkTogether(const Settings& settings, std::string_view changedKey = {});

  // Whether a text is an acceptable Linux interface name.
  static bool validIntfName(std::string_view name);

  // The running configuration as a TOML document that loads back to the same settings.
  static std::string renderToml(const Settings& settings);
  // One value as TOML writes it.
  static std::string renderValue(const ConfigValue& value);
  // The documentation of every key, for the manual page and --help.
  static std::string renderDoc();
};

// Writes the settings into the records, each attribute through its setter: only what differs
// notifies, so the agent sees exactly the differences.
void applyCliConfig(const Settings& settings, Lldp::CliConfig& cliConfig);
// Brings the configuration's own external TLV client record in line with the settings.
void applyExternalTlvs(const Settings& settings, Lldp::ExternalTlvConfig& externalTlvConfig);

std::string adminStatusName(Lldp::AdminStatus status);
std::string ouiText(uint32_t oui);

}  // namespace Daemon
