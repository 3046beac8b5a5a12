#!/usr/bin/env bash
# Runs clang-tidy over every source file of the product, with the compile commands of the tsan
# build, which uses clang.
set -euo pipefail
cd "$(dirname "$0")/.."

echo "== lint"
git ls-files -z '*.cpp' ':!tests' ':!benchmarks' |
  xargs -0 -n 1 -P "$(nproc)" clang-tidy-14 -p build/tsan --quiet 2> >(grep -v "warnings generated" >&2)
