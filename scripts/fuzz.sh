#!/usr/bin/env bash
# Builds the receive-path fuzzer with clang (AddressSanitizer + UndefinedBehaviorSanitizer) and
# runs it: scripts/fuzz.sh [seconds] (default 60). Findings land in fuzz-out/.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
"$top/scripts/setup.sh"
CC=clang CXX=clang++ cmake -S "$top" -B "$top/build-fuzz" -G Ninja -DLLDP_FUZZ=ON \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build-fuzz" -j "$(nproc)" --target lldp-fuzz-rx lldp-fuzz-seeds
mkdir -p "$top/fuzz-out/corpus" "$top/fuzz-out/seeds" "$top/fuzz-out/findings"
"$top/build-fuzz/lldp-fuzz-seeds" "$top/fuzz-out/seeds"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
cd "$top/fuzz-out/findings"
"$top/build-fuzz/lldp-fuzz-rx" -max_total_time="$seconds" -max_len=1600 -timeout=5 \
  -rss_limit_mb=2048 -print_final_stats=1 "$top/fuzz-out/corpus" "$top/fuzz-out/seeds" 2>&1 |
  grep -E "^#[0-9]+ +(INITED|DONE)|stat::number_of_executed_units|ERROR|SUMMARY|crash|leak" || true
# libFuzzer leaves crash-*, leak-* or timeout-* files behind on a finding.
if ls crash-* leak-* timeout-* oom-* >/dev/null 2>&1; then
  echo "fuzz: findings in fuzz-out/findings" >&2
  exit 1
fi
echo "fuzz: clean after ${seconds}s"
