#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time
# (FUZZ_SECONDS, default 60) from its seed corpus in fuzz/corpus/<name>/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
shopt -s nullglob
sources=(fuzz/*_fuzz.cpp)
if [ ${#sources[@]} -eq 0 ]; then
  echo "no fuzz targets"
  exit 0
fi
cmake --preset fuzz >/dev/null
targets=()
for src in "${sources[@]}"; do targets+=("$(basename "$src" .cpp)"); done
cmake --build --preset fuzz -j "$(nproc)" --target "${targets[@]}"
for src in "${sources[@]}"; do
  name=$(basename "$src" .cpp)
  work=build/fuzz/corpus-$name
  mkdir -p "$work"
  seeds=()
  [ -d "fuzz/corpus/$name" ] && seeds=("fuzz/corpus/$name")
  echo "== fuzzing $name for ${seconds}s =="
  ASAN_OPTIONS=detect_leaks=1 ./build/fuzz/fuzz/"$name" -max_total_time="$seconds" -print_final_stats=1 \
    "$work" "${seeds[@]}" 2>&1 | tail -n 15
done
