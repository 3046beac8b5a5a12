#!/bin/bash
# blocks_test.sh SOURCE_FOLDER: every block of code in README.md and docs stands in blocks.txt with
# what runs it, as do no others: "DOCUMENT|HEADING|LANGUAGE|HOW MANY|TESTS". Those of
# docs/zamctl.md are all run by Documents.ShowWhatZamctlPrints.
set -euo pipefail

list=$(realpath "${BASH_SOURCE%/*}")/blocks.txt
cd "$1"

documents=(README.md)
for document in docs/*.md; do
    [[ $document == docs/zamctl.md ]] || documents+=("$document")
done
diff -u --label "${list##*/}" --label documents <(cut -d '|' -f 1-4 "$list" | LC_ALL=C sort) <(
    awk '
        !isCode && /^#+ / { heading = $0; sub(/^#+ /, "", heading) }
        /^```/ {
            isCode = !isCode
            if (isCode) ++count[FILENAME "|" heading "|" substr($0, 4)]
        }
        END { for (block in count) print block "|" count[block] }
    ' "${documents[@]}" | LC_ALL=C sort
) >&2

missing=0
while read -r name; do
    if ! grep -rqw --include=CMakeLists.txt --include='*.cpp' "${name##*.}" tests; then
        echo "${list##*/} names $name, which is no test" >&2
        missing=1
    fi
done < <(cut -d '|' -f 5 "$list" | tr -d ' ' | tr ',' '\n' | grep -E '^[A-Z]|_' | sort -u)
exit "$missing"
