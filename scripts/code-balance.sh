#!/usr/bin/env bash
# Prints how much of the code the tests are: non-blank lines of .cpp and .h in
# tests/ against the library's folders plus tests/ (bench/, fuzz/ and examples/
# count on neither side; build folders are left out).
set -euo pipefail
cd "$(dirname "$0")/.."

# Non-blank lines of the C++ files below the given folders.
count_lines() {
  [ "$#" -gt 0 ] || { echo 0; return; }
  find "$@" -type d -name 'build*' -prune -o -type f \( -name '*.cpp' -o -name '*.h' \) -print0 |
    { xargs -0 -r grep -hv '^[[:space:]]*$' -- || true; } | wc -l
}

library_dirs=()
for dir in control engine settings microphones observers sockets sound portable-core platform; do
  [ -d "$dir" ] && library_dirs+=("$dir")
done
library=$(count_lines "${library_dirs[@]}")
tests=$(count_lines tests)
total=$((library + tests))
share=$(awk -v t="$tests" -v a="$total" 'BEGIN { printf "%.1f", a ? 100 * t / a : 0 }')
echo "code balance: tests $tests / library $library + tests $tests = $share%"
