#!/usr/bin/env bash
# Runs a program under umockdev's preload, so that it can build umockdev test
# beds. AddressSanitizer accepts the preload before its runtime only when told
# not to check the order; the caller's other sanitizer options are kept.
set -euo pipefail
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}verify_asan_link_order=0"
# Under ThreadSanitizer, races inside the system's libudev (not ours) are
# suppressed; see the file for what and why.
here=$(cd "$(dirname "$0")" && pwd)
export TSAN_OPTIONS="${TSAN_OPTIONS:+$TSAN_OPTIONS:}suppressions=$here/tsan-system-libraries.supp"
exec umockdev-wrapper "$@"
