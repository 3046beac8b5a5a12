#!/usr/bin/env bash
# Fails when a source file is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."

echo "== format"
git ls-files -z '*.h' '*.cpp' | xargs -0 clang-format-14 --dry-run --Werror
