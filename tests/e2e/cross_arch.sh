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

source "$(dirname "$0")/../support/stack.sh"
scratch=$(mktemp -d /tmp/atapi-cross-XXXXXX)
trap 'stop_stack; rm -rf "$scratch"' EXIT

# The modem's clock is the only answer that moves between runs: stopped here, in a copy of the
# scenario beside the family files it includes.
cp "$(dirname "$scenario")"/*.scn "$scratch/"
sed -i -e 's|${clock}|2026/11/22,08:30:00|g' -e 's|${nwtime}|26/11/22,08:30:00|g' "$scratch"/*.scn
fixed=$scratch/$(basename "$scenario")

# answers SERVER CLIENT OUT: atctl's JSON status through SERVER, from CLIENT, and its exit status.
answers() {
    local run status=0
    run=$(mktemp -d "$scratch/run-XXXXXX")
    start_stack "$run" "$fixed" "$native/sim/modemsim" -- "$1"
    "$2" --json status --zone +32 >"$3" || status=$?
    stop_stack
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
