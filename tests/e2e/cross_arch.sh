#!/usr/bin/env bash
# One run directory's queues, served and called from two architectures: an x86_64 atserver with
# an armhf atctl, and an armhf atserver with an x86_64 atctl. Each pair must answer exactly as the
# x86_64 pair does, which holds only if both builds put the same bytes on the queues.
#   cross_arch.sh NATIVE_BUILD EMULATED_DIR SCENARIO
# NATIVE_BUILD holds server/atserver, sim/modemsim and tools/atctl of the x86_64 build;
# EMULATED_DIR the cross build's launchers atserver and atctl, which run them under the emulator.
# The simulated modem is the x86_64 one throughout: only the queue's two ends change.
set -euo pipefail
native=$1 emulated=$2 scenario=$3

scratch=$(mktemp -d /tmp/atapi-cross-XXXXXX)
pids=()
stop_all() {
    # The server first: it removes its queues and pid file on SIGTERM.
    local i
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
        kill "${pids[i]}" 2>/dev/null || true
        wait "${pids[i]}" 2>/dev/null || true
    done
    pids=()
}
trap 'stop_all; rm -rf "$scratch"' EXIT

# The modem's clock is the only answer that moves between runs: stopped here.
sed -e 's|${clock}|2026/11/22,08:30:00|g' -e 's|${nwtime}|26/11/22,08:30:00|g' "$scenario" >"$scratch/fixed.scn"

# wait_for -e|-s PATH: until the modem's link exists, or the pid file has the pid in it.
wait_for() {
    local i
    for i in $(seq 200); do test "$1" "$2" && return 0; sleep 0.05; done
    echo "$2 did not appear" >&2
    return 1
}

# answers SERVER CLIENT OUT: atctl's JSON status through SERVER, from CLIENT, and its exit status.
answers() {
    local run
    run=$(mktemp -d "$scratch/run-XXXXXX")
    export ATAPI_RUN_DIR=$run
    "$native/sim/modemsim" --scenario "$scratch/fixed.scn" --link "$run/modem" >/dev/null &
    pids+=($!)
    wait_for -e "$run/modem"
    "$1" --device "$run/modem" --foreground &
    pids+=($!)
    wait_for -s "$run/pidfile/atserver.pid"
    local status=0
    "$2" --json status --zone +32 >"$3" || status=$?
    stop_all
    echo "exit $status" >>"$3"
}

answers "$native/server/atserver" "$native/tools/atctl" "$scratch/reference"
if ! grep -q '"ok": true' "$scratch/reference" || [ "$(tail -n 1 "$scratch/reference")" != "exit 0" ]; then
    echo "the x86_64 pair itself failed:"
    cat "$scratch/reference"
    exit 1
fi

passed=0 failed=0
for pair in "x86_64 atserver, armhf atctl:$native/server/atserver:$emulated/atctl" \
            "armhf atserver, x86_64 atctl:$emulated/atserver:$native/tools/atctl"; do
    IFS=: read -r name server client <<<"$pair"
    answers "$server" "$client" "$scratch/got"
    if cmp -s "$scratch/reference" "$scratch/got"; then
        echo "ok: $name"
        passed=$((passed + 1))
    else
        echo "FAILED: $name answers differently from the x86_64 pair:"
        diff "$scratch/reference" "$scratch/got" || true
        failed=$((failed + 1))
    fi
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
