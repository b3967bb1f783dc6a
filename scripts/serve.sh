#!/usr/bin/env bash
# The development server: builds the plugin and the stand-in host, then runs
# `qel-host serve` with the options given (see README).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh release -DQEL_TESTS=OFF -DQEL_BENCH=OFF
exec build/release/host/qel-host serve "$@"
