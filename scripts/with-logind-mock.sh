#!/usr/bin/env bash
# Runs a command against a mock logind on a private bus of its own, which the
# command sees as the system bus (DBUS_SYSTEM_BUS_ADDRESS); the machine's own
# system bus is never reached. Both processes it starts end with it.
#
#   bash scripts/with-logind-mock.sh CMD [ARGS...]
#
# The command also finds, for tests that take logind or the bus away:
#   TIDEMIX_LOGIND_MOCK_PID  the mock logind (python3-dbusmock)
#   TIDEMIX_TEST_BUS_PID     the private bus daemon
set -euo pipefail
work=$(mktemp -d)
bus_pid=""
mock_pid=""
cleanup() {
  if [ -n "$mock_pid" ]; then kill "$mock_pid" 2>/dev/null || true; fi
  if [ -n "$bus_pid" ]; then kill "$bus_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

# A session-type bus (anyone may own any name) listening in our folder only.
dbus-daemon --session --address="unix:dir=$work" --fork --nopidfile \
  --print-address=3 --print-pid=4 3>"$work/address" 4>"$work/pid"
address=$(head -n 1 "$work/address")
bus_pid=$(head -n 1 "$work/pid")
if [ -z "$address" ] || [ -z "$bus_pid" ]; then
  echo "with-logind-mock: the private bus did not start" >&2
  exit 1
fi
export DBUS_SYSTEM_BUS_ADDRESS=$address
# Nothing below may fall back to a session bus of the user's either.
export DBUS_SESSION_BUS_ADDRESS=$address
export TIDEMIX_TEST_BUS_PID=$bus_pid

# Debian's python3 explicitly: the first python3 on PATH may lack dbusmock.
/usr/bin/python3 -m dbusmock --template logind --system >"$work/mock.log" 2>&1 &
mock_pid=$!
export TIDEMIX_LOGIND_MOCK_PID=$mock_pid
owned=""
for _ in $(seq 1 400); do
  if busctl --address="$address" call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
    NameHasOwner s org.freedesktop.login1 2>/dev/null | grep -q true; then
    owned=yes
    break
  fi
  if ! kill -0 "$mock_pid" 2>/dev/null; then
    break
  fi
  sleep 0.05
done
if [ -z "$owned" ]; then
  echo "with-logind-mock: the mock logind did not come up:" >&2
  cat "$work/mock.log" >&2
  exit 1
fi

rc=0
"$@" || rc=$?
exit "$rc"
