// Bash completion of `lldp`: commands by position, interfaces from /sys/class/net.
#include "cli/Completion.h"

namespace Cli {

std::string bashCompletion() {
  return R"(# bash completion for lldp
_lldp() {
  local cur=${COMP_WORDS[COMP_CWORD]}
  local words="${COMP_WORDS[*]:1:COMP_CWORD-1}"
  local intfs
  intfs=$(ls /sys/class/net 2>/dev/null)
  case "$words" in
    "") COMPREPLY=($(compgen -W "show configure unconfigure config clear tlv watch decode completion --socket --help" -- "$cur")) ;;
    show) COMPREPLY=($(compgen -W "neighbors interfaces local statistics config classification status" -- "$cur")) ;;
    "show neighbors"*|"show interfaces"*|"show statistics"*) COMPREPLY=($(compgen -W "$intfs --json --detail" -- "$cur")) ;;
    show\ *) COMPREPLY=($(compgen -W "--json" -- "$cur")) ;;
    configure|unconfigure) COMPREPLY=($(compgen -W "interface enabled messageTxInterval messageTxHoldTime reinitDelay" -- "$cur")) ;;
    "configure interface"|"unconfigure interface") COMPREPLY=($(compgen -W "$intfs" -- "$cur")) ;;
    config) COMPREPLY=($(compgen -W "save" -- "$cur")) ;;
    clear) COMPREPLY=($(compgen -W "neighbors" -- "$cur")) ;;
    tlv) COMPREPLY=($(compgen -W "add del" -- "$cur")) ;;
    "tlv add") COMPREPLY=($(compgen -W "$intfs --client" -- "$cur")) ;;
    watch) COMPREPLY=($(compgen -W "--json" -- "$cur")) ;;
    decode*) COMPREPLY=($(compgen -f -W "--hex --json" -- "$cur")) ;;
  esac
}
complete -F _lldp lldp
)";
}

}  // namespace Cli
