#!/bin/bash
# without_fast_channel_test.sh SOURCE_FOLDER BUILD_FOLDER SCRATCH_FOLDER: the client library that is
# built without the fast channel, as this build is otherwise, shares no memory with a service that
# offers it, whatever ZAM_SPIN says; zamctl tells so.
set -euo pipefail
. "${BASH_SOURCE%/*}/service.sh"

source=$1
build=$2
scratch=$3

fail() {
    printf '%s\n' "$@" >&2
    exit 1
}

# What is compiled in the same way comes out of the compiler cache.
options=()
while IFS='=' read -r name value; do
    options+=("-D${name%%:*}=$value")
done < <(grep -E '^(CMAKE_(BUILD_TYPE|CXX_COMPILER|CXX_COMPILER_LAUNCHER|CXX_FLAGS[A-Z_]*|(EXE|SHARED)_LINKER_FLAGS)|ZAM_(WARNINGS(_AS_ERRORS)?|HARDEN)):' \
    "$build/CMakeCache.txt")
mkdir -p "$scratch"
{ cmake -S "$source" -B "$scratch" -G Ninja "${options[@]}" -DZAM_FAST_CHANNEL=OFF &&
    ninja -C "$scratch" zam_platform; } >"$scratch/log" 2>&1 || fail "$(<"$scratch/log")"

start_service "$build/bin" "$scratch"
# zamctl of this build with the library of the other.
ping=$(ZAM_SPIN=50 LD_LIBRARY_PATH=$scratch/lib timeout 60 \
    "$build/bin/zamctl" --json --quiet ping --interval 0 --count 300)
for wanted in '"taken":false' '"calls":300' '"memory_calls":0' '"vain_polls":0' '"off_by":"build"'; do
    [[ $ping == *"$wanted"* ]] || fail "no $wanted: $ping"
done
doctor=$(ZAM_SPIN=50 LD_LIBRARY_PATH=$scratch/lib timeout 60 "$build/bin/zamctl" doctor) ||
    fail "$doctor"
[[ $doctor == *'ok       fast_channel  none: '* ]] || fail "$doctor"
