#!/bin/bash
# platform_test.sh SOURCE_FOLDER PLATFORM_FOLDER SCRATCH_FOLDER: the project configures over a
# platform of somebody else, which makes zam_platform itself, and plans a library without the Linux
# parts and no service.
set -euo pipefail

rm -rf "$3"
mkdir -p "$3"
cmake -S "$1" -B "$3" -G Ninja -DZAM_PLATFORM="$2" -DZAM_BUILD_TESTS=OFF >"$3/log" 2>&1 ||
    { cat "$3/log" >&2; exit 1; }
targets=$(ninja -C "$3" -t targets all)
grep -q '^lib/libzam_connector_proxy' <<<"$targets"
grep -q 'other_platform\|foreign' <<<"$targets"
if grep -E 'platform/linux|zam_connectord:' <<<"$targets"; then
    echo "parts of the Linux platform are built" >&2
    exit 1
fi
ninja -C "$3" zam_platform >>"$3/log" || { cat "$3/log" >&2; exit 1; }
