// Bash completion of `lldp`: commands at every level, interfaces from /sys/class/net, and the
// configuration keys with their values as `lldp configure` takes them.
#include "cli/Completion.h"

#include <string>

namespace Cli {

namespace {

constexpr const char* kBoolean = "true false";
constexpr const char* kInterfaces = "$intfs";

}  // namespace

const std::vector<KeyCompletion>& completionKeys() {
  // The agent checks every key; this list only has to offer the same names.
  static const std::vector<KeyCompletion> keys = {
      {"enabled", false, kBoolean},
      {"transmit-interval", false, ""},
      {"hold-time", false, ""},
      {"reinit-delay", false, ""},
      {"drop-tagged-frames", false, kBoolean},
      {"med", false, kBoolean},
      {"management-address.vrf", false, ""},
      {"management-address.transmit", false, "best all $intfs"},
      {"management-address.ipv6-interface", false, kInterfaces},
      {"tlv.port-description", false, kBoolean},
      {"tlv.system-name", false, kBoolean},
      {"tlv.system-description", false, kBoolean},
      {"tlv.system-capabilities", false, kBoolean},
      {"tlv.management-address", false, kBoolean},
      {"tlv.port-vlan", false, kBoolean},
      {"tlv.link-aggregation", false, kBoolean},
      {"tlv.max-frame-size", false, kBoolean},
      {"tlv.power-via-mdi", false, kBoolean},
      {"tlv.med-network-policy", false, kBoolean},
      {"system.chassis-id", false, ""},
      {"system.name", false, ""},
      {"system.description", false, ""},
      {"interfaces.include", false, ""},
      {"interfaces.exclude", false, ""},
      {"metrics.listen", false, ""},
      {"metrics.textfile", false, ""},
      {"metrics.textfile-interval", false, ""},
      {"snmp.enabled", false, kBoolean},
      {"snmp.agentx-socket", false, ""},
      {"snmp.notifications", false, kBoolean},
      {"snmp.notification-interval", false, ""},
      {"snmp.fast-walks", false, kBoolean},
      {"admin-status", true, "tx-rx tx rx disabled"},
      {"rx-rate-limit.enabled", true, kBoolean},
      {"rx-rate-limit.frames", true, ""},
      {"rx-rate-limit.period", true, ""},
      {"network-policy.<app>.vlan", true, ""},
      {"network-policy.<app>.priority", true, ""},
      {"network-policy.<app>.dscp", true, ""},
      {"network-policy.<app>.tagged", true, kBoolean},
      {"external-tlv.<oui>.<subtype>.<index>", true, ""},
  };
  return keys;
}

namespace {

// A key as it is typed: up to its first parameter ("network-policy."), the rest by hand.
std::string typedKey(const KeyCompletion& k) {
  const std::string key = k.key;
  const size_t parameter = key.find('<');
  return parameter == std::string::npos ? key : key.substr(0, parameter);
}

std::string keyWords(bool port) {
  std::string out;
  for (const auto& k : completionKeys()) {
    if (k.port != port) continue;
    const std::string word = typedKey(k);
    if (out.find(" " + word + " ") != std::string::npos || out.starts_with(word + " ")) continue;
    out += word + " ";
  }
  return out;
}

// Case clauses offering each key's values, after the key alone or after "interface IFACE KEY".
std::string valueClauses() {
  std::string out;
  for (const auto& k : completionKeys()) {
    if (!*k.values) continue;
    // Parameters match any text: "network-policy."*".tagged".
    std::string key;
    for (const char* c = k.key; *c; ++c) {
      if (*c != '<') {
        key += *c;
        continue;
      }
      key += "\"*\"";
      while (*c && *c != '>') ++c;
      if (!*c) break;
    }
    const std::string pattern = (k.port ? std::string("\"interface \"*\" ") : std::string("\"")) + key + "\"";
    out += "    " + pattern + ") echo \"" + k.values + "\" ;;\n";
  }
  return out;
}

}  // namespace

std::string bashCompletion() {
  return R"(# bash completion for lldp
# The values a key takes, for "KEY" or "interface IFACE KEY"; $intfs holds the interfaces.
_lldp_values() {
  case "$1" in
)" + valueClauses() + R"(  esac
}
_lldp() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
  local intfs words="" i
  intfs=$(ls /sys/class/net 2>/dev/null)
  if [[ $prev == --socket || $prev == -o || $prev == --output ]]; then
    COMPREPLY=($(compgen -f -- "$cur"))
    return
  fi
  if [[ $prev == --format ]]; then
    COMPREPLY=($(compgen -W "table json dot svg wiring" -- "$cur"))
    return
  fi
  if [[ $prev == --client || $prev == --prometheus || $prev == --selector ]]; then
    return
  fi
  # The words before this one, options left out: the command and its arguments.
  local -a given=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --socket|--client|--prometheus|--selector|--format|-o|--output) ((i++)) ;;
      -*) ;;
      *) given+=("${COMP_WORDS[i]}") ;;
    esac
  done
  local command="${given[*]}"
  case "$command" in
    "") words="show configure unconfigure config clear tlv watch decode topology completion --socket --json --version --help" ;;
    show) words="neighbors interfaces local statistics config classification status --help" ;;
    "show neighbors"*|"show neighbours"*) words="$intfs --json --detail --help" ;;
    "show interfaces"*|"show statistics"*) words="$intfs --json --help" ;;
    "show "*) words="--json --help" ;;
    configure|unconfigure) words="interface )" + keyWords(false) + R"(--json --help" ;;
    "configure interface"|"unconfigure interface") words="$intfs" ;;
    "unconfigure interface "*" "*) ;;
    "configure interface "*" "*) words=$(_lldp_values "${command#configure }") ;;
    "configure interface "*|"unconfigure interface "*) words=")" + keyWords(true) + R"(--json --help" ;;
    "configure "*) words=$(_lldp_values "${command#configure }") ;;
    "unconfigure "*) ;;
    config) words="save --help" ;;
    "config save") words="--json --help" ;;
    clear) words="neighbors --help" ;;
    "clear neighbors"|"clear neighbours") words="$intfs --json --help" ;;
    tlv) words="add del --help" ;;
    "tlv add") words="$intfs --client --json --help" ;;
    "tlv del") words="$intfs --client --json --help" ;;
    watch) words="--json --help" ;;
    completion) words="--help" ;;
    topology) words="check --prometheus --selector --socket --format --json --output --help" ;;
    "topology check"*) COMPREPLY=($(compgen -f -W "--prometheus --selector --socket --json --help" -- "$cur")); return ;;
    decode*) COMPREPLY=($(compgen -f -W "--hex --json --help" -- "$cur")); return ;;
  esac
  COMPREPLY=($(compgen -W "$words" -- "$cur"))
  # A key that takes parameters is typed on from its stem ("network-policy.").
  if [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *. ]]; then
    compopt -o nospace 2>/dev/null
  fi
}
complete -F _lldp lldp
)";
}

}  // namespace Cli
