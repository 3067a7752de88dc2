#!/usr/bin/env bash
# Sets up, builds, and runs the main job: the host runner loading the plug-in
# the way the agent does, on its built-in default configuration.
#   ./run.sh              run until interrupted (Ctrl-C)
#   ./run.sh --once       one round
#   ./run.sh call GetSysMemory      any runner arguments pass through
set -euo pipefail
cd "$(dirname "$0")"
bash .ci/install-deps.sh >/dev/null
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build -j "${JOBS:-2}" zadi_runner zadi_linux_plugin zadi_agent_sub >/dev/null
exec build/tools/runner/zadi_runner "$@"
