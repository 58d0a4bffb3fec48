#!/bin/bash
# inspircd-fixture.sh: start or stop a throwaway InspIRCd 3 on 127.0.0.1 for end-to-end tests:
# a plain and a TLS client port, TLS with a certificate for irc.test / 127.0.0.1 made at start
# (also its own CA). Verified on Debian 12 with inspircd 3.15.0-1, as root and as nobody.
#
#   eval "$(inspircd-fixture.sh start)"  -> IRCD_DIR IRCD_PORT IRCD_TLSPORT IRCD_LINKPORT IRCD_PID IRCD_CERT
#   inspircd-fixture.sh stop "$IRCD_DIR"  (also stops a SERVICES_PID listed in $IRCD_DIR/fixture.pids)
# Environment (all optional):
#   IRCD_PINGFREQ       seconds between server PINGs, also the ping timeout (default 120)
#   IRCD_NETWORK        the network name the server announces (default QuenvarTest)
#   IRCD_STOCK_FLOOD=1  InspIRCd's stock flood limits: a fast sender is fake-lagged and, past its
#                       receive queue (8 KiB), killed
#   IRCD_PORTS="P T"    plain and TLS port for the first attempt (0: any free port); when one is
#                       taken the next attempts use free ones
#   IRCD_FRAGMENT       a config file appended to inspircd.conf.in; it may bind @LINKPORT@ (a free
#                       port, then awaited too) and use @LINKPASS@ (IRCD_LINKPASS)
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
IRCD_BIN=${IRCD_BIN:-/usr/sbin/inspircd}
source "$HERE/fixture-lib.sh"

start() {
    [ -x "$IRCD_BIN" ] || { echo "inspircd-fixture: $IRCD_BIN missing (apt-get install inspircd)" >&2; return 1; }
    local dir; dir=$(mktemp -d "${TMPDIR:-/tmp}/inspircd-fixture.XXXXXX")
    chmod 755 "$dir"
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "/CN=irc.test" \
        -addext "subjectAltName=DNS:irc.test,IP:127.0.0.1" -keyout "$dir/key.pem" -out "$dir/cert.pem" 2>/dev/null
    cp "$HERE/motd.txt" "$dir/motd.txt"
    local runas=(); [ "$(id -u)" = 0 ] && runas=(--runasroot)
    local attempt port tlsport linkport first pid ok=""
    for attempt in 1 2 3 4 5; do
        read -r port tlsport linkport < <(free_ports 3)
        if [ "$attempt" = 1 ] && [ -n "${IRCD_PORTS:-}" ]; then
            read -r -a first <<< "$IRCD_PORTS"
            [ "${first[0]:-0}" = 0 ] || port=${first[0]}
            [ "${first[1]:-0}" = 0 ] || tlsport=${first[1]}
        fi
        { cat "$HERE/inspircd.conf.in"; [ -z "${IRCD_FRAGMENT:-}" ] || { echo; cat "$IRCD_FRAGMENT"; }; } |
            sed -e "s#@DIR@#$dir#g" -e "s#@PORT@#$port#g" -e "s#@TLSPORT@#$tlsport#g" \
                -e "s#@LINKPORT@#$linkport#g" -e "s#@LINKPASS@#${IRCD_LINKPASS:-}#g" \
                -e "s#@PINGFREQ@#${IRCD_PINGFREQ:-120}#g" -e "s#network=\"QuenvarTest\"#network=\"${IRCD_NETWORK:-QuenvarTest}\"#" \
                > "$dir/inspircd.conf"
        if [ "${IRCD_STOCK_FLOOD:-}" = 1 ]; then
            sed -i -e 's/recvq="1M"/recvq="8192"/' \
                -e 's/threshold="1000000" commandrate="1000000" fakelag="no"/threshold="10" commandrate="1000" fakelag="yes"/' \
                "$dir/inspircd.conf"
        fi
        grep -q "@LINKPORT@" "$HERE/inspircd.conf.in" ${IRCD_FRAGMENT:+"$IRCD_FRAGMENT"} || linkport=""
        : > "$dir/ircd.log"
        # --nofork: $! is the daemon. ulimit -c 0: no core file from InspIRCd's crash at exit.
        ( cd "$dir" && ulimit -c 0 && exec "$IRCD_BIN" --config "$dir/inspircd.conf" --nofork "${runas[@]}" ) \
            </dev/null >"$dir/stdout.log" 2>&1 &
        pid=$!
        disown "$pid"   # no "Segmentation fault" job report from this shell when it stops InspIRCd itself
        local t0=$SECONDS; ok=""
        while [ $((SECONDS - t0)) -lt 10 ]; do
            if ! alive "$pid"; then
                echo "inspircd-fixture: inspircd exited during start-up; its output:" >&2
                cat "$dir/stdout.log" >&2; rm -rf "$dir"; return 1
            fi
            if grep -q "Failed to listen" "$dir/ircd.log"; then ok=retry; break; fi
            if listens "$port" && listens "$tlsport" && { [ -z "$linkport" ] || listens "$linkport"; } &&
               grep -q "Startup complete" "$dir/ircd.log" && accepts "$port" && accepts "$tlsport"; then ok=yes; break; fi
            sleep 0.01
        done
        [ "$ok" = yes ] && break
        kill -KILL "$pid" 2>/dev/null || true   # lost a port race: retry
    done
    if [ "$ok" != yes ]; then
        echo "inspircd-fixture: could not start inspircd; its output:" >&2
        cat "$dir/stdout.log" "$dir/ircd.log" >&2; rm -rf "$dir"; return 1
    fi
    printf 'IRCD_PID=%s\n' "$pid" > "$dir/fixture.pids"
    printf 'IRCD_DIR=%s\nIRCD_PORT=%s\nIRCD_TLSPORT=%s\nIRCD_LINKPORT=%s\nIRCD_PID=%s\nIRCD_CERT=%s\n' \
        "$dir" "$port" "$tlsport" "$linkport" "$pid" "$dir/cert.pem"
    watch_owner "$HERE/inspircd-fixture.sh" "$dir"
}

listens() { grep -q "Added a listener on 127.0.0.1:$1 " "$dir/ircd.log"; }

stop() {
    local dir=${1:?usage: inspircd-fixture.sh stop IRCD_DIR}
    if [ -f "$dir/fixture.pids" ]; then
        # Services first: stopped after InspIRCd, Anope keeps retrying the uplink.
        stop_pid "$(sed -n 's/^SERVICES_PID=//p' "$dir/fixture.pids")" anope
        stop_pid "$(sed -n 's/^IRCD_PID=//p' "$dir/fixture.pids")" inspircd
    fi
    rm -rf "$dir"
}

case "${1:-}" in
    start) start ;;
    stop) stop "${2:-}" ;;
    *) echo "usage: $0 start | stop IRCD_DIR" >&2; exit 2 ;;
esac
