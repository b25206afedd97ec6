#!/usr/bin/env bash
# Builds libatapi and runs the whole test suite. Installs what a fresh Debian 12 machine lacks.
#   scripts/test.sh              Release build (-O3) in build/, then ctest
#   scripts/test.sh --sanitize   AddressSanitizer + UBSan build in build-asan/, then ctest
#   scripts/test.sh --tsan       ThreadSanitizer build in build-tsan/, the concurrency tests
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
mode=${1:-normal}

source "$top/scripts/ensure_packages.sh"
ensure_packages cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev libsqlite3-dev \
    clang libclang-rt-14-dev

case "$mode" in
    normal)     dir=build;      opts=(-DCMAKE_BUILD_TYPE=Release) ;;
    --sanitize) dir=build-asan; opts=(-DATAPI_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug -DATAPI_BENCH=OFF) ;;
    --tsan)     dir=build-tsan; opts=(-DATAPI_TSAN=ON -DCMAKE_BUILD_TYPE=Debug -DATAPI_BENCH=OFF) ;;
    *) echo "usage: $0 [--sanitize|--tsan]" >&2; exit 2 ;;
esac

cmake -S "$top" -B "$top/$dir" -G Ninja "${opts[@]}" >/dev/null
ninja -C "$top/$dir" -j"$(nproc)"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1}
filter=()
[ "$mode" = --tsan ] && filter=(-L concurrency)
ctest --test-dir "$top/$dir" --output-on-failure -j2 "${filter[@]}"
