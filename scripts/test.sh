#!/usr/bin/env bash
# Builds and runs every test.
#
#   scripts/test.sh                everything CI runs, one preset after the other:
#                                  default  the suite, the package check and a 60 s stress run
#                                  asan     the suite and the fuzz targets' bounded runs under
#                                           ASan and UBSan (clang)
#                                  A third build does not fit CI's 30 minutes on two cores: run
#                                  the TSan suite and stress by hand (scripts/test.sh tsan;
#                                  scripts/stress.sh 30 tsan) after a change to threads or locks.
#   scripts/test.sh PRESET [ARGS]  one preset's build and suite only (default, asan or tsan); ARGS
#                                  go to ctest, e.g. scripts/test.sh default -L unit
set -euo pipefail
cd "$(dirname "$0")/.."

suite() {
  local preset=$1
  shift
  bash scripts/build.sh "$preset"
  ctest --preset "$preset" "$@"
}

if [ $# -gt 0 ]; then
  suite "$@"
  exit 0
fi

start=$SECONDS
step() { printf '\n== test.sh: %s (%d s so far)\n' "$1" $((SECONDS - start)); }

step "default: build and suite"
suite default
step "default: package"
bash scripts/package.sh
step "default: stress, 60 s"
bash scripts/stress.sh 60 default
step "asan: build, suite and fuzz targets"
suite asan
step "done"
