# Shared by the fixture scripts beside this file (source it): free ports,
# process checks and stopping, and stopping with the owner process.

PY=$(command -v /usr/bin/python3 || command -v python3)

free_ports() {  # N currently free TCP ports on 127.0.0.1 (tiny race: callers check the server's own word)
    "$PY" -c '
import socket, sys
s = [socket.socket() for _ in range(int(sys.argv[1]))]
for x in s: x.bind(("127.0.0.1", 0))
print(*(x.getsockname()[1] for x in s))' "$1"
}

accepts() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

alive() {  # running and not a zombie (kill -0 also succeeds on an unreaped zombie)
    kill -0 "$1" 2>/dev/null && ! grep -q '^State:[[:space:]]*Z' "/proc/$1/status" 2>/dev/null
}

stop_pid() {  # stop_pid PID NAME: SIGTERM, wait up to 5 s, then SIGKILL
    local pid=$1 name=$2 i
    [ -n "$pid" ] && alive "$pid" && grep -qa "$name" "/proc/$pid/cmdline" 2>/dev/null || return 0
    kill -TERM "$pid" 2>/dev/null || true
    for i in $(seq 1 500); do alive "$pid" || return 0; sleep 0.01; done
    kill -KILL "$pid" 2>/dev/null || true
    for i in $(seq 1 100); do alive "$pid" || return 0; sleep 0.02; done
}

# watch_owner SCRIPT DIR: with FIXTURE_OWNER_PID set, `SCRIPT stop DIR` runs
# once that process is gone, even when it dies without calling stop.
watch_owner() {
    [ -n "${FIXTURE_OWNER_PID:-}" ] || return 0
    ( while kill -0 "$FIXTURE_OWNER_PID" 2>/dev/null && [ -d "$2" ]; do sleep 1; done
      [ -d "$2" ] && "$1" stop "$2" ) </dev/null >/dev/null 2>&1 &
    disown $! 2>/dev/null || true
}
