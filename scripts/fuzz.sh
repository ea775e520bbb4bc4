#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time (ACL_FUZZ_SECONDS,
# default 30) from its seed corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# The CPU-defend packet parser is small: a short run covers it. The device-control lines
# (vdev_control) take the common time unless ACL_FUZZ_SECONDS_VDEV_CONTROL says otherwise.
cmake --preset fuzz -DACL_FUZZ_SECONDS="${ACL_FUZZ_SECONDS:-30}" \
  -DACL_FUZZ_SECONDS_cpudefend_packet="${ACL_FUZZ_SECONDS_CPUDEFEND:-20}" \
  -DACL_FUZZ_SECONDS_vdev_control="${ACL_FUZZ_SECONDS_VDEV_CONTROL:-${ACL_FUZZ_SECONDS:-30}}" >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
ctest --preset fuzz
