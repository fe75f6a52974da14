#!/usr/bin/env bash
# Builds the Debian packages, checks them with lintian, installs lldp-agent into a booted Debian 12
# system (systemd-nspawn, a private network with a veth to a second agent outside) and checks the
# service there: readiness, the socket's group, neighbours both ways, reload, stop, the journal,
# upgrade and purge. Needs root; otherwise it is skipped.
#
#   scripts/package-test.sh [DIR]   DIR: use the .deb files there instead of building them
#
# The root file system is cached in ${XDG_CACHE_HOME:-~/.cache}/lldp-agent (a week at most).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)

if [ "$(id -u)" -ne 0 ]; then
  echo "package-test: skipped: it needs root (it boots a container and makes network namespaces)"
  exit 0
fi
for tool in dpkg-buildpackage lintian mmdebstrap systemd-nspawn nsenter ip; do
  command -v "$tool" >/dev/null || { echo "package-test: $tool is missing: run scripts/setup.sh" >&2; exit 1; }
done

start=$(date +%s%N)
say() {
  local tenths=$(( ($(date +%s%N) - start) / 100000000 ))
  printf 'package-test: [%3d.%ds] %s\n' $((tenths / 10)) $((tenths % 10)) "$*"
}
checks=0
fail() {
  echo "package-test: FAILED: $*" >&2
  diagnose >&2 || true
  exit 1
}
ok() { checks=$((checks + 1)); say "ok: $*"; }

# Everything this run makes carries its pid, so runs side by side do not meet.
id=$$
name=lldppkg$id          # the container, its host name, and the outside network namespace
outside_if=lp${id}o      # the veth end outside; the container's end is host0
work=$(mktemp -d "/tmp/lldp-package-test.$id.XXXXXX")
root=""
nspawn_pid=""
init_pid=""
agent_pid=""

