#!/usr/bin/env bash
# install_dependencies.sh [tests] [checks] [coverage]: installs the Debian packages that building
# the product needs, and those of the named tasks, when one of them is missing.
set -euo pipefail

packages=(
  g++ cmake make ninja-build pkg-config git
  libfmt-dev libasio-dev nlohmann-json3-dev libcli11-dev libxxhash-dev
  libssl-dev libsimdjson-dev libdeflate-dev
)
for task in "$@"; do
  case $task in
    tests)
      # The compilers of the house, what the tests of the package look at it with, and what makes
      # building fast.
      packages+=(
        libgtest-dev libgmock-dev zlib1g-dev clang clang-14 clang-format-14
        abigail-tools doxygen dpkg-dev file groff-base openssl python3 systemd binutils
        ccache mold
      )
      ;;
    checks) packages+=(clang-tidy-14 libclang-rt-14-dev python3) ;;
    coverage) packages+=(gcovr python3) ;;
    *)
      echo "install_dependencies.sh: no such task: $task" >&2
      exit 2
      ;;
  esac
done

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
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
  "${missing[@]}" >&2
