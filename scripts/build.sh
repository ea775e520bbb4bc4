#!/usr/bin/env bash
# Configures and builds one preset (default: "default"): scripts/build.sh [asan|tsan|fuzz] [TARGET...]
# With targets, only those are built.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
shift || true
bash scripts/setup.sh
cmake --preset "$preset" >/dev/null
targets=()
for t in "$@"; do targets+=(--target "$t"); done
cmake --build --preset "$preset" -j "$(nproc)" "${targets[@]}"
