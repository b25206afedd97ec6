#!/usr/bin/env bash
# Cross-builds libatapi for the router's processor, 32-bit ARM hard-float Linux (armhf), and runs
# its test suite there under qemu-arm in user mode. Installs what a fresh Debian 12 machine lacks.
#   scripts/cross.sh                build, then the emulated suite
#   scripts/cross.sh --build        build only
#   scripts/cross.sh CTEST_ARG...   build, then the suite with these ctest arguments added, for
#                                   example -E 'test_e2e_load' to leave one suite out
#
# Builds (no benchmarks): build-armhf/ with cmake/toolchain-armhf.cmake; the x86_64 atserver,
# atctl and modemsim that the cross-architecture test pairs with the armhf ones, in build/ when
# scripts/test.sh configured it, else in build-demo/ as scripts/demo.sh does.
#
# The target's SQLite and GoogleTest are armhf packages unpacked into build-armhf-sysroot/, not
# installed: a multiarch install (libsqlite3-dev:armhf) needs the host's libc6-dev, libssl3 and
# linux-libc-dev at exactly the armhf packages' versions, and apt refuses it whenever the host has
# one of them at a version the armhf package lists do not offer (after a security update whose
# armhf half the mirror does not have yet, for example). The unpacked tree touches no host package.
#
# What runs under emulation: every test ctest knows, with these differences from x86_64 —
#  - Programs that a test starts itself (atserver, modemsim, atctl) run through launchers in
#    build-armhf/emulated/, since the host kernel cannot run an ARM program without binfmt_misc
#    (cmake/emulation.cmake); scripts/demo.sh uses them too.
#  - cross_arch: x86_64 and armhf ends on the same queues, both ways (tests/e2e/cross_arch.sh).
#  - install_consume builds its C consumer with the cross compiler and runs it under emulation.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build_only=false
[ "${1:-}" = --build ] && build_only=true

triplet=arm-linux-gnueabihf
build=$top/build-armhf
sysroot=$top/build-armhf-sysroot
target_packages=(libsqlite3-0 libsqlite3-dev libgtest-dev libgmock-dev)

source "$top/scripts/ensure_packages.sh"
ensure_packages cmake ninja-build g++ pkg-config libsqlite3-dev "gcc-$triplet" "g++-$triplet" qemu-user

if [ "$(cat "$sysroot/.packages" 2>/dev/null)" != "${target_packages[*]}" ]; then
    sudo_cmd=""
    [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
    if ! dpkg --print-foreign-architectures | grep -qx armhf; then
        $sudo_cmd dpkg --add-architecture armhf
    fi
    debs=$(mktemp -d)
    trap 'rm -rf "$debs"' EXIT
    download() {
        (cd "$debs" && apt-get download -qq -o APT::Sandbox::User="$(id -un)" "${target_packages[@]/%/:armhf}")
    }
    # No armhf lists yet, or lists older than the mirror: fetch them and try again. (A mirror in
    # mid-update fails one list or another; the download says whether the ones needed are there.)
    if ! apt-cache show "${target_packages[0]}:armhf" >/dev/null 2>&1 || ! download 2>/dev/null; then
        $sudo_cmd apt-get update -qq || true
        download
    fi
    rm -rf "$sysroot"
    for deb in "$debs"/*.deb; do dpkg-deb -x "$deb" "$sysroot"; done
    echo "${target_packages[*]}" >"$sysroot/.packages"
fi

peer=$top/build
if [ ! -f "$peer/CMakeCache.txt" ]; then
    peer=$top/build-demo
    [ -f "$peer/CMakeCache.txt" ] || cmake -S "$top" -B "$peer" -G Ninja -DATAPI_TESTS=OFF -DATAPI_BENCH=OFF >/dev/null
fi
ninja -C "$peer" atserver atctl modemsim >/dev/null

cmake -S "$top" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchain-armhf.cmake" \
    -DATAPI_ARMHF_SYSROOT="$sysroot" -DATAPI_BENCH=OFF -DATAPI_NATIVE_PEER_BUILD="$peer" >/dev/null
ninja -C "$build" -j"$(nproc)"
$build_only && exit 0

ctest --test-dir "$build" --output-on-failure -j2 "$@"
