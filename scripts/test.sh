#!/usr/bin/env bash
# Builds and runs every test.
#
#   scripts/test.sh                everything CI runs, one preset after the other:
#                                  default  the product, the end-to-end suite, the package check
#                                           and a 60 s stress run (the unit tests run below,
#                                           under both sanitizers)
#                                  asan     the whole suite and the fuzz targets' bounded runs
#                                           under ASan and UBSan (clang)
#                                  tsan     the whole suite and a 30 s stress run under TSan
#                                           (clang)
#   scripts/test.sh PRESET [ARGS]  one preset's build and whole suite only (default, asan or
#                                  tsan); ARGS go to ctest, e.g. scripts/test.sh default -L unit
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

# Every unit test runs under both sanitizer builds below: the default build compiles only what
# its own steps run, which keeps the three builds inside CI's time on two cores.
step "default: build and end-to-end suite"
bash scripts/build.sh default acl aclctl acl_stress e2e_tests
ctest --preset default -L e2e
step "default: package"
bash scripts/package.sh
step "default: stress, 60 s"
bash scripts/stress.sh 60 default
step "asan: build, suite and fuzz targets"
suite asan
step "tsan: build and suite"
suite tsan
step "tsan: stress, 30 s"
bash scripts/stress.sh 30 tsan
step "done"
