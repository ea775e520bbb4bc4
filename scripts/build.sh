#!/usr/bin/env bash
# Configures and builds one preset (default: "default"): scripts/build.sh [asan|tsan] [TARGET...]
# With targets, only those are built.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
shift || true
bash scripts/setup.sh
# A build directory configured by an earlier preset definition (another compiler, say) cannot be
# reconfigured in place: configure it afresh then.
if ! cmake --preset "$preset" >/dev/null 2>&1; then
  cmake --preset "$preset" --fresh >/dev/null
fi
targets=()
for t in "$@"; do targets+=(--target "$t"); done
cmake --build --preset "$preset" -j "$(nproc)" "${targets[@]}"
