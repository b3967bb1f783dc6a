#!/usr/bin/env bash
# Runs clang-tidy with the repository's .clang-tidy over every translation
# unit of the project (framework, plugin, host, simulator, tests, benchmarks,
# fuzzers' replay mains) and fails on any finding. It only configures
# build/tidy, never builds it: nothing is generated at build time. The
# configuration uses unity translation units, so each header is parsed once
# per group of sources rather than once per source (about half the time on
# two cores); the .cpp files they include are checked as sources.
# Usage: scripts/check-tidy.sh [FILE-REGEX]   (limits the translation units)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=build/tidy
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_UNITY_BUILD=ON \
  -DQEL_TESTS=ON -DQEL_BENCH=ON >/dev/null
sources="^$root/(framework|teambuilder|host|sim|tests|bench|fuzz)/"
log=$build/tidy.log
# A unity translation unit includes .cpp files by design.
if run-clang-tidy -p "$build" -j "$(nproc)" -quiet -header-filter="$sources" \
     -checks=-bugprone-suspicious-include "${1:-.}" >"$log" 2>&1; then
  echo "tidy: clean ($(grep -c '"file"' "$build/compile_commands.json") translation units)"
  exit 0
fi
# Each finding once (a header seen from several units reports it each time).
sed 's/\x1b\[[0-9;]*m//g' "$log" | grep -E "^$root/.*(error|warning):" | sed "s|^$root/||" | sort -u >"$log.findings" || true
if [ ! -s "$log.findings" ]; then
  echo "tidy: clang-tidy failed without findings; see $log"
  tail -20 "$log"
  exit 1
fi
echo "tidy: $(wc -l <"$log.findings") finding(s) (full output in $log):"
cat "$log.findings"
exit 1
