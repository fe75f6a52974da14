#!/usr/bin/env bash
# Socket figures: `lldp show neighbors` (JSON and text) against 10,000 neighbours, the delay from
# a received frame to a subscriber's event, and resident memory with 1,000 ports of 8 neighbours.
# Usage: bench/socket-bench.sh [build-dir]   (needs the lldp and lldp-ipc-bench targets built)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$top/build}
bench=$build/lldp-ipc-bench
lldp=$build/lldp
work=$(mktemp -d)
server=
cleanup() {
  if [[ -n $server ]]; then kill "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

# Starts a server and waits for its socket; sets $server.
serve() {
  "$bench" serve "$work/lldp.sock" "$1" "$2" >"$work/serve.out" &
  server=$!
  for _ in $(seq 200); do [[ -S $work/lldp.sock ]] && return 0; sleep 0.05; done
  echo "server did not start" >&2
  exit 1
}
stop() { kill "$server"; wait "$server" 2>/dev/null || true; server=; rm -f "$work/lldp.sock"; }

# Wall time of a command in milliseconds: the best and the median of 7 runs.
timed() {
  local runs=()
  for _ in $(seq 7); do
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null
    end=$(date +%s%N)
    runs+=($(((end - start) / 1000000)))
  done
  local sorted
  sorted=($(printf '%s\n' "${runs[@]}" | sort -n))
  echo "best ${sorted[0]} ms, median ${sorted[3]} ms"
}

serve 100 100
echo "$(cat "$work/serve.out")"
echo "lldp show neighbors --json (10,000 neighbours): $(timed "$lldp" --socket "$work/lldp.sock" show neighbors --json)"
echo "lldp show neighbors (text, 10,000 neighbours):  $(timed "$lldp" --socket "$work/lldp.sock" show neighbors)"
echo "JSON size: $("$lldp" --socket "$work/lldp.sock" show neighbors --json | wc -c) bytes"
stop

"$bench" latency 2000

serve 1000 8
echo "1,000 ports with 8 neighbours each: $(cat "$work/serve.out")"
echo "resident memory of the serving process now: $(awk '/VmRSS/ {print $2, $3}' /proc/$server/status)"
stop
