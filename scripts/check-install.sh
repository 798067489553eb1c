#!/usr/bin/env bash
# Installs the library from a build folder into a temporary prefix and builds a
# small program outside the tree against it, once through find_package and
# once through pkg-config, then runs both (on sim; the find_package one also
# with nothing chosen, where it must come up on linux).
#
#   bash scripts/check-install.sh BUILD_DIR [EXTRA_CXXFLAGS]
#
# EXTRA_CXXFLAGS are the flags the library was built with that a program
# linking it needs too (the sanitizers of a sanitizer build).
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
flags=${2:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
# The consumer runs without a PipeWire daemon and never reaches the user's settings.
export PIPEWIRE_REMOTE=tidemix-no-such-daemon
export XDG_CONFIG_HOME=$work/config
mkdir -p "$XDG_CONFIG_HOME"
libdir=$(dirname "$(find "$prefix" -name 'libTidemixApi.so' | head -n 1)")

echo "-- find_package(TidemixApi)"
cmake -S tests/install -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/tidemix-consumer" sim
env -u TIDEMIX_PLATFORM "$work/cmake/tidemix-consumer"

echo "-- pkg-config TidemixApi"
# shellcheck disable=SC2046
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
# shellcheck disable=SC2086
g++ $flags tests/install/consumer.cpp -o "$work/pc-consumer" \
  $(pkg-config --cflags --libs TidemixApi) -Wl,-rpath,"$libdir"
"$work/pc-consumer" sim
echo "install check passed"
