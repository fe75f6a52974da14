#!/usr/bin/env bash
# Creates veth ports in bulk in a fresh network namespace under a running agent on the Linux host
# sources and prints, for each port count (default 1,000 and 4,096), three runs of: time until
# every port has an engine, netlink CPU per message, receive ring memory, descriptors and
# resident memory. Needs root. Usage: bench/netns-ports.sh [ports ...]   (LLDP_BUILD: build dir)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${LLDP_BUILD:-$top/build}
counts=("$@")
[[ ${#counts[@]} -gt 0 ]] || counts=(1000 4096)
if [[ $(id -u) -ne 0 ]]; then
  echo "netns-ports: needs root (network namespaces and raw sockets)" >&2
  exit 2
fi
if [[ ! -x $build/lldp-host-bench ]]; then
  cmake --build "$build" --target lldp-host-bench >/dev/null
fi
echo "load: $(uptime)"
for ports in "${counts[@]}"; do
  limit=$(( ports / 100 + 30 ))
  for run in 1 2 3; do
    echo "== $ports ports, run $run:"
    "$build/lldp-host-bench" --ports "$ports" --limit "$limit"
  done
done
echo "load: $(uptime)"
