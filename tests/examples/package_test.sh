#!/bin/bash
# package_test.sh EXAMPLES PREFIX SCRATCH_FOLDER: builds the folder of examples by itself, against
# the installed package, whose headers and libraries are all that they need.
set -euo pipefail

rm -rf "$3"
mkdir -p "$3"
if ! { cmake -S "$1" -B "$3" -G Ninja -DCMAKE_PREFIX_PATH="$2" && cmake --build "$3"; } \
    >"$3.log" 2>&1; then
    cat "$3.log" >&2
    exit 1
fi
# They find the libraries where these are installed.
output=$(ZAM_RUNTIME_DIR=/nowhere "$3/read_policy" 2>&1) && exit 1
grep -F "read_policy: cannot make a connector" <<<"$output"
