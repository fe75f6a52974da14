#!/usr/bin/env bash
# Resident memory of a real lldp-agent with many ports: PAIRS veth pairs in one network namespace,
# both ends LLDP ports, so that every port has one neighbour (its partner). Prints the time until
# every port has its neighbour and the daemon's resident memory then.
# Usage: sudo bench/daemon-memory.sh [PAIRS] (default 500, that is 1,000 ports).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
pairs=${1:-500}
agent=${LLDP_AGENT:-$top/build/lldp-agent}
ns=lldpbench-mem
work=$(mktemp -d /tmp/lldp-bench-mem.XXXXXX)
pid=
cleanup() {
  [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true
  ip netns del "$ns" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

ip netns del "$ns" 2>/dev/null || true
ip netns add "$ns"
batch="$work/links"
for i in $(seq "$pairs"); do
  echo "link add ma$i type veth peer name mb$i"
done >"$batch"
ip -n "$ns" -batch "$batch"
for i in $(seq "$pairs"); do
  echo "link set ma$i up"
  echo "link set mb$i up"
done >"$batch"
ip -n "$ns" -batch "$batch"

printf 'transmit-interval = 5\n' >"$work/bench.toml"
start=$(date +%s.%N)
ip netns exec "$ns" "$agent" --config "$work/bench.toml" --log stderr 2>"$work/agent.log" &
pid=$!
ports=$((pairs * 2))
for _ in $(seq 1200); do
  [ "$(grep -c LLDP_NEIGHBOR_NEW "$work/agent.log" || true)" -ge "$ports" ] && break
  sleep 0.1
done
learnt=$(grep -c LLDP_NEIGHBOR_NEW "$work/agent.log" || true)
elapsed=$(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN {print b - a}')
rss=$(awk '/VmRSS/ {print $2}' "/proc/$pid/status")
printf 'ports %d, neighbours %d, all learnt after %.1f s, resident memory %d KiB (%.1f KiB per port)\n' \
  "$ports" "$learnt" "$elapsed" "$rss" "$(awk -v r="$rss" -v p="$ports" 'BEGIN {print r / p}')"
