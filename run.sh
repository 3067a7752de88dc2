#!/usr/bin/env bash
# Sets up, builds, and runs the main job: the host runner loading the plug-in
# the way the agent does, on its built-in default configuration.
#   ./run.sh              run until interrupted (Ctrl-C)
#   ./run.sh --once       one round
#   ./run.sh call GetSysMemory      any runner arguments pass through
# Only what a plain run needs is installed; ./test.sh installs the rest.
set -euo pipefail
cd "$(dirname "$0")"
bash .ci/install-deps.sh --run >/dev/null
mkdir -p build
log=build/run.sh.log
if ! { cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo &&
       ninja -C build -j "${JOBS:-2}" zadi_runner zadi_linux_plugin zadi_agent_sub; } >"$log" 2>&1; then
  grep -E -A3 'error|Error|FAILED' "$log" | head -n 60 >&2 || tail -n 40 "$log" >&2
  echo "run.sh: the build failed; the whole log is in $log" >&2
  exit 1
fi
exec build/tools/runner/zadi_runner "$@"
