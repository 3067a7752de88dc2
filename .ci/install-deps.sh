#!/bin/bash
# Installs the tools this project needs, and only those that are missing, so
# a machine that already has them pays nothing.
#   .ci/install-deps.sh          everything the test suite needs
#   .ci/install-deps.sh --run    only what building and running the runner needs
#   .ci/install-deps.sh --print [--run]   lists the packages instead
set -euo pipefail

run_packages=(g++ cmake ninja-build pkg-config libcpp-httplib-dev)
test_packages=(
  googletest libgtest-dev libbenchmark-dev valgrind
  clang-14 libclang-rt-14-dev clang-format-16
  g++-aarch64-linux-gnu qemu-user
  tzdata iproute2 curl
)
# The engine the fleet test scrapes with, and the unit checker: the tests
# that need them skip (saying so) when they cannot be installed.
optional_packages=(prometheus prometheus-node-exporter systemd)

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
optional=()
if [ "$mode" = test ]; then
  wanted+=("${test_packages[@]}")
  optional=("${optional_packages[@]}")
fi
if [ -n "$print" ]; then
  echo "${wanted[*]} ${optional[*]}"
  exit 0
fi

missing_of() {
  local pkg
  for pkg in "$@"; do
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || echo "$pkg"
  done
}
mapfile -t missing < <(missing_of "${wanted[@]}")
mapfile -t missing_optional < <(missing_of "${optional[@]}")
[ ${#missing[@]} -eq 0 ] && [ ${#missing_optional[@]} -eq 0 ] && exit 0

export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
for pkg in "${missing_optional[@]}"; do
  apt-get install -y -qq --no-install-recommends "$pkg" >/dev/null 2>&1 ||
    echo "could not install $pkg; the tests that need it will skip"
done
