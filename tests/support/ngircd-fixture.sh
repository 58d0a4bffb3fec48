#!/bin/bash
# ngircd-fixture.sh: start or stop a throwaway ngIRCd on 127.0.0.1 for end-to-end tests.
#   eval "$(ngircd-fixture.sh start)"   -> NGIRCD_DIR NGIRCD_PORT NGIRCD_PID
#   ngircd-fixture.sh stop "$NGIRCD_DIR"
# As root ngIRCd switches to user "nobody", so the folder is writable by everyone.
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
NGIRCD_BIN=${NGIRCD_BIN:-/usr/sbin/ngircd}
PY=$(command -v /usr/bin/python3 || command -v python3)

free_port() {
    "$PY" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
accepts() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
alive() { kill -0 "$1" 2>/dev/null && ! grep -q '^State:[[:space:]]*Z' "/proc/$1/status" 2>/dev/null; }

# With FIXTURE_OWNER_PID set, everything started here is stopped once that
# process is gone, even when it dies without calling stop.
watch_owner() {
    [ -n "${FIXTURE_OWNER_PID:-}" ] || return 0
    local self
    self=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/$(basename "${BASH_SOURCE[0]}")
    ( while kill -0 "$FIXTURE_OWNER_PID" 2>/dev/null && [ -d "$1" ]; do sleep 1; done
      [ -d "$1" ] && "$self" stop "$1" ) </dev/null >/dev/null 2>&1 &
    disown $! 2>/dev/null || true
}

start() {
    [ -x "$NGIRCD_BIN" ] || { echo "ngircd-fixture: $NGIRCD_BIN missing (apt-get install ngircd)" >&2; return 1; }
    local dir attempt port pid
    dir=$(mktemp -d "${TMPDIR:-/tmp}/ngircd-fixture.XXXXXX")
    chmod 777 "$dir"
    printf 'Quenvar ngIRCd test MOTD\n' > "$dir/motd.txt"
    for attempt in 1 2 3 4 5; do
        port=$(free_port)
        sed -e "s#@DIR@#$dir#g" -e "s#@PORT@#$port#g" -e "s#@PINGFREQ@#${NGIRCD_PINGFREQ:-120}#g" \
            "$HERE/ngircd.conf.in" > "$dir/ngircd.conf"
        ( ulimit -c 0 && exec "$NGIRCD_BIN" --nodaemon --config "$dir/ngircd.conf" ) \
            </dev/null >"$dir/stdout.log" 2>&1 &
        pid=$!
        disown "$pid"
        local t0=$SECONDS
        while [ $((SECONDS - t0)) -lt 10 ] && alive "$pid"; do
            if accepts "$port"; then
                printf 'NGIRCD_PID=%s\n' "$pid" > "$dir/fixture.pids"
                printf 'NGIRCD_DIR=%s\nNGIRCD_PORT=%s\nNGIRCD_PID=%s\n' "$dir" "$port" "$pid"
                watch_owner "$dir"
                return 0
            fi
            sleep 0.01
        done
        kill -KILL "$pid" 2>/dev/null || true   # lost a port race, or it failed: retry
    done
    echo "ngircd-fixture: could not start ngircd; its output:" >&2
    cat "$dir/stdout.log" >&2
    rm -rf "$dir"
    return 1
}

stop() {
    local dir=${1:?usage: ngircd-fixture.sh stop NGIRCD_DIR} pid i
    if [ -f "$dir/fixture.pids" ]; then
        pid=$(sed -n 's/^NGIRCD_PID=//p' "$dir/fixture.pids")
        if alive "$pid"; then
            kill -TERM "$pid" 2>/dev/null || true
            for i in $(seq 1 500); do alive "$pid" || break; sleep 0.01; done
            alive "$pid" && kill -KILL "$pid" 2>/dev/null || true
        fi
    fi
    rm -rf "$dir"
}

case "${1:-}" in
    start) start ;;
    stop) stop "${2:-}" ;;
    *) echo "usage: $0 start | stop DIR" >&2; exit 2 ;;
esac
