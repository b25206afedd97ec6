#!/usr/bin/env bash
# An installed tree as a router daemon's build meets it: `cmake --install` into a scratch prefix;
# the libraries' SONAME; a C program built against the tree with pkg-config and again with
# find_package(atapi), each calling through the installed atserver and modemsim, started as the
# README tells; atctl from the tree; the systemd unit through systemd-analyze where that exists.
#   consume.sh BUILD_DIR CC LDFLAGS EMULATOR [CMAKE_ARG...]
# LDFLAGS and EMULATOR are single words lists, empty for a native build; the CMake arguments go to
# the consumer's configure (a toolchain file, for a cross build).
set -euo pipefail
build=$1 cc=$2
read -r -a ldflags <<<"$3"
read -r -a emu <<<"$4"
shift 4
here=$(cd "$(dirname "$0")" && pwd)

source "$here/../support/stack.sh"
scratch=$(mktemp -d /tmp/atapi-install-XXXXXX)
trap 'stop_stack; rm -rf "$scratch"' EXIT
fail() { echo "FAILED: $*"; exit 1; }

prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
pc=$(find "$prefix" -name atapi.pc)
[ -n "$pc" ] || fail "no atapi.pc installed"
export PKG_CONFIG_PATH=${pc%/*}
libdir=$(pkg-config --variable=libdir atapi)
major=$(pkg-config --modversion atapi | cut -d. -f1)
for lib in atapi atplatform; do
    readelf -d "$libdir/lib$lib.so" | grep -qF "Library soname: [lib$lib.so.$major]" \
        || fail "lib$lib.so has no SONAME lib$lib.so.$major"
done

# The README's lines, with the simulated modem in place of the real one.
mkdir "$scratch/run"
start_stack "$scratch/run" "$prefix/share/atapi/scenarios/default.scn" "${emu[@]}" "$prefix/bin/modemsim" \
    -- "${emu[@]}" "$prefix/sbin/atserver" --baud 115200 || fail "installed modemsim and atserver did not start"
"${emu[@]}" "$prefix/bin/atctl" status >"$scratch/atctl.out" || fail "installed atctl status: $(cat "$scratch/atctl.out")"

# shellcheck disable=SC2046  # pkg-config's output is meant to be split into words
"$cc" -Wall -Wextra -Werror $(pkg-config --cflags atapi) "$here/consumer.c" -o "$scratch/consumer-pc" \
    $(pkg-config --libs atapi) "${ldflags[@]}" -Wl,-rpath,"$libdir"
"${emu[@]}" "$scratch/consumer-pc" || fail "consumer built with pkg-config"

cmake -S "$here" -B "$scratch/consumer-cmake" -G Ninja -DCMAKE_C_COMPILER="$cc" -DCMAKE_PREFIX_PATH="$prefix" "$@" >/dev/null \
    || fail "configure of the find_package consumer"
cmake --build "$scratch/consumer-cmake" >/dev/null || fail "build of the find_package consumer"
"${emu[@]}" "$scratch/consumer-cmake/consumer" || fail "consumer built with find_package"

unit=$(find "$prefix" -name atserver.service)
[ -n "$unit" ] || fail "no atserver.service installed"
if command -v systemd-analyze >/dev/null; then
    systemd-analyze verify "$unit" || fail "systemd-analyze verify $unit"
fi
[ -f "$prefix/share/doc/libatapi/atserver.md" ] || fail "docs not installed"
echo "installed tree consumed through pkg-config and find_package"
