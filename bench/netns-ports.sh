#!/usr/bin/env bash
# Creates veth ports in bulk in a fresh network namespace under a running agent on the Linux host
# sources, and prints how long until every port has an engine and the netlink CPU per message.
# Needs root. Usage: bench/netns-ports.sh [ports] [build dir]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
ports=${1:-1000}
build=${2:-$top/build}
if [[ $(id -u) -ne 0 ]]; then
  echo "netns-ports: needs root (network namespaces and raw sockets)" >&2
  exit 2
fi
if [[ ! -x $build/lldp-host-bench ]]; then
  cmake --build "$build" --target lldp-host-bench >/dev/null
fi
for run in 1 2 3; do
  echo "run $run:"
  "$build/lldp-host-bench" --ports "$ports"
done
