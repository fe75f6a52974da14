#!/usr/bin/env bash
# Installs what is needed, builds, and shows two real lldp-agent daemons in network namespaces:
# a switch with two ports, and a server whose two links to it form a bond. Each learns the
# other; `lldp` shows what each learnt and what `lldp watch` saw; a setting changed at run time
# reaches the peer; then everything is removed again.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
if [ "$(id -u)" -ne 0 ]; then exec sudo "$0" "$@"; fi

# LLDP_DEMO_NO_BUILD=1 skips installing and building (an existing build/ is used).
if [ -z "${LLDP_DEMO_NO_BUILD:-}" ]; then
  "$top/scripts/setup.sh"
  "$top/scripts/build.sh" release
fi
agent=$top/build/lldp-agent
lldp=$top/build/lldp

sw=lldpdemo-sw
srv=lldpdemo-srv
work=$(mktemp -d /tmp/lldp-demo.XXXXXX)
pids=()

cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  ip netns del "$sw" 2>/dev/null || true
  ip netns del "$srv" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

say() { printf '\n== %s\n' "$*"; }

say "network namespaces: $sw (ports swp1, swp2) and $srv (eth1 + eth2 in bond0)"
ip netns del "$sw" 2>/dev/null || true
ip netns del "$srv" 2>/dev/null || true
ip netns add "$sw"
ip netns add "$srv"
for i in 1 2; do
  ip -n "$sw" link add "swp$i" type veth peer name "eth$i" netns "$srv"
done
uplink=bond0
if ip -n "$srv" link add bond0 type bond mode active-backup 2>/dev/null; then
  for i in 1 2; do ip -n "$srv" link set "eth$i" master bond0; done
else
  echo "(this kernel has no bonding driver: the server's two links stay separate)"
  uplink=eth1
fi
for i in 1 2; do
  ip -n "$sw" link set "swp$i" up
  ip -n "$srv" link set "eth$i" up
done
ip -n "$srv" link set "$uplink" up
ip -n "$sw" link set lo up
ip -n "$srv" link set lo up
ip -n "$sw" addr add 192.0.2.1/32 dev lo
ip -n "$srv" addr add 198.51.100.2/24 dev "$uplink"

cat >"$work/sw.toml" <<'EOF'
transmit-interval = 5
system.name = "demo-switch"
system.description = "lldp-agent demonstration switch"
EOF
cat >"$work/srv.toml" <<'EOF'
transmit-interval = 5
system.name = "demo-server"

[interfaces]
include = ["eth*"]
EOF

start() {  # namespace, name
  ip netns exec "$1" "$agent" --config "$work/$2.toml" --socket "$work/$2.sock" --socket-group root \
    --log stderr 2>"$work/$2.log" &
  pids+=($!)
}
say "starting lldp-agent in each namespace"
start "$sw" sw
start "$srv" srv

# The state socket appears once an agent is ready.
for _ in $(seq 100); do
  [ -S "$work/sw.sock" ] && [ -S "$work/srv.sock" ] && break
  sleep 0.1
done
socket=yes
[ -S "$work/sw.sock" ] && [ -S "$work/srv.sock" ] || socket=no

if [ "$socket" = yes ]; then
  "$lldp" --socket "$work/sw.sock" watch --json >"$work/watch.jsonl" 2>&1 &
  pids+=($!)
fi

sees() {  # name, peer name
  if [ "$socket" = yes ]; then
    "$lldp" --socket "$work/$1.sock" show neighbors --json 2>/dev/null | grep -q "$2"
  else
    [ "$(grep -c LLDP_NEIGHBOR_NEW "$work/$1.log")" -ge 2 ]  # one neighbour on each of two links
  fi
}
say "waiting until each agent sees the other"
for _ in $(seq 200); do
  if sees sw demo-server && sees srv demo-switch; then break; fi
  sleep 0.1
done

show() {  # name
  if [ "$socket" = yes ]; then
    "$lldp" --socket "$work/$1.sock" show neighbors
  else
    grep -E 'LLDP_(NEIGHBOR|AGENT|CONFIG)' "$work/$1.log" || true
  fi
}
say "what the switch sees (lldp show neighbors)"
show sw
say "what the server sees (lldp show neighbors)"
show srv

say "changing the server's system name at run time"
if [ "$socket" = yes ]; then
  "$lldp" --socket "$work/srv.sock" configure system.name demo-server-renamed
else
  sed -i 's/demo-server"/demo-server-renamed"/' "$work/srv.toml"
  kill -HUP "${pids[1]}"
fi
sleep 3
say "the switch's view after the change"
show sw

if [ "$socket" = yes ]; then
  say "events lldp watch saw on the switch"
  cat "$work/watch.jsonl"
else
  say "this build has no state socket yet: the agents' logs stood in for lldp"
  cat "$work/srv.log"
fi

say "stopping the agents (SIGTERM) and removing the namespaces"
