#!/bin/bash
# abi_test.sh COMPILER INCLUDE_FOLDER RECORD_FOLDER SCRATCH_FOLDER [--record]: compares the layouts
# and virtual tables of all public types with those that are recorded. With --record they are
# written anew.
set -euo pipefail

compiler=$1
include=$2
record=$3
scratch=$4

for tool in abidw abidiff; do
    command -v $tool >/dev/null || { echo "$tool (package abigail-tools) is not installed" >&2; exit 77; }
done
if ! "$compiler" --version | grep '(GCC)\|g++' >/dev/null; then
    echo "recorded with g++; other compilers describe the same types differently" >&2
    exit 77
fi
if [[ $(uname -m) != x86_64 ]]; then
    echo "recorded on x86_64" >&2
    exit 77
fi

rm -rf "$scratch"
mkdir -p "$scratch"
echo '{ global: _Z7Witness*; local: *; };' >"$scratch/witness.map"
# Interfaces are described where their virtual tables are, unless told to be everywhere.
"$compiler" -std=c++17 -g -O1 -fPIC -shared -femit-class-debug-always \
    "-ffile-prefix-map=$record/=" -I "$include" \
    "-Wl,--version-script=$scratch/witness.map" "$record/witness.cpp" -o "$scratch/witness.so"
abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --type-id-style hash \
    --exported-interfaces-only --suppressions "$record/suppressions.ini" \
    --out-file "$scratch/zam_connector.abi" "$scratch/witness.so"
if [[ ${5:-} == --record ]]; then
    cp "$scratch/zam_connector.abi" "$record/zam_connector.abi"
    exit
fi
status=0
abidiff --suppressions "$record/suppressions.ini" "$record/zam_connector.abi" "$scratch/zam_connector.abi" \
    >"$scratch/report" || status=$?
if [[ $status -ne 0 ]]; then
    cat "$scratch/report" >&2
    echo "The binary interface has changed (abidiff: $status). If that is meant:" >&2
    echo "  $0 $1 $2 $3 $4 --record" >&2
    exit 1
fi
