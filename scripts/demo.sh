#!/usr/bin/env bash
# Installs what is needed, builds, and runs the self-contained demonstration.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
"$top/scripts/build.sh" release
exec "$top/build/lldp-demo" "$@"
