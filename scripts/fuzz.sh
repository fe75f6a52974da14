#!/usr/bin/env bash
# Builds the receive-path fuzzers with clang (AddressSanitizer + UndefinedBehaviorSanitizer) and
# runs each for its share of the total: scripts/fuzz.sh [seconds] (default 60). Every target
# keeps its own corpus in fuzz-out/<target>/; findings land in fuzz-out/findings/ and fail the
# run. Findings of an earlier run are replayed first and dropped once they no longer fail.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
# target, seed directory, longest input
targets=(
  "lldp-fuzz-rx frames 1600"
  "lldp-fuzz-rx-quiet frames 1600"
  "lldp-fuzz-seq sequences 8192"
)
share=$((seconds / ${#targets[@]}))
[ "$share" -ge 1 ] || share=1

"$top/scripts/setup.sh"
CC=clang CXX=clang++ cmake -S "$top" -B "$top/build-fuzz" -G Ninja -DLLDP_FUZZ=ON \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG" >/dev/null
names=()
for t in "${targets[@]}"; do names+=("${t%% *}"); done
cmake --build "$top/build-fuzz" -j "$(nproc)" --target "${names[@]}" lldp-fuzz-seeds

out=$top/fuzz-out
findings=$out/findings
mkdir -p "$out/seeds/frames" "$out/seeds/sequences" "$findings"
"$top/build-fuzz/lldp-fuzz-seeds" "$out/seeds/frames" "$out/seeds/sequences"
# Tracing stays as each target sets it, whatever the caller's environment asks for.
unset LLDP_TRACE
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

failed=0
for t in "${targets[@]}"; do
  read -r name seeds maxLen <<<"$t"
  bin=$top/build-fuzz/$name
  old=("$findings/$name".*)
  if [ -e "${old[0]}" ]; then
    if "$bin" "${old[@]}" >"$out/$name.replay.log" 2>&1; then
      echo "fuzz: $name: ${#old[@]} earlier finding(s) no longer fail, dropped"
      rm -f "${old[@]}" "$out/$name.replay.log"
    else
      echo "fuzz: $name: an earlier finding still fails (fuzz-out/$name.replay.log)" >&2
      failed=1
      continue
    fi
  fi
  mkdir -p "$out/$name"
  log=$out/$name.log
  echo "fuzz: $name for ${share}s"
  status=0
  "$bin" -max_total_time="$share" -max_len="$maxLen" -timeout=5 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$findings/$name." \
    "$out/$name" "$out/seeds/$seeds" >"$log" 2>&1 || status=$?
  grep -E "^#[0-9]+[[:space:]]+(INITED|DONE)|stat::number_of_executed_units|ERROR|SUMMARY|fuzz check failed" "$log" || true
  # libFuzzer leaves crash-*, leak-*, timeout-* or oom-* files behind on a finding.
  if [ "$status" -ne 0 ] || compgen -G "$findings/$name.*" >/dev/null; then
    echo "fuzz: $name: findings in fuzz-out/findings (log: fuzz-out/$name.log)" >&2
    failed=1
  fi
done

if [ "$failed" -ne 0 ]; then
  exit 1
fi
echo "fuzz: clean after ${share}s for each of ${#targets[@]} targets"
