#!/usr/bin/env bash
# Runs a command beside a private, headless PipeWire: its own runtime folder,
# its own D-Bus session, pipewire with the Tidemix virtual devices, and
# wireplumber as the session manager. The command's exit code is returned;
# the daemons are stopped and the folder removed afterwards.
#
#   scripts/with-pipewire.sh ctest --preset asan -L platform_pipewire
#
# The command sees TIDEMIX_PIPEWIRE_PRIVATE=1, which tells the integration
# tests that they may create and remove nodes freely.
set -euo pipefail

if [ $# -eq 0 ]; then
  echo "usage: $0 <command> [arguments...]" >&2
  exit 2
fi

here="$(cd "$(dirname "$0")/.." && pwd)"
fragment="$here/platform/pipewire/tidemix-virtual-devices.conf"

for tool in pipewire wireplumber dbus-daemon pw-metadata; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "with-pipewire: $tool is not installed; running the command without PipeWire" >&2
    exec "$@"
  fi
done

work="$(mktemp -d /tmp/tidemix-pipewire.XXXXXX)"
runtime="$work/run"
config="$work/config"
state="$work/state"
mkdir -p "$runtime" "$config/pipewire/pipewire.conf.d" "$state"
chmod 700 "$runtime"
cp "$fragment" "$config/pipewire/pipewire.conf.d/"
# Clients here run without real-time scheduling on a machine others share:
# long cycles give them the slack a desktop's real-time threads don't need.
cat >"$config/pipewire/pipewire.conf.d/90-tidemix-test-clock.conf" <<'CONF'
context.properties = {
    default.clock.quantum     = 4096
    default.clock.min-quantum = 4096
}
CONF

pids=()
cleanup() {
  local pid
  # Stop in reverse order of start: session manager, daemon, bus.
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    pid="${pids[$i]}"
    kill "$pid" 2>/dev/null || true
    for _ in $(seq 50); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -9 "$pid" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

export XDG_RUNTIME_DIR="$runtime"
export XDG_CONFIG_HOME="$config"
# wireplumber remembers defaults and stream targets there: keep them private.
export XDG_STATE_HOME="$state"
# Nothing of the host's audio set-up may leak in.
unset PIPEWIRE_REMOTE PIPEWIRE_CONFIG_DIR PIPEWIRE_RUNTIME_DIR PULSE_SERVER
# A container has no real-time scheduling and no hardware; keep the logs quiet.
export PIPEWIRE_LOG_SYSTEMD=false
export DISABLE_RTKIT=1

# A private session bus: wireplumber wants one, and nothing of the host's.
bus_address="$(dbus-daemon --session --fork --nopidfile --print-address=1 --print-pid=3 \
  --address="unix:path=$runtime/bus" 3>"$work/bus.pid" 2>"$work/dbus.log" | head -n1)"
pids+=("$(cat "$work/bus.pid")")
export DBUS_SESSION_BUS_ADDRESS="$bus_address"
# The library's logind and RealtimeKit clients look at the system bus: point
# them at the private bus, where neither exists, never at the host's.
export DBUS_SYSTEM_BUS_ADDRESS="$bus_address"

pipewire >"$work/pipewire.log" 2>&1 &
pids+=("$!")
for _ in $(seq 100); do
  [ -S "$runtime/pipewire-0" ] && break
  sleep 0.1
done
if [ ! -S "$runtime/pipewire-0" ]; then
  echo "with-pipewire: pipewire did not start:" >&2
  cat "$work/pipewire.log" >&2
  exit 1
fi

wireplumber >"$work/wireplumber.log" 2>&1 &
pids+=("$!")
# Ready when the session manager has chosen a default output.
ready=0
for _ in $(seq 150); do
  if pw-metadata -n default 0 default.audio.sink 2>/dev/null | grep -q "value:"; then
    ready=1
    break
  fi
  sleep 0.1
done
if [ "$ready" -ne 1 ]; then
  echo "with-pipewire: wireplumber did not set a default output:" >&2
  cat "$work/wireplumber.log" >&2
  exit 1
fi

export TIDEMIX_PIPEWIRE_PRIVATE=1
rc=0
"$@" || rc=$?
exit "$rc"
