#!/usr/bin/env bash
# Configures and builds one build tree: scripts/build.sh [release|asan] (default release).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
kind=${1:-release}
case "$kind" in
  release) dir=build; flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG") ;;
  asan)    dir=build-asan; flags=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 -DLLDP_SANITIZE=ON) ;;
  *) echo "usage: $0 [release|asan]" >&2; exit 2 ;;
esac
# Line tables (-g1) are all that backtraces, the sanitizers' reports and profiles need; full
# debug information doubles the time to compile the test suites.
jobs=$(nproc)
# A compiler cache, when the machine has one, makes rebuilds of other checkouts cheap.
command -v ccache >/dev/null && flags+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$top" -B "$top/$dir" -G Ninja -DLLDP_WERROR=ON "${flags[@]}" >/dev/null
cmake --build "$top/$dir" -j "$jobs"
