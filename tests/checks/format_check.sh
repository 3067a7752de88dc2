#!/usr/bin/env bash
# Fails when a tracked C or C++ file differs from what .clang-format makes of it.
set -uo pipefail
cd "$1" || exit 2
fmt=$(command -v clang-format-14 || command -v clang-format) || { echo "clang-format not found"; exit 2; }
mapfile -t files < <(git ls-files -- '*.c' '*.cpp' '*.h')
[ "${#files[@]}" -gt 0 ] || { echo "no sources listed (not a git checkout?)"; exit 2; }
"$fmt" --dry-run --Werror "${files[@]}"