cleanup() {
  set +e
  if [ -n "$init_pid" ] && kill -0 "$init_pid" 2>/dev/null; then
    nsenter -t "$init_pid" -a systemctl poweroff >/dev/null 2>&1
  fi
  if [ -n "$nspawn_pid" ]; then
    for _ in $(seq 100); do kill -0 "$nspawn_pid" 2>/dev/null || break; sleep 0.1; done
    kill -0 "$nspawn_pid" 2>/dev/null && kill -KILL "$nspawn_pid"
    wait "$nspawn_pid" 2>/dev/null
  fi
  [ -n "$agent_pid" ] && kill "$agent_pid" 2>/dev/null && wait "$agent_pid" 2>/dev/null
  ip netns del "$name" 2>/dev/null
  ip link del "$outside_if" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# A command inside the container, with the container's own environment.
inside() {
  nsenter -t "$init_pid" -a env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 "$@"
}
# Polls a command every 0.2 s for at most $1 seconds.
within() {
  local deadline=$(( $(date +%s) + $1 )); shift
  until "$@" >/dev/null 2>&1; do
    [ "$(date +%s)" -lt "$deadline" ] || return 1
    sleep 0.2
  done
}
diagnose() {
  [ -n "$init_pid" ] || return 0
  echo "--- lldp-agent.service in the container"
  inside systemctl status --no-pager --lines=0 lldp-agent 2>&1
  inside journalctl --no-pager -n 30 -u lldp-agent 2>&1
  [ -f "$work/outside.log" ] && { echo "--- the agent outside"; tail -n 20 "$work/outside.log"; }
}

# --- build and lintian -----------------------------------------------------------------------
debs=$work/debs
mkdir -p "$debs"
if [ $# -ge 1 ]; then
  cp "$1"/lldp-agent*.deb "$debs"/
  say "packages from $1"
else
  say "building the packages"
  mkdir "$work/src"
  # The checkout as it is (tracked and new files, not the build trees) in a directory of its own:
  # dpkg-buildpackage writes its results beside the source.
  if git -C "$top" rev-parse --git-dir >/dev/null 2>&1; then
    git -C "$top" ls-files -z --cached --others --exclude-standard |
      (cd "$top" && tar --null -T - -c) | tar -x -C "$work/src"
  else
    tar -C "$top" --exclude='./build*' --exclude='./obj-*' --exclude='./fuzz-out' -c . | tar -x -C "$work/src"
  fi
  (cd "$work/src" && DEB_BUILD_OPTIONS="parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}" \
     dpkg-buildpackage -b -us -uc) >"$work/build.log" 2>&1 || { tail -n 40 "$work/build.log"; fail "dpkg-buildpackage"; }
  say "lintian"
  lintian --fail-on error,warning "$work"/lldp-agent_*.changes >"$work/lintian.log" 2>&1 ||
    { cat "$work/lintian.log"; fail "lintian"; }
  grep -v 'root privileges' "$work/lintian.log" || true
  mv "$work"/*.deb "$debs"/
  ok "the packages build and lintian has no error or warning"
fi
deb=$(ls "$debs"/lldp-agent_*.deb)
version=$(dpkg-deb -f "$deb" Version)
for f in "$debs"/*.deb; do say "$(basename "$f"): $(du -k "$f" | cut -f1) KiB"; done

# --- the root file system, cached ---------------------------------------------------------------
# Debian 12 with systemd, and whatever the package depends on, so that apt installs it offline.
# The container boots it read-only under a writable layer in memory, so runs share it.
depends=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/|.*//; s/(.*)//; s/ //g' | grep -v '^$' | sort -u)
include=$(printf '%s\n' systemd systemd-sysv dbus iproute2 $depends | sort -u | paste -sd,)
cache=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/lldp-agent
root=$cache/bookworm-$(echo "$include" | sha256sum | cut -c1-16)
mkdir -p "$cache"
find "$cache" -mindepth 1 -maxdepth 1 -name 'bookworm-*' -mtime +7 -exec rm -rf {} +
# A root file system is moved into place only once complete.
if [ ! -d "$root" ]; then
  say "making the Debian 12 root file system (cached in $cache)"
  # The mirrors this machine's apt uses.
  sources=()
  for f in /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list; do
    [ -s "$f" ] && grep -q '^[^#]*debian' "$f" && { sources=("$f"); break; }
  done
  rm -rf "$cache/new-$id"
  mmdebstrap --quiet --variant=minbase --include="$include" bookworm "$cache/new-$id" "${sources[@]}" \
    </dev/null >"$work/mmdebstrap.log" 2>&1 || { tail -n 20 "$work/mmdebstrap.log"; rm -rf "$cache/new-$id"; fail "mmdebstrap"; }
  # Another run may have made it meanwhile: then its copy stays.
  mv -T "$cache/new-$id" "$root" 2>/dev/null || rm -rf "$cache/new-$id"
fi
echo "$name" >"$work/hostname"  # the agent inside advertises it

# --- boot, and the network ----------------------------------------------------------------------
say "booting the container $name"
# The kernel's CPU latency device, as a host has it (the service binds it into its own /dev).
latency_bind=()
[ -c /dev/cpu_dma_latency ] && latency_bind=(--bind=/dev/cpu_dma_latency)
systemd-nspawn --quiet -D "$root" --volatile=overlay -M "$name" -b --register=no --keep-unit \
  --private-network --bind-ro="$work/hostname:/etc/hostname" --bind-ro="$debs:/opt/lldp-test" "${latency_bind[@]}" \
  >"$work/console.log" 2>&1 </dev/null &
nspawn_pid=$!
# The container's init is the child of systemd-nspawn once it runs systemd (before, the child
# is nspawn's own, which exits).
for _ in $(seq 300); do
  init_pid=$(pgrep -P "$nspawn_pid" -x systemd | head -n 1 || true)
  [ -n "$init_pid" ] && break
  kill -0 "$nspawn_pid" 2>/dev/null || break
  sleep 0.1
done
[ -n "$init_pid" ] || fail "the container did not start: $(tail -n 5 "$work/console.log")"
within 60 inside systemctl is-system-running --wait || true
state=$(inside systemctl is-system-running || true)
[ "$state" = running ] || [ "$state" = degraded ] || fail "the container did not boot: $state"
say "booted ($state)"

ip netns add "$name"
ip link add "$outside_if" type veth peer name host0 netns "$init_pid"
ip link set "$outside_if" netns "$name"
ip -n "$name" link set "$outside_if" up
inside ip link set host0 up

# The second agent, outside: the packaged daemon run from the unpacked package.
mkdir "$work/outside"
dpkg-deb -x "$deb" "$work/outside"
printf '[system]\nname = "outside-%s"\n' "$id" >"$work/outside.toml"
ip netns exec "$name" "$work/outside/usr/sbin/lldp-agent" --config "$work/outside.toml" \
  --socket "$work/outside.sock" --log stderr >"$work/outside.log" 2>&1 &
agent_pid=$!
outside_lldp() { "$work/outside/usr/bin/lldp" --socket "$work/outside.sock" "$@"; }
# Whether a side's neighbour table (as JSON) holds a text.
inside_sees() { inside lldp show neighbors --json | grep -q "$1"; }
outside_sees() { outside_lldp show neighbors --json | grep -q "$1"; }

# --- install ----------------------------------------------------------------------------------
say "apt install lldp-agent $version"
! inside getent group lldp >/dev/null || fail "the group lldp exists before the package"
inside env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
  "/opt/lldp-test/$(basename "$deb")" >"$work/apt.log" 2>&1 || { tail -n 20 "$work/apt.log"; fail "apt install"; }
# apt returns once systemd has the service started, i.e. once the agent said it was ready: the
# socket must answer at the first try.
inside lldp show status >"$work/status.txt" 2>&1 || fail "lldp show status right after the start: $(cat "$work/status.txt")"
[ "$(inside systemctl is-active lldp-agent)" = active ] || fail "the service is not active"
inside sh -c 'systemctl restart lldp-agent && lldp show status' >"$work/status.txt" 2>&1 ||
  fail "lldp show status right after a restart: $(cat "$work/status.txt")"
ok "installed; active; the socket answered at once after readiness (install and restart)"
inside getent group lldp >/dev/null || fail "the package made no group lldp"
[ "$(inside stat -c '%U:%G %a' /run/lldp-agent)" = "root:lldp 750" ] ||
  fail "runtime directory: $(inside stat -c '%U:%G %a' /run/lldp-agent)"
[ "$(inside lldp-agent --version)" = "lldp-agent $version" ] || fail "lldp-agent --version: $(inside lldp-agent --version)"
# lldp runs the installed lldp-decode for a decode.
inside lldp decode --hex '02 07 04 00 1c 73 00 00 01 04 07 03 00 1c 73 00 00 01 06 02 00 78 00 00' |
  grep -q "00:1c:73:00:00:01" || fail "lldp decode does not find lldp-decode"
ok "group lldp, /run/lldp-agent root:lldp 0750, version $version, lldp decode"
exposure=$(inside systemd-analyze security --no-pager lldp-agent.service | sed -n 's/.*Overall exposure level for [^:]*: //p')
[[ "$exposure" =~ (OK|SAFE|PERFECT) ]] || fail "systemd-analyze security: exposure $exposure"
ok "systemd-analyze security: exposure $exposure"

# --- the socket's group ---------------------------------------------------------------------------
inside useradd --no-create-home --groups lldp lldpmember
inside useradd --no-create-home lldpother
as() { local user=$1; shift; inside setpriv --reuid "$user" --regid "$user" --init-groups "$@"; }
as lldpmember lldp show status >/dev/null || fail "a member of lldp cannot use lldp show status"
set +e
as lldpother lldp show status >"$work/other.out" 2>"$work/other.err"
rc=$?
set -e
[ "$rc" -eq 1 ] || fail "another user: exit $rc, not 1"
[ "$(wc -l <"$work/other.err")" -eq 1 ] && [ ! -s "$work/other.out" ] ||
  fail "another user: not one line: $(cat "$work/other.out" "$work/other.err")"
ok "lldp show status: a member of lldp is served; another user is refused in one line ($(cat "$work/other.err"))"

# --- neighbours both ways ---------------------------------------------------------------------------
within 30 inside_sees "outside-$id" ||
  fail "the container does not see the agent outside: $(inside lldp show neighbors 2>&1)"
within 30 outside_sees "$name" ||
  fail "the agent outside does not see the container: $(outside_lldp show neighbors 2>&1)"
ok "neighbours: the container sees outside-$id on host0, the agent outside sees $name"
inside hostname "renamed-$id"
within 15 outside_sees "renamed-$id" || fail "a new host name inside does not reach the neighbour"
ok "a new host name inside reaches the agent outside"

# --- reload --------------------------------------------------------------------------------------
conf=/etc/lldp-agent/lldp-agent.toml
pid=$(inside systemctl show -P MainPID lldp-agent)
inside cp "$conf" /root/lldp-agent.toml.good
inside sh -c "echo 'transmit-interval = 1' >> $conf"
! inside systemctl reload lldp-agent >/dev/null 2>&1 || fail "systemctl reload with a bad file succeeded"
[ "$(inside systemctl is-active lldp-agent)" = active ] || fail "the service is down after a bad reload"
[ "$(inside systemctl show -P MainPID lldp-agent)" = "$pid" ] || fail "the agent was restarted by a bad reload"
inside journalctl -u lldp-agent --no-pager -o cat | grep -q "transmit-interval" ||
  fail "the journal does not name the bad key"
inside_sees "outside-$id" || fail "the neighbour is gone after a bad reload"
inside cp /root/lldp-agent.toml.good "$conf"
inside sh -c "printf '[system]\ndescription = \"reloaded-$id\"\n' >> $conf"
inside systemctl reload lldp-agent || fail "systemctl reload with a good file failed"
within 10 outside_sees "reloaded-$id" ||
  fail "the reloaded description does not reach the neighbour"
ok "reload: a bad file fails and the agent keeps running with its neighbour; a good file applies"

# With the SNMP subagent on, the agent holds the CPU latency device through the sandbox.
if [ ${#latency_bind[@]} -gt 0 ]; then
  inside lldp configure snmp.enabled true >/dev/null || fail "lldp configure snmp.enabled true"
  inside sh -c "ls -l /proc/$pid/fd" | grep -q /dev/cpu_dma_latency ||
    fail "the service does not hold /dev/cpu_dma_latency: $(inside journalctl -u lldp-agent --no-pager -o cat | grep FAST_WALKS)"
  inside lldp configure snmp.enabled false >/dev/null || fail "lldp configure snmp.enabled false"
  ok "snmp.fast-walks: the service holds the CPU latency device through its sandbox"
else
  say "no /dev/cpu_dma_latency on this host: the check of snmp.fast-walks under the unit is skipped"
fi

# The service has no CAP_CHOWN and runs in the group lldp; the packaged file is root's.
before=$(inside stat -c '%U:%G %a' "$conf")
inside lldp configure transmit-interval 17 >/dev/null || fail "lldp configure"
inside lldp config save >"$work/save.out" 2>&1 || fail "lldp config save: $(cat "$work/save.out")"
inside grep -q '^transmit-interval = 17' "$conf" || fail "the saved file lacks the change"
inside grep -q "reloaded-$id" "$conf" || fail "the save lost the file's own lines"
[ "$(inside stat -c '%U:%G %a' "$conf")" = "$before" ] || fail "save changed $before to $(inside stat -c '%U:%G %a' "$conf")"
ok "lldp config save under the unit: the change is in the file, which stays $before"

# --- a configuration error at start never loops; no file means the defaults --------------------
inside sh -c "echo 'transmit-interval = 1' >> $conf"
! inside systemctl restart lldp-agent >/dev/null 2>&1 || fail "a start with a bad file succeeded"
sleep 3  # longer than RestartSec
[ "$(inside systemctl show -P NRestarts lldp-agent)" = 0 ] || fail "the service restarts on a configuration error"
[ "$(inside systemctl show -P ExecMainStatus lldp-agent)" = 2 ] || fail "a bad file did not exit with status 2"
inside systemctl reset-failed lldp-agent
inside rm "$conf"
inside systemctl start lldp-agent || fail "no start without the configuration file"
inside lldp show status >/dev/null || fail "no socket without the configuration file"
ok "a bad file at start: exit 2 and no restart; without the file the defaults apply"

# --- the journal and stop ---------------------------------------------------------------------------
t0=$(date +%s%N)
inside systemctl stop lldp-agent
stop_ms=$(( ($(date +%s%N) - t0) / 1000000 ))
[ "$stop_ms" -lt 1000 ] || fail "systemctl stop took $stop_ms ms"
ok "systemctl stop took $stop_ms ms"
message_id() {
  inside journalctl --no-pager -o export "LLDP_MESSAGE=$1" | sed -n 's/^MESSAGE_ID=//p' | tail -n 1
}
stop_logged() { [ -n "$(message_id LLDP_AGENT_STOPPED)" ]; }
within 5 stop_logged || true
started=$(message_id LLDP_AGENT_STARTED)
stopped=$(message_id LLDP_AGENT_STOPPED)
[[ "$started" =~ ^[0-9a-f]{32}$ && "$stopped" =~ ^[0-9a-f]{32}$ && "$started" != "$stopped" ]] ||
  fail "journal MESSAGE_IDs: started '$started', stopped '$stopped'"
inside journalctl --no-pager -o cat "MESSAGE_ID=$started" | grep -q "LLDP agent $version started" ||
  fail "no start line under MESSAGE_ID=$started"
inside journalctl --no-pager -o cat -u lldp-agent "MESSAGE_ID=$stopped" | grep -q "LLDP agent stopped" ||
  fail "no stop line under MESSAGE_ID=$stopped"
ok "journal: the agent's lines with MESSAGE_ID (started $started, stopped $stopped)"

# --- upgrade keeps the operator's file; purge -------------------------------------------------------
inside cp /root/lldp-agent.toml.good "$conf"
inside sh -c "echo '# the operator was here' >> $conf"
inside dpkg -i "/opt/lldp-test/$(basename "$deb")" >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; fail "reinstall"; }
inside grep -q "the operator was here" "$conf" || fail "the reinstall replaced the operator's configuration"
[ "$(inside systemctl is-active lldp-agent)" = active ] || fail "not active after the reinstall"
ok "reinstall over itself: the operator's file stays, the service runs"

inside apt-get purge -y -q lldp-agent >"$work/purge.log" 2>&1 || { tail "$work/purge.log"; fail "apt purge"; }
! inside test -e /lib/systemd/system/lldp-agent.service || fail "purge left the unit"
! inside test -e "$conf" || fail "purge left the configuration file"
[ -z "$(inside systemctl list-unit-files --no-legend lldp-agent.service)" ] || fail "systemd still knows the unit"
inside getent group lldp >/dev/null || fail "purge removed the group lldp although lldpmember is in it"
inside dpkg -i "/opt/lldp-test/$(basename "$deb")" >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; fail "install again"; }
inside userdel lldpmember
inside apt-get purge -y -q lldp-agent >"$work/purge.log" 2>&1 || { tail "$work/purge.log"; fail "apt purge"; }
! inside getent group lldp >/dev/null || fail "purge left the group lldp with nobody in it"
ok "purge: the unit and the configuration go; the group stays while shared, and goes otherwise"

say "package-test: $checks checks passed"
