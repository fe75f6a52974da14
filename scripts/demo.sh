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

# LLDP_DEMO_PREFIX names the namespaces (default lldpdemo), so that two runs need not collide.
prefix=${LLDP_DEMO_PREFIX:-lldpdemo}
sw=$prefix-sw
srv=$prefix-srv
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
if [ ! -S "$work/sw.sock" ] || [ ! -S "$work/srv.sock" ]; then
  echo "an agent did not become ready; its log:" >&2
  cat "$work/sw.log" "$work/srv.log" >&2
  exit 1
fi

# lldp watch on the switch, subscribed before the neighbours arrive.
"$lldp" --socket "$work/sw.sock" watch >"$work/watch.txt" 2>&1 &
pids+=($!)
for _ in $(seq 50); do
  "$lldp" --socket "$work/sw.sock" show status --json | grep -q '"subscriptions":[1-9]' && break
  sleep 0.1
done

shows() {  # name, text: how many lines of the agent's neighbour table show the text
  "$lldp" --socket "$work/$1.sock" show neighbors 2>/dev/null | grep -c -- "$2" || true
}
wait_for() {  # name, text, count: up to 20 s
  for _ in $(seq 200); do
    [ "$(shows "$1" "$2")" -ge "$3" ] && return 0
    sleep 0.1
  done
  echo "(gave up waiting for $3 neighbours showing $2 on $1)"
}
say "waiting until each agent sees the other on both links"
wait_for sw demo-server 2
wait_for srv demo-switch 2

say "what the switch sees (lldp show neighbors)"
"$lldp" --socket "$work/sw.sock" show neighbors
say "what the server sees (lldp show neighbors)"
"$lldp" --socket "$work/srv.sock" show neighbors

say "changing the server's system name at run time (lldp configure system.name demo-server-renamed)"
"$lldp" --socket "$work/srv.sock" configure system.name demo-server-renamed
wait_for sw demo-server-renamed 2
say "the switch's view after the change"
"$lldp" --socket "$work/sw.sock" show neighbors

for _ in $(seq 50); do
  [ "$(grep -c '^changed' "$work/watch.txt" || true)" -ge 2 ] && break
  sleep 0.1
done
say "events lldp watch saw on the switch"
cat "$work/watch.txt"

say "stopping the agents (SIGTERM) and removing the namespaces"
