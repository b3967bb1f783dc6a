#!/usr/bin/env bash
# The main job: builds the plugin and runs the stand-in host's draft demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh release -DQEL_TESTS=OFF -DQEL_BENCH=OFF
if [ -x build/release/host/qel-host ]; then
  exec build/release/host/qel-host demo "$@"
fi
echo "The stand-in host (qel-host) is not built yet; the plugin library and framework were built in build/release."
