#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test and benchmark (idempotent).
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libasio-dev libsnmp-dev libnl-3-dev libnl-route-3-dev
  nlohmann-json3-dev libcli11-dev libtomlplusplus-dev libpcap-dev libsystemd-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  iproute2 tcpdump
  build-essential debhelper dpkg-dev lintian mmdebstrap systemd-container procps
  libmicrohttpd-dev libcurl4-openssl-dev libgraphviz-dev graphviz prometheus curl
  snmpd snmp
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages already installed"
  exit 0
fi

sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
echo "setup: installing ${missing[*]}"
"${sudo_cmd[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}"
