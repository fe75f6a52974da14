#!/usr/bin/env bash
# Two engines in two network namespaces joined by a veth pair, for a while (default an hour):
# scripts/netns-soak.sh [seconds]. Needs root. Exits non-zero if a neighbour ever flapped.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-3600}
[ "$(id -u)" -eq 0 ] || { echo "netns-soak: needs root" >&2; exit 2; }
"$top/scripts/setup.sh"
"$top/scripts/build.sh" release >/dev/null
a=lldpsoak-a-$$ b=lldpsoak-b-$$
cleanup() { ip netns del "$a" 2>/dev/null || true; ip netns del "$b" 2>/dev/null || true; }
trap cleanup EXIT
ip netns add "$a"
ip netns add "$b"
ip link add lldpa netns "$a" address 02:00:00:00:0a:01 type veth peer name lldpb netns "$b" address 02:00:00:00:0b:01
ip -n "$a" link set lldpa up
ip -n "$b" link set lldpb up
echo "netns-soak: running ${seconds}s in $a and $b"
"$top/build/lldp-netns-soak" --ns-a "$a" --ns-b "$b" --seconds "$seconds"
