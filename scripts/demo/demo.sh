#!/usr/bin/env bash
# The offline demo behind `scripts/run --demo`: a throw-away InspIRCd on
# 127.0.0.1 at a free port, a few chatty peers in #quenvar (peer.py), and
# Quenvar connected to it with a settings folder of its own. Closing Quenvar
# (or interrupting this script) stops everything it started and removes the
# temporary folder.
#   scripts/demo/demo.sh QUENVAR [QUENVAR OPTIONS...]
# Needs the Debian packages inspircd and python3.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$here/../../tests/support/fixture-lib.sh"

quenvar=${1:?usage: demo.sh QUENVAR [QUENVAR OPTIONS...]}
shift
nick=guest
dir=$(mktemp -d "${TMPDIR:-/tmp}/quenvar-demo-XXXXXX")
ircd_pid='' peer_pid='' quenvar_pid=''

cleanup() {
    trap - EXIT INT TERM
    stop_pid "$quenvar_pid" quenvar
    stop_pid "$peer_pid" peer.py
    stop_pid "$ircd_pid" inspircd
    rm -rf "$dir"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

inspircd=$(PATH="$PATH:/usr/sbin:/sbin" command -v inspircd) || {
    echo "The demo needs InspIRCd: apt-get install inspircd" >&2
    exit 1
}

# A port already taken does not stop InspIRCd (it says so in its log and runs
# without it), so each attempt waits for its own word on the port.
start_server() {
    local attempt i args=(--config "$dir/inspircd.conf" --nofork)
    [ "$(id -u)" -eq 0 ] && args+=(--runasroot)
    cp "$here/motd.txt" "$dir/motd.txt"
    for attempt in 1 2 3; do
        port=$(free_ports 1)
        sed -e "s|@DIR@|$dir|g" -e "s|@PORT@|$port|g" "$here/inspircd.conf.in" >"$dir/inspircd.conf"
        : >"$dir/ircd.log"
        (ulimit -c 0; exec "$inspircd" "${args[@]}") >"$dir/inspircd.out" 2>&1 </dev/null &
        ircd_pid=$!
        for i in $(seq 1 1000); do
            if grep -q "Added a listener on 127.0.0.1:$port " "$dir/ircd.log" && accepts "$port"; then
                return 0
            fi
            grep -q "Failed to listen" "$dir/ircd.log" && break
            alive "$ircd_pid" || break
            sleep 0.02
        done
        stop_pid "$ircd_pid" inspircd
    done
    echo "The demo's IRC server did not start:" >&2
    cat "$dir/inspircd.out" "$dir/ircd.log" >&2
    return 1
}
start_server

# The server's record as the connect dialog would store it; --connect then
# connects at once and joins #quenvar.
mkdir -p "$dir/config/Quenvar"
id="127.0.0.1_$port"
cat >"$dir/config/Quenvar/Quenvar.conf" <<CONF
[connection]
history=127.0.0.1:$port

[servers]
customList=$id
$id\\address=127.0.0.1:$port
$id\\nickname=$nick
$id\\altnick=${nick}_
$id\\realname=Quenvar demo
$id\\authmethod=None
$id\\autojoin="#quenvar"
CONF

"$PY" "$here/peer.py" "$port" "$nick" "$dir/peers-ready" </dev/null &
peer_pid=$!
# Quenvar comes into a channel that is already set up.
for i in $(seq 1 750); do
    [ -e "$dir/peers-ready" ] && break
    alive "$peer_pid" || { echo "The demo's peers stopped." >&2; exit 1; }
    sleep 0.02
done

echo "Demo server on 127.0.0.1:$port; close Quenvar to stop it." >&2
"$quenvar" --config-dir "$dir/config" --connect "127.0.0.1:$port" "$@" </dev/null &
quenvar_pid=$!
# wait returns early when a signal arrives, so the traps run at once.
status=0
wait "$quenvar_pid" || status=$?
quenvar_pid=''
exit "$status"
