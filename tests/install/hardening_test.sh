#!/bin/bash
# hardening_test.sh PREFIX LIBDIR: installed programs and libraries are mapped read-only where they
# can be (full RELRO: the table of imported functions is filled before main and then protected), and
# programs are placed at random (PIE).
set -euo pipefail

failed=0
count=0
for file in "$1"/bin/* "$2"/*.so; do
    count=$((count + 1))
    headers=$(readelf --wide --file-header --program-headers --dynamic "$file")
    for wanted in 'Type: +DYN' 'GNU_RELRO' 'FLAGS.*(BIND_NOW|NOW)'; do
        grep -qE -e "$wanted" <<<"$headers" || { echo "${file##*/}: no $wanted" >&2; failed=1; }
    done
    if [[ $file == */bin/* ]] && ! grep -qE 'FLAGS_1.*PIE' <<<"$headers"; then
        echo "${file##*/}: not position independent" >&2
        failed=1
    fi
done
[[ $count -ge 7 ]] || { echo "$count files only" >&2; exit 1; }
exit $failed
