#!/usr/bin/env bash
# Installs the libraries that the benchmarks compare with, when one of them is missing. What cannot
# be had is left out of the measurements.
set -euo pipefail
cd "$(dirname "$0")/.."

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  sudo=(sudo)
fi

for package in libprotobuf-dev libmsgpack-cxx-dev libgrpc++-dev protobuf-compiler-grpc; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed'; then
    echo "installing: $package" >&2
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends \
      "$package" >&2 || echo "left out: $package" >&2
  fi
done

# Boost.JSON came with a later Boost than Debian's default one, and the two development packages
# cannot be installed together: its headers go into a folder of the build.
peers=build/peers
if [ ! -e "$peers/usr/include/boost/json.hpp" ]; then
  echo "fetching: Boost.JSON" >&2
  mkdir -p "$peers/download"
  (cd "$peers/download" && apt-get download -qq libboost1.81-dev >&2 &&
    dpkg-deb --fsys-tarfile libboost1.81-dev_*.deb | tar -x -C .. ./usr/include/boost) ||
    echo "left out: Boost.JSON" >&2
  rm -rf "$peers/download"
fi
