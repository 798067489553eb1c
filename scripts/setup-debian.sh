#!/usr/bin/env bash
# Installs everything the build, the tests, the benchmarks and the demo need on
# Debian 12. Safe to run again: apt skips what is there.
set -euo pipefail
packages=(
  build-essential cmake ninja-build pkg-config git
  libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev uuid-dev libsoxr-dev
  libsamplerate0-dev libboost-dev rapidjson-dev
  libpipewire-0.3-dev pipewire wireplumber dbus
  libusb-1.0-0-dev umockdev libumockdev-dev
  libsystemd-dev python3-dbusmock
  clang libclang-rt-14-dev
  locales
  zlib1g-dev dfu-util
  libgdk-pixbuf-2.0-dev libglib2.0-dev
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update
  apt-get install -y --no-install-recommends "${missing[@]}"
fi
