#!/bin/sh
# with-keyring.sh COMMAND...: runs COMMAND on a private session bus with a
# throw-away, unlocked gnome-keyring (no prompt), in private HOME and XDG
# folders, so the real keyring and settings stay untouched. Exit 77 (skip)
# when the tools are missing.
set -eu
for t in dbus-run-session dbus-send gnome-keyring-daemon; do
    command -v $t >/dev/null || { echo "with-keyring: no $t, skipping" >&2; exit 77; }
done
T=$(mktemp -d "${TMPDIR:-/tmp}/quenvar-keyring.XXXXXX")
trap 'rm -rf "$T"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
mkdir -m 700 "$T/run"
export HOME="$T" XDG_DATA_HOME="$T/data" XDG_CONFIG_HOME="$T/config" XDG_CACHE_HOME="$T/cache" XDG_RUNTIME_DIR="$T/run"
unset GNOME_KEYRING_CONTROL DBUS_SESSION_BUS_ADDRESS DISPLAY WAYLAND_DISPLAY
dbus-run-session -- sh -c '
  printf %s test-pw | gnome-keyring-daemon --foreground --unlock --components=secrets >/dev/null 2>&1 &
  gkd=$!; n=0
  until dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.GetNameOwner string:org.freedesktop.secrets >/dev/null 2>&1; do
    n=$((n+1)); [ $n -le 500 ] || { echo "with-keyring: no daemon" >&2; kill $gkd; exit 1; }; sleep 0.01; done
  rc=0; "$@" || rc=$?
  kill $gkd 2>/dev/null; wait $gkd 2>/dev/null || true
  exit $rc' with-keyring "$@"
