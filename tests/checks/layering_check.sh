#!/usr/bin/env bash
# Fails when a source file includes a header of a layer above its own.
# Layers, lowest first: safec < os/base < os/log < os/time < os/net <
# os/sysinfo < plugin. A quoted include names its header from the tree's
# root ("os/base/kira_io.h"), so its first path components give its layer.
#   layering_check.sh ROOT          check the tracked sources under ROOT
#   layering_check.sh --self-test   check that a planted upward include fails
set -uo pipefail

layers=(safec os/base os/log os/time os/net os/sysinfo plugin)

# Rank of the layer a path lies in, empty when it lies in none.
rank_of() {
  local i
  for i in "${!layers[@]}"; do
    case "$1" in "${layers[$i]}"/*) echo "$i"; return ;; esac
  done
}

check_tree() {
  cd "$1" || return 2
  local files bad=0 file own header target
  if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    mapfile -t files < <(git ls-files -- "${layers[@]/%//}" | grep -E '\.(c|cpp|h)$')
  else
    mapfile -t files < <(find "${layers[@]}" -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) 2>/dev/null)
  fi
  [ "${#files[@]}" -gt 0 ] || { echo "no sources found under $1"; return 2; }
  for file in "${files[@]}"; do
    own=$(rank_of "$file")
    while IFS= read -r header; do
      target=$(rank_of "$header")
      if [ -n "$target" ] && [ "$target" -gt "$own" ]; then
        echo "$file includes $header (${layers[$target]} is above ${layers[$own]})"
        bad=1
      fi
    done < <(sed -n -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"([^"]+)".*/\1/p' "$file")
  done
  return "$bad"
}

if [ "${1:-}" = "--self-test" ]; then
  tmp=$(mktemp -d) || exit 2
  trap 'rm -rf "$tmp"' EXIT
  mkdir -p "$tmp/os/base" "$tmp/os/log"
  printf '#include "os/base/a.h"\n' >"$tmp/os/log/ok.cpp"
  printf '#include "os/base/a.h"\n' >"$tmp/os/base/a.h"
  (check_tree "$tmp" >/dev/null) || { echo "a downward include was refused"; exit 1; }
  printf '#include "os/log/dbg_log.h"\n' >"$tmp/os/base/up.cpp"
  out=$(check_tree "$tmp") && { echo "an upward include was let through"; exit 1; }
  [ "$out" = "os/base/up.cpp includes os/log/dbg_log.h (os/log is above os/base)" ] || { echo "unexpected: $out"; exit 1; }
  exit 0
fi
check_tree "${1:?usage: layering_check.sh ROOT | --self-test}"
