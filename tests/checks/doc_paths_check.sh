#!/usr/bin/env bash
# Fails when the README or a page under docs/ names a tree path (in
# backticks) that matches no file: the maps must stay true.
#   doc_paths_check.sh ROOT
set -uo pipefail
cd "$1" || exit 2
shopt -s nullglob extglob
bad=0
while IFS=: read -r doc path; do
  case "$path" in *'<'*|*' '*) continue ;; esac
  # shellcheck disable=SC2086 # the path may hold a glob or braces on purpose
  matches=($(eval "echo ${path}"))
  if [ ! -e "${matches[0]:-/nonexistent}" ]; then
    echo "$doc names $path, which does not exist"
    bad=1
  fi
done < <(grep -o -E '`(safec|os|plugin|tools|tests|bench|fuzz|exports|docs|cmake|\.ci)/[^`]*`' README.md docs/*.md | tr -d '`')
exit $bad
