#!/usr/bin/env bash
# Installs the Debian packages that building and testing need, when one of them is missing.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git
  libfmt-dev libspdlog-dev libasio-dev nlohmann-json3-dev libcli11-dev libxxhash-dev
  libssl-dev libsimdjson-dev libdeflate-dev
  libgtest-dev libgmock-dev zlib1g-dev
)
if [ "${1:-}" = --with-checks ]; then
  packages+=(
    clang-14 clang-tidy-14 clang-format-14 libclang-rt-14-dev clang
    abigail-tools doxygen dpkg-dev file openssl
  )
fi

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  sudo=(sudo)
fi
echo "installing: ${missing[*]}" >&2
"${sudo[@]}" apt-get update -qq >&2
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends \
  "${missing[@]}" >&2
