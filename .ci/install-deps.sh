#!/bin/bash
# Installs the build and test tools this project needs, and only those that
# are missing, so a machine that already has them pays nothing.
set -euo pipefail

wanted=(
  g++ cmake ninja-build
  googletest libgtest-dev libbenchmark-dev valgrind
  clang-14 libclang-rt-14-dev
  g++-aarch64-linux-gnu qemu-user
  tzdata iproute2
)

missing=()
for pkg in "${wanted[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$pkg")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
