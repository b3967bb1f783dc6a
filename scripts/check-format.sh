#!/usr/bin/env bash
# Fails when a tracked C++ file differs from what clang-format (the
# repository's .clang-format) makes of it; lists the files. With --fix,
# formats them in place instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cpp' '*.h')
if [ "${1:-}" = --fix ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
bad=()
for f in "${files[@]}"; do
  clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || bad+=("$f")
done
if [ ${#bad[@]} -gt 0 ]; then
  echo "format: ${#bad[@]} file(s) differ from clang-format (scripts/check-format.sh --fix):"
  printf '  %s\n' "${bad[@]}"
  exit 1
fi
echo "format: ${#files[@]} files as clang-format writes them"
