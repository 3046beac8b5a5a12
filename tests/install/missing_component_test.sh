#!/bin/bash
# missing_component_test.sh PREFIX SCRATCH_FOLDER: find_package tells which component there is not.
set -euo pipefail

rm -rf "$2"
mkdir -p "$2"
cat >"$2/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.16)
project(client LANGUAGES CXX)
find_package(zam_connector REQUIRED COMPONENTS connector_proxy nothing_like_it)
END
if cmake -S "$2" -B "$2/build" -G Ninja -DCMAKE_PREFIX_PATH="$1" >"$2/log" 2>&1; then
    echo "a component that does not exist was found" >&2
    exit 1
fi
grep -q nothing_like_it "$2/log" || { cat "$2/log" >&2; exit 1; }
