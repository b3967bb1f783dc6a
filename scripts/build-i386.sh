#!/usr/bin/env bash
# Builds the framework's libraries and the plugin's shared object for 32-bit
# Linux (gcc -m32) into build/i386, with warnings as errors. libyaml has no
# i386 package beside an amd64 system here, so Debian's source package is
# compiled with the rest; tests and benchmarks are not built.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=build/i386
scripts/setup.sh windows  # dpkg-dev and the deb-src entry for apt-get source
mkdir -p "$build/src"
yaml_dir=$(find "$build/src" -maxdepth 1 -type d -name 'libyaml-*' | head -n1)
if [ -z "$yaml_dir" ]; then
  (cd "$build/src" && apt-get source -qq libyaml >apt-source.log 2>&1) || {
    echo "i386: apt-get source libyaml failed:"; tail -n 5 "$build/src/apt-source.log"; exit 1; }
  yaml_dir=$(find "$build/src" -maxdepth 1 -type d -name 'libyaml-*' | head -n1)
fi
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/linux-i386.cmake" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQEL_WERROR=ON -DQEL_TESTS=OFF -DQEL_BENCH=OFF \
  -DQEL_YAML_SOURCE_DIR="$root/$yaml_dir" >/dev/null
cmake --build "$build" -j "${QEL_JOBS:-2}" --target dvo-be-qel-lobby-team-builder
