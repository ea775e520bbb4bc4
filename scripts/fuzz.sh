#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time (ACL_FUZZ_SECONDS,
# default 30) from its seed corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset fuzz -DACL_FUZZ_SECONDS="${ACL_FUZZ_SECONDS:-30}" >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
ctest --preset fuzz
