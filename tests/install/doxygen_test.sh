#!/bin/bash
# doxygen_test.sh SOURCE_FOLDER VERSION SCRATCH_FOLDER: doxygen reads the public headers without a
# warning.
set -euo pipefail

command -v doxygen >/dev/null || { echo "doxygen is not installed" >&2; exit 77; }
rm -rf "$3"
mkdir -p "$3"
cd "$1"
{
    cat docs/Doxyfile
    printf 'PROJECT_NUMBER = %s\nOUTPUT_DIRECTORY = %s\nWARN_LOGFILE =\n' "$2" "$3"
} | doxygen - >"$3/log" 2>"$3/warnings"
if [[ -s $3/warnings ]]; then
    sed "s|$PWD/||" "$3/warnings" >&2
    exit 1
fi
[[ -s $3/html/index.html ]]
