#!/bin/bash
# readme_test.sh README PREFIX LIBDIR SCRATCH_FOLDER: builds the example in the section "Install and
# use" with its CMakeLists.txt and with its pkg-config command, as they stand there, and runs both.
set -euo pipefail
. "${BASH_SOURCE%/*}/service.sh"

readme=$1
prefix=$2
libdir=$3
scratch=$4

# block LANGUAGE: the one block of code of that language in the section.
block() {
    sed -n '/^## Install and use/,/^## [^I]/p' "$readme" |
        sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/p" | grep -v '^```'
}

rm -rf "$scratch"
mkdir -p "$scratch/build"
block cmake >"$scratch/CMakeLists.txt"
block cpp >"$scratch/main.cpp"
block sh | grep 'pkg-config' >"$scratch/build.sh"

export PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
(cd "$scratch" && bash -e build.sh)
cmake -S "$scratch" -B "$scratch/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >"$scratch/log"
cmake --build "$scratch/build" >>"$scratch/log" || { cat "$scratch/log" >&2; exit 1; }

start_service "$prefix/bin" "$scratch"
for program in "$scratch/app" "$scratch/build/app"; do
    output=$("$program")
    [[ $output == "state 0" ]] || { echo "$program printed '$output'" >&2; exit 1; }
done
