#!/usr/bin/env bash
# The plugin as a 32-bit Windows DLL: cross-builds it, qel-host.exe and the
# GoogleTest suites that build for Windows with mingw-w64 into build/windows,
# checks that the DLL exports its entry and nothing else, and, where Wine for
# 32-bit programs can be installed, runs the demo scenarios, the load
# failures and the suites under Wine.
#
# The cross build and the export check must pass. When wine32 cannot be
# installed the script says why in apt's words, says that the Wine runs did
# not run, and still exits 0.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=build/windows
# The suites that build and run on Windows; hostapp, resources, rest,
# serviceproxy and teambuilder are left to the Linux build (see README).
suites="binding;codec;dispatch;host;log;platform"
dll=dvo-be-qel-lobby-team-builder.dll
entry=load_qel_lobby_team_builder

seconds() { date +%s; }
stage_start=$(seconds)

scripts/setup.sh windows

# libyaml has no mingw package: Debian's source package, unpacked in the build
# folder and compiled there for the target.
mkdir -p "$build/src"
yaml_dir=$(find "$build/src" -maxdepth 1 -type d -name 'libyaml-*' | head -n1)
if [ -z "$yaml_dir" ]; then
  (cd "$build/src" && apt-get source -qq libyaml >apt-source.log 2>&1) || {
    echo "windows: apt-get source libyaml failed:"; tail -n 5 "$build/src/apt-source.log"; exit 1; }
  yaml_dir=$(find "$build/src" -maxdepth 1 -type d -name 'libyaml-*' | head -n1)
fi

echo "== windows: cross build (i686 mingw-w64)"
build_start=$(seconds)
cmake -S . -B "$build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-i686.cmake" \
  -DCMAKE_BUILD_TYPE=Release -DQEL_WERROR=ON -DQEL_BENCH=OFF \
  -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$root/$build/bin" \
  -DQEL_YAML_SOURCE_DIR="$root/$yaml_dir" \
  -DQEL_TEST_FOLDERS="$suites" >/dev/null
cmake --build "$build" -j "${QEL_JOBS:-2}"
echo "windows: cross build took $(( $(seconds) - build_start ))s"

echo "== windows: exports of $dll"
dump=$(i686-w64-mingw32-objdump -p "$build/bin/$dll")
exports=$(sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$dump" | sed -n 's/^\s*\[ *[0-9]*\] //p')
imports=$(sed -n 's/^\s*DLL Name: //p' <<<"$dump" | sort -u | tr '\n' ' ')
if [ "$exports" != "$entry" ]; then
  echo "windows: $dll exports [$(tr '\n' ' ' <<<"$exports")], expected only $entry"
  exit 1
fi
echo "windows: $dll exports only $entry; imports ${imports}"

echo "== windows: Wine"
set +e
scripts/setup.sh wine
wine_status=$?
set -e
if [ $wine_status -ne 0 ] || ! command -v wine >/dev/null; then
  echo "windows: the Wine runs did NOT run (wine32 is not installed); the cross build and the export check passed"
  echo "windows: stage took $(( $(seconds) - stage_start ))s"
  exit 0
fi

wine_start=$(seconds)
export WINEARCH=win32 WINEDEBUG=-all WINEPREFIX="$root/$build/wineprefix" WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
rm -rf "$WINEPREFIX"
wineboot -i >/dev/null 2>&1 || true
wineserver -w || true

failures=0
host="$build/bin/qel-host.exe"
# expect STATUS NAME COMMAND...: runs one case under Wine, output to a log.
expect() {
  local want=$1 name=$2; shift 2
  local log="$build/wine-$name.log" got=0
  wine "$@" >"$log" 2>&1 || got=$?
  if [ "$got" -eq "$want" ]; then
    echo "windows: ok   $name (exit $got)"
  else
    echo "windows: FAIL $name (exit $got, expected $want); last lines of $log:"
    tail -n 15 "$log"
    failures=$((failures + 1))
  fi
}
for scenario in draft dodge decline kicked low-priority reconnect; do
  expect 0 "demo-$scenario" "$host" demo --scenario "$scenario" --speed max -q
done
expect 0 demo-malformed "$host" demo --scenario draft --speed max --malformed 0.3 -q
expect 2 refused-version "$host" info --core-version 17.0.0
expect 2 missing-entry "$host" info --entry nope
expect 2 missing-plugin "$host" info --plugin "$build/bin/no-such-plugin.dll"
grep -q "17.0.0" "$build/wine-refused-version.log" ||
  { echo "windows: FAIL refused-version: the plugin's refusal was not reported"; failures=$((failures + 1)); }

suites_passed=0 suites_failed=0
for test in "$build"/bin/*Test.exe; do
  name=$(basename "$test" .exe)
  log="$build/wine-$name.log"
  if wine "$test" >"$log" 2>&1; then
    suites_passed=$((suites_passed + 1))
    echo "windows: ok   $name ($(grep -m1 -oE '[0-9]+ tests? from [0-9]+ test suites? ran' "$log" || echo 'ran'))"
  else
    suites_failed=$((suites_failed + 1))
    echo "windows: FAIL $name; its failures:"
    grep -E '^\[  FAILED  \]|Failure|error' "$log" | head -n 20
  fi
done
wineserver -k || true
echo "windows: Wine suites: $suites_passed of $((suites_passed + suites_failed)) passed"
echo "windows: Wine runs took $(( $(seconds) - wine_start ))s"
echo "windows: stage took $(( $(seconds) - stage_start ))s"
if [ $failures -eq 0 ] && [ $suites_failed -eq 0 ]; then
  exit 0
fi
# The Wine runs have not yet passed once on a machine where wine32 installs
# (this project's machines could not install it); until they have, a failure
# is reported loudly but does not fail the stage unless asked to.
if [ "${QEL_WINE_GATING:-0}" = 1 ]; then
  exit 1
fi
echo "windows: WINE RUNS FAILED ($failures cases, $suites_failed suites); not gating (set QEL_WINE_GATING=1 to gate)"
