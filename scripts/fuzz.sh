#!/usr/bin/env bash
# Usage: scripts/fuzz.sh [SECONDS] [NAME-REGEX]
# Builds every libFuzzer target (or those whose name matches NAME-REGEX) with
# clang into build/fuzz and runs each for SECONDS seconds (default 60), starting from its seeds in fuzz/corpus/<name>/
# and the dictionary fuzz/corpus/<name>.dict when there is one. A crash, leak
# or sanitizer report fails the script; the reproducer is left in
# build/fuzz/artifacts/<name>/ (add it to the seeds and to a regression test).
# Each run reports its executions, executions per second and coverage (edges
# and features) at the end.
#
# QEL_FUZZ_KEEP=1 merges what a run found into fuzz/corpus/<name>/ (only the
# inputs that add coverage), so the next run and the corpus replay of the
# test build (fuzz_<name>_replay) start from there. The long form used once
# per release: QEL_FUZZ_KEEP=1 scripts/fuzz.sh 600
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
filter="${2:-.}"
build=build/fuzz

cmake -S . -B "$build" -G Ninja \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQEL_FUZZ=ON -DQEL_TESTS=OFF -DQEL_BENCH=OFF >/dev/null

mapfile -t fuzzers < <(grep -v '^$' "$build/fuzzers.txt" | grep -E "^[^ ]*($filter)[^ ]* " || true)
if [ ${#fuzzers[@]} -eq 0 ]; then
  echo "fuzz: no targets"
  exit 0
fi
names=()
for line in "${fuzzers[@]}"; do names+=("${line%% *}"); done
cmake --build "$build" -j "$(nproc)" --target "${names[@]}"

status=0
for line in "${fuzzers[@]}"; do
  name="${line%% *}"
  binary="${line#* }"
  work="$build/corpus/$name"
  artifacts="$build/artifacts/$name"
  mkdir -p "$work" "$artifacts"
  seeds=()
  [ -d "fuzz/corpus/$name" ] && seeds+=("fuzz/corpus/$name")
  options=(-max_total_time="$seconds" -rss_limit_mb=2048 -timeout=20 -print_final_stats=1
           -artifact_prefix="$artifacts/")
  [ -f "fuzz/corpus/$name.dict" ] && options+=(-dict="fuzz/corpus/$name.dict")
  echo "== fuzz $name for ${seconds}s"
  if ! ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
       "$binary" "${options[@]}" "$work" "${seeds[@]}" >"$build/$name.log" 2>&1; then
    echo "fuzz: $name failed; see $build/$name.log and $artifacts/"
    tail -n 40 "$build/$name.log"
    status=1
  else
    runs=$(sed -nE 's/^stat::number_of_executed_(runs|units): *//p' "$build/$name.log" | tail -n 1)
    speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$build/$name.log" | tail -n 1)
    cov=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$build/$name.log" | tail -n 1)
    echo "fuzz: $name: ${runs:-?} runs, ${speed:-?} exec/s, ${cov:-no coverage line}"
    if [ "${QEL_FUZZ_KEEP:-0}" = 1 ]; then
      mkdir -p "fuzz/corpus/$name"
      before=$(find "fuzz/corpus/$name" -type f | wc -l)
      "$binary" -merge=1 "fuzz/corpus/$name" "$work" >"$build/$name.merge.log" 2>&1 || true
      after=$(find "fuzz/corpus/$name" -type f | wc -l)
      echo "fuzz: $name: kept $((after - before)) new inputs in fuzz/corpus/$name"
    fi
  fi
done
exit $status
