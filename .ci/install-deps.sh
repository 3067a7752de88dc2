#!/bin/bash
# Installs the tools this project needs, and only those that are missing, so
# a machine that already has them pays nothing.
#   .ci/install-deps.sh          everything the test suite needs
#   .ci/install-deps.sh --run    only what building and running the runner needs
#   .ci/install-deps.sh --print [--run]   lists the packages instead
set -euo pipefail

run_packages=(g++ cmake ninja-build)
test_packages=(
  googletest libgtest-dev libbenchmark-dev valgrind
  clang-14 libclang-rt-14-dev
  g++-aarch64-linux-gnu qemu-user
  tzdata iproute2
)

mode=test
print=
for arg in "$@"; do
  case $arg in
    --run) mode=run ;;
    --print) print=1 ;;
    *) echo "usage: $0 [--run] [--print]" >&2; exit 2 ;;
  esac
done
wanted=("${run_packages[@]}")
[ "$mode" = test ] && wanted+=("${test_packages[@]}")
if [ -n "$print" ]; then
  echo "${wanted[*]}"
  exit 0
fi

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
