#!/usr/bin/env bash
# Receive under a flood, in one run on veth pairs between two network namespaces:
#  1. the least a receiver can do (bench/ring-reader.c: counts frames from the same ring);
#  2. the real lldp-agent, FRAMES LLDPDUs of 112 bytes at the highest rate one sender reaches,
#     first from one MSAP as soon as the freshly started agent has its ports (no warm-up: every
#     frame sent counts), then cycling over 32: CPU per received LLDPDU and the share received
#     (kernel drops included), from the agent's own counters;
#  3. fairness: a sustained flood on one port (rate limit off, then on) while a second port has
#     a neighbour with a short TTL: does it flap, how late are the agent's LLDPDUs on that port,
#     how long does `lldp show neighbors` take.
# Usage: sudo bench/rx-flood.sh [FRAMES] [FLOOD_SECONDS] (defaults 200000 and 16); the network
# namespaces are named after RXFLOOD_NETNS (default rxflood), so that runs side by side differ.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
frames=${1:-200000}
floodSeconds=${2:-16}
agent=${LLDP_AGENT:-$top/build/lldp-agent}
cli=${LLDP_CLI:-$top/build/lldp}
nsd=${RXFLOOD_NETNS:-rxflood}-agent
nss=${RXFLOOD_NETNS:-rxflood}-sender
work=$(mktemp -d /tmp/rx-flood.XXXXXX)
pid=
cleanup() {
  [ -n "$pid" ] && kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true
  ip netns del "$nsd" 2>/dev/null || true
  ip netns del "$nss" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
[ "$(id -u)" = 0 ] || { echo "rx-flood.sh: needs root (network namespaces, raw sockets)" >&2; exit 2; }

if [ -z "${LLDP_AGENT:-}" ] && [ -d "$top/build" ]; then
  cmake --build "$top/build" --target lldp-agent lldp >/dev/null
fi
cc -O2 -Wall -o "$work/rx-sender" "$top/bench/rx-sender.c"
cc -O2 -Wall -o "$work/ring-reader" "$top/bench/ring-reader.c"

ip netns del "$nsd" 2>/dev/null || true
ip netns del "$nss" 2>/dev/null || true
ip netns add "$nsd"
ip netns add "$nss"
for i in 0 1; do
  ip link add "rxd$i" netns "$nsd" type veth peer name "rxs$i" netns "$nss"
  ip -n "$nsd" link set "rxd$i" up
  ip -n "$nss" link set "rxs$i" up
done
sleep 0.5

hz=$(getconf CLK_TCK)
# CPU of a process in seconds: from /proc/PID/stat (utime + stime, in clock ticks) and, finer,
# the nanoseconds on CPU of all its threads from schedstat.
cpuTicks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
cpuNs() { cat /proc/"$1"/task/*/schedstat | awk '{s += $1} END {print s}'; }
send() { ip netns exec "$nss" "$work/rx-sender" "$@"; }
# Frames the veth pair itself dropped (its receive backlog overflowed) before any socket saw them.
vethDrops() {
  echo $(($(ip netns exec "$nsd" cat /sys/class/net/rxd0/statistics/rx_dropped) +
          $(ip netns exec "$nss" cat /sys/class/net/rxs0/statistics/tx_dropped)))
}

# A ring of 4 blocks of 16 KiB, the least an agent's port has, and one of 256 blocks, what each
# port of an agent with up to 16 ports has: the larger is the machine's limit.
declare -A readerUs readerShare
for geometry in "16384 4" "16384 256"; do
  read -r blockBytes blocks <<<"$geometry"
  echo "== the least a receiver can do: ring reader on rxd0, $blocks blocks of $((blockBytes / 1024)) KiB =="
  for msaps in 1 32; do
    ip netns exec "$nsd" "$work/ring-reader" rxd0 ring "$blockBytes" "$blocks" >"$work/reader.out" &
    rpid=$!
    for _ in $(seq 50); do grep -q ready "$work/reader.out" && break; sleep 0.05; done
    t0=$(cpuTicks $rpid); n0=$(cpuNs $rpid); v0=$(vethDrops)
    out=$(send flood rxs0 "$frames" "$msaps")
    sleep 0.3
    t1=$(cpuTicks $rpid); n1=$(cpuNs $rpid); v1=$(vethDrops)
    kill -TERM $rpid; wait $rpid || true
    read -r _ got _ drops < <(grep '^frames' "$work/reader.out")
    read -r _ sent _ secs _ rate <<<"$out"
    us=$(awk -v a="$n0" -v b="$n1" -v n="$got" 'BEGIN {printf "%.3f", (n ? (b - a) / 1000 / n : 0)}')
    usTicks=$(awk -v a="$t0" -v b="$t1" -v n="$got" -v hz="$hz" 'BEGIN {printf "%.3f", (n ? (b - a) / hz * 1e6 / n : 0)}')
    share=$(awk -v g="$got" -v s="$sent" 'BEGIN {printf "%.3f", 100 * g / s}')
    readerUs[$msaps]=$us
    readerShare[$msaps]=$share
    printf '  %2d MSAP(s): offered %d at %s frames/s; received %d (%s%%), kernel drops %d, veth drops %d; CPU %s us per frame (stat: %s us)\n' \
      "$msaps" "$sent" "$rate" "$got" "$share" "$drops" "$((v1 - v0))" "$us" "$usTicks"
  done
done

cat >"$work/agent.toml" <<'EOF'
transmit-interval = 5
[interfaces]
include = ["rxd*"]
EOF
ip netns exec "$nsd" "$agent" --config "$work/agent.toml" --socket "$work/lldp.sock" --log stderr 2>"$work/agent.log" &
pid=$!
lldp() { "$cli" --socket "$work/lldp.sock" "$@"; }
for _ in $(seq 100); do
  [ "$(lldp show status --json 2>/dev/null | jq -r '.ports // 0')" = 2 ] && break
  sleep 0.1
done
# Port counters of rxd0: LLDPDUs processed, rate-limited ones are not among them; kernel drops.
counters() {
  lldp show statistics rxd0 --json | jq -r '.port[0].portStatus | "\(.rxFramesTotal) \(.rxKernelDropsTotal)"'
}

echo "== lldp-agent (pid $pid) on rxd0, from its start: every frame sent counts =="
read -r rxStart kdStart < <(counters)
sentTotal=0
for msaps in 1 32; do
  read -r rx0 kd0 < <(counters)
  t0=$(cpuTicks $pid); n0=$(cpuNs $pid); v0=$(vethDrops)
  out=$(send flood rxs0 "$frames" "$msaps")
  sleep 0.3
  t1=$(cpuTicks $pid); n1=$(cpuNs $pid); v1=$(vethDrops)
  read -r rx1 kd1 < <(counters)
  read -r _ sent _ secs _ rate <<<"$out"
  got=$((rx1 - rx0))
  sentTotal=$((sentTotal + sent))
  us=$(awk -v a="$n0" -v b="$n1" -v n="$got" 'BEGIN {printf "%.3f", (n ? (b - a) / 1000 / n : 0)}')
  usTicks=$(awk -v a="$t0" -v b="$t1" -v n="$got" -v hz="$hz" 'BEGIN {printf "%.3f", (n ? (b - a) / hz * 1e6 / n : 0)}')
  share=$(awk -v g="$got" -v s="$sent" 'BEGIN {printf "%.3f", 100 * g / s}')
  printf '  %2d MSAP(s): offered %d at %s frames/s; received %d (%s%%), kernel drops %d, veth drops %d; CPU %s us per LLDPDU (stat: %s us)\n' \
    "$msaps" "$sent" "$rate" "$got" "$share" "$((kd1 - kd0))" "$((v1 - v0))" "$us" "$usTicks"
  printf '             ratio to the ring reader (4 MiB ring): %s x the CPU per frame, %s%% of its share received\n' \
    "$(awk -v a="$us" -v b="${readerUs[$msaps]}" 'BEGIN {printf "%.1f", (b > 0 ? a / b : 0)}')" \
    "$(awk -v a="$share" -v b="${readerShare[$msaps]}" 'BEGIN {printf "%.1f", (b > 0 ? 100 * a / b : 0)}')"
done

printf '  both floods, from the start: offered %d, received %d (%s%%), kernel drops %d\n' "$sentTotal" \
  "$((rx1 - rxStart))" "$(awk -v g="$((rx1 - rxStart))" -v s="$sentTotal" 'BEGIN {printf "%.3f", 100 * g / s}')" \
  "$((kd1 - kdStart))"

# What the whole command costs on this machine without a flood: starting a process included.
: >"$work/latency"
for _ in 1 2 3 4 5; do
  a=$(date +%s%N)
  lldp show neighbors >/dev/null
  b=$(date +%s%N)
  echo $(((b - a) / 1000)) >>"$work/latency"
done
baseline=$(sort -n "$work/latency" | awk '{v[NR] = $1} END {printf "median %.1f", v[3] / 1000}')

echo "== fairness: ${floodSeconds} s of flood on rxd0, a neighbour on rxd1 (LLDPDU every 0.5 s, TTL 2 s) =="
for limit in off on; do
  if [ "$limit" = on ]; then
    lldp configure interface rxd0 rx-rate-limit.enabled true >/dev/null
  fi
  send neighbour rxs1 0.5 2 $((floodSeconds + 4)) >"$work/neighbour.out" &
  npid=$!
  sleep 2  # the neighbour is learnt
  ageouts0=$(lldp show statistics rxd1 --json | jq -r '.port[0].portStatus.rxAgeoutsTotal')
  timeouts0=$(grep -c 'LLDP_NEIGHBOR_TIMEOUT.*rxd1' "$work/agent.log" || true)
  read -r rx0 kd0 < <(counters)
  send flood rxs0 0 1 "$floodSeconds" >"$work/flood.out" &
  fpid=$!
  "$work/rx-sender" ask "$work/lldp.sock" $((floodSeconds - 1)) >"$work/ask.out" &
  apid=$!
  : >"$work/latency"
  while kill -0 $fpid 2>/dev/null; do
    a=$(date +%s%N)
    lldp show neighbors >/dev/null
    b=$(date +%s%N)
    echo $(((b - a) / 1000)) >>"$work/latency"
    sleep 0.2
  done
  wait $apid
  wait $fpid
  wait $npid
  read -r rx1 kd1 < <(counters)
  ageouts1=$(lldp show statistics rxd1 --json | jq -r '.port[0].portStatus.rxAgeoutsTotal')
  timeouts1=$(grep -c 'LLDP_NEIGHBOR_TIMEOUT.*rxd1' "$work/agent.log" || true)
  read -r _ sent _ secs _ rate <"$work/flood.out"
  read -r _ heard _ gapMin _ gapMax <"$work/neighbour.out"
  printf '  rate limit %-3s: flood %d frames at %s frames/s; processed on rxd0 %d, kernel drops %d\n' \
    "$limit" "$sent" "$rate" "$((rx1 - rx0))" "$((kd1 - kd0))"
  printf '                  rxd1 neighbour ageouts during the flood: %d (timeouts logged: %d)\n' \
    "$((ageouts1 - ageouts0))" "$((timeouts1 - timeouts0))"
  printf '                  agent LLDPDUs on rxd1: %d, spacing %s-%s s for a 5 s interval (late by at most %s ms)\n' \
    "$heard" "$gapMin" "$gapMax" "$(awk -v g="$gapMax" 'BEGIN {l = (g - 5) * 1000; printf "%.1f", (l > 0 ? l : 0)}')"
  read -r _ asked _ askMedian _ askMax <"$work/ask.out"
  printf '                  state socket, neighbours request: %d requests, median %s ms, max %s ms\n' \
    "$asked" "$askMedian" "$askMax"
  sort -n "$work/latency" | awk -v base="$baseline" '{v[NR] = $1} END {printf "                  lldp show neighbors (the whole command): %d calls, median %.1f ms, max %.1f ms (%s ms without a flood)\n", NR, v[int((NR + 1) / 2)] / 1000, v[NR] / 1000, base}'
done
