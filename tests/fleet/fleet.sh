#!/usr/bin/env bash
# A leaf-spine fleet of real lldp-agent daemons, one per network namespace, each leaf cabled to
# each spine by a veth pair and each namespace reached from the host over a veth of its own
# (198.18.0.0/15) for scraping, and Debian's prometheus scraping them every second. Checks that
# `lldp topology --prometheus` reproduces the wiring, that `lldp topology check` passes, then
# reports exactly a cut link and exactly a swap of two cables within the scrape interval + 2 s.
#
#   fleet.sh BUILD_DIR [SPINES LEAVES] [--bench] [--svg FILE] [--sanitized]
#
# --bench also prints the fleet's figures (memory and CPU per agent and scrape, series); --svg
# writes the fleet's picture. Needs root; exits 77 (skipped) without it or without prometheus.
set -euo pipefail

build=$(cd "${1:?usage: fleet.sh BUILD_DIR [SPINES LEAVES] [--bench] [--svg FILE]}" && pwd)
shift
spines=4 leaves=16 bench=0 svg="" 
if [[ $# -ge 2 && $1 =~ ^[0-9]+$ ]]; then spines=$1 leaves=$2; shift 2; fi
while [[ $# -gt 0 ]]; do
  case $1 in
    --bench) bench=1 ;;
    --svg) svg=$2; shift ;;
    --sanitized) echo "SKIP: the fleet test runs in the normal build only (20 agents and Prometheus under the sanitizers take too long)"; exit 77 ;;
    *) echo "fleet.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done

skip() { echo "SKIP: $*"; exit 77; }
[[ $(id -u) -eq 0 ]] || skip "the fleet test needs root (network namespaces)"
command -v prometheus >/dev/null || skip "no prometheus binary (apt-get install prometheus)"
command -v curl >/dev/null || skip "no curl"
tag="f$$"
ip netns add "${tag}probe" 2>/dev/null || skip "network namespaces cannot be made here"
ip netns del "${tag}probe"

