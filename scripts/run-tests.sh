#!/usr/bin/env bash
# Set-up, build and the whole test suite: everything under AddressSanitizer +
# UndefinedBehaviorSanitizer, then the tests that start threads under
# ThreadSanitizer as well.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
jobs=$(nproc)
summary=$(mktemp)
trap 'rm -f "$summary"' EXIT

# Runs ctest, keeping its summary line for the total at the end.
run_ctest() {
  local rc=0
  ctest "$@" 2>&1 | tee -a "$summary" || rc=${PIPESTATUS[0]}
  return "$rc"
}
# The same inside a private PipeWire daemon.
run_ctest_pw() {
  local rc=0
  bash scripts/with-pipewire.sh ctest "$@" 2>&1 | tee -a "$summary" || rc=${PIPESTATUS[0]}
  return "$rc"
}

cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
echo "== AddressSanitizer + UndefinedBehaviorSanitizer =="
asan_rc=0
run_ctest --preset asan -j "$jobs" -LE '^platform_pipewire' || asan_rc=$?
# The installed package, as an application outside the tree uses it.
echo "== Install check (asan build) =="
install_rc=0
bash scripts/check-install.sh build/asan "-fsanitize=address,undefined" || install_rc=$?
# The PipeWire backend against a private daemon; one test at a time, since
# they share the daemon and its default output.
echo "== PipeWire backend against a private daemon (asan) =="
pw_rc=0
run_ctest_pw --preset asan -L '^platform_pipewire' || pw_rc=$?

cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
echo "== ThreadSanitizer (label: threads) =="
tsan_rc=0
run_ctest --preset tsan -j "$jobs" -LE '^platform_pipewire' || tsan_rc=$?
echo "== PipeWire backend against a private daemon (tsan) =="
run_ctest_pw --preset tsan -L '^platform_pipewire' || pw_rc=$?

echo "== libFuzzer targets, bounded time =="
fuzz_rc=0
FUZZ_SECONDS=${FUZZ_SECONDS:-45} bash scripts/run-fuzz.sh || fuzz_rc=$?

# One closing line over all the ctest runs above.
passed=0
total=0
while read -r line; do
  if [[ $line =~ ([0-9]+)%\ tests\ passed,\ ([0-9]+)\ tests?\ failed\ out\ of\ ([0-9]+) ]]; then
    total=$((total + BASH_REMATCH[3]))
    passed=$((passed + BASH_REMATCH[3] - BASH_REMATCH[2]))
  fi
done < "$summary"
echo "== all test runs =="
echo "$passed passed, $((total - passed)) failed"
failed=0
if [ "$asan_rc" -ne 0 ] || [ "$pw_rc" -ne 0 ] || [ "$tsan_rc" -ne 0 ] || [ "$fuzz_rc" -ne 0 ] ||
  [ "$install_rc" -ne 0 ]; then
  echo "tests failed (asan=$asan_rc pipewire=$pw_rc tsan=$tsan_rc fuzz=$fuzz_rc install=$install_rc)"
  failed=1
fi
# Last of all, failed or not: how much of the code the tests are.
bash scripts/code-balance.sh
exit "$failed"
