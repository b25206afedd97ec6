#!/usr/bin/env bash
# Runs every libFuzzer target (clang, libFuzzer + ASan + UBSan) for the given number of seconds
# each, starting from its corpus in tests/fuzz/corpus/NAME/ when there is one.
#   scripts/fuzz.sh [seconds] [name...]      names without the fuzz_ prefix; default: all
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
secs=${1:-60}
shift || true

source "$top/scripts/ensure_packages.sh"
ensure_packages clang libclang-rt-14-dev cmake ninja-build libsqlite3-dev

CC=clang CXX=clang++ cmake -S "$top" -B "$top/build-fuzz" -G Ninja -DATAPI_FUZZ=ON -DATAPI_TESTS=OFF \
    -DATAPI_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
    for src in "$top"/tests/fuzz/fuzz_*.cpp; do
        base=$(basename "$src" .cpp)
        names+=("${base#fuzz_}")
    done
fi
ninja -C "$top/build-fuzz" "${names[@]/#/fuzz_}"
for name in "${names[@]}"; do
    work=$(mktemp -d)
    [ -d "$top/tests/fuzz/corpus/$name" ] && cp -r "$top/tests/fuzz/corpus/$name/." "$work/"
    echo "== fuzz_$name for $secs s"
    status=0
    "$top/build-fuzz/tests/fuzz_$name" -max_total_time="$secs" -rss_limit_mb=2048 -print_final_stats=1 "$work" || status=$?
    rm -rf "$work"
    [ "$status" -eq 0 ] || exit "$status"
done
