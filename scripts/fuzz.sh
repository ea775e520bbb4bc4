#!/usr/bin/env bash
# Builds the libFuzzer targets (the asan preset: clang, ASan and UBSan, which also builds every
# test) and runs each for a bounded time (ACL_FUZZ_SECONDS, default 10) from its seed corpus, as
# CI does.
#
# scripts/fuzz.sh --long [RUNS]: a campaign instead: each target runs to RUNS executions
# (default 10000000, ACL_FUZZ_JOBS targets at a time, default 1) from its seed corpus and the
# corpus earlier campaigns grew (build/asan/fuzz/corpus_<name>), then the executions, coverage
# and findings of each are printed. A finding stops its target; its input is kept in
# build/asan/campaign/<name>/ (crash-*, leak-*, timeout-*, oom-*).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# The CPU-defend packet parser (ACL_FUZZ_SECONDS_CPUDEFEND) and the device-control lines
# (ACL_FUZZ_SECONDS_VDEV_CONTROL) take the common time unless given their own.
seconds=(-DACL_FUZZ_SECONDS="${ACL_FUZZ_SECONDS:-10}"
  -DACL_FUZZ_SECONDS_cpudefend_packet="${ACL_FUZZ_SECONDS_CPUDEFEND:-${ACL_FUZZ_SECONDS:-10}}"
  -DACL_FUZZ_SECONDS_vdev_control="${ACL_FUZZ_SECONDS_VDEV_CONTROL:-${ACL_FUZZ_SECONDS:-10}}")
# As in build.sh: a directory configured by an older preset definition is configured afresh.
cmake --preset asan "${seconds[@]}" >/dev/null 2>&1 || cmake --preset asan --fresh "${seconds[@]}" >/dev/null
fuzz_targets=()
for src in fuzz/*.cc; do fuzz_targets+=("fuzz_$(basename "$src" .cc)"); done
cmake --build --preset asan -j "$(nproc)" --target "${fuzz_targets[@]}"

if [ "${1:-}" != "--long" ]; then
  ctest --preset asan -L fuzz
  exit 0
fi

runs="${2:-10000000}"
case "$runs" in '' | *[!0-9]*) echo "fuzz.sh --long: RUNS must be a number" >&2; exit 2 ;; esac
bin=build/asan/fuzz
out=build/asan/campaign
mkdir -p "$out"

campaign() {
  local name=$1 dir="$out/$1" args=()
  rm -rf "$dir" && mkdir -p "$dir"
  mapfile -t args < <(grep -v '^$' "$bin/fuzz_$name.args")
  "$bin/fuzz_$name" -runs="$runs" -timeout=10 -print_final_stats=1 -artifact_prefix="$dir/" \
    "${args[@]}" >"$dir/log" 2>&1 || true
}

names=()
for f in "$bin"/fuzz_*.args; do
  n=$(basename "$f" .args)
  names+=("${n#fuzz_}")
done
jobs_max="${ACL_FUZZ_JOBS:-1}"
for n in "${names[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "$jobs_max" ]; do wait -n || true; done
  echo "fuzz_$n: running to $runs executions" >&2
  campaign "$n" &
done
wait

status=0
printf '%-20s %14s %10s %10s  %s\n' target executions coverage features findings
for n in "${names[@]}"; do
  dir="$out/$n"
  execs=$(sed -n "s/^Done \([0-9]*\) runs.*/\1/p" "$dir/log" | tail -1)
  last=$(grep -Eo 'cov: [0-9]+ ft: [0-9]+' "$dir/log" | tail -1)
  cov=$(echo "$last" | awk '{print $2}')
  ft=$(echo "$last" | awk '{print $4}')
  findings=$(find "$dir" -maxdepth 1 -name 'crash-*' -o -maxdepth 1 -name 'leak-*' \
    -o -maxdepth 1 -name 'timeout-*' -o -maxdepth 1 -name 'oom-*' | wc -l)
  [ "$findings" -eq 0 ] || status=1
  [ "${execs:-0}" -ge "$runs" ] || status=1
  printf '%-20s %14s %10s %10s  %s\n' "fuzz_$n" "${execs:-?}" "${cov:-?}" "${ft:-?}" "$findings"
done
exit "$status"
