#!/usr/bin/env bash
# Configures and builds one configuration: scripts/build.sh NAME [cmake options...]
# The build goes to build/NAME.
set -euo pipefail
cd "$(dirname "$0")/.."
name=$1; shift
cmake -S . -B "build/$name" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "build/$name" -j "$(nproc)"