agents=$((spines + leaves))
(( agents <= 256 )) || { echo "fleet.sh: at most 256 agents" >&2; exit 2; }
work=$(mktemp -d "/tmp/lldp-fleet-$$.XXXXXX")
namespaces=() pids=() prom_pid=""
cleanup() {
  set +e
  [[ -n $prom_pid ]] && kill "$prom_pid" 2>/dev/null
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; done
  wait 2>/dev/null
  for ns in "${namespaces[@]}"; do ip netns del "$ns" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# Addresses: a block of 256 /30 networks in 198.18.0.0/15 chosen by the process id, so that
# runs side by side do not meet; agent i has the block's network i (host .1, namespace .2).
block=$(( ($$ % 128) * 256 ))
address() { local n=$(( 4 * (block + $1) + $2 )); echo "198.$((18 + n / 65536)).$(( (n / 256) % 256 )).$((n % 256))"; }
hostname_of() { if (( $1 < spines )); then echo "spine$(( $1 + 1 ))"; else echo "leaf$(( $1 - spines + 1 ))"; fi; }
ns_of() { echo "${tag}a$1"; }

for (( i = 0; i < agents; i++ )); do
  ns=$(ns_of "$i")
  ip netns add "$ns"
  namespaces+=("$ns")
  ip -n "$ns" link set lo up
  ip link add "${tag}h$i" type veth peer name mgmt0 netns "$ns"
  ip addr add "$(address "$i" 1)/30" dev "${tag}h$i"
  ip link set "${tag}h$i" up
  ip -n "$ns" addr add "$(address "$i" 2)/30" dev mgmt0
  ip -n "$ns" link set mgmt0 up
done

# leafL:swpS -- spineS:swpL
cable() {  # leaf port spine port
  ip link add "$2" netns "$(ns_of $(( spines + $1 - 1 )))" type veth peer name "$4" netns "$(ns_of $(( $3 - 1 )))"
  ip -n "$(ns_of $(( spines + $1 - 1 )))" link set "$2" up
  ip -n "$(ns_of $(( $3 - 1 )))" link set "$4" up
}
: > "$work/wiring.dot.body"
for (( l = 1; l <= leaves; l++ )); do
  for (( s = 1; s <= spines; s++ )); do
    cable "$l" "swp$s" "$s" "swp$l"
    echo "  \"leaf$l\":\"swp$s\" -- \"spine$s\":\"swp$l\";" >> "$work/wiring.dot.body"
  done
done
{ echo "graph wiring {"; sort "$work/wiring.dot.body"; echo "}"; } > "$work/wiring.dot"

targets=""
for (( i = 0; i < agents; i++ )); do
  name=$(hostname_of "$i")
  cat > "$work/$name.toml" <<TOML
transmit-interval = 5
[system]
name = "$name"
[interfaces]
include = ["swp*"]
[metrics]
listen = "$(address "$i" 2):9808"
TOML
  ip netns exec "$(ns_of "$i")" "$build/lldp-agent" --config "$work/$name.toml" --socket "$work/$name.sock" \
    --log stderr 2> "$work/$name.log" &
  pids+=($!)
  targets+="${targets:+, }'$(address "$i" 2):9808'"
done

cat > "$work/prometheus.yml" <<YAML
global:
  scrape_interval: 1s
  scrape_timeout: 1s
  evaluation_interval: 1s
scrape_configs:
  - job_name: lldp
    static_configs:
      - targets: [$targets]
YAML
prometheus --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/prometheus" \
  --web.listen-address=127.0.0.1:0 --log.level=warn > "$work/prometheus.log" 2>&1 &
prom_pid=$!
port=""
for (( t = 0; t < 300; t++ )); do
  port=$(ss -ltnpH 2>/dev/null | grep "pid=$prom_pid," | sed -n 's/.*127\.0\.0\.1:\([0-9]*\) .*/\1/p' | head -1 || true)
  if [[ -n $port ]]; then break; fi
  sleep 0.1
done
[[ -n $port ]] || { cat "$work/prometheus.log"; echo "FAIL: prometheus did not listen"; exit 1; }
url="http://127.0.0.1:$port"
for (( t = 0; t < 300; t++ )); do curl -sf "$url/-/ready" >/dev/null && break; sleep 0.1; done

lldp() { "$build/lldp" "$@"; }
now() { date +%s.%N; }
calc() { awk "BEGIN { printf \"%.2f\", $* }"; }
longer() { awk "BEGIN { exit !($1 > $2) }"; }
# Runs the check until its text (spaces squeezed) has every given line, or the time runs out; prints the seconds taken.
wait_check() {  # timeout line...
  local timeout=$1 start out ok; shift
  start=$(now)
  while :; do
    out=$(lldp topology check "$work/wiring.dot" --prometheus "$url" 2>&1 | tr -s ' ' || true)
    ok=1
    for line in "$@"; do grep -qF -- "$line" <<< "$out" || ok=0; done
    if (( ok )); then calc "$(now) - $start"; return 0; fi
    if longer "$(calc "$(now) - $start")" "$timeout"; then
      echo "FAIL: after ${timeout}s the check still says:" >&2
      echo "$out" >&2
      return 1
    fi
    sleep 0.1
  done
}

total=$(( spines * leaves ))
started=$(now)
took=$(wait_check $(( 120 + 2 * agents )) "$total of $total links as expected, 0 not, 0 not expected")
echo "fleet of $agents agents: every link found ${took}s after the last agent started"

# The topology itself reproduces the wiring: each link once, both ends reporting.
# (A scrape that times out on a busy machine leaves a target's series out for a moment: a few tries.)
for (( t = 0; t < 100; t++ )); do
  lldp topology --prometheus "$url" --format wiring | sort > "$work/found.dot"
  if diff -q <(grep -- '--' "$work/wiring.dot") <(grep -- '--' "$work/found.dot") > /dev/null; then break; fi
  sleep 0.3
done
diff <(grep -- '--' "$work/wiring.dot") <(grep -- '--' "$work/found.dot") || { echo "FAIL: topology differs from wiring"; exit 1; }
# Every agent scraped: each link is reported from both its ends.
for (( t = 0; t < 300; t++ )); do
  table=$(lldp topology --prometheus "$url")
  if [[ $(grep -c ' both$' <<< "$table") -eq $total ]]; then break; fi
  sleep 0.1
done
[[ $(grep -c ' both$' <<< "$table") -eq $total ]] || { echo "$table"; echo "FAIL: not every link seen from both ends"; exit 1; }
grep -qF "$total links between $agents hosts" <<< "$table" || { echo "$table"; echo "FAIL: hosts"; exit 1; }
if [[ -n $svg ]]; then lldp topology --prometheus "$url" --format svg -o "$svg"; fi
lldp topology --prometheus "$url" --format svg -o "$work/fleet.svg"
grep -q '<svg' "$work/fleet.svg" || { echo "FAIL: no SVG"; exit 1; }
check_ok=$(lldp topology check "$work/wiring.dot" --prometheus "$url" --json)
grep -q '"ok":true' <<< "$check_ok" || { echo "$check_ok"; echo "FAIL: check --json"; exit 1; }
echo "topology reproduces the wiring; check passes"

limit=3  # the scrape interval + 2 s
# A cut link: exactly it is missing.
ip -n "$(ns_of "$spines")" link set swp1 down
cut=$(wait_check 30 "leaf1:swp1 -- spine1:swp1 missing" "$(( total - 1 )) of $total links as expected, 1 not, 0 not expected")
echo "cut link reported after ${cut}s (limit ${limit}s)"
if longer "$cut" "$limit"; then echo "FAIL: the cut took longer than ${limit}s to show"; exit 1; fi
set +e; lldp topology check "$work/wiring.dot" --prometheus "$url" > /dev/null; rc=$?; set -e
[[ $rc -eq 1 ]] || { echo "FAIL: check exit status $rc with a missing link"; exit 1; }
ip -n "$(ns_of "$spines")" link set swp1 up
wait_check 60 "$total of $total links as expected, 0 not, 0 not expected" > /dev/null

# Two cables swapped at spine2: leaf1:swp2 now goes to spine2:swp2 and leaf2:swp2 to spine2:swp1.
ip -n "$(ns_of "$spines")" link del swp2
ip -n "$(ns_of $(( spines + 1 )))" link del swp2
cable 1 swp2 2 swp2
cable 2 swp2 2 swp1
cabled=$(now)
# A new cable is known to its agents only after their first LLDPDUs: the transmit delay of a port
# that comes up (2 s) and the peer's receive. The limit counts from when both leaves know.
for (( t = 0; t < 300; t++ )); do
  a=$(lldp topology --socket "$work/leaf1.sock" --format wiring 2>/dev/null | grep -c '"leaf1":"swp2" -- "spine2":"swp2"' || true)
  b=$(lldp topology --socket "$work/leaf2.sock" --format wiring 2>/dev/null | grep -c '"leaf2":"swp2" -- "spine2":"swp1"' || true)
  if [[ $a == 1 && $b == 1 ]]; then break; fi
  sleep 0.05
done
known=$(calc "$(now) - $cabled")
swap=$(wait_check 30 "$(( total - 2 )) of $total links as expected, 2 not, 2 not expected" \
  "leaf1:swp2 -- spine2:swp1 wrong-peer leaf1:swp2 -- spine2:swp2; spine2:swp1 -- leaf2:swp2" \
  "leaf2:swp2 -- spine2:swp2 wrong-peer leaf2:swp2 -- spine2:swp1; spine2:swp2 -- leaf1:swp2")
echo "swap known to the leaves ${known}s after the new cables were up, reported ${swap}s later (limit ${limit}s)"
if longer "$swap" "$limit"; then echo "FAIL: the swap took longer than ${limit}s to show"; exit 1; fi

if (( bench )); then
  rss=0
  for pid in "${pids[@]}"; do rss=$(( rss + $(awk '/VmRSS/ {print $2}' "/proc/$pid/status") )); done
  echo "resident memory per agent: $(( rss / agents )) KiB (mean of $agents)"
  ticks=$(getconf CLK_TCK)
  for i in 0 $spines; do
    pid=${pids[$i]} name=$(hostname_of "$i") target="http://$(address "$i" 2):9808/metrics"
    bytes=$(curl -s "$target" | wc -c)
    before=$(awk '{print $14 + $15}' "/proc/$pid/stat")
    for (( k = 0; k < 200; k++ )); do curl -s -o /dev/null "$target"; done
    after=$(awk '{print $14 + $15}' "/proc/$pid/stat")
    echo "$name: $bytes bytes per scrape, $(calc "($after - $before) * 1000 / $ticks / 200") ms CPU per scrape (200 scrapes, LLDP work included)"
  done
  series=$(curl -s "$url/api/v1/query" --data-urlencode 'query=count({__name__=~"lldp_.+"})' | sed -n 's/.*"value":\[[^,]*,"\([0-9]*\)".*/\1/p')
  # Prometheus' own gauge, read from its /metrics page (it does not scrape itself here).
  head=$(curl -s "$url/metrics" | awk '$1 == "prometheus_tsdb_head_series" {print $2}')
  echo "prometheus: $series lldp series, $head series in the head block"
  echo "load: $(uptime)"
fi
echo "fleet test passed ($(calc "$(now) - $started")s after the agents started)"
