#!/usr/bin/env bash
# The fleet at the largest size this machine holds: as many lldp-agent daemons as asked (default
# 200: 8 spines and the rest leaves, each leaf cabled to each spine), scraped every second by
# Prometheus. Prints per agent the resident memory, the CPU and bytes per scrape, Prometheus'
# series count, and the time from a cut link (and a cable swap) to the check reporting it.
#   sudo bench/fleet.sh [AGENTS] [BUILD_DIR]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
agents=${1:-200}
build=${2:-$top/build}
spines=$(( agents >= 40 ? 8 : 4 ))
exec "$top/tests/fleet/fleet.sh" "$build" "$spines" "$(( agents - spines ))" --bench
