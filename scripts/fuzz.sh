#!/usr/bin/env bash
# Runs the reply-parser fuzzer (clang, libFuzzer + ASan + UBSan) for the given number of seconds.
#   scripts/fuzz.sh [seconds]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
secs=${1:-60}
CC=clang CXX=clang++ cmake -S "$top" -B "$top/build-fuzz" -G Ninja -DATAPI_FUZZ=ON -DATAPI_TESTS=OFF \
    -DATAPI_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C "$top/build-fuzz" fuzz_parse
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$top/tests/fuzz/corpus/." "$work/"
"$top/build-fuzz/tests/fuzz_parse" -max_total_time="$secs" -rss_limit_mb=2048 -print_final_stats=1 "$work"
