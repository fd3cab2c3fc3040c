#!/usr/bin/env bash
# format_test.sh ROOT: fails when clang-format would change a file of ours, and shows where.
# format_test.sh --self-test: shows that it can fail.
set -euo pipefail

check() { # ROOT
  local folders=() folder
  for folder in src tests benchmarks; do
    if [[ -d $1/$folder ]]; then folders+=("$1/$folder"); fi
  done
  find "${folders[@]}" -type f \( -name '*.h' -o -name '*.cpp' \) -print0 |
    xargs -0 --no-run-if-empty -n 20 -P 2 clang-format --dry-run -Werror
}

if [[ ${1:-} == --self-test ]]; then
  root=$(mktemp -d)
  trap 'rm -rf -- "$root"' EXIT
  mkdir -p "$root/src" "$root/tests"
  printf 'BasedOnStyle: Google\n' >"$root/.clang-format"
  printf 'int good = 1;\n' >"$root/src/a file.cpp"
  check "$root"
  printf 'int   bad=1;\n' >"$root/tests/b.h"
  if check "$root" 2>/dev/null; then
    echo "a badly formatted file was not noticed"
    exit 1
  fi
  exit 0
fi
check "$1"
