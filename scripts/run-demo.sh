#!/usr/bin/env bash
# Set-up, release build and one run of the demo host on the simulated platform.
# Arguments go to the demo (try --help).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target tidemix-demo
exec ./build/release/examples/tidemix-demo "$@"
