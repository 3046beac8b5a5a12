#!/bin/bash
# document_test.sh DOCUMENT EXAMPLES: every program in the folder EXAMPLES stands in the document,
# behind a line that links to it, word for word.
set -euo pipefail

document=$1
examples=$2

failures=0
for example in "$examples"/*.cpp; do
  name=${example##*/}
  if ! diff -u --label "$document" --label "$name" "$example" <(
    awk -v link="/examples/testing/$name)" '
      index($0, link) { isNext = 1 }
      isIn && /^```$/ { exit }
      isIn            { print }
      isNext && /^```cpp$/ { isIn = 1 }
    ' "$document"
  ); then
    failures=$((failures + 1))
  fi
done
if [ "$failures" -ne 0 ]; then
  echo "$failures programs do not stand in $document as they do in $examples" >&2
  exit 1
fi
