#!/usr/bin/env bash
# Set-up, build and the whole test suite: everything under AddressSanitizer +
# UndefinedBehaviorSanitizer, then the tests that start threads under
# ThreadSanitizer as well.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
jobs=$(nproc)

cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
echo "== AddressSanitizer + UndefinedBehaviorSanitizer =="
asan_rc=0
ctest --preset asan -j "$jobs" || asan_rc=$?

cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
echo "== ThreadSanitizer (label: threads) =="
tsan_rc=0
ctest --preset tsan -j "$jobs" || tsan_rc=$?

echo "== libFuzzer targets, bounded time =="
fuzz_rc=0
FUZZ_SECONDS=${FUZZ_SECONDS:-45} bash scripts/run-fuzz.sh || fuzz_rc=$?

if [ "$asan_rc" -ne 0 ] || [ "$tsan_rc" -ne 0 ] || [ "$fuzz_rc" -ne 0 ]; then
  echo "tests failed (asan=$asan_rc tsan=$tsan_rc fuzz=$fuzz_rc)"
  exit 1
fi
