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

# The section "Install and use": configure, build, install. A generator that the environment names
# would take the place of the one that a user gets.
unset CMAKE_GENERATOR
mapfile -t commands < <("$blocks" README.md "Install and use" sh | sed 's/ *#.*//')
[[ ${#commands[@]} == 3 ]] || fail "three commands were expected in README.md"
[[ ${commands[0]} == "cmake -S . -B build "* ]] || fail "the folder 'build' is not configured"
run "${commands[0]/-B build/-B $scratch/product}"
# cached NAME VALUE: what the configured folder holds.
cached() {
    grep -q "^$1:[A-Z]*=$2\$" "$scratch/product/CMakeCache.txt" || fail "$1 is not '$2'"
}
cached CMAKE_INSTALL_PREFIX /usr/local
# What the text says of it: optimised, hardened, without tests, and built whatever the compiler warns
# of.
cached CMAKE_BUILD_TYPE Release
cached ZAM_HARDEN ON
cached ZAM_BUILD_TESTS OFF
cached ZAM_WARNINGS ON
cached ZAM_WARNINGS_AS_ERRORS OFF
compiled=$(grep -F 'zam_data_provider_proxy.cpp.o -c' "$scratch/product/compile_commands.json")
for flag in -O3 -D_FORTIFY_SOURCE=3 -fstack-protector-strong; do
    grep -qe "$flag " <<<"$compiled" || fail "$flag is no flag of the product"
done
grep -qe '-Werror' <<<"$compiled" && fail "a warning ends the build"
# Of the product a library is built here, with the tool that CMake takes by itself.
[[ ${commands[1]} == "cmake --build build "* ]] || fail "nothing is built"
run "${commands[1]/--build build/--build $scratch/product --target zam_qel}"
[[ ${commands[2]} == "sudo cmake --install build" ]] || fail "nothing is installed"
[[ -e $scratch/product/cmake_install.cmake ]] || fail "nothing can be installed"

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
