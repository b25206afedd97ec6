#!/usr/bin/env bash
# One-command demo: builds atctl, the AT server and the modem simulator, starts the simulator
# and the server in a private run directory, shows `atctl status` against them, and stops both.
#   scripts/demo.sh                 the summary
#   scripts/demo.sh signal --json   any atctl arguments instead of "status"
# Installs what a fresh Debian 12 machine lacks with apt-get. Build directory: build-demo/, or
# the already configured build directory that ATAPI_DEMO_BUILD names.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${ATAPI_DEMO_BUILD:-$top/build-demo}

source "$top/scripts/ensure_packages.sh"
ensure_packages cmake ninja-build g++ libsqlite3-dev

# Only the three programs: no tests, no benchmarks, so GoogleTest is not needed. A build
# directory configured before keeps its own options.
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$top" -B "$build" -G Ninja -DATAPI_TESTS=OFF -DATAPI_BENCH=OFF >/dev/null
fi
ninja -C "$build" atctl atserver modemsim >/dev/null

# A cross build's programs run through the emulator launchers that build made for them.
program() {
    if [ -x "$build/emulated/${1##*/}" ]; then echo "$build/emulated/${1##*/}"; else echo "$build/$1"; fi
}

run_dir=$(mktemp -d /tmp/atapi-demo-XXXXXX)
sim_pid=""
server_pid=""
stop() {
    # The server first: it removes its queues and pid file on SIGTERM.
    for pid in "$server_pid" "$sim_pid"; do
        if [ -n "$pid" ]; then
            kill "$pid" 2>/dev/null || true
            wait "$pid" 2>/dev/null || true
        fi
    done
    rm -rf "$run_dir"
}
trap stop EXIT
trap 'exit 130' INT TERM
export ATAPI_RUN_DIR=$run_dir

"$(program sim/modemsim)" --link "$run_dir/modem" >/dev/null &
sim_pid=$!
for _ in $(seq 100); do [ -e "$run_dir/modem" ] && break; sleep 0.05; done
[ -e "$run_dir/modem" ] || { echo "demo: modemsim did not start" >&2; exit 1; }

"$(program server/atserver)" --device "$run_dir/modem" --foreground &
server_pid=$!
for _ in $(seq 100); do [ -s "$run_dir/pidfile/atserver.pid" ] && break; sleep 0.05; done
[ -s "$run_dir/pidfile/atserver.pid" ] || { echo "demo: atserver did not start" >&2; exit 1; }

echo "modemsim (pid $sim_pid) and atserver (pid $server_pid) in $run_dir"
echo "\$ atctl ${*:-status}"
status=0
"$(program tools/atctl)" "${@:-status}" || status=$?
exit "$status"
