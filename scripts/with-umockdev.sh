#!/usr/bin/env bash
# Runs a program under umockdev's preload, so that it can build umockdev test
# beds. AddressSanitizer accepts the preload before its runtime only when told
# not to check the order; the caller's other sanitizer options are kept.
set -euo pipefail
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}verify_asan_link_order=0"
exec umockdev-wrapper "$@"
