#!/bin/bash
# code_block.sh DOCUMENT HEADING LANGUAGE [NUMBER]: prints a block of code of a document, the first
# or the NUMBER-th of that language beneath the heading. Fails when there is none.
set -euo pipefail

awk -v heading="$2" -v language="$3" -v number="${4:-1}" '
    !isCode && /^#+ / { isSection = $0; sub(/^#+ /, "", isSection); isSection = isSection == heading }
    isCode && /^```$/ { isCode = isWanted = 0; next }
    !isCode && /^```/ {
        isCode = 1
        isWanted = isSection && $0 == "```" language && ++count == number
        isFound = isFound || isWanted
        next
    }
    isWanted
    END { exit !isFound }
' "$1" || { echo "$1 has no block $3 ${4:-1} beneath '$2'" >&2; exit 1; }
