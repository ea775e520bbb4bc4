#!/usr/bin/env bash
# Builds the libFuzzer targets (the asan preset: clang, ASan and UBSan, which also builds every
# test) and runs each for a bounded time (ACL_FUZZ_SECONDS, default 10) from its seed corpus, as
# CI does.
#
# scripts/fuzz.sh --long [RUNS] [TARGET...]: a campaign instead. The targets are built apart, in
# build/fuzzlong (the same sanitizers at -O2 with line tables only), and each named target (all
# by default) runs to RUNS executions (default 10000000) from its seed corpus and the corpus
# earlier runs grew (build/asan/fuzz/corpus_<name>, shared with the suite's bounded runs).
# ACL_FUZZ_WORKERS (default 1) processes share one target's corpus and split its RUNS; targets
# run one after the other. The executions, coverage and findings of each are printed at the end.
# A finding stops its worker; its input is kept in build/fuzzlong/campaign/<name>/ (crash-*,
# leak-*, timeout-*, oom-*), with each worker's log (log.N).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# The CPU-defend packet parser (ACL_FUZZ_SECONDS_CPUDEFEND) and the device-control lines
# (ACL_FUZZ_SECONDS_VDEV_CONTROL) take the common time unless given their own.
seconds=(-DACL_FUZZ_SECONDS="${ACL_FUZZ_SECONDS:-10}"
  -DACL_FUZZ_SECONDS_cpudefend_packet="${ACL_FUZZ_SECONDS_CPUDEFEND:-${ACL_FUZZ_SECONDS:-10}}"
  -DACL_FUZZ_SECONDS_vdev_control="${ACL_FUZZ_SECONDS_VDEV_CONTROL:-${ACL_FUZZ_SECONDS:-10}}")
fuzz_targets=()
for src in fuzz/*.cc; do fuzz_targets+=("fuzz_$(basename "$src" .cc)"); done

if [ "${1:-}" != "--long" ]; then
  # As in build.sh: a directory configured by an older preset definition is configured afresh.
  cmake --preset asan "${seconds[@]}" >/dev/null 2>&1 || cmake --preset asan --fresh "${seconds[@]}" >/dev/null
  cmake --build --preset asan -j "$(nproc)" --target "${fuzz_targets[@]}"
  ctest --preset asan -L fuzz
  exit 0
fi

runs="${2:-10000000}"
case "$runs" in '' | *[!0-9]*) echo "fuzz.sh --long: RUNS must be a number" >&2; exit 2 ;; esac
shift $(($# < 2 ? $# : 2))
workers="${ACL_FUZZ_WORKERS:-1}"
case "$workers" in '' | 0 | *[!0-9]*) echo "fuzz.sh --long: ACL_FUZZ_WORKERS must be a number > 0" >&2; exit 2 ;; esac

long=build/fuzzlong
PWD_ROOT=$PWD
opt="-O2 -gline-tables-only"
cmake --preset asan -B "$long" -DCMAKE_C_FLAGS_DEBUG="$opt" -DCMAKE_CXX_FLAGS_DEBUG="$opt" \
  >/dev/null 2>&1 || cmake --preset asan -B "$long" --fresh -DCMAKE_C_FLAGS_DEBUG="$opt" \
  -DCMAKE_CXX_FLAGS_DEBUG="$opt" >/dev/null
cmake --build "$long" -j "$(nproc)" --target "${fuzz_targets[@]}"
bin=$long/fuzz
out=$long/campaign
mkdir -p "$out"

# The corpus is the suite build's, so CI's bounded runs start from what campaigns found.
args_of() {
  grep -v '^$' "$bin/fuzz_$1.args" | sed "s#^$PWD/$long/fuzz/corpus_#$PWD/build/asan/fuzz/corpus_#"
}

campaign() {
  local name=$1 dir="$out/$1" args=() w each=$((runs / workers + (runs % workers > 0)))
  rm -rf "$dir" && mkdir -p "$dir"
  mapfile -t args < <(args_of "$name")
  mkdir -p "build/asan/fuzz/corpus_$name"
  # Each worker runs in a scratch directory of its own, in memory where there is one, also its
  # TMPDIR: whatever file a target writes goes there, not into the tree or onto the disk, and goes
  # with it.
  local scratch
  scratch=$(mktemp -d "$( [ -w /dev/shm ] && echo /dev/shm || echo /tmp)/acl-fuzz-XXXXXX")
  for ((w = 0; w < workers; w++)); do
    mkdir -p "$scratch/$w"
    (cd "$scratch/$w" && TMPDIR="$scratch/$w" exec "$PWD_ROOT/$bin/fuzz_$name" -runs="$each" -timeout=10 \
      -print_final_stats=1 -artifact_prefix="$PWD_ROOT/$dir/" -seed=$((w + 1)) "${args[@]}" \
      >"$PWD_ROOT/$dir/log.$w" 2>&1) &
  done
  wait || true
  rm -rf "$scratch"
}

names=()
if [ $# -gt 0 ]; then
  names=("$@")
else
  for f in "$bin"/fuzz_*.args; do
    n=$(basename "$f" .args)
    names+=("${n#fuzz_}")
  done
fi
for n in "${names[@]}"; do
  [ -f "$bin/fuzz_$n.args" ] || { echo "fuzz.sh --long: no target $n" >&2; exit 2; }
  echo "fuzz_$n: running to $runs executions ($workers worker(s))" >&2
  start=$SECONDS
  campaign "$n"
  echo "fuzz_$n: done in $((SECONDS - start)) s" >&2
done

status=0
printf '%-20s %14s %10s %10s  %s\n' target executions coverage features findings
for n in "${names[@]}"; do
  dir="$out/$n"
  execs=0
  for log in "$dir"/log.*; do
    e=$(sed -n "s/^Done \([0-9]*\) runs.*/\1/p" "$log" | tail -1)
    execs=$((execs + ${e:-0}))
  done
  # Coverage: the highest any worker reached (they share one corpus).
  last=$(grep -ho 'cov: [0-9]* ft: [0-9]*' "$dir"/log.* | sort -k2,2n | tail -1)
  cov=$(echo "$last" | awk '{print $2}')
  ft=$(echo "$last" | awk '{print $4}')
  findings=$(find "$dir" -maxdepth 1 \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' \
    -o -name 'oom-*' \) | wc -l)
  [ "$findings" -eq 0 ] || status=1
  [ "$execs" -ge "$runs" ] || status=1
  printf '%-20s %14s %10s %10s  %s\n' "fuzz_$n" "$execs" "${cov:-?}" "${ft:-?}" "$findings"
done
exit "$status"
