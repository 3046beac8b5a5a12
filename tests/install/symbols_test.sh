#!/bin/bash
# symbols_test.sh LIBRARY LIST [--record]: compares what the library exports with the list. A symbol
# that goes breaks clients; one that comes is a promise. With --record the list is written anew.
set -euo pipefail
export LC_ALL=C

library=$1
list=$2

symbols=$(nm -DC --defined-only "$library" | cut -c20- | grep -vx ZAM_1 | sort)
if foreign=$(grep -v '@@ZAM_1$' <<<"$symbols"); then
    printf '%s exports symbols without the version ZAM_1:\n%s\n' "$library" "$foreign" >&2
    exit 1
fi
symbols=${symbols//@@ZAM_1/}
if [[ ${3:-} == --record ]]; then
    echo "$symbols" >"$list"
    exit
fi
if ! diff -u --label recorded --label exported "$list" - <<<"$symbols" >&2; then
    echo "What $(basename "$library") exports has changed. If that is meant:" >&2
    echo "  $0 $library $list --record" >&2
    exit 1
fi
