#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test twice: a normal
# build with warnings as errors, and an AddressSanitizer + UBSan build.
# Also builds the framework and the plugin for 32-bit Linux, so the host
# records' i386 layout assertions and every other 32-bit fault fail the
# build, and runs the Windows stage (scripts/test-windows.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

# stage NAME COMMAND...: runs one stage and prints how long it took.
stage() {
  local name=$1 start
  shift
  start=$(date +%s)
  "$@"
  echo "== $name took $(( $(date +%s) - start ))s"
}

echo "== i386 layout check of the host ABI header"
if [ -f framework/host/HostAbi.h ]; then
  printf '#include "framework/host/HostAbi.h"\nint main(){return 0;}\n' > /tmp/qel-abi-m32.c
  gcc -m32 -std=c11 -Wall -Werror -I. -c /tmp/qel-abi-m32.c -o /tmp/qel-abi-m32.o
fi

echo "== 32-bit Linux build of the framework and the plugin (warnings as errors)"
stage "32-bit Linux build" scripts/build-i386.sh

echo "== release build (warnings as errors)"
scripts/build.sh release -DQEL_WERROR=ON
(cd build/release && ctest --output-on-failure -j "$(nproc)")

echo "== address + undefined-behaviour sanitizer build"
scripts/build.sh asan -DQEL_WERROR=ON -DQEL_SANITIZE=ON -DQEL_BENCH=OFF
(cd build/asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j "$(nproc)")

if [ -x scripts/fuzz.sh ] && [ "${QEL_SKIP_FUZZ:-0}" != 1 ]; then
  echo "== fuzzers"
  scripts/fuzz.sh "${QEL_FUZZ_SECONDS:-60}"
fi

echo "== Windows: cross build, exports, Wine"
stage "Windows stage" scripts/test-windows.sh
