#!/usr/bin/env bash
# Fails when a tracked C or C++ file differs from what .clang-format makes of it
# (clang-format-16 from Debian: putting braces on every body needs 15 or later).
set -uo pipefail
cd "$1" || exit 2
fmt=$(command -v clang-format-16) || { echo "clang-format-16 not found (.ci/install-deps.sh installs it)"; exit 2; }
mapfile -t files < <(git ls-files -- '*.c' '*.cpp' '*.h')
[ "${#files[@]}" -gt 0 ] || { echo "no sources listed (not a git checkout?)"; exit 2; }
"$fmt" --dry-run --Werror "${files[@]}"
