#!/usr/bin/env bash
# SNMP figures: a bulk walk of the LLDP remote tables with 10,000 neighbours through Debian's
# snmpd (started here on a private AgentX socket and a free loopback port), the state socket's
# reply times throughout, and the agent's CPU while it is walked every 10 s.
# Usage: bench/snmp-bench.sh [build-dir] [max-repetitions] [slow]   (needs lldp-snmp-bench built;
# slow: without prompt CPU wake-ups during walks, as with snmp.fast-walks = false). Run it as root,
# as the service runs: the prompt wake-ups need /dev/cpu_dma_latency (the first line says whether
# they are on).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$top/build}
reps=${2:-50}
mode=${3:-}
bench=$build/lldp-snmp-bench
work=$(mktemp -d)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; wait "$p" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
export MIBS=

port=$(python3 -c 'import socket; s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$work/snmpd.conf" <<CONF
master agentx
agentXSocket $work/agentx.sock
agentaddress udp:127.0.0.1:$port
rocommunity public 127.0.0.1
CONF
mkdir "$work/persist"
# snmpd and the agent each in a session of their own, as two services are: in one session (one
# scheduler autogroup) with this script, two processes that wake each other for every object
# walked are scheduled some four times slower.
setsid snmpd -f -Lo -C -c "$work/snmpd.conf" -p "$work/snmpd.pid" --persistentDir="$work/persist" >"$work/snmpd.log" 2>&1 &
pids+=($!)
setsid "$bench" serve "$work/lldp.sock" "$work/agentx.sock" 100 100 $mode >"$work/serve.out" &
agent=$!
pids+=($agent)

walk() { snmpbulkwalk -v2c -c public -On -Cr"$reps" -t 10 "127.0.0.1:$port" "$@"; }
for _ in $(seq 100); do
  [[ $(snmpget -v2c -c public -Oqv "127.0.0.1:$port" 1.0.8802.1.1.2.1.2.2.0 2>/dev/null) == 10000 ]] && break
  sleep 0.2
done
cpu() { awk '{print $14 + $15}' "/proc/$agent/stat"; }
ticks=$(getconf CLK_TCK)
echo "load before: $(uptime)"
cat "$work/serve.out"

# The first walk after start (caches and the scheduler's placement of two processes that wake
# each other some 200,000 times are cold), then a walk of the remote tables (LLDP-MIB's and the
# extensions'), timed, with the state socket greeted every 50 ms meanwhile.
start=$(date +%s%N)
rows=$(walk 1.0.8802.1.1.2.1.4 | wc -l)
end=$(date +%s%N)
echo "first bulk walk after start: $rows objects in $(((end - start) / 1000000)) ms"
setsid "$bench" probe "$work/lldp.sock" 4 >"$work/probe.out" &
probe=$!
sleep 0.5
c0=$(cpu)
start=$(date +%s%N)
rows=$(walk 1.0.8802.1.1.2.1.4 | wc -l)
end=$(date +%s%N)
c1=$(cpu)
wait "$probe"
echo "bulk walk of 1.0.8802.1.1.2.1.4 (max-repetitions $reps): $rows objects in $(((end - start) / 1000000)) ms;" \
     "agent CPU $(((c1 - c0) * 1000 / ticks)) ms"
echo "during it, $(cat "$work/probe.out")"
start=$(date +%s%N)
rows=$(walk 1.0.8802.1.1.2.1.4.1 | wc -l)
end=$(date +%s%N)
echo "bulk walk of lldpRemTable alone: $rows objects in $(((end - start) / 1000000)) ms"

# Walked every 10 s for a minute: the agent's share of one core, and the state socket meanwhile.
setsid "$bench" probe "$work/lldp.sock" 60 >"$work/probe.out" &
probe=$!
c0=$(cpu)
walkers=()
for _ in $(seq 6); do
  walk 1.0.8802.1.1.2.1.4 >/dev/null &
  walkers+=($!)
  sleep 10
done
wait "${walkers[@]}"
c1=$(cpu)
wait "$probe"
echo "walked every 10 s for 60 s: agent CPU $(((c1 - c0) * 1000 / ticks)) ms in 60 s" \
     "($(awk -v c=$((c1 - c0)) -v t="$ticks" 'BEGIN {printf "%.2f", 100 * c / t / 60}') % of a core)"
echo "meanwhile, $(cat "$work/probe.out")"
echo "load after: $(uptime)"
