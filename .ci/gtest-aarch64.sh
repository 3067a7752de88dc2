#!/bin/bash
# Builds GoogleTest from the distribution's sources for aarch64 into PREFIX,
# unless a previous run already installed it there.
#   .ci/gtest-aarch64.sh PREFIX
set -euo pipefail

prefix=${1:?usage: gtest-aarch64.sh PREFIX}
here=$(cd "$(dirname "$0")/.." && pwd)
toolchain=$here/cmake/aarch64-linux-gnu.cmake

if [ -f "$prefix/lib/cmake/GTest/GTestConfig.cmake" ] && [ -f "$prefix/lib/libgtest.a" ]; then
  exit 0
fi

build=$(mktemp -d)
trap 'rm -rf "$build"' EXIT
cmake -S /usr/src/googletest -B "$build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
  -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_INSTALL_PREFIX="$prefix" \
  -DCMAKE_INSTALL_LIBDIR=lib \
  -DBUILD_GMOCK=ON >/dev/null
cmake --build "$build" -j2 >/dev/null
cmake --install "$build" >/dev/null
echo "GoogleTest for aarch64 installed in $prefix"
