#!/usr/bin/env bash
# Fails when docs/notification.md names a test that does not exist.
#
#   documented_tests.sh ROOT
set -euo pipefail
cd "$1"

missing=0
count=0
while IFS=. read -r suite name; do
  count=$((count + 1))
  if ! grep -rqE --include='*.cpp' "^(TEST|TEST_F|TEST_P|TYPED_TEST)\($suite, $name\)" tests; then
    echo "docs/notification.md names $suite.$name, which is no test" >&2
    missing=1
  fi
done < <(grep -oE '`[A-Z][A-Za-z]+\.[A-Z][A-Za-z]+`' docs/notification.md | tr -d '`' | sort -u)

if [ "$count" -lt 20 ]; then
  echo "only $count tests are named" >&2
  exit 1
fi
exit "$missing"
