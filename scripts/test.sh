#!/usr/bin/env bash
# The README's test command (CI runs it through .ci/run). Installs what is
# missing, then, each stage timed:
#   - the format check (clang-format with the repository's .clang-format) and
#     the tidy check (clang-tidy with .clang-tidy, scripts/check-tidy.sh);
#   - a 32-bit Linux build of the framework and the plugin, so the host
#     records' i386 layout assertions and every other 32-bit fault fail;
#   - a warnings-as-errors build with every test (the gateway driven as a
#     process, the console in a headless browser, the OpenAPI validator);
#   - the same tests under AddressSanitizer + UndefinedBehaviorSanitizer;
#   - a short run of each fuzzer (QEL_SKIP_FUZZ=1 leaves them out);
#   - the Windows stage: cross build, exports, Wine (scripts/test-windows.sh).
# Each stage builds only what it tests: benchmarks are built by hand
# (scripts/build.sh release), not here.
set -euo pipefail
cd "$(dirname "$0")/.."
total_start=$(date +%s)
timings=()

# stage NAME COMMAND...: runs one stage and prints how long it took.
stage() {
  local name=$1 start
  shift
  echo "== $name"
  start=$(date +%s)
  "$@"
  local took=$(( $(date +%s) - start ))
  timings+=("$(printf '%-34s %4ds' "$name" "$took")")
  echo "== $name took ${took}s"
}

run_tests() {
  local build=$1
  (cd "build/$build" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
     ctest --output-on-failure -j "$(nproc)")
}

abi_header_check() {
  printf '#include "framework/host/HostAbi.h"\nint main(){return 0;}\n' > /tmp/qel-abi-m32.c
  gcc -m32 -std=c11 -Wall -Werror -I. -c /tmp/qel-abi-m32.c -o /tmp/qel-abi-m32.o
}

stage "setup" scripts/setup.sh windows
stage "format check" scripts/check-format.sh
stage "tidy check" scripts/check-tidy.sh
stage "i386 layout check (C)" abi_header_check
stage "32-bit Linux build" scripts/build-i386.sh
# Unity builds: a fraction of the compile time on two cores; developers'
# incremental builds (scripts/build.sh) stay per file. Line tables only (-g1)
# are enough for the stack traces a failing test or sanitizer prints, and
# the sanitizers' recommended -O1 halves their build's time against -O2 -g.
stage "release build" scripts/build.sh release -DQEL_WERROR=ON -DQEL_BENCH=OFF -DCMAKE_UNITY_BUILD=ON \
  "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG"
stage "release tests" run_tests release
stage "sanitizer build" scripts/build.sh asan -DQEL_WERROR=ON -DQEL_SANITIZE=ON -DQEL_BENCH=OFF \
  -DCMAKE_UNITY_BUILD=ON "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG"
stage "sanitizer tests" run_tests asan
if [ "${QEL_SKIP_FUZZ:-0}" != 1 ]; then
  stage "fuzzers" scripts/fuzz.sh "${QEL_FUZZ_SECONDS:-10}"
fi
stage "Windows: cross build, exports, Wine" scripts/test-windows.sh

echo "== stages"
printf '   %s\n' "${timings[@]}"
echo "== all stages took $(( $(date +%s) - total_start ))s"
