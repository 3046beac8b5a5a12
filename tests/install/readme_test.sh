#!/bin/bash
# readme_test.sh README PREFIX LIBDIR SCRATCH_FOLDER: builds the example in the section "Install and
# use" with its CMakeLists.txt and with its two ways of using pkg-config, as they stand there but for
# the prefix, and runs all three.
set -euo pipefail
. "${BASH_SOURCE%/*}/service.sh"

readme=$1
prefix=$2
libdir=$3
scratch=$4

# block LANGUAGE [NUMBER]: a block of code of the section.
block() {
    "${BASH_SOURCE%/*}/../examples/code_block.sh" "$readme" "Install and use" "$@"
}

rm -rf "$scratch"
mkdir -p "$scratch/build" "$scratch/elsewhere"
block cmake >"$scratch/CMakeLists.txt"
block cpp >"$scratch/main.cpp"
cp "$scratch/main.cpp" "$scratch/elsewhere"
block sh 2 >"$scratch/build.sh"
block sh 3 | sed "s#/opt/zam/lib#$libdir#" >"$scratch/elsewhere/build.sh"

unset PKG_CONFIG_PATH LD_LIBRARY_PATH
(cd "$scratch" && PKG_CONFIG_PATH=$libdir/pkgconfig bash -e build.sh)
(cd "$scratch/elsewhere" && bash -e build.sh)
cmake -S "$scratch" -B "$scratch/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >"$scratch/log"
cmake --build "$scratch/build" >>"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }

start_service "$prefix/bin" "$scratch"
expect_state() {
    output=$("$@")
    [[ $output == "state 0" ]] || { echo "$* printed '$output'" >&2; exit 1; }
}
expect_state "$scratch/build/app"
expect_state "$scratch/elsewhere/app"
grep -qF 'LD_LIBRARY_PATH=/opt/zam/lib ./app' "$readme"
expect_state env LD_LIBRARY_PATH="$libdir" "$scratch/app"
if "$scratch/app" 2>/dev/null; then
    echo "the libraries are found without being looked for, so the test shows nothing" >&2
    exit 1
fi
