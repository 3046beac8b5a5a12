#!/bin/bash
# testing_package_test.sh SOURCE_FOLDER PREFIX SCRATCH_FOLDER: builds the examples of tests by
# themselves against the installed package and runs every one of them, with the commands of
# docs/testing-your-application.md.
set -euo pipefail

source=$1
prefix=$2
scratch=$3
document=docs/testing-your-application.md

rm -rf "$scratch"
mkdir -p "$scratch"
cd "$source"
commands=$("${BASH_SOURCE%/*}/code_block.sh" "$document" "Testing your application" sh)
if [[ $commands != *" build/testing"* ]]; then
    echo "$document builds in another folder than expected" >&2
    exit 1
fi
export CMAKE_PREFIX_PATH=$prefix
if ! bash -e -c "${commands//build\/testing/"$scratch"}" >"$scratch.log" 2>&1; then
    cat "$scratch.log" >&2
    exit 1
fi
count=$(cat examples/testing/*_test.cpp | grep -c '^TEST')
grep -F "100% tests passed, 0 tests failed out of $count" "$scratch.log"
