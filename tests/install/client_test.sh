#!/bin/bash
# client_test.sh cmake|pkg-config COMPILER STANDARD PREFIX LIBDIR SCRATCH_FOLDER: builds a client of
# the installed package and runs it against the installed service.
set -euo pipefail
. "${BASH_SOURCE%/*}/service.sh"

way=$1
compiler=$2
standard=$3
prefix=$4
libdir=$5
scratch=$6
client=$(dirname "$0")/client

if ! command -v "$compiler" >/dev/null; then
    echo "$compiler is not installed" >&2
    exit 77
fi
rm -rf "$scratch"
mkdir -p "$scratch"
case $way in
    cmake)
        cmake -S "$client" -B "$scratch" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
            -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_STANDARD="$standard" >"$scratch.log"
        cmake --build "$scratch" >>"$scratch.log" || { cat "$scratch.log" >&2; exit 1; }
        "$scratch/client_tests"
        "$scratch/client_service_tests"
        ;;
    pkg-config)
        export PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
        read -ra flags < <(pkg-config --cflags zam_connector)
        read -ra libraries < <(pkg-config --libs zam_connector)
        "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror \
            "${flags[@]}" "$client/main.cpp" -o "$scratch/client" "${libraries[@]}"
        ;;
esac

start_service "$prefix/bin" "$scratch"
"$scratch/client"
