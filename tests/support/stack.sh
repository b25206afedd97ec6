# stack.sh - sourced by the shell tests: a simulated modem and an AT server in a run directory,
# started in the background and stopped again, the server first (it removes its queues and pid
# file on SIGTERM).
#   start_stack RUN_DIR SCENARIO SIM_COMMAND... -- SERVER_COMMAND...
# runs SIM_COMMAND --scenario SCENARIO --link RUN_DIR/modem, then SERVER_COMMAND --device
# RUN_DIR/modem --foreground, with ATAPI_RUN_DIR=RUN_DIR (kept for what the caller runs next),
# and returns when the server has written its pid file. stop_stack stops what it started.
stack_pids=()

stop_stack() {
    local i
    for ((i = ${#stack_pids[@]} - 1; i >= 0; i--)); do
        kill "${stack_pids[i]}" 2>/dev/null || true
        wait "${stack_pids[i]}" 2>/dev/null || true
    done
    stack_pids=()
}

# stack_wait -e|-s PATH: until the modem's link exists, or the pid file has the pid in it.
stack_wait() {
    local i
    for i in $(seq 200); do test "$1" "$2" && return 0; sleep 0.05; done
    echo "$2 did not appear" >&2
    return 1
}

start_stack() {
    local dir=$1 scenario=$2 sim=() server=()
    shift 2
    while [ $# -gt 0 ] && [ "$1" != -- ]; do sim+=("$1"); shift; done
    shift
    server=("$@")
    export ATAPI_RUN_DIR=$dir
    "${sim[@]}" --scenario "$scenario" --link "$dir/modem" >/dev/null &
    stack_pids+=($!)
    stack_wait -e "$dir/modem" || return 1
    "${server[@]}" --device "$dir/modem" --foreground &
    stack_pids+=($!)
    stack_wait -s "$dir/pidfile/atserver.pid"
}
