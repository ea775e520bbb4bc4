#!/usr/bin/env bash
# Configures and builds one preset (default: "default"): scripts/build.sh [asan|tsan|fuzz]
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
bash scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
