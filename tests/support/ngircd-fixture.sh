#!/bin/bash
# ngircd-fixture.sh: start or stop a throwaway ngIRCd on 127.0.0.1 for end-to-end tests.
#   eval "$(ngircd-fixture.sh start)"   -> NGIRCD_DIR NGIRCD_PORT NGIRCD_PID
#   ngircd-fixture.sh stop "$NGIRCD_DIR"
# As root ngIRCd switches to user "nobody", so the folder is writable by everyone.
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
NGIRCD_BIN=${NGIRCD_BIN:-/usr/sbin/ngircd}
source "$HERE/fixture-lib.sh"

start() {
    [ -x "$NGIRCD_BIN" ] || { echo "ngircd-fixture: $NGIRCD_BIN missing (apt-get install ngircd)" >&2; return 1; }
    local dir attempt port pid
    dir=$(mktemp -d "${TMPDIR:-/tmp}/ngircd-fixture.XXXXXX")
    chmod 777 "$dir"
    printf 'Quenvar ngIRCd test MOTD\n' > "$dir/motd.txt"
    for attempt in 1 2 3 4 5; do
        port=$(free_ports 1)
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
                watch_owner "$HERE/ngircd-fixture.sh" "$dir"
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
    local dir=${1:?usage: ngircd-fixture.sh stop NGIRCD_DIR}
    [ -f "$dir/fixture.pids" ] && stop_pid "$(sed -n 's/^NGIRCD_PID=//p' "$dir/fixture.pids")" ngircd
    rm -rf "$dir"
}

case "${1:-}" in
    start) start ;;
    stop) stop "${2:-}" ;;
    *) echo "usage: $0 start | stop DIR" >&2; exit 2 ;;
esac
