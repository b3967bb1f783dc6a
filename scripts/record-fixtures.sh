#!/usr/bin/env bash
# Records the sessions of the six scenarios that the tests replay against
# every build of the plugin (tests/hostapp/sessions/SCENARIO.jsonl):
#   scripts/record-fixtures.sh [BUILD_DIR]     (default build/release)
# Run it after a change that is meant to alter what crosses the host
# boundary; `git diff tests/hostapp/sessions` then shows what changed. The
# recordings use the simulated clock, so an unchanged plugin records the
# same bytes again.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
host=$build/host/qel-host
if [[ ! -x $host ]]; then
  echo "record-fixtures: $host is not built (cmake --build $build --target qel-host)" >&2
  exit 2
fi
out=tests/hostapp/sessions
mkdir -p "$out"
for scenario in draft dodge decline kicked low-priority reconnect; do
  "$host" demo --scenario "$scenario" --speed max --seed 7 -q --record "$out/$scenario.jsonl" >/dev/null
  echo "recorded $out/$scenario.jsonl ($(wc -c <"$out/$scenario.jsonl") bytes)"
done
