#!/usr/bin/env bash
# cmake --install with the build's own prefix: the unit starts the daemon that was installed, the
# daemon's default configuration is the file that was installed, and the group entry, manual
# pages and completion are where the system looks for them.
#   tests/install/install-layout.sh BUILD_DIR
set -euo pipefail
build=$1
dest=$(mktemp -d)
trap 'rm -rf "$dest"' EXIT
DESTDIR=$dest cmake --install "$build" >/dev/null

fail() { echo "install-layout: $*" >&2; exit 1; }
unit=$(find "$dest" -path '*/systemd/system/lldp-agent.service')
[ -n "$unit" ] || fail "no unit installed"

# Every program of ours the unit runs is installed at that path.
daemon=""
while read -r path; do
  case "$path" in */lldp-agent) daemon=$path ;; /bin/*|/usr/bin/*) continue ;; esac
  [ -x "$dest$path" ] || fail "the unit runs $path, which the install did not put there"
done < <(sed -n 's/^Exec[A-Za-z]*=[-+@!:]*\([^ ]*\).*/\1/p' "$unit")
[ -n "$daemon" ] || fail "the unit does not start lldp-agent"

# --check-config names the default file first on every line, whether it exists here or not.
config=$("$dest$daemon" --check-config 2>&1 | head -n 1 | cut -d: -f1) || true
[ -f "$dest$config" ] || fail "the daemon's default configuration $config is not what was installed"
grep -qE -- "--config( |=)" "$unit" && fail "the unit names a configuration file: a missing one would be fatal"

prefix=${daemon%/sbin/lldp-agent}
grep -qx 'g lldp - -' "$dest$prefix/lib/sysusers.d/lldp-agent.conf" || fail "no sysusers entry for the group lldp"
[ -f "$dest$prefix/share/man/man8/lldp-agent.8" ] && [ -f "$dest$prefix/share/man/man8/lldp.8" ] ||
  fail "manual pages missing"
grep -q "complete -F" "$dest$prefix/share/bash-completion/completions/lldp" || fail "no bash completion"
[ -x "$dest$prefix/libexec/lldp-agent/lldp-decode" ] || fail "no lldp-decode"
echo "install-layout: $(basename "$daemon") under $prefix, configuration $config"
