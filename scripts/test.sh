#!/usr/bin/env bash
# The whole test suite: installs what is needed, then builds and runs every test,
# once in a normal build and once under AddressSanitizer + UndefinedBehaviorSanitizer.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

for kind in release asan; do
  echo "=== build and test: $kind ==="
  "$top/scripts/build.sh" "$kind"
  dir=build; [ "$kind" = asan ] && dir=build-asan
  ctest --test-dir "$top/$dir" --output-on-failure -j "$(nproc)"
done
