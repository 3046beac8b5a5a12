#!/bin/bash
# build_commands_test.sh SOURCE_FOLDER SCRATCH_FOLDER: the commands that README.md and
# docs/porting.md configure and build the project with. What they configure is configured, in a
# folder of the test's own; what is built from that, other tests build.
set -euo pipefail

source=$1
scratch=$2
blocks=${BASH_SOURCE%/*}/code_block.sh

rm -rf "$scratch"
mkdir -p "$scratch"
cd "$source"

fail() {
    echo "$@" >&2
    exit 1
}
run() {
    bash -e -c "$1" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; fail "$1 failed"; }
}

# The section "Install and use": configure, build, install.
mapfile -t commands < <("$blocks" README.md "Install and use" sh | sed 's/ *#.*//')
[[ ${#commands[@]} == 3 ]] || fail "three commands were expected in README.md"
[[ ${commands[0]} == "cmake --preset "* ]] || fail "no preset is configured"
run "${commands[0]} -B $scratch/release -DZAM_BUILD_BENCH=OFF" # which would take most of the time
grep -qx 'CMAKE_INSTALL_PREFIX:PATH=/usr/local' "$scratch/release/CMakeCache.txt" ||
    fail "the prefix is not taken"
[[ ${commands[1]} =~ ^'cmake --build --preset '([a-z]+)$ ]] || fail "no preset is built"
cmake --list-presets=build | grep -q "\"${BASH_REMATCH[1]}\"" || fail "there is no such preset"
# Nothing is built here, so what would be installed is asked for.
[[ ${commands[2]} == "sudo cmake --install build/release" ]] || fail "nothing is installed"
[[ -e $scratch/release/cmake_install.cmake ]] || fail "nothing can be installed"

# A platform of somebody else.
command=$("$blocks" docs/porting.md "Building against another platform" sh)
platform=$source/tests/install/other_platform
command=${command/build\/device/$scratch/device}
run "${command/\/path\/of\/the\/platform/$platform}"
grep -qx "ZAM_PLATFORM:STRING=$platform" "$scratch/device/CMakeCache.txt" ||
    fail "the platform is not taken"
# What its CMakeLists.txt holds, comments apart.
diff -u --label docs/porting.md --label "$platform/CMakeLists.txt" \
    <("$blocks" docs/porting.md "Building against another platform" cmake | sed 's/ *#.*//; /^$/d') \
    <(sed 's/ *#.*//; /^$/d' "$platform/CMakeLists.txt") >&2
