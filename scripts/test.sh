#!/usr/bin/env bash
# Builds and runs every test: scripts/test.sh [default|asan|tsan]. Extra arguments go to ctest,
# e.g. scripts/test.sh default -L unit
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
shift || true
bash scripts/build.sh "$preset"
ctest --preset "$preset" "$@"
if [ "$preset" = default ] && [ -x scripts/fuzz.sh ]; then
  bash scripts/fuzz.sh
fi
if [ "$preset" = default ] && [ $# -eq 0 ]; then
  bash scripts/package.sh
fi
