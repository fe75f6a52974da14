#!/usr/bin/env bash
# The whole test suite: installs what is needed, then builds and runs every test, once in a
# normal build and once under AddressSanitizer + UndefinedBehaviorSanitizer, then runs the
# receive-path fuzzers for a minute in all (LLDP_FUZZ_SECONDS to change).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

total=0
for kind in release asan; do
  echo "=== build and test: $kind ==="
  "$top/scripts/build.sh" "$kind"
  dir=build; [ "$kind" = asan ] && dir=build-asan
  ctest --test-dir "$top/$dir" --output-on-failure -j "$(nproc)" | tee "$top/$dir/ctest.log"
  count=$(sed -n 's/.*tests passed, 0 tests failed out of \([0-9]*\).*/\1/p' "$top/$dir/ctest.log")
  total=$((total + ${count:-0}))
done

# Once, not per build: the Debian package on a booted system (root only: a container, netns).
echo "=== the Debian package, installed on a booted Debian 12 system ==="
if [ "$(id -u)" -eq 0 ]; then
  "$top/scripts/package-test.sh"
  total=$((total + 1))
else
  echo "skipped: scripts/package-test.sh needs root"
fi

echo "=== fuzz the receive path: ${LLDP_FUZZ_SECONDS:-60}s ==="
"$top/scripts/fuzz.sh" "${LLDP_FUZZ_SECONDS:-60}"
echo "tests: $total passed, 0 failed"
